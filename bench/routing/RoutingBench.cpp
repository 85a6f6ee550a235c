// Fan-out and merge cost per packet: a splitter with 1 and 3 ports and a joiner with 2 ports,
// every branch ending in a consuming module. The packet is the same object every pass, so the
// figures are the routing and its reference-count traffic (one reference in, one added per
// extra port, one released per consumer), not the pool; ReferenceTrafficOnly is that traffic
// alone.
#include "framework/kor/Packet.h"
#include "framework/kor/PacketSource.h"
#include "routing/Joiner.h"
#include "routing/Splitter.h"

#include "tests/support/Harness.h"

#include <benchmark/benchmark.h>
#include <memory>
#include <vector>

namespace {

void BM_SplitterPacketToPortConsumers(benchmark::State& state) {
    const int portCount = static_cast<int>(state.range(0));
    CZorSplitter splitter;
    std::vector<CZorSplitterPort*> ports;
    std::vector<std::unique_ptr<zortest::CConsumingSink>> consumers;
    for (int i = 0; i < portCount; ++i) {
        ports.push_back(splitter.CreatePort());
        consumers.push_back(std::make_unique<zortest::CConsumingSink>());
        *ports.back() | *consumers.back();
    }
    CKorPacket* packet = g_DataPacketSource.NewPacket(256);
    for (auto _ : state) {
        packet->AddRef(); // the benchmark keeps the packet; each pass hands one reference in
        benchmark::DoNotOptimize(splitter.Receive(packet));
    }
    packet->Release();
    for (CZorSplitterPort* port : ports) {
        delete port;
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SplitterPacketToPortConsumers)->ArgName("ports")->Arg(1)->Arg(3);

// The floor under the figures above: the reference count traffic alone of one packet handed to
// n consumers (one reference in, n - 1 added, n released).
void BM_ReferenceTrafficOnly(benchmark::State& state) {
    const int consumers = static_cast<int>(state.range(0));
    CKorPacket* packet = g_DataPacketSource.NewPacket(256);
    for (auto _ : state) {
        packet->AddRef();
        for (int i = 1; i < consumers; ++i) {
            packet->AddRef();
        }
        for (int i = 0; i < consumers; ++i) {
            packet->Release();
        }
    }
    packet->Release();
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ReferenceTrafficOnly)->ArgName("consumers")->Arg(1)->Arg(3);

void BM_JoinerPacketFromTwoPortsToConsumer(benchmark::State& state) {
    auto* joiner = new CJoinerComp("");
    CJoinerPortComp* ports[2] = {new CJoinerPortComp("", joiner), new CJoinerPortComp("", joiner)};
    zortest::CConsumingSink consumer;
    *joiner | consumer;
    CKorPacket* packet = g_DataPacketSource.NewPacket(256);
    int turn = 0;
    for (auto _ : state) {
        packet->AddRef();
        benchmark::DoNotOptimize(ports[turn]->Receive(packet)); // the two ports take turns
        turn ^= 1;
    }
    packet->Release();
    ports[0]->Release();
    ports[1]->Release();
    joiner->Release();
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_JoinerPacketFromTwoPortsToConsumer);

} // namespace
