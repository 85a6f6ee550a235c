// IMA ADPCM block decoding against a small model of the rule (its own copy of the tables, a
// plain per-nibble loop), plus hand-computed blocks for the cases the model shares with the
// library by construction: the header handling, the wrap past 32767 and the index clamp.
#include "audio/codecs/ImaAdpcm.h"

#include "audio/codecs/AudioDecoderImpl.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <utility>
#include <vector>

namespace {

std::vector<short> ModelDecode(const std::vector<unsigned char>& block) {
    static const int kStep[89] = {
        7,     8,     9,     10,    11,    12,    13,    14,    16,    17,    19,   21,    23,
        25,    28,    31,    34,    37,    41,    45,    50,    55,    60,    66,   73,    80,
        88,    97,    107,   118,   130,   143,   157,   173,   190,   209,   230,  253,   279,
        307,   337,   371,   408,   449,   494,   544,   598,   658,   724,   796,  876,   963,
        1060,  1166,  1282,  1411,  1552,  1707,  1878,  2066,  2272,  2499,  2749, 3024,  3327,
        3660,  4026,  4428,  4871,  5358,  5894,  6484,  7132,  7845,  8630,  9493, 10442, 11487,
        12635, 13899, 15289, 16818, 18500, 20350, 22385, 24623, 27086, 29794, 32767};
    static const int kIndexStep[8] = {-1, -1, -1, -1, 2, 4, 6, 8};
    std::vector<short> out;
    if (block.size() <= 4) {
        return out;
    }
    int predictor = static_cast<std::int16_t>(block[0] | (block[1] << 8));
    int index = std::clamp(static_cast<int>(static_cast<signed char>(block[2])), 0, 88);
    for (std::size_t i = 4; i < block.size(); ++i) {
        for (int nibble : {block[i] & 15, block[i] >> 4}) {
            const int step = kStep[index];
            int difference = ((step * (nibble & 7)) >> 2) + (step >> 3);
            if (nibble & 8) {
                difference = -difference;
            }
            predictor =
                static_cast<std::int16_t>(static_cast<std::uint16_t>(predictor + difference));
            out.push_back(static_cast<short>(predictor));
            index = std::clamp(index + kIndexStep[nibble & 7], 0, 88);
        }
    }
    return out;
}

std::vector<short> Decode(const std::vector<unsigned char>& block) {
    std::vector<short> out(zor::ima::DecodedSamples(block.size()));
    EXPECT_EQ(zor::ima::DecodeBlock(block.data(), block.size(), out.data()), out.size());
    return out;
}

TEST(ImaAdpcm, RandomBlocksFollowTheModel) {
    std::mt19937 random(1234);
    for (int trial = 0; trial < 200; ++trial) {
        std::vector<unsigned char> block(4 + trial % 300);
        for (auto& b : block) {
            b = static_cast<unsigned char>(random());
        }
        EXPECT_EQ(Decode(block), ModelDecode(block)) << "trial " << trial;
    }
}

TEST(ImaAdpcm, HandComputedBlock) {
    // Predictor 16, index 0. Nibble 3: step 7, +5 -> 21, index stays 0. Nibble 7: +12 -> 33,
    // index 8. Nibble 8: step 16, -2 -> 31, index 7. Nibble 0: step 14, +1 -> 32.
    EXPECT_EQ(Decode({0x10, 0x00, 0x00, 0xEE, 0x73, 0x08}), (std::vector<short>{21, 33, 31, 32}));
}

TEST(ImaAdpcm, PredictorWrapsPast32767) {
    // Predictor 32700, index 10: nibble 7 adds 35 (step 19) -> 32735 and moves to index 18;
    // nibble 7 adds 76 (step 41) -> 32811, which wraps to -32725.
    EXPECT_EQ(Decode({0xBC, 0x7F, 10, 0, 0x77}), (std::vector<short>{32735, -32725}));
}

TEST(ImaAdpcm, HeaderStepIndexOutsideTheTableIsClamped) {
    const std::vector<unsigned char> data = {0x12, 0x34, 0, 0, 0x7F, 0x80, 0x19, 0xF3};
    for (auto [corrupt, clamped] : {std::pair{127, 88}, {89, 88}, {-1, 0}, {-128, 0}}) {
        std::vector<unsigned char> bad = data;
        std::vector<unsigned char> good = data;
        bad[2] = static_cast<unsigned char>(corrupt);
        good[2] = static_cast<unsigned char>(clamped);
        EXPECT_EQ(Decode(bad), Decode(good)) << corrupt;
    }
}

TEST(ImaAdpcm, BlocksWithoutDataYieldNothing) {
    for (std::size_t size : {0u, 3u, 4u}) {
        const std::vector<unsigned char> block(size, 0x77);
        EXPECT_EQ(zor::ima::DecodeBlock(block.data(), block.size(), nullptr), 0u) << size;
    }
}

// The decoder class takes each chunk as one block, whatever the block alignment says.
TEST(ImaAdpcm, DecoderClassDecodesEachChunkAsOneBlock) {
    CMicrosoftADPCMDecoder decoder;
    EXPECT_FALSE(decoder.UsesBlockAlign());
    const std::vector<unsigned char> block = {0x10, 0x00, 0x00, 0xEE, 0x73, 0x08};
    std::vector<short> out(2 * block.size(), 0x5A5A); // the room a caller allots: 2 per byte
    EXPECT_EQ(decoder.Decode(block.data(), block.data() + block.size(), out.data()), 4u);
    EXPECT_EQ(out, (std::vector<short>{21, 33, 31, 32, 0x5A5A, 0x5A5A, 0x5A5A, 0x5A5A, 0x5A5A,
                                       0x5A5A, 0x5A5A, 0x5A5A}));
}

} // namespace
