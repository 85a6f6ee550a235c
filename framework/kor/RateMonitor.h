// Rate monitors: CKorRateMonitor counts samples per second over a sliding window of the
// framework clock; CKorEffectiveRateMonitor averages timestamped values over a window of their own
// time.
#pragma once

#include <cstdint>
#include <deque>
#include <vector>

class CKorRateMonitor {
public:
    // windowMs: the span the rate is measured over; minSamples: samples needed before Rate
    // answers anything but 0.
    CKorRateMonitor(long windowMs, long minSamples);
    void Start();
    void Pause();
    void Resume();
    // Forgets every sample and restarts the window at time now.
    void Reset(long now);
    void AddSample(long value);
    // Sum of the values per second within the window.
    double Rate() const;

private:
    struct SSample {
        long m_Time;
        long m_Value;
    };
    void Expire(long now) const;

    long m_WindowMs;
    long m_MinSamples;
    bool m_Running = false;
    long m_StartTime = 0;
    mutable std::deque<SSample> m_Samples;
};

// CKorEffectiveRateMonitor: the mean of timestamped values over a sliding window of time, kept
// in 20 ms buckets so that a sample costs the same whatever the window: the window is a ring of
// bucket sums and the mean is one running sum over one running count.
//
// Times are 32-bit milliseconds; a sample's place is its signed 32-bit distance from the newest
// sample, so the clock may wrap. Buckets count from the first sample after a reset, not from
// time 0. A sample older than the window is dropped; one that is older than the newest but still
// inside the window joins its bucket.
class CKorEffectiveRateMonitor {
public:
    static constexpr long kBucketMs = 20;
    // The longest window a monitor keeps: one hour of buckets.
    static constexpr long kMaxWindowMs = 3600L * 1000L;

    // windowMs: see SetWindow. minSamples: samples the window must hold before Mean answers
    // anything but 0.
    CKorEffectiveRateMonitor(long windowMs, long minSamples);

    // A window of windowMs, truncated to whole buckets (at least one, at most kMaxWindowMs);
    // the newest samples that still fit stay. A negative value keeps the window and drops every
    // sample.
    void SetWindow(long windowMs);
    // The window in ms: bucket count x 20.
    long GetWindow() const { return m_BucketCount * kBucketMs; }
    long GetBucketCount() const { return m_BucketCount; }

    // One value at time (ms).
    void AddTimeSample(long time, long value);
    // Moves the clock on by delta ms without a sample: the stored buckets move with it, so the
    // window still holds them (a replay that skips a stretch of constant input uses this).
    void AdjustTime(long delta);

    // Samples within the window, and samples added since the last reset.
    long Count() const { return m_WindowCount; }
    long Samples() const { return m_TotalSamples; }
    // Smallest and largest value within the window (0 when it is empty).
    long Min() const;
    long Max() const;
    // The mean of the values within the window; 0 while it holds fewer than minSamples.
    double Mean() const {
        return m_WindowCount > 0 && m_WindowCount >= m_MinSamples
                   ? static_cast<double>(m_WindowSum) / static_cast<double>(m_WindowCount)
                   : 0.0;
    }

private:
    struct SBucket {
        long long m_Sum;
        int m_Count;
        int m_Min;
        int m_Max;
    };
    void Clear();
    void AddToBucket(SBucket& bucket, long value);
    // Drops the buckets between the head and the bucket steps ahead, and makes that the head.
    void MoveHead(long long steps);

    long m_BucketCount = 1;
    long m_MinSamples;
    std::vector<SBucket> m_Ring;
    long m_Head = 0;             // ring index of the newest bucket
    long long m_HeadBucket = 0;  // its number, counted from the first sample
    long long m_Position = 0;    // ms from the first sample to the newest one
    std::int32_t m_LastTime = 0; // the newest sample's time
    bool m_Empty = true;
    long long m_WindowSum = 0;
    long m_WindowCount = 0;
    long m_TotalSamples = 0;
};
