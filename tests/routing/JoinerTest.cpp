#include "routing/Joiner.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/kor/Packet.h"
#include "tests/routing/RoutingHelpers.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace zortest;
using namespace routingtest;

namespace {

// Two sources, each into a port of one joiner, the joiner into one sink.
class Joiner : public ::testing::Test {
protected:
    Joiner() {
        CJokCommandContext create;
        joiner = Call<CJoinerComp>(CreateJoiner, create);
        for (int i = 0; i < 2; ++i) {
            CJokCommandContext portContext;
            ports[i] = Call<CJoinerPortComp>(
                [&](CJokCommandContext* c) { return joiner->CreatePort(c); }, portContext);
            sources[i] | *ports[i];
        }
        *joiner | sink;
    }
    ~Joiner() override {
        for (CJokCOMObject* component :
             {static_cast<CJokCOMObject*>(ports[0]), static_cast<CJokCOMObject*>(ports[1]),
              static_cast<CJokCOMObject*>(joiner)}) {
            if (component) {
                component->Release();
            }
        }
    }
    void Lock(bool lock) {
        CJokCommandContext call;
        call.AddBooleanParam("lock", lock ? 1 : 0);
        joiner->LockHandler(&call);
    }
    std::vector<long> Delivered() const {
        std::vector<long> stamps;
        for (CKorPacket* packet : sink.Packets()) {
            stamps.push_back(packet->GetTimeStamp());
        }
        return stamps;
    }

    CTestSource sources[2];
    CJoinerPortComp* ports[2] = {};
    CJoinerComp* joiner = nullptr;
    CTestSink sink;
};

TEST_F(Joiner, MergesInArrivalOrder) {
    sources[0].Push(MakeDataPacket(1));
    sources[1].Push(MakeDataPacket(2));
    sources[0].Push(MakeDataPacket(3));
    EXPECT_EQ(Delivered(), (std::vector<long>{1, 2, 3}));
    EXPECT_EQ(joiner->GetName(), "Joiner");
    EXPECT_EQ(joiner->GetComponentName(), "Multiplexer");
}

TEST_F(Joiner, RefusedDownstreamLeavesOnePendingAndOneWaitingPerPort) {
    sink.m_Refuse = true;
    EXPECT_EQ(ports[0]->Receive(MakeDataPacket(1)), 1);
    EXPECT_EQ(ports[1]->Receive(MakeDataPacket(2)), 1);
    EXPECT_NE(joiner->GetPendingPacket(), nullptr);
    EXPECT_NE(ports[1]->GetPendingPacket(), nullptr);
    ASSERT_EQ(joiner->GetWaitingList().size(), 1u);
    CKorPacket* third = MakeDataPacket(3);
    EXPECT_EQ(ports[1]->Receive(third), 0) << "the port still holds one";

    sink.m_Refuse = false;
    joiner->Poll();
    EXPECT_EQ(Delivered(), (std::vector<long>{1, 2}));
    EXPECT_EQ(ports[1]->Receive(third), 1);
    EXPECT_EQ(Delivered(), (std::vector<long>{1, 2, 3}));
}

TEST_F(Joiner, UnlockingDeliversInTheOrderThePortsWereRefused) {
    Lock(true);
    sources[1].Push(MakeDataPacket(10));
    sources[0].Push(MakeDataPacket(20));
    sources[1].Push(MakeDataPacket(11)); // refused by its port: waits at the source
    sources[0].Push(MakeDataPacket(21));
    EXPECT_EQ(sink.Count(), 0);
    EXPECT_NE(sources[0].Pending(), nullptr);
    EXPECT_NE(sources[1].Pending(), nullptr);
    Lock(false);
    // The waiting packets go in refusal order; their ports then pull the sources' next ones.
    EXPECT_EQ(Delivered(), (std::vector<long>{10, 20, 11, 21}));
    EXPECT_EQ(sources[0].Pending(), nullptr);
}

TEST_F(Joiner, LockedTwiceNeedsTwoUnlocks) {
    Lock(true);
    Lock(true);
    sources[0].Push(MakeDataPacket(1));
    Lock(false);
    EXPECT_EQ(sink.Count(), 0);
    EXPECT_EQ(joiner->GetLockCount(), 1);
    Lock(false);
    EXPECT_EQ(sink.Count(), 1);
    Lock(false); // unlocking an open joiner changes nothing
    EXPECT_EQ(joiner->GetLockCount(), 0);
}

TEST_F(Joiner, PortFlushDropsItsPacketAndFlushesTheJoiner) {
    sink.m_Refuse = true;
    CKorPacket* pending = MakeDataPacket(1);
    CKorPacket* waiting = MakeDataPacket(2);
    pending->AddRef(); // probes
    waiting->AddRef();
    ports[0]->Receive(pending);
    ports[1]->Receive(waiting);
    ports[1]->Flush();
    EXPECT_EQ(waiting->RefCount(), 1u);
    EXPECT_EQ(pending->RefCount(), 1u) << "the joiner was flushed too";
    EXPECT_TRUE(joiner->GetWaitingList().empty());
    EXPECT_EQ(sink.m_FlushCount, 1);
    sink.m_Refuse = false;
    sources[1].Push(MakeDataPacket(3));
    EXPECT_EQ(Delivered(), (std::vector<long>{3}));
    pending->Release();
    waiting->Release();
}

// Asks its upstream for more from inside Receive, as some consumers do.
class CEagerSink : public CTestSink {
public:
    int Receive(CKorPacket* packet) override {
        if (m_Refuse) {
            return 0;
        }
        ++m_Depth;
        m_MaxDepth = std::max(m_MaxDepth, m_Depth);
        const int taken = CTestSink::Receive(packet);
        UpStreamModule()->Poll();
        --m_Depth;
        return taken;
    }
    int m_Depth = 0;
    int m_MaxDepth = 0;
};

TEST_F(Joiner, PollFromInsideAHandOverWaitsForItsTurn) {
    CEagerSink eager;
    *joiner | eager;
    eager.m_Refuse = true;
    ports[0]->Receive(MakeDataPacket(1));
    ports[1]->Receive(MakeDataPacket(2));
    ports[0]->Receive(MakeDataPacket(3));
    eager.m_Refuse = false;
    joiner->Poll();
    EXPECT_EQ(eager.m_MaxDepth, 1) << "the joiner was not re-entered during a hand-over";
    ASSERT_EQ(eager.Count(), 3);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(eager.Packets()[static_cast<size_t>(i)]->GetTimeStamp(), i + 1);
    }
}

TEST_F(Joiner, PortOutlivingItsJoinerDiscardsInput) {
    ports[0]->AddRef();
    CJoinerPortComp* port = ports[0];
    joiner->Release();
    joiner = nullptr;
    CKorPacket* packet = MakeDataPacket(1);
    packet->AddRef(); // probe
    EXPECT_EQ(port->Receive(packet), 1);
    EXPECT_EQ(packet->RefCount(), 1u);
    packet->Release();
    port->Release();
    ports[0]->Release();
    ports[0] = nullptr;
}

TEST(JoinerCom, PortsJoinTheirPathsButNeverTheJoinersOwn) {
    CBelDiagnosticCapture capture;
    auto* sourceA = new CSourceCom("jn.a");
    auto* sourceB = new CSourceCom("jn.b");
    CJokCommandContext create;
    create.AddParam("dataPath", "jn.out");
    auto* joiner = Call<CJoinerComp>(CreateJoiner, create);
    ASSERT_NE(joiner, nullptr);
    auto port = [&](const char* path) {
        CJokCommandContext call;
        call.AddParam("dataPath", path);
        return Call<CJoinerPortComp>([&](CJokCommandContext* c) { return joiner->CreatePort(c); },
                                     call);
    };
    CJoinerPortComp* a = port("jn.a");
    CJoinerPortComp* b = port("jn.b");
    EXPECT_EQ(port("jn.out"), nullptr);
    EXPECT_STREQ(capture.Text(EBelDiagnosticKind::ScriptError),
                 "Joiner: a port cannot join the joiner's own data path \"jn.out\"");
    auto* sink = new CSinkCom("jn.out");

    sourceA->Module("jn.a")->Push(MakeDataPacket(1));
    sourceB->Module("jn.b")->Push(MakeDataPacket(2));
    EXPECT_EQ(sink->Module("jn.out")->Count(), 2);
    for (auto* component : std::vector<CJokCOMObject*>{a, b, joiner, sourceA, sourceB, sink}) {
        component->Release();
    }
}

} // namespace
