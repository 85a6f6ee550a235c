// Level analysis, detection and mixing throughput in million samples per second per core, for
// each vector path the CPU runs (the label names it): the sample loops alone, and the analyzer
// and mixer modules taking 720-sample packets (the framework's 1440-byte audio packets) with a
// detector attached, raising on or off.
#include "audio/AudioAnalyzer2.h"
#include "audio/AudioSampleMixer.h"
#include "audio/Detector.h"
#include "audio/sound/SampleKernels.h"
#include "bench/support/AllocationCounter.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/GenericData.h"
#include "framework/kor/Packet.h"
#include "tests/support/Harness.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kPacketSamples = 720;

std::vector<short> Speechlike(std::size_t n) {
    std::vector<short> pcm(n);
    unsigned noise = 12345;
    for (std::size_t i = 0; i < n; ++i) {
        noise = noise * 1103515245u + 12345u;
        const double t = static_cast<double>(i) / 8000.0;
        pcm[i] = static_cast<short>(6000 * std::sin(2 * 3.14159265 * 220 * t) +
                                    2500 * std::sin(2 * 3.14159265 * 1375 * t) +
                                    static_cast<double>(static_cast<int>(noise >> 20) - 2048));
    }
    return pcm;
}

void ReportSamples(benchmark::State& state, EZorSimdPath path) {
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kPacketSamples));
    state.SetLabel(ZorSimdPathName(path));
}

// --- The sample loops, per path -----------------------------------------------------------------

void BM_Measure(benchmark::State& state, EZorSimdPath path) {
    const std::vector<short> pcm = Speechlike(kPacketSamples);
    const auto* bytes = reinterpret_cast<const unsigned char*>(pcm.data());
    const SZorSampleKernels& kernels = ZorSampleKernelsFor(path);
    for (auto _ : state) {
        benchmark::DoNotOptimize(kernels.m_Measure(bytes, kPacketSamples));
    }
    ReportSamples(state, path);
}

void BM_Raise(benchmark::State& state, EZorSimdPath path) {
    std::vector<short> pcm = Speechlike(kPacketSamples);
    auto* bytes = reinterpret_cast<unsigned char*>(pcm.data());
    const SZorSampleKernels& kernels = ZorSampleKernelsFor(path);
    for (auto _ : state) {
        kernels.m_Scale(bytes, kPacketSamples, 1.0000001);
        benchmark::ClobberMemory();
    }
    ReportSamples(state, path);
}

void BM_Mix(benchmark::State& state, EZorSimdPath path) {
    std::vector<short> pcm = Speechlike(kPacketSamples);
    const std::vector<short> clip = Speechlike(kPacketSamples + 7);
    auto* bytes = reinterpret_cast<unsigned char*>(pcm.data());
    const auto* clipBytes = reinterpret_cast<const unsigned char*>(clip.data() + 7);
    const SZorSampleKernels& kernels = ZorSampleKernelsFor(path);
    for (auto _ : state) {
        kernels.m_Mix(bytes, clipBytes, kPacketSamples, 0.5);
        benchmark::ClobberMemory();
    }
    ReportSamples(state, path);
}

void RegisterLoops() {
    for (EZorSimdPath path :
         {EZorSimdPath::Scalar, EZorSimdPath::Sse2, EZorSimdPath::Avx2, EZorSimdPath::Avx512}) {
        if (!ZorSimdPathSupported(path)) {
            continue;
        }
        const std::string name = ZorSimdPathName(path);
        benchmark::RegisterBenchmark(("BM_Measure/" + name).c_str(), BM_Measure, path);
        benchmark::RegisterBenchmark(("BM_Raise/" + name).c_str(), BM_Raise, path);
        benchmark::RegisterBenchmark(("BM_Mix/" + name).c_str(), BM_Mix, path);
    }
}

// --- The modules, on the widest path ------------------------------------------------------------

// One packet is kept alive and handed over again and again: each pass gives one reference to the
// chain, whose consuming end releases it.
struct SPacketLoop {
    CKorAudioPacket* m_pPacket = zortest::MakePcmPacket(0, Speechlike(kPacketSamples));
    zortest::CConsumingSink m_Sink;
    ~SPacketLoop() { m_pPacket->Release(); }
};

void BM_AnalyzerWithDetector(benchmark::State& state) {
    auto* analyzer = new CAudioAnalyzer2Com;
    if (state.range(0)) {
        CJokGenericData* target = CJokGdDouble::Allocate(9000.0);
        analyzer->SetProperty("maximizeTo", target);
        target->Release();
    }
    CJokCommandContext context;
    context.AddParam("detectionWindow", 0.3);
    context.AddParam("baselineWindow", 20.0);
    analyzer->GetDetector(&context); // the context holds the detector
    SPacketLoop loop;
    CKorModule* module = analyzer->Module();
    *module | loop.m_Sink;
    double t = 1.0;
    const long allocationsBefore = zorbench::AllocationCount();
    for (auto _ : state) {
        loop.m_pPacket->SetRealTimeStamp(t += 0.09);
        loop.m_pPacket->AddRef();
        module->Receive(loop.m_pPacket);
    }
    state.counters["allocs_per_packet"] =
        static_cast<double>(zorbench::AllocationCount() - allocationsBefore) /
        static_cast<double>(state.iterations());
    ReportSamples(state, ZorSampleKernels().m_Path);
    module->LinkModule(CKorNullModule::GetModule());
    analyzer->Release();
}
BENCHMARK(BM_AnalyzerWithDetector)->ArgName("raising")->Arg(0)->Arg(1);

void BM_MixerWithClip(benchmark::State& state) {
    CZorAudioSampleMixer mixer;
    const std::vector<short> samples = Speechlike(1000 * kPacketSamples);
    const auto clip = std::make_shared<const std::string>(
        reinterpret_cast<const char*>(samples.data()), 2 * samples.size());
    SPacketLoop loop;
    mixer | loop.m_Sink;
    const long allocationsBefore = zorbench::AllocationCount();
    for (auto _ : state) {
        if (!mixer.IsPlaying()) {
            mixer.Play("clip", clip, 0.5, nullptr);
        }
        loop.m_pPacket->AddRef();
        mixer.Receive(loop.m_pPacket);
    }
    state.counters["allocs_per_packet"] =
        static_cast<double>(zorbench::AllocationCount() - allocationsBefore) /
        static_cast<double>(state.iterations());
    ReportSamples(state, ZorSampleKernels().m_Path);
    mixer.LinkModule(CKorNullModule::GetModule());
}
BENCHMARK(BM_MixerWithClip);

const int kRegistered = (RegisterLoops(), 0);

} // namespace
