#include "video/MotionLevelStamper.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/GenericData.h"
#include "framework/jok/PropertyMap.h"
#include "framework/kor/Packet.h"
#include "video/VideoFrame.h"

#include <algorithm>
#include <cmath>

namespace {

// A held packet whose picture has not come after this many later packets never will: the codec
// dropped it.
constexpr std::int64_t kMaxHeld = 64;

// The region's part of a plane (empty when they do not meet).
SBeluiBitmap Crop(const SBeluiBitmap& plane, const CZorMotionLevelStamper::SRegion& region) {
    if (region.m_Width <= 0) {
        return plane;
    }
    const int left = std::min(region.m_X, plane.m_Width);
    const int top = std::min(region.m_Y, plane.m_Height);
    const int right = std::min(region.m_X + region.m_Width, plane.m_Width);
    const int bottom = std::min(region.m_Y + region.m_Height, plane.m_Height);
    if (right <= left || bottom <= top) {
        return SBeluiBitmap{};
    }
    return SBeluiBitmap{plane.Row(top) + left, plane.m_Stride, right - left, bottom - top};
}

} // namespace

CZorMotionLevelStamper::CZorMotionLevelStamper(const char* name) : CKorModule(name) {
    m_Decoder.SetGreyOutput(true); // the level reads luma only
}

CZorMotionLevelStamper::~CZorMotionLevelStamper() {
    for (const SHeld& held : m_Held) {
        held.m_pPacket->Release();
    }
    if (m_pPrevious) {
        m_pPrevious->Release();
    }
}

int CZorMotionLevelStamper::MeasureFrame(CKorVideoPacket* frame) {
    int level = 0;
    SBeluiBitmap current;
    SBeluiBitmap previous;
    if (m_pPrevious && CZorVideoFrame::GetPlanes(frame, &current, nullptr) &&
        CZorVideoFrame::GetPlanes(m_pPrevious, &previous, nullptr)) {
        level =
            ZorMeasureMotion(Crop(current, m_Region), Crop(previous, m_Region), m_Settings).m_Level;
    }
    if (m_pPrevious) {
        m_pPrevious->Release();
    }
    m_pPrevious = frame;
    m_LastLevel = level;
    ++m_Stamped;
    return level;
}

void CZorMotionLevelStamper::TakeDecodedFrames() {
    std::int64_t index = -1;
    while (CKorVideoPacket* frame = m_Decoder.TakeFrame(&index)) {
        const int level = MeasureFrame(frame);
        for (SHeld& held : m_Held) {
            if (held.m_Index == index) {
                held.m_pPacket->SetAttribute(1, level);
                held.m_Index = -1;
                break;
            }
        }
    }
}

void CZorMotionLevelStamper::ReleaseDone(bool all) {
    const std::int64_t oldest = m_Decoder.NextInputIndex() - kMaxHeld;
    while (!m_Held.empty() &&
           (all || m_Held.front().m_Index < 0 || m_Held.front().m_Index < oldest)) {
        m_Pending.ChainPacket(m_Held.front().m_pPacket);
        m_Held.pop_front();
    }
}

void CZorMotionLevelStamper::EndSequence() {
    m_Decoder.Drain();
    TakeDecodedFrames();
    m_Decoder.NewSequence();
    if (m_pPrevious) {
        m_pPrevious->Release();
        m_pPrevious = nullptr;
    }
    ReleaseDone(true);
}

int CZorMotionLevelStamper::Receive(CKorPacket* packet) {
    if (m_InRecv) {
        BelDisplayAssert("!m_InRecv", __FILE__, __LINE__);
        return 0;
    }
    if (!m_Pending.DeliverTo(DownStreamModule())) {
        return 0;
    }
    m_InRecv = 1;
    SHeld held{packet, -1};
    if (packet->GetKind() == CKorPacket::KIND_VIDEO) {
        auto* video = static_cast<CKorVideoPacket*>(packet);
        if (!video->IsTimeStampValid()) {
            EndSequence();
        }
        if (CZorVideoFrame::IsFrame(video)) {
            video->AddRef();
            video->SetAttribute(1, MeasureFrame(video));
        } else {
            held.m_Index = m_Decoder.NextInputIndex();
            if (!m_Decoder.SendPacket(video)) {
                held.m_Index = -1; // no picture will come: it goes on unstamped
            }
        }
    } else if (packet->GetKind() == CKorPacket::KIND_TIMEBASE) {
        const int flags = static_cast<CKorTimeBasePacket*>(packet)->GetFlags();
        if ((flags & CKorTimeBasePacket::FLAG_END_OF_SEQUENCE) != 0 ||
            (flags & CKorTimeBasePacket::FLAG_CONTINUOUS) == 0) {
            EndSequence();
        }
    }
    m_Held.push_back(held);
    TakeDecodedFrames();
    ReleaseDone(false);
    m_Pending.DeliverTo(DownStreamModule());
    m_InRecv = 0;
    return 1;
}

void CZorMotionLevelStamper::Poll() {
    if (m_Pending.DeliverTo(DownStreamModule())) {
        CKorModule::Poll();
    }
}

void CZorMotionLevelStamper::Flush() {
    for (const SHeld& held : m_Held) {
        held.m_pPacket->Release();
    }
    m_Held.clear();
    m_Pending.ReleaseAll();
    m_Decoder.NewSequence();
    if (m_pPrevious) {
        m_pPrevious->Release();
        m_pPrevious = nullptr;
    }
    CKorModule::Flush();
}

// ---------------------------------------------------------------------------------------------

CVideoFilterCom::CVideoFilterCom()
    : CKor2PinComponent("VideoFilter"), m_pOwned(std::make_unique<CZorMotionLevelStamper>()),
      m_pModule(m_pOwned.get()) {}

CVideoFilterCom::~CVideoFilterCom() = default;

CKorModule* CVideoFilterCom::CreateContext(const char* path) {
    return SingleContext(path, m_pOwned);
}

const CJokPropertyMap<CVideoFilterCom>& CVideoFilterCom::PropertyMap() {
    using C = CVideoFilterCom;
    static const CJokPropertyMap<C> map = [] {
        CJokPropertyMap<C> m;
        m.AddNotifiedDouble("noiseFloor", &C::NoiseFloorHandler,
                            "&CVideoFilterCom::NoiseFloorHandler");
        m.AddNotifiedDouble("scale", &C::ScaleHandler, "&CVideoFilterCom::ScaleHandler");
        m.AddNotifiedGenericData("region", &C::RegionHandler, "&CVideoFilterCom::RegionHandler");
        m.AddNotifiedDouble("threads", &C::ThreadsHandler, "&CVideoFilterCom::ThreadsHandler");
        m.AddNotifiedDouble("level", &C::LevelHandler, "&CVideoFilterCom::LevelHandler", 1);
        m.AddNotifiedDouble("stamped", &C::StampedHandler, "&CVideoFilterCom::StampedHandler", 1);
        return m;
    }();
    return map;
}

CJokGenericData* CVideoFilterCom::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKor2PinComponent::GetProperty(name, flags);
}

int CVideoFilterCom::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKor2PinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CVideoFilterCom::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKor2PinComponent::GetPropertyEnumerator());
}

int CVideoFilterCom::NoiseFloorHandler(double* value, int set) {
    if (!set) {
        *value = m_pModule->Settings().m_NoiseFloor;
        return 1;
    }
    if (!(*value >= 0 && *value <= 255) || std::floor(*value) != *value) {
        return 0; // a luma difference: a whole sample value
    }
    m_pModule->Settings().m_NoiseFloor = static_cast<int>(*value);
    return 1;
}

int CVideoFilterCom::ScaleHandler(double* value, int set) {
    if (!set) {
        *value = m_pModule->Settings().m_Scale;
        return 1;
    }
    if (!(*value > 0 && *value <= 1000)) {
        return 0;
    }
    m_pModule->Settings().m_Scale = *value;
    return 1;
}

int CVideoFilterCom::RegionHandler(CJokGenericData** value, int set) {
    CZorMotionLevelStamper::SRegion& region = m_pModule->Region();
    if (!set) {
        const bool whole = region.m_Width <= 0;
        const double fields[] = {double(region.m_X), double(region.m_Y), double(region.m_Width),
                                 double(region.m_Height)};
        *value = CJokGdVector::AllocateNumbers(fields, whole ? 0 : 4);
        return 1;
    }
    // The script's null, or an empty vector: the whole picture. Else x, y, width, height.
    if ((*value)->GetType() == JOKGD_NULL) {
        region = {};
        return 1;
    }
    if ((*value)->GetType() != JOKGD_VECTOR) {
        return 0;
    }
    const auto* vector = static_cast<const CJokGdVector*>(*value);
    if (vector->GetSize() == 0) {
        region = {};
        return 1;
    }
    int fields[4] = {};
    for (int i = 0; i < 4 && vector->GetSize() == 4; ++i) {
        const CJokGenericData* element = vector->GetElement(i);
        if (!element || element->GetType() != JOKGD_DOUBLE) {
            return 0;
        }
        const double number = static_cast<const CJokGdDouble*>(element)->GetValue();
        const double low = i < 2 ? 0 : 1;
        if (!(number >= low && number <= CZorVideoFrame::kMaxSide) ||
            std::floor(number) != number) {
            return 0;
        }
        fields[i] = static_cast<int>(number);
    }
    if (vector->GetSize() != 4) {
        return 0;
    }
    region = CZorMotionLevelStamper::SRegion{fields[0], fields[1], fields[2], fields[3]};
    return 1;
}

int CVideoFilterCom::ThreadsHandler(double* value, int set) {
    if (!set) {
        *value = m_pModule->Decoder().GetThreadCount();
        return 1;
    }
    if (!(*value >= 0 && *value <= 64) || std::floor(*value) != *value) {
        return 0;
    }
    m_pModule->Decoder().SetThreadCount(static_cast<int>(*value));
    return 1;
}

int CVideoFilterCom::LevelHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = m_pModule->LastLevel();
    return 1;
}

int CVideoFilterCom::StampedHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = static_cast<double>(m_pModule->StampedCount());
    return 1;
}
