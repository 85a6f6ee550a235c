// Sample codec throughput in packet-sized calls (700 samples, the decoder component's chunk;
// 696 where 700 is not a whole number of G.726 groups), reported as items (samples) per second.
#include "audio/codecs/AudioDecoderImpl.h"
#include "audio/codecs/BlockEncoder.h"
#include "audio/codecs/ImaAdpcm.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

namespace {

std::vector<short> Speechlike(std::size_t n) {
    std::vector<short> pcm(n);
    unsigned noise = 12345;
    for (std::size_t i = 0; i < n; ++i) {
        noise = noise * 1103515245u + 12345u;
        const double t = static_cast<double>(i) / 8000.0;
        const double v = 6000 * std::sin(2 * 3.14159265 * 220 * t) +
                         2500 * std::sin(2 * 3.14159265 * 1375 * t) +
                         static_cast<double>(static_cast<int>(noise >> 20) - 2048);
        pcm[i] = static_cast<short>(v);
    }
    return pcm;
}

std::size_t PacketSamples(int bits) {
    return (bits == 3 || bits == 5) ? 696 : 700;
}

// Through the base class, as the decoder component calls them.
std::unique_ptr<CAudioDecoderImpl> MakeDecoder(int bits, zor::g711::ELaw law) {
    switch (bits) {
    case 2:
        return std::make_unique<CADPCM16Decoder>();
    case 3:
        return std::make_unique<CADPCM24Decoder>();
    case 4:
        return std::make_unique<CADPCM32Decoder>();
    case 5:
        return std::make_unique<CADPCM40Decoder>();
    default:
        if (law == zor::g711::ELaw::MuLaw) {
            return std::make_unique<CMuLawDecoder>();
        }
        return std::make_unique<CALawDecoder>();
    }
}

void G711Encode(benchmark::State& state, zor::g711::ELaw law) {
    const std::vector<short> pcm = Speechlike(700);
    std::vector<unsigned char> out(700);
    CG711BlockEncoder encoder(law);
    for (auto _ : state) {
        encoder.EncodeBlock(pcm.data(), pcm.size(), out.data());
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(pcm.size()));
}

// The yardstick for G.711 encoding: a plain loop over a 65,536-entry table indexed by the
// sample's 16 bits, built from the same formula. Memory (the table's cache lines) is its limit,
// so the encoder should run at least this fast.
void G711EncodeFullTableLoop(benchmark::State& state) {
    static const std::vector<unsigned char> table = [] {
        std::vector<unsigned char> t(65536);
        for (int i = 0; i < 65536; ++i)
            t[static_cast<std::size_t>(i)] =
                zor::g711::MuLawEncodeFormula(static_cast<short>(static_cast<std::uint16_t>(i)));
        return t;
    }();
    const std::vector<short> pcm = Speechlike(700);
    std::vector<unsigned char> out(700);
    for (auto _ : state) {
        const short* in = pcm.data();
        unsigned char* o = out.data();
        for (std::size_t i = 0; i < pcm.size(); ++i)
            o[i] = table[static_cast<std::uint16_t>(in[i])];
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(pcm.size()));
}

void G711Decode(benchmark::State& state, zor::g711::ELaw law) {
    const std::vector<short> pcm = Speechlike(700);
    std::vector<unsigned char> in(700);
    CG711BlockEncoder(law).EncodeBlock(pcm.data(), pcm.size(), in.data());
    std::vector<short> out(700);
    auto decoder = MakeDecoder(8, law);
    for (auto _ : state) {
        decoder->Decode(in.data(), in.data() + in.size(), out.data());
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(in.size()));
}

void G726Encode(benchmark::State& state, int bits) {
    const std::vector<short> pcm = Speechlike(PacketSamples(bits));
    CG726BlockEncoder encoder(bits);
    std::vector<unsigned char> out(encoder.EncodedBytes(pcm.size()));
    for (auto _ : state) {
        encoder.EncodeBlock(pcm.data(), pcm.size(), out.data());
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(pcm.size()));
}

void G726Decode(benchmark::State& state, int bits) {
    // Encoded from a running encoder so the decoder sees a realistic, adapted code stream.
    const std::vector<short> pcm = Speechlike(PacketSamples(bits) * 8);
    CG726BlockEncoder encoder(bits);
    std::vector<unsigned char> in(encoder.EncodedBytes(pcm.size()));
    encoder.EncodeBlock(pcm.data(), pcm.size(), in.data());
    const std::size_t packetBytes = encoder.EncodedBytes(PacketSamples(bits));
    std::vector<short> out(PacketSamples(bits));
    auto decoder = MakeDecoder(bits, zor::g711::ELaw::MuLaw);
    std::size_t at = 0;
    for (auto _ : state) {
        decoder->Decode(in.data() + at, in.data() + at + packetBytes, out.data());
        benchmark::DoNotOptimize(out.data());
        at = at + 2 * packetBytes <= in.size() ? at + packetBytes : 0;
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(out.size()));
}

void ImaDecode(benchmark::State& state) {
    // One 350-byte chunk: the decoder component's IMA chunk for 4-bit data.
    std::vector<unsigned char> block(350);
    unsigned noise = 99;
    for (auto& b : block) {
        noise = noise * 1103515245u + 12345u;
        b = static_cast<unsigned char>(noise >> 24);
    }
    block[2] = 20;
    std::vector<short> out(zor::ima::DecodedSamples(block.size()));
    CMicrosoftADPCMDecoder decoder;
    for (auto _ : state) {
        decoder.Decode(block.data(), block.data() + block.size(), out.data());
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(out.size()));
}

using zor::g711::ELaw;
BENCHMARK_CAPTURE(G711Encode, MuLaw, ELaw::MuLaw);
BENCHMARK(G711EncodeFullTableLoop);
BENCHMARK_CAPTURE(G711Decode, MuLaw, ELaw::MuLaw);
BENCHMARK_CAPTURE(G711Encode, ALaw, ELaw::ALaw);
BENCHMARK_CAPTURE(G711Decode, ALaw, ELaw::ALaw);
BENCHMARK_CAPTURE(G726Encode, 16kbps, 2);
BENCHMARK_CAPTURE(G726Decode, 16kbps, 2);
BENCHMARK_CAPTURE(G726Encode, 24kbps, 3);
BENCHMARK_CAPTURE(G726Decode, 24kbps, 3);
BENCHMARK_CAPTURE(G726Encode, 32kbps, 4);
BENCHMARK_CAPTURE(G726Decode, 32kbps, 4);
BENCHMARK_CAPTURE(G726Encode, 40kbps, 5);
BENCHMARK_CAPTURE(G726Decode, 40kbps, 5);
BENCHMARK(ImaDecode);

} // namespace
