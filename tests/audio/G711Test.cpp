// G.711 against a small model of the classic reference rule, written the long way (segment
// search over the end-point table, closed-form expansion) rather than by bit scanning and
// tables as the library does; every input and every code is checked, so the tables' build,
// the clip points, the biases and the rounding of negative values are all covered.
#include "audio/codecs/G711.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using zor::g711::ELaw;

int ModelMuLawEncode(int sample) {
    static const int kSegmentEnd[8] = {0x3F, 0x7F, 0xFF, 0x1FF, 0x3FF, 0x7FF, 0xFFF, 0x1FFF};
    int v = sample >> 2;
    int mask = 0xFF;
    if (v < 0) {
        v = -v;
        mask = 0x7F;
    }
    v = (v > 8159 ? 8159 : v) + 33;
    int segment = 0;
    while (segment < 8 && v > kSegmentEnd[segment]) {
        ++segment;
    }
    if (segment == 8) {
        return 0x7F ^ mask;
    }
    return ((segment << 4) | ((v >> (segment + 1)) & 0x0F)) ^ mask;
}

int ModelMuLawDecode(int code) {
    const int u = ~code & 0xFF;
    const int magnitude = (((2 * (u & 15) + 33) << ((u >> 4) & 7)) - 33) * 4;
    return (u & 0x80) ? -magnitude : magnitude;
}

int ModelALawEncode(int sample) {
    static const int kSegmentEnd[8] = {0x1F, 0x3F, 0x7F, 0xFF, 0x1FF, 0x3FF, 0x7FF, 0xFFF};
    int v = sample >> 3;
    int mask = 0xD5;
    if (v < 0) {
        v = -v - 1;
        mask = 0x55;
    }
    int segment = 0;
    while (v > kSegmentEnd[segment]) {
        ++segment;
    }
    const int mantissa = segment < 2 ? (v >> 1) & 0x0F : (v >> segment) & 0x0F;
    return ((segment << 4) | mantissa) ^ mask;
}

int ModelALawDecode(int code) {
    const int a = code ^ 0x55;
    const int segment = (a >> 4) & 7;
    const int mantissa = a & 15;
    const int magnitude =
        segment == 0 ? (2 * mantissa + 1) * 8 : ((2 * mantissa + 33) << (segment - 1)) * 8;
    return (a & 0x80) ? magnitude : -magnitude;
}

TEST(G711, EncodersFollowTheReferenceRuleForEveryInput) {
    for (int sample = -32768; sample <= 32767; ++sample) {
        const auto s = static_cast<short>(sample);
        ASSERT_EQ(zor::g711::LinearToMuLaw(s), ModelMuLawEncode(sample)) << "sample " << sample;
        ASSERT_EQ(zor::g711::LinearToALaw(s), ModelALawEncode(sample)) << "sample " << sample;
    }
}

// The block encoders (four lookups a round, then the rest one by one) give the same codes for
// every input, whatever the count's remainder.
TEST(G711, BlockEncodersFollowTheReferenceRuleForEveryInput) {
    std::vector<short> all(65536 + 3);
    for (std::size_t i = 0; i < all.size(); ++i)
        all[i] = static_cast<short>(static_cast<int>(i % 65536) - 32768);
    for (const auto law : {zor::g711::ELaw::MuLaw, zor::g711::ELaw::ALaw}) {
        std::vector<unsigned char> codes(all.size());
        zor::g711::Encode(law, all.data(), all.size(), codes.data());
        for (std::size_t i = 0; i < all.size(); ++i) {
            const int model =
                law == zor::g711::ELaw::MuLaw ? ModelMuLawEncode(all[i]) : ModelALawEncode(all[i]);
            ASSERT_EQ(codes[i], model) << "sample " << all[i];
        }
    }
}

TEST(G711, DecodersFollowTheReferenceRuleForEveryCode) {
    for (int code = 0; code < 256; ++code) {
        const auto c = static_cast<unsigned char>(code);
        EXPECT_EQ(zor::g711::MuLawToLinear(c), ModelMuLawDecode(code)) << "code " << code;
        EXPECT_EQ(zor::g711::ALawToLinear(c), ModelALawDecode(code)) << "code " << code;
    }
}

// Fixed points that anchor both the model and the library: zero, the first negative step,
// full scale and the clip past it, for each law.
TEST(G711, BoundaryValues) {
    struct Case {
        ELaw law;
        short sample;
        unsigned char code;
        short decoded;
    };
    const Case cases[] = {
        {ELaw::MuLaw, 0, 0xFF, 0},         {ELaw::MuLaw, 3, 0xFF, 0},
        {ELaw::MuLaw, -1, 0x7E, -8},       {ELaw::MuLaw, 32124, 0x80, 32124},
        {ELaw::MuLaw, 32767, 0x80, 32124}, {ELaw::MuLaw, -32768, 0x00, -32124},
        {ELaw::ALaw, 0, 0xD5, 8},          {ELaw::ALaw, -1, 0x55, -8},
        {ELaw::ALaw, 32767, 0xAA, 32256},  {ELaw::ALaw, -32768, 0x2A, -32256},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(zor::g711::FromLinear(c.law, c.sample), c.code) << c.sample;
        EXPECT_EQ(zor::g711::ToLinear(c.law, c.code), c.decoded) << c.sample;
    }
}

} // namespace
