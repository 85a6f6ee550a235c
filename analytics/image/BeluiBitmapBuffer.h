// Memory for one plane of 8-bit samples, handed out as a bitmap descriptor. Rows start on
// 64-byte boundaries and the stride is a multiple of 64, so the row kernels never straddle a
// cache line at a row's start. Memory is reused when a new size fits in what is held.
#pragma once

#include "analytics/image/BeluiBitmap.h"

#include <cstddef>
#include <cstdint>
#include <memory>

class CBeluiBitmapBuffer {
public:
    CBeluiBitmapBuffer() = default;
    CBeluiBitmapBuffer(CBeluiBitmapBuffer&&) noexcept = default;
    CBeluiBitmapBuffer& operator=(CBeluiBitmapBuffer&&) noexcept = default;

    // Shapes the buffer for width x height samples, all 0. Answers false, and leaves the buffer
    // empty, for a non-positive size or one too large to address.
    bool Allocate(int width, int height);
    void Free();
    bool IsEmpty() const { return m_Bitmap.IsEmpty(); }
    const SBeluiBitmap& Bitmap() const { return m_Bitmap; }
    // Exchanges the contents (memory and shape) of two buffers.
    void Swap(CBeluiBitmapBuffer& other) noexcept;

private:
    struct SAlignedDelete {
        void operator()(std::uint8_t* p) const;
    };
    std::unique_ptr<std::uint8_t[], SAlignedDelete> m_pMemory;
    std::size_t m_Capacity = 0;
    SBeluiBitmap m_Bitmap;
};
