#include "framework/kor/MultiThreadedModule.h"

#include "framework/bel/BelMessageLoop.h"
#include "tests/support/Harness.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

using namespace zortest;

namespace {

// Stamps each packet with a marker of the thread that processed it.
class CStampingModule : public CKorMultiThreadedModule {
public:
    CStampingModule() : CKorMultiThreadedModule("Stamping", true, false, 4) {}
    ~CStampingModule() override { StopThread(); }
    std::atomic<int> m_OnOwnThread{0};
    std::thread::id m_Owner = std::this_thread::get_id();

protected:
    void ProcessPacket() override {
        if (std::this_thread::get_id() != m_Owner) {
            ++m_OnOwnThread;
        }
        m_pPacket->SetStreamNo(m_pPacket->GetStreamNo() + 1);
    }
};

TEST(MultiThreadedModule, StreamIsProcessedOnItsThreadAndDeliveredInOrderOnTheOwner) {
    CTestSource source;
    CStampingModule module;
    CTestSink sink;
    source | module | sink;
    constexpr int kPackets = 200;
    int pushed = 0;
    while (pushed < kPackets) {
        if (source.Pending()) {
            source.Poll();
        } else if (source.Push(MakeDataPacket(pushed, pushed))) {
            ++pushed;
        } else {
            ++pushed; // refused: it waits in the source and is retried by Poll
        }
        CBelMessageLoop::Current().RunUntilIdle();
    }
    while (source.Pending()) {
        module.Synch();
        source.Poll();
    }
    module.Synch();
    ASSERT_EQ(sink.Count(), kPackets);
    for (int i = 0; i < kPackets; ++i) {
        EXPECT_EQ(sink.Packets()[static_cast<size_t>(i)]->GetStreamNo(), i + 1);
    }
    EXPECT_EQ(module.m_OnOwnThread.load(), kPackets);
}

TEST(MultiThreadedModule, DisabledModulePassesThroughOnTheCallersThread) {
    CTestSource source;
    CStampingModule module;
    CTestSink sink;
    source | module | sink;
    module.DisableProcessing(1);
    EXPECT_TRUE(source.Push(MakeDataPacket(0, 5)));
    ASSERT_EQ(sink.Count(), 1);
    EXPECT_EQ(sink.Packets()[0]->GetStreamNo(), 5);
}

TEST(MultiThreadedModule, FlushDropsQueuedWork) {
    CTestSource source;
    CStampingModule module;
    CTestSink sink;
    source | module | sink;
    sink.m_Refuse = true;
    for (int i = 0; i < 3; ++i) {
        source.Push(MakeDataPacket(i));
    }
    module.Synch();
    module.Flush();
    EXPECT_EQ(sink.m_FlushCount, 1);
    sink.m_Refuse = false;
    CBelMessageLoop::Current().RunUntilIdle();
    EXPECT_EQ(sink.Count(), 0);
}

} // namespace
