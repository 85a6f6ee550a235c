// The object tracking module: packet handling and its diagnostics, frames in (generated) and
// camera-like H.264 in (decoded), format changes, odd sizes, colour and grey.
#include "analytics/tracking/ObjectTracking.h"

#include "analytics/image/BeluiBitmapBuffer.h"
#include "analytics/image/BeluiBitmapOps.h"
#include "analytics/tracking/SyntheticClip.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/kor/BoundingBoxesMD.h"
#include "framework/kor/Packet.h"
#include "tests/support/Harness.h"
#include "tests/video/ClipReader.h"
#include "tests/video/VideoTestSupport.h"
#include "video/VideoFrame.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using zortest::CTestSink;
using zortest::CTestSource;

const CKorBoundingBoxesMD* BoxesOf(const CKorPacket* packet) {
    return static_cast<const CKorBoundingBoxesMD*>(packet->FindMetadata(kMetadataBoundingBoxes));
}

int BoxCount(const CKorPacket* packet) {
    const CKorBoundingBoxesMD* boxes = BoxesOf(packet);
    return boxes ? boxes->GetBoxCount() : 0;
}

class ObjectTrackingModule : public testing::Test {
protected:
    void SetUp() override { m_Source | m_Module | m_Sink; }
    // Frame n of a synthetic scene as a frame packet stamped n * 40 ms.
    CKorVideoPacket* Frame(const CZorSyntheticClip& clip, int n, bool valid = true) {
        const SZorSynthScene& s = clip.Scene();
        CBeluiBitmapBuffer picture;
        picture.Allocate(s.m_Width, s.m_Height);
        clip.Render(n, picture.Bitmap());
        CKorVideoPacket* frame = m_Builder.Build(picture.Bitmap(), nullptr);
        frame->SetTimeStamp(static_cast<std::uint32_t>(n * 40));
        frame->SetTimeStampValid(valid);
        frame->SetAttribute(1, n % 7);
        return frame;
    }
    std::string Dumps() {
        std::string text;
        for (const SBelDiagnostic& d : m_Capture.Take()) {
            text += d.m_Text.c_str();
        }
        return text;
    }

    CBelDiagnosticCapture m_Capture;
    CZorFrameBuilder m_Builder;
    CTestSource m_Source;
    CZorObjectTrackingModule m_Module;
    CTestSink m_Sink;
};

SZorSynthScene Walker(int width, int height) {
    SZorSynthScene s = ZorSynthStaticScene(width, height, 100, 3.0, 2);
    SZorSynthObject o;
    o.m_Width = 16;
    o.m_Height = 32;
    o.m_Contrast = -50;
    o.m_Path = {{10, -16, height / 3.0}, {90, static_cast<double>(width), height / 3.0}};
    s.m_Objects.push_back(o);
    return s;
}

TEST_F(ObjectTrackingModule, FramesComeOutProcessedWithBoxesAndTheirStamps) {
    const CZorSyntheticClip clip(Walker(176, 120));
    for (int n = 0; n < 50; ++n) {
        ASSERT_TRUE(m_Source.Push(Frame(clip, n)));
    }
    ASSERT_EQ(m_Sink.Count(), 50);
    EXPECT_EQ(BoxCount(m_Sink.Packets()[0]), 0) << "the first picture is the background";
    const CKorPacket* last = m_Sink.Packets()[49];
    EXPECT_EQ(last->GetTimeStamp(), 49 * 40);
    EXPECT_TRUE(last->IsTimeStampValid());
    int level = -1;
    EXPECT_TRUE(last->GetAttribute(1, &level));
    EXPECT_EQ(level, 49 % 7);
    // The walker's corner is at x = -16 + 39 * 192 / 80 = 77.6, y = 40: its boxes are there.
    const CKorBoundingBoxesMD* boxes = BoxesOf(last);
    ASSERT_NE(boxes, nullptr);
    ASSERT_GT(boxes->GetBoxCount(), 10);
    for (int i = 0; i < boxes->GetBoxCount(); ++i) {
        const SKorBoundingBox& b = boxes->GetBox(i);
        EXPECT_GE(b.m_Left, 72);
        EXPECT_LE(b.m_Right, 100);
        EXPECT_GE(b.m_Top, 36);
        EXPECT_LE(b.m_Bottom, 76);
        EXPECT_EQ(b.m_Right - b.m_Left, 4);
        EXPECT_EQ(b.m_Id, 1U);
    }
    SBeluiBitmap luma, chroma;
    ASSERT_TRUE(
        CZorVideoFrame::GetPlanes(static_cast<const CKorVideoPacket*>(last), &luma, &chroma));
    EXPECT_EQ(luma.m_Width, 176);
    EXPECT_TRUE(chroma.IsEmpty());
    EXPECT_EQ(m_Module.Processor().FramesTracked(), 50);
    EXPECT_EQ(m_Module.Processor().FormatChanges(), 1);
    EXPECT_EQ(m_Module.Processor().CurrentFormat(), CZorVideoFrame::kGrey);
    EXPECT_EQ(Dumps(), "") << "nothing to complain about";
}

TEST_F(ObjectTrackingModule, NewSequencesAndTimeBasePackets) {
    const CZorSyntheticClip clip(Walker(64, 48));
    m_Source.Push(Frame(clip, 0));
    Dumps();
    m_Source.Push(Frame(clip, 1, false));
    EXPECT_EQ(Dumps(), "NewSequence...\n");
    EXPECT_EQ(m_Sink.Count(), 2) << "the frame is still processed";
    auto* continuous = new CKorTimeBasePacket(0, 1.0);
    continuous->SetFlags(CKorTimeBasePacket::FLAG_CONTINUOUS);
    m_Source.Push(continuous);
    EXPECT_EQ(Dumps(), "Time Base packet.\n");
    m_Source.Push(new CKorTimeBasePacket(0, 1.0));
    EXPECT_EQ(Dumps(), "Time Base packet.\nNewSequence...\n");
    m_Source.Push(new CKorTextPacket("on"));
    EXPECT_EQ(Dumps(), "");
    ASSERT_EQ(m_Sink.Count(), 5);
    EXPECT_EQ(m_Sink.Packets()[4]->GetKind(), CKorPacket::KIND_TEXT);
}

TEST_F(ObjectTrackingModule, UndecodablePacketsGoOnUnchanged) {
    CKorVideoPacket* bad = zortest::MakeVideoPacket(40, CKorVideoPacket::I_FRAME);
    BITMAPINFOHEADER header{};
    header.biSize = sizeof header;
    header.biWidth = 64;
    header.biHeight = 48;
    header.biCompression = MakeFourCC('Z', 'Z', '9', '9');
    bad->SetBitmapFormat(&header, CKorPacket::GetNewFormatSeqNumber(), 0);
    m_Source.Push(bad);
    ASSERT_EQ(m_Sink.Count(), 1);
    EXPECT_EQ(m_Sink.Packets()[0], bad);
    EXPECT_NE(Dumps().find("Should disable ObjectTracking encoding!!!\n"), std::string::npos);
}

TEST_F(ObjectTrackingModule, ASizeChangeMakesANewBackgroundAndOddSizesRun) {
    for (auto [w, h] : {std::pair{1, 1}, {5, 3}, {37, 21}, {64, 48}, {37, 21}}) {
        const CZorSyntheticClip clip(Walker(w, h));
        for (int n = 0; n < 40; ++n) {
            m_Source.Push(Frame(clip, n));
        }
        const CKorPacket* first = m_Sink.Packets()[static_cast<std::size_t>(m_Sink.Count() - 40)];
        EXPECT_EQ(BoxCount(first), 0) << w << "x" << h;
        EXPECT_TRUE(m_Module.Processor().Chain().HasShape(w, h));
    }
    EXPECT_EQ(m_Sink.Count(), 200);
    EXPECT_EQ(m_Module.Processor().FormatChanges(), 5);
}

TEST_F(ObjectTrackingModule, ColourFramesKeepColourWhereTheSceneIsCalm) {
    CBeluiBitmapBuffer luma, chroma;
    luma.Allocate(64, 48);
    chroma.Allocate(CZorVideoFrame::ChromaWidth(64), CZorVideoFrame::ChromaHeight(48));
    for (int n = 0; n < 3; ++n) {
        BeluiBitmapFill(luma.Bitmap(), 100);
        BeluiBitmapFill(chroma.Bitmap(), 90);
        for (int y = 0; y < 16 && n == 2; ++y) { // a bright square in the last frame
            std::fill_n(luma.Bitmap().Row(y), 16, 220);
        }
        CKorVideoPacket* frame = m_Builder.Build(luma.Bitmap(), &chroma.Bitmap());
        frame->SetTimeStampValid(true);
        m_Source.Push(frame);
    }
    SBeluiBitmap outLuma, outChroma;
    ASSERT_TRUE(CZorVideoFrame::GetPlanes(static_cast<CKorVideoPacket*>(m_Sink.Packets()[2]),
                                          &outLuma, &outChroma));
    ASSERT_FALSE(outChroma.IsEmpty());
    EXPECT_EQ(outChroma.Row(2)[2], 128) << "changed: neutral";
    EXPECT_EQ(outChroma.Row(20)[40], 90) << "calm: the frame's colour";
    EXPECT_EQ(outLuma.Row(40)[40], 100) << "calm: the picture";
    EXPECT_EQ(outLuma.Row(4)[4], 255) << "changed: the difference, amplified";
}

TEST(ObjectTrackingComponent, StartsDisabledAndPassesPacketsUntouched) {
    auto* com = new CZorObjectTrackingModuleCom;
    CZorObjectTrackingModule* module = com->Module();
    EXPECT_TRUE(module->IsDisabled());
    EXPECT_STREQ(module->GetName().c_str(), "Object Tracking Module");
    CTestSource source;
    CTestSink sink;
    source | *module | sink;
    CKorVideoPacket* packet = zortest::MakeVideoPacket(0, CKorVideoPacket::I_FRAME);
    source.Push(packet);
    ASSERT_EQ(sink.Count(), 1);
    EXPECT_EQ(sink.Packets()[0], packet);
    sink.Clear();
    com->ExternalRelease();
}

class ObjectTrackingOnH264 : public ObjectTrackingModule {};

TEST_F(ObjectTrackingOnH264, PedestriansOnARealCameraAreBoxedWhereTheyWalk) {
    // 30 s of a fixed camera over a footpath, 10 pictures a second, people throughout. The
    // lawn at the bottom left is walked on by nobody: once the people standing there in the
    // first picture have been absorbed as ghosts, it stays free of boxes.
    zortest::CClipPackets clip(std::string(ZOR_TRACKING_CLIPS) + "/pedestrians.ts");
    ASSERT_TRUE(clip.Ok()) << clip.Error();
    int withBoxes = 0;
    long onLawn = 0;
    long boxes = 0;
    for (int i = 0; i < clip.Count(); ++i) {
        ASSERT_TRUE(m_Source.Push(clip.Take(i)));
        const CKorPacket* out = m_Sink.Packets().back();
        const CKorBoundingBoxesMD* found = BoxesOf(out);
        if (i < 60 || !found) {
            continue;
        }
        ++withBoxes;
        for (int b = 0; b < found->GetBoxCount(); ++b) {
            const SKorBoundingBox& box = found->GetBox(b);
            onLawn += box.m_Right <= 140 && box.m_Top >= 170;
            ++boxes;
        }
    }
    EXPECT_EQ(withBoxes, clip.Count() - 60) << "people walk through the whole clip";
    EXPECT_GT(boxes / withBoxes, 50);
    EXPECT_LT(onLawn, boxes / 100);
}

TEST_F(ObjectTrackingOnH264, DamagedStreamsGoOnPacketForPacket) {
    // Every third packet damaged (flipped bytes, cuts, zeroes, noise): each packet still goes on,
    // as its tracked picture or unchanged, and nothing is read or written out of bounds (the
    // sanitizer build runs this too).
    zortest::CClipPackets clip(zortest::ClipPath("cif.ts"));
    ASSERT_TRUE(clip.Ok()) << clip.Error();
    std::mt19937 random(5);
    int frames = 0;
    for (int i = 0; i < clip.Count(); ++i) {
        CKorVideoPacket* packet = clip.Copy(i);
        if (i % 3 == 1) {
            zortest::Damage(packet, random, static_cast<unsigned>(i));
        }
        ASSERT_TRUE(m_Source.Push(packet));
        frames += CZorVideoFrame::IsFrame(static_cast<CKorVideoPacket*>(m_Sink.Packets().back()));
    }
    EXPECT_EQ(m_Sink.Count(), clip.Count());
    EXPECT_GT(frames, clip.Count() / 2);
    EXPECT_GT(m_Module.Processor().ErrorCount(), 0);
    Dumps();
}

} // namespace
