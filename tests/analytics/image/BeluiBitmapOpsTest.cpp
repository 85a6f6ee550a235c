// The bitmap primitives' pixel meanings, their refusals, and that they stay inside each row's
// width whatever the stride.
#include "analytics/image/BeluiBitmapOps.h"
#include "analytics/image/BeluiBitmapBuffer.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

// A one-row bitmap over the given samples, with a guard byte after the row that no primitive may
// touch.
struct SRow {
    explicit SRow(Bytes values) : m_Data(std::move(values)) {
        m_Data.push_back(kGuard);
        m_Bitmap = SBeluiBitmap{m_Data.data(), static_cast<int>(m_Data.size()),
                                static_cast<int>(m_Data.size()) - 1, 1};
    }
    Bytes Values() const { return Bytes(m_Data.begin(), m_Data.end() - 1); }
    bool GuardIntact() const { return m_Data.back() == kGuard; }
    static constexpr std::uint8_t kGuard = 0xA5;
    Bytes m_Data;
    SBeluiBitmap m_Bitmap;
};

TEST(BeluiBitmapOps, HistoryFollowsWhereMaskedAndRestartsOnJumps) {
    // mask 0 keeps a; b close to c averages; b far from c, or no history (0), restarts at c,
    // never at 0.
    SRow dst({9, 9, 9, 9, 9});
    SRow b({50, 50, 50, 0, 50});
    SRow c({60, 66, 67, 30, 0});
    SRow mask({0, 1, 1, 1, 1});
    ASSERT_TRUE(BeluiBitmapMaskDouble(dst.m_Bitmap, dst.m_Bitmap, b.m_Bitmap, c.m_Bitmap,
                                      mask.m_Bitmap, 16));
    EXPECT_EQ(dst.Values(), (Bytes{9, 58, 67, 30, 1}));
    EXPECT_TRUE(dst.GuardIntact());
}

TEST(BeluiBitmapOps, CounterCountsWhileMaskedAndResetsElsewhere) {
    SRow counter({0, 5, 255, 7});
    SRow mask({1, 9, 3, 0});
    ASSERT_TRUE(BeluiBitmapMaskAndIncIfNotZero(counter.m_Bitmap, mask.m_Bitmap, 0));
    EXPECT_EQ(counter.Values(), (Bytes{1, 6, 255, 0}));
}

TEST(BeluiBitmapOps, HistoriesEndOnJumpsAndSettleWhereCounted) {
    // a, b both present: jump > 15 ends b (value 0); small difference blends where counted.
    // Either absent: untouched.
    SRow a({100, 100, 100, 0, 100, 100});
    SRow b({120, 110, 110, 50, 0, 116});
    SRow counter({1, 1, 0, 1, 1, 1});
    ASSERT_TRUE(BeluiBitmapSubtractAndMaskBlendAndMakeMask(a.m_Bitmap, b.m_Bitmap, counter.m_Bitmap,
                                                           0.1, 15, 0));
    // 100 + ((10 * 26 + 128) >> 8) = 101.
    EXPECT_EQ(b.Values(), (Bytes{0, 101, 110, 50, 0, 0}));
}

TEST(BeluiBitmapOps, MaskCopiesWhereTheMaskIsAtOrBelowTheLevel) {
    SRow dst({1, 2, 3, 4});
    SRow src({10, 20, 30, 40});
    SRow mask({0, 5, 6, 255});
    ASSERT_TRUE(BeluiBitmapMask(dst.m_Bitmap, src.m_Bitmap, mask.m_Bitmap, 5));
    EXPECT_EQ(dst.Values(), (Bytes{10, 20, 3, 4}));
    ASSERT_TRUE(BeluiBitmapMask(dst.m_Bitmap, src.m_Bitmap, mask.m_Bitmap, -1));
    EXPECT_EQ(dst.Values(), (Bytes{10, 20, 3, 4})) << "nothing is below 0";
}

TEST(BeluiBitmapOps, AmplifiedChangeAndRelativeThreshold) {
    SRow out({0, 0, 0, 0});
    SRow background({100, 100, 100, 200});
    SRow frame({110, 100, 190, 40});
    ASSERT_TRUE(BeluiBitmapSubtractFrom(out.m_Bitmap, background.m_Bitmap, frame.m_Bitmap, 3));
    EXPECT_EQ(out.Values(), (Bytes{30, 0, 255, 255}));
    // Where the change is at most a quarter of the picture's brightness the picture shows
    // dimmed to a quarter.
    ASSERT_TRUE(BeluiBitmapMaskThreshold(out.m_Bitmap, frame.m_Bitmap, out.m_Bitmap, 2, 2));
    EXPECT_EQ(out.Values(), (Bytes{30, 25, 255, 255}));
}

TEST(BeluiBitmapOps, MoveMarksBlocksWhereAnyCounterReachesTheThreshold) {
    // 5 x 3 with 2 x 2 blocks: partial blocks on the right and at the bottom.
    CBeluiBitmapBuffer counter, marks;
    counter.Allocate(5, 3);
    marks.Allocate(5, 3);
    const Bytes rows[3] = {{0, 0, 30, 0, 0}, {29, 0, 0, 0, 0}, {0, 0, 0, 0, 31}};
    for (int y = 0; y < 3; ++y) {
        std::copy(rows[y].begin(), rows[y].end(), counter.Bitmap().Row(y));
    }
    ASSERT_TRUE(BeluiBitmapMoveBlockIfThreshold(marks.Bitmap(), counter.Bitmap(), 2, 2, 30, 0));
    const Bytes expected[3] = {
        {255, 255, 0, 0, 255}, {255, 255, 0, 0, 255}, {255, 255, 255, 255, 0}};
    for (int y = 0; y < 3; ++y) {
        EXPECT_EQ(Bytes(marks.Bitmap().Row(y), marks.Bitmap().Row(y) + 5), expected[y]) << y;
    }
}

TEST(BeluiBitmapOps, BlocksAreMeasuredAboveTheNoiseFloorAndPartialBlocksScaled) {
    // 6 x 4 with 4 x 4 blocks: one full block and one of 2 columns.
    CBeluiBitmapBuffer frame, background, foreground;
    frame.Allocate(6, 4);
    background.Allocate(6, 4);
    foreground.Allocate(6, 4);
    BeluiBitmapFill(background.Bitmap(), 100);
    for (int y = 0; y < 4; ++y) {
        std::uint8_t* row = frame.Bitmap().Row(y);
        // Full block: 16 pixels off by 8 (at the floor: not counted) except four off by 20.
        std::fill(row, row + 4, 108);
        row[0] = 120;
        // Partial block: 8 pixels off by 16 each = 128, scaled to a full block 256.
        row[4] = row[5] = 84;
    }
    CBelui2DDWMask mask;
    ASSERT_TRUE(BeluiBitmapSubtractAndFilter(foreground.Bitmap(), mask, frame.Bitmap(),
                                             background.Bitmap(), 4, 4, 8, 250, 1));
    ASSERT_EQ(mask.BlocksAcross(), 2);
    EXPECT_EQ(mask.Value(0, 0), 80U);
    EXPECT_EQ(mask.Cell(0, 0), 0) << "80 is below both 250 and 125";
    EXPECT_EQ(mask.Value(1, 0), 128U);
    EXPECT_EQ(mask.Cell(1, 0), CBelui2DMask::kSet | CBelui2DMask::kCandidate);
    // The foreground covers whole candidate blocks (at least 1), nothing elsewhere.
    EXPECT_EQ(foreground.Bitmap().Row(2)[0], 0);
    EXPECT_EQ(foreground.Bitmap().Row(2)[4], 16);
}

TEST(BeluiBitmapOps, BlockMaskOverloadsWorkOnOpenBlocksOnly) {
    // Two 4 x 4 blocks: the first set, the second clear with a mean measure of 2 per pixel.
    CBelui2DDWMask mask;
    mask.Create(8, 4, 4, 4);
    mask.SetCell(0, 0, CBelui2DMask::kSet);
    mask.SetValue(1, 0, 32);
    CBeluiBitmapBuffer dst, src;
    dst.Allocate(8, 4);
    src.Allocate(8, 4);
    BeluiBitmapFill(src.Bitmap(), 200);
    ASSERT_TRUE(BeluiBitmapMask(dst.Bitmap(), src.Bitmap(), mask, 1));
    EXPECT_EQ(dst.Bitmap().Row(3)[7], 0) << "mean 2 is above level 1";
    ASSERT_TRUE(BeluiBitmapMaskedBlend(dst.Bitmap(), src.Bitmap(), mask, 0.5, 2));
    EXPECT_EQ(dst.Bitmap().Row(0)[0], 0) << "a set block never learns";
    EXPECT_EQ(dst.Bitmap().Row(3)[7], 100);
    ASSERT_TRUE(BeluiBitmapMask(dst.Bitmap(), src.Bitmap(), mask, 2));
    EXPECT_EQ(dst.Bitmap().Row(3)[7], 200);
}

TEST(BeluiBitmapOps, MismatchedOrEmptyBitmapsAreRefusedUntouched) {
    CBeluiBitmapBuffer a, b, small;
    a.Allocate(8, 8);
    b.Allocate(8, 8);
    small.Allocate(8, 7);
    BeluiBitmapFill(a.Bitmap(), 3);
    CBelui2DDWMask mask;
    mask.Create(8, 7, 4, 4);
    const SBeluiBitmap none;
    EXPECT_FALSE(BeluiBitmapMask(a.Bitmap(), small.Bitmap(), b.Bitmap(), 0));
    EXPECT_FALSE(BeluiBitmapMask(a.Bitmap(), b.Bitmap(), mask, 0)) << "mask of another shape";
    EXPECT_FALSE(BeluiBitmapMaskedBlend(a.Bitmap(), b.Bitmap(), mask, 0.1, 34));
    EXPECT_FALSE(BeluiBitmapCopy(a.Bitmap(), none));
    EXPECT_FALSE(
        BeluiBitmapSubtractAndFilter(a.Bitmap(), mask, a.Bitmap(), b.Bitmap(), 0, 4, 8, 250, 1));
    EXPECT_FALSE(BeluiBitmapMoveBlockIfThreshold(a.Bitmap(), b.Bitmap(), 2, -1, 30, 0));
    EXPECT_EQ(a.Bitmap().Row(7)[7], 3);
}

TEST(BeluiBitmapOps, StrideBeyondTheWidthIsNeverWritten) {
    // 37 x 3 samples in rows of 64: every byte past the width must keep its guard value.
    const int w = 37, h = 3, stride = 64;
    std::vector<Bytes> store(6, Bytes(static_cast<std::size_t>(stride * h), SRow::kGuard));
    std::vector<SBeluiBitmap> bm;
    for (Bytes& s : store) {
        bm.push_back(SBeluiBitmap{s.data(), stride, w, h});
        for (int y = 0; y < h; ++y) {
            for (int x = 0; x < w; ++x) {
                s[static_cast<std::size_t>(y * stride + x)] = static_cast<std::uint8_t>(x * 7 + y);
            }
        }
    }
    CBelui2DDWMask mask;
    EXPECT_TRUE(BeluiBitmapSubtractAndFilter(bm[0], mask, bm[1], bm[2], 4, 4, 8, 250, 1));
    EXPECT_TRUE(BeluiBitmapMaskDouble(bm[3], bm[3], bm[4], bm[1], bm[0], 16));
    EXPECT_TRUE(BeluiBitmapMaskAndIncIfNotZero(bm[5], bm[0], 0));
    EXPECT_TRUE(BeluiBitmapSubtractAndMaskBlendAndMakeMask(bm[4], bm[3], bm[5], 0.1, 15, 0));
    EXPECT_TRUE(BeluiBitmapMoveBlockIfThreshold(bm[0], bm[5], 2, 2, 30, 0));
    EXPECT_TRUE(BeluiBitmapMask(bm[2], bm[1], bm[0], 0));
    EXPECT_TRUE(BeluiBitmapMaskedBlend(bm[2], bm[1], mask, 0.1, 34));
    EXPECT_TRUE(BeluiBitmapSubtractFrom(bm[3], bm[2], bm[1], 3));
    EXPECT_TRUE(BeluiBitmapMaskThreshold(bm[3], bm[1], bm[3], 2, 2));
    EXPECT_TRUE(BeluiBitmapMask(bm[3], bm[1], mask, 16));
    for (const Bytes& s : store) {
        for (int y = 0; y < h; ++y) {
            for (int x = w; x < stride; ++x) {
                ASSERT_EQ(s[static_cast<std::size_t>(y * stride + x)], SRow::kGuard);
            }
        }
    }
}

} // namespace
