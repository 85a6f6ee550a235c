#include "audio/sound/SoundDetector.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using EEvent = CZorSoundDetector::EEvent;

// A detection window of zero length holds only the newest sample and the baseline stays at the
// quiet first sample (its search period outlasts the test), so the absolute threshold applies to
// each level itself and every step's decision is easy to state.
struct SStep {
    double m_Time;
    double m_Level;
    EEvent m_Event;
    CZorSoundDetector::EState m_State;
};

class SoundDetectorSteps : public testing::Test {
protected:
    SoundDetectorSteps() : m_Detector(0.0, 100.0) {
        m_Detector.m_BaselineSearchPeriod = 1000.0;
        m_Detector.SetThreshold(10.0);
        m_Detector.AddLevel(-10.0, 0.0); // seeds a baseline of 0
    }
    void Run(const std::vector<SStep>& steps) {
        for (const SStep& step : steps) {
            SCOPED_TRACE(testing::Message() << "t=" << step.m_Time << " x=" << step.m_Level);
            EXPECT_EQ(m_Detector.AddLevel(step.m_Time, step.m_Level), step.m_Event);
            EXPECT_EQ(m_Detector.GetState(), step.m_State);
        }
    }
    CZorSoundDetector m_Detector;
};

constexpr auto kIdle = CZorSoundDetector::STATE_IDLE;
constexpr auto kPending = CZorSoundDetector::STATE_PENDING;
constexpr auto kDetected = CZorSoundDetector::STATE_DETECTED;
constexpr auto kNone = CZorSoundDetector::EVENT_NONE;
constexpr auto kStart = CZorSoundDetector::EVENT_START;
constexpr auto kEnd = CZorSoundDetector::EVENT_END;

TEST_F(SoundDetectorSteps, DebounceMustBeExceeded) {
    m_Detector.m_Debounce = 0.1;
    Run({{0.0, 50, kNone, kPending},
         {0.1, 50, kNone, kPending}, // 0.1 after the first loud sample: not more than debounce
         {0.15, 50, kStart, kDetected}});
    EXPECT_EQ(m_Detector.EventTime(), 0.15);
}

TEST_F(SoundDetectorSteps, LevelEqualToTheLimitIsNotAbove) {
    Run({{0.0, 10.0, kNone, kIdle}, {0.1, 10.000001, kNone, kPending}});
}

TEST_F(SoundDetectorSteps, QuietSampleAbandonsAPendingStart) {
    Run({{0.0, 50, kNone, kPending}, {0.05, 1, kNone, kIdle}, {0.2, 50, kNone, kPending}});
}

TEST_F(SoundDetectorSteps, QuietMustOutlastTheSeparationAfterTheLastLoudSample) {
    m_Detector.m_DetectSeparation = 1.0;
    Run({{0.0, 50, kNone, kPending},
         {0.25, 50, kStart, kDetected},
         {0.75, 50, kNone, kDetected}, // the last loud sample
         {1.25, 1, kNone, kDetected},
         {1.75, 1, kNone, kDetected}, // exactly the separation: not yet
         {1.875, 1, kEnd, kIdle}});
}

TEST(SoundDetector, MultiplierLimitFollowsTheBaseline) {
    CZorSoundDetector detector(0.0, 100.0);
    detector.m_BaselineSearchPeriod = 0.0; // every sample feeds the baseline
    detector.SetMultiplierThreshold(2.0);
    detector.AddLevel(0.0, 4.0);
    detector.AddLevel(0.1, 4.0);
    EXPECT_EQ(detector.Limit(), 8.0);
    // 31 + 4 + 4 = 39 over 3: baseline 13; 31 - 13 = 18 <= 2 x 13: not above
    detector.AddLevel(0.2, 31.0);
    EXPECT_EQ(detector.GetState(), CZorSoundDetector::STATE_IDLE);
    detector.AddLevel(0.3, 200.0); // (39 + 200) / 4 = 59.75; 200 - 59.75 > 119.5
    EXPECT_EQ(detector.GetState(), CZorSoundDetector::STATE_PENDING);
}

// The baseline takes the quietest sample of each search period, with its own time; the first
// sample seeds it at once.
TEST(SoundDetector, BaselineTakesTheQuietestSampleOfEachPeriod) {
    CZorSoundDetector detector(0.0, 100.0);
    detector.m_BaselineSearchPeriod = 1.0;
    detector.AddLevel(10.0, 50.0);
    EXPECT_EQ(detector.BaselineValue(), 50.0);
    double t = 10.25;
    for (double level : {30.0, 2.0, 40.0}) {
        detector.AddLevel(t, level);
        t += 0.25;
    }
    EXPECT_EQ(detector.BaselineValue(), 50.0); // the period is not over yet
    detector.AddLevel(11.0, 9.0);              // 1.0 after the start: the period closes
    EXPECT_EQ(detector.BaselineValue(), 26.0); // (50 + 2) / 2
    EXPECT_EQ(detector.m_PeakValue, 50.0);
}

// A stream whose first sample came from the clock and the next from its own time base: the step
// back is absorbed, so the state machine and baseline carry on instead of waiting hours.
TEST(SoundDetector, StepBackInTimeIsAbsorbed) {
    CZorSoundDetector detector(0.3, 30.0);
    detector.m_DetectSeparation = 0.5;
    detector.SetThreshold(10.0);
    detector.AddLevel(5000.0, 1.0); // the clock
    double t = 0.09;                // the stream
    for (int i = 0; i < 5; ++i, t += 0.09) {
        detector.AddLevel(t, 100.0);
    }
    EXPECT_EQ(detector.GetState(), CZorSoundDetector::STATE_DETECTED);
    EXPECT_NEAR(detector.EventTime(), t - 0.09, 1e-9);
    EEvent last = CZorSoundDetector::EVENT_NONE;
    for (int i = 0; i < 20 && last == CZorSoundDetector::EVENT_NONE; ++i, t += 0.09) {
        last = detector.AddLevel(t, 1.0);
    }
    EXPECT_EQ(last, CZorSoundDetector::EVENT_END);
    EXPECT_LT(t, 2.0);
}

} // namespace
