// Block masks: the noise filter's passes, growth into candidate blocks, and the rectangles.
#include "analytics/image/Belui2DMask.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// A mask drawn as text: '#' set, '+' candidate, '*' set and candidate, '.' clear; 4 x 4 blocks.
CBelui2DMask Draw(const std::vector<std::string>& rows) {
    CBelui2DMask mask;
    mask.Create(static_cast<int>(rows[0].size()) * 4, static_cast<int>(rows.size()) * 4, 4, 4);
    for (int by = 0; by < static_cast<int>(rows.size()); ++by) {
        for (int bx = 0; bx < static_cast<int>(rows[0].size()); ++bx) {
            const char c = rows[static_cast<std::size_t>(by)][static_cast<std::size_t>(bx)];
            mask.SetCell(
                bx, by,
                static_cast<std::uint8_t>((c == '#' || c == '*' ? CBelui2DMask::kSet : 0) |
                                          (c == '+' || c == '*' ? CBelui2DMask::kCandidate : 0)));
        }
    }
    return mask;
}

std::vector<std::string> SetBlocks(const CBelui2DMask& mask) {
    std::vector<std::string> rows;
    for (int by = 0; by < mask.BlocksDown(); ++by) {
        std::string row;
        for (int bx = 0; bx < mask.BlocksAcross(); ++bx) {
            row += mask.IsSet(bx, by) ? '#' : '.';
        }
        rows.push_back(row);
    }
    return rows;
}

TEST(Belui2DMask, FilterStrengthOneRemovesSpecksAndFillsPinholes) {
    CBelui2DMask mask = Draw({"#.....", "...###", "...#.#", "...###"});
    mask.BlockFilter(1);
    EXPECT_EQ(SetBlocks(mask), (std::vector<std::string>{"......", "...###", "...###", "...###"}));
}

TEST(Belui2DMask, FilterStrengthTwoAlsoRemovesPairsAndLineEnds) {
    CBelui2DMask mask = Draw({"##....", "......", "..####", "..####"});
    mask.BlockFilter(2);
    EXPECT_EQ(SetBlocks(mask), (std::vector<std::string>{"......", "......", "..####", "..####"}));
    CBelui2DMask untouched = Draw({"#."});
    untouched.BlockFilter(0);
    EXPECT_TRUE(untouched.IsSet(0, 0)) << "strength 0 does nothing";
}

TEST(Belui2DMask, ExpandGrowsOneRingIntoCandidatesOnly) {
    const std::vector<std::string> start = {"+++.", "+#..", "++.+", "...+"};
    CBelui2DMask sides = Draw(start);
    sides.Expand(false);
    EXPECT_EQ(SetBlocks(sides), (std::vector<std::string>{".#..", "##..", ".#..", "...."}));
    CBelui2DMask all = Draw(start);
    all.Expand(true);
    EXPECT_EQ(SetBlocks(all), (std::vector<std::string>{"###.", "##..", "##..", "...."}))
        << "one ring only: the far candidates do not chain on";
}

TEST(Belui2DMask, RectanglesPerBlockOrPerRunClippedToTheFrame) {
    // 10 x 6 pixels: 3 x 2 blocks, the last column 2 pixels wide, the last row 2 high.
    CBelui2DMask mask;
    ASSERT_TRUE(mask.Create(10, 6, 4, 4));
    mask.SetCell(1, 0, CBelui2DMask::kSet);
    mask.SetCell(2, 0, CBelui2DMask::kSet);
    mask.SetCell(0, 1, CBelui2DMask::kSet);
    const auto same = [](const SBeluiRect& a, const SBeluiRect& b) {
        return a.m_Left == b.m_Left && a.m_Top == b.m_Top && a.m_Right == b.m_Right &&
               a.m_Bottom == b.m_Bottom;
    };
    const std::vector<SBeluiRect> each = mask.GetBlocksCoordinates(true, false);
    ASSERT_EQ(each.size(), 3U);
    EXPECT_TRUE(same(each[0], {4, 0, 8, 4}));
    EXPECT_TRUE(same(each[1], {8, 0, 10, 4}));
    EXPECT_TRUE(same(each[2], {0, 4, 4, 6}));
    const std::vector<SBeluiRect> runs = mask.GetBlocksCoordinates(false, true);
    ASSERT_EQ(runs.size(), 2U);
    EXPECT_TRUE(same(runs[0], {1, 0, 3, 1}));
    EXPECT_TRUE(same(runs[1], {0, 1, 1, 2}));
    mask.Clear();
    EXPECT_TRUE(mask.GetBlocksCoordinates(true, false).empty());
}

TEST(Belui2DMask, BadShapesLeaveAnEmptyMaskThatOperationsIgnore) {
    CBelui2DDWMask mask;
    EXPECT_FALSE(mask.Create(0, 10, 4, 4));
    EXPECT_FALSE(mask.Create(10, 10, 4, -4));
    EXPECT_TRUE(mask.IsEmpty());
    mask.BlockFilter(1);
    mask.Expand(true);
    EXPECT_TRUE(mask.GetBlocksCoordinates(true, true).empty());
    ASSERT_TRUE(mask.Create(1, 1, 4, 4));
    EXPECT_EQ(mask.BlockPixels(0, 0), 1);
}

} // namespace
