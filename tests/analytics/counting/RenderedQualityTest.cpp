// The whole chain on drawn video: the synthetic scenes rendered as pictures, the object tracker's
// image chain finding their foreground blocks, the counting cores on those blocks.
#include "tests/analytics/counting/RenderedScenes.h"

#include <gtest/gtest.h>

using namespace zortest::counting;

TEST(RenderedQuality, WalkersThroughTheObjectTrackerAreCountedExactly) {
    const SScene scene = WalkersOneByOne(4, 3);
    const SCountRun run = CountFrames(TrackScene(scene), scene);
    EXPECT_EQ(run.m_Entries, 2U);
    EXPECT_EQ(run.m_Exits, 2U);
}

TEST(RenderedQuality, ABagIsReportedInTimeAndAPauseNever) {
    const long drop = 8000;
    const SScene bag = LeftBag(drop, 2);
    const SLeftObjectRun left = DetectLeftObjectsIn(TrackScene(bag), bag, 5000);
    ASSERT_GE(left.m_FirstReport, 0);
    EXPECT_LE(left.m_FirstReport, drop + 5000 + 1000);
    const SScene pause = Pause(4500, 2);
    EXPECT_EQ(DetectLeftObjectsIn(TrackScene(pause), pause, 5000).m_FirstReport, -1);
}
