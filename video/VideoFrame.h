// Decoded frames: the planar layout every video consumer reads, and how to make frame packets.
//
// A frame packet is a CKorVideoPacket with a planar frame format, top-down (negative biHeight),
// and its plane layout set (CKorVideoPacket::SetPlane). Samples are 8-bit. Two formats:
//  - "NV12", 12 bits per pixel: plane 1 luma, W x H; plane 2 chroma at half resolution both
//    ways, each row ceil(W/2) interleaved (Cb, Cr) pairs, so 2*ceil(W/2) samples wide and
//    ceil(H/2) rows high. Chroma sample pair x/2 of row y/2 belongs to luma sample (x, y).
//  - "Y800", 8 bits per pixel: plane 1 luma only; plane 2 is empty. Grey-only consumers ask
//    the decoder for it and pay nothing for chroma.
// Samples are video range (16..235) unless the format's flags carry kFullRange.
//
// Frames are shared read-only: the decoder keeps reading its reference pictures, and a splitter
// hands the same packet to every branch. Write into a frame's planes only while
// RefCount() == 1, otherwise take a copy (Clone, or a new frame from NewFrameLike).
//
//   SBeluiBitmap luma, chroma;
//   if (CZorVideoFrame::GetPlanes(frame, &luma, &chroma)) { ... luma.Row(y)[x] ... }
#pragma once

#include "analytics/image/BeluiBitmap.h"
#include "entry/ZorExport.h"
#include "framework/bel/WinTypes.h"

class CKorVideoFormat;
class CKorVideoPacket;

class ZOR_EXPORT CZorVideoFrame {
public:
    static constexpr DWORD kNV12 = MakeFourCC('N', 'V', '1', '2');
    static constexpr DWORD kGrey = MakeFourCC('Y', '8', '0', '0');
    // Format flag: samples use the full 0..255 range (JPEG-style) rather than video range.
    static constexpr long kFullRange = 1;
    // The largest width and height a frame may have.
    static constexpr int kMaxSide = 16384;

    // Answers whether the packet carries a planar frame whose planes fit in its payload.
    static bool IsFrame(const CKorVideoPacket* packet);
    // The plane descriptors of a frame (borrowed memory: valid while the caller holds the packet).
    // chroma may be nullptr; it is left empty for a grey frame. Answers false, with both
    // descriptors empty, when the packet is not a planar frame.
    static bool GetPlanes(const CKorVideoPacket* packet, SBeluiBitmap* luma, SBeluiBitmap* chroma);
    // The format header of a top-down planar frame (biSizeImage: the planes packed with no
    // padding).
    static BITMAPINFOHEADER MakeHeader(int width, int height, bool grey);
    static bool IsValidSize(int width, int height) {
        return width > 0 && height > 0 && width <= kMaxSide && height <= kMaxSide;
    }
    // Chroma plane size of a width x height frame, in samples.
    static int ChromaWidth(int width) { return 2 * ((width + 1) / 2); }
    static int ChromaHeight(int height) { return (height + 1) / 2; }

    // A new frame packet (one reference) sharing the format record (and so the format sequence
    // number) of format; its planes are allocated and uninitialised. nullptr when the format is
    // not a planar frame format of a valid size.
    static CKorVideoPacket* NewFrame(CKorVideoFormat* format);
    // The same for another frame's format: the frame a processor fills from that frame.
    static CKorVideoPacket* NewFrameLike(const CKorVideoPacket* frame);
};

// Makes frame packets from plain planes: for tests, generated clips and processors that compute
// pictures. Frames of the same size and kind share one format record, so a consumer sees a new
// format sequence number only when the size or kind changes.
class ZOR_EXPORT CZorFrameBuilder {
public:
    CZorFrameBuilder() = default;
    ~CZorFrameBuilder();
    CZorFrameBuilder(const CZorFrameBuilder&) = delete;
    CZorFrameBuilder& operator=(const CZorFrameBuilder&) = delete;

    // A new frame packet (one reference) with uninitialised planes, to be filled through
    // CZorVideoFrame::GetPlanes; nullptr for an invalid size.
    CKorVideoPacket* NewFrame(int width, int height, bool grey, bool fullRange = false);
    // A new frame packet holding copies of the planes: luma gives the size; chroma, when given,
    // must be ChromaWidth x ChromaHeight of it (an NV12 frame), otherwise the frame is grey.
    // nullptr when the planes do not fit those rules.
    CKorVideoPacket* Build(const SBeluiBitmap& luma, const SBeluiBitmap* chroma,
                           bool fullRange = false);
    // The format record of the frames made last (borrowed), or nullptr.
    CKorVideoFormat* Format() const { return m_pFormat; }

private:
    CKorVideoFormat* m_pFormat = nullptr; // one reference
};
