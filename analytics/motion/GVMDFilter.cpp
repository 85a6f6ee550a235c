#include "analytics/motion/GVMDFilter.h"

#include "analytics/motion/ArchiveIntervals.h"
#include "analytics/motion/MotionTime.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/PropertyMap.h"
#include "framework/kor/AttributeSource.h"
#include "framework/kor/Packet.h"

#include <cmath>
#include <cstring>

using zormotion::Elapsed;
using zormotion::Later;
using zormotion::TruncateMs;

namespace {

constexpr const char* kPath = "video";

void Refuse(const char* component, const char* property, const CBelString& why) {
    CBelString text;
    text.Format("%s.%s: %s", component, property, why.c_str());
    BelReportScriptError(text);
}

// The handlers both components share, over their settings.
int SharedSensitivity(CZorGVMDSettings& settings, const char* component, double* value, int set) {
    if (!set) {
        *value = settings.GetSensitivity();
        return 1;
    }
    if (std::isnan(*value)) {
        Refuse(component, "dSensitivity", "NaN is not a sensitivity (0 to 1)");
        return 0;
    }
    return settings.SensitivityHandler(*value, 1);
}

int SharedDelay(CZorGVMDSettings& settings, const char* component, bool isShort, double* value,
                int set) {
    const char* name = isShort ? "shortDelay" : "longDelay";
    if (!set) {
        *value =
            static_cast<double>(isShort ? settings.ShortDelay(0, 0) : settings.LongDelay(0, 0));
        return 1;
    }
    if (std::isnan(*value) || *value < 0 || *value > 2147483647.0) {
        CBelString why;
        why.Format("%s is not a delay in ms from 0 to 2147483647",
                   zormotion::NumberText(*value).c_str());
        Refuse(component, name, why);
        return 0;
    }
    const long ms = TruncateMs(*value);
    return static_cast<int>(isShort ? settings.ShortDelay(ms, 1) : settings.LongDelay(ms, 1));
}

int SharedPacked(CZorGVMDSettings& settings, const char* component, CBelString* value, int set) {
    CBelString why;
    if (settings.PackedMaskHandler(value, set, &why)) {
        return 1;
    }
    Refuse(component, "sPackedRects", why);
    return 0;
}

int SharedRects(CZorGVMDSettings& settings, const char* component, CJokGenericData** value,
                int set) {
    CBelString why;
    if (settings.MaskHandler(value, set, &why)) {
        return 1;
    }
    Refuse(component, "vMaskRects", why);
    return 0;
}

} // namespace

// ---------------------------------------------------------------------------------------------
// CGVMDCollisionInfoCom

CGVMDCollisionInfoCom::CGVMDCollisionInfoCom(double start, double end)
    : CJokComponent("GVMDCollisionInformation"), m_dStartingTime(start), m_dEndTime(end) {}

const CJokPropertyMap<CGVMDCollisionInfoCom>& CGVMDCollisionInfoCom::PropertyMap() {
    using C = CGVMDCollisionInfoCom;
    static const CJokPropertyMap<C> map = [] {
        CJokPropertyMap<C> m;
        m.AddDouble("startTime", &C::m_dStartingTime, "&CGVMDCollisionInfoCom::m_dStartingTime", 1)
            .AddDouble("endTime", &C::m_dEndTime, "&CGVMDCollisionInfoCom::m_dEndTime", 1);
        return m;
    }();
    return map;
}

CJokGenericData* CGVMDCollisionInfoCom::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CJokComponent::GetProperty(name, flags);
}

int CGVMDCollisionInfoCom::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    return result == -1 ? CJokComponent::SetProperty(name, value) : result != 0;
}

CJokPropertyEnum* CGVMDCollisionInfoCom::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CJokComponent::GetPropertyEnumerator());
}

// ---------------------------------------------------------------------------------------------
// CZorGVMDFilter

CZorGVMDFilter::CZorGVMDFilter()
    : CKor2PinComponent("GVMDFilter"), CKorUnbufferedModule("GVMDFilter") {
    DisableProcessing(1);
}

CZorGVMDFilter::~CZorGVMDFilter() {
    if (m_pIGVMD) {
        m_pIGVMD->Release();
    }
}

CKorModule* CZorGVMDFilter::CreateContext(const char* path) {
    return path && std::strcmp(path, kPath) == 0 ? this : nullptr;
}

void CZorGVMDFilter::ProcessPacket() {
    const CKorPacket* packet = m_pPacket;
    if (!packet->IsTimeStampValid() || packet->GetKind() != CKorPacket::KIND_VIDEO) {
        return;
    }
    m_LastTimeStamp = static_cast<std::int32_t>(packet->GetTimeStamp());
    const auto* boxes =
        static_cast<const CKorBoundingBoxesMD*>(packet->FindMetadata(kMetadataBoundingBoxes));
    ProcessMD(m_LastTimeStamp, boxes, packet->GetRealTimeStamp());
}

void CZorGVMDFilter::SignalCollision(long time, bool collision, double realTime) {
    if (!m_pIGVMD) {
        return;
    }
    CJokCommandContext context;
    context.AddParam(nullptr, realTime);
    context.AddParam(nullptr, collision ? 1 : 0);
    context.AddParam(nullptr, static_cast<double>(time));
    CallScript(m_pIGVMD, context);
}

const CJokPropertyMap<CZorGVMDFilter>& CZorGVMDFilter::PropertyMap() {
    using C = CZorGVMDFilter;
    static const CJokPropertyMap<C> map = [] {
        CJokPropertyMap<C> m;
        m.AddInterface("onCollision", &C::m_pIGVMD, IID_IJokCommand, "IJokCommand",
                       "&CZorGVMDFilter::m_pIGVMD")
            .AddNotifiedDouble("shortDelay", &C::ShortDelayProperty,
                               "&CZorGVMDFilter::ShortDelayProperty")
            .AddNotifiedDouble("longDelay", &C::LongDelayProperty,
                               "&CZorGVMDFilter::LongDelayProperty")
            .AddNotifiedDouble("dSensitivity", &C::SensitivityProperty,
                               "&CZorGVMDFilter::SensitivityProperty")
            .AddNotifiedString("sPackedRects", &C::PackedRectsProperty,
                               "&CZorGVMDFilter::PackedRectsProperty")
            .AddNotifiedGenericData("vMaskRects", &C::MaskRectsProperty,
                                    "&CZorGVMDFilter::MaskRectsProperty")
            .AddNotifiedDouble("timeStamp", &C::TimeStampProperty,
                               "&CZorGVMDFilter::TimeStampProperty", 1)
            .AddNotifiedBoolean("enabled", &C::EnabledProperty, "&CZorGVMDFilter::EnabledProperty");
        return m;
    }();
    return map;
}

CJokGenericData* CZorGVMDFilter::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKor2PinComponent::GetProperty(name, flags);
}

int CZorGVMDFilter::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKor2PinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CZorGVMDFilter::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKor2PinComponent::GetPropertyEnumerator());
}

int CZorGVMDFilter::SensitivityProperty(double* value, int set) {
    return SharedSensitivity(*this, "GVMDFilter", value, set);
}

int CZorGVMDFilter::ShortDelayProperty(double* value, int set) {
    return SharedDelay(*this, "GVMDFilter", true, value, set);
}

int CZorGVMDFilter::LongDelayProperty(double* value, int set) {
    return SharedDelay(*this, "GVMDFilter", false, value, set);
}

int CZorGVMDFilter::PackedRectsProperty(CBelString* value, int set) {
    return SharedPacked(*this, "GVMDFilter", value, set);
}

int CZorGVMDFilter::MaskRectsProperty(CJokGenericData** value, int set) {
    return SharedRects(*this, "GVMDFilter", value, set);
}

int CZorGVMDFilter::TimeStampProperty(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = static_cast<double>(m_LastTimeStamp);
    return 1;
}

int CZorGVMDFilter::EnabledProperty(int* value, int set) {
    if (!set) {
        *value = IsDisabled() ? 0 : 1;
        return 1;
    }
    DisableProcessing(*value ? 0 : 1);
    if (!*value) {
        Reset();
    }
    return 1;
}

// ---------------------------------------------------------------------------------------------
// CZorArchiveGVMDFilter

CZorArchiveGVMDFilter::CZorArchiveGVMDFilter() : CJokComponent("ArchiveGVMDFilter") {}

CZorArchiveGVMDFilter::~CZorArchiveGVMDFilter() {
    if (m_pSource) {
        m_pSource->Release();
    }
}

const CJokPropertyMap<CZorArchiveGVMDFilter>& CZorArchiveGVMDFilter::PropertyMap() {
    using C = CZorArchiveGVMDFilter;
    static const CJokPropertyMap<C> map = [] {
        CJokPropertyMap<C> m;
        m.AddNotifiedString("sPackedRects", &C::PackedRectsProperty,
                            "&CZorArchiveGVMDFilter::PackedRectsProperty")
            .AddNotifiedGenericData("vMaskRects", &C::MaskRectsProperty,
                                    "&CZorArchiveGVMDFilter::MaskRectsProperty")
            .AddNotifiedDouble("shortDelay", &C::ShortDelayProperty,
                               "&CZorArchiveGVMDFilter::ShortDelayProperty")
            .AddNotifiedDouble("longDelay", &C::LongDelayProperty,
                               "&CZorArchiveGVMDFilter::LongDelayProperty")
            .AddNotifiedDouble("dSensitivity", &C::SensitivityProperty,
                               "&CZorArchiveGVMDFilter::SensitivityProperty")
            .AddNotifiedInterface("source", &C::SourceProperty, IID_IJokArchiveAttributeSource,
                                  "IJokArchiveAttributeSource",
                                  "&CZorArchiveGVMDFilter::SourceProperty")
            .AddFunction("FindCollisions", &C::FindCollisions,
                         "&CZorArchiveGVMDFilter::FindCollisions");
        return m;
    }();
    return map;
}

CJokGenericData* CZorArchiveGVMDFilter::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CJokComponent::GetProperty(name, flags);
}

int CZorArchiveGVMDFilter::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    return result == -1 ? CJokComponent::SetProperty(name, value) : result != 0;
}

CJokPropertyEnum* CZorArchiveGVMDFilter::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CJokComponent::GetPropertyEnumerator());
}

int CZorArchiveGVMDFilter::SensitivityProperty(double* value, int set) {
    return SharedSensitivity(*this, "ArchiveGVMDFilter", value, set);
}

int CZorArchiveGVMDFilter::ShortDelayProperty(double* value, int set) {
    return SharedDelay(*this, "ArchiveGVMDFilter", true, value, set);
}

int CZorArchiveGVMDFilter::LongDelayProperty(double* value, int set) {
    return SharedDelay(*this, "ArchiveGVMDFilter", false, value, set);
}

int CZorArchiveGVMDFilter::PackedRectsProperty(CBelString* value, int set) {
    return SharedPacked(*this, "ArchiveGVMDFilter", value, set);
}

int CZorArchiveGVMDFilter::MaskRectsProperty(CJokGenericData** value, int set) {
    return SharedRects(*this, "ArchiveGVMDFilter", value, set);
}

int CZorArchiveGVMDFilter::SourceProperty(IUnknown** value, int set) {
    return zormotion::ArchiveSourceHandler(&m_pSource, value, set);
}

void CZorArchiveGVMDFilter::SignalCollision(long time, bool collision, double) {
    m_Intervals.Signal(time, collision, m_TimeOffset);
}

int CZorArchiveGVMDFilter::FindCollisions(CJokCommandContext* context) {
    zormotion::SArchiveRange range;
    if (!zormotion::ReadArchiveRange(context, "FindCollisions", &range)) {
        return 1;
    }
    m_Intervals.Begin();
    if (!range.m_Continued) {
        m_TimeOffset = 0;
        Reset();
    } else if (!range.m_LowState) {
        // The previous range ended in a collision: it goes on from this range's start. Internal
        // time is offset + source time, so the start is reopened there and reads back as
        // StartTime, as a reopened motion interval does.
        SignalCollision(Later(m_TimeOffset, TruncateMs(range.m_Start)), true, -1.0);
    }
    Replay(TruncateMs(range.m_Start), TruncateMs(range.m_End));
    context->SetReturnValueNoRef(m_Intervals.Finish<CGVMDCollisionInfoCom>());
    return 1;
}

void CZorArchiveGVMDFilter::ReadFailed() {
    zormotion::DumpReadFailure(m_pSource, "CZorArchiveGVMDFilter::Replay");
}

void CZorArchiveGVMDFilter::CatchUp(std::int32_t time, const CKorMetadataHandler* held) {
    const std::int32_t motion = static_cast<std::int32_t>(GetMotionTime());
    const std::int32_t shortDelay = static_cast<std::int32_t>(ShortDelay(0, 0));
    const std::int32_t longDelay = static_cast<std::int32_t>(LongDelay(0, 0));
    if (GetState() == zormotion::CGvmdStateMachine::PENDING && Elapsed(motion, time) > shortDelay) {
        ProcessMD(Later(motion, shortDelay), held);
    }
    const std::int32_t since = static_cast<std::int32_t>(GetMotionTime());
    if (GetState() == zormotion::CGvmdStateMachine::COLLISION && Elapsed(since, time) > longDelay) {
        ProcessMD(Later(since, longDelay), held);
    }
}

void CZorArchiveGVMDFilter::Replay(std::int32_t start, std::int32_t end) {
    m_RowsRead = 0;
    if (!m_pSource || m_pSource->GetRowCount(KOR_ATTR_TIME) < 1 ||
        !m_pSource->Rewind(KOR_ATTR_TIME)) {
        return;
    }
    std::int32_t t = 0;
    if (start >= 1) {
        // Skip to the first row at or after start, then one back when start fell inside a row's
        // stretch, so that the metadata in force at start is replayed.
        long skipped = 0;
        bool pastEnd = false;
        for (;;) {
            if (!m_pSource->ReadLong(KOR_ATTR_TIME, &t)) {
                ReadFailed();
                return;
            }
            if (t >= start) {
                break;
            }
            if (!m_pSource->Advance(KOR_ATTR_TIME)) {
                pastEnd = true;
                break;
            }
            ++skipped;
        }
        if (pastEnd || (t > start && skipped >= 1)) {
            m_pSource->StepBack(KOR_ATTR_TIME);
        }
    }
    CKorMetadataHandler* held = nullptr;
    std::int32_t previousKey = 0;
    bool first = true;
    bool any = false;
    for (;;) {
        std::int32_t key = 0;
        if (!m_pSource->ReadLong(KOR_ATTR_TIME, &t) || !m_pSource->ReadLong(KOR_ATTR_KEY, &key)) {
            ReadFailed();
            break;
        }
        any = true;
        ++m_RowsRead;
        const std::int32_t now = Later(m_TimeOffset, t);
        CatchUp(now, held);
        if (first || key != previousKey) {
            delete held;
            held = nullptr;
            CKorMetadataHandler* read = nullptr;
            if (m_pSource->ReadMetadata(KOR_ATTR_METADATA, &read)) {
                held = read;
                ProcessMD(now, held);
            } else {
                ReadFailed();
            }
            previousKey = key;
            first = false;
        }
        if (end >= 0 && t >= end) {
            break;
        }
        if (!m_pSource->Advance(KOR_ATTR_TIME)) {
            break;
        }
    }
    if (any) {
        CatchUp(Later(m_TimeOffset, t), held);
    }
    SignalCollision(-1, false, -1.0);
    m_TimeOffset = Later(m_TimeOffset, t);
    delete held;
}
