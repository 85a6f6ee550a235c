// The analysers as components: boxes in on video packets, "PCD1" / "LOD1" out, read back by the
// people-counting and exit-blocking filters.
#include "analytics/counting/ExitBlockingFilter.h"
#include "analytics/counting/LODFilter.h"
#include "analytics/counting/PCAFilter.h"
#include "analytics/counting/PeopleCountFilter.h"

#include "analytics/counting/synthetic/SyntheticScenes.h"
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

using namespace zortest;
using namespace zor::counting::synthetic;

namespace {

// A frame packet of the object tracker's kind: a 352x240 top-down picture with its boxes.
CKorPacket* Frame(long time, const std::vector<SBox>& boxes, bool valid = true) {
    CKorVideoPacket* packet = MakeVideoPacket(time, 0);
    packet->SetTimeStampValid(valid);
    BITMAPINFOHEADER header{40, 352, -240, 1, 8, 0, 0, 0, 0, 0, 0};
    static const long seq = CKorPacket::GetNewFormatSeqNumber();
    packet->SetBitmapFormat(&header, seq, 0);
    if (!boxes.empty()) {
        auto* md = new CKorBoundingBoxesMD;
        for (const SBox& b : boxes) {
            md->AddBox(SKorBoundingBox{
                static_cast<std::uint16_t>(b.m_Left), static_cast<std::uint16_t>(b.m_Top),
                static_cast<std::uint16_t>(b.m_Right), static_cast<std::uint16_t>(b.m_Bottom), 1});
        }
        packet->SetMetadataHandler(md, true);
    }
    return packet;
}

} // namespace

TEST(PCAFilter, CountsWalkersIntoTheMetadataThatScriptsRead) {
    // source -> write -> analyser -> read -> sink, as a script wires it.
    auto* write = new CZorPeopleCountFilterCom("");
    auto* pca = new CZorPCAFilterCom;
    auto* read = new CZorPeopleCountFilterCom("");
    CTestSource source;
    CTestSink sink;
    source | write->Module() | pca->Module() | read->Module() | sink;
    CRecordingCallback callback;
    SetCallback(read, "onCountChange", &callback);
    Set(write, "mode", CJokGdString::Allocate("write"));
    ASSERT_EQ(Set(pca, "line", Numbers({0, kLineY, 352, kLineY})), 1);
    for (CJokComponent* com : {static_cast<CJokComponent*>(write), static_cast<CJokComponent*>(pca),
                               static_cast<CJokComponent*>(read)}) {
        Set(com, "enabled", CJokGdBoolean::Allocate(1));
    }

    const SScene scene = WalkersOneByOne(6, 11);
    int frames = 0;
    for (const SFrame& frame : RenderScene(scene)) {
        source.Push(Frame(frame.m_Time, frame.m_Boxes));
        ++frames;
    }
    EXPECT_EQ(sink.Count(), frames);
    EXPECT_EQ(static_cast<int>(callback.m_Calls.size()), frames);
    EXPECT_EQ(callback.m_Calls.back(), (std::vector<double>{3, 0, 3, 0, 0, 0, -1}));
    EXPECT_EQ(GetNumber(pca, "entries"), 3);
    EXPECT_EQ(GetNumber(pca, "exits"), 3);
    const CKorPeopleCountingMD* md =
        CKorPeopleCountingMD::Find(sink.Packets().back()->GetMetadataHandler());
    ASSERT_NE(md, nullptr);
    EXPECT_EQ(md->GetGeometry(), CKorPeopleCountingMD::GEOMETRY_LINE);
    EXPECT_EQ(md->GetTotalEntries(), 3U);
    sink.Clear();
    for (CJokComponent* com : {static_cast<CJokComponent*>(write), static_cast<CJokComponent*>(pca),
                               static_cast<CJokComponent*>(read)}) {
        com->Release();
    }
}

TEST(PCAFilter, ReportsBadInputOnceAndPassesEveryPacket) {
    auto* pca = new CZorPCAFilterCom;
    CTestSource source;
    CTestSink sink;
    source | pca->Module() | sink;
    CBelDiagnosticCapture capture;
    Set(pca, "enabled", CJokGdBoolean::Allocate(1));
    // Refused geometry leaves the filter without any.
    EXPECT_EQ(Set(pca, "line", Numbers({10, 10, 10, 10})), 0);
    EXPECT_EQ(Set(pca, "line", Numbers({1, 2, 3})), 0);
    EXPECT_EQ(Set(pca, "zone", CJokGdString::Allocate("all")), 0);
    source.Push(Frame(0, {}));
    source.Push(Frame(40, {}));
    EXPECT_EQ(Set(pca, "line", Numbers({400, 0, 400, 240})), 1); // beside the picture
    for (long t = 80; t < 400; t += 40) {
        source.Push(Frame(t, {}));
    }
    std::vector<SBox> many; // 1,200 separate specks of foreground
    for (int i = 0; i < 1200; ++i) {
        many.push_back(SBox{8 * (i % 40), 8 * (i / 40), 8 * (i % 40) + 5, 8 * (i / 40) + 5});
    }
    source.Push(Frame(400, many));
    source.Push(Frame(440, many));
    source.Push(Frame(480, {}, false)); // no valid time: passed untouched
    EXPECT_EQ(sink.Count(), 13);
    EXPECT_EQ(sink.Packets().back()->GetMetadataHandler(), nullptr);
    const std::string dump = capture.Text(EBelDiagnosticKind::Dump).str();
    auto count = [&](const char* text) {
        int n = 0;
        for (size_t at = dump.find(text); at != std::string::npos; at = dump.find(text, at + 1)) {
            ++n;
        }
        return n;
    };
    EXPECT_EQ(count("a line is { x1, y1, x2, y2 }"), 2);
    EXPECT_EQ(count("no counting line or zone is set"), 1);
    EXPECT_EQ(count("lies outside the 352x240 picture"), 1);
    EXPECT_EQ(count("1200 boxes on one frame: 688 of them are not followed"), 1);
    sink.Clear();
    pca->Release();
}

TEST(LODFilter, ABagLeftBehindRaisesTheExitBlockingAlarmInTime) {
    auto* lod = new CZorLODFilter;
    auto* blocking = new CZorExitBlockingFilterCom("");
    CTestSource source;
    CTestSink sink;
    source | lod->Module() | blocking->Module() | sink;
    CRecordingCallback callback;
    SetCallback(blocking, "onCountChange", &callback);
    CJokCommandContext duration;
    duration.AddParam("SetTargetDuration", 5000.0);
    blocking->SetTargetDuration(&duration);
    Set(lod, "enabled", CJokGdBoolean::Allocate(1));
    Set(blocking, "enabled", CJokGdBoolean::Allocate(1));

    const long drop = 8000;
    SScene scene = LeftBag(drop, 3);
    scene.m_AbsorbAfter = 1200;
    long first = -1;
    for (const SFrame& frame : RenderScene(scene)) {
        source.Push(Frame(frame.m_Time, frame.m_Boxes));
        if (first < 0 && !callback.m_Calls.empty()) {
            first = frame.m_Time;
        }
    }
    ASSERT_GE(first, 0);
    EXPECT_LE(first, drop + 5000 + 1000);
    EXPECT_EQ(callback.m_Calls.back()[0], 1);
    EXPECT_EQ(GetNumber(lod, "targets"), 1);
    const CKorLeftObjectDetectionMD* md =
        CKorLeftObjectDetectionMD::Find(sink.Packets().back()->GetMetadataHandler());
    ASSERT_NE(md, nullptr);
    ASSERT_EQ(md->GetBoxCount(), 1);
    EXPECT_EQ(md->GetTarget(0).m_Type, CKorLeftObjectDetectionMD::TYPE_OBJECT);
    sink.Clear();
    lod->Release();
    blocking->Release();
}
