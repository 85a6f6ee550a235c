#include "framework/kor/UnbufferedModule.h"

#include "framework/bel/BelDiagnostics.h"
#include "tests/support/Harness.h"

#include <functional>
#include <gtest/gtest.h>
#include <new>

using namespace zortest;

namespace {

// Runs a script of the test's choosing as its processing step.
class CScriptedModule : public CKorUnbufferedModule {
public:
    CScriptedModule() : CKorUnbufferedModule("Scripted") {}
    std::function<void(CScriptedModule&)> m_Step = [](CScriptedModule&) {};
    int m_Processed = 0;
    using CKorUnbufferedModule::m_pPacket;

protected:
    void ProcessPacket() override {
        ++m_Processed;
        m_Step(*this);
    }
};

struct UnbufferedChain : ::testing::Test {
    UnbufferedChain() { source | module | sink; }
    CTestSource source;
    CScriptedModule module;
    CTestSink sink;
};

TEST_F(UnbufferedChain, ProcessesThenPassesTheCurrentPacketOn) {
    module.m_Step = [](CScriptedModule& m) { m.m_pPacket->SetStreamNo(9); };
    EXPECT_TRUE(source.Push(MakeDataPacket(1)));
    ASSERT_EQ(sink.Count(), 1);
    EXPECT_EQ(sink.Packets()[0]->GetStreamNo(), 9);
    EXPECT_EQ(module.CurrentPacket(), nullptr);
}

TEST_F(UnbufferedChain, RefusedPacketIsPendingAndBlocksTheNextOne) {
    sink.m_Refuse = true;
    CKorPacket* first = MakeDataPacket(1);
    EXPECT_TRUE(source.Push(first)) << "the module took it; downstream refused it";
    EXPECT_EQ(module.PendingPacket(), first);
    EXPECT_FALSE(source.Push(MakeDataPacket(2)));
    EXPECT_EQ(module.m_Processed, 1) << "a refused input is not processed";
    sink.m_Refuse = false;
    module.Poll();
    EXPECT_EQ(sink.Count(), 2) << "poll delivers the pending one and pulls the next";
    EXPECT_EQ(sink.Packets()[0], first);
    EXPECT_EQ(source.Pending(), nullptr);
}

TEST_F(UnbufferedChain, LockedModuleRefusesAndHoldsItsCurrentPacket) {
    module.m_Step = [](CScriptedModule& m) { m.Lock(); };
    EXPECT_TRUE(source.Push(MakeDataPacket(1)));
    EXPECT_TRUE(module.IsLocked());
    EXPECT_NE(module.CurrentPacket(), nullptr);
    EXPECT_EQ(sink.Count(), 0);
    EXPECT_FALSE(source.Push(MakeDataPacket(2)));
    module.m_Step = [](CScriptedModule&) {};
    module.Unlock(1);
    EXPECT_EQ(sink.Count(), 1);
    module.Poll();
    EXPECT_EQ(sink.Count(), 2);
}

TEST_F(UnbufferedChain, UnlockWithoutSendLeavesPacketForPoll) {
    module.m_Step = [](CScriptedModule& m) { m.Lock(); };
    source.Push(MakeDataPacket(1));
    module.m_Step = [](CScriptedModule&) {};
    module.Unlock(0);
    EXPECT_EQ(sink.Count(), 0);
    module.Poll();
    EXPECT_EQ(sink.Count(), 1);
}

TEST_F(UnbufferedChain, DisabledModulePassesPacketsUntouched) {
    module.DisableProcessing(1);
    EXPECT_TRUE(source.Push(MakeDataPacket(1)));
    EXPECT_EQ(module.m_Processed, 0);
    EXPECT_EQ(sink.Count(), 1);
    sink.m_Refuse = true;
    EXPECT_FALSE(source.Push(MakeDataPacket(2))) << "downstream's refusal is the answer";
    EXPECT_EQ(module.PendingPacket(), nullptr);
}

TEST_F(UnbufferedChain, ReentryIsAnAssertionAndIsRefused) {
    CBelDiagnosticCapture capture;
    CKorPacket* inner = MakeDataPacket(2);
    int innerAnswer = -1;
    module.m_Step = [&](CScriptedModule& m) { innerAnswer = m.Receive(inner); };
    const long asserts = BelAssertCount();
    source.Push(MakeDataPacket(1));
    EXPECT_EQ(innerAnswer, 0);
    EXPECT_EQ(BelAssertCount(), asserts + 1);
    EXPECT_STREQ(BelLastAssert().m_Text, "!m_InRecv");
    inner->Release();
}

// Every unbuffered component inherits the boundary: an exception in its processing drops the
// packet with one line of diagnostics, and the module goes on with the next one.
TEST_F(UnbufferedChain, ExceptionInProcessingDropsThePacketAndKeepsTheModule) {
    CKorPacket* doomed = MakeDataPacket(1);
    doomed->AddRef();
    module.m_Step = [](CScriptedModule&) { throw std::bad_alloc(); };
    CBelDiagnosticCapture capture;
    EXPECT_TRUE(source.Push(doomed));
    EXPECT_EQ(capture.Text(EBelDiagnosticKind::Dump),
              "Scripted::ProcessPacket -> out of memory; the packet was dropped\n");
    EXPECT_EQ(doomed->RefCount(), 1u) << "released, not leaked";
    doomed->Release();
    module.m_Step = [](CScriptedModule&) {};
    EXPECT_TRUE(source.Push(MakeDataPacket(2)));
    EXPECT_EQ(sink.Count(), 1);
}

TEST_F(UnbufferedChain, FlushReleasesPendingAndFlushesDownstream) {
    sink.m_Refuse = true;
    source.Push(MakeDataPacket(1));
    ASSERT_NE(module.PendingPacket(), nullptr);
    module.Flush();
    EXPECT_EQ(module.PendingPacket(), nullptr);
    EXPECT_EQ(sink.m_FlushCount, 1);
}

} // namespace
