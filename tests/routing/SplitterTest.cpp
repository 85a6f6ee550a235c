#include "routing/Splitter.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/kor/Packet.h"
#include "tests/support/Harness.h"

#include <gtest/gtest.h>
#include <memory>
#include <vector>

using namespace zortest;

namespace {

// source -> splitter -> n ports, each port -> its own sink.
struct SFanOut {
    explicit SFanOut(int count) {
        source | splitter;
        for (int i = 0; i < count; ++i) {
            ports.push_back(splitter.CreatePort());
            sinks.push_back(std::make_unique<CTestSink>());
            *ports.back() | *sinks.back();
        }
    }
    ~SFanOut() {
        for (CZorSplitterPort* port : ports) {
            delete port;
        }
    }
    CTestSource source;
    CZorSplitter splitter;
    std::vector<CZorSplitterPort*> ports;
    std::vector<std::unique_ptr<CTestSink>> sinks;
};

// Changes the port table from inside a delivery: deletes a port, or makes one.
class CTableChanger : public CKorModule {
public:
    CTableChanger() : CKorModule("TableChanger") {}
    int Receive(CKorPacket* packet) override {
        packet->Release();
        delete m_pVictim;
        m_pVictim = nullptr;
        if (m_pMakeOn) {
            m_pMade = m_pMakeOn->CreatePort();
            m_pMakeOn = nullptr;
        }
        return 1;
    }
    CZorSplitterPort* m_pVictim = nullptr;
    CZorSplitter* m_pMakeOn = nullptr;
    CZorSplitterPort* m_pMade = nullptr;
};

TEST(Splitter, PortsShareOnePacketByReferenceAndNoPortsDiscard) {
    SFanOut graph(3);
    CKorPacket* packet = MakeDataPacket(7);
    EXPECT_TRUE(graph.source.Push(packet));
    for (auto& sink : graph.sinks) {
        ASSERT_EQ(sink->Count(), 1);
        EXPECT_EQ(sink->Packets()[0], packet) << "no copy";
    }
    EXPECT_EQ(packet->RefCount(), 3u) << "one reference given, raised by two";

    CZorSplitter alone;
    packet->AddRef();
    EXPECT_EQ(alone.Receive(packet), 1);
    EXPECT_EQ(packet->RefCount(), 3u) << "taken and released";
}

TEST(Splitter, SlowPortHoldsBackNextPacket) {
    SFanOut graph(3);
    graph.sinks[1]->m_Refuse = true;
    EXPECT_EQ(graph.splitter.Receive(MakeDataPacket(1)), 1);
    EXPECT_EQ(graph.splitter.Receive(MakeDataPacket(2)), 1) << "taken in, waiting";
    CKorPacket* third = MakeDataPacket(3);
    EXPECT_EQ(graph.splitter.Receive(third), 0) << "the sender keeps it";
    EXPECT_EQ(graph.sinks[0]->Count(), 1);

    graph.sinks[1]->m_Refuse = false;
    graph.sinks[1]->Poll(); // the slow port delivers, then the waiting packet goes to all
    EXPECT_EQ(graph.splitter.Receive(third), 1);
    for (auto& sink : graph.sinks) {
        ASSERT_EQ(sink->Count(), 3);
        EXPECT_EQ(sink->Packets()[2]->GetTimeStamp(), 3);
    }
}

TEST(Splitter, PortDeliversItsOwnPacketWhenItsDownstreamAsksAgain) {
    SFanOut graph(2);
    graph.sinks[0]->m_Refuse = true;
    graph.source.Push(MakeDataPacket(1)); // held by port 0; nothing waits at the splitter
    graph.sinks[0]->m_Refuse = false;
    graph.sinks[0]->Poll();
    EXPECT_EQ(graph.sinks[0]->Count(), 1);
    EXPECT_EQ(graph.source.PollCount(), 1) << "then the poll went on upstream";
}

TEST(Splitter, PortTableGrowsInStepsOfFiveAndReusesEmptySlots) {
    CZorSplitter splitter;
    std::vector<CZorSplitterPort*> ports;
    for (int i = 0; i < 6; ++i) {
        ports.push_back(splitter.CreatePort());
        EXPECT_EQ(splitter.GetPortTableLength(), i < 5 ? 5 : 10);
    }
    EXPECT_EQ(splitter.GetPort(5), ports[5]);
    EXPECT_EQ(ports[5]->Parent(), &splitter);
    EXPECT_EQ(ports[5]->UpStreamModule(), &splitter);
    delete ports[2];
    EXPECT_EQ(splitter.GetPort(2), nullptr);
    ports[2] = splitter.CreatePort();
    EXPECT_EQ(splitter.GetPort(2), ports[2]);
    for (CZorSplitterPort* port : ports) {
        delete port;
    }
}

TEST(Splitter, RemovingTheSlowPortReleasesItsPacketAndLetsTheNextOneThrough) {
    SFanOut graph(2);
    graph.sinks[0]->m_Refuse = true;
    CKorPacket* first = MakeDataPacket(1);
    first->AddRef(); // probe
    graph.source.Push(first);
    graph.source.Push(MakeDataPacket(2));
    delete graph.ports[0];
    graph.ports.erase(graph.ports.begin());
    EXPECT_EQ(graph.splitter.GetPendingPacket(), nullptr);
    EXPECT_EQ(graph.sinks[1]->Count(), 2);
    graph.sinks[1]->Clear();
    EXPECT_EQ(first->RefCount(), 1u) << "only the probe is left";
    first->Release();
}

TEST(Splitter, PortTableChangingDuringDeliveryKeepsReferencesRight) {
    CZorSplitter splitter;
    CTableChanger changer;
    CTestSink sinkB, sinkC;
    CZorSplitterPort* a = splitter.CreatePort();
    CZorSplitterPort* b = splitter.CreatePort();
    CZorSplitterPort* c = splitter.CreatePort();
    *a | changer;
    *b | sinkB;
    *c | sinkC;
    const long asserts = BelAssertCount();

    changer.m_pVictim = c; // the last port leaves before its turn
    CKorPacket* first = MakeDataPacket(1);
    first->AddRef(); // probe
    splitter.Receive(first);
    EXPECT_EQ(sinkB.Count(), 1);
    sinkB.Clear();
    EXPECT_EQ(first->RefCount(), 1u) << "no reference was made for the removed port";
    first->Release();

    changer.m_pMakeOn = &splitter; // a port made during a delivery waits for the next packet
    CKorPacket* second = MakeDataPacket(2);
    second->AddRef(); // probe
    splitter.Receive(second);
    ASSERT_EQ(splitter.GetPort(2), changer.m_pMade);
    *changer.m_pMade | sinkC;
    EXPECT_EQ(second->RefCount(), 2u) << "the probe and sink B's";
    splitter.Receive(MakeDataPacket(3));
    EXPECT_EQ(sinkC.Count(), 1);
    EXPECT_EQ(BelAssertCount(), asserts);
    second->Release();
    delete changer.m_pMade;
    delete b;
    delete a;
}

TEST(Splitter, FlushReleasesThePendingPacketAndFlushesEveryPort) {
    SFanOut graph(2);
    graph.sinks[0]->m_Refuse = true;
    CKorPacket* waiting = MakeDataPacket(2);
    waiting->AddRef(); // probe
    graph.source.Push(MakeDataPacket(1));
    graph.source.Push(waiting);
    graph.splitter.Flush();
    EXPECT_EQ(graph.ports[0]->GetPendingPacket(), nullptr);
    EXPECT_EQ(waiting->RefCount(), 1u);
    EXPECT_EQ(graph.sinks[0]->m_FlushCount + graph.sinks[1]->m_FlushCount, 2);
    waiting->Release();
}

TEST(Splitter, PrintChainNumbersEverySlot) {
    CZorSplitter splitter;
    CTestSink sink;
    CZorSplitterPort* first = splitter.CreatePort();
    CZorSplitterPort* second = splitter.CreatePort();
    *second | sink;
    delete first;
    CBelDiagnosticCapture capture;
    splitter.PrintChain();
    EXPECT_STREQ(capture.Text(EBelDiagnosticKind::Dump), "Splitter\n"
                                                         "    0 - \n"
                                                         "    1 - CZorSplitterPort\n"
                                                         "        TestSink\n"
                                                         "    2 - \n"
                                                         "    3 - \n"
                                                         "    4 - \n");
    EXPECT_EQ(CKorModule::sm_PrintOffset, 0);
    delete second;
}

TEST(Splitter, PortsLeaveAndOutliveTheirSplitterSafely) {
    auto* splitter = new CZorSplitter;
    CZorSplitterPort* loose = splitter->CreatePort();
    CZorSplitterPort* kept = splitter->CreatePort();
    loose->SetSelfDelete(true);
    loose->UnlinkModule(splitter); // unlinked at both ends: leaves the table and deletes itself
    EXPECT_EQ(splitter->GetPort(0), nullptr);
    delete splitter;
    EXPECT_EQ(kept->Parent(), nullptr);
    EXPECT_TRUE(kept->UpStreamModule()->IsNull());
    kept->Poll();
    delete kept;
}

TEST(Splitter, PortOfferedASecondPacketAssertsAndKeepsTheNewer) {
    SFanOut graph(1);
    graph.sinks[0]->m_Refuse = true;
    CBelDiagnosticCapture capture;
    graph.ports[0]->Receive(MakeDataPacket(1));
    graph.ports[0]->Receive(MakeDataPacket(2));
    EXPECT_STREQ(BelLastAssert().m_Text, "m_Packet == 0");
    EXPECT_STREQ(BelLastAssert().m_File, "Splitter");
    EXPECT_EQ(BelLastAssert().m_Line, 314);
    EXPECT_EQ(graph.ports[0]->GetPendingPacket()->GetTimeStamp(), 2);
}

} // namespace
