#include "analytics/motion/VmdStateMachine.h"

#include "analytics/motion/MotionTime.h"

#include <cmath>

namespace zormotion {

CVmdStateMachine::EEvent CVmdStateMachine::Step(std::int32_t time, double level, double baseline) {
    const bool above = std::fabs(level - baseline) > m_Threshold;
    switch (m_State) {
    case IDLE:
        if (above) {
            m_CandidateTime = time;
            m_State = PENDING;
        }
        return NONE;
    case PENDING:
        if (!above) {
            m_State = IDLE;
            return NONE;
        }
        if (Elapsed(m_CandidateTime, time) <= m_ShortDelay) {
            return NONE;
        }
        m_State = MOTION;
        m_CandidateTime = time;
        return START;
    case MOTION:
        if (above) {
            m_CandidateTime = time;
            return NONE;
        }
        if (Elapsed(m_CandidateTime, time) >= m_HoldTime) {
            m_State = IDLE;
            return STOP;
        }
        return NONE;
    }
    return NONE;
}

} // namespace zormotion
