// Synthetic scenes for the counting cores: people and objects moving along known paths, turned
// into the boxes a foreground detector would report for them, frame by frame, with the faults
// such a detector has: edge jitter, walkers broken into stacked fragments, missed frames, boxes of
// things that touch merged into one blob, small noise boxes, and still things absorbed into the
// background (they vanish, and leave a ghost box behind for a while when they move off).
//
// The truth (which actor crosses the line when, in which direction) comes from the paths.
#pragma once

#include "analytics/counting/core/BoxTracker.h"
#include "analytics/counting/core/LeftObjectDetector.h"
#include "analytics/counting/core/LineCounter.h"

#include <cstdint>
#include <vector>

namespace zor::counting::synthetic {

using zor::counting::SBox;

struct SWaypoint {
    long m_Time; // ms
    double m_X;  // centre
    double m_Y;
};

struct SActor {
    enum EKind { WALKER, OBJECT };
    EKind m_Kind = WALKER;
    double m_Width = 16;
    double m_Height = 40;
    // Present from the first waypoint's time to the last one's; the centre moves linearly in
    // between. Two waypoints at one place make a stop.
    std::vector<SWaypoint> m_Path;

    bool PositionAt(long time, double* x, double* y) const;
};

struct SScene {
    int m_Width = 352;
    int m_Height = 240;
    long m_FrameMs = 40;
    long m_Duration = 10000;
    std::vector<SActor> m_Actors;
    double m_Jitter = 1.5;       // px, standard deviation of each edge
    double m_SplitChance = 0.1;  // per walker and frame: two stacked fragments
    double m_DropChance = 0.03;  // per box and frame: missed
    double m_NoiseChance = 0.05; // per frame: one small noise box
    long m_AbsorbAfter = 0;      // ms still before a thing fades into the background (0: never)
    long m_GhostFor = 1500;      // ms a ghost stays where an absorbed thing left
    std::uint32_t m_Seed = 1;
};

struct SFrame {
    long m_Time;
    std::vector<SBox> m_Boxes;
};

struct STrueCrossing {
    int m_Actor;
    int m_Direction; // +1 entry (left to right of the directed line), -1 exit
    long m_Time;
};

std::vector<SFrame> RenderScene(const SScene& scene);
// Crossings of the actors' centres over the directed segment.
std::vector<STrueCrossing> TrueCrossings(const SScene& scene, double x1, double y1, double x2,
                                         double y2);

// Ready-made scenes on a 352x240 picture with the counting line y = 120 drawn left to right
// (an entry walks down the picture).
constexpr double kLineY = 120;
// walkers crossing one at a time, alternating directions, a few seconds apart
SScene WalkersOneByOne(int walkers, std::uint32_t seed);
// pairs walking side by side (their boxes merge), alternating directions
SScene WalkingPairs(int pairs, std::uint32_t seed);
// one walker who stops on the line for stopMs, then goes on across
SScene StopOnLine(long stopMs, std::uint32_t seed);
// a walker who carries a bag, puts it down at dropTime and walks on; the bag stays (scenes for
// the left-object detector begin after its warm-up: put the bag down after 5.5 s)
SScene LeftBag(long dropTime, std::uint32_t seed);
// a walker who stops away from the line for pauseMs (from 7.9 s) and walks on
SScene Pause(long pauseMs, std::uint32_t seed);

// Runs the tracker and the counter over a rendered scene, line y = kLineY across the picture.
struct SCountRun {
    unsigned long m_Entries = 0;
    unsigned long m_Exits = 0;
    std::vector<zor::counting::SCrossing> m_Crossings;
};
SCountRun CountScene(const SScene& scene, const zor::counting::STrackerConfig& tracker = {},
                     const zor::counting::SCounterConfig& counter = {});
// The same on frames of boxes made otherwise (a real tracker on the scene's pictures).
SCountRun CountFrames(const std::vector<SFrame>& frames, const SScene& scene,
                      const zor::counting::STrackerConfig& tracker = {},
                      const zor::counting::SCounterConfig& counter = {});

// Counted crossings matched to true ones of the same direction within a second of each other.
struct SCrossingScore {
    int m_True = 0;
    int m_Counted = 0;
    int m_Matched = 0;
    double Precision() const { return m_Counted ? double(m_Matched) / m_Counted : 1.0; }
    double Recall() const { return m_True ? double(m_Matched) / m_True : 1.0; }
    double F1() const {
        const double p = Precision();
        const double r = Recall();
        return p + r > 0 ? 2 * p * r / (p + r) : 0.0;
    }
};
SCrossingScore ScoreCrossings(const std::vector<STrueCrossing>& truth,
                              const std::vector<zor::counting::SCrossing>& counted);

// Runs the tracker and the left-object detector over a rendered scene; answers the first time a
// target had stood for longer than duration ms (-1: never), and its track.
struct SLeftObjectRun {
    long m_FirstReport = -1;
    int m_ReportType = 0;
    long m_LongestStill = 0; // the longest still time any target reached
};
SLeftObjectRun DetectLeftObjects(const SScene& scene, long duration,
                                 const zor::counting::SLeftObjectConfig& config = {});
SLeftObjectRun DetectLeftObjectsIn(const std::vector<SFrame>& frames, const SScene& scene,
                                   long duration,
                                   const zor::counting::SLeftObjectConfig& config = {});

} // namespace zor::counting::synthetic
