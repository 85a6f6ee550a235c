#include "analytics/counting/synthetic/SyntheticScenes.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace zor::counting::synthetic {

bool SActor::PositionAt(long time, double* x, double* y) const {
    if (m_Path.empty() || time < m_Path.front().m_Time || time > m_Path.back().m_Time) {
        return false;
    }
    for (std::size_t i = 1; i < m_Path.size(); ++i) {
        const SWaypoint& a = m_Path[i - 1];
        const SWaypoint& b = m_Path[i];
        if (time <= b.m_Time) {
            const double span = static_cast<double>(b.m_Time - a.m_Time);
            const double f = span > 0 ? static_cast<double>(time - a.m_Time) / span : 1.0;
            *x = a.m_X + f * (b.m_X - a.m_X);
            *y = a.m_Y + f * (b.m_Y - a.m_Y);
            return true;
        }
    }
    *x = m_Path.back().m_X;
    *y = m_Path.back().m_Y;
    return true;
}

namespace {

SBox IdealBox(const SActor& actor, double x, double y) {
    return SBox{static_cast<int>(std::lround(x - 0.5 * actor.m_Width)),
                static_cast<int>(std::lround(y - 0.5 * actor.m_Height)),
                static_cast<int>(std::lround(x + 0.5 * actor.m_Width)),
                static_cast<int>(std::lround(y + 0.5 * actor.m_Height))};
}

// Boxes that overlap or touch are one blob to a foreground detector.
void MergeTouching(std::vector<SBox>& boxes) {
    bool merged = true;
    while (merged) {
        merged = false;
        for (std::size_t i = 0; i < boxes.size() && !merged; ++i) {
            for (std::size_t j = i + 1; j < boxes.size(); ++j) {
                if (!zor::counting::Intersection(zor::counting::Grown(boxes[i], 1), boxes[j])
                         .IsEmpty()) {
                    boxes[i] = zor::counting::Union(boxes[i], boxes[j]);
                    boxes.erase(boxes.begin() + static_cast<long>(j));
                    merged = true;
                    break;
                }
            }
        }
    }
}

struct SActorState {
    bool m_Seen = false;
    double m_X = 0, m_Y = 0;
    long m_StillSince = 0;
    bool m_Absorbed = false;
    SBox m_AbsorbedBox;
};

struct SGhost {
    SBox m_Box;
    long m_Until;
};

} // namespace

std::vector<SFrame> RenderScene(const SScene& scene) {
    std::mt19937 random(scene.m_Seed);
    std::normal_distribution<double> jitter(0.0, scene.m_Jitter);
    std::uniform_real_distribution<double> chance(0.0, 1.0);
    std::vector<SActorState> states(scene.m_Actors.size());
    std::vector<SGhost> ghosts;
    std::vector<SFrame> frames;

    for (long t = 0; t < scene.m_Duration; t += scene.m_FrameMs) {
        struct SRaw {
            SBox m_Box;
            bool m_Walker;
        };
        std::vector<SRaw> raw;
        for (std::size_t a = 0; a < scene.m_Actors.size(); ++a) {
            const SActor& actor = scene.m_Actors[a];
            SActorState& s = states[a];
            double x = 0;
            double y = 0;
            if (!actor.PositionAt(t, &x, &y)) {
                s.m_Seen = false;
                continue;
            }
            const bool moved = s.m_Seen && std::hypot(x - s.m_X, y - s.m_Y) > 0.01;
            if (!s.m_Seen || moved) {
                s.m_StillSince = t;
                if (s.m_Absorbed) {
                    ghosts.push_back(SGhost{s.m_AbsorbedBox, t + scene.m_GhostFor});
                    s.m_Absorbed = false;
                }
            }
            s.m_Seen = true;
            s.m_X = x;
            s.m_Y = y;
            const SBox box = IdealBox(actor, x, y);
            if (scene.m_AbsorbAfter > 0 && !s.m_Absorbed &&
                t - s.m_StillSince >= scene.m_AbsorbAfter) {
                s.m_Absorbed = true;
                s.m_AbsorbedBox = box;
            }
            if (!s.m_Absorbed) {
                raw.push_back(SRaw{box, actor.m_Kind == SActor::WALKER});
            }
        }
        std::erase_if(ghosts, [t](const SGhost& g) { return g.m_Until <= t; });
        for (const SGhost& g : ghosts) {
            raw.push_back(SRaw{g.m_Box, false});
        }

        SFrame frame{t, {}};
        for (const SRaw& r : raw) {
            if (chance(random) < scene.m_DropChance) {
                continue;
            }
            SBox b = r.m_Box;
            b.m_Left += static_cast<int>(std::lround(jitter(random)));
            b.m_Top += static_cast<int>(std::lround(jitter(random)));
            b.m_Right += static_cast<int>(std::lround(jitter(random)));
            b.m_Bottom += static_cast<int>(std::lround(jitter(random)));
            b.m_Right = std::max(b.m_Right, b.m_Left + 3);
            b.m_Bottom = std::max(b.m_Bottom, b.m_Top + 3);
            if (r.m_Walker && b.Height() > 12 && chance(random) < scene.m_SplitChance) {
                const int cut = b.m_Top + b.Height() * 55 / 100;
                const int gap = 3 + static_cast<int>(chance(random) * 3);
                frame.m_Boxes.push_back(SBox{b.m_Left, b.m_Top, b.m_Right, cut - gap / 2});
                frame.m_Boxes.push_back(SBox{b.m_Left, cut + (gap + 1) / 2, b.m_Right, b.m_Bottom});
            } else {
                frame.m_Boxes.push_back(b);
            }
        }
        MergeTouching(frame.m_Boxes);
        if (chance(random) < scene.m_NoiseChance) {
            const int x = static_cast<int>(chance(random) * (scene.m_Width - 8));
            const int y = static_cast<int>(chance(random) * (scene.m_Height - 8));
            const int size = 3 + static_cast<int>(chance(random) * 4);
            frame.m_Boxes.push_back(SBox{x, y, x + size, y + size});
        }
        const SBox picture{0, 0, scene.m_Width, scene.m_Height};
        for (SBox& b : frame.m_Boxes) {
            b = zor::counting::Intersection(b, picture);
        }
        std::erase_if(frame.m_Boxes, [](const SBox& b) { return b.IsEmpty(); });
        frames.push_back(std::move(frame));
    }
    return frames;
}

std::vector<STrueCrossing> TrueCrossings(const SScene& scene, double x1, double y1, double x2,
                                         double y2) {
    std::vector<STrueCrossing> crossings;
    const double dx = x2 - x1;
    const double dy = y2 - y1;
    const double length2 = dx * dx + dy * dy;
    for (std::size_t a = 0; a < scene.m_Actors.size(); ++a) {
        const SActor& actor = scene.m_Actors[a];
        if (actor.m_Kind != SActor::WALKER) {
            continue;
        }
        int side = 0;
        double px = 0;
        double py = 0;
        for (long t = 0; t < scene.m_Duration; t += scene.m_FrameMs) {
            double x = 0;
            double y = 0;
            if (!actor.PositionAt(t, &x, &y)) {
                continue;
            }
            const double cross = dx * (y - y1) - dy * (x - x1);
            const int now = cross > 0 ? 1 : (cross < 0 ? -1 : 0);
            if (now != 0 && side != 0 && now != side) {
                const double along = ((0.5 * (x + px) - x1) * dx + (0.5 * (y + py) - y1) * dy);
                if (along >= 0 && along <= length2) {
                    crossings.push_back(STrueCrossing{static_cast<int>(a), now, t});
                }
            }
            if (now != 0) {
                side = now;
            }
            px = x;
            py = y;
        }
    }
    std::sort(crossings.begin(), crossings.end(),
              [](const STrueCrossing& a, const STrueCrossing& b) { return a.m_Time < b.m_Time; });
    return crossings;
}

namespace {

SActor Walker(std::vector<SWaypoint> path) {
    SActor walker;
    walker.m_Path = std::move(path);
    return walker;
}

} // namespace

SScene WalkersOneByOne(int walkers, std::uint32_t seed) {
    SScene scene;
    scene.m_Seed = seed;
    std::mt19937 random(seed * 7919U + 1U);
    std::uniform_real_distribution<double> column(60, 290);
    std::uniform_real_distribution<double> speed(60, 90);
    std::uniform_real_distribution<double> drift(-10, 10);
    long start = 300;
    for (int i = 0; i < walkers; ++i) {
        const bool down = i % 2 == 0;
        const double x = column(random);
        const double v = speed(random);
        const double from = down ? -25 : 265;
        const double to = down ? 265 : -25;
        const auto travel = static_cast<long>(290.0 / v * 1000.0);
        scene.m_Actors.push_back(
            Walker({{start, x, from}, {start + travel, x + drift(random) * travel / 1000.0, to}}));
        start += travel + 400;
    }
    scene.m_Duration = start + 500;
    return scene;
}

SScene WalkingPairs(int pairs, std::uint32_t seed) {
    SScene scene;
    scene.m_Seed = seed;
    std::mt19937 random(seed * 104729U + 3U);
    std::uniform_real_distribution<double> column(70, 260);
    std::uniform_real_distribution<double> speed(55, 80);
    std::uniform_real_distribution<double> apart(12, 18);
    std::uniform_real_distribution<double> lag(0, 300);
    long start = 300;
    for (int i = 0; i < pairs; ++i) {
        const bool down = i % 2 == 0;
        const double x = column(random);
        const double v = speed(random);
        const double from = down ? -25 : 265;
        const double to = down ? 265 : -25;
        const auto travel = static_cast<long>(290.0 / v * 1000.0);
        const double offset = apart(random);
        const auto behind = static_cast<long>(lag(random));
        scene.m_Actors.push_back(Walker({{start, x, from}, {start + travel, x, to}}));
        scene.m_Actors.push_back(Walker(
            {{start + behind, x + offset, from}, {start + behind + travel, x + offset, to}}));
        start += travel + behind + 500;
    }
    scene.m_Duration = start + 500;
    return scene;
}

SScene StopOnLine(long stopMs, std::uint32_t seed) {
    SScene scene;
    scene.m_Seed = seed;
    scene.m_Actors.push_back(Walker({{300, 170, -25},
                                     {2300, 172, kLineY},
                                     {2300 + stopMs, 172, kLineY},
                                     {4300 + stopMs, 175, 265}}));
    scene.m_Duration = 4800 + stopMs;
    return scene;
}

SScene LeftBag(long dropTime, std::uint32_t seed) {
    SScene scene;
    scene.m_Seed = seed;
    // Walks along the path below the line from the left; stops briefly to put the bag down.
    const double y = 185;
    const double speed = 70.0 / 1000.0; // px/ms
    const long enter = dropTime - 2700; // the bag goes down about 180 px into the picture
    const double dropX = -10 + speed * static_cast<double>(dropTime - enter);
    const long leave = dropTime + 500;
    const auto away = static_cast<long>((362 - dropX) / speed);
    scene.m_Actors.push_back(
        Walker({{enter, -10, y}, {dropTime, dropX, y}, {leave, dropX, y}, {leave + away, 362, y}}));
    SActor bag;
    bag.m_Kind = SActor::OBJECT;
    bag.m_Width = 12;
    bag.m_Height = 10;
    scene.m_Duration = dropTime + 15000;
    bag.m_Path = {
        {enter, 0, y + 14}, {dropTime, dropX + 10, y + 14}, {scene.m_Duration, dropX + 10, y + 14}};
    scene.m_Actors.push_back(bag);
    return scene;
}

SScene Pause(long pauseMs, std::uint32_t seed) {
    SScene scene;
    scene.m_Seed = seed;
    const double y = 185;
    // After the detector's warm-up, as the left bag.
    scene.m_Actors.push_back(Walker(
        {{5300, -10, y}, {7900, 170, y}, {7900 + pauseMs, 170, y}, {10500 + pauseMs, 362, y}}));
    scene.m_Duration = 11500 + pauseMs;
    return scene;
}

SCountRun CountScene(const SScene& scene, const zor::counting::STrackerConfig& tracker,
                     const zor::counting::SCounterConfig& counter) {
    return CountFrames(RenderScene(scene), scene, tracker, counter);
}

SCountRun CountFrames(const std::vector<SFrame>& frames, const SScene& scene,
                      const zor::counting::STrackerConfig& tracker,
                      const zor::counting::SCounterConfig& counter) {
    zor::counting::CBoxTracker boxTracker(tracker);
    boxTracker.SetFrameSize(scene.m_Width, scene.m_Height);
    zor::counting::CLineCounter lineCounter(counter);
    lineCounter.SetLine(0, kLineY, scene.m_Width, kLineY);
    SCountRun run;
    for (const SFrame& frame : frames) {
        boxTracker.Update(frame.m_Time, frame.m_Boxes.data(), frame.m_Boxes.size());
        lineCounter.Update(frame.m_Time, boxTracker.Tracks(), boxTracker.Ended(), run.m_Crossings);
    }
    run.m_Entries = lineCounter.Entries();
    run.m_Exits = lineCounter.Exits();
    return run;
}

SCrossingScore ScoreCrossings(const std::vector<STrueCrossing>& truth,
                              const std::vector<zor::counting::SCrossing>& counted) {
    SCrossingScore score;
    score.m_True = static_cast<int>(truth.size());
    score.m_Counted = static_cast<int>(counted.size());
    std::vector<char> used(counted.size(), 0);
    for (const STrueCrossing& t : truth) {
        for (std::size_t i = 0; i < counted.size(); ++i) {
            if (!used[i] && counted[i].m_Direction == t.m_Direction &&
                std::labs(counted[i].m_Time - t.m_Time) <= 1000) {
                used[i] = 1;
                ++score.m_Matched;
                break;
            }
        }
    }
    return score;
}

SLeftObjectRun DetectLeftObjects(const SScene& scene, long duration,
                                 const zor::counting::SLeftObjectConfig& config) {
    return DetectLeftObjectsIn(RenderScene(scene), scene, duration, config);
}

SLeftObjectRun DetectLeftObjectsIn(const std::vector<SFrame>& frames, const SScene& scene,
                                   long duration, const zor::counting::SLeftObjectConfig& config) {
    zor::counting::CBoxTracker boxTracker;
    boxTracker.SetFrameSize(scene.m_Width, scene.m_Height);
    zor::counting::CLeftObjectDetector detector(config);
    SLeftObjectRun run;
    for (const SFrame& frame : frames) {
        boxTracker.Update(frame.m_Time, frame.m_Boxes.data(), frame.m_Boxes.size());
        for (const auto& target :
             detector.Update(frame.m_Time, boxTracker.Tracks(), boxTracker.Ended())) {
            const long still = target.StillFor(frame.m_Time);
            run.m_LongestStill = std::max(run.m_LongestStill, still);
            if (run.m_FirstReport < 0 && still > duration) {
                run.m_FirstReport = frame.m_Time;
                run.m_ReportType = target.m_Type;
            }
        }
    }
    return run;
}

} // namespace zor::counting::synthetic
