// CZorSoundDetector: decides from a stream of level samples when a sound event starts and ends.
//
// Each sample (t, x) goes into a short detection window. The baseline window is fed with the
// quietest sample of every baseline search period (or with every sample when the period is 0 or
// less), so the baseline follows the background and not the events. A sample is above when
// detection average - baseline average > limit (strictly), where the limit is the threshold
// itself (absolute mode) or the baseline times it (multiplier mode). The states:
//
//   Idle     --above-->                               Pending (event time = t)
//   Pending  --above, t - event time > debounce-->     Detected (event time = t; START)
//   Pending  --not above-->                            Idle (the start is abandoned)
//   Detected --above-->                                Detected (event time = t, the last loud)
//   Detected --not above, t - event time > separation-> Idle (END)
//
// A sample earlier than the one before it (a source that restarted its clock, or a first packet
// stamped from the clock and the next from the stream) moves every stored time by the step, so
// the detector carries on as if the two samples had been consecutive: windows, baseline search
// and an event in progress keep their meaning instead of waiting for time to catch up.
#pragma once

#include "audio/sound/TimeWindow.h"

#include <limits>

class CZorSoundDetector {
public:
    enum EState { STATE_IDLE, STATE_PENDING, STATE_DETECTED };
    enum EEvent { EVENT_NONE, EVENT_START, EVENT_END };

    // Window lengths in seconds.
    CZorSoundDetector(double detectionWindow, double baselineWindow);

    // One level sample; answers the event it caused, whose time is t.
    EEvent AddLevel(double t, double x);

    // Absolute and multiplier thresholds share one value; writing either selects its mode, and
    // reading the one not selected answers false.
    void SetThreshold(double value);
    void SetMultiplierThreshold(double value);
    bool GetThreshold(double* value) const;
    bool GetMultiplierThreshold(double* value) const;
    bool IsMultiplierMode() const { return m_Multiplier; }

    double DetectionValue() const { return m_Detection.Average(); }
    double BaselineValue() const { return m_Baseline.Average(); }
    // The threshold the difference must exceed at the last sample.
    double Limit() const;
    EState GetState() const { return m_State; }
    double EventTime() const { return m_EventTime; }

    // Settings read at every sample (seconds, except the peak, a level).
    double m_Debounce = 0.1;
    double m_DetectSeparation = 10.0;
    double m_BaselineSearchPeriod = 2.0;
    double m_PeakValue = 0.0; // largest level seen; never decays

private:
    void FeedBaseline(double t, double x);
    void Shift(double delta);

    CZorTimeWindow m_Detection;
    CZorTimeWindow m_Baseline;
    double m_Threshold = 0.0;
    bool m_Multiplier = false;
    EState m_State = STATE_IDLE;
    double m_EventTime = 0.0;
    bool m_SearchStarted = false;
    double m_SearchStart = 0.0;
    double m_LowestTime = 0.0;
    double m_LowestValue = std::numeric_limits<double>::max();
};
