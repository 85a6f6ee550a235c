#include "analytics/counting/PCAFilter.h"

#include "analytics/counting/FrameBoxes.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/GenericData.h"
#include "framework/jok/PropertyMap.h"
#include "framework/kor/Packet.h"
#include "framework/kor/PeopleCountingMD.h"

#include <cmath>

using zor::counting::CLineCounter;
using zor::counting::ETrackState;
using zor::counting::SCrossing;
using zor::counting::STrack;

CZorPCAFilter::CZorPCAFilter() : CKorUnbufferedModule("PCAFilter") {
    DisableProcessing(1);
}

bool CZorPCAFilter::SetLine(const double c[4]) {
    m_CheckedWidth = 0;
    return m_Counter.SetLine(c[0], c[1], c[2], c[3]);
}

bool CZorPCAFilter::SetZone(const double c[4]) {
    m_CheckedWidth = 0;
    return m_Counter.SetZone(c[0], c[1], c[2], c[3]);
}

void CZorPCAFilter::ClearGeometry() {
    m_Counter = CLineCounter(m_Counter.Config());
    m_ToldNoGeometry = false;
}

void CZorPCAFilter::Reset() {
    m_Tracker.Reset();
    m_Counter.Reset();
    m_HasTime = false;
}

void CZorPCAFilter::CheckGeometry(const CKorPacket& packet) {
    if (m_Counter.Geometry() == CLineCounter::NONE) {
        if (!m_ToldNoGeometry) {
            BelDump("CZorPCAFilter::ProcessPacket -> no counting line or zone is set: tracking "
                    "only, nothing is counted.\n");
            m_ToldNoGeometry = true;
        }
        return;
    }
    int width = 0;
    int height = 0;
    if (!ZorFrameSize(packet, &width, &height) ||
        (width == m_CheckedWidth && height == m_CheckedHeight)) {
        return;
    }
    m_CheckedWidth = width;
    m_CheckedHeight = height;
    if (!m_Counter.Reaches(width, height)) {
        const double* c = m_Counter.Coordinates();
        BelDump("CZorPCAFilter::ProcessPacket -> the counting %s (%g,%g)-(%g,%g) lies outside the "
                "%dx%d picture: nothing will be counted.\n",
                m_Counter.Geometry() == CLineCounter::LINE ? "line" : "zone", c[0], c[1], c[2],
                c[3], width, height);
    }
}

void CZorPCAFilter::ProcessPacket() {
    CKorPacket& packet = *m_pPacket;
    if (packet.GetKind() != CKorPacket::KIND_VIDEO || !packet.IsTimeStampValid()) {
        return;
    }
    const long time = packet.GetTimeStamp();
    if (m_HasTime && time < m_LastTime) {
        m_Counter.ForgetTracks(); // the tracker starts afresh on its own
    }
    m_HasTime = true;
    m_LastTime = time;
    CheckGeometry(packet);

    int width = 0;
    int height = 0;
    if (ZorFrameSize(packet, &width, &height)) {
        m_Tracker.SetFrameSize(width, height);
    }
    ZorReadFrameBoxes(packet, m_Boxes);
    const std::vector<STrack>& tracks = m_Tracker.Update(time, m_Boxes.data(), m_Boxes.size());
    if (m_Tracker.Dropped() > 0 && !m_ToldTooMany) {
        BelDump("CZorPCAFilter::ProcessPacket -> %zu boxes on one frame: %zu of them are not "
                "followed.\n",
                m_Boxes.size(), m_Tracker.Dropped());
        m_ToldTooMany = true;
    }
    m_Crossings.clear();
    m_Counter.Update(time, tracks, m_Tracker.Ended(), m_Crossings);

    CKorPeopleCountingMD* md = ZorFindOrAttach<CKorPeopleCountingMD>(packet);
    md->Clear();
    const double* c = m_Counter.Coordinates();
    if (m_Counter.Geometry() == CLineCounter::LINE) {
        md->SetLine(std::lround(c[0]), std::lround(c[1]), std::lround(c[2]), std::lround(c[3]));
    } else if (m_Counter.Geometry() == CLineCounter::ZONE) {
        md->SetZone(std::lround(c[0]), std::lround(c[1]), std::lround(c[2]), std::lround(c[3]));
    }
    for (const SCrossing& crossing : m_Crossings) {
        md->AddEvent(crossing.m_TrackId, crossing.m_Direction);
    }
    md->SetTotals(m_Counter.Entries(), m_Counter.Exits(), m_Counter.Occupancy());
    for (const STrack& t : tracks) {
        if (!t.m_Confirmed) {
            continue;
        }
        const auto state = t.m_State == ETrackState::Coasting
                               ? CKorPeopleCountingMD::TARGET_COASTING
                               : CKorPeopleCountingMD::TARGET_TRACKED;
        md->AddTarget(SKorCountingTarget{
            ZorBoxCoordinate(t.m_Box.m_Left), ZorBoxCoordinate(t.m_Box.m_Top),
            ZorBoxCoordinate(t.m_Box.m_Right), ZorBoxCoordinate(t.m_Box.m_Bottom), t.m_Id,
            static_cast<std::uint16_t>(state),
            static_cast<std::int16_t>(m_Counter.SideOf(t.m_Id))});
    }
}

// ---------------------------------------------------------------------------------------------

CZorPCAFilterCom::CZorPCAFilterCom()
    : CKor2PinComponent("PCAFilter"), m_pOwned(std::make_unique<CZorPCAFilter>()),
      m_pModule(m_pOwned.get()) {}

CKorModule* CZorPCAFilterCom::CreateContext(const char* path) {
    return SingleContext(path, m_pOwned);
}

const CJokPropertyMap<CZorPCAFilterCom>& CZorPCAFilterCom::PropertyMap() {
    using C = CZorPCAFilterCom;
    static const CJokPropertyMap<C> map = [] {
        CJokPropertyMap<C> m;
        m.AddNotifiedBoolean("enabled", &C::EnabledHandler, "&CZorPCAFilterCom::EnabledHandler")
            .AddNotifiedGenericData("line", &C::LineHandler, "&CZorPCAFilterCom::LineHandler")
            .AddNotifiedGenericData("zone", &C::ZoneHandler, "&CZorPCAFilterCom::ZoneHandler")
            .AddNotifiedDouble("band", &C::BandHandler, "&CZorPCAFilterCom::BandHandler")
            .AddNotifiedBoolean("feet", &C::FeetHandler, "&CZorPCAFilterCom::FeetHandler")
            .AddNotifiedDouble("minArea", &C::MinAreaHandler, "&CZorPCAFilterCom::MinAreaHandler")
            .AddNotifiedDouble("maxCoast", &C::MaxCoastHandler,
                               "&CZorPCAFilterCom::MaxCoastHandler")
            .AddNotifiedDouble("entries", &C::EntriesHandler, "&CZorPCAFilterCom::EntriesHandler",
                               1)
            .AddNotifiedDouble("exits", &C::ExitsHandler, "&CZorPCAFilterCom::ExitsHandler", 1)
            .AddNotifiedDouble("occupancy", &C::OccupancyHandler,
                               "&CZorPCAFilterCom::OccupancyHandler", 1)
            .AddNotifiedDouble("tracks", &C::TracksHandler, "&CZorPCAFilterCom::TracksHandler", 1)
            .AddFunction("Reset", &C::Reset, "&CZorPCAFilterCom::Reset");
        return m;
    }();
    return map;
}

CJokGenericData* CZorPCAFilterCom::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKor2PinComponent::GetProperty(name, flags);
}

int CZorPCAFilterCom::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKor2PinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CZorPCAFilterCom::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKor2PinComponent::GetPropertyEnumerator());
}

int CZorPCAFilterCom::EnabledHandler(int* value, int set) {
    if (!set) {
        *value = m_pModule->IsDisabled() ? 0 : 1;
        return 1;
    }
    m_pModule->DisableProcessing(*value ? 0 : 1);
    return 1;
}

int CZorPCAFilterCom::GeometryHandler(CJokGenericData** value, int set,
                                      CLineCounter::EGeometry kind) {
    CLineCounter& counter = m_pModule->Counter();
    if (!set) {
        if (counter.Geometry() != kind) {
            *value = CJokGdNull::Allocate();
            return 1;
        }
        *value = ZorFourNumbers(counter.Coordinates());
        return 1;
    }
    if ((*value)->GetType() == JOKGD_NULL) {
        if (counter.Geometry() == kind) {
            m_pModule->ClearGeometry();
        }
        return 1;
    }
    double numbers[4];
    const bool ok =
        ZorReadFourNumbers(*value, numbers) &&
        (kind == CLineCounter::LINE ? m_pModule->SetLine(numbers) : m_pModule->SetZone(numbers));
    if (!ok) {
        BelDump(kind == CLineCounter::LINE
                    ? "CZorPCAFilterCom::LineHandler -> a line is { x1, y1, x2, y2 }: four "
                      "numbers, two points at least a pixel apart.\n"
                    : "CZorPCAFilterCom::ZoneHandler -> a zone is { left, top, right, bottom }: "
                      "four numbers, at least a pixel wide and high.\n");
    }
    return ok ? 1 : 0;
}

int CZorPCAFilterCom::LineHandler(CJokGenericData** value, int set) {
    return GeometryHandler(value, set, CLineCounter::LINE);
}

int CZorPCAFilterCom::ZoneHandler(CJokGenericData** value, int set) {
    return GeometryHandler(value, set, CLineCounter::ZONE);
}

int CZorPCAFilterCom::BandHandler(double* value, int set) {
    zor::counting::SCounterConfig config = m_pModule->Counter().Config();
    if (!set) {
        *value = config.m_Band;
        return 1;
    }
    if (!std::isfinite(*value) || *value < 0 || *value > 10000) {
        return 0;
    }
    config.m_Band = *value;
    m_pModule->Counter().SetConfig(config);
    return 1;
}

int CZorPCAFilterCom::FeetHandler(int* value, int set) {
    zor::counting::SCounterConfig config = m_pModule->Counter().Config();
    if (!set) {
        *value = config.m_Feet ? 1 : 0;
        return 1;
    }
    config.m_Feet = *value != 0;
    m_pModule->Counter().SetConfig(config);
    return 1;
}

int CZorPCAFilterCom::MinAreaHandler(double* value, int set) {
    zor::counting::STrackerConfig config = m_pModule->Tracker().Config();
    if (!set) {
        *value = static_cast<double>(config.m_MinArea);
        return 1;
    }
    if (!std::isfinite(*value) || *value < 0 || *value > 1.0e9) {
        return 0;
    }
    config.m_MinArea = static_cast<long>(*value);
    m_pModule->Tracker().SetConfig(config);
    return 1;
}

int CZorPCAFilterCom::MaxCoastHandler(double* value, int set) {
    zor::counting::STrackerConfig config = m_pModule->Tracker().Config();
    if (!set) {
        *value = static_cast<double>(config.m_MaxCoast);
        return 1;
    }
    if (!std::isfinite(*value) || *value < 0 || *value > 3600000) {
        return 0;
    }
    config.m_MaxCoast = static_cast<long>(*value);
    m_pModule->Tracker().SetConfig(config);
    return 1;
}

int CZorPCAFilterCom::EntriesHandler(double* value, int set) {
    *value = static_cast<double>(m_pModule->Counter().Entries());
    return set ? 0 : 1;
}

int CZorPCAFilterCom::ExitsHandler(double* value, int set) {
    *value = static_cast<double>(m_pModule->Counter().Exits());
    return set ? 0 : 1;
}

int CZorPCAFilterCom::OccupancyHandler(double* value, int set) {
    *value = static_cast<double>(m_pModule->Counter().Occupancy());
    return set ? 0 : 1;
}

int CZorPCAFilterCom::TracksHandler(double* value, int set) {
    double confirmed = 0;
    for (const STrack& t : m_pModule->Tracker().Tracks()) {
        confirmed += t.m_Confirmed ? 1 : 0;
    }
    *value = confirmed;
    return set ? 0 : 1;
}

int CZorPCAFilterCom::Reset(CJokCommandContext* context) {
    if (context->CanProceed(0)) {
        m_pModule->Reset();
    }
    return 1;
}
