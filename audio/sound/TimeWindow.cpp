#include "audio/sound/TimeWindow.h"

namespace {

constexpr std::size_t kInitialCapacity = 16; // a power of two

} // namespace

CZorTimeWindow::CZorTimeWindow(double length) : m_Length(length), m_Ring(kInitialCapacity) {}

void CZorTimeWindow::Add(double time, double value) {
    const double oldest = time - m_Length;
    while (m_Count > 0 && At(0).m_Time < oldest) {
        m_Sum -= At(0).m_Value;
        m_Head = Slot(1);
        --m_Count;
        ++m_RemovedSinceRefresh;
    }
    if (m_Count == m_Ring.size()) {
        Grow();
    }
    m_Ring[Slot(m_Count)] = SEntry{time, value};
    ++m_Count;
    m_Sum += value;
    if (m_RemovedSinceRefresh >= m_Count) {
        RefreshSum();
    }
}

double CZorTimeWindow::Average() const {
    return m_Count == 0 ? 0.0 : m_Sum / static_cast<double>(m_Count);
}

double CZorTimeWindow::NewestTime() const {
    return m_Count == 0 ? 0.0 : At(m_Count - 1).m_Time;
}

void CZorTimeWindow::Shift(double delta) {
    for (std::size_t i = 0; i < m_Count; ++i) {
        m_Ring[Slot(i)].m_Time += delta;
    }
}

void CZorTimeWindow::Grow() {
    std::vector<SEntry> ring(m_Ring.size() * 2);
    for (std::size_t i = 0; i < m_Count; ++i) {
        ring[i] = At(i);
    }
    m_Ring.swap(ring);
    m_Head = 0;
}

void CZorTimeWindow::RefreshSum() {
    double sum = 0.0;
    for (std::size_t i = 0; i < m_Count; ++i) {
        sum += At(i).m_Value;
    }
    m_Sum = sum;
    m_RemovedSinceRefresh = 0;
}
