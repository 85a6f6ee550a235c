// The tracking chain on synthetic frames: what becomes foreground, what is absorbed and how
// fast, odd sizes, and the same result from every instruction-set level.
#include "analytics/tracking/TrackingChain.h"
#include "analytics/image/BeluiBitmapBuffer.h"
#include "analytics/image/BeluiBitmapOps.h"
#include "analytics/image/BeluiRows.h"
#include "analytics/tracking/SyntheticClip.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

// One object on a still, noisy background, at (x, y) from frame `enter` on (never, if -1),
// standing still from `stop` on.
SZorSynthScene OneObject(int enter, int stop, double sigma) {
    SZorSynthScene s = ZorSynthStaticScene(176, 120, 200, sigma, 7);
    if (enter >= 0) {
        SZorSynthObject o;
        o.m_Width = 24;
        o.m_Height = 24;
        o.m_Contrast = 50;
        o.m_Path = {{enter, 0, 40}, {stop, 80, 40}, {1000, 80, 40}};
        s.m_Objects.push_back(o);
    }
    return s;
}

class CRun {
public:
    explicit CRun(const SZorSynthScene& scene) : m_Clip(scene) {
        m_Frame.Allocate(scene.m_Width, scene.m_Height);
    }
    // Tracks frames up to and including n; answers the set blocks after it.
    int TrackTo(int n) {
        for (; m_Next <= n; ++m_Next) {
            m_Clip.Render(m_Next, m_Frame.Bitmap());
            if (m_Chain.IsEmpty()) {
                m_Chain.Rebuild(m_Frame.Bitmap());
            }
            m_Chain.Track(m_Frame.Bitmap());
        }
        return m_Chain.BlockMask().CountSet();
    }
    CZorSyntheticClip m_Clip;
    CBeluiBitmapBuffer m_Frame;
    CZorTrackingChain m_Chain;
    int m_Next = 0;
};

TEST(TrackingChain, TheFirstFrameIsTheBackgroundAndNoiseStaysQuiet) {
    CRun run(OneObject(-1, 0, 6.0));
    EXPECT_EQ(run.TrackTo(0), 0);
    EXPECT_EQ(run.TrackTo(150), 0);
}

TEST(TrackingChain, AMovingObjectIsBoxedWhereItIs) {
    CRun run(OneObject(10, 90, 4.0));
    run.TrackTo(50); // the object's corner is at x = 40 * 80 / 80 = 40, y = 40
    std::vector<SBeluiRect> boxes;
    run.m_Chain.GetBoxes(boxes);
    ASSERT_GT(boxes.size(), 20U);
    for (const SBeluiRect& b : boxes) {
        EXPECT_GE(b.m_Left, 36);
        EXPECT_LE(b.m_Right, 68);
        EXPECT_GE(b.m_Top, 36);
        EXPECT_LE(b.m_Bottom, 68);
    }
}

TEST(TrackingChain, AnObjectThatStopsIsAbsorbedWithinFortyFrames) {
    CRun run(OneObject(10, 90, 4.0));
    EXPECT_GT(run.TrackTo(95), 20);
    EXPECT_EQ(run.TrackTo(130), 0);
}

TEST(TrackingChain, AGlobalLightChangeIsAbsorbedWithinFortyFrames) {
    for (double gain : {1.15, 0.85}) {
        SZorSynthScene scene = OneObject(-1, 0, 4.0);
        scene.m_StepFrame = 60;
        scene.m_StepGain = gain;
        CRun run(scene);
        const int blocks = run.m_Chain.BlockMask().CountSet();
        EXPECT_EQ(blocks, 0);
        EXPECT_GT(run.TrackTo(61), 500) << gain;
        EXPECT_LT(run.TrackTo(100), 10) << gain;
    }
}

TEST(TrackingChain, EveryLevelGivesTheSameBackgroundAndBoxes) {
    const SZorSynthScene scene = ZorSynthStepScene(203, 97, 80, 5.0, 9, 40, 1.15);
    auto runAt = [&](EBeluiLevel level, std::vector<std::uint8_t>* background,
                     std::vector<SBeluiRect>* boxes) {
        if (!BeluiUseLevel(level)) {
            return false;
        }
        CRun run(scene);
        run.TrackTo(scene.m_Frames - 1);
        const SBeluiBitmap& bg = run.m_Chain.Background();
        for (int y = 0; y < bg.m_Height; ++y) {
            background->insert(background->end(), bg.Row(y), bg.Row(y) + bg.m_Width);
        }
        run.m_Chain.GetBoxes(*boxes);
        return true;
    };
    std::vector<std::uint8_t> refBackground;
    std::vector<SBeluiRect> refBoxes;
    ASSERT_TRUE(runAt(EBeluiLevel::Scalar, &refBackground, &refBoxes));
    for (EBeluiLevel level : {EBeluiLevel::Sse2, EBeluiLevel::Avx2}) {
        std::vector<std::uint8_t> background;
        std::vector<SBeluiRect> boxes;
        if (!runAt(level, &background, &boxes)) {
            continue;
        }
        EXPECT_EQ(background, refBackground);
        ASSERT_EQ(boxes.size(), refBoxes.size());
        EXPECT_EQ(std::memcmp(boxes.data(), refBoxes.data(), boxes.size() * sizeof(SBeluiRect)), 0);
    }
    BeluiUseLevel(EBeluiLevel::Avx2) || BeluiUseLevel(EBeluiLevel::Sse2);
}

TEST(TrackingChain, TinyAndOddSizesRunAndOtherSizesAreRefused) {
    for (auto [w, h] : {std::pair{1, 1}, {3, 2}, {5, 7}, {37, 5}, {4, 4}}) {
        CBeluiBitmapBuffer frame, out;
        frame.Allocate(w, h);
        out.Allocate(w, h);
        CZorTrackingChain chain;
        ASSERT_TRUE(chain.Rebuild(frame.Bitmap()));
        BeluiBitmapFill(frame.Bitmap(), 200);
        for (int n = 0; n < 40; ++n) {
            ASSERT_TRUE(chain.Track(frame.Bitmap()));
        }
        EXPECT_TRUE(chain.RenderOutput(frame.Bitmap(), out.Bitmap()));
        std::vector<SBeluiRect> boxes;
        chain.GetBoxes(boxes);
        for (const SBeluiRect& b : boxes) {
            EXPECT_LE(b.m_Right, w);
            EXPECT_LE(b.m_Bottom, h);
        }
        EXPECT_EQ(chain.Background().Row(h - 1)[w - 1], 200) << "absorbed by " << w << "x" << h;
    }
    CBeluiBitmapBuffer a, b;
    a.Allocate(16, 16);
    b.Allocate(16, 8);
    CZorTrackingChain chain;
    EXPECT_FALSE(chain.Track(a.Bitmap())) << "nothing built yet";
    ASSERT_TRUE(chain.Rebuild(a.Bitmap()));
    EXPECT_FALSE(chain.Track(b.Bitmap()));
    EXPECT_FALSE(chain.Rebuild(SBeluiBitmap{}));
    EXPECT_TRUE(chain.IsEmpty());
}

TEST(TrackingChain, BottomUpBoxesCountFromTheBottom) {
    std::vector<SBeluiRect> boxes = {{0, 0, 4, 16}};
    ZorFlipBoxes(boxes, 240);
    EXPECT_EQ(boxes[0].m_Top, 240);
    EXPECT_EQ(boxes[0].m_Bottom, 224);
}

} // namespace
