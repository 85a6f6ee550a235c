// The sector grid: calm scenes stay calm, a switched light is global, an object that appears at
// once is local, and the settings are checked.
#include "analytics/tracking/SectorGrid.h"
#include "analytics/image/BeluiBitmapBuffer.h"
#include "analytics/image/BeluiBitmapOps.h"
#include "analytics/tracking/SyntheticClip.h"

#include <gtest/gtest.h>

namespace {

struct SGridRun {
    explicit SGridRun(const SZorSynthScene& scene) : m_Clip(scene) {
        m_Frame.Allocate(scene.m_Width, scene.m_Height);
    }
    void Next() {
        m_Clip.Render(m_N++, m_Frame.Bitmap());
        ASSERT_TRUE(m_Grid.Process(m_Frame.Bitmap()));
    }
    CZorSyntheticClip m_Clip;
    CBeluiBitmapBuffer m_Frame;
    CZorSectorGrid m_Grid;
    int m_N = 0;
};

TEST(SectorGrid, ANoisyStaticSceneStaysCalm) {
    SGridRun run(ZorSynthStaticScene(176, 120, 100, 5.0, 4));
    for (int n = 0; n < 100; ++n) {
        run.Next();
        ASSERT_EQ(run.m_Grid.ChangedCount(), 0) << n;
    }
    ASSERT_EQ(run.m_Grid.SectorCount(), 16);
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(run.m_Grid.Level(i), 2) << i;
    }
}

TEST(SectorGrid, ALightSwitchedIsGlobalThenSteadyThenLearned) {
    SZorSynthScene scene = ZorSynthStaticScene(176, 120, 400, 3.0, 4);
    scene.m_StepFrame = 30;
    scene.m_StepGain = 1.3;
    SGridRun run(scene);
    for (int n = 0; n <= 30; ++n) {
        run.Next();
    }
    EXPECT_EQ(run.m_Grid.Scope(), 2);
    EXPECT_GE(run.m_Grid.ChangedCount(), 12);
    for (int i = 0; i < 16; ++i) {
        EXPECT_GE(run.m_Grid.Level(i), 4) << i;
        EXPECT_LE(run.m_Grid.Level(i), 7) << i;
    }
    run.Next();
    EXPECT_EQ(run.m_Grid.Scope(), 0);
    EXPECT_EQ(run.m_Grid.Level(5), 3) << "steady, unlike the old reference";
    while (run.m_N < 400) {
        run.Next();
    }
    EXPECT_EQ(run.m_Grid.Level(5), 2) << "the reference has learned the new light";
}

TEST(SectorGrid, AnObjectAppearingAtOnceIsLocal) {
    SZorSynthScene scene = ZorSynthStaticScene(176, 120, 60, 3.0, 4);
    SZorSynthObject o;
    o.m_Width = 30;
    o.m_Height = 24;
    o.m_Contrast = 60;
    o.m_Ellipse = false;
    o.m_Path = {{40, 2, 2}, {1000, 2, 2}}; // appears in the top-left sector at frame 40
    scene.m_Objects.push_back(o);
    SGridRun run(scene);
    while (run.m_N <= 40) {
        run.Next();
    }
    EXPECT_EQ(run.m_Grid.Scope(), 1);
    EXPECT_EQ(run.m_Grid.ChangedCount(), 1);
    EXPECT_GE(run.m_Grid.Level(0), 4);
    int left = 0, top = 0, right = 0, bottom = 0;
    run.m_Grid.SectorRect(0, &left, &top, &right, &bottom);
    EXPECT_EQ(left, 0);
    EXPECT_EQ(right, 44);
    EXPECT_EQ(bottom, 30);
}

TEST(SectorGrid, WarmUpLevelsComeFirst) {
    SZorSectorSettings settings;
    settings.m_WarmUp = 5;
    CZorSectorGrid grid(settings);
    CBeluiBitmapBuffer frame;
    frame.Allocate(64, 64);
    BeluiBitmapFill(frame.Bitmap(), 50);
    grid.Process(frame.Bitmap());
    BeluiBitmapFill(frame.Bitmap(), 200); // everything changes during warm-up
    grid.Process(frame.Bitmap());
    EXPECT_EQ(grid.Level(0), 12);
    for (int n = 0; n < 10; ++n) {
        grid.Process(frame.Bitmap());
    }
    EXPECT_EQ(grid.Level(0), 3);
}

TEST(SectorGrid, SettingsAreCheckedAndSmallPicturesGetFewerSectors) {
    CZorSectorGrid grid;
    SZorSectorSettings bad;
    bad.m_Columns = 0;
    EXPECT_FALSE(grid.Configure(bad));
    bad = SZorSectorSettings();
    bad.m_WarmUp = 16;
    EXPECT_FALSE(grid.Configure(bad));
    EXPECT_STRNE(bad.Problem(), "");
    bad = SZorSectorSettings();
    bad.m_GlobalShare = 0;
    EXPECT_FALSE(grid.Configure(bad));
    EXPECT_EQ(grid.Settings().m_WarmUp, 15) << "a refused set keeps the old settings";
    CBeluiBitmapBuffer tiny;
    tiny.Allocate(3, 1);
    EXPECT_TRUE(grid.Process(tiny.Bitmap()));
    EXPECT_EQ(grid.SectorCount(), 2) << "3 x 1 pixels sampled every 2: 2 x 1 samples";
    EXPECT_FALSE(grid.Process(SBeluiBitmap{}));
}

} // namespace
