// Pictures a person can look at: frames turned into RGB pictures at any size (libswscale), and
// RGB pictures written as PNG files (libavcodec's PNG encoder) or as a video file (libavcodec and
// libavformat, the container chosen by the file name).
//
//   CZorRgbPicture picture;
//   CZorFrameToRgb().Convert(frame, 640, 360, &picture);
//   ZorDrawBox(picture.Image(), 10, 10, 50, 80, ZorBoxColour(1), 2);
//   std::string error;
//   CZorPngFile::Write("snap.png", picture.Image(), &error);
//
// Every failure (a file that cannot be made, an unknown container, a missing encoder) answers
// false with a message naming the file and the reason; nothing throws.
#pragma once

#include "entry/ZorExport.h"
#include "video/core/Drawing.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class CKorVideoPacket;

// An RGB picture that owns its pixels.
class ZOR_EXPORT CZorRgbPicture {
public:
    CZorRgbPicture() = default;
    CZorRgbPicture(int width, int height) { Resize(width, height); }
    void Resize(int width, int height);
    SZorRgbImage Image() { return SZorRgbImage{m_Pixels.data(), 3 * m_Width, m_Width, m_Height}; }
    int Width() const { return m_Width; }
    int Height() const { return m_Height; }
    bool IsEmpty() const { return m_Pixels.empty(); }

private:
    std::vector<std::uint8_t> m_Pixels;
    int m_Width = 0;
    int m_Height = 0;
};

// Converts planar frame packets (video/VideoFrame.h) into RGB pictures, scaled to any size.
class ZOR_EXPORT CZorFrameToRgb {
public:
    CZorFrameToRgb();
    ~CZorFrameToRgb();
    CZorFrameToRgb(const CZorFrameToRgb&) = delete;
    CZorFrameToRgb& operator=(const CZorFrameToRgb&) = delete;

    // Answers false when the packet is not a planar frame or the size is not usable.
    bool Convert(const CKorVideoPacket* frame, int width, int height, CZorRgbPicture* picture);

private:
    struct SImpl;
    std::unique_ptr<SImpl> m_p;
};

class ZOR_EXPORT CZorPngFile {
public:
    static bool Write(const std::string& file, const SZorRgbImage& picture, std::string* error);
};

// A video file: pictures of one size, each with its time in milliseconds.
class ZOR_EXPORT CZorVideoFile {
public:
    CZorVideoFile();
    // Closes the file if it is still open.
    ~CZorVideoFile();
    CZorVideoFile(const CZorVideoFile&) = delete;
    CZorVideoFile& operator=(const CZorVideoFile&) = delete;

    // Opens the file for width x height pictures (even numbers: 4:2:0 coding), the container
    // from the file name (.mp4, .mkv, .avi ...), encoded with the named libavcodec encoder, or
    // with H.264 (else MPEG-4) when the name is empty.
    bool Open(const std::string& file, int width, int height, const std::string& encoder,
              std::string* error);
    // Encodes one picture of the opened size. Times that do not increase are moved on by 1 ms.
    bool Write(const SZorRgbImage& picture, long long milliseconds, std::string* error);
    // Encodes what the encoder still holds and finishes the file.
    bool Close(std::string* error);
    bool IsOpen() const;
    long FramesWritten() const;
    const std::string& EncoderName() const;

private:
    struct SImpl;
    std::unique_ptr<SImpl> m_p;
};
