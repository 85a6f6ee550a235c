// The decoder classes as the component uses them: created through the base, fed chunks cut by
// byte count, never writing past what the chunk's size promises.
#include "audio/codecs/AudioDecoderImpl.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <vector>

namespace {

struct DecoderCase {
    const char* name;
    std::function<std::unique_ptr<CAudioDecoderImpl>()> make;
    int bitsPerSample;
    bool usesBlockAlign;
};

const DecoderCase kDecoders[] = {
    {"MuLaw", [] { return std::make_unique<CMuLawDecoder>(); }, 8, true},
    {"ALaw", [] { return std::make_unique<CALawDecoder>(); }, 8, true},
    {"G726_16", [] { return std::make_unique<CADPCM16Decoder>(); }, 2, true},
    {"G726_24", [] { return std::make_unique<CADPCM24Decoder>(); }, 3, true},
    {"G726_32", [] { return std::make_unique<CADPCM32Decoder>(); }, 4, true},
    {"G726_40", [] { return std::make_unique<CADPCM40Decoder>(); }, 5, true},
    {"ImaAdpcm", [] { return std::make_unique<CMicrosoftADPCMDecoder>(); }, 4, false},
};

class AudioDecoderImpl : public ::testing::TestWithParam<DecoderCase> {};

// Chunks of every length up to a few groups, odd ones included: the decoder writes exactly the
// samples it reports, all within the n * 8 / bits the caller allots, and touches nothing after.
TEST_P(AudioDecoderImpl, WritesOnlyWhatItReportsWithinTheAllottedRoom) {
    const DecoderCase& c = GetParam();
    auto decoder = c.make();
    EXPECT_EQ(decoder->UsesBlockAlign(), c.usesBlockAlign);
    const short kGuard = 0x5A5A;
    for (std::size_t n = 0; n <= 23; ++n) {
        std::vector<unsigned char> in(n);
        for (std::size_t i = 0; i < n; ++i) {
            in[i] = static_cast<unsigned char>(37 * i + 11);
        }
        const std::size_t room = n * 8 / c.bitsPerSample;
        std::vector<short> out(room + 1, kGuard);
        const std::size_t written = decoder->Decode(in.data(), in.data() + n, out.data());
        ASSERT_LE(written, room) << n << " bytes";
        EXPECT_EQ(out[room], kGuard) << n << " bytes";
        if (written < room) {
            EXPECT_EQ(out[written], kGuard) << n << " bytes";
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, AudioDecoderImpl, ::testing::ValuesIn(kDecoders),
                         [](const auto& info) { return std::string(info.param.name); });

} // namespace
