#include "analytics/image/BeluiBitmapBuffer.h"

#include <cstring>
#include <limits>
#include <new>
#include <utility>

namespace {

constexpr std::size_t kAlignment = 64;

} // namespace

void CBeluiBitmapBuffer::SAlignedDelete::operator()(std::uint8_t* p) const {
    ::operator delete[](p, std::align_val_t{kAlignment});
}

bool CBeluiBitmapBuffer::Allocate(int width, int height) {
    constexpr long long kMaxBytes = std::numeric_limits<int>::max();
    const long long stride =
        (static_cast<long long>(width) + kAlignment - 1) / kAlignment * kAlignment;
    if (width <= 0 || height <= 0 || stride * height > kMaxBytes) {
        Free();
        return false;
    }
    const auto bytes = static_cast<std::size_t>(stride * height);
    if (bytes > m_Capacity) {
        m_pMemory.reset(
            static_cast<std::uint8_t*>(::operator new[](bytes, std::align_val_t{kAlignment})));
        m_Capacity = bytes;
    }
    std::memset(m_pMemory.get(), 0, bytes);
    m_Bitmap = SBeluiBitmap{m_pMemory.get(), static_cast<int>(stride), width, height};
    return true;
}

void CBeluiBitmapBuffer::Free() {
    m_pMemory.reset();
    m_Capacity = 0;
    m_Bitmap = SBeluiBitmap{};
}

void CBeluiBitmapBuffer::Swap(CBeluiBitmapBuffer& other) noexcept {
    std::swap(m_pMemory, other.m_pMemory);
    std::swap(m_Capacity, other.m_Capacity);
    std::swap(m_Bitmap, other.m_Bitmap);
}
