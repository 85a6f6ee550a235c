#include "filters/AttributeSetter.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/GenericData.h"
#include "framework/kor/Packet.h"
#include "tests/support/Harness.h"
#include "tests/support/RecordingCallback.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

using namespace zortest;

namespace {

using Pairs = std::vector<std::pair<int, int>>;

class AttributeSetter : public ::testing::Test {
protected:
    void SetUp() override {
        CJokGdVector* paths =
            Vector({CJokGdString::Allocate("attr.a"), CJokGdString::Allocate("attr.b")});
        m_pCom = new CAttrCom(paths);
        paths->Release();
    }
    void TearDown() override { m_pCom->Release(); }

    void Alter(double type, double value) {
        CJokCommandContext context;
        context.AddParam("type", type);
        context.AddParam("value", value);
        m_pCom->AlterAttribute(&context);
    }
    void ReleaseOne(double type) {
        CJokCommandContext context;
        context.AddParam("type", type);
        m_pCom->ReleaseAttribute(&context);
    }
    Pairs List() const {
        Pairs pairs;
        for (const CAttrCom::SAttribute& a : m_pCom->Attributes())
            pairs.emplace_back(a.m_Type, a.m_Value);
        return pairs;
    }

    CAttrCom* m_pCom = nullptr;
};

TEST_F(AttributeSetter, ListKeepsOnePairPerTypeInFirstInsertionOrder) {
    Alter(5, 1);
    Alter(1, 2.9);
    Alter(7, -2.9);
    Alter(5, 10);
    EXPECT_EQ(List(), (Pairs{{5, 10}, {1, 2}, {7, -2}}));
    ReleaseOne(1);
    ReleaseOne(99);
    EXPECT_EQ(List(), (Pairs{{5, 10}, {7, -2}}));
    CBelDiagnosticCapture capture;
    CJokCommandContext missing;
    m_pCom->AlterAttribute(&missing);
    EXPECT_EQ(capture.Text(EBelDiagnosticKind::ScriptError),
              "missing parameter 'type'; missing parameter 'value'");
    EXPECT_EQ(List().size(), 2u);
    CJokCommandContext all;
    m_pCom->ReleaseAll(&all);
    EXPECT_TRUE(List().empty());
}

TEST_F(AttributeSetter, EveryPathStampsTheSharedList) {
    CTestSource sourceA, sourceB;
    CTestSink sinkA, sinkB;
    sourceA | *m_pCom->CreateContext("attr.a") | sinkA;
    sourceB | *m_pCom->CreateContext("attr.b") | sinkB;
    sourceA.Push(MakeDataPacket(1));
    ASSERT_EQ(sinkA.Count(), 1);
    EXPECT_EQ(sinkA.Packets()[0]->GetAttributeCount(), 0) << "an empty list changes nothing";
    Alter(1, 40);
    Alter(3, -1);
    sourceB.Push(MakeVideoPacket(2, 0));
    ASSERT_EQ(sinkB.Count(), 1);
    int level = 0, other = 0;
    EXPECT_TRUE(sinkB.Packets()[0]->GetAttribute(1, &level));
    EXPECT_TRUE(sinkB.Packets()[0]->GetAttribute(3, &other));
    EXPECT_EQ(level, 40);
    EXPECT_EQ(other, -1);
    EXPECT_EQ(sinkB.Packets()[0]->GetTimeStamp(), 2);
}

} // namespace
