// The synthetic clips are measuring instruments: they must be repeatable and their truth right.
#include "analytics/tracking/SyntheticClip.h"
#include "analytics/image/BeluiBitmapBuffer.h"
#include "analytics/tracking/BlockScore.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

std::vector<std::uint8_t> Bytes(const SBeluiBitmap& b) {
    std::vector<std::uint8_t> v;
    for (int y = 0; y < b.m_Height; ++y) {
        v.insert(v.end(), b.Row(y), b.Row(y) + b.m_Width);
    }
    return v;
}

TEST(SyntheticClip, FramesAreAPureFunctionOfSceneAndNumber) {
    const SZorSynthScene scene = ZorSynthTrafficScene(120, 80, 100, 4.0, 5);
    CZorSyntheticClip one(scene), two(scene);
    CBeluiBitmapBuffer a, b;
    a.Allocate(120, 80);
    b.Allocate(120, 80);
    one.Render(70, a.Bitmap());
    two.Render(10, b.Bitmap());
    two.Render(70, b.Bitmap());
    EXPECT_EQ(Bytes(a.Bitmap()), Bytes(b.Bitmap()));
    one.Render(71, b.Bitmap());
    EXPECT_NE(Bytes(a.Bitmap()), Bytes(b.Bitmap())) << "noise differs frame to frame";
    CBeluiBitmapBuffer wrong;
    wrong.Allocate(80, 80);
    EXPECT_FALSE(one.Render(0, wrong.Bitmap()));
}

TEST(SyntheticClip, TruthFollowsTheObjectAndItsStops) {
    SZorSynthScene scene = ZorSynthStaticScene(64, 32, 50, 0.0, 1);
    SZorSynthObject o;
    o.m_Width = 8;
    o.m_Height = 8;
    o.m_Ellipse = false;
    o.m_Contrast = 40;
    o.m_Texture = 0;
    o.m_Path = {{10, 0, 4}, {20, 20, 4}, {30, 20, 4}};
    scene.m_Objects.push_back(o);
    CZorSyntheticClip clip(scene);
    CBeluiBitmapBuffer picture, truth;
    picture.Allocate(64, 32);
    truth.Allocate(64, 32);
    clip.Render(5, picture.Bitmap(), &truth.Bitmap());
    EXPECT_EQ(truth.Bitmap().Row(6)[2], kSynthBackground) << "before its first key";
    clip.Render(15, picture.Bitmap(), &truth.Bitmap());
    EXPECT_EQ(truth.Bitmap().Row(4)[10], kSynthMoving);
    EXPECT_EQ(truth.Bitmap().Row(4)[18], kSynthBackground);
    clip.Render(25, picture.Bitmap(), &truth.Bitmap());
    EXPECT_EQ(truth.Bitmap().Row(11)[27], kSynthStill);
    clip.Render(31, picture.Bitmap(), &truth.Bitmap());
    EXPECT_EQ(truth.Bitmap().Row(11)[27], kSynthBackground) << "after its last key";
}

TEST(BlockScore, CountsByCoverageAndSkipsWhereStillObjectsWere) {
    // 3 x 1 blocks of 4 x 4: block 0 a quarter moving, block 1 one pixel moving (not scored),
    // block 2 empty.
    CBeluiBitmapBuffer truth;
    truth.Allocate(12, 4);
    for (int i = 0; i < 4; ++i) {
        truth.Bitmap().Row(0)[i] = kSynthMoving;
    }
    truth.Bitmap().Row(3)[5] = kSynthMoving;
    CBelui2DMask detected;
    detected.Create(12, 4, 4, 4);
    detected.SetCell(1, 0, CBelui2DMask::kSet);
    detected.SetCell(2, 0, CBelui2DMask::kSet);
    CZorBlockScorer scorer(12, 4, 4, 3);
    SZorBlockCounts c = scorer.Judge(truth.Bitmap(), detected);
    EXPECT_EQ(c.m_TruePositives, 0);
    EXPECT_EQ(c.m_FalseNegatives, 1);
    EXPECT_EQ(c.m_FalsePositives, 1);
    EXPECT_EQ(c.m_Negatives, 1);
    // A still object on block 2: it and the next 3 frames there are not scored.
    truth.Bitmap().Row(1)[9] = kSynthStill;
    EXPECT_EQ(scorer.Judge(truth.Bitmap(), detected).m_Negatives, 0);
    truth.Bitmap().Row(1)[9] = kSynthBackground;
    for (int n = 0; n < 3; ++n) {
        EXPECT_EQ(scorer.Judge(truth.Bitmap(), detected).m_Negatives, 0) << n;
    }
    EXPECT_EQ(scorer.Judge(truth.Bitmap(), detected).m_Negatives, 1);
    SZorBlockCounts sum;
    sum.m_TruePositives = 9;
    sum.m_FalsePositives = 1;
    sum.m_FalseNegatives = 3;
    EXPECT_NEAR(sum.F1(), 2 * 0.9 * 0.75 / 1.65, 1e-12);
}

} // namespace
