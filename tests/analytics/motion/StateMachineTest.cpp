// The detectors' state machines alone, on tables of (time, value) rows: each row gives the time,
// the input and the event the row must cause.
#include "analytics/motion/GvmdStateMachine.h"
#include "analytics/motion/VmdStateMachine.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <vector>

namespace {

using zormotion::CGvmdStateMachine;
using zormotion::CVmdStateMachine;

struct SVmdRow {
    std::int32_t m_Time;
    double m_Deviation; // level - baseline
    CVmdStateMachine::EEvent m_Event;
};

struct SVmdCase {
    const char* m_Name;
    std::int32_t m_ShortDelay;
    std::int32_t m_HoldTime;
    std::vector<SVmdRow> m_Rows;
};

constexpr auto N = CVmdStateMachine::NONE;
constexpr auto S = CVmdStateMachine::START;
constexpr auto E = CVmdStateMachine::STOP;

class VmdStateMachine : public ::testing::TestWithParam<SVmdCase> {};

TEST_P(VmdStateMachine, CausesTheTabledEvents) {
    CVmdStateMachine detector;
    detector.m_Threshold = 3.0;
    detector.m_ShortDelay = GetParam().m_ShortDelay;
    detector.m_HoldTime = GetParam().m_HoldTime;
    for (const SVmdRow& row : GetParam().m_Rows) {
        EXPECT_EQ(detector.Step(row.m_Time, 10.0 + row.m_Deviation, 10.0), row.m_Event)
            << "at " << row.m_Time;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Tables, VmdStateMachine,
    ::testing::Values(
        SVmdCase{"ExactlyTheThresholdIsNotAbove",
                 0,
                 100,
                 {{0, 3.0, N}, {10, 3.0, N}, {1000, -3.0, N}, {2000, 3.0, N}}},
        SVmdCase{"OnsetWantsMoreThanTheShortDelay", 50, 10000, {{0, 4, N}, {50, 4, N}, {51, 4, S}}},
        SVmdCase{"ADropCountsAsARise", 0, 100, {{0, -3.5, N}, {1, -3.5, S}}},
        SVmdCase{"AQuietSampleInPendingStartsOver",
                 50,
                 100,
                 {{0, 4, N}, {40, 0, N}, {80, 4, N}, {120, 4, N}, {131, 4, S}}},
        SVmdCase{"ReleaseAtExactlyTheHoldTime",
                 0,
                 1000,
                 {{0, 4, N}, {10, 4, S}, {500, 4, N}, {1499, 0, N}, {1500, 0, E}, {1600, 0, N}}},
        SVmdCase{"AboveInMotionPushesTheReleaseOn",
                 0,
                 1000,
                 {{0, 4, N}, {10, 4, S}, {900, 4, N}, {1800, 0, N}, {1900, 0, E}}},
        SVmdCase{
            "NegativeHoldEndsOnTheFirstQuietSample", 0, -500, {{0, 4, N}, {1, 4, S}, {2, 0, E}}},
        SVmdCase{"NaNLevelsAreNeverAbove", 0, 100, {{0, NAN, N}, {1, NAN, N}}},
        SVmdCase{"DifferencesWrapAtThirtyTwoBits",
                 50,
                 100,
                 {{INT_MAX - 20, 4, N},
                  {INT_MIN + 30, 4, S},
                  {INT_MIN + 129, 0, N},
                  {INT_MIN + 130, 0, E}}}),
    [](const auto& info) { return info.param.m_Name; });

struct SGvmdRow {
    std::int32_t m_Time;
    bool m_Collision;
    double m_RealTime;
    // The event: 0 none, 1 start, 2 end; its time and real time.
    int m_Event;
    std::int32_t m_EventTime;
    double m_EventRealTime;
};

struct SGvmdCase {
    const char* m_Name;
    std::int32_t m_ShortDelay;
    std::int32_t m_LongDelay;
    std::vector<SGvmdRow> m_Rows;
};

class GvmdStateMachine : public ::testing::TestWithParam<SGvmdCase> {};

TEST_P(GvmdStateMachine, CausesTheTabledEvents) {
    CGvmdStateMachine detector;
    detector.m_ShortDelay = GetParam().m_ShortDelay;
    detector.m_LongDelay = GetParam().m_LongDelay;
    for (const SGvmdRow& row : GetParam().m_Rows) {
        const CGvmdStateMachine::SEvent event =
            detector.Step(row.m_Time, row.m_Collision, row.m_RealTime);
        const int kind = !event.m_Happened ? 0 : event.m_Collision ? 1 : 2;
        ASSERT_EQ(kind, row.m_Event) << "at " << row.m_Time;
        if (kind) {
            EXPECT_EQ(event.m_Time, row.m_EventTime) << "at " << row.m_Time;
            EXPECT_DOUBLE_EQ(event.m_RealTime, row.m_EventRealTime) << "at " << row.m_Time;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Tables, GvmdStateMachine,
    ::testing::Values(SGvmdCase{"ShortDelayZeroSignalsTheFirstCollision",
                                0,
                                1000,
                                {{40, true, 0.04, 1, 40, 0.04}}},
                      SGvmdCase{"OnsetAtExactlyTheShortDelay",
                                500,
                                1000,
                                {{0, true, 10.0, 0, 0, 0},
                                 {499, true, 10.499, 0, 0, 0},
                                 {500, true, 10.5, 1, 500, 10.5}}},
                      SGvmdCase{"AQuietFrameInPendingStartsOver",
                                500,
                                1000,
                                {{0, true, -1, 0, 0, 0},
                                 {400, false, -1, 0, 0, 0},
                                 {600, true, -1, 0, 0, 0},
                                 {1000, true, -1, 0, 0, 0},
                                 {1100, true, -1, 1, 1100, -1}}},
                      SGvmdCase{"EndIsReportedWhenTheLongDelayRanOut",
                                0,
                                2000,
                                {{0, true, 100.0, 1, 0, 100.0},
                                 {1000, true, 101.0, 0, 0, 0},
                                 {2999, false, 102.999, 0, 0, 0},
                                 {9000, false, 109.0, 2, 3000, 103.0}}},
                      SGvmdCase{"UnknownRealTimesStayUnknown",
                                0,
                                100,
                                {{0, true, NAN, 1, 0, -1.0}, {500, false, -5.0, 2, 100, -1.0}}},
                      SGvmdCase{"CollisionsWrapAtThirtyTwoBits",
                                0,
                                100,
                                {{INT_MAX - 10, true, -1, 1, INT_MAX - 10, -1},
                                 {INT_MIN + 200, false, -1, 2, INT_MIN + 89, -1}}}),
    [](const auto& info) { return info.param.m_Name; });

TEST(GvmdStateMachine, ResetKeepsTheMotionTime) {
    CGvmdStateMachine detector;
    detector.m_ShortDelay = 500;
    detector.Step(70, true, -1);
    detector.Reset();
    EXPECT_EQ(detector.GetState(), CGvmdStateMachine::IDLE);
    EXPECT_EQ(detector.GetMotionTime(), 70);
}

} // namespace
