#include "analytics/counting/LODFilter.h"

#include "analytics/counting/FrameBoxes.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/GenericData.h"
#include "framework/jok/PropertyMap.h"
#include "framework/kor/LeftObjectDetectionMD.h"
#include "framework/kor/Packet.h"

#include <cmath>

using zor::counting::SLeftObjectConfig;
using zor::counting::SLeftTarget;

CZorLODFilterModule::CZorLODFilterModule() : CKorUnbufferedModule("LODFilter") {
    DisableProcessing(1);
}

void CZorLODFilterModule::Reset() {
    m_Tracker.Reset();
    m_Detector.Reset();
    m_HasTime = false;
}

void CZorLODFilterModule::ProcessPacket() {
    CKorPacket& packet = *m_pPacket;
    if (packet.GetKind() != CKorPacket::KIND_VIDEO || !packet.IsTimeStampValid()) {
        return;
    }
    const long time = packet.GetTimeStamp();
    if (m_HasTime && time < m_LastTime) {
        m_Detector.Reset(); // the tracker starts afresh on its own
    }
    m_HasTime = true;
    m_LastTime = time;

    int width = 0;
    int height = 0;
    if (ZorFrameSize(packet, &width, &height)) {
        m_Tracker.SetFrameSize(width, height);
    }
    ZorReadFrameBoxes(packet, m_Boxes);
    m_Tracker.Update(time, m_Boxes.data(), m_Boxes.size());
    if (m_Tracker.Dropped() > 0 && !m_ToldTooMany) {
        BelDump("CZorLODFilterModule::ProcessPacket -> %zu boxes on one frame: %zu of them are not "
                "followed.\n",
                m_Boxes.size(), m_Tracker.Dropped());
        m_ToldTooMany = true;
    }
    const auto& targets = m_Detector.Update(time, m_Tracker.Tracks(), m_Tracker.Ended());

    CKorLeftObjectDetectionMD* md = ZorFindOrAttach<CKorLeftObjectDetectionMD>(packet);
    md->Clear();
    for (const SLeftTarget& t : targets) {
        md->AddTarget(ZorBoxCoordinate(t.m_Box.m_Left), ZorBoxCoordinate(t.m_Box.m_Top),
                      ZorBoxCoordinate(t.m_Box.m_Right), ZorBoxCoordinate(t.m_Box.m_Bottom), t.m_Id,
                      static_cast<std::uint16_t>(t.m_Type),
                      CKorLeftObjectDetectionMD::StillTimeFromMs(t.StillFor(time)));
    }
}

// ---------------------------------------------------------------------------------------------

CZorLODFilter::CZorLODFilter()
    : CKor2PinComponent("LODFilter"), m_pOwned(std::make_unique<CZorLODFilterModule>()),
      m_pModule(m_pOwned.get()) {}

CKorModule* CZorLODFilter::CreateContext(const char* path) {
    return SingleContext(path, m_pOwned);
}

const CJokPropertyMap<CZorLODFilter>& CZorLODFilter::PropertyMap() {
    using C = CZorLODFilter;
    static const CJokPropertyMap<C> map = [] {
        CJokPropertyMap<C> m;
        m.AddNotifiedBoolean("enabled", &C::EnabledHandler, "&CZorLODFilter::EnabledHandler")
            .AddNotifiedGenericData("zone", &C::ZoneHandler, "&CZorLODFilter::ZoneHandler")
            .AddNotifiedDouble("minStill", &C::MinStillHandler, "&CZorLODFilter::MinStillHandler")
            .AddNotifiedDouble("warmUp", &C::WarmUpHandler, "&CZorLODFilter::WarmUpHandler")
            .AddNotifiedDouble("holdTime", &C::HoldTimeHandler, "&CZorLODFilter::HoldTimeHandler")
            .AddNotifiedDouble("minArea", &C::MinAreaHandler, "&CZorLODFilter::MinAreaHandler")
            .AddNotifiedDouble("maxCoast", &C::MaxCoastHandler, "&CZorLODFilter::MaxCoastHandler")
            .AddNotifiedDouble("targets", &C::TargetsHandler, "&CZorLODFilter::TargetsHandler", 1)
            .AddFunction("Reset", &C::Reset, "&CZorLODFilter::Reset");
        return m;
    }();
    return map;
}

CJokGenericData* CZorLODFilter::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKor2PinComponent::GetProperty(name, flags);
}

int CZorLODFilter::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKor2PinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CZorLODFilter::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKor2PinComponent::GetPropertyEnumerator());
}

bool CZorLODFilter::Milliseconds(double value, double limit, long* out) {
    if (!std::isfinite(value) || value < 0 || value > limit) {
        return false;
    }
    *out = static_cast<long>(value);
    return true;
}

int CZorLODFilter::EnabledHandler(int* value, int set) {
    if (!set) {
        *value = m_pModule->IsDisabled() ? 0 : 1;
        return 1;
    }
    m_pModule->DisableProcessing(*value ? 0 : 1);
    return 1;
}

int CZorLODFilter::ZoneHandler(CJokGenericData** value, int set) {
    SLeftObjectConfig config = m_pModule->Detector().Config();
    if (!set) {
        if (!config.m_HasZone) {
            *value = CJokGdNull::Allocate();
            return 1;
        }
        const zor::counting::SBox& z = config.m_Zone;
        const double numbers[4] = {static_cast<double>(z.m_Left), static_cast<double>(z.m_Top),
                                   static_cast<double>(z.m_Right), static_cast<double>(z.m_Bottom)};
        *value = ZorFourNumbers(numbers);
        return 1;
    }
    if ((*value)->GetType() == JOKGD_NULL) {
        config.m_HasZone = false;
        m_pModule->Detector().SetConfig(config);
        return 1;
    }
    double n[4];
    if (!ZorReadFourNumbers(*value, n) || n[2] - n[0] < 1 || n[3] - n[1] < 1) {
        BelDump("CZorLODFilter::ZoneHandler -> a zone is { left, top, right, bottom }: four "
                "numbers, at least a pixel wide and high.\n");
        return 0;
    }
    config.m_HasZone = true;
    config.m_Zone = zor::counting::SBox{static_cast<int>(n[0]), static_cast<int>(n[1]),
                                        static_cast<int>(n[2]), static_cast<int>(n[3])};
    m_pModule->Detector().SetConfig(config);
    return 1;
}

int CZorLODFilter::MinStillHandler(double* value, int set) {
    SLeftObjectConfig config = m_pModule->Detector().Config();
    if (!set) {
        *value = static_cast<double>(config.m_MinStill);
        return 1;
    }
    if (!Milliseconds(*value, 86400000.0, &config.m_MinStill)) {
        return 0;
    }
    m_pModule->Detector().SetConfig(config);
    return 1;
}

int CZorLODFilter::WarmUpHandler(double* value, int set) {
    SLeftObjectConfig config = m_pModule->Detector().Config();
    if (!set) {
        *value = static_cast<double>(config.m_WarmUp);
        return 1;
    }
    if (!Milliseconds(*value, 86400000.0, &config.m_WarmUp)) {
        return 0;
    }
    m_pModule->Detector().SetConfig(config);
    return 1;
}

int CZorLODFilter::HoldTimeHandler(double* value, int set) {
    SLeftObjectConfig config = m_pModule->Detector().Config();
    if (!set) {
        *value = static_cast<double>(config.m_HoldTime);
        return 1;
    }
    if (!Milliseconds(*value, 86400000.0, &config.m_HoldTime)) {
        return 0;
    }
    m_pModule->Detector().SetConfig(config);
    return 1;
}

int CZorLODFilter::MinAreaHandler(double* value, int set) {
    zor::counting::STrackerConfig config = m_pModule->Tracker().Config();
    if (!set) {
        *value = static_cast<double>(config.m_MinArea);
        return 1;
    }
    if (!Milliseconds(*value, 1.0e9, &config.m_MinArea)) {
        return 0;
    }
    m_pModule->Tracker().SetConfig(config);
    return 1;
}

int CZorLODFilter::MaxCoastHandler(double* value, int set) {
    zor::counting::STrackerConfig config = m_pModule->Tracker().Config();
    if (!set) {
        *value = static_cast<double>(config.m_MaxCoast);
        return 1;
    }
    if (!Milliseconds(*value, 3600000.0, &config.m_MaxCoast)) {
        return 0;
    }
    m_pModule->Tracker().SetConfig(config);
    return 1;
}

int CZorLODFilter::TargetsHandler(double* value, int set) {
    *value = static_cast<double>(m_pModule->TargetCount());
    return set ? 0 : 1;
}

int CZorLODFilter::Reset(CJokCommandContext* context) {
    if (context->CanProceed(0)) {
        m_pModule->Reset();
    }
    return 1;
}
