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
// while, and its box fades away. So a target whose track ends while it still stands (and was
// seen standing for a moment at least) is held
// where it was, its still time running on, for up to "hold time" ms (not one last seen at the
// picture's edge: that one left). When what was absorbed goes
// away, the detector sees the difference from its background as a new box on the same spot (a
// ghost): a new track born on a held target (sharing at least "ghost overlap" of the smaller
// box) removes the held target, and that track is never a target itself; so does foreground that
// stays on its spot for "clear after" ms (the ghost may come merged with passers-by; a passer-by
// alone covers the spot only for a moment). A person who pauses and
// is absorbed leaves the same way, so the pause ends when he walks off.
//
// What splits off a track where it had stood for longer than "long stop" ms is taken for the
// mark its standing left in the background (a ghost), not for something put down: it never
// becomes a target. (Someone who stands that long and then leaves a bag is missed.)
//
// A detector's background starts from the first picture: whoever stands in it leaves a ghost
// there when he walks off, and what stood still from the start is background by then; the tracks
// of those first seconds mix both. So tracks born in the first "warm up" ms (from the first
// frame, or from a new sequence) never become targets.
//
// Pure: standard C++ only.
#pragma once

#include "analytics/counting/core/BoxTracker.h"

#include <unordered_set>
#include <vector>

namespace zor::counting {

struct SLeftObjectConfig {
    long m_MinStill = 1000;   // ms
    long m_WarmUp = 5000;     // ms from the first frame in which nothing new becomes a target
    long m_HoldTime = 600000; // ms; 0 or less: held targets go when their track ends
    double m_GhostOverlap = 0.5;
    long m_ClearAfter = 1500; // ms of foreground on a held target's spot that clear it
    long m_LongStop = 2500;   // ms: what splits off after a stop this long is a mark, not a thing
    bool m_HasZone = false;
    SBox m_Zone; // a target's centre must lie in it (when set)
};

struct SLeftTarget {
    enum EType { OBJECT = 1, STOPPED = 2 };
    unsigned long m_Id;
    SBox m_Box;
    int m_Type;
    long m_StillSince;
    bool m_Held;         // its track has ended (absorbed into the background)
    long m_HeldSince;    // when it was held
    long m_CoveredSince; // since when foreground has covered its spot (-1: it is clear)

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
    bool m_Started = false;
    long m_Start = 0;
};

} // namespace zor::counting
