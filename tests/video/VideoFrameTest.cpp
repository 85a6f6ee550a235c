#include "video/VideoFrame.h"

#include "framework/kor/Packet.h"
#include "framework/kor/PacketSource.h"
#include "video/core/PlaneKernels.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <numeric>
#include <random>
#include <vector>

namespace {

// A plain plane of width x height with a stride wider than the width, filled with a pattern.
struct SPlainPlane {
    SPlainPlane(int width, int height, int seed)
        : m_Samples(static_cast<size_t>((width + 7) * height)) {
        for (size_t i = 0; i < m_Samples.size(); ++i) {
            m_Samples[i] = static_cast<std::uint8_t>(i * 7 + static_cast<size_t>(seed));
        }
        m_Bitmap = SBeluiBitmap{m_Samples.data(), width + 7, width, height};
    }
    std::vector<std::uint8_t> m_Samples;
    SBeluiBitmap m_Bitmap;
};

bool SamePlane(const SBeluiBitmap& a, const SBeluiBitmap& b) {
    if (a.m_Width != b.m_Width || a.m_Height != b.m_Height) {
        return false;
    }
    for (int y = 0; y < a.m_Height; ++y) {
        if (!std::equal(a.Row(y), a.Row(y) + a.m_Width, b.Row(y))) {
            return false;
        }
    }
    return true;
}

class FrameSize : public testing::TestWithParam<std::pair<int, int>> {};

// Odd and tiny sizes: chroma rounds up, rows never overlap, every sample round-trips.
TEST_P(FrameSize, BuiltFrameGivesBackItsPlanes) {
    const auto [width, height] = GetParam();
    SPlainPlane luma(width, height, 1);
    SPlainPlane chroma(CZorVideoFrame::ChromaWidth(width), CZorVideoFrame::ChromaHeight(height), 2);
    CZorFrameBuilder builder;
    CKorVideoPacket* frame = builder.Build(luma.m_Bitmap, &chroma.m_Bitmap);
    ASSERT_NE(frame, nullptr);

    const BITMAPINFOHEADER* header = frame->GetBitmapInfo();
    EXPECT_EQ(header->biCompression, CZorVideoFrame::kNV12);
    EXPECT_EQ(header->biWidth, width);
    EXPECT_EQ(header->biHeight, -height) << "frames are top-down";
    SBeluiBitmap gotLuma;
    SBeluiBitmap gotChroma;
    ASSERT_TRUE(CZorVideoFrame::GetPlanes(frame, &gotLuma, &gotChroma));
    EXPECT_TRUE(SamePlane(gotLuma, luma.m_Bitmap));
    EXPECT_TRUE(SamePlane(gotChroma, chroma.m_Bitmap));
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(gotLuma.m_pData) % 16, 0u);
    EXPECT_GE(gotChroma.m_pData, gotLuma.Row(height - 1) + width) << "planes must not overlap";

    CKorVideoPacket* grey = builder.Build(luma.m_Bitmap, nullptr);
    ASSERT_NE(grey, nullptr);
    EXPECT_EQ(grey->GetBitmapInfo()->biCompression, CZorVideoFrame::kGrey);
    ASSERT_TRUE(CZorVideoFrame::GetPlanes(grey, &gotLuma, &gotChroma));
    EXPECT_TRUE(SamePlane(gotLuma, luma.m_Bitmap));
    EXPECT_TRUE(gotChroma.IsEmpty());
    grey->Release();
    frame->Release();
}

INSTANTIATE_TEST_SUITE_P(Sizes, FrameSize,
                         testing::Values(std::pair{1, 1}, std::pair{2, 2}, std::pair{3, 5},
                                         std::pair{175, 97}, std::pair{352, 288}));

TEST(VideoFrame, RefusesWhatIsNotAFrame) {
    CZorFrameBuilder builder;
    SPlainPlane luma(16, 8, 0);
    SPlainPlane wrongChroma(16, 3, 0);
    EXPECT_EQ(builder.Build(luma.m_Bitmap, &wrongChroma.m_Bitmap), nullptr);
    EXPECT_EQ(builder.Build(SBeluiBitmap{}, nullptr), nullptr);
    EXPECT_EQ(builder.NewFrame(0, 10, true), nullptr);
    EXPECT_EQ(builder.NewFrame(CZorVideoFrame::kMaxSide + 1, 10, true), nullptr);

    // Compressed video, a frame format without a layout, a layout beyond the payload.
    BITMAPINFOHEADER h264{40, 16, 8, 1, 24, MakeFourCC('H', '2', '6', '4'), 0, 0, 0, 0, 0};
    CKorVideoPacket* compressed = g_VideoPacketSource.NewPacket(256);
    compressed->SetBitmapFormat(&h264, 7, 0);
    compressed->SetDataSize(256);
    EXPECT_FALSE(CZorVideoFrame::IsFrame(compressed));
    const BITMAPINFOHEADER grey = CZorVideoFrame::MakeHeader(16, 8, true);
    compressed->SetBitmapFormat(&grey, 8, 0);
    EXPECT_FALSE(CZorVideoFrame::IsFrame(compressed)) << "no plane layout";
    compressed->SetPlane(0, 0, 16);
    EXPECT_TRUE(CZorVideoFrame::IsFrame(compressed));
    compressed->SetPlane(0, 129, 16);
    SBeluiBitmap planes[2];
    EXPECT_FALSE(CZorVideoFrame::GetPlanes(compressed, &planes[0], &planes[1]))
        << "the last row would end past the payload";
    EXPECT_TRUE(planes[0].IsEmpty());
    compressed->Release();
    EXPECT_FALSE(CZorVideoFrame::IsFrame(nullptr));
}

TEST(PlaneKernels, ChromaInterleaveMatchesReference) {
    std::mt19937 random(5);
    for (int count : {0, 1, 15, 16, 17, 33, 176, 961}) {
        std::vector<std::uint8_t> u(static_cast<size_t>(count));
        std::vector<std::uint8_t> v(static_cast<size_t>(count));
        for (int i = 0; i < count; ++i) {
            u[static_cast<size_t>(i)] = static_cast<std::uint8_t>(random());
            v[static_cast<size_t>(i)] = static_cast<std::uint8_t>(random());
        }
        std::vector<std::uint8_t> fast(static_cast<size_t>(2 * count) + 1, 0xEE);
        std::vector<std::uint8_t> reference(fast);
        ZorInterleaveChromaRow(u.data(), v.data(), fast.data(), count);
        ZorInterleaveChromaRowReference(u.data(), v.data(), reference.data(), count);
        EXPECT_EQ(fast, reference) << count;
        EXPECT_EQ(fast.back(), 0xEE) << "wrote past the row";
        if (count > 1) {
            EXPECT_EQ(fast[2], u[1]);
            EXPECT_EQ(fast[3], v[1]);
        }
    }
}

} // namespace
