// Every wide loop against the scalar reference: identical samples on random data, the extremes,
// every tail length, and unaligned buffers.
#include "audio/sound/SampleKernels.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

namespace {

std::vector<unsigned char> Bytes(const std::vector<std::int16_t>& samples, std::size_t offset) {
    std::vector<unsigned char> bytes(offset + 2 * samples.size());
    if (!samples.empty()) {
        std::memcpy(bytes.data() + offset, samples.data(), 2 * samples.size());
    }
    return bytes;
}

// Random samples with the extremes and zero sprinkled in, so saturation, wrapping and the
// -32768 square are met in every length.
std::vector<std::int16_t> Signal(std::size_t n, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> any(-32768, 32767);
    std::vector<std::int16_t> samples(n);
    for (std::size_t i = 0; i < n; ++i) {
        switch (random() % 8) {
        case 0:
            samples[i] = -32768;
            break;
        case 1:
            samples[i] = 32767;
            break;
        case 2:
            samples[i] = 0;
            break;
        default:
            samples[i] = static_cast<std::int16_t>(any(random));
        }
    }
    return samples;
}

class SampleKernels : public testing::TestWithParam<EZorSimdPath> {
protected:
    void SetUp() override {
        if (!ZorSimdPathSupported(GetParam())) {
            GTEST_SKIP() << ZorSimdPathName(GetParam()) << " is not supported on this CPU";
        }
    }
    const SZorSampleKernels& Wide() const { return ZorSampleKernelsFor(GetParam()); }
    const SZorSampleKernels& Reference() const { return ZorSampleKernelsFor(EZorSimdPath::Scalar); }
};

TEST_P(SampleKernels, MeasureMatchesReference) {
    for (std::size_t n = 0; n <= 100; ++n) {
        for (std::size_t offset : {0, 1}) {
            const auto bytes = Bytes(Signal(n, static_cast<unsigned>(n)), offset);
            const SZorSampleStats want = Reference().m_Measure(bytes.data() + offset, n);
            const SZorSampleStats got = Wide().m_Measure(bytes.data() + offset, n);
            ASSERT_EQ(got.m_Peak, want.m_Peak) << "n=" << n;
            ASSERT_EQ(got.m_SumOfSquares, want.m_SumOfSquares) << "n=" << n;
        }
    }
    // Full-scale negative samples: squares of 2^30 in every lane, pairs of 2^31.
    const auto loudest = Bytes(std::vector<std::int16_t>(720, -32768), 0);
    const SZorSampleStats stats = Wide().m_Measure(loudest.data(), 720);
    EXPECT_EQ(stats.m_Peak, 32768u);
    EXPECT_EQ(stats.m_SumOfSquares, 720ull << 30);
}

TEST_P(SampleKernels, ScaleMatchesReference) {
    for (double gain : {0.0, 0.37, 1.0, 1.5, 30.0, 1234.567, 65534.9}) {
        for (std::size_t n : {0, 1, 7, 8, 15, 16, 17, 31, 33, 720}) {
            const auto input = Bytes(Signal(n, static_cast<unsigned>(n * 7 + 1)), 1);
            auto want = input;
            auto got = input;
            Reference().m_Scale(want.data() + 1, n, gain);
            Wide().m_Scale(got.data() + 1, n, gain);
            ASSERT_EQ(got, want) << "gain=" << gain << " n=" << n;
        }
    }
}

TEST_P(SampleKernels, MixMatchesReference) {
    for (double factor : {0.0, 0.5, 1.0, -1.0, 0.999999, 3.7, 1e300, -1e308}) {
        for (std::size_t n : {0, 1, 7, 8, 15, 16, 17, 31, 33, 720}) {
            const auto input = Bytes(Signal(n, static_cast<unsigned>(n + 3)), 1);
            const auto clip = Bytes(Signal(n, static_cast<unsigned>(n + 4)), 0);
            auto want = input;
            auto got = input;
            Reference().m_Mix(want.data() + 1, clip.data(), n, factor);
            Wide().m_Mix(got.data() + 1, clip.data(), n, factor);
            ASSERT_EQ(got, want) << "factor=" << factor << " n=" << n;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Paths, SampleKernels,
                         testing::Values(EZorSimdPath::Sse2, EZorSimdPath::Avx2,
                                         EZorSimdPath::Avx512),
                         [](const testing::TestParamInfo<EZorSimdPath>& info) {
                             return std::string(ZorSimdPathName(info.param));
                         });

// The reference itself, on the values whose handling is a decision.
TEST(SampleArithmetic, ReferenceTruncatesWrapsAndSaturates) {
    EXPECT_EQ(ZorScaleSample(1000, 30.0), 30000);
    EXPECT_EQ(ZorScaleSample(-3, 2.5), -7);            // toward zero
    EXPECT_EQ(ZorScaleSample(1000, 40.0), -25536);     // 40000 wraps, no saturation
    EXPECT_EQ(ZorMixSample(30000, 30000, 1.0), 32767); // held at the top
    EXPECT_EQ(ZorMixSample(-30000, -30000, 1.0), -32768);
    EXPECT_EQ(ZorMixSample(-5, 2, 0.5), 0);     // -0.5 truncates to 0
    EXPECT_EQ(ZorMixSample(1234, 77, 0.0), 77); // factor 0: the clip alone
}

} // namespace
