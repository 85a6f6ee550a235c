// The onset and release rule of motion detection on encoder levels, on its own: fed the
// current level and the baseline at each sample time, it says when motion starts and stops.
//
//   Idle    --above-->                              Pending (candidate = t)
//   Pending --above, t - candidate >  shortDelay--> Motion  (start; candidate = t)
//   Pending --not above-->                          Idle
//   Motion  --above-->                              Motion  (candidate = t)
//   Motion  --not above, t - candidate >= hold -->  Idle    (stop)
//
// "Above" is |level - baseline| > threshold: a drop below the baseline counts as a rise does, and
// a deviation of exactly the threshold is not above. Onset wants strictly more than the short
// delay, release at least the hold time: the two comparisons differ on purpose. Times are 32-bit
// ms and their differences wrap.
#pragma once

#include <cstdint>

namespace zormotion {

class CVmdStateMachine {
public:
    enum EState : std::int32_t { IDLE = 0, PENDING = 1, MOTION = 2 };
    enum EEvent { NONE, START, STOP };

    // One sample. Answers the event it caused.
    EEvent Step(std::int32_t time, double level, double baseline);
    void Reset() { m_State = IDLE; }

    EState GetState() const { return m_State; }
    std::int32_t GetCandidateTime() const { return m_CandidateTime; }

    double m_Threshold = 3.0;
    std::int32_t m_ShortDelay = 50;  // whole ms
    std::int32_t m_HoldTime = 10000; // whole ms; may be negative (then any quiet sample ends)

private:
    EState m_State = IDLE;
    std::int32_t m_CandidateTime = 0;
};

} // namespace zormotion
