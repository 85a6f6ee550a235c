// Per-packet cost of live motion detection: the level filter (two windowed means and a state
// step) through Receive with a recorder's level series, and one generic detection step over a
// mask of 8 rectangles and 16 boxes. Packets are re-used with an added reference, so the figures
// carry no pool traffic.

#include "analytics/motion/GVMDSettings.h"
#include "analytics/motion/VMDFilter.h"
#include "framework/jok/GenericData.h"
#include "framework/kor/Packet.h"
#include "tests/support/Harness.h"

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

namespace {

// 256 frames of 25 fps with level bursts, cycled with timestamps that keep rising.
void BM_VMDFilterPerPacket(benchmark::State& state) {
    auto* filter = new CVMDFilter;
    CJokGdBoolean* on = CJokGdBoolean::Allocate(1);
    filter->SetProperty("enabled", on);
    on->Release();
    zortest::CConsumingSink sink;
    *filter | sink;
    std::vector<CKorVideoPacket*> packets;
    std::mt19937 random(3);
    for (int i = 0; i < 256; ++i) {
        CKorVideoPacket* p = zortest::MakeVideoPacket(0, CKorVideoPacket::P_FRAME);
        p->SetAttribute(1, (i / 64) % 2 ? 40 + static_cast<int>(random() % 5)
                                        : 10 + static_cast<int>(random() % 3));
        packets.push_back(p);
    }
    std::uint32_t time = 0;
    unsigned i = 0;
    for (auto _ : state) {
        CKorVideoPacket* p = packets[i++ & 255];
        p->SetTimeStamp(time += 40);
        p->AddRef();
        benchmark::DoNotOptimize(filter->Receive(p));
    }
    for (CKorVideoPacket* p : packets) {
        p->Release();
    }
    filter->Release();
}
BENCHMARK(BM_VMDFilterPerPacket);

// The detector alone: monitors and state machine, no packet.
void BM_VMDLevelStep(benchmark::State& state) {
    auto* filter = new CVMDFilter;
    long time = 0;
    unsigned i = 0;
    for (auto _ : state) {
        filter->ProcessVMDLevel(time += 40, ((++i >> 6) & 1) ? 40 : 10);
    }
    filter->Release();
}
BENCHMARK(BM_VMDLevelStep);

// 8 mask rectangles (two of them overlapping) and frames of 16 boxes. Arg 0: the default
// sensitivity (any pixel); 1: boxes that miss the mask; 2: a minimum overlap that only the exact
// sweep decides.
void BM_GVMDStep8Rects16Boxes(benchmark::State& state) {
    CZorGVMDSettings settings;
    CBelString mask = "M1:0,0,40,240;60,0,100,60;60,180,100,240;120,100,200,140;150,60,170,200;"
                      "250,0,352,30;250,210,352,240;300,30,352,210";
    settings.PackedMaskHandler(&mask, 1);
    const int mode = static_cast<int>(state.range(0));
    if (mode == 2) {
        settings.SetSensitivity(0.9); // 8448 px: between the bounds for these frames
    }
    std::mt19937 random(9);
    std::vector<CKorBoundingBoxesMD*> frames;
    for (int f = 0; f < 64; ++f) {
        auto* boxes = new CKorBoundingBoxesMD;
        for (int b = 0; b < 16; ++b) {
            const int w = 20 + static_cast<int>(random() % 60);
            const int h = 20 + static_cast<int>(random() % 60);
            int x = static_cast<int>(random() % (352 - w));
            int y = static_cast<int>(random() % (240 - h));
            if (mode == 1) {
                x = 205 + static_cast<int>(random() % 20); // between the mask's columns
                y = 150 + static_cast<int>(random() % 10);
            }
            boxes->AddBox({static_cast<std::uint16_t>(x), static_cast<std::uint16_t>(y),
                           static_cast<std::uint16_t>(mode == 1 ? x + 20 : x + w),
                           static_cast<std::uint16_t>(mode == 1 ? y + 20 : y + h),
                           static_cast<std::uint32_t>(b)});
        }
        frames.push_back(boxes);
    }
    long time = 0;
    unsigned i = 0;
    for (auto _ : state) {
        settings.ProcessMD(time += 40, frames[i++ & 63], -1.0);
    }
    // The overlap kernel is chosen at load time.
    state.SetLabel(__builtin_cpu_supports("avx2") ? "avx2 kernel" : "baseline kernel");
    for (CKorBoundingBoxesMD* boxes : frames) {
        delete boxes;
    }
}
BENCHMARK(BM_GVMDStep8Rects16Boxes)->Arg(0)->Arg(1)->Arg(2);

} // namespace
