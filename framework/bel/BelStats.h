// CBelStats: running count, mean and extremes of a series of samples.
#pragma once

#include <limits>

class CBelStats {
public:
    void AddSample(double value) {
        ++m_Count;
        m_Sum += value;
        m_Min = value < m_Min ? value : m_Min;
        m_Max = value > m_Max ? value : m_Max;
    }
    void Reset() { *this = CBelStats(); }
    long NumSamples() const { return m_Count; }
    // 0 when there are no samples.
    double Mean() const { return m_Count ? m_Sum / static_cast<double>(m_Count) : 0.0; }
    double Min() const { return m_Count ? m_Min : 0.0; }
    double Max() const { return m_Count ? m_Max : 0.0; }

private:
    long m_Count = 0;
    double m_Sum = 0.0;
    double m_Min = std::numeric_limits<double>::infinity();
    double m_Max = -std::numeric_limits<double>::infinity();
};
