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

namespace {

std::int32_t Wrapped(long time) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(time));
}

// b - a in 32-bit signed arithmetic: the clock may wrap.
std::int32_t Distance(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(b) - static_cast<std::uint32_t>(a));
}

long long FloorDiv(long long value, long long divisor) {
    long long quotient = value / divisor;
    if (value % divisor != 0 && value < 0) {
        --quotient;
    }
    return quotient;
}

} // namespace

CKorEffectiveRateMonitor::CKorEffectiveRateMonitor(long windowMs, long minSamples)
    : m_MinSamples(minSamples) {
    SetWindow(windowMs < 0 ? 0 : windowMs);
}

void CKorEffectiveRateMonitor::Clear() {
    std::fill(m_Ring.begin(), m_Ring.end(), SBucket{});
    m_Head = 0;
    m_HeadBucket = 0;
    m_Position = 0;
    m_Empty = true;
    m_WindowSum = 0;
    m_WindowCount = 0;
    m_TotalSamples = 0;
}

void CKorEffectiveRateMonitor::SetWindow(long windowMs) {
    if (windowMs < 0) {
        Clear();
        return;
    }
    const long buckets =
        std::clamp(std::min(windowMs, kMaxWindowMs) / kBucketMs, 1L, kMaxWindowMs / kBucketMs);
    if (buckets == m_BucketCount && !m_Ring.empty()) {
        return;
    }
    // Keep the newest buckets that fit, oldest first, with the head last.
    std::vector<SBucket> ring(static_cast<size_t>(buckets), SBucket{});
    const long kept = m_Ring.empty() ? 0 : std::min(buckets, m_BucketCount);
    m_WindowSum = 0;
    m_WindowCount = 0;
    for (long i = 0; i < kept; ++i) {
        const long from = (m_Head - i + m_BucketCount) % m_BucketCount;
        const SBucket& bucket = m_Ring[static_cast<size_t>(from)];
        ring[static_cast<size_t>(buckets - 1 - i)] = bucket;
        m_WindowSum += bucket.m_Sum;
        m_WindowCount += bucket.m_Count;
    }
    m_Ring.swap(ring);
    m_BucketCount = buckets;
    m_Head = buckets - 1;
}

void CKorEffectiveRateMonitor::AddToBucket(SBucket& bucket, long value) {
    const int v = static_cast<int>(value);
    if (bucket.m_Count == 0) {
        bucket.m_Min = v;
        bucket.m_Max = v;
    } else {
        bucket.m_Min = std::min(bucket.m_Min, v);
        bucket.m_Max = std::max(bucket.m_Max, v);
    }
    bucket.m_Sum += v;
    ++bucket.m_Count;
    m_WindowSum += v;
    ++m_WindowCount;
    ++m_TotalSamples;
}

void CKorEffectiveRateMonitor::MoveHead(long long steps) {
    if (steps >= m_BucketCount) {
        std::fill(m_Ring.begin(), m_Ring.end(), SBucket{});
        m_WindowSum = 0;
        m_WindowCount = 0;
        m_Head = 0;
    } else {
        for (long long i = 0; i < steps; ++i) {
            if (++m_Head == m_BucketCount) {
                m_Head = 0;
            }
            SBucket& bucket = m_Ring[static_cast<size_t>(m_Head)];
            m_WindowSum -= bucket.m_Sum;
            m_WindowCount -= bucket.m_Count;
            bucket = SBucket{};
        }
    }
    m_HeadBucket += steps;
}

void CKorEffectiveRateMonitor::AddTimeSample(long time, long value) {
    const std::int32_t now = Wrapped(time);
    if (m_Empty) {
        m_Empty = false;
        m_LastTime = now;
        AddToBucket(m_Ring[static_cast<size_t>(m_Head)], value);
        return;
    }
    const std::int32_t distance = Distance(m_LastTime, now);
    if (distance >= 0) {
        m_Position += distance;
        m_LastTime = now;
        const long long steps = FloorDiv(m_Position, kBucketMs) - m_HeadBucket;
        if (steps > 0) {
            MoveHead(steps);
        }
        AddToBucket(m_Ring[static_cast<size_t>(m_Head)], value);
        return;
    }
    // Older than the newest sample: its bucket, if the window still has it.
    const long long back = m_HeadBucket - FloorDiv(m_Position + distance, kBucketMs);
    if (back < m_BucketCount) {
        const long index = static_cast<long>((m_Head - back + m_BucketCount) % m_BucketCount);
        AddToBucket(m_Ring[static_cast<size_t>(index)], value);
    }
}

void CKorEffectiveRateMonitor::AdjustTime(long delta) {
    if (!m_Empty) {
        // The buckets keep their places relative to the newest sample, which moves with the
        // clock: the next sample's distance leaves the skipped stretch out.
        m_LastTime = static_cast<std::int32_t>(static_cast<std::uint32_t>(m_LastTime) +
                                               static_cast<std::uint32_t>(delta));
    }
}

long CKorEffectiveRateMonitor::Min() const {
    bool any = false;
    int low = 0;
    for (const SBucket& bucket : m_Ring) {
        if (bucket.m_Count > 0) {
            low = any ? std::min(low, bucket.m_Min) : bucket.m_Min;
            any = true;
        }
    }
    return low;
}

long CKorEffectiveRateMonitor::Max() const {
    bool any = false;
    int high = 0;
    for (const SBucket& bucket : m_Ring) {
        if (bucket.m_Count > 0) {
            high = any ? std::max(high, bucket.m_Max) : bucket.m_Max;
            any = true;
        }
    }
    return high;
}
