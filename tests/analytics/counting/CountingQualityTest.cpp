// A coarse quality floor for the counting cores on synthetic scenes with known truth, on the
// detector's boxes and once through the object tracker's image chain on the scenes drawn as video.
// (bench/counting's quality program prints the full figures over many more scenes.)
#include "analytics/counting/synthetic/RenderedScenes.h"

#include <gtest/gtest.h>

using namespace zor::counting::synthetic;

namespace {

// Absorption as the object tracker's background does it: a thing that stands for about 1.2 s
// fades into the background.
constexpr long kAbsorb = 1200;

} // namespace

class CountingQuality : public testing::TestWithParam<std::uint32_t> {};

TEST_P(CountingQuality, WalkersAreCountedExactlyAndOnceWhenTheyStopOnTheLine) {
    const SScene scene = WalkersOneByOne(8, GetParam());
    ASSERT_EQ(TrueCrossings(scene, 0, kLineY, scene.m_Width, kLineY).size(), 8U);
    const SCountRun run = CountScene(scene);
    EXPECT_EQ(run.m_Entries, 4U);
    EXPECT_EQ(run.m_Exits, 4U);
    for (long absorb : {0L, kAbsorb}) {
        SScene stop = StopOnLine(3000, GetParam());
        stop.m_AbsorbAfter = absorb;
        const SCountRun stopRun = CountScene(stop);
        EXPECT_EQ(stopRun.m_Entries, 1U) << "absorb " << absorb;
        EXPECT_EQ(stopRun.m_Exits, 0U) << "absorb " << absorb;
    }
}

TEST_P(CountingQuality, ALeftBagIsReportedWithinTheDurationAndASecondAndAPauseNever) {
    const long duration = 5000;
    const long drop = 8000;
    for (long absorb : {0L, kAbsorb}) {
        SScene bag = LeftBag(drop, GetParam());
        bag.m_AbsorbAfter = absorb;
        const SLeftObjectRun run = DetectLeftObjects(bag, duration);
        ASSERT_GE(run.m_FirstReport, 0) << "absorb " << absorb;
        EXPECT_LE(run.m_FirstReport, drop + duration + 1000) << "absorb " << absorb;
        EXPECT_GE(run.m_FirstReport, drop + duration - 1000) << "absorb " << absorb;
        SScene pause = Pause(3000, GetParam());
        pause.m_AbsorbAfter = absorb;
        const SLeftObjectRun paused = DetectLeftObjects(pause, duration);
        EXPECT_EQ(paused.m_FirstReport, -1) << "absorb " << absorb;
        EXPECT_LT(paused.m_LongestStill, 4000) << "absorb " << absorb;
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, CountingQuality, testing::Values(1U, 2U, 3U));

TEST(RenderedQuality, WalkersAreCountedExactlyABagReportedInTimeAndAPauseNever) {
    const SScene walkers = WalkersOneByOne(4, 3);
    const SCountRun run = CountFrames(TrackScene(walkers), walkers);
    EXPECT_EQ(run.m_Entries, 2U);
    EXPECT_EQ(run.m_Exits, 2U);
    const long drop = 8000;
    const SScene bag = LeftBag(drop, 2);
    const SLeftObjectRun left = DetectLeftObjectsIn(TrackScene(bag), bag, 5000);
    ASSERT_GE(left.m_FirstReport, 0);
    EXPECT_LE(left.m_FirstReport, drop + 5000 + 1000);
    const SScene pause = Pause(4500, 2);
    EXPECT_EQ(DetectLeftObjectsIn(TrackScene(pause), pause, 5000).m_FirstReport, -1);
}
