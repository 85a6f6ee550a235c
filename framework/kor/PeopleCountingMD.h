// "PCD1" people-counting metadata: what a counting analyser saw on one frame, and the interval
// scan with which a reader turns a stream of such frames into counts.
//
// The analyser (the PCA filter) fills one object per frame:
//  - the counting geometry: a directed line (x1, y1) -> (x2, y2), or a rectangular zone, in frame
//    coordinates (top-down, pixels);
//  - the crossings counted on this frame, each with the target's identifier and its direction.
//    Across a line, an entry goes from the line's left to its right as seen looking from
//    (x1, y1) towards (x2, y2) in the image (for a line drawn left to right, an entry moves down
//    the picture); the opposite way is an exit. For a zone, an entry goes in, an exit goes out;
//  - its running totals of entries and exits since it started, and the occupancy: for a line,
//    entries minus exits, never below zero (people already inside when counting started are
//    not known, so an exit at zero leaves it at zero); for a zone, the targets now inside;
//  - the targets it follows, with their boxes, state and side of the line.
//
// A reader keeps an SKorPeopleCountScan between packets. Update adds each frame's crossings to
// the current interval of the scan: intervals of "interval" ms start at "start time" (packet
// time, ms); nothing is counted before the start time; an interval of zero or less is one
// interval from the start time on. When a frame falls into a later interval, the interval that
// was open is closed and answered, and the new one starts at zero. Only intervals in which at
// least one frame arrived are opened, so a gap in the stream is a gap in the intervals. Time
// that runs backwards (a new sequence) closes the open interval and starts again.
#pragma once

#include "framework/kor/Metadata.h"

#include <cstdint>
#include <vector>

// One crossing counted on a frame.
struct SKorCountingEvent {
    unsigned long m_TargetId;
    int m_Direction; // +1 entry, -1 exit
};

// One target an analyser follows.
struct SKorCountingTarget {
    std::uint16_t m_Left, m_Top, m_Right, m_Bottom;
    unsigned long m_Id;
    std::uint16_t m_State; // CKorPeopleCountingMD::ETargetState
    std::int16_t m_Side;   // line: -1 left, +1 right, 0 not yet settled; zone: +1 inside, -1 out
};

// A reader's interval scan (see the file comment). Set the start time and the interval; the
// rest is the scan's own.
struct SKorPeopleCountScan {
    long m_StartTime = 0;
    long m_Interval = 0;
    bool m_Open = false;
    long m_IntervalStart = 0;
    long m_LastTime = 0;
    unsigned long m_Entries = 0; // in the open interval
    unsigned long m_Exits = 0;   // in the open interval
    long m_Occupancy = 0;        // the last frame's
};

// A closed interval: [m_Start, m_End) in packet time, its counts and the occupancy at its end.
struct SKorPeopleCountInterval {
    long m_Start;
    long m_End;
    unsigned long m_Entries;
    unsigned long m_Exits;
    long m_Occupancy;
};

class CKorPeopleCountingMD : public CKorMetadataHandler {
public:
    enum EGeometry { GEOMETRY_NONE = 0, GEOMETRY_LINE = 1, GEOMETRY_ZONE = 2 };
    enum ETargetState { TARGET_TENTATIVE = 0, TARGET_TRACKED = 1, TARGET_COASTING = 2 };

    CKorPeopleCountingMD() : CKorMetadataHandler(kMetadataPeopleCounting) {}

    // The first people-counting metadata in a handler chain (borrowed), or nullptr. A handler
    // that only carries the tag (a bare container) is skipped.
    static CKorPeopleCountingMD* Find(CKorMetadataHandler* chain);

    // Back to a fresh, empty object (keeps its memory).
    void Clear();
    void CopyFrom(const CKorPeopleCountingMD& other);

    void SetLine(long x1, long y1, long x2, long y2);
    void SetZone(long left, long top, long right, long bottom);
    EGeometry GetGeometry() const { return m_Geometry; }
    // The line's end points or the zone's left, top, right, bottom.
    const long* GetGeometryCoordinates() const { return m_Coordinates; }

    void AddEvent(unsigned long targetId, int direction);
    int GetEventCount() const { return static_cast<int>(m_Events.size()); }
    const SKorCountingEvent& GetEvent(int index) const {
        return m_Events[static_cast<size_t>(index)];
    }
    // This frame's crossings by direction.
    unsigned long GetEntries() const;
    unsigned long GetExits() const;

    void SetTotals(unsigned long entries, unsigned long exits, long occupancy);
    unsigned long GetTotalEntries() const { return m_TotalEntries; }
    unsigned long GetTotalExits() const { return m_TotalExits; }
    long GetOccupancy() const { return m_Occupancy; }

    void AddTarget(const SKorCountingTarget& target) { m_Targets.push_back(target); }
    int GetTargetCount() const { return static_cast<int>(m_Targets.size()); }
    const SKorCountingTarget& GetTarget(int index) const {
        return m_Targets[static_cast<size_t>(index)];
    }

    // One step of a reader's interval scan for a frame at time (ms; valid says whether the
    // packet's time can be trusted: an invalid one counts into the open interval, if any).
    // Answers true and fills *closed when the step closed an interval.
    bool Update(SKorPeopleCountScan& scan, long time, bool valid,
                SKorPeopleCountInterval* closed) const;

    // Writes the targets to the diagnostic dump, one line each, prefixed with "<caller> -> ".
    void PrintTargetList(const char* caller) const;

protected:
    CKorMetadataHandler* CloneOne() const override;

private:
    EGeometry m_Geometry = GEOMETRY_NONE;
    long m_Coordinates[4] = {};
    std::vector<SKorCountingEvent> m_Events;
    unsigned long m_TotalEntries = 0;
    unsigned long m_TotalExits = 0;
    long m_Occupancy = 0;
    std::vector<SKorCountingTarget> m_Targets;
};
