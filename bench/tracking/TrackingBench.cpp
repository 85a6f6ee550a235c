// Speed of the object tracker's image chain (the eleven steps, the output image and the boxes)
// on grey CIF (352x240) and 1080p frames of a synthetic scene, per instruction-set level.
#include "analytics/image/BeluiBitmapBuffer.h"
#include "analytics/image/BeluiRows.h"
#include "analytics/tracking/SyntheticClip.h"
#include "analytics/tracking/TrackingChain.h"

#include <benchmark/benchmark.h>

#include <vector>

namespace {

constexpr int kClipFrames = 16;

// A short loop of rendered frames, so the chain sees motion and noise, not one frozen picture.
struct SFrames {
    std::vector<CBeluiBitmapBuffer> m_Frames;
    explicit SFrames(int width, int height) {
        const CZorSyntheticClip clip(ZorSynthTrafficScene(width, height, 200, 4.0, 3));
        for (int n = 0; n < kClipFrames; ++n) {
            CBeluiBitmapBuffer frame;
            frame.Allocate(width, height);
            clip.Render(60 + n, frame.Bitmap());
            m_Frames.push_back(std::move(frame));
        }
    }
};

void RunChain(benchmark::State& state, int width, int height, EBeluiLevel level) {
    if (!BeluiUseLevel(level)) {
        state.SkipWithError("level not available on this CPU");
        return;
    }
    static SFrames* cif = new SFrames(352, 240);
    static SFrames* hd = new SFrames(1920, 1080);
    const SFrames& frames = width == 352 ? *cif : *hd;
    CZorTrackingChain chain;
    chain.Rebuild(frames.m_Frames[0].Bitmap());
    CBeluiBitmapBuffer out;
    out.Allocate(width, height);
    std::vector<SBeluiRect> boxes;
    long total = 0;
    int n = 0;
    for (auto _ : state) {
        const SBeluiBitmap& frame = frames.m_Frames[n].Bitmap();
        n = (n + 1) % kClipFrames;
        chain.Track(frame);
        chain.RenderOutput(frame, out.Bitmap());
        chain.GetBoxes(boxes);
        total += static_cast<long>(boxes.size());
        benchmark::DoNotOptimize(out.Bitmap().m_pData);
    }
    state.counters["fps"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["boxes"] = static_cast<double>(total) / static_cast<double>(state.iterations());
    state.SetLabel(BeluiRowKernels().m_Name);
    BeluiUseLevel(EBeluiLevel::Avx2) || BeluiUseLevel(EBeluiLevel::Sse2);
}

void BM_ChainCif(benchmark::State& state) {
    RunChain(state, 352, 240, static_cast<EBeluiLevel>(state.range(0)));
}
void BM_Chain1080p(benchmark::State& state) {
    RunChain(state, 1920, 1080, static_cast<EBeluiLevel>(state.range(0)));
}

BENCHMARK(BM_ChainCif)->Arg(0)->Arg(1)->Arg(2);
BENCHMARK(BM_Chain1080p)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMicrosecond);

} // namespace
