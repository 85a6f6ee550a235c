// The frame sector: pixel tests, normalisations with their asymmetry, the two running averages
// and the classification table.
#include "analytics/tracking/FrameSector.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cstring>
#include <random>
#include <vector>

namespace {

int* Identity() {
    static int table[256];
    for (int i = 0; i < 256; ++i) {
        table[i] = i;
    }
    return table;
}

// Puts a whole number into the short or long accumulator by summing one kind-2 pixel; -1 into
// the long one is "no long measurement", which a caller gets by normalising with a negative
// pixel count.
void Load(CZorFrameSector& s, int value, int isShort) {
    isShort ? s.ResetSDiff() : s.ResetLDiff();
    unsigned char a[4], b[4] = {};
    const int magnitude = value < 0 ? -value : value;
    std::memcpy(a, &magnitude, 4);
    s.CalcDiffAccumulatePixelDiff(a, b, 2, isShort);
    if (value < 0) {
        s.CalcDiffIncrPixelCount(-100 * magnitude, 1, isShort);
    }
}

TEST(FrameSector, PixelKindsCountAndSum) {
    int table[256];
    for (int i = 0; i < 256; ++i) {
        table[i] = 3 * i; // a table really is used
    }
    CZorFrameSector s(10, 0, 5, 20, 5.9f, table);
    const unsigned char g0 = 10, g1 = 12, g2 = 11;
    s.CalcDiffIncrPixelCount(&g0, &g1, 1, 1); // 6 > 5.9
    s.CalcDiffIncrPixelCount(&g0, &g2, 1, 1); // 3
    EXPECT_EQ(s.GetSDiff(), 1.0f);
    int i0 = 100, i1 = 106, i2 = 105;
    unsigned char p0[4], p1[4], p2[4];
    std::memcpy(p0, &i0, 4);
    std::memcpy(p1, &i1, 4);
    std::memcpy(p2, &i2, 4);
    s.CalcDiffIncrPixelCount(p0, p1, 2, 0); // 6 > 5 (the threshold truncated)
    s.CalcDiffIncrPixelCount(p0, p2, 2, 0); // 5
    EXPECT_EQ(s.GetLDiff(), 1.0f);
    // Kind 3: all channels must exceed; the first at the threshold stops the test.
    const unsigned char c0[3] = {10, 10, 10};
    const unsigned char atFirst[3] = {16, 100, 100};
    const unsigned char all[3] = {17, 17, 17};
    CZorFrameSector c(10, 0, 5, 20, 6.0f, Identity());
    c.CalcDiffIncrPixelCount(c0, atFirst, 3, 1);
    EXPECT_EQ(c.GetSDiff(), 0.0f);
    c.CalcDiffIncrPixelCount(c0, all, 3, 1);
    EXPECT_EQ(c.GetSDiff(), 1.0f);
    c.CalcDiffIncrPixelCount(c0, all, 7, 1); // unknown kind: ignored
    EXPECT_EQ(c.GetSDiff(), 1.0f);
    c.CalcDiffAccumulatePixelDiff(c0, atFirst, 3, 0);
    EXPECT_EQ(c.GetLDiff(), 186.0f);
    CZorFrameSector none(10, 0, 5, 20, 6.0f, nullptr);
    none.CalcDiffAccumulatePixelDiff(&g0, &g1, 1, 1);
    EXPECT_EQ(none.GetSDiff(), 0.0f) << "kind 1 without a table is ignored";
}

TEST(FrameSector, RowFeedsEqualPixelFeeds) {
    std::mt19937 random(4);
    std::vector<unsigned char> a(3 * 997), b(3 * 997);
    for (std::size_t i = 0; i < a.size(); ++i) {
        a[i] = static_cast<unsigned char>(random());
        b[i] = static_cast<unsigned char>(a[i] + random() % 40);
    }
    // Fresh accumulators, one near 2^24 (where floats stop holding every whole number) and one
    // holding a fraction: the row calls must match the per-pixel calls in every case.
    for (int kind : {1, 3}) {
        for (int start : {0, 16777000, -1}) {
            const int stride = kind == 3 ? 3 : 2;
            const int count = static_cast<int>(a.size()) / stride;
            CZorFrameSector one(10, 0, 5, 20, 17.5f, Identity());
            CZorFrameSector row(10, 0, 5, 20, 17.5f, Identity());
            for (CZorFrameSector* s : {&one, &row}) {
                Load(*s, start < 0 ? 7 : start, 1);
                Load(*s, start < 0 ? 7 : start, 0);
                if (start < 0) {
                    s->CalcDiffIncrPixelCount(3, 1, 1); // 700 / 3
                    s->CalcDiffIncrPixelCount(3, 1, 0);
                }
            }
            for (int i = 0; i < count; ++i) {
                const auto at = static_cast<std::size_t>(i * stride);
                one.CalcDiffIncrPixelCount(&a[at], &b[at], kind, 1);
                one.CalcDiffAccumulatePixelDiff(&a[at], &b[at], kind, 0);
            }
            row.CalcDiffIncrPixelCountRow(a.data(), b.data(), count, stride, kind, 1);
            row.CalcDiffAccumulatePixelDiffRow(a.data(), b.data(), count, stride, kind, 0);
            EXPECT_EQ(one.GetSDiff(), row.GetSDiff()) << kind << " " << start;
            EXPECT_EQ(one.GetLDiff(), row.GetLDiff()) << kind << " " << start;
        }
    }
}

TEST(FrameSector, NormalisationsAndTheirAsymmetry) {
    CZorFrameSector s(10, 0, 5, 20, 8, Identity());
    Load(s, 25, 1);
    s.CalcDiffIncrPixelCount(400, 4, 1); // 25 of 100 sampled pixels
    EXPECT_EQ(s.GetSDiff(), 25.0f);
    Load(s, 51, 1);
    Load(s, 7, 0);
    // Summing: SDiff * 100 / ((400 / 4) * 1 * 255) = 5100 / 25500, into LDiff; SDiff unchanged.
    s.CalcDiffAccPixelDiff(400, 4, 0, 1);
    EXPECT_EQ(s.GetLDiff(), 5100.0f / 25500.0f);
    EXPECT_EQ(s.GetSDiff(), 51.0f);
    s.CalcDiffAccPixelDiff(401, 4, 1, 3); // 401 / 4 = 100 in integers
    EXPECT_EQ(s.GetSDiff(), 5100.0f / 76500.0f);
    s.CalcDiffAccPixelDiff(400, 0, 1, 1);
    EXPECT_EQ(s.GetSDiff(), 5100.0f / 76500.0f) << "a step of 0 changes nothing";
}

TEST(FrameSector, ShortChangesAreGradedByTheirSize) {
    // A group shorter than the minimum: a jump is no short change.
    CZorFrameSector young(10, 2, 5, 20, 8, Identity());
    Load(young, 10, 1);
    young.CalculateSFTagWithIndex(20);
    EXPECT_EQ(young.GetShortChangeMagnitude(), -1);
    EXPECT_EQ(young.GetGroupLength(), 1);
    // A jump of exactly T with the group at the minimum: magnitude 1, a new group.
    CZorFrameSector exact(10, 1, 5, 20, 8, Identity());
    Load(exact, 10, 1);
    exact.CalculateSFTagWithIndex(20);
    Load(exact, 15, 1); // the average is 5 now: f = 10
    exact.CalculateSFTagWithIndex(20);
    EXPECT_EQ(exact.GetShortChangeMagnitude(), 1);
    EXPECT_EQ(exact.GetGroupLength(), 1);
    // A jump of 7 T: magnitude 4, level 4 + 3.
    CZorFrameSector big(10, 0, 5, 20, 8, Identity());
    big.ResetLongChange();
    Load(big, 70, 1);
    Load(big, 30, 0);
    EXPECT_EQ(big.CalculateSFTagWithIndex(1), 7);
    EXPECT_EQ(big.GetShortChangeMagnitude(), 4);
}

TEST(FrameSector, AveragesStayZeroBelowEpsilonAndFollowOtherwise) {
    CZorFrameSector s(10, 0, 5, 20, 8, Identity());
    for (int n = 0; n < 3; ++n) {
        s.ResetSDiff();
        s.ResetLDiff();
        s.CalculateSFTagWithIndex(1);
        EXPECT_EQ(s.GetSAverageDiff(), 0.0f);
        EXPECT_EQ(s.GetLAverageDiff(), 0.0f);
    }
    EXPECT_EQ(s.GetGroupLength(), 0) << "the epsilon branch leaves the group as it is";
    // Small values: the averages move by weight 1 while the group is short, 2 after.
    Load(s, 3, 1);
    Load(s, 3, 0);
    s.CalculateSFTagWithIndex(1);
    EXPECT_EQ(s.GetSAverageDiff(), 1.5f);
    EXPECT_EQ(s.GetLAverageDiff(), 1.5f);
    EXPECT_EQ(s.GetGroupLength(), 1);
    // A drop larger than T resets the short average to the new value and still grows the group.
    Load(s, 40, 1);
    s.CalculateSFTagWithIndex(1); // a short change (f = 38.5 >= 10)
    Load(s, 2, 1);
    s.CalculateSFTagWithIndex(1);
    EXPECT_EQ(s.GetSAverageDiff(), 2.0f);
    EXPECT_EQ(s.GetGroupLength(), 2);
}

struct SClassCase {
    int m_SDiff;      // 0: no short change; 30: a short change of magnitude 3
    float m_LowerCut; // decides H
    int m_LDiff;      // -1, 0 or 30: K = -1, 0, 1
    bool m_Warm;      // history entry read is 0 (else -1)
    int m_Level;
};

class FrameSectorTable : public testing::TestWithParam<SClassCase> {};

TEST_P(FrameSectorTable, LevelFollowsTheTable) {
    const SClassCase& c = GetParam();
    CZorFrameSector s(10, 0, c.m_LowerCut, 20, 8, Identity());
    if (c.m_Warm) {
        s.ResetLongChange();
    }
    Load(s, c.m_SDiff, 1);
    Load(s, c.m_LDiff, 0);
    EXPECT_EQ(s.CalculateSFTagWithIndex(1), c.m_Level);
    EXPECT_EQ(s.GetChangeLevel(), c.m_Level);
}

INSTANTIATE_TEST_SUITE_P(Cases, FrameSectorTable,
                         testing::Values(
                             // No short change.
                             SClassCase{0, 5, 0, false, 2},   // K = 0
                             SClassCase{0, 5, 30, true, 3},   // P = 0, K = 1
                             SClassCase{0, 5, -1, true, 3},   // no long measurement counts as 3
                             SClassCase{0, 0, 30, false, 3},  // H = 1
                             SClassCase{0, 5, 30, false, 10}, // H = 0, K = 1, P != 0
                             // A short change.
                             SClassCase{30, 5, 30, false, 12}, // H = 1, K != 0, P != 0
                             SClassCase{30, 5, 0, false, 8},   // K = 0
                             SClassCase{30, 5, 30, true, 6},   // magnitude 3 + 3
                             SClassCase{30, 50, 30, true, 6},  // H = 0 but P = 0
                             SClassCase{30, 5, -1, true, 6}, SClassCase{30, 50, 30, false, 10},
                             SClassCase{30, 50, -1, false, 10}));

TEST(FrameSector, HistoryIsTheCallersAndStaysInBounds) {
    CZorFrameSector s(10, 0, 5, 20, 8, Identity());
    EXPECT_EQ(s.GetLongChangeAtIndex(14), -1);
    EXPECT_EQ(s.GetLongChangeAtIndex(15), 0);
    s.ResetLongChange();
    s.ShiftLongChangeValueFrom(0, 49);
    EXPECT_EQ(s.GetLongChangeAtIndex(49), 0);
    s.ShiftLongChangeValueFrom(-1, 3);
    s.ShiftLongChangeValueFrom(3, 50);
    EXPECT_EQ(s.GetLongChangeAtIndex(3), -1);
    EXPECT_EQ(s.GetLongChangeAtIndex(50), -1);
    Load(s, 0, 1);
    Load(s, 30, 0);
    EXPECT_EQ(s.CalculateSFTagWithIndex(0), 10) << "index 0 reads no entry: history -1";
}

} // namespace
