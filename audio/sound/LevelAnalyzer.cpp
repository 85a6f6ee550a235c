#include "audio/sound/LevelAnalyzer.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

constexpr double kLevelScale = 1.0 / 65536.0; // 1.52587890625e-5, exact
// Below this gain every product of a 16-bit sample fits 32 bits (32768 x 65535 < 2^31).
constexpr double kWideGainLimit = 65535.0;
constexpr double kMeterScalePeak = 80.0;
constexpr double kMeterQuietMean = 1.5;

} // namespace

CZorLevelAnalyzer::CZorLevelAnalyzer()
    : m_Kernels(ZorSampleKernels()), m_LevelWindow(kLevelWindow) {}

bool CZorLevelAnalyzer::IsRaising() const {
    return std::isfinite(m_MaximizeTo) && m_MaximizeTo > 0;
}

bool CZorLevelAnalyzer::Process(unsigned char* samples, std::size_t n, double samplesPerSecond,
                                double t, SZorLevelSample* sample) {
    if (n == 0) {
        return false;
    }
    const std::int32_t oldPeak = m_Peak;
    const SZorSampleStats stats = m_Kernels.m_Measure(samples, n);
    m_Peak = std::max(m_Peak, static_cast<std::int32_t>(stats.m_Peak));
    const double level =
        static_cast<double>(stats.m_SumOfSquares) / static_cast<double>(n) * kLevelScale;

    if (IsRaising()) {
        if (m_Peak <= oldPeak) {
            m_Countdown -= static_cast<double>(n) / samplesPerSecond;
        }
        if (m_Countdown < 0) {
            m_Countdown = 2 * samplesPerSecond;
            m_Peak = static_cast<std::int32_t>(m_Peak * kPeakDecay);
        }
        if (!(m_SuppressBelow > 0 && level < m_SuppressBelow)) {
            Raise(samples, n);
        }
    }

    if (!m_LevelWindow.IsEmpty() && t < m_LevelWindow.NewestTime()) {
        m_LevelWindow.Shift(t - m_LevelWindow.NewestTime());
    }
    m_LevelWindow.Add(t, level);
    sample->m_Time = t;
    sample->m_Level = level;
    return true;
}

void CZorLevelAnalyzer::Raise(unsigned char* samples, std::size_t n) const {
    ZorRaiseSamples(m_Kernels, samples, n, m_MaximizeTo / std::max<std::int32_t>(m_Peak, 1));
}

void ZorRaiseSamples(const SZorSampleKernels& kernels, unsigned char* samples, std::size_t n,
                     double gain) {
    if (gain < kWideGainLimit) {
        kernels.m_Scale(samples, n, gain);
        return;
    }
    for (std::size_t i = 0; i < n; ++i) {
        std::int16_t s;
        std::memcpy(&s, samples + 2 * i, sizeof s);
        const double product = std::trunc(s * gain);
        // An integer-valued double keeps its low 16 bits through fmod exactly.
        const double low = std::isfinite(product) ? std::fmod(product, 65536.0) : 0.0;
        const auto raised =
            static_cast<std::int16_t>(static_cast<std::uint16_t>(static_cast<std::int32_t>(low)));
        std::memcpy(samples + 2 * i, &raised, sizeof raised);
    }
}

int ZorGranuleLevel(const unsigned char* samples, std::size_t n) {
    if (n == 0) {
        return 0;
    }
    std::int64_t sum = 0;
    for (std::size_t i = 0; i < n; ++i) {
        // Little-endian: the second byte is the high one. The level scale runs 0..128.
        const auto high = static_cast<std::int8_t>(samples[2 * i + 1]);
        sum += high * high;
    }
    // The mean is an integer before its root: the meter's scale is defined so.
    const std::int64_t mean = sum / static_cast<std::int64_t>(n);
    return static_cast<int>(std::sqrt(static_cast<double>(mean)));
}

double ZorMeterLevel(double levelSum, double granuleCount, double peak) {
    const auto count = static_cast<long>(granuleCount);
    if (count == 0) {
        return 0.0;
    }
    const double mean = levelSum / static_cast<double>(count);
    if (mean <= kMeterQuietMean || peak >= kMeterScalePeak || peak <= 0) {
        return mean;
    }
    return kMeterScalePeak * mean / peak;
}
