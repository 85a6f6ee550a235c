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

// Takes every packet except each n-th offer; keeps the time stamps of what it took.
class CRefusingSink : public CKorModule {
public:
    explicit CRefusingSink(int every) : CKorModule("RefusingSink"), m_Every(every) {}
    int Receive(CKorPacket* packet) override {
        if (++m_Offers % m_Every == 0) {
            return 0;
        }
        m_Stamps.push_back(packet->GetTimeStamp());
        packet->Release();
        return 1;
    }
    std::vector<long> m_Stamps;

private:
    int m_Every;
    int m_Offers = 0;
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

TEST_F(Joiner, EveryUnlockCountsSoUnlockThenLockLeavesItOpen) {
    joiner->Lock(false); // at 0: the count goes to -1
    joiner->Lock(true);  // back to 0, still open
    EXPECT_TRUE(sources[0].Push(MakeDataPacket(1)));
    EXPECT_EQ(Delivered(), (std::vector<long>{1}));
    joiner->Lock(true);
    EXPECT_TRUE(sources[0].Push(MakeDataPacket(2))) << "the port takes one packet";
    EXPECT_EQ(sink.Count(), 1) << "locked at 1";
}

// Two paced sources into one joiner whose consumer refuses now and then and polls upstream as it
// goes: both streams must get through in full. A port emptied in the walk of Poll and not
// polled again would leave its source's packet waiting for ever.
TEST_F(Joiner, OccasionalRefusalsNeverStallAStream) {
    constexpr int kPackets = 60;
    CRefusingSink refusing(3); // refuses every third offer
    *joiner | refusing;
    int sent[2] = {0, 0};
    for (int tick = 0; tick < 10 * kPackets; ++tick) {
        for (int i = 0; i < 2; ++i) {
            if (!sources[i].Pending() && sent[i] < kPackets) {
                sources[i].Push(MakeDataPacket(1000 * i + sent[i]++));
            }
        }
        if (tick % 2 == 1) {
            refusing.UpStreamModule()->Poll(); // the consumer asks for what waits, now and then
        }
    }
    // Each stream complete and in its own order: packet k of stream i is stamped 1000 i + k.
    int got[2] = {0, 0};
    for (long stamp : refusing.m_Stamps) {
        const int stream = static_cast<int>(stamp / 1000);
        EXPECT_EQ(stamp % 1000, got[stream]++);
    }
    EXPECT_EQ(got[0], kPackets);
    EXPECT_EQ(got[1], kPackets);
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
