// Packets through chains of pass-through unbuffered modules: the time per packet, the time of
// one hop alone, and heap allocations per packet in steady state.
#include "framework/kor/Packet.h"
#include "framework/kor/PacketSource.h"
#include "framework/kor/UnbufferedModule.h"

#include "bench/support/AllocationCounter.h"
#include "tests/support/Harness.h"
#include <algorithm>
#include <ctime>

#include <benchmark/benchmark.h>
#include <memory>
#include <vector>

namespace {

class CPassThrough : public CKorUnbufferedModule {
public:
    CPassThrough() : CKorUnbufferedModule("PassThrough") {}

protected:
    void ProcessPacket() override {}
};

// A source-side head module, n pass-through modules and a consuming end.
struct SChain {
    explicit SChain(int hops) {
        CKorModule* last = &m_Head;
        for (int i = 0; i < hops; ++i) {
            m_Modules.push_back(std::make_unique<CPassThrough>());
            *last | *m_Modules.back();
            last = m_Modules.back().get();
        }
        *last | m_Consumer;
    }
    // Hands one reference of packet in; the consumer releases it at the end.
    void Send(CKorPacket* packet) {
        packet->AddRef();
        m_Head.DownStreamModule()->Receive(packet);
    }
    CKorModule m_Head{"Head"};
    std::vector<std::unique_ptr<CPassThrough>> m_Modules;
    zortest::CConsumingSink m_Consumer;
};

// Per packet through a chain of n pass-through modules, everything included: the reference
// handed in, each hop, the consumer's release. modules:0 is that traffic alone.
void BM_PacketThroughPassThroughChain(benchmark::State& state) {
    SChain chain(static_cast<int>(state.range(0)));
    // Warm the pool so the loop measures the steady state.
    g_DataPacketSource.NewPacket(256)->Release();
    CKorPacket* packet = g_DataPacketSource.NewPacket(256);
    const long allocationsBefore = zorbench::AllocationCount();
    for (auto _ : state) {
        chain.Send(packet);
    }
    const long allocations = zorbench::AllocationCount() - allocationsBefore;
    packet->Release();
    state.counters["allocs_per_packet"] =
        static_cast<double>(allocations) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_PacketThroughPassThroughChain)->ArgName("modules")->Arg(0)->Arg(1)->Arg(5);

// The thread's own CPU time: on a shared machine the wall clock also counts other programs.
double ThreadSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// One hop alone: each iteration times 256 packets through 5 modules and through none; the
// difference is the time of 1,280 hops without the packets' own reference traffic. Reported as
// ns_per_hop.
void BM_PassThroughHop(benchmark::State& state) {
    SChain five(5);
    SChain none(0);
    CKorPacket* packet = g_DataPacketSource.NewPacket(256);
    constexpr int kPackets = 256;
    for (auto _ : state) {
        const double start = ThreadSeconds();
        for (int i = 0; i < kPackets; ++i) {
            none.Send(packet);
        }
        const double middle = ThreadSeconds();
        for (int i = 0; i < kPackets; ++i) {
            five.Send(packet);
        }
        const double end = ThreadSeconds();
        state.SetIterationTime(std::max((end - middle) - (middle - start), 0.0));
    }
    packet->Release();
    state.counters["ns_per_hop"] =
        benchmark::Counter(5.0 * kPackets, benchmark::Counter::kIsIterationInvariantRate |
                                               benchmark::Counter::kInvert);
}
BENCHMARK(BM_PassThroughHop)->UseManualTime();

// The same five modules, with each packet taken from and returned to the pool.
void BM_PooledPacketThroughFiveModules(benchmark::State& state) {
    SChain chain(5);
    g_DataPacketSource.NewPacket(256)->Release();
    const long allocationsBefore = zorbench::AllocationCount();
    for (auto _ : state) {
        chain.m_Head.DownStreamModule()->Receive(g_DataPacketSource.NewPacket(256));
    }
    state.counters["allocs_per_packet"] =
        static_cast<double>(zorbench::AllocationCount() - allocationsBefore) /
        static_cast<double>(state.iterations());
}
BENCHMARK(BM_PooledPacketThroughFiveModules);

} // namespace
