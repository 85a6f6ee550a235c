// G.726 against the ITU-T test sequences in tests/data/g726 (mu-law, from the reset state), the
// synchronous coding adjustment for A-law by its defining property, and the packed stream's bit
// order and partial-group rules.
//
// Every conformance run goes through both kernels: the per-sample functions (the reference
// kernel) and the packed block functions (the vector kernel where there is one), which must
// agree code for code, sample for sample and in their final state.
#include "audio/codecs/G726.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

using zor::g711::ELaw;
namespace g726 = zor::g726;

const char* RateName(int bits) {
    static const char* const kNames[] = {"16", "24", "32", "40"};
    return kNames[bits - 2];
}

// One 16-bit little-endian word per sample or code, value in the low bits.
std::vector<int> LoadWords(const std::string& name) {
    const std::string path = std::string(ZOR_TEST_DATA_DIR) + "/g726/" + name;
    std::vector<int> words;
    if (FILE* f = std::fopen(path.c_str(), "rb")) {
        unsigned char w[2];
        while (std::fread(w, 1, 2, f) == 2) {
            words.push_back(w[0] | (w[1] << 8));
        }
        std::fclose(f);
    }
    EXPECT_FALSE(words.empty()) << "missing test vector " << path;
    return words;
}

std::vector<short> ExpandMuLaw(const std::vector<int>& bytes) {
    std::vector<short> pcm;
    for (int b : bytes) {
        pcm.push_back(zor::g711::MuLawToLinear(static_cast<unsigned char>(b)));
    }
    return pcm;
}

std::vector<unsigned char> Pack(int bits, const std::vector<int>& codes) {
    std::vector<unsigned char> narrow(codes.begin(), codes.end());
    std::vector<unsigned char> packed(g726::EncodedBytes(bits, codes.size()));
    g726::PackCodes(bits, narrow.data(), narrow.size(), packed.data());
    return packed;
}

class G726Conformance : public ::testing::TestWithParam<int> {};

TEST_P(G726Conformance, EncoderReproducesTheCodes) {
    const int bits = GetParam();
    for (const char* input : {"n", "v"}) {
        const std::vector<short> pcm = ExpandMuLaw(LoadWords(input[0] == 'n' ? "nrm.m" : "ovr.m"));
        const std::vector<int> expected =
            LoadWords(std::string("r") + input + RateName(bits) + "fm.i");
        ASSERT_EQ(pcm.size(), expected.size());

        g726::State sampleState;
        for (std::size_t i = 0; i < pcm.size(); ++i) {
            ASSERT_EQ(g726::EncodeSample(sampleState, bits, pcm[i]), expected[i])
                << input << " sample " << i;
        }
        // Blocks of an odd number of whole groups, so the state crosses many call boundaries.
        g726::State blockState;
        std::vector<unsigned char> packed(g726::EncodedBytes(bits, pcm.size()));
        const std::size_t step = 37 * g726::GroupSamples(bits);
        for (std::size_t done = 0; done < pcm.size(); done += step) {
            const std::size_t n = std::min(step, pcm.size() - done);
            g726::EncodeBlock(blockState, bits, pcm.data() + done, n,
                              packed.data() + g726::EncodedBytes(bits, done));
        }
        EXPECT_EQ(packed, Pack(bits, expected)) << input;
        EXPECT_EQ(blockState, sampleState) << input;
    }
}

TEST_P(G726Conformance, DecoderWithSynchronousAdjustmentReproducesTheOutput) {
    const int bits = GetParam();
    for (const char* input : {"n", "v", "i"}) {
        const std::string stem = std::string("r") + input + RateName(bits) + "fm";
        const std::vector<int> codes =
            LoadWords(input[0] == 'i' ? std::string("i") + RateName(bits) : stem + ".i");
        const std::vector<int> expected = LoadWords(stem + ".o");
        ASSERT_EQ(codes.size(), expected.size());

        // The trace carries the 16-bit reconstructed signal, not the saturated output, so that
        // a value of exactly -32768 (sample 9596 of ri40fm.o) compresses as a negative zero.
        g726::State sampleState;
        std::vector<short> linear(codes.size());
        for (std::size_t i = 0; i < codes.size(); ++i) {
            g726::SampleTrace trace;
            linear[i] = g726::DecodeSample(sampleState, bits, codes[i], &trace);
            ASSERT_EQ(g726::SyncAdjust(ELaw::MuLaw, bits, trace, codes[i]), expected[i])
                << stem << " sample " << i;
        }
        g726::State blockState;
        const std::vector<unsigned char> packed = Pack(bits, codes);
        std::vector<short> blockLinear(codes.size());
        ASSERT_EQ(
            g726::DecodeBlock(blockState, bits, packed.data(), packed.size(), blockLinear.data()),
            codes.size());
        EXPECT_EQ(blockLinear, linear) << stem;
        EXPECT_EQ(blockState, sampleState) << stem;
    }
}

// There are no A-law sequences, so the A-law adjustment is held to what it is for: tandem
// coding without loss. An A-law signal (the normal and overload inputs passed through A-law) is
// encoded; the decoder's adjusted A-law output, encoded again from reset, must give back the
// very same codes. Plain A-law compression of the decoder's output breaks that on some samples,
// which shows the adjustment does real work in this law (compress, expand, and one step each
// way through the A-law code order).
TEST_P(G726Conformance, ALawAdjustmentMakesTandemCodingLossless) {
    const int bits = GetParam();
    int plainMisses = 0;
    for (const char* name : {"nrm.m", "ovr.m"}) {
        const std::vector<short> mu = ExpandMuLaw(LoadWords(name));
        g726::State encoder;
        g726::State decoder;
        g726::State tandem;
        for (std::size_t i = 0; i < mu.size(); ++i) {
            const short aLaw = zor::g711::ALawToLinear(zor::g711::LinearToALaw(mu[i]));
            const int code = g726::EncodeSample(encoder, bits, aLaw);

            g726::State probe = decoder;
            g726::SampleTrace trace;
            const short linear = g726::DecodeSample(decoder, bits, code, &trace);
            const unsigned char adjusted = g726::SyncAdjust(ELaw::ALaw, bits, trace, code);
            ASSERT_EQ(g726::EncodeSample(tandem, bits, zor::g711::ALawToLinear(adjusted)), code)
                << name << " sample " << i;
            const short plain = zor::g711::ALawToLinear(zor::g711::LinearToALaw(linear));
            plainMisses += g726::EncodeSample(probe, bits, plain) != code ? 1 : 0;
        }
        EXPECT_EQ(tandem, decoder) << name;
    }
    EXPECT_GT(plainMisses, 0);
}

INSTANTIATE_TEST_SUITE_P(Rates, G726Conformance, ::testing::Values(2, 3, 4, 5),
                         [](const auto& info) {
                             return std::string("Rate") + RateName(info.param);
                         });

// The packed layout, one code at a time: code k set to all ones, every other code zero, gives
// exactly the bits the layout assigns to position k.
TEST(G726Packing, EachCodePositionLandsOnItsBits) {
    struct Row {
        int bits;
        int position;
        std::vector<unsigned char> bytes;
    };
    const Row rows[] = {
        {2, 0, {0x03}},
        {2, 1, {0x0C}},
        {2, 2, {0x30}},
        {2, 3, {0xC0}},
        {4, 0, {0x0F}},
        {4, 1, {0xF0}},
        {3, 0, {0x07, 0x00, 0x00}},
        {3, 1, {0x38, 0x00, 0x00}},
        {3, 2, {0xC0, 0x01, 0x00}}, // bits 6-7 of byte 0, then bit 0 of byte 1
        {3, 3, {0x00, 0x0E, 0x00}},
        {3, 4, {0x00, 0x70, 0x00}},
        {3, 5, {0x00, 0x80, 0x03}}, // bit 7 of byte 1, then bits 0-1 of byte 2
        {3, 6, {0x00, 0x00, 0x1C}},
        {3, 7, {0x00, 0x00, 0xE0}},
        {5, 0, {0x1F, 0, 0, 0, 0}},
        {5, 1, {0xE0, 0x03, 0, 0, 0}},
        {5, 2, {0, 0x7C, 0, 0, 0}},
        {5, 3, {0, 0x80, 0x0F, 0, 0}},
        {5, 4, {0, 0, 0xF0, 0x01, 0}},
        {5, 5, {0, 0, 0, 0x3E, 0}},
        {5, 6, {0, 0, 0, 0xC0, 0x07}},
        {5, 7, {0, 0, 0, 0, 0xF8}},
    };
    for (const Row& row : rows) {
        std::vector<unsigned char> codes(g726::GroupSamples(row.bits), 0);
        codes[row.position] = static_cast<unsigned char>((1 << row.bits) - 1);
        std::vector<unsigned char> packed(g726::GroupBytes(row.bits));
        g726::PackCodes(row.bits, codes.data(), codes.size(), packed.data());
        EXPECT_EQ(packed, row.bytes) << row.bits << " bits, code " << row.position;

        std::vector<unsigned char> unpacked(codes.size());
        g726::UnpackCodes(row.bits, packed.data(), packed.size(), unpacked.data());
        EXPECT_EQ(unpacked, codes) << row.bits << " bits, code " << row.position;
    }
}

TEST(G726Packing, SizesFollowWholeGroups) {
    struct Row {
        int bits;
        std::size_t samples, encodedBytes, bytes, decodedSamples, fitIn1440;
    };
    const Row rows[] = {
        {2, 701, 176, 177, 708, 5760}, {3, 701, 264, 265, 704, 3840}, {4, 701, 351, 351, 702, 2880},
        {5, 701, 440, 443, 704, 2304}, {6, 701, 0, 443, 0, 0},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(g726::EncodedBytes(r.bits, r.samples), r.encodedBytes) << r.bits;
        EXPECT_EQ(g726::DecodedSamples(r.bits, r.bytes), r.decodedSamples) << r.bits;
        EXPECT_EQ(g726::MaxSamplesFor(r.bits, 1440), r.fitIn1440) << r.bits;
    }
}

// Partial groups, with buffers sized exactly so that the sanitizers catch any stray access:
// decoding ignores the tail and writes nothing for it; encoding pads with silence, which is the
// same as encoding the padded input.
TEST(G726Packing, PartialGroupsStayInsideTheBuffers) {
    for (int bits : {3, 5}) {
        const std::size_t groupBytes = g726::GroupBytes(bits);
        std::vector<unsigned char> bytes(2 * groupBytes + groupBytes - 1, 0x5A);
        std::vector<short> out(g726::DecodedSamples(bits, bytes.size()));
        g726::State state;
        EXPECT_EQ(g726::DecodeBlock(state, bits, bytes.data(), bytes.size(), out.data()), 16u);
        std::vector<unsigned char> codes(16);
        EXPECT_EQ(g726::UnpackCodes(bits, bytes.data(), bytes.size(), codes.data()), 16u);

        std::vector<unsigned char> nothing(groupBytes - 1, 0x5A);
        EXPECT_EQ(g726::DecodeBlock(state, bits, nothing.data(), nothing.size(), nullptr), 0u);

        const std::vector<short> five = {1000, -2000, 3000, -4000, 5000};
        std::vector<unsigned char> packed(g726::EncodedBytes(bits, five.size()));
        g726::State padded;
        EXPECT_EQ(g726::EncodeBlock(padded, bits, five.data(), five.size(), packed.data()),
                  groupBytes);
        std::vector<short> eight = five;
        eight.resize(8, 0);
        std::vector<unsigned char> reference(groupBytes);
        g726::State whole;
        g726::EncodeBlock(whole, bits, eight.data(), eight.size(), reference.data());
        EXPECT_EQ(packed, reference) << bits;
        EXPECT_EQ(padded, whole) << bits;
    }
}

} // namespace
