#include "video/MotionLevelStamper.h"

#include "framework/kor/Packet.h"
#include "tests/support/Harness.h"
#include "tests/video/ClipReader.h"
#include "video/VideoFrame.h"
#include "video/core/MotionLevel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace {

using zortest::CClipPackets;
using zortest::ClipPath;

struct SPlane {
    SPlane(int width, int height, std::uint8_t value)
        : m_Samples(static_cast<size_t>((width + 3) * height), value), m_Bitmap{m_Samples.data(),
                                                                                width + 3, width,
                                                                                height} {}
    std::uint8_t& At(int x, int y) { return m_Bitmap.Row(y)[x]; }
    std::vector<std::uint8_t> m_Samples;
    SBeluiBitmap m_Bitmap;
};

TEST(MotionLevel, VectorKernelMatchesReference) {
    std::mt19937 random(11);
    for (auto [width, height] : {std::pair{1, 1}, std::pair{17, 15}, std::pair{35, 33},
                                 std::pair{176, 144}, std::pair{353, 97}}) {
        SPlane a(width, height, 0);
        SPlane b(width, height, 0);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                a.At(x, y) = static_cast<std::uint8_t>(random());
                // Mostly small differences around the floor, some large.
                const int step = static_cast<int>(random() % 41) - 20;
                b.At(x, y) = static_cast<std::uint8_t>(std::clamp(a.At(x, y) + step, 0, 255));
            }
        }
        for (int floor : {0, 12, 19, 255}) {
            const SZorMotionSettings settings{floor, 40.0};
            const SZorMotionMeasure fast = ZorMeasureMotion(a.m_Bitmap, b.m_Bitmap, settings);
            const SZorMotionMeasure plain =
                ZorMeasureMotionReference(a.m_Bitmap, b.m_Bitmap, settings);
            EXPECT_EQ(fast.m_ChangedBlocks, plain.m_ChangedBlocks) << width << "x" << height;
            EXPECT_EQ(fast.m_Level, plain.m_Level);
            EXPECT_EQ(fast.m_Blocks, ((width + 15) / 16) * ((height + 15) / 16));
        }
    }
}

// Which macroblocks count: 1/16 of a block's samples beyond the floor, partial edge blocks by
// their own area; noise at the floor never counts.
TEST(MotionLevel, CountsBlocksWithEnoughChangedSamples) {
    SPlane before(40, 20, 100); // blocks: 3 x 2, the right and bottom ones partial
    SPlane after(40, 20, 100);
    for (int y = 0; y < 20; ++y) {
        for (int x = 0; x < 40; ++x) {
            after.At(x, y) = static_cast<std::uint8_t>(100 + ((x + y) % 2 ? 12 : -12));
        }
    }
    const SZorMotionSettings settings{12, 40.0};
    EXPECT_EQ(ZorMeasureMotion(after.m_Bitmap, before.m_Bitmap, settings).m_ChangedBlocks, 0);

    SPlane moved(40, 20, 100);
    for (int i = 0; i < 15; ++i) {
        moved.At(i, 0) = 200; // 15 of 256 samples of block (0, 0): not enough
    }
    for (int i = 0; i < 16; ++i) {
        moved.At(16 + i, 1) = 0; // 16 of 256 of block (1, 0): enough
    }
    moved.At(39, 19) = 0; // 2 of the 32 of the 8 x 4 corner block: just enough
    moved.At(38, 19) = 0;
    const SZorMotionMeasure measure = ZorMeasureMotion(moved.m_Bitmap, before.m_Bitmap, settings);
    EXPECT_EQ(measure.m_ChangedBlocks, 2);
    EXPECT_EQ(measure.m_Blocks, 6);
    EXPECT_EQ(measure.m_Level, ZorMotionLevelOfShare(2.0 / 6, 40.0));

    SPlane other(41, 20, 100);
    EXPECT_EQ(ZorMeasureMotion(other.m_Bitmap, before.m_Bitmap, settings).m_Level, 0)
        << "pictures of different sizes do not compare";
}

TEST(MotionLevel, ScaleOfTheLevel) {
    EXPECT_EQ(ZorMotionLevelOfShare(0, 40), 0);
    EXPECT_EQ(ZorMotionLevelOfShare(0.0025, 40), 2); // 1 macroblock in 400
    EXPECT_EQ(ZorMotionLevelOfShare(0.01, 40), 4);   // a walking figure's edges
    EXPECT_EQ(ZorMotionLevelOfShare(0.25, 40), 20);
    EXPECT_EQ(ZorMotionLevelOfShare(1, 40), 40);
    EXPECT_EQ(ZorMotionLevelOfShare(3, 40), 40);
}

// The levels stamped on a camera clip: still before the figure comes, up while it walks, still
// again after it has gone.
std::vector<int> StampedLevels(const char* file, int threads, zortest::CTestSink& sink,
                               CZorMotionLevelStamper::SRegion region = {}) {
    CClipPackets clip(ClipPath(file));
    EXPECT_TRUE(clip.Ok()) << clip.Error();
    zortest::CTestSource source;
    CZorMotionLevelStamper stamper;
    stamper.Decoder().SetThreadCount(threads);
    stamper.Region() = region;
    source | stamper | sink;
    for (int i = 0; i < clip.Count(); ++i) {
        source.Push(clip.Copy(i));
    }
    auto* end = new CKorTimeBasePacket(0, 1.0);
    end->SetFlags(CKorTimeBasePacket::FLAG_CONTINUOUS | CKorTimeBasePacket::FLAG_END_OF_SEQUENCE);
    source.Push(end);
    std::vector<int> levels;
    for (CKorPacket* packet : sink.Packets()) {
        int level = -1;
        if (packet->GetKind() == CKorPacket::KIND_VIDEO) {
            EXPECT_TRUE(packet->GetAttribute(1, &level));
            levels.push_back(level);
        }
    }
    EXPECT_EQ(static_cast<int>(levels.size()), clip.Count());
    return levels;
}

// The real footage (people on a footpath, nobody on the lawn) is the video chain script's.
TEST(MotionLevelStamper, AWalkingFigureRaisesTheLevelAndAnEmptySceneDoesNot) {
    zortest::CTestSink sink;
    const std::vector<int> levels = StampedLevels("cif.ts", 1, sink);
    ASSERT_EQ(levels.size(), 200u); // 8 s at 25 fps: the figure walks from 2 s to 6 s
    const auto maxOf = [&](int from, int to) {
        return *std::max_element(levels.begin() + from, levels.begin() + to);
    };
    std::vector<int> walking(levels.begin() + 55, levels.begin() + 145);
    std::sort(walking.begin(), walking.end());
    EXPECT_LE(maxOf(0, 50), 1) << "empty scene";
    EXPECT_LE(maxOf(152, 200), 1) << "empty again";
    EXPECT_GE(walking[walking.size() / 10], 3) << "nine in ten walking frames reach 3";
    EXPECT_LE(walking.back(), 12) << "one small figure is not a crowd";
    // Stamped in place: the sink's packets are the clip's compressed packets, in order.
    long last = -1;
    for (CKorPacket* packet : sink.Packets()) {
        if (packet->GetKind() == CKorPacket::KIND_VIDEO) {
            EXPECT_FALSE(CZorVideoFrame::IsFrame(static_cast<CKorVideoPacket*>(packet)));
            EXPECT_GT(packet->GetTimeStamp(), last);
            last = packet->GetTimeStamp();
        }
    }
    // A motion window: the band the figure walks through sees more of it, the ground below none.
    zortest::CTestSink band;
    zortest::CTestSink ground;
    const std::vector<int> walk = StampedLevels("cif.ts", 1, band, {0, 112, 352, 80});
    const std::vector<int> below = StampedLevels("cif.ts", 1, ground, {0, 208, 500, 500});
    EXPECT_EQ(*std::max_element(below.begin(), below.end()), 0);
    EXPECT_GT(walk[100], levels[100]);
}

TEST(MotionLevelStamper, FramesAreStampedAndANewSequenceStartsAtZero) {
    CZorFrameBuilder builder;
    zortest::CTestSource source;
    CZorMotionLevelStamper stamper;
    zortest::CTestSink sink;
    source | stamper | sink;
    SBeluiBitmap luma;
    for (int i = 0; i < 3; ++i) {
        CKorVideoPacket* frame = builder.NewFrame(64, 64, true);
        CZorVideoFrame::GetPlanes(frame, &luma, nullptr);
        for (int y = 0; y < 64; ++y) {
            std::fill(luma.Row(y), luma.Row(y) + 64, static_cast<std::uint8_t>(i * 100));
        }
        frame->SetTimeStamp(static_cast<std::uint32_t>(i * 40));
        frame->SetTimeStampValid(i != 2); // the third starts a new sequence
        source.Push(frame);
    }
    ASSERT_EQ(sink.Count(), 3);
    std::vector<int> levels;
    for (CKorPacket* packet : sink.Packets()) {
        int level = -1;
        packet->GetAttribute(1, &level);
        levels.push_back(level);
    }
    EXPECT_EQ(levels, (std::vector<int>{0, 40, 0}));
}

} // namespace
