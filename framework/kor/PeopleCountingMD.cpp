#include "framework/kor/PeopleCountingMD.h"

#include "framework/bel/BelDiagnostics.h"

CKorPeopleCountingMD* CKorPeopleCountingMD::Find(CKorMetadataHandler* chain) {
    for (CKorMetadataHandler* h = chain; h; h = h->Next()) {
        if (h->GetType() != kMetadataPeopleCounting) {
            continue;
        }
        if (auto* found = dynamic_cast<CKorPeopleCountingMD*>(h)) {
            return found;
        }
    }
    return nullptr;
}

void CKorPeopleCountingMD::Clear() {
    m_Geometry = GEOMETRY_NONE;
    for (long& c : m_Coordinates) {
        c = 0;
    }
    m_Events.clear();
    m_TotalEntries = 0;
    m_TotalExits = 0;
    m_Occupancy = 0;
    m_Targets.clear();
}

void CKorPeopleCountingMD::CopyFrom(const CKorPeopleCountingMD& other) {
    if (&other == this) {
        return;
    }
    m_Geometry = other.m_Geometry;
    for (int i = 0; i < 4; ++i) {
        m_Coordinates[i] = other.m_Coordinates[i];
    }
    m_Events = other.m_Events;
    m_TotalEntries = other.m_TotalEntries;
    m_TotalExits = other.m_TotalExits;
    m_Occupancy = other.m_Occupancy;
    m_Targets = other.m_Targets;
}

void CKorPeopleCountingMD::SetLine(long x1, long y1, long x2, long y2) {
    m_Geometry = GEOMETRY_LINE;
    m_Coordinates[0] = x1;
    m_Coordinates[1] = y1;
    m_Coordinates[2] = x2;
    m_Coordinates[3] = y2;
}

void CKorPeopleCountingMD::SetZone(long left, long top, long right, long bottom) {
    m_Geometry = GEOMETRY_ZONE;
    m_Coordinates[0] = left;
    m_Coordinates[1] = top;
    m_Coordinates[2] = right;
    m_Coordinates[3] = bottom;
}

void CKorPeopleCountingMD::AddEvent(unsigned long targetId, int direction) {
    m_Events.push_back(SKorCountingEvent{targetId, direction > 0 ? 1 : -1});
}

unsigned long CKorPeopleCountingMD::GetEntries() const {
    unsigned long count = 0;
    for (const SKorCountingEvent& e : m_Events) {
        count += e.m_Direction > 0 ? 1 : 0;
    }
    return count;
}

unsigned long CKorPeopleCountingMD::GetExits() const {
    return static_cast<unsigned long>(m_Events.size()) - GetEntries();
}

void CKorPeopleCountingMD::SetTotals(unsigned long entries, unsigned long exits, long occupancy) {
    m_TotalEntries = entries;
    m_TotalExits = exits;
    m_Occupancy = occupancy;
}

bool CKorPeopleCountingMD::Update(SKorPeopleCountScan& scan, long time, bool valid,
                                  SKorPeopleCountInterval* closed) const {
    bool didClose = false;
    auto close = [&](long end) {
        if (closed) {
            *closed = SKorPeopleCountInterval{scan.m_IntervalStart, end, scan.m_Entries,
                                              scan.m_Exits, scan.m_Occupancy};
        }
        scan.m_Open = false;
        didClose = true;
    };
    const long length = scan.m_Interval;
    if (valid) {
        if (time < scan.m_StartTime) {
            // Before the start (or a new sequence that went back before it): nothing counts.
            if (scan.m_Open) {
                close(length > 0 ? scan.m_IntervalStart + length : scan.m_LastTime);
            }
            return didClose;
        }
        long start = scan.m_StartTime;
        if (length > 0) {
            start += (time - scan.m_StartTime) / length * length;
        }
        if (scan.m_Open && start != scan.m_IntervalStart) {
            close(length > 0 ? scan.m_IntervalStart + length : scan.m_LastTime);
        }
        if (!scan.m_Open) {
            scan.m_Open = true;
            scan.m_IntervalStart = start;
            scan.m_Entries = 0;
            scan.m_Exits = 0;
        }
        scan.m_LastTime = time;
    } else if (!scan.m_Open) {
        return false;
    }
    const unsigned long entries = GetEntries();
    scan.m_Entries += entries;
    scan.m_Exits += static_cast<unsigned long>(m_Events.size()) - entries;
    scan.m_Occupancy = m_Occupancy;
    return didClose;
}

void CKorPeopleCountingMD::PrintTargetList(const char* caller) const {
    static const char* const kStates[] = {"tentative", "tracked", "coasting"};
    BelDump("%s -> %d target(s); entries %lu, exits %lu, occupancy %ld\n", caller, GetTargetCount(),
            m_TotalEntries, m_TotalExits, m_Occupancy);
    for (const SKorCountingTarget& t : m_Targets) {
        const char* state = t.m_State < 3 ? kStates[t.m_State] : "unknown";
        BelDump("%s -> target %lu: %s, box (%u,%u)-(%u,%u), side %d\n", caller, t.m_Id, state,
                t.m_Left, t.m_Top, t.m_Right, t.m_Bottom, t.m_Side);
    }
}

CKorMetadataHandler* CKorPeopleCountingMD::CloneOne() const {
    auto* copy = new CKorPeopleCountingMD;
    copy->CopyFrom(*this);
    return copy;
}
