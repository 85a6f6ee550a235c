#include "framework/kor/RateMonitor.h"

#include "framework/bel/BelClock.h"

#include <algorithm>

CKorRateMonitor::CKorRateMonitor(long windowMs, long minSamples)
    : m_WindowMs(windowMs > 0 ? windowMs : 1), m_MinSamples(minSamples) {}

void CKorRateMonitor::Start() {
    Reset(BelGetTime());
    m_Running = true;
}

void CKorRateMonitor::Pause() {
    m_Running = false;
}

void CKorRateMonitor::Resume() {
    m_Running = true;
}

void CKorRateMonitor::Reset(long now) {
    m_Samples.clear();
    m_StartTime = now;
}

void CKorRateMonitor::AddSample(long value) {
    if (m_Running) {
        const long now = BelGetTime();
        // Keeps the store to the window's span even when nobody reads the rate.
        Expire(now);
        m_Samples.push_back(SSample{now, value});
    }
}

void CKorRateMonitor::Expire(long now) const {
    while (!m_Samples.empty() && now - m_Samples.front().m_Time > m_WindowMs) {
        m_Samples.pop_front();
    }
}

double CKorRateMonitor::Rate() const {
    const long now = BelGetTime();
    Expire(now);
    if (static_cast<long>(m_Samples.size()) < m_MinSamples) {
        return 0.0;
    }
    long sum = 0;
    for (const SSample& s : m_Samples) {
        sum += s.m_Value;
    }
    const long span = std::min(m_WindowMs, std::max(1L, now - m_StartTime));
    return static_cast<double>(sum) * 1000.0 / static_cast<double>(span);
}

CKorEffectiveRateMonitor::CKorEffectiveRateMonitor(long windowMs, long minSamples)
    : m_WindowMs(windowMs > 0 ? windowMs : 1), m_MinSamples(minSamples) {}

void CKorEffectiveRateMonitor::AddTimeSample(long timeStamp, long arrival) {
    ++m_Count;
    m_Samples.push_back(SSample{timeStamp, arrival});
    while (!m_Samples.empty() && arrival - m_Samples.front().m_Arrival > m_WindowMs) {
        m_Samples.pop_front();
    }
}

void CKorEffectiveRateMonitor::AdjustTime(long delta) {
    for (SSample& s : m_Samples) {
        s.m_Arrival += delta;
    }
}

long CKorEffectiveRateMonitor::Min() const {
    if (static_cast<long>(m_Samples.size()) < m_MinSamples || m_Samples.empty()) {
        return 0;
    }
    long lag = m_Samples.front().m_Arrival - m_Samples.front().m_TimeStamp;
    for (const SSample& s : m_Samples) {
        lag = std::min(lag, s.m_Arrival - s.m_TimeStamp);
    }
    return lag;
}

long CKorEffectiveRateMonitor::Max() const {
    if (static_cast<long>(m_Samples.size()) < m_MinSamples || m_Samples.empty()) {
        return 0;
    }
    long lag = m_Samples.front().m_Arrival - m_Samples.front().m_TimeStamp;
    for (const SSample& s : m_Samples) {
        lag = std::max(lag, s.m_Arrival - s.m_TimeStamp);
    }
    return lag;
}
