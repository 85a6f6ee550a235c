// Tracks the video of a clip file and summarises the boxes per picture; optionally writes one
// picture with its foreground blocks outlined beside the processed image, as a PGM file.
//
//   zor_tracking_clip FILE [PICTURE OUT.pgm]
#include "analytics/tracking/ObjectTracking.h"
#include "framework/kor/Packet.h"
#include "tests/video/ClipReader.h"
#include "video/VideoFrame.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

// The picture with the outline of its foreground blocks, and the processed image, side by side.
void WriteSheet(const char* file, const SBeluiBitmap& picture, const SBeluiBitmap& processed,
                const CBelui2DMask& mask) {
    const int w = picture.m_Width;
    const int h = picture.m_Height;
    std::vector<unsigned char> sheet(static_cast<std::size_t>(2) * w * h);
    for (int y = 0; y < h; ++y) {
        std::copy_n(picture.Row(y), w, &sheet[static_cast<std::size_t>(y) * 2 * w]);
        std::copy_n(processed.Row(y), w, &sheet[static_cast<std::size_t>(y) * 2 * w + w]);
    }
    const auto set = [&](int bx, int by) {
        return bx >= 0 && by >= 0 && bx < mask.BlocksAcross() && by < mask.BlocksDown() &&
               mask.IsSet(bx, by);
    };
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const int bx = x / 4;
            const int by = y / 4;
            if (!set(bx, by)) {
                continue;
            }
            const bool edge = (x % 4 == 0 && !set(bx - 1, by)) ||
                              (x % 4 == 3 && !set(bx + 1, by)) ||
                              (y % 4 == 0 && !set(bx, by - 1)) || (y % 4 == 3 && !set(bx, by + 1));
            if (edge) {
                sheet[static_cast<std::size_t>(y) * 2 * w + x] = 255;
            }
        }
    }
    FILE* out = std::fopen(file, "wb");
    if (!out) {
        std::perror(file);
        return;
    }
    std::fprintf(out, "P5 %d %d 255\n", 2 * w, h);
    std::fwrite(sheet.data(), 1, sheet.size(), out);
    std::fclose(out);
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s FILE [PICTURE OUT.pgm]\n", argv[0]);
        return 2;
    }
    const zortest::CClipPackets clip(argv[1]);
    if (!clip.Ok()) {
        std::fprintf(stderr, "%s\n", clip.Error().c_str());
        return 1;
    }
    const int shot = argc > 3 ? std::atoi(argv[2]) : -1;
    CZorObjectTrackingProcessor tracker;
    long total = 0;
    int most = 0;
    int withBoxes = 0;
    int frames = 0;
    for (int i = 0; i < clip.Count(); ++i) {
        bool produced = false;
        CKorVideoPacket* out = tracker.Process(clip.At(i), &produced);
        if (!out) {
            continue;
        }
        ++frames;
        const int boxes = tracker.LastBoxCount();
        total += boxes;
        most = std::max(most, boxes);
        withBoxes += boxes > 0;
        if (i % 25 == 0) {
            std::printf("picture %3d: %3d boxes\n", i, boxes);
        }
        if (i == shot) {
            bool decoded = false;
            CZorObjectTrackingProcessor again; // the picture itself, decoded once more
            for (int j = 0; j <= i; ++j) {
                CKorVideoPacket* frame = again.Decompress(clip.At(j), &decoded);
                if (frame && j == i) {
                    SBeluiBitmap picture;
                    SBeluiBitmap processed;
                    CZorVideoFrame::GetPlanes(frame, &picture, nullptr);
                    CZorVideoFrame::GetPlanes(out, &processed, nullptr);
                    WriteSheet(argv[3], picture, processed, tracker.Chain().BlockMask());
                }
                if (frame) {
                    frame->Release();
                }
            }
        }
        out->Release();
    }
    std::printf("%d pictures: %d with boxes, %.1f boxes a picture, at most %d\n", frames, withBoxes,
                frames ? static_cast<double>(total) / frames : 0.0, most);
    return 0;
}
