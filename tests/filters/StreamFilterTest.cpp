#include "filters/StreamFilter.h"

#include "entry/Registry.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/GenericData.h"
#include "framework/kor/Packet.h"
#include "tests/support/Harness.h"
#include "tests/support/RecordingCallback.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace zortest;

namespace {

// One packet of a scenario: its stream number, frame type (-1: an audio packet) and whether the
// filter lets it through.
struct SStep {
    int m_Stream;
    int m_FrameType;
    bool m_Passes;
};

struct SScenario {
    const char* m_Name;
    std::vector<std::int32_t> m_Ids;
    std::int32_t m_Include;
    std::uint32_t m_Mask;
    std::vector<SStep> m_Steps;
};

constexpr int I = CKorVideoPacket::I_FRAME, P = CKorVideoPacket::P_FRAME;
constexpr int EI = CKorVideoPacket::EI_FRAME, AUDIO = -1;

class StreamFilterScenario : public ::testing::TestWithParam<SScenario> {};

TEST_P(StreamFilterScenario, PassesAndResynchronises) {
    const SScenario& s = GetParam();
    CTestSource source;
    CZorStreamFilterModule filter;
    CTestSink sink;
    source | filter | sink;
    filter.SetStreamFilter(s.m_Ids, s.m_Include, s.m_Mask);
    filter.DisableProcessing(0);
    int expected = 0;
    for (size_t i = 0; i < s.m_Steps.size(); ++i) {
        const SStep& step = s.m_Steps[i];
        CKorPacket* packet = step.m_FrameType == AUDIO
                                 ? static_cast<CKorPacket*>(MakePcmPacket(0, {0}))
                                 : MakeVideoPacket(0, step.m_FrameType);
        packet->SetStreamNo(step.m_Stream);
        source.Push(packet);
        expected += step.m_Passes ? 1 : 0;
        EXPECT_EQ(sink.Count(), expected) << s.m_Name << ", packet " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(
    StreamFilter, StreamFilterScenario,
    ::testing::Values(
        SScenario{
            "EmptyListDropsEverything", {}, 1, 0xFFFFFFFFu, {{0, I, false}, {1, AUDIO, false}}},
        SScenario{"ExcludingNothingWaitsForTheFirstKeyFrame",
                  {},
                  0,
                  0xFFFFFFFFu,
                  {{0, P, false}, {0, I, true}, {0, P, true}, {5, AUDIO, true}}},
        SScenario{"MaskSelectsTheLowBits", {2}, 1, 0xFFFFu, {{65538, I, true}, {65539, I, false}}},
        SScenario{"AfterADropOnlyAKeyFrameResumes",
                  {2},
                  1,
                  0xFFFFFFFFu,
                  {{2, I, true},
                   {2, P, true},
                   {3, P, false},
                   {2, P, false},
                   {2, EI, true},
                   {2, P, true}}},
        SScenario{"ExcludedStreamsAreDropped",
                  {7, 9},
                  0,
                  0xFFFFFFFFu,
                  {{9, I, false}, {1, I, true}, {7, AUDIO, false}, {1, AUDIO, true}}}),
    [](const ::testing::TestParamInfo<SScenario>& info) { return info.param.m_Name; });

TEST(StreamFilter, DisabledModulePassesEverythingUntouched) {
    CTestSource source;
    CZorStreamFilterModule filter;
    CTestSink sink;
    source | filter | sink;
    EXPECT_TRUE(filter.IsDisabled());
    EXPECT_EQ(filter.GetName(), "StreamFilter");
    source.Push(MakeVideoPacket(0, P, 4));
    EXPECT_EQ(sink.Count(), 1);
    EXPECT_TRUE(filter.IsResynchronising());
}

// The component, made and driven as a script does.
class StreamFilterCom : public ::testing::Test {
protected:
    CStreamFilterCom* Create(CJokGenericData* paths) {
        CJokCommandContext context;
        if (paths) {
            context.AddParamNoRef("paths", paths);
        }
        CreateStreamFilter(&context);
        CJokGenericData* result = context.GetReturnValue();
        if (!result || result->GetType() != JOKGD_OBJECT) {
            return nullptr;
        }
        auto* com =
            static_cast<CStreamFilterCom*>(static_cast<CJokGdObject*>(result)->GetCOMObject());
        com->AddRef();
        return com;
    }
    CBelDiagnosticCapture m_Capture;
};

TEST_F(StreamFilterCom, SetsAndEnablesByPathWithoutRegardToCase) {
    CStreamFilterCom* com =
        Create(Vector({CJokGdString::Allocate("Video"), CJokGdString::Allocate("audio")}));
    ASSERT_NE(com, nullptr);
    ASSERT_EQ(com->GetModules().size(), 2u);
    EXPECT_EQ(com->GetModules()[0].first, "Video");
    CZorStreamFilterModule* video = com->GetModules()[0].second;
    CZorStreamFilterModule* audio = com->GetModules()[1].second;

    CJokCommandContext set;
    set.AddParam("path", "VIDEO");
    set.AddParamNoRef("filterIDs",
                      Vector({CJokGdDouble::Allocate(2.9), CJokGdDouble::Allocate(-1)}));
    set.AddBooleanParam("includeFilter", 0);
    set.AddParam("mask", 65535.0);
    com->SetStreamFilter(&set);
    EXPECT_EQ(video->GetIds(), (std::vector<std::int32_t>{2, -1}));
    EXPECT_EQ(video->GetInclude(), 0);
    EXPECT_EQ(video->GetMask(), 0xFFFFu);
    EXPECT_TRUE(audio->GetIds().empty());

    CJokCommandContext enable;
    enable.AddParam("path", "AUDIO");
    com->EnableStreamFilter(&enable);
    EXPECT_FALSE(audio->IsDisabled());
    EXPECT_TRUE(video->IsDisabled());
    CJokCommandContext all;
    all.AddBooleanParam("enable", 0);
    com->EnableStreamFilter(&all);
    EXPECT_TRUE(audio->IsDisabled());
    EXPECT_EQ(m_Capture.Text(EBelDiagnosticKind::ScriptError), "");
    com->Release();
}

TEST_F(StreamFilterCom, ReportsBadArguments) {
    CStreamFilterCom* com = Create(Vector({CJokGdString::Allocate("v")}));
    ASSERT_NE(com, nullptr);
    CZorStreamFilterModule* module = com->GetModules()[0].second;

    CJokCommandContext notVector;
    notVector.AddParam("filterIDs", 5.0);
    com->SetStreamFilter(&notVector);
    CJokCommandContext unknown;
    unknown.AddParam("path", "x");
    unknown.AddParamNoRef("filterIDs", CJokGdNull::Allocate());
    com->SetStreamFilter(&unknown);
    CJokCommandContext unknownEnable;
    unknownEnable.AddParam("path", "y");
    com->EnableStreamFilter(&unknownEnable);
    EXPECT_EQ(m_Capture.Text(EBelDiagnosticKind::ScriptError),
              "SetFilterStream: sourceIDs must be a vector of integers (or null)"
              "StreamFilter: the requested path x does not exist.\n"
              "EnableStreamFilter: the requested path y does not exist.\n");

    const long asserts = BelAssertCount();
    CJokCommandContext mixed;
    mixed.AddParamNoRef("filterIDs",
                        Vector({CJokGdString::Allocate("1"), CJokGdDouble::Allocate(4)}));
    com->SetStreamFilter(&mixed);
    EXPECT_EQ(BelAssertCount(), asserts + 1);
    EXPECT_EQ(BelLastAssert().m_Text, "pElem->GetType() == CJokGenericData::Number");
    EXPECT_EQ(module->GetIds(), std::vector<std::int32_t>{4});
    com->Release();

    EXPECT_EQ(Create(CJokGdDouble::Allocate(3)), nullptr);
    EXPECT_EQ(Create(Vector({CJokGdDouble::Allocate(3)})), nullptr);
    const std::string errors = m_Capture.Text(EBelDiagnosticKind::ScriptError).str();
    const std::string message = "CreateStreamFilter: paths must be a vector of strings (or null)";
    const size_t first = errors.find(message);
    ASSERT_NE(first, std::string::npos);
    EXPECT_NE(errors.find(message, first + 1), std::string::npos);
    CStreamFilterCom* none = Create(CJokGdNull::Allocate());
    ASSERT_NE(none, nullptr);
    EXPECT_TRUE(none->GetModules().empty());
    none->Release();
}

} // namespace
