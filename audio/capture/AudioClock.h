// The capture clock: stamps each captured buffer and keeps the stamps in step with the system
// clock while the sound device's own clock drifts against it.
//
// The clock counts milliseconds. Each buffer is stamped with the clock's value before the
// buffer's duration is added, that is with the time of its first sample. After adding, the
// clock is compared with the system time at which the buffer was done ("now"):
//  - ahead of now: the correction becomes the (negative) difference at once, and the
//    observations start again;
//  - behind by at most kJumpLimit ms: the difference is observed; after kObservations buffers
//    the smallest difference seen becomes the correction (the smallest, because the time a
//    buffer is reported late only ever adds to the device's true lag);
//  - behind by more: the clock jumps to now (Step reports the jump).
// Then one millisecond of the correction is applied, so the stamps slew by at most 1 ms a
// buffer and never step except on a jump.
#pragma once

class CZorAudioClock {
public:
    static constexpr long kJumpLimit = 200;  // ms behind now beyond which the clock jumps
    static constexpr int kObservations = 11; // buffers observed before a correction is set
    static constexpr long kNoObservation = 1000000;

    struct SStep {
        double m_Stamp = 0.0;      // the buffer's stamp (ms): the clock before the buffer
        bool m_Jumped = false;     // the clock was too far behind and jumped to now
        long m_Difference = 0;     // now less the clock's integer part, before the jump
        long m_CorrectionLeft = 0; // milliseconds still to slew after this buffer
    };

    // Starts the clock at now (ms), with nothing observed and nothing to correct.
    void Reset(double now);
    // One buffer of milliseconds done at now (the system clock's ms). With correct false the
    // clock simply follows now.
    SStep Step(double milliseconds, long now, bool correct);

    double Value() const { return m_Clock; }
    long Correction() const { return m_Correction; }

private:
    double m_Clock = 0.0;
    long m_Correction = 0;
    long m_Smallest = kNoObservation;
    int m_Observations = 0;
};
