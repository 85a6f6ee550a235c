// A packet through a chain of pass-through unbuffered modules: time per hop and heap allocations
// per packet in steady state.
#include "framework/kor/Packet.h"
#include "framework/kor/PacketSource.h"
#include "framework/kor/UnbufferedModule.h"

#include "tests/support/Harness.h"
#include <atomic>

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <memory>
#include <new>
#include <vector>

namespace {

std::atomic<long> g_Allocations{0};

class CPassThrough : public CKorUnbufferedModule {
public:
    CPassThrough() : CKorUnbufferedModule("PassThrough") {}

protected:
    void ProcessPacket() override {}
};

void BM_ChainOfPassThroughModules(benchmark::State& state) {
    const int hops = static_cast<int>(state.range(0));
    std::vector<std::unique_ptr<CPassThrough>> chain;
    CKorModule head("Head");
    CKorModule* last = &head;
    for (int i = 0; i < hops; ++i) {
        chain.push_back(std::make_unique<CPassThrough>());
        *last | *chain.back();
        last = chain.back().get();
    }
    zortest::CConsumingSink consumer;
    *last | consumer;
    // Warm the pool so the loop measures the steady state.
    g_DataPacketSource.NewPacket(256)->Release();
    CKorPacket* packet = g_DataPacketSource.NewPacket(256);
    const long allocationsBefore = g_Allocations.load();
    for (auto _ : state) {
        packet->AddRef(); // the benchmark keeps one packet alive; each pass hands one reference
        head.DownStreamModule()->Receive(packet);
    }
    const long allocations = g_Allocations.load() - allocationsBefore;
    packet->Release();
    if (hops > 0) {
        state.counters["ns_per_hop"] =
            benchmark::Counter(static_cast<double>(state.iterations()) * hops,
                               benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    }
    state.counters["allocs_per_packet"] =
        static_cast<double>(allocations) / static_cast<double>(state.iterations());
}
// Arg(0) is the baseline (reference count and consumer only): a hop costs (t5 - t0) / 5.
BENCHMARK(BM_ChainOfPassThroughModules)->Arg(0)->Arg(1)->Arg(5);

// The same, with each packet taken from and returned to the pool.
void BM_PooledPacketThroughChain(benchmark::State& state) {
    std::vector<std::unique_ptr<CPassThrough>> chain;
    CKorModule head("Head");
    CKorModule* last = &head;
    for (int i = 0; i < 5; ++i) {
        chain.push_back(std::make_unique<CPassThrough>());
        *last | *chain.back();
        last = chain.back().get();
    }
    zortest::CConsumingSink consumer;
    *last | consumer;
    g_DataPacketSource.NewPacket(256)->Release();
    const long allocationsBefore = g_Allocations.load();
    for (auto _ : state) {
        head.DownStreamModule()->Receive(g_DataPacketSource.NewPacket(256));
    }
    state.counters["allocs_per_packet"] =
        static_cast<double>(g_Allocations.load() - allocationsBefore) /
        static_cast<double>(state.iterations());
}
BENCHMARK(BM_PooledPacketThroughChain);

} // namespace

// Counts every heap allocation of the process.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void* operator new(std::size_t size) {
    g_Allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size ? size : 1)) {
        return p;
    }
    throw std::bad_alloc();
}

void operator delete(void* p) noexcept {
    std::free(p);
}

void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
#pragma GCC diagnostic pop
