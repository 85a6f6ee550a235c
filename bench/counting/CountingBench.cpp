// Per-packet cost of the people-counting and exit-blocking filters in both modes, and per-frame
// cost of the box tracker with the line counter (and with the left-object detector) at 5 and 50
// boxes a frame. Packets are re-used with an added reference, so the figures hold no pool
// traffic; the filters' modules end at the null module, which takes and releases.
#include "analytics/counting/ExitBlockingFilter.h"
#include "analytics/counting/PeopleCountFilter.h"
#include "analytics/counting/core/BoxTracker.h"
#include "analytics/counting/core/LeftObjectDetector.h"
#include "analytics/counting/core/LineCounter.h"

#include "framework/kor/BoundingBoxesMD.h"
#include "framework/kor/Packet.h"
#include "tests/support/Harness.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

using zor::counting::SBox;

// A packet as the analysers leave it: the tracker's boxes, then the counting object with a
// crossing and a few targets (or the left-object object with a few targets).
CKorPacket* AnalysedPacket(bool counting) {
    CKorPacket* packet = zortest::MakeVideoPacket(0, 0);
    auto* boxes = new CKorBoundingBoxesMD;
    for (int i = 0; i < 5; ++i) {
        boxes->AddBox(
            SKorBoundingBox{std::uint16_t(20 * i), 10, std::uint16_t(20 * i + 16), 50, 1});
    }
    packet->SetMetadataHandler(boxes, true);
    if (counting) {
        auto* md = new CKorPeopleCountingMD;
        md->SetLine(0, 120, 352, 120);
        md->AddEvent(3, 1);
        md->SetTotals(40, 35, 5);
        for (unsigned long id = 1; id <= 5; ++id) {
            md->AddTarget(SKorCountingTarget{10, 10, 26, 50, id, 1, 1});
        }
        boxes->Append(md);
    } else {
        auto* md = new CKorLeftObjectDetectionMD;
        for (unsigned long id = 1; id <= 3; ++id) {
            md->AddTarget(10, 10, 26, 50, id, 1, static_cast<std::uint16_t>(40 * id));
        }
        boxes->Append(md);
    }
    return packet;
}

template <class TModule> void RunFilter(benchmark::State& state, bool write, bool counting) {
    TModule filter;
    filter.DisableProcessing(0);
    filter.SetMode(write ? CZorMetadataFilter::MODE_WRITE : CZorMetadataFilter::MODE_READ);
    unsigned long notified = 0;
    filter.SetCountHook([&notified](const unsigned long(&)[6]) { ++notified; });
    CKorPacket* packet = AnalysedPacket(counting);
    for (auto _ : state) {
        packet->AddRef();
        benchmark::DoNotOptimize(filter.Receive(packet));
    }
    packet->Release();
    state.counters["notified"] = static_cast<double>(notified);
}

void BM_PeopleCountRead(benchmark::State& state) {
    RunFilter<CZorPeopleCountFilter>(state, false, true);
}
void BM_PeopleCountWrite(benchmark::State& state) {
    RunFilter<CZorPeopleCountFilter>(state, true, true);
}
void BM_ExitBlockingRead(benchmark::State& state) {
    RunFilter<CZorExitBlockingFilter>(state, false, false);
}
void BM_ExitBlockingWrite(benchmark::State& state) {
    RunFilter<CZorExitBlockingFilter>(state, true, false);
}
BENCHMARK(BM_PeopleCountRead);
BENCHMARK(BM_PeopleCountWrite);
BENCHMARK(BM_ExitBlockingRead);
BENCHMARK(BM_ExitBlockingWrite);

// Frames of n walkers on a 704x576 picture, each on its own lane, walking down and up across
// the middle, entering again when they leave; one box each, cut by the picture's edges, with a
// few pixels of jitter.
std::vector<std::vector<SBox>> Walkers(int n, int frames) {
    std::vector<std::vector<SBox>> out(static_cast<size_t>(frames));
    for (int f = 0; f < frames; ++f) {
        for (int w = 0; w < n; ++w) {
            const double lane = 8 + (688.0 / n) * w;
            const double speed = 2.0 + (w % 5) * 0.5; // px per frame
            const double travel = std::fmod(f * speed + w * 37.0, 640.0);
            const double y = (w % 2 ? 600 - travel : travel - 40);
            const int jitter = (f * 7 + w * 3) % 5 - 2;
            const SBox box{static_cast<int>(lane) + jitter, std::max(0, static_cast<int>(y)),
                           static_cast<int>(lane) + 10,
                           std::min(576, static_cast<int>(y) + 40 + jitter)};
            if (!box.IsEmpty()) {
                out[static_cast<size_t>(f)].push_back(box);
            }
        }
    }
    return out;
}

void BM_TrackAndCount(benchmark::State& state) {
    const int boxes = static_cast<int>(state.range(0));
    const auto frames = Walkers(boxes, 1000);
    zor::counting::CBoxTracker tracker;
    tracker.SetFrameSize(704, 576);
    zor::counting::CLineCounter counter;
    counter.SetLine(0, 288, 704, 288);
    std::vector<zor::counting::SCrossing> crossings;
    long time = 0;
    size_t f = 0;
    for (auto _ : state) {
        const auto& frame = frames[f++ % frames.size()];
        tracker.Update(time, frame.data(), frame.size());
        counter.Update(time, tracker.Tracks(), tracker.Ended(), crossings);
        crossings.clear();
        time += 40;
    }
    state.counters["entries"] = static_cast<double>(counter.Entries());
    state.counters["tracks"] = static_cast<double>(tracker.Tracks().size());
}
BENCHMARK(BM_TrackAndCount)->Arg(5)->Arg(50)->Unit(benchmark::kMicrosecond);

void BM_TrackAndFindLeftObjects(benchmark::State& state) {
    const int boxes = static_cast<int>(state.range(0));
    const auto frames = Walkers(boxes, 1000);
    zor::counting::CBoxTracker tracker;
    tracker.SetFrameSize(704, 576);
    zor::counting::CLeftObjectDetector detector;
    long time = 0;
    size_t f = 0;
    for (auto _ : state) {
        const auto& frame = frames[f++ % frames.size()];
        tracker.Update(time, frame.data(), frame.size());
        benchmark::DoNotOptimize(detector.Update(time, tracker.Tracks(), tracker.Ended()));
        time += 40;
    }
}
BENCHMARK(BM_TrackAndFindLeftObjects)->Arg(5)->Arg(50)->Unit(benchmark::kMicrosecond);

} // namespace
