// Rate monitors: CKorRateMonitor counts samples per second over a sliding window;
// CKorEffectiveRateMonitor measures the effective rate of timestamped samples against the clock.
// Times are framework-clock milliseconds.
#pragma once

#include <deque>

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

class CKorEffectiveRateMonitor {
public:
    CKorEffectiveRateMonitor(long windowMs, long minSamples);
    // A sample stamped timeStamp that arrived at arrival (both ms).
    void AddTimeSample(long timeStamp, long arrival);
    // Shifts every stored arrival by delta (after a clock jump).
    void AdjustTime(long delta);
    long Count() const { return m_Count; }
    long Samples() const { return static_cast<long>(m_Samples.size()); }
    // Smallest and largest lag (arrival minus timestamp) within the window.
    long Min() const;
    long Max() const;

private:
    struct SSample {
        long m_TimeStamp;
        long m_Arrival;
    };
    long m_WindowMs;
    long m_MinSamples;
    long m_Count = 0;
    std::deque<SSample> m_Samples;
};
