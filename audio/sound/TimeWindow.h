// CZorTimeWindow: the (time, value) entries of the last `length` seconds and their average.
//
// Adding (t, x) first drops from the old end every entry whose time is strictly less than
// t - length, then appends. Entries leave from the old end only, so each is added and removed
// once; the store is a ring that grows when full and never shrinks, so a window in steady state
// allocates nothing.
//
// The running sum is rebuilt from the entries once per turnover of the window (after as many
// removals as there are entries), so rounding cannot build up over a long stream: a window that
// has held only zeros for a whole turnover averages exactly 0.
#pragma once

#include <cstddef>
#include <vector>

class CZorTimeWindow {
public:
    // length in seconds; the entries kept span at most that much time.
    explicit CZorTimeWindow(double length);

    // Times are expected not to decrease; see Shift for a time base that steps back.
    void Add(double time, double value);
    // sum / count, and 0.0 when empty.
    double Average() const;
    std::size_t Count() const { return m_Count; }
    bool IsEmpty() const { return m_Count == 0; }
    double Length() const { return m_Length; }
    // Time of the newest entry (0.0 when empty).
    double NewestTime() const;
    // Moves every stored time by delta seconds, keeping the values and their spacing.
    void Shift(double delta);

private:
    struct SEntry {
        double m_Time;
        double m_Value;
    };
    // The ring's size is a power of two, so positions wrap with a mask.
    std::size_t Slot(std::size_t index) const { return (m_Head + index) & (m_Ring.size() - 1); }
    const SEntry& At(std::size_t index) const { return m_Ring[Slot(index)]; }
    void Grow();
    void RefreshSum();

    double m_Length;
    std::vector<SEntry> m_Ring;
    std::size_t m_Head = 0;
    std::size_t m_Count = 0;
    double m_Sum = 0.0;
    std::size_t m_RemovedSinceRefresh = 0;
};
