#include "audio/capture/AudioClock.h"

#include <cmath>
#include <gtest/gtest.h>
#include <vector>

namespace {

constexpr double kBuffer = 64.0; // ms: 512 samples at 8 kHz

struct SRun {
    std::vector<double> m_Stamps;
    int m_Jumps = 0;
};

// Steps the clock through buffers whose done times (ms, as the system clock reads them) are
// given by doneAt(k).
template <class F> SRun RunClock(int buffers, F doneAt, bool correct = true) {
    CZorAudioClock clock;
    clock.Reset(0.0);
    SRun run;
    for (int k = 0; k < buffers; ++k) {
        const auto now = static_cast<long>(std::floor(doneAt(k)));
        const CZorAudioClock::SStep step = clock.Step(kBuffer, now, correct);
        run.m_Stamps.push_back(step.m_Stamp);
        run.m_Jumps += step.m_Jumped;
    }
    return run;
}

TEST(AudioClock, ADeviceOnTimeGivesTheNominalStamps) {
    const SRun run = RunClock(200, [](int k) { return (k + 1) * kBuffer; });
    for (int k = 0; k < 200; ++k) {
        EXPECT_EQ(run.m_Stamps[k], k * kBuffer) << k;
    }
}

// A steady 50 ms lag is seen for 11 buffers, then slewed away 1 ms a buffer, never faster.
TEST(AudioClock, ALagIsObservedElevenTimesThenSlewedOneMillisecondABuffer) {
    const SRun run = RunClock(120, [](int k) { return (k + 1) * kBuffer + 50; });
    for (int k = 0; k <= 10; ++k) {
        EXPECT_EQ(run.m_Stamps[k], k * kBuffer) << "observing, " << k;
    }
    for (int k = 11; k < 120; ++k) {
        const double slew = run.m_Stamps[k] - run.m_Stamps[k - 1] - kBuffer;
        EXPECT_TRUE(slew == 0.0 || slew == 1.0) << k;
    }
    EXPECT_EQ(run.m_Stamps[61] - 61 * kBuffer, 50.0) << "all of the lag is taken up";
    EXPECT_EQ(run.m_Stamps[119] - 119 * kBuffer, 50.0) << "and then the clock holds";
    EXPECT_EQ(run.m_Jumps, 0);
}

// Further behind than 200 ms the clock jumps to the system clock at once.
TEST(AudioClock, MoreThan200MillisecondsBehindJumps) {
    CZorAudioClock clock;
    clock.Reset(1000.0);
    CZorAudioClock::SStep step = clock.Step(kBuffer, 1000 + 64 + 200, true);
    EXPECT_FALSE(step.m_Jumped) << "200 ms is still slewed";
    clock.Reset(1000.0);
    step = clock.Step(kBuffer, 1000 + 64 + 250, true);
    EXPECT_TRUE(step.m_Jumped);
    EXPECT_EQ(step.m_Difference, 250);
    EXPECT_EQ(clock.Value(), 1000 + 64 + 250);
    EXPECT_EQ(clock.Step(kBuffer, 1000 + 128 + 250, true).m_Stamp, 1000 + 64 + 250);
}

// A clock ahead of the system clock is pulled back at once, also 1 ms a buffer.
TEST(AudioClock, AClockAheadIsPulledBackAtOnce) {
    CZorAudioClock clock;
    clock.Reset(0.0);
    CZorAudioClock::SStep step = clock.Step(kBuffer, 61, true);
    EXPECT_EQ(step.m_Difference, -3);
    EXPECT_EQ(step.m_CorrectionLeft, -2);
    EXPECT_EQ(clock.Value(), 63.0);
    clock.Step(kBuffer, 125, true);
    step = clock.Step(kBuffer, 189, true);
    EXPECT_EQ(step.m_CorrectionLeft, 0);
    EXPECT_EQ(clock.Value(), 189.0);
}

TEST(AudioClock, WithoutCorrectionTheClockFollowsTheSystemClock) {
    const SRun run = RunClock(
        5, [](int k) { return (k + 1) * 70.0; }, false);
    EXPECT_EQ(run.m_Stamps, std::vector<double>({0, 70, 140, 210, 280}));
}

} // namespace
