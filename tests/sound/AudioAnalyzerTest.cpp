// The analyzer, its detectors and the older meter as components: what passes, what is measured,
// when observers hear of it, and how detectors come and go.
#include "audio/AudioAnalyzer.h"
#include "audio/AudioAnalyzer2.h"
#include "audio/Detector.h"
#include "framework/bel/BelClock.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/GenericData.h"
#include "framework/kor/Packet.h"
#include "framework/kor/PacketSource.h"
#include "tests/support/Harness.h"
#include "tests/support/RecordingCallback.h"

#include <gtest/gtest.h>

#include <vector>

using namespace zortest;

namespace {

constexpr double kQuiet = 100; // level 0.15
constexpr double kLoud = 8000; // level 976.6

// A packet of 720 samples of one value, at a real time stamp in seconds.
CKorAudioPacket* Block(double seconds, double value, std::size_t samples = 720) {
    CKorAudioPacket* packet =
        MakePcmPacket(0, std::vector<short>(samples, static_cast<short>(value)));
    packet->SetRealTimeStamp(seconds);
    return packet;
}

CKorAudioPacket* MuLawPacket(long formatSeq) {
    const BYTE bytes[4] = {0x55, 0xD5, 0x55, 0xD5};
    CKorAudioPacket* packet = g_AudioPacketSource.NewPacket(bytes, 4, 0);
    const WAVEFORMATEX format{7, 1, 8000, 8000, 1, 8, 0};
    packet->SetAudioFormat(&format, formatSeq);
    return packet;
}

double Number(CJokGenericData* value) {
    const double number =
        value->GetType() == JOKGD_DOUBLE ? static_cast<CJokGdDouble*>(value)->GetValue() : -1.0;
    value->Release();
    return number;
}

class AudioAnalyzer2 : public testing::Test {
protected:
    void SetUp() override {
        m_pCom = new CAudioAnalyzer2Com;
        m_Source | *m_pCom->Module() | m_Sink;
    }
    void TearDown() override {
        for (CDetector* detector : m_Detectors) {
            detector->Release();
        }
        m_Source.LinkModule(CKorNullModule::GetModule());
        m_pCom->Release();
        for (CRecordingCallback* callback : m_Callbacks) {
            callback->Release();
        }
    }
    // A detector from "GetDetector", held by the test; nullptr when none was made.
    CDetector* GetDetector(double detectionWindow, double baselineWindow) {
        CJokCommandContext context;
        context.AddParam("detectionWindow", detectionWindow);
        context.AddParam("baselineWindow", baselineWindow);
        m_pCom->GetDetector(&context);
        auto* value = static_cast<CJokGdObject*>(context.GetReturnValue());
        if (!value) {
            return nullptr;
        }
        auto* detector = static_cast<CDetector*>(value->GetCOMObject());
        detector->AddRef();
        m_Detectors.push_back(detector);
        return detector;
    }
    CRecordingCallback* Listen(CDetector* detector) {
        auto* callback = new CRecordingCallback;
        m_Callbacks.push_back(callback);
        CJokGenericData* value = callback->Value();
        EXPECT_EQ(detector->SetProperty("onDetect", value), 1);
        value->Release();
        return callback;
    }
    static void Set(CJokComponent* component, const char* name, double number) {
        CJokGenericData* value = CJokGdDouble::Allocate(number);
        EXPECT_EQ(component->SetProperty(name, value), 1) << name;
        value->Release();
    }

    CAudioAnalyzer2Com* m_pCom = nullptr;
    CTestSource m_Source;
    CTestSink m_Sink;
    std::vector<CDetector*> m_Detectors;
    std::vector<CRecordingCallback*> m_Callbacks;
};

TEST_F(AudioAnalyzer2, OtherAudioPassesUntouchedWithOneLinePerFormat) {
    CBelDiagnosticCapture capture;
    CDetector* detector = GetDetector(0.1, 1.0);
    const long seq = CKorPacket::GetNewFormatSeqNumber();
    m_Source.Push(MuLawPacket(seq));
    m_Source.Push(MuLawPacket(seq));
    m_Source.Push(MakeDataPacket(10));
    ASSERT_EQ(m_Sink.Count(), 3);
    EXPECT_EQ(0, std::memcmp(m_Sink.Packets()[0]->GetData(), "\x55\xD5\x55\xD5", 4));
    EXPECT_EQ(capture.Text(EBelDiagnosticKind::Dump),
              "CZorAudioAnalyzer2::ProcessPacket -> format tag 7, 8 bits, 8000 Hz is not "
              "measured: only 16-bit PCM is.\n");
    EXPECT_EQ(detector->Core().DetectionValue(), 0.0);
    EXPECT_EQ(detector->Core().m_PeakValue, 0.0);
}

// An empty packet has no level: it must not reach the detectors as silence (or as a NaN).
TEST_F(AudioAnalyzer2, EmptyPacketMeasuresNothing) {
    CDetector* detector = GetDetector(10.0, 10.0);
    m_Source.Push(Block(1.0, kLoud));
    m_Source.Push(Block(1.09, 0, 0));
    CKorAudioPacket* half = Block(1.18, 0, 1);
    half->SetDataSize(1); // half a sample is no sample
    m_Source.Push(half);
    EXPECT_EQ(m_Sink.Count(), 3);
    EXPECT_EQ(detector->Core().DetectionValue(), kLoud * kLoud / 65536);
    EXPECT_EQ(Number(m_pCom->GetProperty("level", 0)), kLoud * kLoud / 65536);
}

// Observers hear of each packet inside its step, before it goes on; each detector keeps its own
// windows and settings.
TEST_F(AudioAnalyzer2, DetectorsDecideInsideThePacketStepEachOnItsOwn) {
    CDetector* quick = GetDetector(0.0, 100.0);
    CDetector* slow = GetDetector(0.5, 100.0);
    Set(quick, "threshold", 100);
    Set(slow, "threshold", 100);
    Set(slow, "debounce", 0.3);
    CRecordingCallback* quickEvents = Listen(quick);
    CRecordingCallback* slowEvents = Listen(slow);
    int seenBySink = -1;
    quickEvents->m_Action = [&] { seenBySink = m_Sink.Count(); };

    double t = 1.0;
    m_Source.Push(Block(t, kQuiet));
    for (int i = 0; i < 5; ++i) {
        t += 0.09;
        m_Source.Push(Block(t, kLoud));
    }
    // Loud from 1.09: more than the debounce of 0.1 later is 1.27 for one, more than 0.3 later
    // is 1.45 for the other.
    ASSERT_EQ(quickEvents->m_Calls.size(), 1u);
    EXPECT_EQ(quickEvents->m_Calls[0].m_Numbers[0], 1.0);
    EXPECT_DOUBLE_EQ(quickEvents->m_Calls[0].m_Numbers[1], 1.27);
    EXPECT_EQ(seenBySink, 3); // the packet of 1.27 was still in the analyzer
    ASSERT_EQ(slowEvents->m_Calls.size(), 1u);
    EXPECT_DOUBLE_EQ(slowEvents->m_Calls[0].m_Numbers[1], 1.45);
}

// Packets without a real time stamp are stamped with the clock, for the level sample only.
TEST_F(AudioAnalyzer2, ClockStampsPacketsWithoutRealTime) {
    CVirtualClockScope clock;
    clock.Advance(5000);
    CDetector* detector = GetDetector(0.0, 100.0);
    Set(detector, "threshold", 100);
    Set(detector, "debounce", 0.0);
    CRecordingCallback* events = Listen(detector);
    m_Source.Push(Block(0.0, kQuiet));
    clock.Advance(250);
    m_Source.Push(Block(-1.0, kLoud));
    clock.Advance(250);
    m_Source.Push(Block(0.0, kLoud));
    ASSERT_EQ(events->m_Calls.size(), 1u);
    EXPECT_DOUBLE_EQ(events->m_Calls[0].m_Numbers[1], BelDoubleTime());
    EXPECT_EQ(m_Sink.Packets()[1]->GetRealTimeStamp(), -1.0); // the packet itself is untouched
}

// Dropping a detector detaches it; its analyzer goes on; a detector may drop itself, or be
// dropped by another's callback, inside the packet step.
TEST_F(AudioAnalyzer2, DetectorsMayBeDroppedAtAnyTime) {
    CDetector* first = GetDetector(0.0, 100.0);
    CDetector* second = GetDetector(0.0, 100.0);
    Set(first, "threshold", 100);
    Set(first, "debounce", 0.0);
    CRecordingCallback* events = Listen(first);
    m_Detectors.clear(); // the callback drops both: the test no longer holds them
    events->m_Action = [&] {
        second->Release();
        first->Release();
    };
    m_Source.Push(Block(1.0, kQuiet));
    m_Source.Push(Block(1.09, kLoud));
    m_Source.Push(Block(1.18, kLoud));
    EXPECT_EQ(events->m_Calls.size(), 1u);
    EXPECT_EQ(m_Sink.Count(), 3);
    m_Source.Push(Block(1.27, kLoud)); // nobody is attached any more
    EXPECT_EQ(m_Sink.Count(), 4);
}

TEST_F(AudioAnalyzer2, DetectorOutlivesItsAnalyzer) {
    CDetector* detector = GetDetector(1.0, 1.0);
    m_Source.Push(Block(1.0, kLoud));
    m_Source.LinkModule(CKorNullModule::GetModule());
    m_pCom->Release();
    m_pCom = new CAudioAnalyzer2Com; // for TearDown
    EXPECT_EQ(detector->Core().DetectionValue(), kLoud * kLoud / 65536);
}

// The older meter on a steady signal whose high byte is 16: every granule reads 16, and a stream
// whose peak stays below 80 is shown scaled up to 80.
TEST(AudioAnalyzer, SteadyQuietSignalReadsAtTheScaledPeak) {
    CVirtualClockScope clock;
    auto* com = new CAudioAnalyzerCom;
    CTestSource source;
    CTestSink sink;
    source | *com->Module() | sink;
    EXPECT_EQ(Number(com->GetProperty("level", 0)), 0.0);
    for (int i = 0; i < 3; ++i) {
        source.Push(MakePcmPacket(i * 90, std::vector<short>(720, 0x1000)));
    }
    EXPECT_EQ(com->Module()->Peak(), 16.0);
    EXPECT_EQ(Number(com->GetProperty("level", 0)), 80.0);

    // 8-bit PCM and other tags pass unmeasured; the peak decays only for tag 1 packets.
    const long peakBefore = static_cast<long>(com->Module()->Peak() * 1000);
    source.Push(MuLawPacket(CKorPacket::GetNewFormatSeqNumber()));
    EXPECT_EQ(static_cast<long>(com->Module()->Peak() * 1000), peakBefore);
    EXPECT_EQ(sink.Count(), 4);
    source.LinkModule(CKorNullModule::GetModule());
    com->Release();
}

} // namespace
