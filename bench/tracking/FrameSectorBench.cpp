// The frame sector's cost: pixels fed per second (kind 1, one byte through the value table;
// kind 3, three bytes), through the per-pixel calls and the row calls, and classifications per
// second; and a 4 x 4 sector grid over CIF pictures.
#include "analytics/image/BeluiBitmapBuffer.h"
#include "analytics/tracking/FrameSector.h"
#include "analytics/tracking/SectorGrid.h"
#include "analytics/tracking/SyntheticClip.h"

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

namespace {

constexpr int kPixels = 352 * 240;

struct SPictures {
    std::vector<unsigned char> m_A;
    std::vector<unsigned char> m_B;
    int m_Table[256];
    SPictures() : m_A(3 * kPixels), m_B(3 * kPixels) {
        std::mt19937 random(1);
        for (std::size_t i = 0; i < m_A.size(); ++i) {
            m_A[i] = static_cast<unsigned char>(random());
            m_B[i] = static_cast<unsigned char>(m_A[i] + random() % 40);
        }
        for (int i = 0; i < 256; ++i) {
            m_Table[i] = i;
        }
    }
};

const SPictures& Pictures() {
    static const SPictures* pictures = new SPictures;
    return *pictures;
}

void Feed(benchmark::State& state, int kind, bool rows) {
    const SPictures& p = Pictures();
    CZorFrameSector sector(10, 0, 5, 20, 16, const_cast<int*>(p.m_Table));
    const int stride = kind == 3 ? 3 : 1;
    for (auto _ : state) {
        sector.ResetSDiff();
        sector.ResetLDiff();
        if (rows) {
            sector.CalcDiffIncrPixelCountRow(p.m_A.data(), p.m_B.data(), kPixels, stride, kind, 1);
            sector.CalcDiffAccumulatePixelDiffRow(p.m_A.data(), p.m_B.data(), kPixels, stride, kind,
                                                  0);
        } else {
            const unsigned char* a = p.m_A.data();
            const unsigned char* b = p.m_B.data();
            for (int i = 0; i < kPixels; ++i, a += stride, b += stride) {
                sector.CalcDiffIncrPixelCount(a, b, kind, 1);
                sector.CalcDiffAccumulatePixelDiff(a, b, kind, 0);
            }
        }
        benchmark::DoNotOptimize(sector.GetSDiff());
        benchmark::DoNotOptimize(sector.GetLDiff());
    }
    // Each pixel is fed twice: counted into one accumulator and summed into the other.
    state.counters["pixels/s"] = benchmark::Counter(
        2.0 * kPixels * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_FeedKind1(benchmark::State& state) {
    Feed(state, 1, false);
}
void BM_FeedKind3(benchmark::State& state) {
    Feed(state, 3, false);
}
void BM_FeedKind1Rows(benchmark::State& state) {
    Feed(state, 1, true);
}
void BM_FeedKind3Rows(benchmark::State& state) {
    Feed(state, 3, true);
}

void BM_Classify(benchmark::State& state) {
    int table[256] = {};
    CZorFrameSector sector(10, 0, 5, 20, 16, table);
    std::mt19937 random(2);
    std::vector<float> values(1024);
    for (float& v : values) {
        v = static_cast<float>(random() % 4000) / 100.0f;
    }
    std::size_t n = 0;
    for (auto _ : state) {
        sector.ResetSDiff();
        sector.ResetLDiff();
        sector.CalcDiffIncrPixelCount(100, 1, 1);
        // Short and long shares from the table of values, through the normalisation.
        unsigned char a = static_cast<unsigned char>(values[n % 1024]);
        unsigned char b = 0;
        sector.CalcDiffAccumulatePixelDiff(&a, &b, 3, 1);
        benchmark::DoNotOptimize(sector.CalculateSFTagWithIndex(1));
        ++n;
    }
    state.counters["classifications/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_GridCif(benchmark::State& state) {
    const CZorSyntheticClip clip(ZorSynthTrafficScene(352, 240, 100, 4.0, 5));
    std::vector<CBeluiBitmapBuffer> frames(8);
    for (int i = 0; i < 8; ++i) {
        frames[static_cast<std::size_t>(i)].Allocate(352, 240);
        clip.Render(40 + i, frames[static_cast<std::size_t>(i)].Bitmap());
    }
    CZorSectorGrid grid;
    int n = 0;
    for (auto _ : state) {
        grid.Process(frames[static_cast<std::size_t>(n++ % 8)].Bitmap());
        benchmark::DoNotOptimize(grid.Level(0));
    }
    state.counters["fps"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

BENCHMARK(BM_FeedKind1)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FeedKind3)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FeedKind1Rows)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_FeedKind3Rows)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Classify);
BENCHMARK(BM_GridCif)->Unit(benchmark::kMicrosecond);

} // namespace
