#include "routing/Splitter.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/kor/Packet.h"
#include "tests/routing/RoutingHelpers.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

using namespace zortest;
using namespace routingtest;

namespace {

// source -> splitter -> n ports, each port -> its own sink.
struct SFanOut {
    explicit SFanOut(int ports) {
        source | splitter;
        for (int i = 0; i < ports; ++i) {
            this->ports.push_back(splitter.CreatePort());
            sinks.push_back(std::make_unique<CTestSink>());
            *this->ports.back() | *sinks.back();
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

// Changes the splitter's port table from inside a delivery: deletes a port, or makes one.
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

TEST(Splitter, WithoutPortsItTakesAndReleasesEveryPacket) {
    CZorSplitter splitter;
    CKorPacket* packet = MakeDataPacket(1);
    packet->AddRef(); // the test's probe
    EXPECT_EQ(splitter.Receive(packet), 1);
    EXPECT_EQ(packet->RefCount(), 1u);
    EXPECT_EQ(splitter.GetPendingPacket(), nullptr);
    packet->Release();
}

TEST(Splitter, ThreePortsShareOneObjectByReference) {
    SFanOut graph(3);
    CKorPacket* packet = MakeDataPacket(7);
    EXPECT_TRUE(graph.source.Push(packet));
    for (auto& sink : graph.sinks) {
        ASSERT_EQ(sink->Count(), 1);
        EXPECT_EQ(sink->Packets()[0], packet) << "no copy";
    }
    EXPECT_EQ(packet->RefCount(), 3u) << "one reference given, raised by two";
}

TEST(Splitter, SlowPortHoldsBackNextPacket) {
    SFanOut graph(3);
    graph.sinks[1]->m_Refuse = true;
    EXPECT_EQ(graph.splitter.Receive(MakeDataPacket(1)), 1);
    EXPECT_NE(graph.ports[1]->GetPendingPacket(), nullptr);
    EXPECT_EQ(graph.splitter.Receive(MakeDataPacket(2)), 1) << "taken in, waiting";
    CKorPacket* third = MakeDataPacket(3);
    EXPECT_EQ(graph.splitter.Receive(third), 0) << "the sender keeps it";
    EXPECT_EQ(graph.sinks[0]->Count(), 1);
    EXPECT_EQ(graph.sinks[2]->Count(), 1);

    graph.sinks[1]->m_Refuse = false;
    graph.ports[1]->Poll(); // the slow branch asks for more: the port delivers, then packet 2
    EXPECT_EQ(graph.splitter.Receive(third), 1);
    for (auto& sink : graph.sinks) {
        ASSERT_EQ(sink->Count(), 3);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(sink->Packets()[static_cast<size_t>(i)]->GetTimeStamp(), i + 1);
        }
    }
}

TEST(Splitter, PollPullsThroughFromUpstream) {
    SFanOut graph(2);
    graph.sinks[0]->m_Refuse = true;
    graph.source.Push(MakeDataPacket(1));
    graph.source.Push(MakeDataPacket(2)); // waits at the splitter
    graph.source.Push(MakeDataPacket(3)); // refused: waits at the source
    ASSERT_NE(graph.source.Pending(), nullptr);
    graph.sinks[0]->m_Refuse = false;
    graph.ports[0]->Poll();
    graph.ports[0]->Poll();
    EXPECT_EQ(graph.source.Pending(), nullptr);
    EXPECT_EQ(graph.sinks[0]->Count(), 3);
    EXPECT_EQ(graph.sinks[1]->Count(), 3);
}

TEST(Splitter, PortDeliversItsOwnPacketWhenItsDownstreamAsksAgain) {
    SFanOut graph(2);
    graph.sinks[0]->m_Refuse = true;
    graph.source.Push(MakeDataPacket(1)); // held by port 0; nothing waits at the splitter
    ASSERT_EQ(graph.splitter.GetPendingPacket(), nullptr);
    graph.sinks[0]->m_Refuse = false;
    graph.sinks[0]->Poll();
    EXPECT_EQ(graph.sinks[0]->Count(), 1);
    EXPECT_EQ(graph.source.PollCount(), 1) << "then the poll went on upstream";
}

TEST(Splitter, PortTableGrowsInStepsOfFiveAndReusesEmptySlots) {
    CZorSplitter splitter;
    std::vector<CZorSplitterPort*> ports;
    for (int i = 0; i < 5; ++i) {
        ports.push_back(splitter.CreatePort());
    }
    EXPECT_EQ(splitter.GetPortTableLength(), 5);
    ports.push_back(splitter.CreatePort());
    EXPECT_EQ(splitter.GetPortTableLength(), 10);
    EXPECT_EQ(splitter.GetPort(5), ports[5]);
    EXPECT_EQ(ports[5]->Parent(), &splitter);
    EXPECT_EQ(ports[5]->UpStreamModule(), &splitter);

    delete ports[2];
    EXPECT_EQ(splitter.GetPort(2), nullptr);
    ports[2] = splitter.CreatePort();
    EXPECT_EQ(splitter.GetPort(2), ports[2]);
    EXPECT_EQ(splitter.GetPortTableLength(), 10);
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
    ASSERT_NE(graph.splitter.GetPendingPacket(), nullptr);

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
    EXPECT_EQ(splitter.Receive(first), 1);
    EXPECT_EQ(sinkB.Count(), 1);
    EXPECT_EQ(sinkC.Count(), 0);
    sinkB.Clear();
    EXPECT_EQ(first->RefCount(), 1u) << "no reference was made for the removed port";
    first->Release();

    changer.m_pMakeOn = &splitter; // a port made during a delivery waits for the next packet
    CKorPacket* second = MakeDataPacket(2);
    second->AddRef(); // probe
    splitter.Receive(second);
    ASSERT_EQ(splitter.GetPort(2), changer.m_pMade);
    *changer.m_pMade | sinkC;
    EXPECT_EQ(sinkB.Count(), 1);
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
    EXPECT_EQ(graph.splitter.GetPendingPacket(), nullptr);
    EXPECT_EQ(graph.ports[0]->GetPendingPacket(), nullptr);
    EXPECT_EQ(waiting->RefCount(), 1u);
    EXPECT_EQ(graph.sinks[0]->m_FlushCount, 1);
    EXPECT_EQ(graph.sinks[1]->m_FlushCount, 1);
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

TEST(Splitter, MisuseIsReportedWithTheStatedTexts) {
    CZorSplitter splitter;
    CZorSplitterPort* port = splitter.CreatePort();
    CTestSink sink;
    sink.m_Refuse = true;
    *port | sink;
    CBelDiagnosticCapture capture;
    port->Receive(MakeDataPacket(1));
    port->Receive(MakeDataPacket(2));
    const SBelDiagnostic last = BelLastAssert();
    EXPECT_STREQ(last.m_Text, "m_Packet == 0");
    EXPECT_STREQ(last.m_File, "Splitter");
    EXPECT_EQ(last.m_Line, 314);
    EXPECT_EQ(port->GetPendingPacket()->GetTimeStamp(), 2) << "the older packet was released";
    delete port;
}

TEST(Splitter, DestroyedSplitterLeavesItsPortsOrphanedButSafe) {
    auto* splitter = new CZorSplitter;
    CZorSplitterPort* port = splitter->CreatePort();
    delete splitter;
    EXPECT_EQ(port->Parent(), nullptr);
    EXPECT_TRUE(port->UpStreamModule()->IsNull());
    port->Poll();
    delete port;
}

TEST(Splitter, SelfDeletingPortGoesWhenUnlinkedAtBothEnds) {
    CZorSplitter splitter;
    CTestSink sink;
    CZorSplitterPort* port = splitter.CreatePort();
    *port | sink;
    port->SetSelfDelete(true);
    sink.UnlinkModule(port);
    port->UnlinkModule(&sink); // still linked upstream: stays
    EXPECT_EQ(splitter.GetPort(0), port);
    port->UnlinkModule(&splitter); // now loose at both ends: gone
    EXPECT_EQ(splitter.GetPort(0), nullptr);
}

TEST(Splitter, UnlinkingForgetsTheUpstreamAndThePortsNeighbour) {
    CZorSplitter splitter;
    CTestSink sink;
    CZorSplitterPort* port = splitter.CreatePort();
    *port | sink;
    {
        CTestSource source;
        source | splitter;
        EXPECT_EQ(splitter.UpStreamModule(), &source);
    } // a destroyed upstream unlinks itself
    EXPECT_TRUE(splitter.UpStreamModule()->IsNull());
    splitter.UnlinkModule(&sink); // reaches the port that feeds it
    EXPECT_TRUE(port->DownStreamModule()->IsNull());
    EXPECT_EQ(port->UpStreamModule(), &splitter);
    sink.UnlinkModule(port);
    delete port;
}

// --- The component: one splitter per data path, branches joined by name. ---------------------

TEST(SplitterCom, BranchesByPathEachGetEveryPacket) {
    auto* source = new CSourceCom("sp.video");
    CJokCommandContext create;
    create.AddParam("dataPath", "sp.video");
    auto* split = Call<CSplitterCom>(CreateSplitter, create);
    ASSERT_NE(split, nullptr);

    CJokCommandContext portA, portB;
    portA.AddParam("dataPath", "sp.a");
    portB.AddParam("dataPath", "sp.b");
    auto* a =
        Call<CSplitterPortCom>([&](CJokCommandContext* c) { return split->CreatePort(c); }, portA);
    auto* b =
        Call<CSplitterPortCom>([&](CJokCommandContext* c) { return split->CreatePort(c); }, portB);
    auto* sinkA = new CSinkCom("sp.a");
    auto* sinkB = new CSinkCom("sp.b");

    EXPECT_TRUE(source->Module("sp.video")->Push(MakeDataPacket(5)));
    ASSERT_EQ(sinkA->Module("sp.a")->Count(), 1);
    ASSERT_EQ(sinkB->Module("sp.b")->Count(), 1);
    EXPECT_EQ(sinkA->Module("sp.a")->Packets()[0], sinkB->Module("sp.b")->Packets()[0]);
    EXPECT_EQ(split->GetPorts().size(), 2u);

    // Every port also joined the splitter's own path, on the same splitter module.
    auto* splitter = static_cast<CZorSplitter*>(split->CreateContext("sp.video"));
    EXPECT_EQ(a->_GetContext("sp.a")->Parent(), splitter);
    EXPECT_EQ(a->_GetContext("sp.video")->Parent(), splitter);

    for (auto* component : std::vector<CJokCOMObject*>{a, b, split, source, sinkA, sinkB}) {
        component->Release();
    }
}

TEST(SplitterCom, PortOutlivingItsSplitterMakesNoModules) {
    CJokCommandContext create;
    auto* split = Call<CSplitterCom>(CreateSplitter, create);
    CJokCommandContext portContext;
    auto* port = Call<CSplitterPortCom>([&](CJokCommandContext* c) { return split->CreatePort(c); },
                                        portContext);
    CKorModule* module = port->CreateContext("sp.orphan");
    ASSERT_NE(module, nullptr);
    split->Release();
    EXPECT_EQ(module->Parent(), nullptr);
    EXPECT_EQ(port->CreateContext("sp.orphan2"), nullptr);
    port->Release();
}

} // namespace
