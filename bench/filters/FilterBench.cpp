// Per-packet cost of the whole advanced packet filter: Receive, binding the packet's fields,
// evaluating the script, and passing the packet on (or releasing it). The packets cycle through a
// recorder's mix, so the fields change on every call; each is re-used with an added reference, so
// the figure has no pool traffic in it.

#include "filters/AdvancedPacketFilter.h"

#include "framework/kor/Packet.h"
#include "tests/support/Harness.h"

#include <benchmark/benchmark.h>

#include <vector>

namespace {

// A GOP of one key frame and P/B frames, with audio packets in between.
std::vector<CKorPacket*> MakeMix() {
    const int frames[16] = {0, -1, 1, 3, -1, 1, 3, -1, 1, -1, 3, 1, -1, 3, 1, -1};
    std::vector<CKorPacket*> packets;
    for (int i = 0; i < 16; ++i) {
        CKorPacket* p = frames[i] < 0 ? static_cast<CKorPacket*>(zortest::MakePcmPacket(i, {0}))
                                      : zortest::MakeVideoPacket(i, frames[i], i & 3);
        packets.push_back(p);
    }
    return packets;
}

void RunFilter(benchmark::State& state, const char* script) {
    CZorAdvancedPacketFilter filter;
    zortest::CConsumingSink consumer; // releases what the filter passes on
    filter | consumer;
    if (!filter.SetFilter(script)) {
        state.SkipWithError("script does not compile");
        return;
    }
    std::vector<CKorPacket*> packets = MakeMix();
    unsigned i = 0;
    for (auto _ : state) {
        CKorPacket* p = packets[i++ & 15];
        p->AddRef();
        benchmark::DoNotOptimize(filter.Receive(p));
    }
    for (CKorPacket* p : packets)
        p->Release();
}

// (A) keep only key frames of video.
void BM_FilterPacketKeyFrameTest(benchmark::State& state) {
    RunFilter(state, "if (TYPE == VIDEO && FRAMETYPE != IFRAME) { DISCARD; }");
}
BENCHMARK(BM_FilterPacketKeyFrameTest);

// (B) a counter, fmod, a comparison and a stream mask, stamping the stream of the hits.
void BM_FilterPacketCounterAndMask(benchmark::State& state) {
    RunFilter(state, "n = n + 1; if (fmod(n, 8) < 4 && STREAM & 2) { hits = hits + 1; }");
}
BENCHMARK(BM_FilterPacketCounterAndMask);

// No script: every packet goes to the (absent) callback and on.
void BM_FilterPacketNoScript(benchmark::State& state) {
    RunFilter(state, "");
}
BENCHMARK(BM_FilterPacketNoScript);

} // namespace
