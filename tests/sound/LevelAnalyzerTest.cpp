#include "audio/sound/LevelAnalyzer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace {

struct SBlock {
    std::vector<std::int16_t> m_Samples;
    unsigned char* Bytes() { return reinterpret_cast<unsigned char*>(m_Samples.data()); }
};

SBlock Constant(std::size_t n, std::int16_t value) {
    return SBlock{std::vector<std::int16_t>(n, value)};
}

double Process(CZorLevelAnalyzer& analyzer, SBlock& block, double t = 1.0) {
    SZorLevelSample sample{};
    EXPECT_TRUE(analyzer.Process(block.Bytes(), block.m_Samples.size(), 8000.0, t, &sample));
    return sample.m_Level;
}

TEST(LevelAnalyzer, LevelIsTheMeanSquareOver65536) {
    CZorLevelAnalyzer analyzer;
    SBlock block{{256, -512, 0, 32767, -32768}};
    const double sum = 256.0 * 256 + 512.0 * 512 + 32767.0 * 32767 + 32768.0 * 32768;
    EXPECT_EQ(Process(analyzer, block), sum / 5 * 1.52587890625e-5);
    EXPECT_EQ(analyzer.Peak(), 32768);
}

TEST(LevelAnalyzer, RaisesToTheTargetPeakAndMeasuresBefore) {
    CZorLevelAnalyzer analyzer;
    analyzer.m_MaximizeTo = 30000;
    SBlock block{{1000, -999, 7, -7}};
    const double level = Process(analyzer, block);
    EXPECT_EQ(block.m_Samples, (std::vector<std::int16_t>{30000, -29970, 210, -210}));
    EXPECT_EQ(level, (1000.0 * 1000 + 999.0 * 999 + 98) / 4 / 65536);
}

TEST(LevelAnalyzer, SuppressedBlocksStayButThePeakIsTracked) {
    CZorLevelAnalyzer analyzer;
    analyzer.m_MaximizeTo = 30000;
    analyzer.m_SuppressBelow = 1000; // the block's level is about 15
    SBlock block = Constant(8, 1000);
    Process(analyzer, block);
    EXPECT_EQ(block.m_Samples, Constant(8, 1000).m_Samples);
    EXPECT_EQ(analyzer.Peak(), 1000);
}

// The products keep their low 16 bits: 1000 x 45 = 45000 is stored as 45000 - 65536.
TEST(LevelAnalyzer, RaisedSamplesWrapInsteadOfSaturating) {
    CZorLevelAnalyzer analyzer;
    analyzer.m_MaximizeTo = 45000;
    SBlock block{{1000, -1000}};
    Process(analyzer, block);
    EXPECT_EQ(block.m_Samples, (std::vector<std::int16_t>{-20536, 20536}));
}

// After the first decay the countdown holds twice the sample rate as seconds: no further decay
// for 16000 s of audio at 8 kHz without a new peak.
TEST(LevelAnalyzer, PeakDecaysOnceThenWaitsForTheReloadedCountdown) {
    CZorLevelAnalyzer analyzer;
    analyzer.m_MaximizeTo = 20000;
    SBlock loud = Constant(800, 10000);
    Process(analyzer, loud);
    EXPECT_EQ(analyzer.Peak(), 10000);
    EXPECT_EQ(analyzer.Countdown(), 0.0); // the peak rose: no countdown
    SBlock quiet = Constant(800, 100);
    Process(analyzer, quiet); // 0 - 0.1 < 0: decay and reload
    EXPECT_EQ(analyzer.Peak(), 9500);
    EXPECT_EQ(analyzer.Countdown(), 16000.0);
    EXPECT_EQ(quiet.m_Samples[0], static_cast<std::int16_t>(100 * 20000.0 / 9500));
    SBlock again = Constant(800, 100);
    Process(analyzer, again);
    EXPECT_EQ(analyzer.Peak(), 9500);
    EXPECT_DOUBLE_EQ(analyzer.Countdown(), 16000.0 - 0.1);
}

// Zeros have a peak of 0: the gain has no finite value, and zeros stay zeros. A peak of 1 that
// decays to 0 raises as a peak of 1 would.
TEST(LevelAnalyzer, ZeroPeakNeitherDividesNorScrambles) {
    CZorLevelAnalyzer silent;
    silent.m_MaximizeTo = 30000;
    SBlock zeros = Constant(16, 0);
    EXPECT_EQ(Process(silent, zeros), 0.0);
    EXPECT_EQ(zeros.m_Samples, Constant(16, 0).m_Samples);

    CZorLevelAnalyzer analyzer;
    analyzer.m_MaximizeTo = 30000;
    SBlock ones{{1, -1, 0, 1}};
    Process(analyzer, ones); // the peak rises to 1
    SBlock again{{1, -1, 0, 1}};
    Process(analyzer, again); // no rise: the countdown runs out, the peak decays to 0
    EXPECT_EQ(analyzer.Peak(), 0);
    EXPECT_EQ(again.m_Samples, (std::vector<std::int16_t>{30000, -30000, 0, 30000}));
}

TEST(LevelAnalyzer, NonFiniteTargetTurnsRaisingOff) {
    CZorLevelAnalyzer analyzer;
    analyzer.m_MaximizeTo = std::numeric_limits<double>::infinity();
    SBlock block = Constant(4, 100);
    Process(analyzer, block);
    EXPECT_EQ(block.m_Samples, Constant(4, 100).m_Samples);
}

TEST(LevelAnalyzer, HugeGainsKeepTheLow16BitsOrGiveZero) {
    const SZorSampleKernels& kernels = ZorSampleKernels();
    SBlock block{{3, -3, 1, 2, 0}};
    ZorRaiseSamples(kernels, block.Bytes(), 2, 100000.0); // 300000 = 4 x 65536 + 37856
    EXPECT_EQ(block.m_Samples[0], static_cast<std::int16_t>(37856));
    EXPECT_EQ(block.m_Samples[1], static_cast<std::int16_t>(-37856));
    ZorRaiseSamples(kernels, block.Bytes() + 4, 3, 1e308); // 2e308 is not finite
    EXPECT_EQ(block.m_Samples[2], 0);                      // 1e308 is a multiple of 65536
    EXPECT_EQ(block.m_Samples[3], 0);
    EXPECT_EQ(block.m_Samples[4], 0);
}

TEST(LevelAnalyzer, LevelWindowAveragesHalfASecondAndAbsorbsAStepBack) {
    CZorLevelAnalyzer analyzer;
    SBlock loud = Constant(8, 256);   // level 1
    SBlock louder = Constant(8, 512); // level 4
    Process(analyzer, loud, 7000.0);  // a first block stamped by the clock
    Process(analyzer, louder, 0.25);  // then the stream's own time: the past moves along
    EXPECT_EQ(analyzer.Level(), 2.5);
    Process(analyzer, louder, 0.8); // 0.25 is more than half a second back now
    EXPECT_EQ(analyzer.Level(), 4.0);
}

// The older meter: high bytes only, integer mean of squares, truncated root.
TEST(LevelAnalyzer, GranuleLevelUsesTheSignedHighBytes) {
    struct SCase {
        std::vector<std::int16_t> m_Samples;
        int m_Level;
    };
    const std::vector<SCase> cases = {
        {{}, 0},
        {{255, -1, 0}, 0},                // high bytes 0, -1, 0: 1 / 3 = 0
        {{0x7F00, -0x8000}, 127},         // 127^2 + 128^2 = 32513, / 2 = 16256, root 127.49
        {{0x0300, 0x0400}, 3},            // (9 + 16) / 2 = 12, root 3.46
        {{-0x0300, -0x0300, -0x0300}, 3}, // high byte -3
    };
    for (SCase c : cases) {
        EXPECT_EQ(ZorGranuleLevel(reinterpret_cast<unsigned char*>(c.m_Samples.data()),
                                  c.m_Samples.size()),
                  c.m_Level);
    }
}

TEST(LevelAnalyzer, MeterLevelScalesQuietStreamsToAPeakOf80) {
    EXPECT_EQ(ZorMeterLevel(100.0, 0.9, 40.0), 0.0);   // no whole granule
    EXPECT_EQ(ZorMeterLevel(30.0, 20.0, 40.0), 1.5);   // at most 1.5: as it is
    EXPECT_EQ(ZorMeterLevel(200.0, 20.7, 40.0), 20.0); // 200 / 20 = 10, x 80 / 40
    EXPECT_EQ(ZorMeterLevel(200.0, 20.0, 80.0), 10.0); // a peak of 80 or more: as it is
    EXPECT_EQ(ZorMeterLevel(200.0, 20.0, 0.0), 10.0);  // no peak: as it is
}

} // namespace
