#include "routing/Synch.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/kor/Packet.h"
#include "tests/support/Harness.h"

#include <deque>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

using namespace zortest;

namespace {

// Takes every packet and notes (tag, timestamp) in a log shared between recorders.
class CRecorder : public CKorModule {
public:
    CRecorder(std::vector<std::pair<int, long>>* log, int tag)
        : CKorModule("Recorder"), m_pLog(log), m_Tag(tag) {}
    int Receive(CKorPacket* packet) override {
        m_pLog->emplace_back(m_Tag, packet->GetTimeStamp());
        packet->Release();
        return 1;
    }
    std::vector<std::pair<int, long>>* m_pLog;
    int m_Tag;
};

// Offers its queue (it owns the references) downstream, in order, whenever polled.
class CQueueSource : public CKorModule {
public:
    CQueueSource() : CKorModule("QueueSource") {}
    ~CQueueSource() override {
        for (CKorPacket* packet : m_Queue) {
            packet->Release();
        }
    }
    void Poll() override {
        while (!m_Queue.empty() && DownStreamModule()->Receive(m_Queue.front())) {
            m_Queue.pop_front();
        }
    }
    std::deque<CKorPacket*> m_Queue;
};

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
    long m_Lead; // timestamp - module time (ms); kUnstamped for no valid timestamp
    long m_Wait; // expected wall wait (ms)
};
constexpr long kUnstamped = -1;
void PrintTo(const SWaitCase& c, std::ostream* os) {
    *os << c.m_Label;
}

class SynchWait : public Synch, public ::testing::WithParamInterface<SWaitCase> {};

TEST_P(SynchWait, LeadIsDividedByTheScaleAndTruncated) {
    const SWaitCase& c = GetParam();
    synch.SetScaleFactor(c.m_Scale);
    synch.SetTime(0);
    CKorPacket* packet = MakeDataPacket(c.m_Lead);
    packet->SetTimeStampValid(c.m_Lead != kUnstamped);
    EXPECT_EQ(synch.Receive(packet), 1);
    clock.Advance(c.m_Wait > 0 ? static_cast<double>(c.m_Wait) - 0.5 : 0.0);
    EXPECT_EQ(sink.Count(), c.m_Wait > 0 ? 0 : 1);
    clock.Advance(1);
    EXPECT_EQ(sink.Count(), 1);
}

INSTANTIATE_TEST_SUITE_P(Synch, SynchWait,
                         ::testing::Values(SWaitCase{"Scale2", 2.0, 1000, 500},
                                           SWaitCase{"ScaleHalf", 0.5, 1000, 2000},
                                           SWaitCase{"LeadOfOneAtScale3", 3.0, 1, 0},
                                           SWaitCase{"InThePast", 1.0, -500, 0},
                                           SWaitCase{"Unstamped", 1.0, kUnstamped, 0}),
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

TEST_F(Synch, DisabledPassesEveryPacketAtOnceWithoutAlarm) {
    synch.Notify(0, 0);
    synch.Receive(MakeDataPacket(5000));
    EXPECT_EQ(sink.Count(), 1) << "inside Receive, no clock advance";
    EXPECT_FALSE(synch.IsAlarmSet());
    sink.m_Refuse = true;
    synch.Receive(MakeDataPacket(6000));
    sink.m_Refuse = false;
    sink.Poll(); // downstream asks again
    EXPECT_EQ(sink.Count(), 2);
}

TEST_F(Synch, TimeBaseTakesTheScaleSetAndAnchorsTheClock) {
    synch.SetScaleFactor(2.0);
    synch.SetScaleFactor(-1.0); // "not set": the pace in force stays
    synch.SetScaleFactor(2.0);
    auto* timeBase = new CKorTimeBasePacket(10000, 1.0);
    synch.Receive(timeBase);
    EXPECT_EQ(timeBase->GetScaleFactor(), 2.0);
    EXPECT_EQ(synch.GetTime(), 10000);
    EXPECT_EQ(synch.GetScaleFactor(), 2.0);
}

TEST_F(Synch, FlushReleasesTheHeldPacketAndClearsPause) {
    CKorPacket* packet = MakeDataPacket(1000);
    packet->AddRef(); // probe
    synch.Receive(packet);
    synch.SetPaused(true);
    synch.Flush();
    EXPECT_FALSE(synch.IsPaused());
    EXPECT_FALSE(synch.IsAlarmSet());
    EXPECT_EQ(packet->RefCount(), 1u);
    EXPECT_EQ(sink.m_FlushCount, 1);
    packet->Release();
}

TEST_F(Synch, MisuseIsReportedWithTheStatedTexts) {
    CBelDiagnosticCapture capture;
    synch.SetAlarm(10); // an alarm while nothing is held
    synch.Receive(MakeDataPacket(2000));
    EXPECT_STREQ(BelLastAssert().m_Text, "m_lAlarmTime == 0");
    EXPECT_STREQ(BelLastAssert().m_File, "Synch");
    EXPECT_EQ(BelLastAssert().m_Line, 141);
    synch.Chain(nullptr);
    EXPECT_STREQ(BelLastAssert().m_Text, "poCZorSynchModule != 0");
    EXPECT_EQ(BelLastAssert().m_Line, 290);
}

TEST(SynchRing, ChainJoinsRingsAndUnChainLeavesThemWhole) {
    CZorSynchModule a(""), b(""), c("");
    EXPECT_EQ(a.GetNextInRing(), &a) << "alone: a ring of one";
    a.Chain(&b);
    c.Chain(&a);
    a.Chain(&c); // already one ring: nothing changes
    EXPECT_EQ(a.GetNextInRing()->GetNextInRing()->GetNextInRing(), &a);
    b.UnChain();
    EXPECT_EQ(b.GetNextInRing(), &b);
    EXPECT_EQ(a.GetNextInRing()->GetNextInRing(), &a);
    {
        CZorSynchModule d("");
        d.Chain(&a);
    } // destruction leaves the ring first
    EXPECT_EQ(a.GetNextInRing()->GetNextInRing(), &a);
}

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
    EXPECT_EQ(log, (std::vector<std::pair<int, long>>{{2, 4000}, {1, 5000}})) << "no time passed";
}

TEST_F(SynchHighSpeed, SeveralPathsStayInStepAcrossTheWrap) {
    CZorSynchModule modules[3] = {CZorSynchModule(""), CZorSynchModule(""), CZorSynchModule("")};
    // Path i carries timestamps start + 10 * k + i, crossing the 32-bit wrap on the way.
    const std::uint32_t start = 0xFFFFFF00u;
    CQueueSource sources[3];
    std::vector<std::unique_ptr<CRecorder>> outs;
    for (int i = 0; i < 3; ++i) {
        CZorSynchModule* module = &modules[i];
        module->Chain(&modules[0]);
        outs.push_back(std::make_unique<CRecorder>(&log, i));
        sources[i] | *module | *outs.back();
        module->Notify(2, 0);
        for (int k = 0; k < 50; ++k) {
            sources[i].m_Queue.push_back(MakeDataPacket(static_cast<long>(start + 10u * k + i)));
        }
    }
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
}

} // namespace
