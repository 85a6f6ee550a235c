#include "routing/Synch.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/kor/Packet.h"
#include "tests/routing/RoutingHelpers.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace zortest;
using namespace routingtest;

namespace {

CKorPacket* Unstamped() {
    CKorPacket* packet = MakeDataPacket(0);
    packet->SetTimeStampValid(false);
    return packet;
}

// source -> synch -> sink on the virtual clock, the module clock at 0.
class Synch : public ::testing::Test {
protected:
    Synch() : synch(CBelString("")) {
        source | synch | sink;
        synch.SetTime(0);
    }
    CVirtualClockScope clock;
    CTestSource source;
    CZorSynchModule synch;
    CTestSink sink;
};

struct SWaitCase {
    const char* m_Label;
    double m_Scale;
    long m_Lead; // timestamp - module time (ms)
    long m_Wait; // expected wall wait (ms)
};

class SynchWait : public Synch, public ::testing::WithParamInterface<SWaitCase> {};

TEST_P(SynchWait, LeadIsDividedByTheScaleAndTruncated) {
    const SWaitCase& c = GetParam();
    synch.SetScaleFactor(c.m_Scale);
    synch.SetTime(0);
    EXPECT_EQ(synch.Receive(MakeDataPacket(c.m_Lead)), 1);
    clock.Advance(0);
    if (c.m_Wait == 0) {
        EXPECT_EQ(sink.Count(), 1);
        return;
    }
    clock.Advance(static_cast<double>(c.m_Wait) - 0.5);
    EXPECT_EQ(sink.Count(), 0);
    clock.Advance(1);
    EXPECT_EQ(sink.Count(), 1);
}

INSTANTIATE_TEST_SUITE_P(Synch, SynchWait,
                         ::testing::Values(SWaitCase{"Scale1", 1.0, 40, 40},
                                           SWaitCase{"Scale2", 2.0, 1000, 500},
                                           SWaitCase{"ScaleHalf", 0.5, 1000, 2000},
                                           SWaitCase{"LeadOfOneAtScale3", 3.0, 1, 0},
                                           SWaitCase{"InThePast", 1.0, -500, 0}),
                         [](const auto& info) { return std::string(info.param.m_Label); });

TEST_F(Synch, HoldsOnePacketAndPacesItsUpstream) {
    source.Push(MakeDataPacket(100));
    source.Push(MakeDataPacket(200));
    EXPECT_NE(source.Pending(), nullptr) << "refused while one is held";
    clock.Advance(100.5);
    EXPECT_EQ(sink.Count(), 1);
    EXPECT_EQ(source.Pending(), nullptr) << "the release polled the next one in";
    clock.Advance(99);
    EXPECT_EQ(sink.Count(), 1);
    clock.Advance(1);
    EXPECT_EQ(sink.Count(), 2);
}

TEST_F(Synch, RefusedAtItsTimeItGoesWhenDownstreamAsksAgain) {
    sink.m_Refuse = true;
    synch.Receive(MakeDataPacket(10));
    clock.Advance(20);
    EXPECT_NE(synch.GetHeldPacket(), nullptr);
    EXPECT_FALSE(synch.IsAlarmSet());
    sink.m_Refuse = false;
    sink.Poll();
    EXPECT_EQ(sink.Count(), 1);
}

TEST_F(Synch, UnstampedPacketGoesAtOnceInNormalAndHighSpeed) {
    for (int mode : {1, 2}) {
        synch.Notify(mode, 0);
        synch.Receive(Unstamped());
        clock.Advance(0);
        EXPECT_EQ(synch.GetHeldPacket(), nullptr) << "mode " << mode;
    }
    EXPECT_EQ(sink.Count(), 2);
}

TEST_F(Synch, DisabledPassesEveryPacketAtOnceWithoutAlarm) {
    synch.Notify(0, 0);
    synch.Receive(MakeDataPacket(5000));
    EXPECT_EQ(sink.Count(), 1) << "inside Receive, no clock advance";
    EXPECT_FALSE(synch.IsAlarmSet());
    sink.m_Refuse = true;
    synch.Receive(MakeDataPacket(6000));
    EXPECT_FALSE(synch.IsAlarmSet());
    sink.m_Refuse = false;
    synch.Poll(); // downstream asks again: not due later in mode 0
    EXPECT_EQ(sink.Count(), 2);
}

TEST_F(Synch, ScaleFactorInForce) {
    EXPECT_EQ(synch.GetScaleFactor(), 1.0) << "not set";
    synch.SetScaleFactor(2.0);
    synch.SetScaleFactor(-1.0);
    EXPECT_EQ(synch.GetScaleFactor(), 2.0) << "-1.0 changes nothing in force";
    synch.SetScaleFactor(0.0);
    EXPECT_EQ(synch.GetScaleFactor(), 2.0) << "a clock cannot stand still";
    synch.SetScaleFactor(2.0);

    // A time base takes the factor set, and from then on the framework's factor is in force.
    auto* timeBase = new CKorTimeBasePacket(10000, 1.0);
    synch.Receive(timeBase);
    EXPECT_EQ(synch.GetTimeBase(), timeBase);
    EXPECT_EQ(timeBase->GetScaleFactor(), 2.0);
    EXPECT_EQ(synch.GetTime(), 10000);
    clock.Advance(0);
    synch.Receive(MakeDataPacket(11000));
    clock.Advance(499.5);
    EXPECT_EQ(sink.Count(), 1);
    clock.Advance(1);
    EXPECT_EQ(sink.Count(), 2);
}

TEST_F(Synch, ChangingTheScaleReschedulesTheHeldPacket) {
    synch.Receive(MakeDataPacket(1000));
    clock.Advance(200);        // module time 200, 800 ms to go
    synch.SetScaleFactor(4.0); // now 200 ms
    clock.Advance(199.5);
    EXPECT_EQ(sink.Count(), 0);
    clock.Advance(1);
    EXPECT_EQ(sink.Count(), 1);
}

TEST_F(Synch, PauseKeepsThePacketAndResumeMeasuresFromItsTimestamp) {
    synch.Receive(MakeDataPacket(1000));
    clock.Advance(400);
    synch.SetPaused(true);
    EXPECT_FALSE(synch.IsAlarmSet());
    CKorPacket* next = MakeDataPacket(1040);
    EXPECT_EQ(synch.Receive(next), 0) << "refused while paused";
    clock.Advance(5000);
    EXPECT_EQ(sink.Count(), 0);
    synch.SetPaused(false);
    clock.Advance(0);
    EXPECT_EQ(sink.Count(), 1) << "the clock stood still: the held packet is due now";
    EXPECT_EQ(synch.GetTime(), 1000);
    EXPECT_EQ(synch.Receive(next), 1);
    clock.Advance(39.5);
    EXPECT_EQ(sink.Count(), 1);
    clock.Advance(1);
    EXPECT_EQ(sink.Count(), 2);
}

TEST_F(Synch, ResumeWithNothingHeldAnchorsTheClockOnTheNextPacket) {
    synch.SetPaused(true);
    synch.SetPaused(false);
    EXPECT_TRUE(synch.IsResynchPending());
    synch.Receive(Unstamped()); // cannot anchor the clock
    EXPECT_TRUE(synch.IsResynchPending());
    clock.Advance(0);
    synch.Receive(MakeDataPacket(90000));
    EXPECT_FALSE(synch.IsResynchPending());
    clock.Advance(0);
    EXPECT_EQ(sink.Count(), 2);
}

TEST_F(Synch, FlushReleasesTheHeldPacketAndClearsPause) {
    CKorPacket* packet = MakeDataPacket(1000);
    packet->AddRef(); // probe
    synch.Receive(packet);
    synch.SetPaused(true);
    synch.Flush();
    EXPECT_EQ(synch.GetHeldPacket(), nullptr);
    EXPECT_FALSE(synch.IsPaused());
    EXPECT_FALSE(synch.IsAlarmSet());
    EXPECT_EQ(packet->RefCount(), 1u);
    EXPECT_EQ(sink.m_FlushCount, 1);
    packet->Release();
}

TEST_F(Synch, MisuseIsReportedWithTheStatedTexts) {
    CBelDiagnosticCapture capture;
    synch.Receive(MakeDataPacket(1000));
    synch.Flush();
    synch.SetAlarm(10); // an alarm while nothing is held
    synch.Receive(MakeDataPacket(2000));
    EXPECT_STREQ(BelLastAssert().m_Text, "m_lAlarmTime == 0");
    EXPECT_STREQ(BelLastAssert().m_File, "Synch");
    EXPECT_EQ(BelLastAssert().m_Line, 141);
    synch.Chain(nullptr);
    EXPECT_STREQ(BelLastAssert().m_Text, "poCZorSynchModule != 0");
    EXPECT_EQ(BelLastAssert().m_Line, 290);
}

TEST(SynchTimestamps, ComparisonHoldsAcrossTheWrap) {
    EXPECT_TRUE(CZorSynchModule::IsLater(5u, 0xFFFFFFF0u));
    EXPECT_TRUE(CZorSynchModule::IsEarlier(0xFFFFFFF0u, 5u));
    EXPECT_FALSE(CZorSynchModule::IsLater(7u, 7u));
    EXPECT_FALSE(CZorSynchModule::IsEarlier(7u, 7u));
    EXPECT_TRUE(CZorSynchModule::IsLater(2000u, 1000u));
}

TEST(SynchRing, ChainJoinsRingsAndUnChainLeavesThemWhole) {
    CZorSynchModule a(""), b(""), c("");
    EXPECT_EQ(a.GetNextInRing(), &a) << "alone: a ring of one";
    EXPECT_EQ(a.GetName(), "Synch");
    a.Chain(&b);
    c.Chain(&a);
    a.Chain(&c); // already one ring: nothing changes
    std::vector<CZorSynchModule*> ring{&a};
    for (CZorSynchModule* m = a.GetNextInRing(); m != &a; m = m->GetNextInRing()) {
        ring.push_back(m);
    }
    EXPECT_EQ(ring.size(), 3u);
    b.UnChain();
    EXPECT_EQ(b.GetNextInRing(), &b);
    EXPECT_EQ(a.GetNextInRing()->GetNextInRing(), &a);
    {
        CZorSynchModule d("");
        d.Chain(&a);
    } // destruction leaves the ring first
    EXPECT_EQ(a.GetNextInRing()->GetNextInRing(), &a);
}

// Two or more paths through one component in high speed.
class SynchHighSpeed : public ::testing::Test {
protected:
    CVirtualClockScope clock;
    std::vector<std::pair<int, long>> log;
};

TEST_F(SynchHighSpeed, RingJumpsToTheEarliestTimestamp) {
    CZorSynchModule first(""), second("");
    CRecorder outFirst(&log, 1), outSecond(&log, 2);
    first | outFirst;
    second | outSecond;
    first.Chain(&second);
    first.Notify(2, 0);
    second.Notify(2, 0);
    first.Receive(MakeDataPacket(5000));
    second.Receive(MakeDataPacket(4000));
    EXPECT_EQ(first.GetTime(), 4000);
    EXPECT_EQ(second.GetTime(), 4000);
    EXPECT_FALSE(first.IsAlarmSet()) << "waits for the ring";
    EXPECT_TRUE(second.IsAlarmSet());
    clock.Advance(0);
    ASSERT_EQ(log.size(), 2u) << "no time passed";
    EXPECT_EQ(log[0], std::make_pair(2, 4000L));
    EXPECT_EQ(log[1], std::make_pair(1, 5000L));
}

TEST_F(SynchHighSpeed, SeveralPathsStayInStepAcrossTheWrap) {
    CJokGdVector* paths = CJokGdVector::Allocate(3);
    for (int i = 0; i < 3; ++i) {
        CJokGdString* name = CJokGdString::Allocate(("hs." + std::to_string(i)).c_str());
        paths->SetElement(i, name);
        name->Release();
    }
    auto* synch = new CSynchCom(paths);
    paths->Release();
    ASSERT_EQ(synch->GetModules().size(), 3u);

    // Path i carries timestamps start + 10 * k + i, crossing the 32-bit wrap on the way.
    const std::uint32_t start = 0xFFFFFF00u;
    CQueueSource sources[3];
    std::vector<std::unique_ptr<CRecorder>> outs;
    for (int i = 0; i < 3; ++i) {
        CZorSynchModule* module = synch->GetModules()[static_cast<size_t>(i)].second;
        outs.push_back(std::make_unique<CRecorder>(&log, i));
        sources[i] | *module | *outs.back();
        for (int k = 0; k < 50; ++k) {
            sources[i].Add(MakeDataPacket(static_cast<long>(start + 10u * k + i)));
        }
    }
    CJokCommandContext setMode;
    setMode.AddParam("mode", "HighSpeed");
    synch->SetMode(&setMode);
    for (auto& source : sources) {
        source.Poll();
    }
    clock.Advance(0);
    ASSERT_EQ(log.size(), 150u) << "all of it, with no time passing";
    for (size_t n = 1; n < log.size(); ++n) {
        EXPECT_TRUE(CZorSynchModule::IsLater(static_cast<std::uint32_t>(log[n].second),
                                             static_cast<std::uint32_t>(log[n - 1].second)))
            << "out of order at " << n;
    }
    synch->Release();
}

TEST(SynchCom, SetModeAndItsTwoMessages) {
    CBelDiagnosticCapture capture;
    CJokGdVector* paths = CJokGdVector::Allocate(2);
    CJokGdString* video = CJokGdString::Allocate("sc.video");
    CJokGdString* audio = CJokGdString::Allocate("sc.audio");
    paths->SetElement(0, video);
    paths->SetElement(1, audio);
    video->Release();
    audio->Release();
    CJokCommandContext create;
    create.AddParam("paths", paths);
    paths->Release();
    auto* synch = Call<CSynchCom>(CreateSynch, create);
    ASSERT_NE(synch, nullptr);
    ASSERT_EQ(synch->GetModules().size(), 2u);
    CZorSynchModule* videoModule = synch->GetModules()[0].second;
    CZorSynchModule* audioModule = synch->GetModules()[1].second;
    EXPECT_EQ(videoModule->GetNextInRing(), audioModule) << "one ring";

    struct SCase {
        const char* m_Mode;
        const char* m_Path;
        int m_Result;
        const char* m_Message;
    };
    const SCase cases[] = {
        {"HighSpeed", nullptr, 1, ""},
        {"normal", "SC.AUDIO", 1, ""},
        {"fast", nullptr, 0, "SynchSetMode: mode must be one of [disable, normal or highspeed]\n"},
        {"disable", "sc.other", 0, "SynchSetMode: the requested path does not exist\n"},
    };
    for (const SCase& c : cases) {
        CJokCommandContext call;
        call.AddParam("mode", c.m_Mode);
        if (c.m_Path) {
            call.AddParam("path", c.m_Path);
        }
        EXPECT_EQ(synch->SetMode(&call), 1);
        auto* result = static_cast<CJokGdBoolean*>(call.GetReturnValue());
        ASSERT_NE(result, nullptr);
        EXPECT_EQ(result->GetValue(), c.m_Result) << c.m_Mode;
        EXPECT_STREQ(capture.Text(EBelDiagnosticKind::ScriptError), c.m_Message) << c.m_Mode;
        capture.Take();
    }
    EXPECT_EQ(videoModule->GetMode(), 2);
    EXPECT_EQ(audioModule->GetMode(), 1);

    // Properties go to every module; reads come from the first.
    CJokGdDouble* four = CJokGdDouble::Allocate(4.0);
    EXPECT_EQ(synch->SetProperty("scaleFactor", four), 1);
    four->Release();
    EXPECT_EQ(audioModule->GetScaleFactor(), 4.0);
    CJokGdBoolean* yes = CJokGdBoolean::Allocate(1);
    EXPECT_EQ(synch->SetProperty("paused", yes), 1);
    yes->Release();
    EXPECT_TRUE(audioModule->IsPaused());
    CJokGenericData* paused = synch->GetProperty("paused", 0);
    EXPECT_EQ(static_cast<CJokGdBoolean*>(paused)->GetValue(), 1);
    paused->Release();
    synch->Release();
}

TEST(SynchCom, PathsMustBeAVectorOfStrings) {
    CBelDiagnosticCapture capture;
    CJokGdVector* paths = CJokGdVector::Allocate(1);
    CJokGdDouble* number = CJokGdDouble::Allocate(1);
    paths->SetElement(0, number);
    number->Release();
    CJokCommandContext create;
    create.AddParam("paths", paths);
    paths->Release();
    EXPECT_EQ(Call<CSynchCom>(CreateSynch, create), nullptr);
    EXPECT_STREQ(capture.Text(EBelDiagnosticKind::ScriptError),
                 "CreateSynch: paths must be a vector of strings (or null)");
}

} // namespace
