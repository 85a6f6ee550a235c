// The sector-grid component: frames stamped in place, other packets untouched, the callback on
// sudden changes, and settings refused with a reason.
#include "analytics/tracking/VideoProcessingModule.h"

#include "analytics/image/BeluiBitmapBuffer.h"
#include "analytics/image/BeluiBitmapOps.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/GenericData.h"
#include "framework/kor/Packet.h"
#include "tests/support/Harness.h"
#include "video/VideoFrame.h"

#include <gtest/gtest.h>

namespace {

using zortest::CTestSink;
using zortest::CTestSource;

TEST(VideoProcessingModule, FramesAreStampedAndChangesSignalled) {
    CZorVideoProcessingModule module;
    CTestSource source;
    CTestSink sink;
    source | module | sink;
    std::vector<long> changes;
    module.m_OnChange = [&](long time) { changes.push_back(time); };
    CZorFrameBuilder builder;
    CBeluiBitmapBuffer picture;
    picture.Allocate(96, 64);
    for (int n = 0; n < 30; ++n) {
        BeluiBitmapFill(picture.Bitmap(), n < 20 ? 60 : 180); // a light switched at frame 20
        CKorVideoPacket* frame = builder.Build(picture.Bitmap(), nullptr);
        frame->SetTimeStamp(static_cast<std::uint32_t>(n * 40));
        source.Push(frame);
    }
    source.Push(new CKorTextPacket("passes"));
    ASSERT_EQ(sink.Count(), 31);
    int value = -1;
    ASSERT_TRUE(
        sink.Packets()[20]->GetAttribute(CZorVideoProcessingModule::kScopeAttribute, &value));
    EXPECT_EQ(value, 2);
    ASSERT_TRUE(
        sink.Packets()[20]->GetAttribute(CZorVideoProcessingModule::kChangedAttribute, &value));
    EXPECT_EQ(value, 16);
    ASSERT_TRUE(
        sink.Packets()[21]->GetAttribute(CZorVideoProcessingModule::kScopeAttribute, &value));
    EXPECT_EQ(value, 0);
    EXPECT_EQ(sink.Packets()[30]->GetAttributeCount(), 0);
    EXPECT_EQ(changes, std::vector<long>{800});
}

TEST(VideoProcessingModuleCom, StartsDisabledAndRefusesBadSettingsWithAReason) {
    CBelDiagnosticCapture capture;
    auto* com = new CZorVideoProcessingModuleCom;
    EXPECT_TRUE(com->Module()->IsDisabled());
    CJokGenericData* columns = CJokGdDouble::Allocate(0);
    EXPECT_EQ(com->SetProperty("columns", columns), 0);
    columns->Release();
    EXPECT_STREQ(capture.Text(EBelDiagnosticKind::ScriptError).c_str(),
                 "GenericVideoProcessingModule.columns: columns and rows must be at least 1, with "
                 "at most 256 sectors");
    CJokGenericData* step = CJokGdDouble::Allocate(2.5);
    EXPECT_EQ(com->SetProperty("step", step), 0);
    step->Release();
    CJokGenericData* rows = CJokGdDouble::Allocate(3);
    EXPECT_EQ(com->SetProperty("rows", rows), 1);
    rows->Release();
    EXPECT_EQ(com->Module()->Grid().Settings().m_Rows, 3);
    CJokGenericData* levels = com->GetProperty("levels", 0);
    ASSERT_NE(levels, nullptr);
    EXPECT_EQ(levels->GetType(), 5);
    levels->Release();
    com->ExternalRelease();
}

} // namespace
