#include "analytics/counting/CountingOverlay.h"

#include "framework/kor/LeftObjectDetectionMD.h"
#include "framework/kor/PeopleCountingMD.h"
#include "tests/support/Harness.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

struct SPicture {
    std::vector<std::uint8_t> m_Pixels = std::vector<std::uint8_t>(3 * 100 * 80 + 30, 0);
    SZorRgbImage Image() { return SZorRgbImage{m_Pixels.data(), 300, 100, 80}; }
    SZorColour At(int x, int y) {
        const std::uint8_t* p = Image().Pixel(x, y);
        return SZorColour{p[0], p[1], p[2]};
    }
};

} // namespace

TEST(CountingOverlay, DrawsTheLineTheTracksTheirTrailsAndLeftObjects) {
    CZorCountingOverlay overlay;
    SPicture picture;
    CKorPacket* frame = zortest::MakeVideoPacket(0, 0);
    auto* counting = new CKorPeopleCountingMD;
    counting->SetLine(0, 40, 200, 40); // a 200 x 160 frame drawn at half size
    counting->SetTotals(3, 2, 1);
    frame->SetMetadataHandler(counting, true);
    auto* left = new CKorLeftObjectDetectionMD;
    left->AddTarget(150, 120, 170, 140, 9, 1, 123);
    counting->Append(left);
    // The target walks; its trail is the centres the overlay saw.
    for (int step = 0; step < 5; ++step) {
        counting->Clear();
        counting->SetLine(0, 40, 200, 40);
        counting->SetTotals(3, 2, 1);
        counting->AddTarget(SKorCountingTarget{std::uint16_t(20 + 10 * step), 60,
                                               std::uint16_t(40 + 10 * step), 100, 7, 1, 1});
        overlay.Observe(*frame);
    }
    overlay.Draw(*frame, picture.Image(), 0.5, 0.5, 1, 0);
    EXPECT_EQ(picture.At(50, 20), (SZorColour{255, 224, 0})) << "the line";
    EXPECT_EQ(picture.At(35, 30), ZorBoxColour(7)) << "the track's box";
    EXPECT_EQ(picture.At(20, 40), ZorBoxColour(7)) << "its trail, behind it";
    EXPECT_EQ(picture.At(75, 60), (SZorColour{255, 32, 32})) << "the left object";
    EXPECT_EQ(picture.At(4, 2), (SZorColour{255, 255, 255})) << "the dot of the caption's i";
    EXPECT_TRUE(std::all_of(picture.m_Pixels.end() - 30, picture.m_Pixels.end(), [](int v) {
        return v == 0;
    })) << "nothing outside the picture";
    // A frame without analytics draws nothing, and trails of targets gone long are forgotten.
    CKorPacket* empty = zortest::MakeVideoPacket(40, 0);
    SPicture clean;
    for (int i = 0; i < 30; ++i) {
        overlay.Observe(*empty);
    }
    overlay.Draw(*empty, clean.Image(), 0.5, 0.5, 1, 0);
    EXPECT_TRUE(
        std::all_of(clean.m_Pixels.begin(), clean.m_Pixels.end(), [](int v) { return v == 0; }));
    frame->Release();
    empty->Release();
}
