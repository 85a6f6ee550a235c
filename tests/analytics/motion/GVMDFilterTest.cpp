#include "analytics/motion/GVMDFilter.h"

#include "framework/bel/BelDiagnostics.h"
#include "tests/analytics/motion/MotionTestSupport.h"
#include "tests/support/Harness.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace zortest;

namespace {

// A mask as a script gives it: a vector of {x1, x2, y1, y2} vectors.
CJokGenericData* Rects(std::initializer_list<std::initializer_list<double>> rects) {
    CJokGdVector* list = CJokGdVector::Allocate(static_cast<int>(rects.size()));
    int i = 0;
    for (const auto& rect : rects) {
        CJokGdVector* numbers = Numbers(rect);
        list->SetElement(i++, numbers);
        numbers->Release();
    }
    return list;
}

std::string Packed(CZorGVMDSettings& settings) {
    CBelString text;
    settings.PackedMaskHandler(&text, 0);
    return text.str();
}

TEST(GVMDSettings, SensitivityIsClampedAndSetsTheMinimumOverlap) {
    CZorGVMDSettings settings;
    const struct {
        double given, stored;
        long overlap;
    } cases[] = {{1.5, 1, 1}, {-2, 0, 84480}, {0.5, 0.5, 42240}, {0.99999999, 0.99999999, 1}};
    for (const auto& c : cases) {
        settings.SetSensitivity(c.given);
        EXPECT_EQ(settings.GetSensitivity(), c.stored) << c.given;
        EXPECT_EQ(settings.GetMinimumOverlap(), c.overlap) << c.given;
    }
}

TEST(GVMDSettings, MaskFormsAgreeAndRefusedValuesLeaveTheMaskAlone) {
    CZorGVMDSettings settings;
    CJokGenericData* rects = Rects({{10, 20, 30, 40}, {0, 352, 0, 240}});
    ASSERT_EQ(settings.MaskHandler(&rects, 1), 1);
    rects->Release();
    EXPECT_EQ(Packed(settings), "M1:10,30,20,40;0,0,352,240"); // {x1, x2, y1, y2} -> l,t,r,b
    CJokGenericData* back = nullptr;
    settings.MaskHandler(&back, 0);
    CJokGenericData* expected = Rects({{10, 20, 30, 40}, {0, 352, 0, 240}});
    EXPECT_TRUE(back->IsEqual(expected));
    back->Release();
    expected->Release();

    CJokGenericData* refused[] = {
        Rects({{1, 2, 3}}),        Rects({{1, 2, 3, 4}, {1, 2, 3, 4, 5}}),
        Rects({{-1, 2, 3, 4}}),    Rects({{1, 2, 3, 65536}}),
        Rects({{5, 2, 3, 4}}),     Rects({{1, 2, NAN, 4}}),
        CJokGdDouble::Allocate(3), CJokGdString::Allocate("M1:0,0,1,1"),
    };
    for (CJokGenericData* value : refused) {
        CBelString why;
        EXPECT_EQ(settings.MaskHandler(&value, 1, &why), 0);
        EXPECT_FALSE(why.IsEmpty());
        EXPECT_EQ(Packed(settings), "M1:10,30,20,40;0,0,352,240");
        value->Release();
    }
    CBelString garbage = "M1:1,2";
    EXPECT_EQ(settings.PackedMaskHandler(&garbage, 1), 0);
    CBelString empty;
    EXPECT_EQ(settings.PackedMaskHandler(&empty, 1), 1);
    EXPECT_EQ(settings.GetMask().GetBoxCount(), 0);
}

class GVMDFilter : public ::testing::Test {
protected:
    void SetUp() override {
        m_pFilter = new CZorGVMDFilter;
        m_pCallback = new CRecordingCallback;
        SetCallback(m_pFilter, "onCollision", m_pCallback);
        CBelString mask = "M1:0,0,100,100";
        m_pFilter->PackedMaskHandler(&mask, 1);
        SetBoolean(m_pFilter, "enabled", true);
        m_Source | *m_pFilter->CreateContext("video") | m_Sink;
    }
    void TearDown() override {
        m_pFilter->Release();
        m_pCallback->Release();
    }
    // A frame whose one box is inside the mask (hit) or outside it; -1 rts for none.
    void Push(long time, bool hit, double rts = -1) {
        CKorVideoPacket* packet = MakeVideoPacket(time, CKorVideoPacket::P_FRAME);
        auto* boxes = new CKorBoundingBoxesMD;
        boxes->AddBox(hit ? SKorBoundingBox{10, 10, 20, 20, 1}
                          : SKorBoundingBox{200, 200, 220, 220, 1});
        packet->SetMetadataHandler(boxes, true);
        packet->SetRealTimeStamp(rts);
        m_Source.Push(packet);
    }

    CTestSource m_Source;
    CTestSink m_Sink;
    CZorGVMDFilter* m_pFilter = nullptr;
    CRecordingCallback* m_pCallback = nullptr;
};

TEST_F(GVMDFilter, AnEndIsReportedWhenTheLongDelayRanOutWithTheRealTimeMovedBack) {
    SetNumber(m_pFilter, "longDelay", 1000);
    Push(0, true, 50.0);
    Push(40, true, 50.04);
    Push(80, false, 50.08);
    Push(5000, false, 55.0); // long after the delay ran out
    ASSERT_EQ(m_pCallback->m_Calls.size(), 2u);
    EXPECT_EQ(m_pCallback->m_Calls[0], (std::vector<double>{50.0, 1, 0, -1}));
    EXPECT_EQ(m_pCallback->m_Calls[1], (std::vector<double>{51.04, 0, 1040, -1}));
    EXPECT_EQ(GetNumber(m_pFilter, "timeStamp"), 5000);
    EXPECT_EQ(m_Sink.Count(), 4);
}

TEST_F(GVMDFilter, ShortDelayIsInclusiveAndFramesWithoutBoxesAreQuiet) {
    SetNumber(m_pFilter, "shortDelay", 500);
    Push(0, true);
    Push(499, true);
    EXPECT_TRUE(m_pCallback->m_Calls.empty());
    Push(500, true);
    ASSERT_EQ(m_pCallback->m_Calls.size(), 1u);
    EXPECT_EQ(m_pCallback->m_Calls[0][2], 500);
    m_Source.Push(MakeVideoPacket(20000, CKorVideoPacket::P_FRAME)); // no metadata at all
    EXPECT_EQ(m_pCallback->m_Calls.size(), 2u);
    EXPECT_EQ(m_pCallback->m_Calls[1][2], 15500);
}

TEST_F(GVMDFilter, DisablingReturnsToIdleAndBadSettingsAreRefused) {
    Push(0, true);
    EXPECT_EQ(m_pFilter->GetState(), zormotion::CGvmdStateMachine::COLLISION);
    SetBoolean(m_pFilter, "enabled", false);
    EXPECT_EQ(m_pFilter->GetState(), zormotion::CGvmdStateMachine::IDLE);
    CBelDiagnosticCapture capture;
    EXPECT_EQ(SetNumber(m_pFilter, "shortDelay", -5), 0);
    EXPECT_EQ(SetNumber(m_pFilter, "longDelay", NAN), 0);
    EXPECT_EQ(SetNumber(m_pFilter, "dSensitivity", NAN), 0);
    EXPECT_EQ(GetNumber(m_pFilter, "longDelay"), 15000);
    EXPECT_NE(capture.Text(EBelDiagnosticKind::ScriptError)
                  .str()
                  .find("GVMDFilter.longDelay: NaN is not a delay in ms"),
              std::string::npos);
}

// ---------------------------------------------------------------------------------------------

class ArchiveGVMDFilter : public ::testing::Test {
protected:
    void SetUp() override {
        m_pFilter = new CZorArchiveGVMDFilter;
        CBelString mask = "M1:0,0,100,100";
        m_pFilter->PackedMaskHandler(&mask, 1);
        m_pFilter->LongDelay(1000, 1);
    }
    void TearDown() override { m_pFilter->Release(); }

    CFakeAttributeSource* Attach(std::vector<SSourceRow> rows) {
        auto* source = new CFakeAttributeSource(std::move(rows));
        source->m_Boxes[1] = {{10, 10, 20, 20, 1}};     // inside the mask
        source->m_Boxes[2] = {{200, 200, 220, 220, 2}}; // outside
        source->m_Boxes[3] = {{50, 50, 60, 60, 3}};     // inside
        IUnknown* unknown = source;
        m_pFilter->SourceProperty(&unknown, 1);
        source->Release();
        return source;
    }
    std::vector<std::pair<double, double>> Find(double start, double end, bool continued = false,
                                                bool lowState = true) {
        CJokCommandContext context;
        context.AddParam("StartTime", start);
        context.AddParam("EndTime", end);
        context.AddBooleanParam("ContinuedFromPrevious", continued);
        context.AddBooleanParam("LowState", lowState);
        m_pFilter->FindCollisions(&context);
        return Intervals<CGVMDCollisionInfoCom>(context.GetReturnValue());
    }

    CZorArchiveGVMDFilter* m_pFilter = nullptr;
};

using Pairs = std::vector<std::pair<double, double>>;

TEST_F(ArchiveGVMDFilter, MetadataIsReadOnlyWhenTheKeyChanges) {
    CFakeAttributeSource* source =
        Attach({{0, 0, 2}, {40, 0, 2}, {80, 0, 1}, {120, 0, 1}, {160, 0, 2}, {5000, 0, 2}});
    EXPECT_EQ(Find(0, -1), (Pairs{{80, 1080}}));
    EXPECT_EQ(source->m_MetadataReads, 3);
}

TEST_F(ArchiveGVMDFilter, StartInsideARowReplaysTheMetadataInForceThen) {
    CFakeAttributeSource* source = Attach({{0, 0, 1}, {3000, 0, 2}, {4000, 0, 2}});
    // The held box set still collides when the long delay runs out, so the replay carries the
    // collision on to the next key change.
    EXPECT_EQ(Find(500, -1), (Pairs{{0, 2000}}));
    EXPECT_EQ(source->m_StepBacks, 1);
}

TEST_F(ArchiveGVMDFilter, ACollisionOpenAtTheEndReopensInTheNextRange) {
    Attach({{0, 0, 2}, {100, 0, 3}, {200, 0, 1}});
    EXPECT_EQ(Find(0, -1), (Pairs{{100, -1}}));
    EXPECT_EQ(m_pFilter->GetTimeOffset(), 200);
    Attach({{0, 0, 1}, {300, 0, 2}, {3000, 0, 2}});
    EXPECT_EQ(Find(0, -1, true, false), (Pairs{{0, 1000}}));
}

TEST_F(ArchiveGVMDFilter, AFailingSourceEndsTheReplayWithTheMessageAndKeepsWhatWasFound) {
    CFakeAttributeSource* source =
        Attach({{0, 0, 1}, {100, 0, 2}, {2000, 0, 3}, {2100, 0, 2}, {5000, 0, 1}});
    source->m_FailAt = 3;
    CBelDiagnosticCapture capture;
    EXPECT_EQ(Find(0, -1), (Pairs{{0, 1000}, {2000, -1}}));
    EXPECT_EQ(capture.Text(EBelDiagnosticKind::Dump),
              "CZorArchiveGVMDFilter::Replay -> Error retrieving attribute values: the test broke "
              "row\n");
    Attach({});
    EXPECT_TRUE(Find(0, -1).empty());
}

} // namespace
