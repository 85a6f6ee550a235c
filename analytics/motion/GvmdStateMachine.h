// The debounce of collisions between reported boxes and a mask, on its own: fed "collision or
// not" per frame, it says when a collision starts and when it ended.
//
//   0 idle, 1 pending (first colliding frame seen, short delay running), 2 collision.
//   - With a short delay above 0, a colliding frame in idle starts pending at its time.
//   - A colliding frame at least the short delay after the pending start (or any colliding frame
//     when the short delay is 0 or less) starts a collision at its own time.
//   - Colliding frames in collision push the collision's last time on.
//   - A quiet frame in pending goes back to idle; in collision, once at least the long delay has
//     passed since the last colliding frame, the collision ends - reported at last colliding
//     time + long delay, the moment the delay ran out, not at the quiet frame's time.
// Both delays are inclusive here (unlike the strict onset of level-based detection). A real time
// (seconds, negative or NaN for none) travels with each event and is moved back to the reported
// moment for the end. Times are 32-bit ms and their differences wrap.
#pragma once

#include <cstdint>

namespace zormotion {

class CGvmdStateMachine {
public:
    enum EState : std::int32_t { IDLE = 0, PENDING = 1, COLLISION = 2 };
    struct SEvent {
        bool m_Happened = false;
        bool m_Collision = false; // start (true) or end (false)
        std::int32_t m_Time = 0;
        double m_RealTime = -1.0; // -1 when unknown
    };

    SEvent Step(std::int32_t time, bool collision, double realTime);
    // Back to idle; the motion time stays.
    void Reset() { m_State = IDLE; }

    EState GetState() const { return m_State; }
    std::int32_t GetMotionTime() const { return m_MotionTime; }

    std::int32_t m_ShortDelay = 0;
    std::int32_t m_LongDelay = 15000;

private:
    EState m_State = IDLE;
    std::int32_t m_MotionTime = 0;
};

} // namespace zormotion
