#include "video/VideoFrame.h"

#include "framework/kor/Packet.h"
#include "framework/kor/PacketSource.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

// Rows of frames made here start on this boundary, so that vector loops over them may use
// aligned loads.
constexpr unsigned long kRowAlign = 32;

unsigned long AlignUp(unsigned long value, unsigned long alignment) {
    return (value + alignment - 1) / alignment * alignment;
}

// Whether a plane of width x rows at offset with stride lies inside size bytes.
bool PlaneFits(unsigned long offset, int stride, int width, int rows, unsigned long size) {
    if (stride < width || width <= 0 || rows <= 0) {
        return false;
    }
    const std::uint64_t end = std::uint64_t{offset} +
                              std::uint64_t(static_cast<unsigned>(stride)) * (rows - 1) +
                              static_cast<unsigned>(width);
    return end <= size;
}

struct SFrameGeometry {
    int m_Width = 0;
    int m_Height = 0;
    bool m_Grey = false;
};

bool GeometryOf(const BITMAPINFOHEADER& header, SFrameGeometry* geometry) {
    if (header.biCompression != CZorVideoFrame::kNV12 &&
        header.biCompression != CZorVideoFrame::kGrey) {
        return false;
    }
    const int width = header.biWidth;
    const int height = std::abs(header.biHeight);
    if (!CZorVideoFrame::IsValidSize(width, height)) {
        return false;
    }
    *geometry = SFrameGeometry{width, height, header.biCompression == CZorVideoFrame::kGrey};
    return true;
}

// Allocates a packet with the planes of the geometry laid out one after another.
CKorVideoPacket* AllocateFrame(const SFrameGeometry& g) {
    const unsigned long lumaStride = AlignUp(static_cast<unsigned long>(g.m_Width), kRowAlign);
    const unsigned long chromaOffset = AlignUp(lumaStride * g.m_Height, kRowAlign);
    unsigned long size = lumaStride * g.m_Height;
    unsigned long chromaStride = 0;
    if (!g.m_Grey) {
        chromaStride =
            AlignUp(static_cast<unsigned long>(CZorVideoFrame::ChromaWidth(g.m_Width)), kRowAlign);
        size = chromaOffset + chromaStride * CZorVideoFrame::ChromaHeight(g.m_Height);
    }
    CKorVideoPacket* frame = g_VideoPacketSource.NewPacket(static_cast<long>(size));
    frame->SetDataSize(size);
    frame->SetPlane(0, 0, static_cast<int>(lumaStride));
    frame->SetPlane(1, g.m_Grey ? 0 : chromaOffset, static_cast<int>(chromaStride));
    return frame;
}

void CopyPlane(const SBeluiBitmap& from, const SBeluiBitmap& to) {
    for (int y = 0; y < from.m_Height; ++y) {
        std::memcpy(to.Row(y), from.Row(y), static_cast<size_t>(from.m_Width));
    }
}

} // namespace

bool CZorVideoFrame::IsFrame(const CKorVideoPacket* packet) {
    return GetPlanes(packet, nullptr, nullptr);
}

bool CZorVideoFrame::GetPlanes(const CKorVideoPacket* packet, SBeluiBitmap* luma,
                               SBeluiBitmap* chroma) {
    if (luma) {
        *luma = SBeluiBitmap{};
    }
    if (chroma) {
        *chroma = SBeluiBitmap{};
    }
    SFrameGeometry g;
    if (!packet || packet->GetKind() != CKorPacket::KIND_VIDEO || !packet->GetBitmapInfo() ||
        !GeometryOf(*packet->GetBitmapInfo(), &g)) {
        return false;
    }
    const unsigned long size = packet->GetDataSize();
    const int cw = ChromaWidth(g.m_Width);
    const int ch = ChromaHeight(g.m_Height);
    if (!PlaneFits(packet->GetPlaneOffset(0), packet->GetPlaneStride(0), g.m_Width, g.m_Height,
                   size) ||
        (!g.m_Grey &&
         !PlaneFits(packet->GetPlaneOffset(1), packet->GetPlaneStride(1), cw, ch, size))) {
        return false;
    }
    // The planes are the packet's own payload; a const frame only promises not to be changed
    // through this call.
    BYTE* data = const_cast<CKorVideoPacket*>(packet)->GetData();
    if (luma) {
        *luma = SBeluiBitmap{data + packet->GetPlaneOffset(0), packet->GetPlaneStride(0), g.m_Width,
                             g.m_Height};
    }
    if (chroma && !g.m_Grey) {
        *chroma = SBeluiBitmap{data + packet->GetPlaneOffset(1), packet->GetPlaneStride(1), cw, ch};
    }
    return true;
}

BITMAPINFOHEADER CZorVideoFrame::MakeHeader(int width, int height, bool grey) {
    const DWORD lumaSize = static_cast<DWORD>(width) * static_cast<DWORD>(height);
    const DWORD chromaSize =
        grey ? 0
             : static_cast<DWORD>(ChromaWidth(width)) * static_cast<DWORD>(ChromaHeight(height));
    return BITMAPINFOHEADER{40,
                            width,
                            -height,
                            1,
                            static_cast<WORD>(grey ? 8 : 12),
                            grey ? kGrey : kNV12,
                            lumaSize + chromaSize,
                            0,
                            0,
                            0,
                            0};
}

CKorVideoPacket* CZorVideoFrame::NewFrame(CKorVideoFormat* format) {
    SFrameGeometry g;
    if (!format || !GeometryOf(format->Header(), &g)) {
        return nullptr;
    }
    CKorVideoPacket* frame = AllocateFrame(g);
    frame->SetBitmapFormat(format);
    return frame;
}

CKorVideoPacket* CZorVideoFrame::NewFrameLike(const CKorVideoPacket* frame) {
    return frame ? NewFrame(frame->GetBitmapFormat()) : nullptr;
}

CZorFrameBuilder::~CZorFrameBuilder() {
    CKorVideoPacket::ReleaseVideoFormat(m_pFormat);
}

CKorVideoPacket* CZorFrameBuilder::NewFrame(int width, int height, bool grey, bool fullRange) {
    if (!CZorVideoFrame::IsValidSize(width, height)) {
        return nullptr;
    }
    const BITMAPINFOHEADER header = CZorVideoFrame::MakeHeader(width, height, grey);
    const long flags = fullRange ? CZorVideoFrame::kFullRange : 0;
    if (!m_pFormat || std::memcmp(&m_pFormat->Header(), &header, sizeof(header)) != 0 ||
        m_pFormat->Flags() != flags) {
        CKorVideoPacket::ReleaseVideoFormat(m_pFormat);
        m_pFormat =
            CKorVideoPacket::GetVideoFormat(&header, CKorPacket::GetNewFormatSeqNumber(), flags);
    }
    return CZorVideoFrame::NewFrame(m_pFormat);
}

CKorVideoPacket* CZorFrameBuilder::Build(const SBeluiBitmap& luma, const SBeluiBitmap* chroma,
                                         bool fullRange) {
    if (luma.IsEmpty() || luma.m_Stride < luma.m_Width) {
        return nullptr;
    }
    const bool grey = chroma == nullptr;
    if (!grey && (chroma->IsEmpty() || chroma->m_Stride < chroma->m_Width ||
                  chroma->m_Width != CZorVideoFrame::ChromaWidth(luma.m_Width) ||
                  chroma->m_Height != CZorVideoFrame::ChromaHeight(luma.m_Height))) {
        return nullptr;
    }
    CKorVideoPacket* frame = NewFrame(luma.m_Width, luma.m_Height, grey, fullRange);
    if (!frame) {
        return nullptr;
    }
    SBeluiBitmap toLuma;
    SBeluiBitmap toChroma;
    CZorVideoFrame::GetPlanes(frame, &toLuma, &toChroma);
    CopyPlane(luma, toLuma);
    if (!grey) {
        CopyPlane(*chroma, toChroma);
    }
    return frame;
}
