#include "framework/kor/BoundingBoxesMD.h"

#include "framework/bel/BelString.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <vector>

namespace {

using Rects = std::vector<SKorBoundingBox>;

std::unique_ptr<CKorBoundingBoxesMD> Make(const Rects& rects) {
    auto md = std::make_unique<CKorBoundingBoxesMD>();
    for (const SKorBoundingBox& r : rects) {
        md->AddBox(r);
    }
    return md;
}

std::string Packed(const CKorBoundingBoxesMD& md) {
    std::vector<char> buffer(static_cast<size_t>(md.GetPackedSize()));
    EXPECT_EQ(md.Pack(buffer.data(), static_cast<long>(buffer.size())),
              static_cast<long>(buffer.size()) - 1);
    return buffer.data();
}

// Pixel counting on a small grid: the definition the sweep must meet.
long long CountPixels(const Rects& mask, const Rects& boxes) {
    long long area = 0;
    for (int y = 0; y < 64; ++y) {
        for (int x = 0; x < 64; ++x) {
            const auto in = [&](const Rects& rects) {
                for (const SKorBoundingBox& r : rects) {
                    if (x >= r.m_Left && x < r.m_Right && y >= r.m_Top && y < r.m_Bottom) {
                        return true;
                    }
                }
                return false;
            };
            area += in(mask) && in(boxes);
        }
    }
    return area;
}

TEST(BoundingBoxesMD, PackedTextRoundTrips) {
    for (const Rects& rects :
         {Rects{}, Rects{{0, 0, 352, 240, 0}},
          Rects{{1, 2, 3, 4, 0}, {65535, 0, 65535, 65535, 0}, {5, 5, 5, 5, 0}}}) {
        const std::string text = Packed(*Make(rects));
        CKorBoundingBoxesMD back;
        back.AddBox({9, 9, 9, 9, 0});
        CBelString error;
        ASSERT_TRUE(back.Parse(text.c_str(), static_cast<long>(text.size()), &error))
            << text << ": " << error.c_str();
        EXPECT_EQ(Packed(back), text);
        EXPECT_EQ(back.GetBoxCount(), static_cast<int>(rects.size()));
    }
    EXPECT_EQ(Packed(*Make({{0, 0, 176, 120, 3}, {200, 100, 352, 240, 0}})),
              "M1:0,0,176,120;200,100,352,240");
    char small[4];
    EXPECT_EQ(Make({{0, 0, 1, 1, 0}})->Pack(small, sizeof small), -1);
}

TEST(BoundingBoxesMD, ParseRefusesGarbageWithAReasonAndKeepsTheBoxes) {
    const struct {
        const char* text;
        const char* reason;
    } cases[] = {
        {"garbage", "expected the version tag"},
        {"M2:0,0,1,1", "version 2 of the packed form is not known"},
        {"M1:", "no rectangle"},
        {"M1:1,2,3", "rectangle 1: expected ','"},
        {"M1:1,2,3,4;", "a ';' with no rectangle after it"},
        {"M1:1,2,3,4;5,6", "rectangle 2: expected ','"},
        {"M1:1,2,3,4,5", "rectangle 1: expected ';'"},
        {"M1:1,2,3,65536", "number 4: expected a whole number 0..65535"},
        {"M1:-1,2,3,4", "number 1: expected a whole number"},
        {"M1:9,0,3,4", "left 9 is beyond right 3"},
        {"M1:0,9,3,4", "top 9 is beyond bottom 4"},
        {"M1:1.5,2,3,4", "rectangle 1: expected ','"},
    };
    for (const auto& c : cases) {
        const auto md = Make({{1, 1, 2, 2, 0}});
        CBelString error;
        EXPECT_FALSE(md->Parse(c.text, static_cast<long>(strlen(c.text)), &error)) << c.text;
        EXPECT_NE(error.str().find(c.reason), std::string::npos)
            << c.text << " -> " << error.c_str();
        EXPECT_EQ(Packed(*md), "M1:1,1,2,2") << c.text;
    }
    CKorBoundingBoxesMD md;
    EXPECT_TRUE(md.Parse(" M1: 1 , 2,3 ,4 ; 5,6,7,8", 0, nullptr)); // length 0: clears
    const char spaced[] = "M1: 1 , 2,3 ,4 ;5,6,7,8 ";
    EXPECT_TRUE(md.Parse(spaced, sizeof spaced - 1, nullptr));
    EXPECT_EQ(Packed(md), "M1:1,2,3,4;5,6,7,8");
}

TEST(BoundingBoxesMD, OverlapIsExactWhereBoxesAndMaskRectanglesOverlapEachOther) {
    // Two overlapping mask rectangles (union 175 px) and two overlapping boxes (union 112 px) over
    // them.
    const Rects mask = {{0, 0, 10, 10, 0}, {5, 5, 15, 15, 0}};
    const Rects boxes = {{0, 0, 8, 8, 0}, {4, 4, 12, 12, 0}};
    const auto m = Make(mask);
    const auto b = Make(boxes);
    EXPECT_EQ(m->OverlapArea(*b), CountPixels(mask, boxes));
    EXPECT_EQ(m->OverlapArea(*b), 108); // 112 px of boxes, 4 of them outside the mask
    EXPECT_TRUE(m->Intersects(b.get(), 108));
    EXPECT_FALSE(m->Intersects(b.get(), 109));
    EXPECT_FALSE(m->Intersects(nullptr, 1));
    EXPECT_FALSE(m->Intersects(m.get(), 176)); // the mask's union with itself is 175 px
    EXPECT_TRUE(m->Intersects(m.get(), 175));
}

TEST(BoundingBoxesMD, OverlapMatchesPixelCountingOnRandomRectangles) {
    std::mt19937 random(11);
    const auto rects = [&](int n) {
        Rects r;
        for (int i = 0; i < n; ++i) {
            const auto a = static_cast<std::uint16_t>(random() % 64),
                       b = static_cast<std::uint16_t>(random() % 64),
                       c = static_cast<std::uint16_t>(random() % 64),
                       d = static_cast<std::uint16_t>(random() % 64);
            r.push_back({std::min(a, b), std::min(c, d), std::max(a, b), std::max(c, d), 0});
        }
        return r;
    };
    for (int round = 0; round < 300; ++round) {
        const Rects mask = rects(1 + round % 8);
        const Rects boxes = rects(round % 16);
        const auto m = Make(mask);
        const auto b = Make(boxes);
        const long long exact = CountPixels(mask, boxes);
        ASSERT_EQ(m->OverlapArea(*b), exact) << "round " << round;
        EXPECT_EQ(m->Intersects(b.get(), static_cast<long>(exact)), exact > 0) << "round " << round;
        EXPECT_FALSE(m->Intersects(b.get(), static_cast<long>(exact) + 1)) << "round " << round;
        // The same shapes near the 16-bit limit, where sums of overlaps pass 32 bits.
        const auto scaled = [](Rects r) {
            for (SKorBoundingBox& box : r) {
                box = {static_cast<std::uint16_t>(box.m_Left * 1000),
                       static_cast<std::uint16_t>(box.m_Top * 1000),
                       static_cast<std::uint16_t>(box.m_Right * 1000),
                       static_cast<std::uint16_t>(box.m_Bottom * 1000), 0};
            }
            return r;
        };
        const auto bigMask = Make(scaled(mask));
        const auto bigBoxes = Make(scaled(boxes));
        const long big = static_cast<long>(exact) * 1000000;
        ASSERT_EQ(bigMask->OverlapArea(*bigBoxes), big) << "round " << round;
        EXPECT_EQ(bigMask->Intersects(bigBoxes.get(), big), exact > 0) << "round " << round;
        EXPECT_FALSE(bigMask->Intersects(bigBoxes.get(), big + 1)) << "round " << round;
    }
}

TEST(BoundingBoxesMD, ClearAndCloneKeepTheirOwnBoxes) {
    const auto md = Make({{0, 0, 10, 10, 5}});
    CKorMetadataHandler* copy = md->CloneChain();
    md->Clear();
    EXPECT_EQ(md->GetBoxCount(), 0);
    EXPECT_FALSE(md->Intersects(static_cast<CKorBoundingBoxesMD*>(copy), 1));
    ASSERT_EQ(static_cast<CKorBoundingBoxesMD*>(copy)->GetBoxCount(), 1);
    EXPECT_EQ(static_cast<CKorBoundingBoxesMD*>(copy)->GetBox(0).m_Id, 5u);
    delete copy;
}

} // namespace
