// Decode and object tracking of a camera-like CIF H.264 stream (25 frames/s, no B-frames, one
// decoder thread), against decoding alone, alternating every iteration so a busy machine slows
// both alike. Times are the thread's processor time, so other work on a shared machine does not
// count. "streams" is how many such 25 frames/s streams one core keeps up with.
#include "analytics/tracking/ObjectTracking.h"
#include "framework/kor/Packet.h"
#include "tests/video/ClipReader.h"
#include "video/VideoDecompressor.h"

#include <benchmark/benchmark.h>

#include <ctime>

namespace {

double ThreadSeconds() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

long Decode(const zortest::CClipPackets& clip) {
    CZorVideoDecompressor decoder(CZorVideoDecompressor::OUTPUT_PLANAR);
    decoder.SetGreyOutput(true);
    long frames = 0;
    for (int i = 0; i < clip.Count(); ++i) {
        bool produced = false;
        CKorVideoPacket* frame = decoder.Decompress(clip.At(i), &produced);
        if (frame) {
            frames += produced;
            frame->Release();
        }
    }
    return frames;
}

long Track(const zortest::CClipPackets& clip, long* boxes) {
    CZorObjectTrackingProcessor tracker;
    long frames = 0;
    for (int i = 0; i < clip.Count(); ++i) {
        bool produced = false;
        CKorVideoPacket* out = tracker.Process(clip.At(i), &produced);
        if (out) {
            frames += produced;
            *boxes += tracker.LastBoxCount();
            out->Release();
        }
    }
    return frames;
}

void BM_DecodeAndTrackCif(benchmark::State& state) {
    const zortest::CClipPackets clip(zortest::ClipPath("bench-cif.ts"));
    if (!clip.Ok()) {
        state.SkipWithError(clip.Error().c_str());
        return;
    }
    double trackSeconds = 0;
    double decodeSeconds = 0;
    long tracked = 0;
    long decoded = 0;
    long boxes = 0;
    for (auto _ : state) {
        const double t0 = ThreadSeconds();
        tracked += Track(clip, &boxes);
        const double t1 = ThreadSeconds();
        decoded += Decode(clip);
        const double t2 = ThreadSeconds();
        trackSeconds += t1 - t0;
        decodeSeconds += t2 - t1;
    }
    const double trackFps = static_cast<double>(tracked) / trackSeconds;
    state.counters["decode+track fps"] = trackFps;
    state.counters["decode fps"] = static_cast<double>(decoded) / decodeSeconds;
    state.counters["streams"] = trackFps / 25.0;
    state.counters["boxes/frame"] = static_cast<double>(boxes) / static_cast<double>(tracked);
}

BENCHMARK(BM_DecodeAndTrackCif)->Unit(benchmark::kMillisecond)->MinTime(2.0);

} // namespace
