// Quality of the object tracker's foreground blocks on synthetic clips with known truth:
// precision, recall and F1 per clip, the frames until the picture calms down after a sudden
// change of illumination, how long a stopped object takes to be absorbed and to leave no trace,
// and false boxes on a static noisy scene.
//
//   zor_tracking_quality [frames]
#include "analytics/image/BeluiBitmapBuffer.h"
#include "analytics/tracking/BlockScore.h"
#include "analytics/tracking/SyntheticClip.h"
#include "analytics/tracking/TrackingChain.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

constexpr int kWarmUp = 10;
constexpr int kSettle = 45;
// A calm picture: at most this share of the background blocks reported.
constexpr double kCalmShare = 0.01;
constexpr double kRoughShare = 0.05;

struct SClipResult {
    SZorBlockCounts m_Counts;
    int m_Recovery = -1;      // frames from the step until calm again (-1: no step, or never)
    int m_RoughRecovery = -1; // the same for at most 5% of the background blocks
    int m_StepExcluded = 0;   // frames after the step left out of the counts
    long m_FalseBoxFrames = 0;
    long m_FalseBoxes = 0;
};

SClipResult RunClip(const SZorSynthScene& scene, int recoveryWindow) {
    CZorSyntheticClip clip(scene);
    CBeluiBitmapBuffer picture;
    CBeluiBitmapBuffer truth;
    picture.Allocate(scene.m_Width, scene.m_Height);
    truth.Allocate(scene.m_Width, scene.m_Height);
    CZorTrackingChain chain;
    CZorBlockScorer scorer(scene.m_Width, scene.m_Height, 4, kSettle);
    SClipResult result;
    for (int n = 0; n < scene.m_Frames; ++n) {
        clip.Render(n, picture.Bitmap(), &truth.Bitmap());
        if (n == 0) {
            chain.Rebuild(picture.Bitmap());
        }
        chain.Track(picture.Bitmap());
        const SZorBlockCounts counts = scorer.Judge(truth.Bitmap(), chain.BlockMask());
        if (n < kWarmUp) {
            continue;
        }
        const bool afterStep = scene.m_StepFrame >= 0 && n >= scene.m_StepFrame;
        if (afterStep && result.m_RoughRecovery < 0 && counts.m_Negatives > 0 &&
            counts.m_FalsePositives <= kRoughShare * counts.m_Negatives) {
            result.m_RoughRecovery = n - scene.m_StepFrame;
        }
        if (afterStep && result.m_Recovery < 0 && counts.m_Negatives > 0 &&
            counts.m_FalsePositives <= kCalmShare * counts.m_Negatives) {
            result.m_Recovery = n - scene.m_StepFrame;
        }
        if (afterStep && n < scene.m_StepFrame + recoveryWindow) {
            ++result.m_StepExcluded;
            continue;
        }
        result.m_Counts.Add(counts);
        if (scene.m_Objects.empty() && chain.BlockMask().CountSet() > 0) {
            ++result.m_FalseBoxFrames;
            result.m_FalseBoxes += chain.BlockMask().CountSet();
        }
    }
    return result;
}

// The stopping object of the traffic scene: frames from its stop until none of the blocks it
// covers is foreground, and from its departure until none of the blocks it left is.
void StopAndGo(int frames) {
    SZorSynthScene scene = ZorSynthTrafficScene(352, 240, frames, 4.0, 12);
    const SZorSynthObject stopper = scene.m_Objects[4];
    scene.m_Objects = {stopper};
    CZorSyntheticClip clip(scene);
    CBeluiBitmapBuffer picture;
    picture.Allocate(scene.m_Width, scene.m_Height);
    CZorTrackingChain chain;
    const int stop = stopper.m_Path[1].m_Frame;
    const int go = stopper.m_Path[2].m_Frame;
    const auto x0 = static_cast<int>(stopper.m_Path[1].m_X) / 4;
    const auto y0 = static_cast<int>(stopper.m_Path[1].m_Y) / 4;
    const int x1 = (static_cast<int>(stopper.m_Path[1].m_X) + stopper.m_Width + 3) / 4;
    const int y1 = (static_cast<int>(stopper.m_Path[1].m_Y) + stopper.m_Height + 3) / 4;
    int absorbed = -1;
    int cleared = -1;
    for (int n = 0; n < scene.m_Frames; ++n) {
        clip.Render(n, picture.Bitmap());
        if (n == 0) {
            chain.Rebuild(picture.Bitmap());
        }
        chain.Track(picture.Bitmap());
        int set = 0;
        for (int by = y0; by < y1; ++by) {
            for (int bx = x0; bx < x1; ++bx) {
                set += chain.BlockMask().IsSet(bx, by);
            }
        }
        double x = 0;
        double y = 0;
        // Once it has gone on, only the place it left counts, not the object itself.
        const bool away = clip.Position(0, n, &x, &y) && x >= (x1 * 4);
        if (n >= stop && n < go && absorbed < 0 && set == 0) {
            absorbed = n - stop;
        }
        if (n >= go && away && cleared < 0 && set == 0) {
            cleared = n - go;
        }
    }
    std::printf("  the stopping object: absorbed %d frames after it stopped; its old place clear "
                "%d frames after it left\n",
                absorbed, cleared);
}

} // namespace

int main(int argc, char** argv) {
    const int frames = argc > 1 ? std::atoi(argv[1]) : 330;
    std::printf("Object tracking quality on synthetic 352x240 clips, %d frames, 4x4 blocks\n",
                frames);
    std::printf(
        "(warm-up %d frames; blocks are foreground when a quarter covered by moving objects)\n\n",
        kWarmUp);
    std::printf("%-36s %9s %9s %9s  %s\n", "clip", "precision", "recall", "F1",
                "recovery (frames to 5% / 1% false blocks)");
    struct SClip {
        std::string m_Name;
        SZorSynthScene m_Scene;
    };
    const std::vector<SClip> clips = {
        {"traffic, noise sigma 2", ZorSynthTrafficScene(352, 240, frames, 2.0, 11)},
        {"traffic, noise sigma 4", ZorSynthTrafficScene(352, 240, frames, 4.0, 12)},
        {"traffic, noise sigma 6 (noisy)", ZorSynthTrafficScene(352, 240, frames, 6.0, 13)},
        {"traffic, noise sigma 8 (very noisy)", ZorSynthTrafficScene(352, 240, frames, 8.0, 14)},
        {"step +15% at 180, sigma 4", ZorSynthStepScene(352, 240, frames, 4.0, 15, 180, 1.15)},
        {"step -15% at 180, sigma 4", ZorSynthStepScene(352, 240, frames, 4.0, 16, 180, 0.85)},
        {"step +15% at 180, sigma 6", ZorSynthStepScene(352, 240, frames, 6.0, 17, 180, 1.15)},
    };
    for (const SClip& c : clips) {
        const SClipResult r = RunClip(c.m_Scene, 40);
        char recovery[32] = "-";
        if (c.m_Scene.m_StepFrame >= 0) {
            std::snprintf(recovery, sizeof recovery, "%d / %d", r.m_RoughRecovery, r.m_Recovery);
        }
        std::printf("%-36s %9.3f %9.3f %9.3f  %s\n", c.m_Name.c_str(), r.m_Counts.Precision(),
                    r.m_Counts.Recall(), r.m_Counts.F1(), recovery);
    }
    // Each object of the traffic scene alone, sigma 4: which ones cost recall.
    std::printf("\nEach traffic object alone, noise sigma 4:\n");
    const SZorSynthScene traffic = ZorSynthTrafficScene(352, 240, frames, 4.0, 12);
    const char* names[] = {"car 48x20 +60, 3 px/frame",           "walker 12x28 -45, 1.2 px/frame",
                           "small 8x8 +80, 5 px/frame",           "dim 24x24 -25, 2 px/frame",
                           "stopper 20x32 +50 (still 90 frames)", "wide 32x16 -35, 0.7 px/frame"};
    for (std::size_t i = 0; i < traffic.m_Objects.size(); ++i) {
        SZorSynthScene one = traffic;
        one.m_Objects = {traffic.m_Objects[i]};
        const SClipResult r = RunClip(one, 0);
        std::printf("  %-36s precision %.3f recall %.3f F1 %.3f\n", names[i],
                    r.m_Counts.Precision(), r.m_Counts.Recall(), r.m_Counts.F1());
    }
    StopAndGo(frames);

    std::printf(
        "\nStatic scene, noise sigma 6 and 8, %d frames: frames with false boxes after warm-up\n",
        frames);
    for (double sigma : {6.0, 8.0}) {
        const SClipResult r = RunClip(ZorSynthStaticScene(352, 240, frames, sigma, 21), 0);
        std::printf("  sigma %.0f: %ld frames, %ld boxes\n", sigma, r.m_FalseBoxFrames,
                    r.m_FalseBoxes);
    }
    return 0;
}
