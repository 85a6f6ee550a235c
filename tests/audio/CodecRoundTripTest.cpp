// One fixture over the encodable formats, through the block encoders and the decoder classes
// as the codec components use them: a speech-like signal encoded and decoded in packet-sized
// calls must come back above a signal-to-noise floor for its rate; fresh codec objects must
// reproduce the output bit for bit, and the way the input is cut into calls must not matter;
// a decoder never writes past what it reports.
#include "audio/codecs/AudioDecoderImpl.h"
#include "audio/codecs/BlockEncoder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <memory>
#include <numbers>
#include <vector>

namespace {

using zor::g711::ELaw;

struct Format {
    const char* name;
    int bits;       // bits per sample: 8 for G.711, the code width for G.726
    ELaw law;       // G.711 only
    double floorDb; // see kFormats
    std::function<std::unique_ptr<CAudioDecoderImpl>()> makeDecoder;
};

// Floors, about 3 dB under what the codecs give on this signal, so that a fault costing even
// half the quantiser's resolution shows:
// - G.711: 8-bit logarithmic PCM holds about 6.02 * 8 + 4.77 - 20 log10(ln 256) = 38 dB over
//   its whole range, whatever the level; floor 35 dB.
// - G.726: the adaptive quantiser gains roughly 6 dB per code bit on the prediction residual
//   (2 bits: 4 levels, the coarsest step), and the 2-pole 6-zero predictor adds about 10-15 dB
//   on a harmonic signal like this one; measured 19, 27, 38 and 44 dB for 2 to 5 bits.
const Format kFormats[] = {
    {"MuLaw", 8, ELaw::MuLaw, 35.0, [] { return std::make_unique<CMuLawDecoder>(); }},
    {"ALaw", 8, ELaw::ALaw, 35.0, [] { return std::make_unique<CALawDecoder>(); }},
    {"G726_16", 2, ELaw::MuLaw, 16.0, [] { return std::make_unique<CADPCM16Decoder>(); }},
    {"G726_24", 3, ELaw::MuLaw, 24.0, [] { return std::make_unique<CADPCM24Decoder>(); }},
    {"G726_32", 4, ELaw::MuLaw, 34.0, [] { return std::make_unique<CADPCM32Decoder>(); }},
    {"G726_40", 5, ELaw::MuLaw, 41.0, [] { return std::make_unique<CADPCM40Decoder>(); }},
};

// One second at 8 kHz of a voiced-like signal: a 150 Hz fundamental with falling harmonics,
// its level swept over 20 dB by a slow envelope.
std::vector<short> TestSignal() {
    std::vector<short> pcm(8000);
    for (std::size_t i = 0; i < pcm.size(); ++i) {
        const double t = static_cast<double>(i) / 8000.0;
        const double envelope = 0.55 + 0.45 * std::sin(2 * std::numbers::pi * 1.5 * t);
        double v = 0;
        for (int h = 1; h <= 8; ++h) {
            v += std::sin(2 * std::numbers::pi * 150.0 * h * t + h) / h;
        }
        pcm[i] = static_cast<short>(std::lround(7000.0 * envelope * v));
    }
    return pcm;
}

class CodecRoundTrip : public ::testing::TestWithParam<Format> {
protected:
    // Encodes in calls of `chunk` samples with a fresh encoder, returns the byte stream.
    static std::vector<unsigned char> Encode(const Format& f, const std::vector<short>& pcm,
                                             std::size_t chunk) {
        std::vector<unsigned char> bytes;
        CG711BlockEncoder g711(f.law);
        CG726BlockEncoder g726(f.bits);
        for (std::size_t done = 0; done < pcm.size(); done += chunk) {
            const std::size_t n = std::min(chunk, pcm.size() - done);
            const std::size_t at = bytes.size();
            bytes.resize(at + (f.bits == 8 ? n : g726.EncodedBytes(n)));
            const std::size_t written =
                f.bits == 8 ? g711.EncodeBlock(pcm.data() + done, n, bytes.data() + at)
                            : g726.EncodeBlock(pcm.data() + done, n, bytes.data() + at);
            EXPECT_EQ(written, bytes.size() - at);
        }
        return bytes;
    }

    // Decodes in calls of `chunk` bytes with a fresh decoder object.
    static std::vector<short> Decode(const Format& f, const std::vector<unsigned char>& bytes,
                                     std::size_t chunk) {
        auto decoder = f.makeDecoder();
        std::vector<short> pcm;
        for (std::size_t done = 0; done < bytes.size(); done += chunk) {
            const std::size_t n = std::min(chunk, bytes.size() - done);
            const std::size_t at = pcm.size();
            pcm.resize(at + n * 8 / f.bits);
            const std::size_t written =
                decoder->Decode(bytes.data() + done, bytes.data() + done + n, pcm.data() + at);
            pcm.resize(at + written);
        }
        return pcm;
    }
};

TEST_P(CodecRoundTrip, SignalComesBackAboveTheNoiseFloor) {
    const Format& f = GetParam();
    const std::vector<short> in = TestSignal();
    // 700-sample packets where that is a whole number of groups; 696 for 3 and 5 bits.
    const std::size_t samples = (f.bits == 3 || f.bits == 5) ? 696 : 700;
    const std::size_t bytes = samples * f.bits / 8;
    const std::vector<short> out = Decode(f, Encode(f, in, samples), bytes);
    ASSERT_EQ(out.size(), in.size());

    // Skip the first 20 ms, where the adaptive codecs are still converging from reset.
    double signal = 0;
    double noise = 0;
    for (std::size_t i = 160; i < in.size(); ++i) {
        signal += static_cast<double>(in[i]) * in[i];
        noise += static_cast<double>(in[i] - out[i]) * (in[i] - out[i]);
    }
    const double snr = 10 * std::log10(signal / noise);
    EXPECT_GT(snr, f.floorDb);
    RecordProperty("snr_db", std::to_string(snr));
}

TEST_P(CodecRoundTrip, FreshObjectsAndCallSizesGiveIdenticalStreams) {
    const Format& f = GetParam();
    const std::vector<short> in = TestSignal();
    const std::vector<unsigned char> whole = Encode(f, in, in.size());
    EXPECT_EQ(Encode(f, in, in.size()), whole);
    EXPECT_EQ(Encode(f, in, 24 * 10), whole); // any multiple of every group size
    const std::vector<short> decoded = Decode(f, whole, whole.size());
    EXPECT_EQ(Decode(f, whole, whole.size()), decoded);
    EXPECT_EQ(Decode(f, whole, 15), decoded); // a whole number of groups for every rate
}

// Chunks of every length up to a few groups, odd ones included, as the decoder component cuts
// them: the decoder writes exactly the samples it reports, within the n * 8 / bits the caller
// allots, and touches nothing after them.
TEST_P(CodecRoundTrip, DecoderWritesOnlyWhatItReports) {
    const Format& f = GetParam();
    auto decoder = f.makeDecoder();
    EXPECT_TRUE(decoder->UsesBlockAlign());
    const short kGuard = 0x5A5A;
    for (std::size_t n = 0; n <= 23; ++n) {
        std::vector<unsigned char> in(n);
        for (std::size_t i = 0; i < n; ++i) {
            in[i] = static_cast<unsigned char>(37 * i + 11);
        }
        const std::size_t room = n * 8 / f.bits;
        std::vector<short> out(room + 1, kGuard);
        const std::size_t written = decoder->Decode(in.data(), in.data() + n, out.data());
        ASSERT_LE(written, room) << n << " bytes";
        EXPECT_EQ(out[written], kGuard) << n << " bytes";
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, CodecRoundTrip, ::testing::ValuesIn(kFormats),
                         [](const auto& info) { return std::string(info.param.name); });

} // namespace
