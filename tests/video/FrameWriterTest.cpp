#include "video/FrameWriter.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/kor/BoundingBoxesMD.h"
#include "framework/kor/Packet.h"
#include "tests/support/Harness.h"
#include "tests/video/ClipReader.h"
#include "tests/video/VideoTestSupport.h"
#include "video/VideoFrame.h"
#include "video/core/ContactSheet.h"
#include "video/core/Drawing.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

namespace {

namespace fs = std::filesystem;
using zortest::ReadBack;
using zortest::SReadBack;

constexpr SZorColour kRed{255, 0, 0};

std::string OutDir(const char* name) {
    const fs::path dir = fs::path(testing::TempDir()) / "zor-video" / name;
    fs::remove_all(dir);
    fs::create_directories(dir);
    return dir.string();
}

// ---- drawing and the sheet's arithmetic --------------------------------------------------------

TEST(Drawing, BoxesTextAndLinesAreClippedToThePicture) {
    // A guard row of 0xEE lies past the picture; nothing may reach it.
    std::vector<std::uint8_t> pixels(3 * 20 * 10 + 30, 0xEE);
    std::fill(pixels.begin(), pixels.begin() + 3 * 20 * 10, 0);
    const SZorRgbImage image{pixels.data(), 60, 20, 10};
    auto at = [&](int x, int y) {
        const std::uint8_t* p = image.Pixel(x, y);
        return SZorColour{p[0], p[1], p[2]};
    };
    ZorDrawBox(image, -5, 2, 12, 30, kRed, 2); // its left and bottom sides lie outside
    ZorDrawBox(image, 14, 3, 18, 8, {0, 255, 0}, 1);
    ZorDrawText(image, 15, 9, "12:34", {0, 0, 255}, 3);
    ZorFillRect(image, 100, 100, 200, 200, kRed);
    EXPECT_EQ(at(0, 2), kRed);
    EXPECT_EQ(at(11, 9), kRed);
    EXPECT_EQ(at(5, 9), (SZorColour{0, 0, 0})) << "an outline, not a fill";
    EXPECT_EQ(at(14, 3), (SZorColour{0, 255, 0}));
    EXPECT_EQ(at(17, 7), (SZorColour{0, 255, 0})) << "right and bottom are exclusive";
    EXPECT_EQ(at(18, 7), (SZorColour{0, 0, 0}));
    EXPECT_EQ(ZorTextWidth("12:34", 3), (5 * 6 - 1) * 3);
    EXPECT_NE(ZorBoxColour(1), ZorBoxColour(2));

    const SZorColour blue{0, 0, 255};
    ZorDrawLine(image, 2, 0, 17, 5, blue, 1); // shallow, left to right
    EXPECT_TRUE(at(2, 0) == blue && at(17, 5) == blue && at(10, 3) == blue) << "ends and middle";
    EXPECT_NE(at(10, 0), blue);
    ZorDrawLine(image, 7, 9, 7, 0, blue, 1); // steep, bottom to top
    for (int y = 0; y < 10; ++y) {
        EXPECT_EQ(at(7, y), blue) << y;
    }
    ZorDrawLine(image, -50, 30, 70, -40, kRed, 3); // mostly outside, thick
    EXPECT_TRUE(std::all_of(pixels.end() - 30, pixels.end(), [](int v) { return v == 0xEE; }));
}

TEST(ContactSheet, PickerSpreadsThumbnailsOverAnyLength) {
    for (int total : {5, 12, 100, 1000, 4321}) {
        CZorThumbnailPicker<int> picker(12);
        for (int i = 0; i < total; ++i) {
            if (picker.Offer()) {
                picker.Keep(i);
            }
            ASSERT_LT(picker.KeptCount(), 24);
        }
        const std::vector<int> chosen = picker.Take();
        ASSERT_EQ(static_cast<int>(chosen.size()), std::min(total, 12)) << total;
        EXPECT_EQ(chosen.front(), 0);
        EXPECT_GE(chosen.back(), total - 2 * static_cast<int>(picker.Step())) << total;
        for (size_t i = 1; i < chosen.size(); ++i) {
            EXPECT_GT(chosen[i], chosen[i - 1]);
        }
    }
}

TEST(ContactSheet, LayoutAndCaptions) {
    const SZorSheetLayout layout = ZorSheetLayout(10, 4, 240, 180);
    EXPECT_EQ(layout.m_Columns, 4);
    EXPECT_EQ(layout.Cell(5),
              (std::pair{layout.m_Margin * 2 + 240, layout.m_Margin * 2 + layout.m_CellHeight}));
    EXPECT_EQ(layout.m_Height, layout.m_Margin + 3 * (layout.m_CellHeight + layout.m_Margin));
    EXPECT_EQ(ZorSheetLayout(2, 4, 100, 50).m_Columns, 2) << "no empty columns";
    EXPECT_EQ(ZorTimeCaption(0), "0:00.0");
    EXPECT_EQ(ZorTimeCaption(83456), "1:23.4");
    EXPECT_EQ(ZorTimeCaption(3723000), "1:02:03.0");
}

TEST(FrameWriter, SnapshotPatternsTakeOneNumber) {
    for (const char* good : {"a%d.png", "snap-%05d.png", "%3d", "100%%-%d.png"}) {
        EXPECT_TRUE(CZorFrameWriter::IsSnapshotPattern(good)) << good;
    }
    for (const char* bad : {"a.png", "%s.png", "%d-%d.png", "%x.png", "%", "%-5d", "%999d"}) {
        EXPECT_FALSE(CZorFrameWriter::IsSnapshotPattern(bad)) << bad;
    }
}

// ---- the writer, read back -------------------------------------------------------------------

// Grey NV12 frames 160 x 120 with one box, 40 ms apart, level 3.
class FrameWriterOutput : public testing::Test {
protected:
    void SetUp() override { m_Source | m_Writer | m_Sink; }
    void PushFrames(int count, int width = 160, int height = 120) {
        for (int i = 0; i < count; ++i) {
            CKorVideoPacket* frame = m_Builder.NewFrame(width, height, false);
            SBeluiBitmap luma;
            SBeluiBitmap chroma;
            CZorVideoFrame::GetPlanes(frame, &luma, &chroma);
            for (int y = 0; y < luma.m_Height; ++y) {
                std::fill(luma.Row(y), luma.Row(y) + luma.m_Width, std::uint8_t{128});
            }
            for (int y = 0; y < chroma.m_Height; ++y) {
                std::fill(chroma.Row(y), chroma.Row(y) + chroma.m_Width, std::uint8_t{128});
            }
            auto* boxes = new CKorBoundingBoxesMD;
            boxes->AddBox(SKorBoundingBox{20, 30, 60, 90, 0});
            frame->SetMetadataHandler(boxes, true);
            frame->SetTimeStamp(static_cast<std::uint32_t>(1000 + 40 * i));
            frame->SetTimeStampValid(true);
            frame->SetAttribute(1, 3);
            m_Source.Push(frame);
        }
    }

    CZorFrameBuilder m_Builder;
    zortest::CTestSource m_Source;
    CZorFrameWriter m_Writer;
    zortest::CTestSink m_Sink;
};

TEST_F(FrameWriterOutput, SnapshotsShowTheFrameWithItsBoxes) {
    const std::string dir = OutDir("snapshots");
    m_Writer.Settings().m_Snapshots = dir + "/snap-%02d.png";
    m_Writer.Settings().m_SnapshotInterval = 100;
    m_Writer.Settings().m_DrawBoxes = true;
    m_Writer.Settings().m_Width = 320; // shown twice as large
    PushFrames(8);                     // 1000 .. 1280 ms: snapshots at 1000, 1120, 1240
    EXPECT_EQ(m_Sink.Count(), 8) << "every frame goes on";
    EXPECT_EQ(m_Writer.SnapshotsWritten(), 3);
    EXPECT_EQ(m_Writer.LastFile(), dir + "/snap-03.png");

    const SReadBack png = ReadBack(dir + "/snap-01.png");
    ASSERT_EQ(png.m_Width, 320);
    ASSERT_EQ(png.m_Height, 240);
    const std::uint8_t* edge = png.Pixel(40, 100); // the box's left side, scaled by 2
    EXPECT_GT(edge[0], 200);
    EXPECT_LT(edge[1], 100);
    const std::uint8_t* inside = png.Pixel(80, 120);
    EXPECT_NEAR(inside[0], 130, 6) << "video-range grey 128 shows as mid grey";
    EXPECT_NEAR(inside[0], inside[2], 3);
    // The frames that went on were not drawn on.
    SBeluiBitmap luma;
    CZorVideoFrame::GetPlanes(static_cast<CKorVideoPacket*>(m_Sink.Packets()[0]), &luma, nullptr);
    EXPECT_EQ(luma.Row(30)[20], 128);
}

TEST_F(FrameWriterOutput, VideoFileAndContactSheetReadBack) {
    const std::string dir = OutDir("video");
    m_Writer.Settings().m_Video = dir + "/out.mp4";
    m_Writer.Settings().m_ContactSheet = dir + "/sheet.png";
    m_Writer.Settings().m_SheetCount = 6;
    m_Writer.Settings().m_SheetColumns = 3;
    m_Writer.Settings().m_ThumbWidth = 80;
    m_Writer.Settings().m_DrawTime = true;
    PushFrames(20);
    PushFrames(5, 320, 240); // a size change: scaled into the file's size
    ASSERT_TRUE(m_Writer.Close()) << m_Writer.Error();

    const SReadBack video = ReadBack(dir + "/out.mp4");
    EXPECT_EQ(video.m_Frames, 25);
    EXPECT_EQ(video.m_Width, 160);
    EXPECT_EQ(video.m_Height, 120);
    ASSERT_GE(video.m_TimesMs.size(), 2u);
    EXPECT_EQ(video.m_TimesMs[1] - video.m_TimesMs[0], 40) << "the frames' own times";
    EXPECT_LT(video.Pixel(2, 2)[0], 60) << "the time caption's dark background";

    const SReadBack sheet = ReadBack(dir + "/sheet.png");
    const SZorSheetLayout layout = ZorSheetLayout(6, 3, 80, 60);
    EXPECT_EQ(sheet.m_Width, layout.m_Width);
    EXPECT_EQ(sheet.m_Height, layout.m_Height);
    const auto [x, y] = layout.Cell(4);
    EXPECT_NEAR(sheet.Pixel(x + 40, y + 20)[1], 130, 8) << "a thumbnail in cell 4";
    EXPECT_EQ(sheet.Pixel(1, 1)[0], 32) << "the sheet's background";
}

TEST_F(FrameWriterOutput, UnwritableOutputsAreReportedOnceAndPacketsFlowOn) {
    CBelDiagnosticCapture capture;
    m_Writer.Settings().m_Snapshots = "/nonexistent-dir/snap-%d.png";
    m_Writer.Settings().m_SnapshotInterval = 0;
    m_Writer.Settings().m_Video = OutDir("bad") + "/out.unknown-container";
    PushFrames(4);
    EXPECT_EQ(m_Sink.Count(), 4);
    EXPECT_EQ(m_Writer.SnapshotsWritten(), 0);
    const std::vector<SBelDiagnostic> lines = capture.Take();
    ASSERT_EQ(lines.size(), 2u) << "one line per output";
    EXPECT_NE(std::string(lines[0].m_Text.c_str())
                  .find("CZorFrameWriter::Snapshot -> "
                        "/nonexistent-dir/snap-1.png: cannot"),
              std::string::npos)
        << lines[0].m_Text.c_str();
    EXPECT_NE(std::string(lines[1].m_Text.c_str()).find("no container"), std::string::npos);
    EXPECT_FALSE(m_Writer.Close());
    EXPECT_FALSE(m_Writer.Snapshot("/nonexistent-dir/x.png"));
}

// Compressed packets are decoded by the writer itself and go on unchanged.
TEST(FrameWriter, DecodesCompressedPacketsItself) {
    zortest::CClipPackets clip(zortest::ClipPath("qcif.ts"));
    ASSERT_TRUE(clip.Ok()) << clip.Error();
    zortest::CTestSource source;
    CZorFrameWriter writer;
    zortest::CTestSink sink;
    source | writer | sink;
    const std::string dir = OutDir("compressed");
    writer.Settings().m_Video = dir + "/clip.mkv";
    for (int i = 0; i < clip.Count(); ++i) {
        source.Push(clip.Take(i));
    }
    ASSERT_TRUE(writer.Close()) << writer.Error();
    EXPECT_EQ(sink.Count(), clip.Count());
    EXPECT_EQ(sink.Packets()[0], clip.At(0)) << "the same packet object, not a copy";
    ASSERT_TRUE(writer.Snapshot(dir + "/last.png"));
    const SReadBack video = ReadBack(dir + "/clip.mkv");
    EXPECT_EQ(video.m_Frames, clip.Count());
    EXPECT_EQ(video.m_Width, 176);
    EXPECT_EQ(ReadBack(dir + "/last.png").m_Height, 144);
}

} // namespace
