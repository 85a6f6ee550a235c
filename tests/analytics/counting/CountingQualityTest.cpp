// The counting cores on synthetic scenes with known truth: the quality floor that must hold.
// (bench/counting's quality program prints the full figures over many more scenes.)
#include "tests/analytics/counting/SyntheticScenes.h"

#include <gtest/gtest.h>

using namespace zortest::counting;

namespace {

// Absorption as the object tracker's background does it: a thing that stands for about 1.2 s
// fades into the background.
constexpr long kAbsorb = 1200;

struct STrueCounts {
    unsigned long m_Entries = 0;
    unsigned long m_Exits = 0;
};

STrueCounts Truth(const SScene& scene) {
    STrueCounts counts;
    for (const STrueCrossing& c : TrueCrossings(scene, 0, kLineY, scene.m_Width, kLineY)) {
        (c.m_Direction > 0 ? counts.m_Entries : counts.m_Exits) += 1;
    }
    return counts;
}

} // namespace

class CountingQuality : public testing::TestWithParam<std::uint32_t> {};

TEST_P(CountingQuality, SeparatedWalkersAreCountedExactly) {
    const SScene scene = WalkersOneByOne(8, GetParam());
    const STrueCounts truth = Truth(scene);
    ASSERT_EQ(truth.m_Entries, 4U);
    ASSERT_EQ(truth.m_Exits, 4U);
    const SCountRun run = CountScene(scene);
    EXPECT_EQ(run.m_Entries, truth.m_Entries);
    EXPECT_EQ(run.m_Exits, truth.m_Exits);
}

TEST_P(CountingQuality, PairsAreCountedWithinOneEach) {
    // One pair at a time, so that each pair's error is its own.
    for (int direction = 0; direction < 2; ++direction) {
        SScene scene = WalkingPairs(2, GetParam());
        scene.m_Actors.erase(scene.m_Actors.begin() + (direction == 0 ? 2 : 0),
                             scene.m_Actors.begin() + (direction == 0 ? 4 : 2));
        const SCountRun run = CountScene(scene);
        const unsigned long counted = direction == 0 ? run.m_Entries : run.m_Exits;
        EXPECT_GE(counted, 1U) << "direction " << direction;
        EXPECT_LE(counted, 3U) << "direction " << direction;
        EXPECT_EQ(direction == 0 ? run.m_Exits : run.m_Entries, 0U);
    }
}

TEST_P(CountingQuality, AWalkerWhoStopsOnTheLineIsCountedOnce) {
    for (long absorb : {0L, kAbsorb}) {
        SScene scene = StopOnLine(3000, GetParam());
        scene.m_AbsorbAfter = absorb;
        const SCountRun run = CountScene(scene);
        EXPECT_EQ(run.m_Entries, 1U) << "absorb " << absorb;
        EXPECT_EQ(run.m_Exits, 0U) << "absorb " << absorb;
    }
}

TEST_P(CountingQuality, ALeftBagIsReportedWithinTheDurationAndASecond) {
    const long duration = 5000;
    const long drop = 8000;
    for (long absorb : {0L, kAbsorb}) {
        SScene scene = LeftBag(drop, GetParam());
        scene.m_AbsorbAfter = absorb;
        const SLeftObjectRun run = DetectLeftObjects(scene, duration);
        ASSERT_GE(run.m_FirstReport, 0) << "absorb " << absorb;
        EXPECT_LE(run.m_FirstReport, drop + duration + 1000) << "absorb " << absorb;
        EXPECT_GE(run.m_FirstReport, drop + duration - 1000) << "absorb " << absorb;
    }
}

TEST_P(CountingQuality, APauseShorterThanTheDurationIsNeverReported) {
    for (long absorb : {0L, kAbsorb}) {
        SScene scene = Pause(3000, GetParam());
        scene.m_AbsorbAfter = absorb;
        const SLeftObjectRun run = DetectLeftObjects(scene, 5000);
        EXPECT_EQ(run.m_FirstReport, -1) << "absorb " << absorb;
        EXPECT_LT(run.m_LongestStill, 4000) << "absorb " << absorb;
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, CountingQuality, testing::Range(1U, 6U));
