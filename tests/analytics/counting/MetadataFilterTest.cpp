#include "analytics/counting/ExitBlockingFilter.h"
#include "analytics/counting/PeopleCountFilter.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/Command.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/GenericData.h"
#include "framework/kor/BoundingBoxesMD.h"
#include "framework/kor/Packet.h"
#include "tests/support/Harness.h"
#include "tests/support/RecordingCallback.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace zortest;

namespace {

CKorPacket* WithHandler(CKorPacket* packet, CKorMetadataHandler* handler) {
    packet->SetMetadataHandler(handler, true);
    return packet;
}

CKorMetadataHandler* Crossings(int entries, int exits, long occupancy) {
    auto* md = new CKorPeopleCountingMD;
    for (int i = 0; i < entries; ++i) {
        md->AddEvent(1, 1);
    }
    for (int i = 0; i < exits; ++i) {
        md->AddEvent(2, -1);
    }
    md->SetTotals(0, 0, occupancy);
    return md;
}

template <class TCom> class MetadataFilterFixture : public ::testing::Test {
protected:
    void SetUp() override {
        m_pCom = new TCom("");
        m_Source | m_pCom->Module() | m_Sink;
        m_Count.m_Action = [this] { m_Order.push_back("count"); };
        m_Interval.m_Action = [this] { m_Order.push_back("interval"); };
        SetCallback(m_pCom, "onCountChange", &m_Count);
    }
    void TearDown() override {
        m_Sink.Clear();
        m_pCom->Release();
        EXPECT_EQ(m_Count.GetRefCount(), 1) << "the filter gave its callback back";
    }
    void Enable(bool on = true) {
        ASSERT_TRUE(Set(m_pCom, "enabled", CJokGdBoolean::Allocate(on)));
    }
    bool Mode(const char* mode) { return Set(m_pCom, "mode", CJokGdString::Allocate(mode)); }
    CKorPacket* Last() const { return m_Sink.Packets().back(); }

    TCom* m_pCom = nullptr;
    CTestSource m_Source;
    CTestSink m_Sink;
    std::vector<std::string> m_Order;
    CRecordingCallback m_Count;
    CRecordingCallback m_Interval;
};

using PeopleCountFilter = MetadataFilterFixture<CZorPeopleCountFilterCom>;
using ExitBlockingFilter = MetadataFilterFixture<CZorExitBlockingFilterCom>;

} // namespace

TEST_F(PeopleCountFilter, NotifiesEveryPacketWithAHandlerInTheStatedOrder) {
    Enable();
    SetCallback(m_pCom, "onIntervalChange", &m_Interval);
    ASSERT_TRUE(Set(m_pCom, "Interval", CJokGdDouble::Allocate(1000)));
    m_Source.Push(MakeVideoPacket(0, 0)); // no handler: silent
    m_Source.Push(WithHandler(MakeVideoPacket(40, 0), Crossings(2, 1, 1)));
    m_Source.Push(WithHandler(MakeVideoPacket(80, 0), new CKorBoundingBoxesMD)); // no "PCD1"
    m_Source.Push(WithHandler(MakeVideoPacket(1040, 0), Crossings(0, 1, 0)));
    ASSERT_EQ(m_Count.m_Calls.size(), 3U);
    EXPECT_EQ(m_Count.m_Calls[0], (std::vector<double>{2, 0, 1, 0, 1, 0, -1}));
    EXPECT_EQ(m_Count.m_Calls[1], (std::vector<double>{2, 0, 1, 0, 1, 0, -1}));
    EXPECT_EQ(m_Count.m_Calls[2], (std::vector<double>{0, 0, 1, 0, 0, 0, -1})) << "the filter last";
    EXPECT_EQ(m_Count.m_Calls[2].m_pObject, m_pCom);
    ASSERT_EQ(m_Interval.m_Calls.size(), 1U);
    EXPECT_EQ(m_Interval.m_Calls[0], (std::vector<double>{0, 1000, 2, 1, 1, -1}));
    EXPECT_EQ(m_Order, (std::vector<std::string>{"count", "count", "interval", "count"}));
    EXPECT_EQ(m_Sink.Count(), 4);
}

TEST_F(PeopleCountFilter, WriteModeLeavesOneFreshObjectOnEveryPacketOnceEnabled) {
    // Disabled, it neither notifies nor writes.
    m_Source.Push(WithHandler(MakeVideoPacket(0, 0), Crossings(1, 0, 1)));
    ASSERT_TRUE(Mode("write"));
    m_Source.Push(MakeVideoPacket(0, 0));
    EXPECT_EQ(Last()->GetMetadataHandler(), nullptr);
    Enable();
    m_Source.Push(MakeVideoPacket(0, 0));
    CKorMetadataHandler* handler = Last()->GetMetadataHandler();
    ASSERT_NE(handler, nullptr);
    EXPECT_EQ(handler->GetType(), MakeFourCC('Z', 'K', 'V', 'A'));
    CKorPeopleCountingMD* md = CKorPeopleCountingMD::Find(handler);
    ASSERT_NE(md, nullptr);
    EXPECT_EQ(md->GetEventCount(), 0);

    // The tracker's boxes stay, and the counting object follows them.
    m_Source.Push(WithHandler(MakeVideoPacket(40, 0), new CKorBoundingBoxesMD));
    handler = Last()->GetMetadataHandler();
    EXPECT_EQ(handler->GetType(), kMetadataBoundingBoxes);
    EXPECT_NE(CKorPeopleCountingMD::Find(handler), nullptr);

    // A packet that carries one already keeps that one, emptied.
    m_Source.Push(WithHandler(MakeVideoPacket(80, 0), Crossings(3, 0, 3)));
    md = CKorPeopleCountingMD::Find(Last()->GetMetadataHandler());
    ASSERT_NE(md, nullptr);
    EXPECT_EQ(md->GetEventCount(), 0);
    EXPECT_EQ(md->Next(), nullptr);
    EXPECT_TRUE(m_Count.m_Calls.empty());
    EXPECT_EQ(Last()->RefCount(), 1U);
}

TEST_F(PeopleCountFilter, RefusesAnUnknownModeAndPrintsTheTargets) {
    CBelDiagnosticCapture capture;
    EXPECT_FALSE(Mode("count"));
    EXPECT_TRUE(Mode("WRITE"));
    EXPECT_FALSE(Set(m_pCom, "Interval", CJokGdString::Allocate("1 s")));
    CJokGenericData* mode = m_pCom->GetProperty("mode", 0);
    EXPECT_EQ(static_cast<CJokGdString*>(mode)->GetString(), CBelString("write"));
    mode->Release();
    CJokCommandContext context;
    m_pCom->PrintTargetList(&context);
    Mode("read");
    Enable();
    auto* md = static_cast<CKorPeopleCountingMD*>(Crossings(0, 0, 1));
    md->AddTarget(SKorCountingTarget{5, 6, 7, 8, 42, CKorPeopleCountingMD::TARGET_TRACKED, -1});
    m_Source.Push(WithHandler(MakeVideoPacket(0, 0), md));
    m_pCom->PrintTargetList(&context);
    const std::string dump = capture.Text(EBelDiagnosticKind::Dump).str();
    EXPECT_NE(dump.find("CZorPeopleCountFilterCom::ModeHandler -> mode is \"read\" or \"write\""),
              std::string::npos);
    EXPECT_NE(dump.find("CZorPeopleCountFilterCom::PrintTargetList -> no people-counting"),
              std::string::npos);
    EXPECT_NE(dump.find("target 42: tracked, box (5,6)-(7,8), side -1"), std::string::npos);
}

namespace {

CKorMetadataHandler* Standing(std::initializer_list<int> tenths) {
    auto* md = new CKorLeftObjectDetectionMD;
    unsigned long id = 1;
    for (int still : tenths) {
        md->AddTarget(10, 10, 20, 20, id++, CKorLeftObjectDetectionMD::TYPE_OBJECT,
                      static_cast<std::uint16_t>(still));
    }
    return md;
}

} // namespace

TEST_F(ExitBlockingFilter, NotifiesOnlyWhenSomethingStoodLongerThanTheDuration) {
    Enable();
    CJokCommandContext duration; // the script side's parameter forms are its own test's
    duration.AddParam("SetTargetDuration", 5000.0);
    m_pCom->SetTargetDuration(&duration);
    m_Source.Push(MakeVideoPacket(0, 0));
    m_Source.Push(WithHandler(MakeVideoPacket(40, 0), Standing({30, 50}))); // 3 s and 5 s
    m_Source.Push(WithHandler(MakeVideoPacket(80, 0), new CKorBoundingBoxesMD));
    m_Source.Push(WithHandler(MakeVideoPacket(120, 0), Standing({30, 51, 80}))); // 5.1 s, 8 s
    ASSERT_EQ(m_Count.m_Calls.size(), 1U);
    EXPECT_EQ(m_Count.m_Calls[0], (std::vector<double>{2, 0, 3, 0, 8, 0, -1}));
    EXPECT_EQ(m_pCom->Module().Counters().m_LongestId, 3U);
    EXPECT_EQ(m_Sink.Count(), 4);
}

TEST_F(ExitBlockingFilter, WriteModeTagsNewHandlersLOD1AndZeroesTheCounters) {
    Enable();
    m_Source.Push(WithHandler(MakeVideoPacket(0, 0), Standing({90})));
    EXPECT_EQ(m_pCom->Module().Counters().m_Targets, 1U);
    ASSERT_TRUE(Mode("write"));
    m_Source.Push(MakeVideoPacket(40, 0));
    CKorMetadataHandler* handler = Last()->GetMetadataHandler();
    ASSERT_NE(handler, nullptr);
    EXPECT_EQ(handler->GetType(), kMetadataLeftObject);
    CKorLeftObjectDetectionMD* md = CKorLeftObjectDetectionMD::Find(handler);
    ASSERT_NE(md, nullptr);
    EXPECT_NE(static_cast<CKorMetadataHandler*>(md), handler);
    EXPECT_EQ(md->GetBoxCount(), 0);
    EXPECT_EQ(m_pCom->Module().Counters().m_Targets, 0U);
    EXPECT_EQ(m_pCom->Module().Counters().m_Entries, 0U);
}
