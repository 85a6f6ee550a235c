#include "analytics/motion/GvmdStateMachine.h"

#include "analytics/motion/MotionTime.h"

#include <cmath>

namespace zormotion {

namespace {

bool Unknown(double realTime) {
    return std::isnan(realTime) || realTime < 0;
}

} // namespace

CGvmdStateMachine::SEvent CGvmdStateMachine::Step(std::int32_t time, bool collision,
                                                  double realTime) {
    SEvent event;
    if (m_State == IDLE && m_ShortDelay > 0) {
        if (collision) {
            m_MotionTime = time;
            m_State = PENDING;
        }
        return event;
    }
    const std::int32_t since = Elapsed(m_MotionTime, time);
    if (!collision) {
        if (m_State == PENDING) {
            m_State = IDLE;
        } else if (m_State == COLLISION && since >= m_LongDelay) {
            m_State = IDLE;
            event.m_Happened = true;
            event.m_Collision = false;
            event.m_Time = Later(m_MotionTime, m_LongDelay);
            // The frame's real time, moved back by how far the frame came after the end.
            event.m_RealTime =
                Unknown(realTime)
                    ? -1.0
                    : realTime -
                          (static_cast<double>(since) - static_cast<double>(m_LongDelay)) / 1000.0;
        }
        return event;
    }
    if (m_State == COLLISION) {
        m_MotionTime = time;
        return event;
    }
    if (m_ShortDelay > 0 && since < m_ShortDelay) {
        return event;
    }
    m_MotionTime = time;
    m_State = COLLISION;
    event.m_Happened = true;
    event.m_Collision = true;
    event.m_Time = time;
    event.m_RealTime = Unknown(realTime) ? -1.0 : realTime;
    return event;
}

} // namespace zormotion
