// Sound detection quality on generated recordings with known truth, reported as precision,
// recall and F1 (counters) per signal-to-noise ratio: speech-like bursts of random length and
// loudness between pauses, over white noise steady or stepping up half way, six recordings of
// about 30 s for each ratio. The level analyzer and the detector run as the components run them
// (720-sample packets at 8 kHz) with the settings the speech examples use. A detected event is
// right when it starts between 0.1 s before and 0.5 s after a burst not matched before. The time
// is that of the analysis alone.
#include "audio/sound/LevelAnalyzer.h"
#include "audio/sound/SoundDetector.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace {

constexpr double kRate = 8000.0;
constexpr std::size_t kPacket = 720;
constexpr double kPi = 3.14159265358979323846;

struct SSpan {
    double m_Start;
    double m_Stop;
};

struct SRecording {
    std::vector<std::int16_t> m_Samples;
    std::vector<SSpan> m_Truth;
};

// About 30 s: a pause, then bursts of 0.4-3 s with pauses of 1.5-5 s. Bursts are three partials
// under a syllable-rate envelope, at -30 to -6 dBFS; the noise sits snrDb below the quietest
// burst level the recording can have, times 2 from half way when it steps.
SRecording Generate(unsigned seed, double snrDb, bool noiseSteps) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::normal_distribution<double> gauss(0.0, 1.0);
    SRecording recording;
    std::vector<double> clean(static_cast<std::size_t>(30 * kRate), 0.0);
    double t = 1.0 + 2.0 * unit(random);
    while (true) {
        const double length = 0.4 + 2.6 * unit(random);
        if (t + length > 28.0) {
            break;
        }
        const double peak = 32768.0 * std::pow(10.0, (-30.0 + 24.0 * unit(random)) / 20.0);
        const double pitch = 110.0 + 150.0 * unit(random);
        const double rate = 2.5 + 2.0 * unit(random);
        const auto first = static_cast<std::size_t>(t * kRate);
        const auto last = static_cast<std::size_t>((t + length) * kRate);
        for (std::size_t i = first; i < last; ++i) {
            const double u = static_cast<double>(i - first) / kRate;
            const double syllable = std::sin(kPi * rate * u);
            const double envelope = 0.15 + 0.85 * syllable * syllable;
            clean[i] = peak * envelope *
                       (0.6 * std::sin(2 * kPi * pitch * u) + 0.3 * std::sin(6 * kPi * pitch * u) +
                        0.1 * std::sin(11 * kPi * pitch * u));
        }
        recording.m_Truth.push_back({t, t + length});
        t += length + 1.5 + 3.5 * unit(random);
    }
    // RMS of the quietest possible burst: -30 dBFS peak, mean envelope power and partials.
    const double quietRms = 32768.0 * std::pow(10.0, -30.0 / 20.0) * 0.53;
    const double noiseRms = quietRms * std::pow(10.0, -snrDb / 20.0);
    recording.m_Samples.resize(clean.size());
    for (std::size_t i = 0; i < clean.size(); ++i) {
        const double scale = noiseSteps && i >= clean.size() / 2 ? 2.0 : 1.0;
        const double v = clean[i] + noiseRms * scale * gauss(random);
        recording.m_Samples[i] = static_cast<std::int16_t>(std::clamp(v, -32768.0, 32767.0));
    }
    return recording;
}

std::vector<SSpan> Detect(SRecording& recording) {
    CZorLevelAnalyzer analyzer;
    CZorSoundDetector detector(0.3, 20.0);
    detector.m_BaselineSearchPeriod = 3.0;
    detector.m_Debounce = 0.1;
    detector.m_DetectSeparation = 0.5;
    detector.SetMultiplierThreshold(8.0);
    std::vector<SSpan> spans;
    auto* bytes = reinterpret_cast<unsigned char*>(recording.m_Samples.data());
    for (std::size_t first = 0; first < recording.m_Samples.size(); first += kPacket) {
        const std::size_t n = std::min(kPacket, recording.m_Samples.size() - first);
        SZorLevelSample sample{};
        analyzer.Process(bytes + 2 * first, n, kRate, static_cast<double>(first) / kRate, &sample);
        switch (detector.AddLevel(sample.m_Time, sample.m_Level)) {
        case CZorSoundDetector::EVENT_START:
            spans.push_back({sample.m_Time, -1.0});
            break;
        case CZorSoundDetector::EVENT_END:
            spans.back().m_Stop = sample.m_Time;
            break;
        case CZorSoundDetector::EVENT_NONE:
            break;
        }
    }
    return spans;
}

struct SCounts {
    int m_Right = 0;
    int m_Detected = 0;
    int m_True = 0;
    double Precision() const { return m_Detected ? double(m_Right) / m_Detected : 1.0; }
    double Recall() const { return m_True ? double(m_Right) / m_True : 1.0; }
    double F1() const {
        const double p = Precision();
        const double r = Recall();
        return p + r > 0 ? 2 * p * r / (p + r) : 0.0;
    }
};

SCounts Score(const std::vector<SSpan>& detected, const std::vector<SSpan>& truth) {
    SCounts counts;
    counts.m_Detected = static_cast<int>(detected.size());
    counts.m_True = static_cast<int>(truth.size());
    std::vector<bool> used(truth.size(), false);
    for (const SSpan& span : detected) {
        for (std::size_t k = 0; k < truth.size(); ++k) {
            if (!used[k] && span.m_Start >= truth[k].m_Start - 0.1 &&
                span.m_Start <= truth[k].m_Start + 0.5) {
                used[k] = true;
                ++counts.m_Right;
                break;
            }
        }
    }
    return counts;
}

void BM_DetectorQuality(benchmark::State& state) {
    const auto snrDb = static_cast<double>(state.range(0));
    SCounts counts;
    for (auto _ : state) {
        counts = SCounts{};
        for (unsigned seed = 1; seed <= 3; ++seed) {
            for (bool steps : {false, true}) {
                state.PauseTiming();
                SRecording recording =
                    Generate(seed * 101 + static_cast<unsigned>(snrDb), snrDb, steps);
                state.ResumeTiming();
                const SCounts one = Score(Detect(recording), recording.m_Truth);
                counts.m_Right += one.m_Right;
                counts.m_Detected += one.m_Detected;
                counts.m_True += one.m_True;
            }
        }
    }
    state.counters["bursts"] = counts.m_True;
    state.counters["detected"] = counts.m_Detected;
    state.counters["precision"] = counts.Precision();
    state.counters["recall"] = counts.Recall();
    state.counters["F1"] = counts.F1();
}
BENCHMARK(BM_DetectorQuality)
    ->ArgName("snr_dB")
    ->Arg(30)
    ->Arg(20)
    ->Arg(12)
    ->Arg(6)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

} // namespace
