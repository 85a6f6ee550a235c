// "LOD1" left-object metadata: the targets that stand still in the picture on one frame, and the
// question a reader asks of them.
//
// The analyser (the left-object filter) adds one target per still object with AddTarget: its
// box (left, top, right, bottom, top-down pixels), its identifier, its type and how long it has
// stood still, in tenths of a second (saturating at 65535, about 109 minutes). Types:
//  - TYPE_OBJECT (1): something that appeared and stayed: it split off from a moving target (put
//    down) or appeared where nothing moved before;
//  - TYPE_STOPPED (2): a target that moved in and stopped (a person waiting, a parked trolley).
//
// A reader holds an SKorLeftObjectQuery between packets and asks Update. An entry is a target
// that has stood for longer than the query's duration (ms) and matches its type (0: any) and
// identifier (0: any). Update answers the number of entries, but only when at least "number"
// entries stand (fewer answer 0), and only at the query's scan instants: not before the start
// time (packet time, ms), then at the first frame at or after each multiple of the interval from
// the start time (an interval of zero or less scans every frame). Between scan instants it
// answers 0. It also fills the four counters: entries, the matching targets, the longest still
// time of an entry in whole seconds, and that entry's identifier.
#pragma once

#include "framework/kor/Metadata.h"

#include <cstdint>
#include <vector>

// What a reader asks, and its scan state (the last three fields are the scan's own).
struct SKorLeftObjectQuery {
    long m_StartTime = 0;
    long m_Interval = 0;
    long m_Duration = 0; // ms; zero or less: any still target is an entry
    int m_Type = 0;
    unsigned long m_Id = 0;
    int m_Number = 1; // entries needed before any is answered; below 1 counts as 1
    bool m_Scanned = false;
    long m_NextScan = 0;
    long m_LastTime = 0;
};

// The reader's four counters.
struct SKorLeftObjectCounters {
    unsigned long m_Entries = 0;
    unsigned long m_Targets = 0;
    unsigned long m_LongestStill = 0; // whole seconds
    unsigned long m_LongestId = 0;
};

class CKorLeftObjectDetectionMD : public CKorMetadataHandler {
public:
    enum EType { TYPE_ANY = 0, TYPE_OBJECT = 1, TYPE_STOPPED = 2 };

    struct STarget {
        std::uint16_t m_Left, m_Top, m_Right, m_Bottom;
        unsigned long m_Id;
        std::uint16_t m_Type;
        std::uint16_t m_StillTime; // tenths of a second
    };

    CKorLeftObjectDetectionMD() : CKorMetadataHandler(kMetadataLeftObject) {}

    // The first left-object metadata in a handler chain (borrowed), or nullptr. A handler that
    // only carries the tag (the container a writer made) is skipped.
    static CKorLeftObjectDetectionMD* Find(CKorMetadataHandler* chain);

    // The still time field for a span in ms (rounded down to tenths, saturating).
    static std::uint16_t StillTimeFromMs(long milliseconds);

    void AddTarget(std::uint16_t left, std::uint16_t top, std::uint16_t right, std::uint16_t bottom,
                   unsigned long id, std::uint16_t type, std::uint16_t stillTime) {
        m_Targets.push_back(STarget{left, top, right, bottom, id, type, stillTime});
    }
    int GetBoxCount() const { return static_cast<int>(m_Targets.size()); }
    const STarget& GetTarget(int index) const { return m_Targets[static_cast<size_t>(index)]; }

    void Clear() { m_Targets.clear(); }
    void CopyFrom(const CKorLeftObjectDetectionMD& other);

    // One step of a reader's query for a frame at time (ms; an invalid time never scans).
    // Fills counters and answers the entries reported (see the file comment).
    unsigned long Update(SKorLeftObjectQuery& query, long time, bool valid,
                         SKorLeftObjectCounters* counters) const;

    // Writes the targets to the diagnostic dump, one line each, prefixed with "<caller> -> ".
    void PrintTargetList(const char* caller, long duration) const;

protected:
    CKorMetadataHandler* CloneOne() const override;

private:
    std::vector<STarget> m_Targets;
};
