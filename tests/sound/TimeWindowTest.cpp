#include "audio/sound/TimeWindow.h"

#include <gtest/gtest.h>

namespace {

TEST(TimeWindow, KeepsEntriesExactlyOneLengthOld) {
    CZorTimeWindow window(0.5);
    EXPECT_EQ(window.Average(), 0.0);
    window.Add(1.0, 2.0);
    window.Add(1.5, 4.0); // 1.0 is not strictly before 1.5 - 0.5: it stays
    EXPECT_EQ(window.Count(), 2u);
    EXPECT_EQ(window.Average(), 3.0);
    window.Add(1.5000001, 6.0); // now it goes
    EXPECT_EQ(window.Count(), 2u);
    EXPECT_EQ(window.Average(), 5.0);
}

TEST(TimeWindow, GrowsAcrossTheRingsWrapInOrder) {
    CZorTimeWindow window(10.0);
    for (int i = 0; i < 10; ++i) {
        window.Add(i, 1.0); // the ring's head moves on
    }
    for (int i = 10; i < 100; ++i) {
        window.Add(i * 0.01 + 9.0, static_cast<double>(i)); // outgrows the ring while wrapped
    }
    EXPECT_EQ(window.Count(), 100u);
    window.Add(20.0, 0.0); // everything up to 10.0 leaves, from the old end only
    EXPECT_EQ(window.Count(), 1u);
    EXPECT_EQ(window.NewestTime(), 20.0);
}

// A loud entry leaving a window of quiet ones must not leave rounding behind: once a whole
// window has turned over, silence averages exactly 0.
TEST(TimeWindow, SilenceAfterLoudnessAveragesExactlyZero) {
    CZorTimeWindow window(0.3);
    double t = 0.0;
    for (double level : {16384.0, 0.1, 1e-7, 3333.3, 0.7}) {
        window.Add(t, level);
        t += 0.09;
    }
    for (int i = 0; i < 12; ++i, t += 0.09) {
        window.Add(t, 0.0);
    }
    EXPECT_EQ(window.Average(), 0.0);
}

} // namespace
