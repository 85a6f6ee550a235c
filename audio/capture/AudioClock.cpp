#include "audio/capture/AudioClock.h"

#include <algorithm>

void CZorAudioClock::Reset(double now) {
    m_Clock = now;
    m_Correction = 0;
    m_Smallest = kNoObservation;
    m_Observations = 0;
}

CZorAudioClock::SStep CZorAudioClock::Step(double milliseconds, long now, bool correct) {
    SStep step;
    step.m_Stamp = m_Clock;
    if (!correct) {
        m_Clock = static_cast<double>(now);
        return step;
    }
    m_Clock += milliseconds;
    const auto clock = static_cast<long>(m_Clock);
    step.m_Difference = now - clock;
    const double behind = static_cast<double>(now) - m_Clock;
    if (behind < 0) {
        m_Observations = 0;
        m_Smallest = kNoObservation;
        m_Correction = step.m_Difference;
    } else if (behind <= kJumpLimit) {
        m_Smallest = std::min(m_Smallest, step.m_Difference);
        if (++m_Observations == kObservations) {
            m_Correction = m_Smallest;
            m_Observations = 0;
            m_Smallest = kNoObservation;
        }
    } else {
        step.m_Jumped = true;
        m_Clock = static_cast<double>(now);
    }
    if (m_Correction >= 1) {
        --m_Correction;
        m_Clock += 1.0;
    } else if (m_Correction < 0) {
        ++m_Correction;
        m_Clock -= 1.0;
    }
    step.m_CorrectionLeft = m_Correction;
    return step;
}
