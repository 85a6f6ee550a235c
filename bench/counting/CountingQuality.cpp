// Quality of the counting cores on synthetic scenes with known truth, over many random scenes:
//   zor_counting_quality [SEEDS]
// Each scene is measured on boxes made two ways: from the paths with a foreground detector's
// typical faults (at a normal and a heavy level, with and without still things fading after
// 1.2 s), and - the whole chain - drawn as video (textured background, sensor noise) and run
// through the object tracker's image chain, whose blocks are the boxes (a fifth of the scenes:
// drawing and tracking cost more).
// Walkers crossing one by one (exact counts, and crossings scored by precision, recall and F1),
// pairs side by side (count error per pair), a walker who stops on the line, a bag left behind
// (delay of the report past the target duration) and a walker who pauses (false reports), each
// with the detector faults of SyntheticScenes at a normal and a heavy level, and with still
// things fading into the background after 1.2 s as the object tracker's background does it.
#include "analytics/counting/synthetic/RenderedScenes.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

using namespace zor::counting::synthetic;

namespace {

constexpr long kDuration = 5000; // the exit-blocking target duration, ms
constexpr long kAbsorb = 1200;

struct SNoise {
    const char* m_Name;
    double m_Jitter;
    double m_Split;
    double m_Drop;
    long m_Absorb;
    bool m_Rendered; // drawn and tracked instead
};

const SNoise kNoises[] = {
    {"normal", 1.5, 0.10, 0.03, 0, false}, {"normal+absorb", 1.5, 0.10, 0.03, kAbsorb, false},
    {"heavy", 2.5, 0.25, 0.08, 0, false},  {"heavy+absorb", 2.5, 0.25, 0.08, kAbsorb, false},
    {"object tracker", 0, 0, 0, 0, true},
};

SScene Noisy(SScene scene, const SNoise& noise) {
    scene.m_Jitter = noise.m_Jitter;
    scene.m_SplitChance = noise.m_Split;
    scene.m_DropChance = noise.m_Drop;
    scene.m_AbsorbAfter = noise.m_Absorb;
    return scene;
}

// Scenes per row: the rendered rows take a fifth.
int Scenes(int seeds, const SNoise& noise) {
    return noise.m_Rendered ? std::max(1, seeds / 5) : seeds;
}

SCountRun Count(const SScene& scene, const SNoise& noise) {
    return noise.m_Rendered ? CountFrames(TrackScene(scene), scene) : CountScene(scene);
}

SLeftObjectRun Detect(const SScene& scene, const SNoise& noise) {
    return noise.m_Rendered ? DetectLeftObjectsIn(TrackScene(scene), scene, kDuration)
                            : DetectLeftObjects(scene, kDuration);
}

void Walkers(int seeds) {
    std::printf("\nWalkers one by one (8 a scene, 4 each way), %d scenes per row (tracker: %d)\n",
                seeds, std::max(1, seeds / 5));
    std::printf("%-15s %12s %10s %8s %8s %8s\n", "faults", "exact scenes", "crossings", "prec.",
                "recall", "F1");
    for (const SNoise& noise : kNoises) {
        int exact = 0;
        SCrossingScore total;
        for (int s = 1; s <= Scenes(seeds, noise); ++s) {
            const SScene scene = Noisy(WalkersOneByOne(8, static_cast<std::uint32_t>(s)), noise);
            const auto truth = TrueCrossings(scene, 0, kLineY, scene.m_Width, kLineY);
            const SCountRun run = Count(scene, noise);
            const SCrossingScore score = ScoreCrossings(truth, run.m_Crossings);
            total.m_True += score.m_True;
            total.m_Counted += score.m_Counted;
            total.m_Matched += score.m_Matched;
            exact += run.m_Entries == 4 && run.m_Exits == 4 ? 1 : 0;
        }
        std::printf("%-15s %7d/%-4d %10d %8.3f %8.3f %8.3f\n", noise.m_Name, exact,
                    Scenes(seeds, noise), total.m_True, total.Precision(), total.Recall(),
                    total.F1());
    }
}

void Pairs(int seeds) {
    std::printf(
        "\nPairs side by side (one pair a scene, each way), %d scenes per row (tracker: %d)\n",
        seeds, std::max(1, seeds / 5));
    std::printf("%-15s %8s %10s %12s %10s\n", "faults", "exact", "within 1", "mean count", "worst");
    for (const SNoise& noise : kNoises) {
        int exact = 0;
        int within = 0;
        int scenes = 0;
        double sum = 0;
        int worst = 0;
        for (int s = 1; s <= Scenes(seeds, noise); ++s) {
            for (int direction = 0; direction < 2; ++direction) {
                SScene scene = Noisy(WalkingPairs(2, static_cast<std::uint32_t>(s)), noise);
                scene.m_Actors.erase(scene.m_Actors.begin() + (direction == 0 ? 2 : 0),
                                     scene.m_Actors.begin() + (direction == 0 ? 4 : 2));
                const SCountRun run = Count(scene, noise);
                const int counted = static_cast<int>(run.m_Entries + run.m_Exits);
                const int wrongWay = static_cast<int>(direction == 0 ? run.m_Exits : run.m_Entries);
                const int error = std::abs(counted - 2) + wrongWay;
                exact += error == 0 ? 1 : 0;
                within += error <= 1 ? 1 : 0;
                worst = std::max(worst, error);
                sum += counted;
                ++scenes;
            }
        }
        std::printf("%-15s %4d/%-4d %5d/%-4d %12.2f %10d\n", noise.m_Name, exact, scenes, within,
                    scenes, sum / scenes, worst);
    }
}

void StopOnTheLine(int seeds) {
    std::printf("\nA walker who stops on the line for 3 s, %d scenes per row (tracker: %d)\n",
                seeds, std::max(1, seeds / 5));
    std::printf("%-15s %12s\n", "faults", "counted once");
    for (const SNoise& noise : kNoises) {
        int once = 0;
        for (int s = 1; s <= Scenes(seeds, noise); ++s) {
            const SCountRun run =
                Count(Noisy(StopOnLine(3000, static_cast<std::uint32_t>(s)), noise), noise);
            once += run.m_Entries == 1 && run.m_Exits == 0 ? 1 : 0;
        }
        std::printf("%-15s %7d/%-4d\n", noise.m_Name, once, Scenes(seeds, noise));
    }
}

void LeftBags(int seeds) {
    std::printf("\nA bag put down at 8 s and left; target duration %ld ms; report delay past "
                "the duration, %d scenes per row (tracker: %d)\n",
                kDuration, seeds, std::max(1, seeds / 5));
    std::printf("%-15s %10s %14s %8s %8s %8s\n", "faults", "reported", "within +1 s", "min ms",
                "median", "max ms");
    for (const SNoise& noise : kNoises) {
        std::vector<long> delays;
        int within = 0;
        for (int s = 1; s <= Scenes(seeds, noise); ++s) {
            const long drop = 8000;
            const SLeftObjectRun run =
                Detect(Noisy(LeftBag(drop, static_cast<std::uint32_t>(s)), noise), noise);
            if (run.m_FirstReport < 0) {
                continue;
            }
            const long delay = run.m_FirstReport - drop - kDuration;
            delays.push_back(delay);
            within += delay <= 1000 ? 1 : 0;
        }
        std::sort(delays.begin(), delays.end());
        if (delays.empty()) {
            std::printf("%-15s %6d/%-4d\n", noise.m_Name, 0, Scenes(seeds, noise));
            continue;
        }
        std::printf("%-15s %6zu/%-4d %9d/%-4d %8ld %8ld %8ld\n", noise.m_Name, delays.size(),
                    Scenes(seeds, noise), within, Scenes(seeds, noise), delays.front(),
                    delays[delays.size() / 2], delays.back());
    }
}

void Pauses(int seeds) {
    std::printf("\nA walker who pauses, target duration %ld ms: scenes with a false report, "
                "%d scenes per row (tracker: %d)\n",
                kDuration, seeds, std::max(1, seeds / 5));
    std::printf("%-15s %12s %12s %16s\n", "faults", "pause 3 s", "pause 4.5 s", "longest still");
    for (const SNoise& noise : kNoises) {
        int falseShort = 0;
        int falseLong = 0;
        long longest = 0;
        for (int s = 1; s <= Scenes(seeds, noise); ++s) {
            const auto seed = static_cast<std::uint32_t>(s);
            const SLeftObjectRun a = Detect(Noisy(Pause(3000, seed), noise), noise);
            const SLeftObjectRun b = Detect(Noisy(Pause(4500, seed), noise), noise);
            falseShort += a.m_FirstReport >= 0 ? 1 : 0;
            falseLong += b.m_FirstReport >= 0 ? 1 : 0;
            longest = std::max(longest, b.m_LongestStill);
        }
        std::printf("%-15s %7d/%-4d %7d/%-4d %13ld ms\n", noise.m_Name, falseShort,
                    Scenes(seeds, noise), falseLong, Scenes(seeds, noise), longest);
    }
}

} // namespace

int main(int argc, char** argv) {
    const int seeds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 100;
    Walkers(seeds);
    Pairs(seeds);
    StopOnTheLine(seeds);
    LeftBags(seeds);
    Pauses(seeds);
    return 0;
}
