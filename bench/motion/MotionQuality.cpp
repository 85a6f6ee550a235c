// Detector quality on generated scenes with known truth, printed as a table.
//
// Levels: two hours at 10 frames a second of an encoder-like motion level - a scene level that
// drifts with the light, frame noise, single-frame glitches (compression bursts at key frames)
// and 60 episodes of motion of random strength (+4 to +30) and length (1 to 20 s). Truth is the
// episodes. The level filter runs with its defaults.
//
// Boxes: two hours of objects crossing a 352 x 240 frame on random paths, with a tracker that
// loses 15 % of frames and jitters by 2 pixels; the mask is the left third of the frame. Truth is
// the stretches where an object covers at least the minimum overlap of the mask.
//
// An episode counts as found when a detected interval overlaps it; a detected interval is right
// when it overlaps an episode. Precision = right detections / detections, recall = found
// episodes / episodes, F1 their harmonic mean.
//
//     build/bench/motion/zor_motion_quality

#include "analytics/motion/GVMDSettings.h"
#include "analytics/motion/VMDFilter.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

namespace {

using Spans = std::vector<std::pair<double, double>>;

struct SScore {
    double m_Precision, m_Recall, m_F1;
};

SScore Score(const Spans& truth, const Spans& found) {
    const auto overlaps = [](const std::pair<double, double>& a,
                             const std::pair<double, double>& b) {
        return a.first < b.second && b.first < a.second;
    };
    int right = 0;
    for (const auto& f : found) {
        right +=
            std::any_of(truth.begin(), truth.end(), [&](const auto& t) { return overlaps(f, t); });
    }
    int hit = 0;
    for (const auto& t : truth) {
        hit +=
            std::any_of(found.begin(), found.end(), [&](const auto& f) { return overlaps(f, t); });
    }
    const double p = found.empty() ? 1.0 : double(right) / double(found.size());
    const double r = truth.empty() ? 1.0 : double(hit) / double(truth.size());
    return {p, r, p + r > 0 ? 2 * p * r / (p + r) : 0};
}

class CLevelRecorder : public CVMDFilter {
public:
    void SignalMotion(long time, bool motion) override {
        if (motion) {
            m_Found.emplace_back(double(time), 1e18);
        } else if (!m_Found.empty()) {
            m_Found.back().second = double(time);
        }
    }
    Spans m_Found;
};

class CBoxRecorder : public CZorGVMDSettings {
public:
    void SignalCollision(long time, bool collision, double) override {
        if (collision) {
            m_Found.emplace_back(double(time), 1e18);
        } else if (!m_Found.empty()) {
            m_Found.back().second = double(time);
        }
    }
    Spans m_Found;
};

constexpr int kFrameMs = 100;
constexpr int kFrames = 2 * 3600 * 10;

void Levels(unsigned seed) {
    std::mt19937 random(seed);
    std::normal_distribution<double> noise(0.0, 1.2);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    Spans truth;
    std::vector<double> strength;
    for (int e = 0; e < 60; ++e) {
        const double start = (e + 0.2 + 0.5 * unit(random)) * (kFrames * kFrameMs / 60.0);
        truth.emplace_back(start, start + 1000 + 19000 * unit(random));
        strength.push_back(4 + 26 * unit(random));
    }
    auto* filter = new CLevelRecorder;
    for (int i = 0; i < kFrames; ++i) {
        const double t = i * kFrameMs;
        double level =
            12 + 4 * std::sin(t / 1.8e6) + noise(random); // light drifts over half an hour
        for (size_t e = 0; e < truth.size(); ++e) {
            if (t >= truth[e].first && t < truth[e].second) {
                level += strength[e];
            }
        }
        if (i % 20 == 0 && unit(random) < 0.3) {
            level += 15; // a key frame's glitch
        }
        filter->ProcessVMDLevel(static_cast<long>(t), std::max(0L, std::lround(level)));
    }
    const SScore s = Score(truth, filter->m_Found);
    std::printf("levels  seed %-3u  %3zu episodes  %3zu detections  precision %.2f  recall %.2f  "
                "F1 %.2f\n",
                seed, truth.size(), filter->m_Found.size(), s.m_Precision, s.m_Recall, s.m_F1);
    filter->Release();
}

void Boxes(unsigned seed, long longDelay) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    CBoxRecorder detector;
    CBelString mask = "M1:0,0,117,240";
    detector.PackedMaskHandler(&mask, 1);
    detector.SetSensitivity(0.99); // 844 px
    detector.LongDelay(longDelay, 1);
    Spans truth;
    bool inside = false;
    // One object at a time crosses the frame in 5 to 20 s, with pauses between objects.
    double x = 0, y = 0, vx = 0, vy = 0, nextStart = 0, endOfCrossing = -1;
    for (int i = 0; i < kFrames; ++i) {
        const double t = i * kFrameMs;
        if (t >= endOfCrossing && t >= nextStart) {
            const double seconds = 5 + 15 * unit(random);
            x = unit(random) < 0.5 ? -40 : 352;
            y = 20 + 180 * unit(random);
            vx = (x < 0 ? 392.0 : -392.0) / (seconds * 10);
            vy = (unit(random) - 0.5) * 2;
            endOfCrossing = t + seconds * 1000;
            nextStart = endOfCrossing + 5000 + 60000 * unit(random);
        }
        const bool present = t < endOfCrossing;
        x += vx;
        y += vy;
        const double left = std::max(0.0, x), right = std::min(352.0, x + 40);
        const double top = std::max(0.0, y), bottom = std::min(240.0, y + 40);
        const double overlap =
            present ? std::max(0.0, std::min(right, 117.0) - left) * std::max(0.0, bottom - top)
                    : 0;
        const bool truly = overlap >= 844;
        if (truly && !inside) {
            truth.emplace_back(t, 1e18);
        } else if (!truly && inside) {
            truth.back().second = t;
        }
        inside = truly;
        const bool seen = present && unit(random) >= 0.15 && right > left;
        if (!seen) {
            detector.ProcessMD(static_cast<long>(t), nullptr, -1.0);
            continue;
        }
        CKorBoundingBoxesMD boxes;
        const auto jitter = [&] { return (unit(random) - 0.5) * 4; };
        const auto clamp = [](double v) {
            return static_cast<std::uint16_t>(std::clamp(v, 0.0, 352.0));
        };
        boxes.AddBox({clamp(left + jitter()), clamp(top + jitter()), clamp(right + jitter()),
                      clamp(bottom + jitter()), 1});
        detector.ProcessMD(static_cast<long>(t), &boxes, -1.0);
    }
    const SScore s = Score(truth, detector.m_Found);
    std::printf("boxes   seed %-3u  long delay %5ld ms  %3zu crossings  %3zu detections  "
                "precision %.2f  recall %.2f  F1 %.2f\n",
                seed, longDelay, truth.size(), detector.m_Found.size(), s.m_Precision, s.m_Recall,
                s.m_F1);
}

} // namespace

int main() {
    for (unsigned seed : {1u, 2u, 3u}) {
        Levels(seed);
    }
    for (unsigned seed : {1u, 2u}) {
        for (long delay : {0L, 500L, 2000L}) {
            Boxes(seed, delay);
        }
    }
    return 0;
}
