#include "audio/AudioSource.h"

#include "framework/bel/BelClock.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/bel/BelMessageLoop.h"
#include "framework/kor/Packet.h"
#include "tests/support/AlsaTestConfig.h"
#include "tests/support/Harness.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

using namespace zortest;

namespace {

std::string SpeechDevice() {
    return "file:" + CAlsaTestConfig::Install().SpeechWav();
}

class AudioSourceTest : public ::testing::Test {
protected:
    AudioSourceTest() { m_Source | m_Sink; }
    ~AudioSourceTest() override { m_Sink.Clear(); }

    std::string Dumps() const { return m_Diagnostics.Text(EBelDiagnosticKind::Dump).str(); }
    std::vector<long> Stamps() const {
        std::vector<long> stamps;
        for (const CKorPacket* packet : m_Sink.Packets()) {
            stamps.push_back(packet->GetTimeStamp());
        }
        return stamps;
    }
    std::vector<BYTE> Bytes() const {
        std::vector<BYTE> all;
        for (const CKorPacket* packet : m_Sink.Packets()) {
            all.insert(all.end(), packet->GetData(), packet->GetData() + packet->GetDataSize());
        }
        return all;
    }
    const std::vector<BYTE>& Speech() const { return CAlsaTestConfig::Install().SpeechData(); }
    // Runs the real-clock loop until done() or 10 s.
    template <class F> void RunUntil(F done) {
        const double deadline = BelDoubleTime() + 10.0;
        while (!done() && BelDoubleTime() < deadline) {
            CBelMessageLoop::Current().RunFor(0.02);
        }
    }

    CBelDiagnosticCapture m_Diagnostics;
    CZorAudioSource m_Source;
    CTestSink m_Sink;
};

TEST_F(AudioSourceTest, FrequencyAndPacketSizeRulesWithTheirMessages) {
    const long seq = m_Source.GetFormatSeqNumber();
    EXPECT_FALSE(m_Source.SetSampleFrequency(16000));
    EXPECT_TRUE(m_Source.SetSampleFrequency(8000));
    EXPECT_TRUE(m_Source.SetSampleFrequency(8000));
    EXPECT_GT(m_Source.GetFormatSeqNumber(), seq + 1) << "8000 is applied each time";
    EXPECT_TRUE(m_Source.SetSampleFrequency(11025));
    const long seq11025 = m_Source.GetFormatSeqNumber();
    EXPECT_TRUE(m_Source.SetSampleFrequency(11025));
    EXPECT_EQ(m_Source.GetFormatSeqNumber(), seq11025) << "the same rate again is ignored";
    EXPECT_EQ(m_Source.GetPCMFormat().nAvgBytesPerSec, 22050u);
    EXPECT_EQ(Dumps(), "AudioSource -> 16000 is an invalid frequency.\n"
                       "AudioSource -> samplePerSec:8000\n"
                       "AudioSource -> samplePerSec:8000\n"
                       "AudioSource -> samplePerSec:11025\n");
    m_Diagnostics.Take();

    for (const unsigned samples : {0u, 1u, 1441u, 0xFFFFFFFFu}) {
        EXPECT_FALSE(m_Source.SetSamplesPerPacket(samples)) << samples;
    }
    EXPECT_TRUE(m_Source.SetSamplesPerPacket(2));
    EXPECT_TRUE(m_Source.SetSamplesPerPacket(1440));
    EXPECT_EQ(m_Source.GetSamplesPerPacket(), 1440u);
    const std::string refused = "AudioSource -> samplesPerPacket should be between 2 and 1440.\n";
    EXPECT_EQ(Dumps(), refused + refused + refused + refused +
                           "In SetSamplesPerPacket to 2\nIn SetSamplesPerPacket to 1440\n");
}

TEST_F(AudioSourceTest, RecordsTheDeviceStampedOnItsClock) {
    CVirtualClockScope clock;
    m_Source.SetDevice(SpeechDevice().c_str());
    m_Source.Notify(CZorAudioSource::kStartRecording, 0L);
    ASSERT_TRUE(m_Source.IsRecording());
    const long start = BelGetTime();
    EXPECT_FALSE(m_Source.SetSampleFrequency(11025));
    EXPECT_NE(Dumps().find("Cannot set the sample frequency when recording"), std::string::npos);
    clock.Advance(2000);
    const std::vector<long> stamps = Stamps();
    ASSERT_EQ(stamps.size(), 31u) << "2 s of 64 ms packets";
    for (size_t k = 0; k < stamps.size(); ++k) {
        EXPECT_EQ(stamps[k], start + 64 * static_cast<long>(k));
        const auto* packet = static_cast<const CKorAudioPacket*>(m_Sink.Packets()[k]);
        EXPECT_EQ(packet->GetDataSize(), 1024u);
        EXPECT_EQ(packet->GetFormatSeqNumber(), m_Source.GetFormatSeqNumber());
        EXPECT_EQ(packet->GetAudioFormat()->nSamplesPerSec, 8000u);
        EXPECT_TRUE(packet->IsTimeStampValid());
    }
    const std::vector<BYTE> bytes = Bytes();
    EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), Speech().begin()));
    EXPECT_EQ(m_Source.GetFrameCount(), 31);
    m_Source.Notify(CZorAudioSource::kStopRecording, 0L);
    EXPECT_FALSE(m_Source.IsRecording());
    clock.Advance(500);
    EXPECT_EQ(m_Sink.Count(), 31) << "nothing after the stop";
}

// The device's clock runs 0.5% fast or slow against the system's for ten minutes: the stamps
// stay within a few ms of each packet's true time (see AudioClockTest for why a slow device's
// trail further) and never jump.
struct SDriftCase {
    double m_RateError;
    double m_Bound; // ms
};

std::string DriftName(const ::testing::TestParamInfo<SDriftCase>& info) {
    return info.param.m_RateError > 0 ? "Fast" : "Slow";
}

class AudioSourceDrift : public AudioSourceTest,
                         public ::testing::WithParamInterface<SDriftCase> {};

TEST_P(AudioSourceDrift, StampsFollowTheTrueTimeWithinAFewMilliseconds) {
    CVirtualClockScope clock;
    const double rateError = GetParam().m_RateError;
    m_Source.SetDevice(SpeechDevice().c_str(), {rateError, true});
    const double start = BelGetTime();
    m_Source.Notify(CZorAudioSource::kStartRecording, 0L);
    double worst = 0;
    long count = 0;
    for (int minute = 0; minute < 10; ++minute) {
        clock.Advance(60000);
        for (const long stamp : Stamps()) {
            const double truth = start + 64.0 * static_cast<double>(count++) / (1.0 + rateError);
            worst = std::max(worst, std::abs(static_cast<double>(stamp) - truth));
        }
        m_Sink.Clear();
    }
    EXPECT_GE(count, 9300);
    EXPECT_LE(worst, GetParam().m_Bound);
    EXPECT_EQ(Dumps().find("Correct Audio time"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(DeviceClock, AudioSourceDrift,
                         ::testing::Values(SDriftCase{0.005, 2.0}, SDriftCase{-0.005, 8.0}),
                         DriftName);

TEST_F(AudioSourceTest, PrologueOverwritesTheStartAndEpilogueEndsTheRecording) {
    CVirtualClockScope clock;
    m_Source.SetDevice(SpeechDevice().c_str());
    m_Source.SetPrologueData(CBelString(std::string(3000, 'P')));
    m_Source.SetEpilogueData(CBelString(std::string(1500, 'E')));
    m_Source.Notify(CZorAudioSource::kStartRecording, 0L);
    clock.Advance(64 * 4);
    m_Source.Notify(CZorAudioSource::kStopRecording, 0L);
    EXPECT_TRUE(m_Source.IsRecording()) << "the epilogue goes out first";
    EXPECT_TRUE(m_Source.IsEpilogueMode());
    clock.Advance(64 * 4);
    EXPECT_FALSE(m_Source.IsRecording());
    ASSERT_EQ(m_Sink.Count(), 6);
    EXPECT_EQ(m_Sink.Packets()[4]->GetDataSize(), 1024u);
    EXPECT_EQ(m_Sink.Packets()[5]->GetDataSize(), 476u);
    const std::vector<BYTE> bytes = Bytes();
    EXPECT_EQ(std::count(bytes.begin(), bytes.begin() + 3000, 'P'), 3000);
    EXPECT_TRUE(std::equal(bytes.begin() + 3000, bytes.begin() + 4096, Speech().begin() + 3000));
    EXPECT_EQ(std::count(bytes.begin() + 4096, bytes.end(), 'E'), 1500);
    const std::vector<long> stamps = Stamps();
    EXPECT_EQ(stamps[5] - stamps[0], 5 * 64);
}

// Silence covers the time before, between and after recordings on one time base: a start
// waits for the silence packet in progress, and silence takes over from the recording's clock.
TEST_F(AudioSourceTest, SilenceAndRecordingShareOneTimeBase) {
    CVirtualClockScope clock;
    m_Source.SetDevice(SpeechDevice().c_str());
    m_Source.SilenceMode(1);
    clock.Advance(100); // silence at 0 and 64
    m_Source.Notify(CZorAudioSource::kStartRecording, 0L);
    EXPECT_TRUE(m_Source.IsStartDelayed());
    EXPECT_NE(Dumps().find("Delaying StartRecording for silence packet to be done\n"),
              std::string::npos);
    // Recording from 128: packets at 128 ... 384; stopped half a millisecond into the next,
    // which is dropped.
    clock.Advance(28 + 64 * 5 + 0.5);
    EXPECT_TRUE(m_Source.IsRecording());
    m_Source.Notify(CZorAudioSource::kStopRecording, 0L);
    clock.Advance(100); // silence again from 448.5
    const std::vector<long> stamps = Stamps();
    ASSERT_EQ(stamps.size(), 9u);
    for (size_t k = 1; k < stamps.size(); ++k) {
        EXPECT_NEAR(stamps[k] - stamps[0], 64 * static_cast<long>(k), 1) << k;
    }
    const std::vector<BYTE> bytes = Bytes();
    EXPECT_EQ(std::count(bytes.begin(), bytes.begin() + 2048, 0), 2048) << "silence is zeros";
    EXPECT_TRUE(std::equal(bytes.begin() + 2048, bytes.begin() + 7168, Speech().begin()));
    EXPECT_NEAR(CZorAudioSource::sm_SilenceRate, 8000.0, 1.0);
    m_Source.SilenceMode(0);
    clock.Advance(500);
    EXPECT_EQ(m_Sink.Count(), 9);
}

// With downstream refusing, the ring keeps the 12 oldest packets; the rest are released and
// counted, with one line for the whole run of drops.
TEST_F(AudioSourceTest, AFullRingDropsTheNewestAndPollDeliversTheRest) {
    CVirtualClockScope clock;
    m_Source.SetDevice(SpeechDevice().c_str());
    m_Sink.m_Refuse = true;
    const long start = BelGetTime();
    m_Source.Notify(CZorAudioSource::kStartRecording, 0L);
    clock.Advance(2000);
    EXPECT_EQ(m_Source.GetRingCount(), 12);
    EXPECT_EQ(m_Source.GetDroppedCount(), 31 - 12);
    EXPECT_EQ(Dumps(), "AudioSource -> downstream takes nothing: packets are dropped\n");
    m_Sink.m_Refuse = false;
    m_Source.Poll();
    const std::vector<long> stamps = Stamps();
    ASSERT_EQ(stamps.size(), 12u);
    EXPECT_EQ(stamps.front(), start);
    EXPECT_EQ(stamps.back(), start + 11 * 64);
    m_Source.Notify(CZorAudioSource::kStopRecording, 0L);
}

TEST_F(AudioSourceTest, DeviceFailuresAreReportedAndTheModuleStaysUsable) {
    CVirtualClockScope clock;
    m_Source.SetDevice("file:/nonexistent/take.wav");
    m_Source.Notify(CZorAudioSource::kStartRecording, 0L);
    EXPECT_FALSE(m_Source.IsRecording());
    EXPECT_EQ(Dumps().rfind("AudioSource -> waveInOpen: /nonexistent/take.wav: cannot open", 0), 0u)
        << Dumps();
    m_Diagnostics.Take();

    m_Source.SetDevice(SpeechDevice().c_str());
    m_Source.Notify(CZorAudioSource::kStartRecording, 0L);
    clock.Advance(6000); // past the end of the speech
    EXPECT_FALSE(m_Source.IsRecording());
    EXPECT_NE(Dumps().find("AudioSource -> recording stopped: "), std::string::npos);
    EXPECT_NE(Dumps().find("end of input"), std::string::npos);
    EXPECT_EQ(Bytes(), Speech()) << "every byte, the short last packet too";

    m_Sink.Clear();
    m_Source.Notify(CZorAudioSource::kStartRecording, 0L);
    EXPECT_TRUE(m_Source.IsRecording()) << "a file device starts at the beginning again";
    clock.Advance(100);
    EXPECT_EQ(m_Sink.Count(), 1);
    m_Source.Notify(CZorAudioSource::kStopRecording, 0L);
}

// Stopping while the device's thread has posted buffers the loop has not yet delivered: they
// are handled (and ignored) before the buffers go, and nothing arrives afterwards.
TEST_F(AudioSourceTest, StopDrainsPostedBuffersBeforeFreeingThem) {
    CAlsaTestConfig::Install();
    m_Source.SetDevice("zor_unpaced");
    m_Source.Notify(CZorAudioSource::kStartRecording, 0L);
    ASSERT_TRUE(m_Source.IsRecording());
    const double deadline = BelDoubleTime() + 10.0;
    while (!CBelMessageLoop::Current().HasPendingWork() && BelDoubleTime() < deadline) {
        std::this_thread::yield();
    }
    ASSERT_TRUE(CBelMessageLoop::Current().HasPendingWork());
    m_Source.Notify(CZorAudioSource::kStopRecording, 0L);
    EXPECT_FALSE(CBelMessageLoop::Current().HasPendingWork());
    CBelMessageLoop::Current().RunUntilIdle();
    EXPECT_EQ(m_Sink.Count(), 0);
}

// Through ALSA on a card that keeps real time: the first stamp is the moment the card started
// (which the start call brackets), and every later one stays within a few ms of that moment
// plus 64 ms a packet; the bytes are the speech the card captured.
TEST_F(AudioSourceTest, AlsaCaptureKeepsItsStampsNearTheIdealClock) {
    CAlsaTestConfig::Install();
    m_Source.SetDevice("zor_speech");
    const long before = BelGetTime();
    m_Source.Notify(CZorAudioSource::kStartRecording, 0L);
    const long after = BelGetTime();
    RunUntil([&] { return m_Sink.Count() >= 20; });
    m_Source.Notify(CZorAudioSource::kStopRecording, 0L);
    const std::vector<long> stamps = Stamps();
    ASSERT_GE(stamps.size(), 20u);
    EXPECT_GE(stamps[0], before);
    EXPECT_LE(stamps[0], after);
    for (size_t k = 0; k < stamps.size(); ++k) {
        EXPECT_NEAR(stamps[k], stamps[0] + 64 * static_cast<long>(k), 5) << k;
    }
    const std::vector<BYTE> bytes = Bytes();
    EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), Speech().begin()));

    m_Source.SetDevice("zor_vanishing");
    m_Source.Notify(CZorAudioSource::kStartRecording, 0L);
    RunUntil([&] { return !m_Source.IsRecording(); });
    EXPECT_FALSE(m_Source.IsRecording());
    EXPECT_NE(Dumps().find("AudioSource -> recording stopped: zor_vanishing: capture stopped"),
              std::string::npos)
        << Dumps();
}

} // namespace
