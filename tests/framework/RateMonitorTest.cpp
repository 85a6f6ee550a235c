#include "framework/kor/RateMonitor.h"

#include <gtest/gtest.h>

#include <climits>
#include <deque>
#include <random>

namespace {

// The reference: every sample kept, the mean taken over those whose bucket (counted from the
// first sample) lies within the newest window of buckets.
class CReferenceMean {
public:
    explicit CReferenceMean(long windowMs) : m_Buckets(std::max(1L, windowMs / 20)) {}
    void Add(long long position, long value) { m_Samples.push_back({position, value}); }
    double Mean() const {
        if (m_Samples.empty()) {
            return 0;
        }
        long long newest = 0;
        for (const auto& s : m_Samples) {
            newest = std::max(newest, s.first / 20);
        }
        double sum = 0;
        long count = 0;
        for (const auto& s : m_Samples) {
            if (newest - s.first / 20 < m_Buckets) {
                sum += s.second;
                ++count;
            }
        }
        return count ? sum / count : 0;
    }

private:
    long m_Buckets;
    std::deque<std::pair<long long, long>> m_Samples;
};

TEST(EffectiveRateMonitor, WindowReadsBackAsWholeBuckets) {
    CKorEffectiveRateMonitor monitor(1000, 1);
    EXPECT_EQ(monitor.GetWindow(), 1000);
    for (const auto& [given, read] : std::vector<std::pair<long, long>>{
             {1019, 1000}, {1020, 1020}, {5, 20}, {0, 20}, {99999999, 3600000}}) {
        monitor.SetWindow(given);
        EXPECT_EQ(monitor.GetWindow(), read) << given;
    }
}

TEST(EffectiveRateMonitor, MeanFollowsTheReferenceOverRandomTimes) {
    std::mt19937 random(7);
    CKorEffectiveRateMonitor monitor(500, 1);
    CReferenceMean reference(500);
    long long position = 0;
    long time = 123457;
    monitor.AddTimeSample(time, 5);
    reference.Add(0, 5);
    for (int i = 0; i < 5000; ++i) {
        const long step = static_cast<long>(random() % 90); // several samples per bucket, and gaps
        const long value = static_cast<long>(random() % 100);
        time += step;
        position += step;
        monitor.AddTimeSample(time, value);
        reference.Add(position, value);
        ASSERT_NEAR(monitor.Mean(), reference.Mean(), 1e-9) << "sample " << i;
    }
}

TEST(EffectiveRateMonitor, TimeWrapsAsThirtyTwoBits) {
    CKorEffectiveRateMonitor monitor(100, 1);
    monitor.AddTimeSample(INT_MAX - 10, 10);
    monitor.AddTimeSample(static_cast<long>(INT_MIN) + 9, 30); // 20 ms later
    EXPECT_EQ(monitor.Count(), 2);
    EXPECT_DOUBLE_EQ(monitor.Mean(), 20.0);
    monitor.AddTimeSample(static_cast<long>(INT_MIN) + 200, 0); // the window moved past both
    EXPECT_EQ(monitor.Count(), 1);
}

TEST(EffectiveRateMonitor, LateSamplesJoinTheirBucketOrAreDropped) {
    CKorEffectiveRateMonitor monitor(100, 1); // 5 buckets
    monitor.AddTimeSample(1000, 10);
    monitor.AddTimeSample(1200, 20);
    monitor.AddTimeSample(1150, 30); // inside the window
    monitor.AddTimeSample(1000, 99); // too old
    EXPECT_EQ(monitor.Count(), 2);
    EXPECT_EQ(monitor.Min(), 20);
    EXPECT_EQ(monitor.Max(), 30);
    EXPECT_EQ(monitor.Samples(), 3);
}

TEST(EffectiveRateMonitor, AdjustTimeCarriesTheWindowOverASkippedStretch) {
    CKorEffectiveRateMonitor skipped(1000, 1), fed(1000, 1);
    for (long t = 0; t < 1000; t += 40) {
        skipped.AddTimeSample(t, 7);
        fed.AddTimeSample(t, 7);
    }
    for (long t = 1000; t < 61000; t += 40) {
        fed.AddTimeSample(t, 7);
    }
    skipped.AdjustTime(60000); // a minute of the same level, not fed
    skipped.AddTimeSample(61000, 50);
    fed.AddTimeSample(61000, 50);
    EXPECT_DOUBLE_EQ(skipped.Mean(), fed.Mean());
    EXPECT_EQ(skipped.Count(), fed.Count());
}

TEST(EffectiveRateMonitor, ResizeKeepsTheNewestBucketsAndMinusOneClears) {
    CKorEffectiveRateMonitor monitor(1000, 1);
    for (long t = 0; t < 1000; t += 20) {
        monitor.AddTimeSample(t, t < 900 ? 0 : 100);
    }
    monitor.SetWindow(100); // the last five buckets: all 100
    EXPECT_DOUBLE_EQ(monitor.Mean(), 100.0);
    monitor.SetWindow(2000);
    EXPECT_EQ(monitor.Count(), 5);
    monitor.SetWindow(-1);
    EXPECT_EQ(monitor.Count(), 0);
    EXPECT_EQ(monitor.GetWindow(), 2000);
    EXPECT_DOUBLE_EQ(monitor.Mean(), 0.0);
}

} // namespace
