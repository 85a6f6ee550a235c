#include "analytics/tracking/ObjectTracking.h"

#include "analytics/image/BeluiBitmapOps.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/PropertyMap.h"
#include "framework/kor/BoundingBoxesMD.h"
#include "framework/kor/Packet.h"
#include "video/VideoFrame.h"

#include <chrono>
#if defined(__x86_64__) || defined(__i386__)
#include <x86intrin.h>
#endif

namespace {

constexpr const char* kPath = "video";
constexpr int kMotionLevelAttribute = 1;

std::uint64_t CycleCount() {
#if defined(__x86_64__) || defined(__i386__)
    return __rdtsc();
#else
    return static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
#endif
}

void CopyStamp(const CKorPacket& from, CKorPacket& to) {
    to.SetTimeStamp(static_cast<std::uint32_t>(from.GetTimeStamp()));
    to.SetTimeStampValid(from.IsTimeStampValid());
    to.SetRealTimeStamp(from.GetRealTimeStamp());
    to.SetStreamNo(from.GetStreamNo());
    int level = 0;
    if (from.GetAttribute(kMotionLevelAttribute, &level)) {
        to.SetAttribute(kMotionLevelAttribute, level);
    }
}

std::uint16_t Coordinate(int v) {
    return static_cast<std::uint16_t>(v < 0 ? 0 : v > 65535 ? 65535 : v);
}

} // namespace

CZorObjectTrackingProcessor::CZorObjectTrackingProcessor()
    : CZorVideoDecompressor(CZorVideoDecompressor::OUTPUT_PLANAR) {
    // The chain reads luma only: by default the decoder spends nothing on colour.
    SetGreyOutput(true);
}

CZorObjectTrackingProcessor::~CZorObjectTrackingProcessor() = default;

void CZorObjectTrackingProcessor::NewSequence() {
    BelDump("NewSequence...\n");
    CZorVideoDecompressor::NewSequence();
}

void CZorObjectTrackingProcessor::NewFormat(unsigned long format) {
    ++m_FormatChanges;
    m_Format = format;
}

CKorVideoPacket* CZorObjectTrackingProcessor::Process(CKorVideoPacket* input, bool* produced) {
    // The decoder stamps each frame with the timestamp, validity and motion level of the packet
    // that carried its picture: the input's, unless the codec reorders pictures, when the
    // input's would be another picture's.
    CKorVideoPacket* frame = Decompress(input, produced);
    if (frame && *produced) {
        CKorVideoPacket* out = SmartTrack(frame, produced);
        frame->Release();
        return out;
    }
    *produced = false;
    return frame;
}

CKorVideoPacket* CZorObjectTrackingProcessor::SmartTrack(CKorVideoPacket* frame, bool* produced) {
    if (!frame) {
        BelDisplayAssert("frame", __FILE__, __LINE__);
        *produced = false;
        return nullptr;
    }
    SBeluiBitmap luma;
    SBeluiBitmap chroma;
    const BITMAPINFOHEADER* header = frame->GetBitmapInfo();
    if (!header || !CZorVideoFrame::GetPlanes(frame, &luma, &chroma)) {
        BelDump("CZorObjectTrackingProcessor::SmartTrack -> not a planar frame\n");
        *produced = false;
        return nullptr;
    }
    const std::int32_t sequence = frame->GetFormatSeqNumber();
    if (m_Chain.IsEmpty() || sequence != m_FormatSeqNumber) {
        if (!m_Chain.Rebuild(luma)) {
            *produced = false;
            return nullptr;
        }
        m_FormatSeqNumber = sequence;
        NewFormat(header->biCompression);
    }
    const std::uint64_t start = CycleCount();
    m_Chain.Track(luma);
    m_LastCycles = CycleCount() - start;
    if (m_DumpCycles) {
        BelDump("Cycles: %lu\n", static_cast<unsigned long>(m_LastCycles));
    }
    CKorVideoPacket* out = CZorVideoFrame::NewFrameLike(frame);
    SBeluiBitmap outLuma;
    SBeluiBitmap outChroma;
    if (!out || !CZorVideoFrame::GetPlanes(out, &outLuma, &outChroma)) {
        if (out) {
            out->Release();
        }
        BelDump("CZorObjectTrackingProcessor::SmartTrack -> no packet for the output\n");
        *produced = false;
        return nullptr;
    }
    // The output image goes straight into the new packet's planes.
    if (m_OutputPicture) {
        BeluiBitmapCopy(outLuma, luma);
        BeluiBitmapCopy(outChroma, chroma);
    } else {
        m_Chain.RenderOutput(luma, outLuma);
        if (!chroma.IsEmpty()) {
            m_Chain.RenderChroma(chroma, outChroma);
        }
    }
    *produced = true;
    CopyStamp(*frame, *out);
    out->SetFrameType(frame->GetFrameType());
    m_Chain.GetBoxes(m_Rects);
    m_LastBoxCount = static_cast<int>(m_Rects.size());
    if (!m_Rects.empty()) {
        if (header->biHeight > 0) {
            ZorFlipBoxes(m_Rects, header->biHeight);
        }
        auto* handler = new CKorMetadataHandler;
        auto* boxes = new CKorBoundingBoxesMD;
        for (const SBeluiRect& r : m_Rects) {
            boxes->AddBox(SKorBoundingBox{Coordinate(r.m_Left), Coordinate(r.m_Top),
                                          Coordinate(r.m_Right), Coordinate(r.m_Bottom), 1});
        }
        handler->Append(boxes);
        out->SetMetadataHandler(handler, true);
    }
    ++m_FramesTracked;
    return out;
}

// ---------------------------------------------------------------------------------------------

CZorObjectTrackingModule::CZorObjectTrackingModule(const char* name) : CKorUnbufferedModule(name) {}

CZorObjectTrackingModule::~CZorObjectTrackingModule() = default;

void CZorObjectTrackingModule::ProcessPacket() {
    CKorPacket* packet = m_pPacket;
    if (packet->GetKind() == CKorPacket::KIND_VIDEO) {
        if (!packet->IsTimeStampValid()) {
            m_Processor.NewSequence();
        }
        bool produced = false;
        CKorVideoPacket* result =
            m_Processor.Process(static_cast<CKorVideoPacket*>(packet), &produced);
        if (!result && !produced) {
            BelDump("Should disable ObjectTracking encoding!!!\n");
            return;
        }
        if (!m_pPacket) {
            BelDisplayAssert("m_Packet != 0", __FILE__, __LINE__);
        }
        if (!produced && result) {
            BelDump("Packet was dropped!!!\n");
            result->Release();
            result = nullptr;
        }
        if (m_pPacket) {
            m_pPacket->Release();
        }
        m_pPacket = result;
        return;
    }
    if (packet->GetKind() == CKorPacket::KIND_TIMEBASE) {
        BelDump("Time Base packet.\n");
        if ((static_cast<CKorTimeBasePacket*>(packet)->GetFlags() & 1) == 0) {
            m_Processor.NewSequence();
        }
    }
}

// ---------------------------------------------------------------------------------------------

CZorObjectTrackingModuleCom::CZorObjectTrackingModuleCom()
    : CKor2PinComponent("ObjectTrackingModule") {
    m_pModule = static_cast<CZorObjectTrackingModule*>(CreateContext(kPath));
    // Live analytics start switched off: packets pass untouched until a script enables them.
    m_pModule->DisableProcessing(1);
}

CZorObjectTrackingModuleCom::~CZorObjectTrackingModuleCom() = default;

CKorModule* CZorObjectTrackingModuleCom::CreateContext(const char* path) {
    return OnePathContext(path, kPath, [] { return new CZorObjectTrackingModule; });
}

const CJokPropertyMap<CZorObjectTrackingModuleCom>& CZorObjectTrackingModuleCom::PropertyMap() {
    using C = CZorObjectTrackingModuleCom;
    static const CJokPropertyMap<C> map = [] {
        CJokPropertyMap<C> m;
        m.AddNotifiedBoolean("enabled", &C::EnabledHandler,
                             "&CZorObjectTrackingModuleCom::EnabledHandler")
            .AddNotifiedBoolean("grey", &C::GreyHandler,
                                "&CZorObjectTrackingModuleCom::GreyHandler")
            .AddNotifiedDouble("threads", &C::ThreadsHandler,
                               "&CZorObjectTrackingModuleCom::ThreadsHandler")
            .AddNotifiedBoolean("dumpCycles", &C::DumpCyclesHandler,
                                "&CZorObjectTrackingModuleCom::DumpCyclesHandler")
            .AddNotifiedBoolean("picture", &C::PictureHandler,
                                "&CZorObjectTrackingModuleCom::PictureHandler")
            .AddNotifiedDouble("frames", &C::FramesHandler,
                               "&CZorObjectTrackingModuleCom::FramesHandler", 1)
            .AddNotifiedDouble("boxes", &C::BoxesHandler,
                               "&CZorObjectTrackingModuleCom::BoxesHandler", 1)
            .AddNotifiedDouble("foreground", &C::ForegroundHandler,
                               "&CZorObjectTrackingModuleCom::ForegroundHandler", 1)
            .AddNotifiedDouble("cycles", &C::CyclesHandler,
                               "&CZorObjectTrackingModuleCom::CyclesHandler", 1)
            .AddNotifiedDouble("errors", &C::ErrorsHandler,
                               "&CZorObjectTrackingModuleCom::ErrorsHandler", 1);
        return m;
    }();
    return map;
}

CJokGenericData* CZorObjectTrackingModuleCom::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKor2PinComponent::GetProperty(name, flags);
}

int CZorObjectTrackingModuleCom::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKor2PinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CZorObjectTrackingModuleCom::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKor2PinComponent::GetPropertyEnumerator());
}

int CZorObjectTrackingModuleCom::EnabledHandler(int* value, int set) {
    if (!set) {
        *value = m_pModule->IsDisabled() ? 0 : 1;
        return 1;
    }
    m_pModule->DisableProcessing(*value ? 0 : 1);
    return 1;
}

int CZorObjectTrackingModuleCom::GreyHandler(int* value, int set) {
    if (!set) {
        *value = m_pModule->Processor().IsGreyOutput() ? 1 : 0;
        return 1;
    }
    m_pModule->Processor().SetGreyOutput(*value != 0);
    return 1;
}

int CZorObjectTrackingModuleCom::ThreadsHandler(double* value, int set) {
    if (!set) {
        *value = m_pModule->Processor().GetThreadCount();
        return 1;
    }
    if (!(*value >= 0 && *value <= 64) || *value != static_cast<int>(*value)) {
        BelReportScriptError("ObjectTrackingModule.threads: a whole number from 0 to 64");
        return 0;
    }
    m_pModule->Processor().SetThreadCount(static_cast<int>(*value));
    return 1;
}

int CZorObjectTrackingModuleCom::DumpCyclesHandler(int* value, int set) {
    if (!set) {
        *value = m_pModule->Processor().GetDumpCycles() ? 1 : 0;
        return 1;
    }
    m_pModule->Processor().SetDumpCycles(*value != 0);
    return 1;
}

int CZorObjectTrackingModuleCom::PictureHandler(int* value, int set) {
    if (!set) {
        *value = m_pModule->Processor().GetOutputPicture() ? 1 : 0;
        return 1;
    }
    m_pModule->Processor().SetOutputPicture(*value != 0);
    return 1;
}

int CZorObjectTrackingModuleCom::FramesHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = static_cast<double>(m_pModule->Processor().FramesTracked());
    return 1;
}

int CZorObjectTrackingModuleCom::BoxesHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = m_pModule->Processor().LastBoxCount();
    return 1;
}

int CZorObjectTrackingModuleCom::ForegroundHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    const CBelui2DMask& mask = m_pModule->Processor().Chain().BlockMask();
    const int blocks = mask.BlocksAcross() * mask.BlocksDown();
    *value = blocks > 0 ? static_cast<double>(mask.CountSet()) / blocks : 0.0;
    return 1;
}

int CZorObjectTrackingModuleCom::CyclesHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = static_cast<double>(m_pModule->Processor().LastCycles());
    return 1;
}

int CZorObjectTrackingModuleCom::ErrorsHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = static_cast<double>(m_pModule->Processor().ErrorCount());
    return 1;
}
