// CLeftObjectDetector: finds what stands still in the picture - objects that appeared and stayed,
// and things that moved in and stopped - from the tracks of a CBoxTracker.
//
// A confirmed track that has stood still for at least "min still" ms (inside the watched zone,
// if one is set) is a target. Its type:
//  - object: it never moved since it was born (it appeared in place: put down, split off the
//    walker who carried it), or something split off it while it stood (the walker who put it
//    down left, and the track stayed with what he left);
//  - stopped: it moved in and stopped.
//
// A foreground detector's background learns: an object that stays is absorbed into it after a
// while, and its box fades away. So a target whose track ends while it still stands is held
// where it was, its still time running on, for up to "hold time" ms (not one last seen at the
// picture's edge: that one left). When what was absorbed goes
// away, the detector sees the difference from its background as a new box on the same spot (a
// ghost): a new track born on a held target (sharing at least "ghost overlap" of the smaller
// box) removes the held target, and that track is never a target itself. A person who pauses and
// is absorbed leaves the same way, so the pause ends when he walks off.
//
// Pure: standard C++ only.
#pragma once

#include "analytics/counting/core/BoxTracker.h"

#include <unordered_set>
#include <vector>

namespace zor::counting {

struct SLeftObjectConfig {
    long m_MinStill = 1000;   // ms
    long m_HoldTime = 600000; // ms; 0 or less: held targets go when their track ends
    double m_GhostOverlap = 0.5;
    bool m_HasZone = false;
    SBox m_Zone; // a target's centre must lie in it (when set)
};

struct SLeftTarget {
    enum EType { OBJECT = 1, STOPPED = 2 };
    unsigned long m_Id;
    SBox m_Box;
    int m_Type;
    long m_StillSince;
    bool m_Held;      // its track has ended (absorbed into the background)
    long m_HeldSince; // when it was held

    long StillFor(long now) const { return now - m_StillSince; }
};

class CLeftObjectDetector {
public:
    explicit CLeftObjectDetector(const SLeftObjectConfig& config = {});

    const SLeftObjectConfig& Config() const { return m_Config; }
    void SetConfig(const SLeftObjectConfig& config) { m_Config = config; }

    // One frame: the tracker's live and ended tracks. Answers the targets, live ones in track
    // order then held ones.
    const std::vector<SLeftTarget>& Update(long time, const std::vector<STrack>& tracks,
                                           const std::vector<STrack>& ended);
    const std::vector<SLeftTarget>& Targets() const { return m_Targets; }
    // Targets held after their track ended.
    std::size_t HeldCount() const { return m_Held.size(); }

    void Reset();

private:
    bool InZone(const SBox& box) const;
    static int TypeOf(const STrack& track);

    SLeftObjectConfig m_Config;
    std::vector<SLeftTarget> m_Held;
    std::vector<SLeftTarget> m_Targets;
    std::unordered_set<unsigned long> m_Seen;   // tracks met so far
    std::unordered_set<unsigned long> m_Ghosts; // tracks born on a held target
};

} // namespace zor::counting
