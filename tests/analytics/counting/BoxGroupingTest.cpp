#include "analytics/counting/core/BoxGrouping.h"

#include <gtest/gtest.h>

#include <vector>

using zor::counting::CBoxGrouping;
using zor::counting::SBox;

namespace {

// The 4 x 4 blocks of a mask drawn as text ('#' foreground), as a block detector reports them.
std::vector<SBox> Blocks(const std::vector<const char*>& rows) {
    std::vector<SBox> blocks;
    for (int y = 0; y < static_cast<int>(rows.size()); ++y) {
        for (int x = 0; rows[static_cast<size_t>(y)][x]; ++x) {
            if (rows[static_cast<size_t>(y)][x] == '#') {
                blocks.push_back(SBox{4 * x, 4 * y, 4 * x + 4, 4 * y + 4});
            }
        }
    }
    return blocks;
}

} // namespace

TEST(BoxGrouping, BlocksThatTouchBecomeOneBox) {
    struct {
        std::vector<const char*> m_Mask;
        int m_Gap;
        std::vector<SBox> m_Expected;
    } const table[] = {
        {{"##....", "##....", "....##"}, 0, {{0, 0, 8, 8}, {16, 8, 24, 12}}}, // corner apart
        {{"##....", "##....", "..##.."}, 0, {{0, 0, 16, 12}}},                // corner to corner
        {{"#.#.#.#"}, 0, {{0, 0, 4, 4}, {8, 0, 12, 4}, {16, 0, 20, 4}, {24, 0, 28, 4}}},
        {{"#.#.#.#"}, 4, {{0, 0, 28, 4}}}, // one block apart, joined in a chain
        {{"#..#"}, 4, {{0, 0, 4, 4}, {12, 0, 16, 4}}},
        {{"#...", "#...", "####"}, 0, {{0, 0, 16, 12}}}, // an L is one thing
        {{"...."}, 0, {}},
    };
    CBoxGrouping grouping;
    std::vector<SBox> out;
    for (const auto& row : table) {
        const std::vector<SBox> blocks = Blocks(row.m_Mask);
        grouping.Group(blocks.data(), blocks.size(), row.m_Gap, out);
        EXPECT_EQ(out, row.m_Expected) << row.m_Mask[0] << " gap " << row.m_Gap;
    }
}

TEST(BoxGrouping, ManyBlocksAndBadBoxes) {
    // A whole 1080p picture of foreground blocks is one thing; inside-out boxes are dropped;
    // negative coordinates group like any others.
    std::vector<SBox> blocks;
    for (int y = 0; y < 1080; y += 4) {
        for (int x = 0; x < 1920; x += 4) {
            blocks.push_back(SBox{x, y, x + 4, y + 4});
        }
    }
    blocks.push_back(SBox{10, 10, 5, 5});
    blocks.push_back(SBox{-40, -40, -36, -36});
    CBoxGrouping grouping;
    std::vector<SBox> out;
    grouping.Group(blocks.data(), blocks.size(), 0, out);
    EXPECT_EQ(out, (std::vector<SBox>{{0, 0, 1920, 1080}, {-40, -40, -36, -36}}));
    grouping.Group(nullptr, 7, 0, out);
    EXPECT_TRUE(out.empty());
}
