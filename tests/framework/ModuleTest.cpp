#include "framework/kor/Module.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/kor/Packet.h"
#include "tests/support/Harness.h"

#include <gtest/gtest.h>

using namespace zortest;

namespace {

TEST(Module, NullModuleTakesAndReleasesEveryPacket) {
    CKorPacket* packet = MakeDataPacket(1);
    packet->AddRef();
    EXPECT_EQ(CKorNullModule::GetModule()->Receive(packet), 1);
    EXPECT_EQ(packet->RefCount(), 1u);
    packet->Release();
}

// Sends whatever it receives back into the module above it: a loop in the chain.
class CLoopBack : public CKorModule {
public:
    CLoopBack() : CKorModule("LoopBack") {}
    int Receive(CKorPacket* packet) override { return m_pTarget->Receive(packet); }
    CKorModule* m_pTarget = nullptr;
};

TEST(Module, ReentryIntoAPassThroughIsAnAssertionAndIsRefused) {
    CKorModule pass("Pass");
    CLoopBack loop;
    loop.m_pTarget = &pass;
    pass | loop;
    CBelDiagnosticCapture capture;
    const long asserts = BelAssertCount();
    CKorPacket* packet = MakeDataPacket(1);
    EXPECT_EQ(pass.Receive(packet), 0);
    EXPECT_EQ(BelAssertCount(), asserts + 1);
    EXPECT_STREQ(BelLastAssert().m_Text, "!m_InRecv");
    packet->Release();
}

TEST(Module, DestroyedModuleUnlinksItsNeighbours) {
    CTestSource source;
    CTestSink sink;
    {
        CKorModule middle("Middle");
        source | middle | sink;
    }
    EXPECT_TRUE(source.DownStreamModule()->IsNull());
    EXPECT_TRUE(sink.UpStreamModule()->IsNull());
}

TEST(Module, RelinkingDetachesTheOldNeighbour) {
    CTestSource source;
    CTestSink a;
    CTestSink b;
    source | a;
    source | b;
    EXPECT_TRUE(a.UpStreamModule()->IsNull());
    EXPECT_EQ(b.UpStreamModule(), &source);
}

TEST(Module, PrintChainIndentsEachLevelByFour) {
    CKorModule a("A");
    CKorModule b("B");
    CKorModule c("C");
    a | b | c;
    CBelDiagnosticCapture capture;
    a.PrintChain();
    EXPECT_STREQ(capture.Text(EBelDiagnosticKind::Dump), "A\n    B\n        C\n");
    EXPECT_EQ(CKorModule::sm_PrintOffset, 0);
}

TEST(Module, TimeFollowsTheClockTimesTheScaleFactor) {
    CVirtualClockScope clock;
    CKorModule module("Timed");
    module.SetTime(1000);
    clock.Advance(100);
    EXPECT_EQ(module.GetTime(), 1100);
    module.SetTimeScaleFactor(4.0);
    clock.Advance(100);
    EXPECT_EQ(module.GetTime(), 1500);
    auto* timeBase = new CKorTimeBasePacket(50000, 0.5);
    module.SetTimeBase(timeBase);
    timeBase->Release();
    clock.Advance(200);
    EXPECT_EQ(module.GetTime(), 50100);
    EXPECT_EQ(module.GetTimeBase(), timeBase);
}

} // namespace
