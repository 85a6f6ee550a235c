#include "video/VideoDecompressorCom.h"

#include "entry/Registry.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/PropertyMap.h"
#include "framework/kor/Packet.h"

#include <cmath>

CZorVideoDecompressorModule::CZorVideoDecompressorModule(const char* name)
    : CKorModule(name), CZorVideoDecompressor(OUTPUT_PLANAR) {}

CZorVideoDecompressorModule::~CZorVideoDecompressorModule() = default;

void CZorVideoDecompressorModule::CollectFrames() {
    while (CKorVideoPacket* frame = TakeFrame()) {
        m_Pending.ChainPacket(frame);
    }
}

int CZorVideoDecompressorModule::Receive(CKorPacket* packet) {
    if (m_InRecv) {
        BelDisplayAssert("!m_InRecv", __FILE__, __LINE__);
        return 0;
    }
    if (!m_Pending.DeliverTo(DownStreamModule())) {
        return 0;
    }
    m_InRecv = 1;
    switch (packet->GetKind()) {
    case CKorPacket::KIND_VIDEO: {
        auto* video = static_cast<CKorVideoPacket*>(packet);
        if (!video->IsTimeStampValid()) {
            Drain();
            CollectFrames();
            NewSequence();
        }
        SendPacket(video);
        CollectFrames();
        packet->Release();
        break;
    }
    case CKorPacket::KIND_TIMEBASE: {
        const int flags = static_cast<CKorTimeBasePacket*>(packet)->GetFlags();
        if ((flags & CKorTimeBasePacket::FLAG_END_OF_SEQUENCE) != 0 ||
            (flags & CKorTimeBasePacket::FLAG_CONTINUOUS) == 0) {
            Drain();
            CollectFrames();
        }
        if ((flags & CKorTimeBasePacket::FLAG_CONTINUOUS) == 0) {
            NewSequence();
        }
        m_Pending.ChainPacket(packet);
        break;
    }
    default:
        m_Pending.ChainPacket(packet);
        break;
    }
    m_Pending.DeliverTo(DownStreamModule());
    m_InRecv = 0;
    return 1;
}

void CZorVideoDecompressorModule::Poll() {
    if (m_Pending.DeliverTo(DownStreamModule())) {
        CKorModule::Poll();
    }
}

void CZorVideoDecompressorModule::Flush() {
    m_Pending.ReleaseAll();
    NewSequence();
    CKorModule::Flush();
}

// ---------------------------------------------------------------------------------------------

CZorVideoDecompressorCom::CZorVideoDecompressorCom(const char* dataPath)
    : CKor2PinComponent("VideoDecompressor"),
      m_pOwned(std::make_unique<CZorVideoDecompressorModule>()), m_pModule(m_pOwned.get()) {
    ConnectPath(dataPath);
}

CZorVideoDecompressorCom::~CZorVideoDecompressorCom() = default;

CKorModule* CZorVideoDecompressorCom::CreateContext(const char* path) {
    return SingleContext(path, m_pOwned);
}

const CJokPropertyMap<CZorVideoDecompressorCom>& CZorVideoDecompressorCom::PropertyMap() {
    using C = CZorVideoDecompressorCom;
    static const CJokPropertyMap<C> map = [] {
        CJokPropertyMap<C> m;
        m.AddNotifiedDouble("threads", &C::ThreadsHandler,
                            "&CZorVideoDecompressorCom::ThreadsHandler");
        m.AddNotifiedBoolean("grey", &C::GreyHandler, "&CZorVideoDecompressorCom::GreyHandler");
        m.AddNotifiedString("codec", &C::CodecHandler, "&CZorVideoDecompressorCom::CodecHandler",
                            1);
        m.AddNotifiedDouble("width", &C::WidthHandler, "&CZorVideoDecompressorCom::WidthHandler",
                            1);
        m.AddNotifiedDouble("height", &C::HeightHandler, "&CZorVideoDecompressorCom::HeightHandler",
                            1);
        m.AddNotifiedDouble("frames", &C::FramesHandler, "&CZorVideoDecompressorCom::FramesHandler",
                            1);
        m.AddNotifiedDouble("errors", &C::ErrorsHandler, "&CZorVideoDecompressorCom::ErrorsHandler",
                            1);
        return m;
    }();
    return map;
}

CJokGenericData* CZorVideoDecompressorCom::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKor2PinComponent::GetProperty(name, flags);
}

int CZorVideoDecompressorCom::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKor2PinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CZorVideoDecompressorCom::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKor2PinComponent::GetPropertyEnumerator());
}

int CZorVideoDecompressorCom::ThreadsHandler(double* value, int set) {
    if (!set) {
        *value = m_pModule->GetThreadCount();
        return 1;
    }
    // Whole numbers from 0 (one per core) to 64.
    if (!(*value >= 0 && *value <= 64) || std::floor(*value) != *value) {
        return 0;
    }
    m_pModule->SetThreadCount(static_cast<int>(*value));
    return 1;
}

int CZorVideoDecompressorCom::GreyHandler(int* value, int set) {
    if (set) {
        m_pModule->SetGreyOutput(*value != 0);
    } else {
        *value = m_pModule->IsGreyOutput() ? 1 : 0;
    }
    return 1;
}

int CZorVideoDecompressorCom::CodecHandler(CBelString* value, int set) {
    if (set) {
        return 0;
    }
    *value = m_pModule->CodecName();
    return 1;
}

namespace {

const BITMAPINFOHEADER* OutputHeader(const CZorVideoDecompressorModule& module) {
    const CKorVideoFormat* format = module.OutputFormat();
    return format ? &format->Header() : nullptr;
}

} // namespace

int CZorVideoDecompressorCom::WidthHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    const BITMAPINFOHEADER* header = OutputHeader(*m_pModule);
    *value = header ? header->biWidth : 0;
    return 1;
}

int CZorVideoDecompressorCom::HeightHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    const BITMAPINFOHEADER* header = OutputHeader(*m_pModule);
    *value = header ? std::abs(header->biHeight) : 0;
    return 1;
}

int CZorVideoDecompressorCom::FramesHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = static_cast<double>(m_pModule->FramesDecoded());
    return 1;
}

int CZorVideoDecompressorCom::ErrorsHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = static_cast<double>(m_pModule->ErrorCount());
    return 1;
}

int CreateVideoDecompressor(CJokCommandContext* context) {
    return ZorCreateWithDataPath<CZorVideoDecompressorCom>(context);
}
