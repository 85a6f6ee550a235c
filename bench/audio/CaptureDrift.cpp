// Timestamp error of the capture source against the ideal clock: a file device whose clock runs
// fast or slow by a chosen amount records for ten minutes on the virtual clock, and each
// packet's stamp is compared with the true time of its first sample (the start plus the
// packet's samples at the device's real rate). Prints the median and maximum |error| in ms.
//
//     zor_capture_drift [minutes=10] [speech.wav=examples/data/speech.wav]
#include "audio/AudioSource.h"
#include "framework/bel/BelClock.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/bel/BelMessageLoop.h"
#include "framework/kor/Packet.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

// Keeps each packet's stamp and releases the packet.
class CStampProbe : public CKorModule {
public:
    CStampProbe() : CKorModule("StampProbe") {}
    int Receive(CKorPacket* packet) override {
        m_Stamps.push_back(packet->GetTimeStamp());
        packet->Release();
        return 1;
    }
    std::vector<long> m_Stamps;
};

struct SResult {
    double m_Median;
    double m_Max;
    size_t m_Packets;
    int m_Jumps;
};

SResult Run(const std::string& wav, double rateError, int minutes) {
    CBelDiagnosticCapture quiet;
    CZorAudioSource source;
    CStampProbe probe;
    source | probe;
    source.SetDevice(("file:" + wav).c_str(), {rateError, true});
    const double start = BelGetTime();
    source.Notify(CZorAudioSource::kStartRecording, 0L);
    CBelMessageLoop::Current().Advance(minutes * 60000.0);
    source.Notify(CZorAudioSource::kStopRecording, 0L);
    const double packetMs = 1000.0 * source.GetSamplesPerPacket() / source.GetSampleFrequency();
    std::vector<double> errors;
    for (size_t k = 0; k < probe.m_Stamps.size(); ++k) {
        const double truth = start + packetMs * static_cast<double>(k) / (1.0 + rateError);
        errors.push_back(std::abs(static_cast<double>(probe.m_Stamps[k]) - truth));
    }
    const std::string dumps = quiet.Text(EBelDiagnosticKind::Dump).str();
    int jumps = 0;
    for (size_t at = dumps.find("Correct Audio time"); at != std::string::npos;
         at = dumps.find("Correct Audio time", at + 1)) {
        ++jumps;
    }
    std::vector<double> sorted = errors;
    std::sort(sorted.begin(), sorted.end());
    return {sorted.empty() ? 0.0 : sorted[sorted.size() / 2], sorted.empty() ? 0.0 : sorted.back(),
            sorted.size(), jumps};
}

} // namespace

int main(int argc, char** argv) {
    const int minutes = argc > 1 ? std::atoi(argv[1]) : 10;
    const std::string wav = argc > 2 ? argv[2] : "examples/data/speech.wav";
    BelUseVirtualClock(true);
    std::printf("capture timestamp error against the ideal clock, %d minutes on the virtual clock, "
                "512-sample packets at 8 kHz\n",
                minutes);
    std::printf("%-14s %8s %12s %9s %6s\n", "device clock", "packets", "median (ms)", "max (ms)",
                "jumps");
    for (const double rateError : {0.005, -0.005, 0.001, -0.001, 0.0}) {
        const SResult r = Run(wav, rateError, minutes);
        if (r.m_Packets == 0) {
            std::fprintf(stderr, "no packets: is %s there?\n", wav.c_str());
            return 1;
        }
        char label[32];
        std::snprintf(label, sizeof label, "%.1f%% %s", std::abs(rateError) * 100,
                      rateError > 0   ? "fast"
                      : rateError < 0 ? "slow"
                                      : "off");
        std::printf("%-14s %8zu %12.2f %9.2f %6d\n", label, r.m_Packets, r.m_Median, r.m_Max,
                    r.m_Jumps);
    }
    return 0;
}
