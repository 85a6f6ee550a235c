#include "routing/Joiner.h"

#include "framework/kor/Packet.h"
#include "tests/support/Harness.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <vector>

using namespace zortest;

namespace {

// Asks its upstream for more from inside Receive, as some consumers do.
class CEagerSink : public CTestSink {
public:
    int Receive(CKorPacket* packet) override {
        if (m_Refuse) {
            return 0;
        }
        m_MaxDepth = std::max(m_MaxDepth, ++m_Depth);
        CTestSink::Receive(packet);
        UpStreamModule()->Poll();
        --m_Depth;
        return 1;
    }
    int m_Depth = 0;
    int m_MaxDepth = 0;
};

// Two sources, each into a port of one joiner, the joiner into one sink.
class Joiner : public ::testing::Test {
protected:
    Joiner() {
        for (int i = 0; i < 2; ++i) {
            ports[i] = new CJoinerPortComp("", joiner);
            sources[i] | *ports[i];
        }
        *joiner | sink;
    }
    ~Joiner() override {
        ports[0]->Release();
        ports[1]->Release();
        joiner->Release();
    }
    std::vector<long> Delivered() const {
        std::vector<long> stamps;
        for (CKorPacket* packet : sink.Packets()) {
            stamps.push_back(packet->GetTimeStamp());
        }
        return stamps;
    }

    CTestSource sources[2];
    CJoinerComp* joiner = new CJoinerComp("");
    CJoinerPortComp* ports[2] = {};
    CEagerSink sink;
};

TEST_F(Joiner, RefusedDownstreamLeavesOnePendingAndOneWaitingPerPort) {
    sink.m_Refuse = true;
    EXPECT_EQ(ports[0]->Receive(MakeDataPacket(1)), 1);
    EXPECT_EQ(ports[1]->Receive(MakeDataPacket(2)), 1);
    EXPECT_EQ(joiner->GetPendingPacket()->GetTimeStamp(), 1);
    EXPECT_EQ(ports[1]->GetPendingPacket()->GetTimeStamp(), 2);
    CKorPacket* third = MakeDataPacket(3);
    EXPECT_EQ(ports[1]->Receive(third), 0) << "the port still holds one";
    sink.m_Refuse = false;
    joiner->Poll();
    EXPECT_EQ(ports[1]->Receive(third), 1);
    EXPECT_EQ(Delivered(), (std::vector<long>{1, 2, 3}));
}

TEST_F(Joiner, UnlockingDeliversInTheOrderThePortsWereRefused) {
    joiner->Lock(true);
    joiner->Lock(true);
    sources[1].Push(MakeDataPacket(10));
    sources[0].Push(MakeDataPacket(20));
    sources[1].Push(MakeDataPacket(11)); // refused by its port: waits at the source
    sources[0].Push(MakeDataPacket(21));
    joiner->Lock(false);
    EXPECT_EQ(sink.Count(), 0) << "locked twice needs two unlocks";
    joiner->Lock(false);
    // The waiting packets go in refusal order; their ports then pull the sources' next ones.
    EXPECT_EQ(Delivered(), (std::vector<long>{10, 20, 11, 21}));
}

TEST_F(Joiner, PollFromInsideAHandOverWaitsForItsTurn) {
    sink.m_Refuse = true;
    ports[0]->Receive(MakeDataPacket(1));
    ports[1]->Receive(MakeDataPacket(2));
    ports[0]->Receive(MakeDataPacket(3));
    sink.m_Refuse = false;
    joiner->Poll();
    EXPECT_EQ(sink.m_MaxDepth, 1) << "the joiner was not re-entered during a hand-over";
    EXPECT_EQ(Delivered(), (std::vector<long>{1, 2, 3}));
}

} // namespace
