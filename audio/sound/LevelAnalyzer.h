// Level and gain arithmetic of the audio analyzers, on blocks of signed 16-bit samples.
//
// CZorLevelAnalyzer measures each block's level (mean square / 65536, so full-scale square waves
// read 16384), keeps the average of the last half second of levels, tracks the stream's peak,
// and can raise quiet audio towards a target peak:
//  - the level is measured before any raising;
//  - the peak is the largest absolute sample seen; while raising is on, it decays by 5% when a
//    countdown runs out, and the countdown is then reloaded with twice the sample rate taken as
//    seconds, so after the first decay the peak only decays again after that long without a new
//    peak (deliberate: raised streams keep the gain they had in earlier releases);
//  - raised samples are the integer part (toward zero) of sample x target / peak, wrapped to 16
//    bits rather than saturated (deliberate, for the same reason); a peak decayed below the
//    block's samples can therefore wrap loud samples;
//  - blocks whose level is below a suppression level are not raised (the peak is still tracked).
// Decisions where the arithmetic has no answer: an empty block measures nothing; a peak of 0
// (silence, or a peak of 1 decayed to 0) raises as a peak of 1 would, so zeros stay zeros and
// nothing divides by zero; a target that is not a finite number turns raising off.
#pragma once

#include "audio/sound/SampleKernels.h"
#include "audio/sound/TimeWindow.h"

#include <cstddef>
#include <cstdint>

struct SZorLevelSample {
    double m_Time;  // seconds
    double m_Level; // mean square / 65536
};

class CZorLevelAnalyzer {
public:
    static constexpr double kLevelWindow = 0.5; // seconds averaged by Level()
    static constexpr double kPeakDecay = 0.95;

    CZorLevelAnalyzer();

    // Measures (and, when asked, raises) n samples at time t in seconds, of a stream at
    // samplesPerSecond (> 0). Answers false for an empty block (nothing is measured or changed).
    // A time earlier than the last one moves the level window's past onto the new time base.
    bool Process(unsigned char* samples, std::size_t n, double samplesPerSecond, double t,
                 SZorLevelSample* sample);
    // Average of the levels of the last half second; 0.0 before any.
    double Level() const { return m_LevelWindow.Average(); }
    std::int32_t Peak() const { return m_Peak; }
    double Countdown() const { return m_Countdown; }
    bool IsRaising() const;

    // Raising target (a peak value; 0 or less turns raising off) and suppression level.
    double m_MaximizeTo = 0.0;
    double m_SuppressBelow = 0.0;

private:
    void Raise(unsigned char* samples, std::size_t n) const;

    const SZorSampleKernels& m_Kernels;
    CZorTimeWindow m_LevelWindow;
    std::int32_t m_Peak = 0;
    double m_Countdown = 0.0;
};

// Raises n samples by gain (> 0) as the analyzer does, for any gain: products beyond 32 bits
// still keep their low 16 bits, and a product too large to be finite gives 0 (every double at
// or beyond 2^69 is a multiple of 65536).
void ZorRaiseSamples(const SZorSampleKernels& kernels, unsigned char* samples, std::size_t n,
                     double gain);

// The older meter's granule level: the signed high byte of each of n samples (-128..127), the
// integer sum of their squares divided by n (integer division), its square root truncated.
// Answers 0 for n == 0.
int ZorGranuleLevel(const unsigned char* samples, std::size_t n);

// The older meter's reading from the granule levels' sum and count over the recent span: their
// mean, shown scaled up to a peak of 80 when the recent peak is below 80 (and the mean above 1.5).
// Answers 0.0 when the count's integer part is 0.
double ZorMeterLevel(double levelSum, double granuleCount, double peak);
