#include "audio/sound/SoundDetector.h"

CZorSoundDetector::CZorSoundDetector(double detectionWindow, double baselineWindow)
    : m_Detection(detectionWindow), m_Baseline(baselineWindow) {}

void CZorSoundDetector::SetThreshold(double value) {
    m_Threshold = value;
    m_Multiplier = false;
}

void CZorSoundDetector::SetMultiplierThreshold(double value) {
    m_Threshold = value;
    m_Multiplier = true;
}

bool CZorSoundDetector::GetThreshold(double* value) const {
    if (m_Multiplier) {
        return false;
    }
    *value = m_Threshold;
    return true;
}

bool CZorSoundDetector::GetMultiplierThreshold(double* value) const {
    if (!m_Multiplier) {
        return false;
    }
    *value = m_Threshold;
    return true;
}

double CZorSoundDetector::Limit() const {
    return m_Multiplier ? BaselineValue() * m_Threshold : m_Threshold;
}

void CZorSoundDetector::Shift(double delta) {
    m_Detection.Shift(delta);
    m_Baseline.Shift(delta);
    m_EventTime += delta;
    m_SearchStart += delta;
    m_LowestTime += delta;
}

void CZorSoundDetector::FeedBaseline(double t, double x) {
    if (!m_SearchStarted) {
        // Starting one period back makes the first sample complete a period: it seeds the
        // baseline at once.
        m_SearchStart = t - m_BaselineSearchPeriod;
        m_SearchStarted = true;
    }
    if (!(m_BaselineSearchPeriod > 0)) {
        m_Baseline.Add(t, x);
        return;
    }
    if (x < m_LowestValue) {
        m_LowestTime = t;
        m_LowestValue = x;
    }
    if (t - m_SearchStart >= m_BaselineSearchPeriod) {
        m_SearchStart = t;
        m_Baseline.Add(m_LowestTime, m_LowestValue);
        m_LowestValue = std::numeric_limits<double>::max();
    }
}

CZorSoundDetector::EEvent CZorSoundDetector::AddLevel(double t, double x) {
    if (!m_Detection.IsEmpty() && t < m_Detection.NewestTime()) {
        Shift(t - m_Detection.NewestTime());
    }
    m_Detection.Add(t, x);
    if (x > m_PeakValue) {
        m_PeakValue = x;
    }
    FeedBaseline(t, x);
    const bool above = DetectionValue() - BaselineValue() > Limit();

    switch (m_State) {
    case STATE_IDLE:
        if (above) {
            m_EventTime = t;
            m_State = STATE_PENDING;
        }
        return EVENT_NONE;
    case STATE_PENDING:
        if (!above) {
            m_State = STATE_IDLE;
        } else if (t - m_EventTime > m_Debounce) {
            m_EventTime = t;
            m_State = STATE_DETECTED;
            return EVENT_START;
        }
        return EVENT_NONE;
    case STATE_DETECTED:
        if (above) {
            m_EventTime = t;
        } else if (t - m_EventTime > m_DetectSeparation) {
            m_State = STATE_IDLE;
            return EVENT_END;
        }
        return EVENT_NONE;
    }
    return EVENT_NONE;
}
