// Test support for decoded pictures: plane checksums, a plain libavcodec decode to compare
// with, the decode of a whole clip through a decompressor, and packet damage.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

class CKorVideoPacket;
class CZorVideoDecompressor;
struct SBeluiBitmap;

namespace zortest {

class CClipPackets;

// Checksums of one picture's luma and of each chroma component (0 when absent).
struct SPictureSums {
    std::uint64_t m_Luma = 0;
    std::uint64_t m_Cb = 0;
    std::uint64_t m_Cr = 0;
    bool operator==(const SPictureSums&) const = default;
};

// Of a planar frame packet (NV12 chroma pairs split into Cb and Cr).
SPictureSums SumsOf(const CKorVideoPacket* frame);
// Of every picture of the file's video stream, decoded by libavcodec alone on one thread, in
// output order (4:2:2 chroma is not compared: its sums stay 0, as the frame's are then skipped).
std::vector<SPictureSums> ReferenceDecode(const std::string& file);
// Every frame of the clip, drained at the end (one reference each).
std::vector<CKorVideoPacket*> DecodeAll(CZorVideoDecompressor& decoder, const CClipPackets& clip);
// Damages a packet in one of several ways chosen by kind: flipped bytes, a cut, zeroes, noise.
void Damage(CKorVideoPacket* packet, std::mt19937& random, unsigned kind);

// A written picture or video file read back by libavformat and libavcodec.
struct SReadBack {
    int m_Width = 0;
    int m_Height = 0;
    int m_Frames = 0;                  // pictures decoded
    std::string m_Codec;               // of the first video stream
    std::vector<std::uint8_t> m_First; // the first picture, RGB 3 bytes a pixel
    std::vector<long long> m_TimesMs;  // presentation times of the pictures
    const std::uint8_t* Pixel(int x, int y) const {
        return m_First.data() + 3 * (static_cast<size_t>(y) * m_Width + x);
    }
};
SReadBack ReadBack(const std::string& file);

} // namespace zortest
