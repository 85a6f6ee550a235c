// The sample mixer as a component: clips into passing packets, every end of a clip, the carrier
// generator on the virtual clock, and what it refuses.
#include "audio/AudioSampleMixer.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/GenericData.h"
#include "framework/kor/Packet.h"
#include "framework/kor/PacketSource.h"
#include "tests/support/Harness.h"
#include "tests/support/RecordingCallback.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

using namespace zortest;

namespace {

std::string Clip(const std::vector<short>& samples) {
    return std::string(reinterpret_cast<const char*>(samples.data()), 2 * samples.size());
}

std::vector<short> Ramp(int n, int start = 1) {
    std::vector<short> samples(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) {
        samples[static_cast<std::size_t>(i)] = static_cast<short>(start + i);
    }
    return samples;
}

std::vector<short> Samples(const CKorPacket* packet) {
    std::vector<short> samples(packet->GetDataSize() / 2);
    std::memcpy(samples.data(), packet->GetData(), 2 * samples.size());
    return samples;
}

class AudioSampleMixer : public testing::Test {
protected:
    void SetUp() override {
        m_pCom = new CAudioSampleMixerCom("");
        m_Source | *m_pCom->Module() | m_Sink;
        CJokGenericData* value = m_pDone->Value();
        EXPECT_EQ(m_pCom->SetProperty("mixingDoneCallback", value), 1);
        value->Release();
    }
    void TearDown() override {
        m_Source.LinkModule(CKorNullModule::GetModule());
        m_pCom->Release();
        m_pDone->Release();
    }
    void AddSound(const char* identifier, const std::string& data) {
        CJokCommandContext context;
        context.AddParam("identifier", identifier);
        context.AddParamNoRef("audioData", CJokGdString::Allocate(CBelString(data)));
        m_pCom->AddSound(&context);
    }
    struct SMix {
        const char* m_Identifier;
        double m_MixFactor = 1.0;
        double m_Frequency = 0.0;
        double m_Samples = 0.0;
        double m_SilenceValue = 0.0;
    };
    void Mix(const SMix& mix) {
        CJokCommandContext context;
        context.AddParam("identifier", mix.m_Identifier);
        context.AddParam("mixFactor", mix.m_MixFactor);
        if (mix.m_Frequency != 0.0) {
            context.AddParam("frequency", mix.m_Frequency);
            context.AddParam("samples", mix.m_Samples);
            context.AddParam("silenceValue", mix.m_SilenceValue);
        }
        m_pCom->Mix(&context);
    }
    void Stop() {
        CJokCommandContext context;
        m_pCom->Stop(&context);
    }
    std::vector<std::string> Done() const {
        std::vector<std::string> done;
        for (const auto& call : m_pDone->m_Calls) {
            done.push_back(call.m_Texts.empty() ? "?" : call.m_Texts[0]);
        }
        return done;
    }

    CAudioSampleMixerCom* m_pCom = nullptr;
    CRecordingCallback* m_pDone = new CRecordingCallback;
    CTestSource m_Source;
    CTestSink m_Sink;
};

// A clip of 1000 samples in packets of 320 ends in the fourth packet, whose first 40 samples
// alone carry it; the callback follows at once, before the packet goes on.
TEST_F(AudioSampleMixer, ClipEndsInTheFourthPacketAndLeavesTheTailAlone) {
    AddSound("ramp", Clip(Ramp(1000)));
    Mix({"ramp"});
    std::size_t doneBeforeFourthLeft = 99;
    m_pDone->m_Action = [&] { doneBeforeFourthLeft = static_cast<std::size_t>(m_Sink.Count()); };
    for (int i = 0; i < 4; ++i) {
        m_Source.Push(MakePcmPacket(i * 40, std::vector<short>(320, 5)));
    }
    EXPECT_EQ(Done(), std::vector<std::string>{"ramp"});
    EXPECT_EQ(doneBeforeFourthLeft, 3u);
    const std::vector<short> last = Samples(m_Sink.Packets()[3]);
    EXPECT_EQ(last[0], 5 + 961);
    EXPECT_EQ(last[39], 5 + 1000);
    EXPECT_EQ(last[40], 5);
    EXPECT_EQ(last[319], 5);
    m_Source.Push(MakePcmPacket(160, std::vector<short>(320, 5))); // no clip: untouched
    EXPECT_EQ(Samples(m_Sink.Packets()[4]), std::vector<short>(320, 5));
}

// Factor 0 replaces the live audio by the clip; sums beyond 16 bits are held at the ends.
TEST_F(AudioSampleMixer, FactorScalesTheLiveAudioAndSumsSaturate) {
    AddSound("edge", Clip({30000, -30000, 1000, 7}));
    Mix({"edge", 0.0});
    m_Source.Push(MakePcmPacket(0, {12345, 12345, 12345, 12345, 12345}));
    EXPECT_EQ(Samples(m_Sink.Packets()[0]), (std::vector<short>{30000, -30000, 1000, 7, 12345}));
    Mix({"edge", 1.0});
    m_Source.Push(MakePcmPacket(0, {10000, -10000, -3, 0}));
    EXPECT_EQ(Samples(m_Sink.Packets()[1]), (std::vector<short>{32767, -32768, 997, 7}));
}

TEST_F(AudioSampleMixer, UnknownIdentifierKeepsTheCurrentClip) {
    CBelDiagnosticCapture capture;
    AddSound("ramp", Clip(Ramp(100)));
    Mix({"ramp", 2.0});
    Mix({"nope", 0.0});
    EXPECT_EQ(capture.Text(EBelDiagnosticKind::Dump),
              "AudioSampleMixer: nope is an unknown sample identifier\n");
    m_Source.Push(MakePcmPacket(0, {10, 10}));
    EXPECT_EQ(Samples(m_Sink.Packets()[0]), (std::vector<short>{21, 22})); // factor 2 still
    EXPECT_TRUE(Done().empty());
}

// Every end of a clip calls back once: replaced by "Mix", stopped, run out. The callback may
// start the next clip, which then plays.
TEST_F(AudioSampleMixer, EveryEndOfAClipCallsBackOnce) {
    AddSound("a", Clip(Ramp(4)));
    AddSound("b", Clip(Ramp(2, 100)));
    Mix({"a"});
    Mix({"b"});
    Stop();
    Stop(); // nothing plays: no call
    EXPECT_EQ(Done(), (std::vector<std::string>{"a", "b"}));

    m_pDone->m_Action = [&] {
        if (m_pDone->m_Calls.back().m_Texts[0] == "a") {
            Mix({"b"});
        }
    };
    Mix({"a"});
    m_Source.Push(MakePcmPacket(0, std::vector<short>(4, 0)));
    EXPECT_TRUE(m_pCom->Module()->IsPlaying());
    EXPECT_EQ(m_pCom->Module()->CurrentIdentifier(), "b");
    m_Source.Push(MakePcmPacket(0, std::vector<short>(4, 0)));
    EXPECT_EQ(Samples(m_Sink.Packets()[1]), (std::vector<short>{100, 101, 0, 0}));
    EXPECT_EQ(Done(), (std::vector<std::string>{"a", "b", "a", "b"}));
}

// A sound replaced while it plays: the playing clip finishes with the samples it started with.
TEST_F(AudioSampleMixer, ReplacingAPlayingSoundLetsItFinish) {
    AddSound("s", Clip({1, 2, 3, 4}));
    Mix({"s"});
    m_Source.Push(MakePcmPacket(0, {0, 0}));
    AddSound("s", Clip({50, 60, 70, 80}));
    m_Source.Push(MakePcmPacket(0, {0, 0, 0}));
    EXPECT_EQ(Samples(m_Sink.Packets()[1]), (std::vector<short>{3, 4, 0}));
    Mix({"s"});
    m_Source.Push(MakePcmPacket(0, {0}));
    EXPECT_EQ(Samples(m_Sink.Packets()[2]), (std::vector<short>{50}));
}

// Other audio cannot take a mono 16-bit clip: it passes as it came, the clip waits, one line.
TEST_F(AudioSampleMixer, OtherAudioPassesWithOneLine) {
    CBelDiagnosticCapture capture;
    AddSound("s", Clip({1, 2}));
    Mix({"s"});
    const long seq = CKorPacket::GetNewFormatSeqNumber();
    for (int i = 0; i < 2; ++i) {
        const short stereo[2] = {0, 0};
        CKorAudioPacket* packet = g_AudioPacketSource.NewPacket(stereo, 4, 0);
        const WAVEFORMATEX format{1, 2, 8000, 32000, 4, 16, 0};
        packet->SetAudioFormat(&format, seq);
        m_Source.Push(packet);
    }
    EXPECT_EQ(capture.Text(EBelDiagnosticKind::Dump),
              "CZorAudioSampleMixer::ProcessPacket -> format tag 1, 16 bits, 2 channels: only "
              "16-bit mono PCM takes the clip.\n");
    EXPECT_EQ(Samples(m_Sink.Packets()[1]), (std::vector<short>{0, 0}));
    EXPECT_EQ(m_pCom->Module()->Position(), 0u);
}

TEST_F(AudioSampleMixer, RefusesWhatCannotPlay) {
    CBelDiagnosticCapture capture;
    AddSound("empty", "");
    AddSound("half", std::string(1, '\x7f'));
    AddSound("s", Clip({1, 2}));
    Mix({"s", 1.0, 8000.0, 721.0});
    Mix({"s", 1.0, 8000.0, 0.5});
    Mix({"s", 1.0, std::numeric_limits<double>::infinity(), 160.0});
    Mix({"s", std::numeric_limits<double>::quiet_NaN()});
    EXPECT_EQ(capture.Text(EBelDiagnosticKind::ScriptError),
              "AudioSampleMixer: AddSound: \"empty\" has no samples"
              "AudioSampleMixer: AddSound: \"half\" has no samples"
              "AudioSampleMixer: Mix: a generator needs a finite frequency, 1 to 720 samples (a "
              "1440-byte packet) and a silenceValue"
              "AudioSampleMixer: Mix: a generator needs a finite frequency, 1 to 720 samples (a "
              "1440-byte packet) and a silenceValue"
              "AudioSampleMixer: Mix: a generator needs a finite frequency, 1 to 720 samples (a "
              "1440-byte packet) and a silenceValue"
              "AudioSampleMixer: Mix: mixFactor must be a finite number");
    EXPECT_FALSE(m_pCom->Module()->IsPlaying());
    EXPECT_FALSE(m_pCom->Module()->IsGenerating());
    Mix({"empty"});
    EXPECT_EQ(capture.Text(EBelDiagnosticKind::Dump),
              "AudioSampleMixer: empty is an unknown sample identifier\n");
}

// The generator paces packets to the clock, carries the clip, and stops with it.
TEST_F(AudioSampleMixer, GeneratorCarriesTheClipAtItsPace) {
    CVirtualClockScope clock;
    AddSound("ramp", Clip(Ramp(400)));
    Mix({"ramp", 1.0, 8000.0, 160.0, -7.0});
    clock.Advance(100);
    ASSERT_EQ(m_Sink.Count(), 3); // 160 + 160 + 80 samples of clip: three packets
    for (int i = 0; i < 3; ++i) {
        const CKorPacket* packet = m_Sink.Packets()[static_cast<std::size_t>(i)];
        EXPECT_EQ(packet->GetDataSize(), 320u);
        EXPECT_NEAR(packet->GetTimeStamp() - m_Sink.Packets()[0]->GetTimeStamp(), 20 * i, 1);
        const auto* format = static_cast<const CKorAudioPacket*>(packet)->GetAudioFormat();
        EXPECT_EQ(format->nSamplesPerSec, 8000u);
        EXPECT_EQ(packet->GetFormatSeqNumber(), 0);
    }
    const std::vector<short> last = Samples(m_Sink.Packets()[2]);
    EXPECT_EQ(last[0], -7 + 321);
    EXPECT_EQ(last[79], -7 + 400);
    EXPECT_EQ(last[80], -7);
    EXPECT_EQ(Done(), std::vector<std::string>{"ramp"});
    EXPECT_FALSE(m_pCom->Module()->IsGenerating());
}

// A refused packet is released and retried a millisecond later, not spun on; once downstream
// takes packets again the generator catches up with the clock.
TEST_F(AudioSampleMixer, GeneratorRetriesRefusalsWithoutLeaking) {
    CVirtualClockScope clock;
    Mix({"", 1.0, 8000.0, 80.0, 3.0}); // the carrier alone: 10 ms a packet
    clock.Advance(5);
    EXPECT_EQ(m_Sink.Count(), 1);
    m_Sink.m_Refuse = true;
    clock.Advance(50);
    // The packet at 10 ms waits in the mixer; the later ones are refused once a millisecond.
    EXPECT_GE(m_Sink.m_RefusedCount, 30);
    EXPECT_LE(m_Sink.m_RefusedCount, 40);
    m_Sink.m_Refuse = false;
    clock.Advance(10);
    EXPECT_EQ(m_Sink.Count(), 7); // the waiting one and those due by 60 ms
    for (const CKorPacket* packet : m_Sink.Packets()) {
        EXPECT_EQ(Samples(packet), std::vector<short>(80, 3));
    }
    Stop();
    EXPECT_TRUE(Done().empty()); // no clip was playing
    clock.Advance(100);
    EXPECT_EQ(m_Sink.Count(), 7);
}

} // namespace
