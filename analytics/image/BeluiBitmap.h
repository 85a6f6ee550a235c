// A bitmap descriptor: one plane of 8-bit samples in memory the caller owns. Image primitives
// and frame consumers take descriptors, never packets, so that they run on plain buffers.
//
// Rows run top to bottom from m_pData, m_Stride bytes apart (m_Stride >= m_Width). An empty
// descriptor (no data, zero size) stands for a plane that is absent.
#pragma once

#include <cstddef>
#include <cstdint>

struct SBeluiBitmap {
    std::uint8_t* m_pData = nullptr;
    int m_Stride = 0;
    int m_Width = 0;
    int m_Height = 0;

    bool IsEmpty() const { return m_pData == nullptr || m_Width <= 0 || m_Height <= 0; }
    std::uint8_t* Row(int y) const { return m_pData + static_cast<std::ptrdiff_t>(y) * m_Stride; }
};
