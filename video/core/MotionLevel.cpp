#include "video/core/MotionLevel.h"

#include <algorithm>
#include <cmath>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

constexpr int kBlock = 16; // a macroblock of the common codecs
// A block has changed when at least 1 / kChangedFraction of its samples have.
constexpr int kChangedFraction = 16;

using RowCounter = void (*)(const std::uint8_t*, const std::uint8_t*, int, std::uint8_t,
                            std::uint16_t*);

// Adds, per macroblock column, the samples of one row that changed beyond the floor.
void CountRowReference(const std::uint8_t* a, const std::uint8_t* b, int width, std::uint8_t floor,
                       std::uint16_t* counts) {
    for (int x = 0; x < width; ++x) {
        const int difference = a[x] > b[x] ? a[x] - b[x] : b[x] - a[x];
        counts[x / kBlock] += difference > floor ? 1 : 0;
    }
}

void CountRow(const std::uint8_t* a, const std::uint8_t* b, int width, std::uint8_t floor,
              std::uint16_t* counts) {
    int x = 0;
#if defined(__SSE2__)
    // SSE2 is part of every x86-64: no run-time dispatch needed. One macroblock column a step.
    const __m128i floors = _mm_set1_epi8(static_cast<char>(floor));
    const __m128i ones = _mm_set1_epi8(1);
    const __m128i zero = _mm_setzero_si128();
    for (; x + kBlock <= width; x += kBlock) {
        const __m128i va = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + x));
        const __m128i vb = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + x));
        const __m128i difference = _mm_or_si128(_mm_subs_epu8(va, vb), _mm_subs_epu8(vb, va));
        const __m128i still = _mm_cmpeq_epi8(_mm_subs_epu8(difference, floors), zero);
        const __m128i sums = _mm_sad_epu8(_mm_andnot_si128(still, ones), zero);
        counts[x / kBlock] +=
            static_cast<std::uint16_t>(_mm_cvtsi128_si32(sums) + _mm_extract_epi16(sums, 4));
    }
#endif
    CountRowReference(a + x, b + x, width - x, floor, counts + x / kBlock);
}

SZorMotionMeasure Measure(const SBeluiBitmap& current, const SBeluiBitmap& previous,
                          const SZorMotionSettings& settings, RowCounter countRow) {
    SZorMotionMeasure measure;
    if (current.IsEmpty() || previous.IsEmpty() || current.m_Width != previous.m_Width ||
        current.m_Height != previous.m_Height) {
        return measure;
    }
    const int columns = (current.m_Width + kBlock - 1) / kBlock;
    const int rows = (current.m_Height + kBlock - 1) / kBlock;
    const auto floor = static_cast<std::uint8_t>(std::clamp(settings.m_NoiseFloor, 0, 255));
    std::vector<std::uint16_t> counts(static_cast<size_t>(columns));
    for (int by = 0; by < rows; ++by) {
        std::fill(counts.begin(), counts.end(), std::uint16_t{0});
        const int top = by * kBlock;
        const int height = std::min(kBlock, current.m_Height - top);
        for (int y = top; y < top + height; ++y) {
            countRow(current.Row(y), previous.Row(y), current.m_Width, floor, counts.data());
        }
        for (int bx = 0; bx < columns; ++bx) {
            const int width = std::min(kBlock, current.m_Width - bx * kBlock);
            measure.m_ChangedBlocks +=
                counts[static_cast<size_t>(bx)] * kChangedFraction >= width * height ? 1 : 0;
        }
    }
    measure.m_Blocks = columns * rows;
    measure.m_Level = ZorMotionLevelOfShare(
        static_cast<double>(measure.m_ChangedBlocks) / measure.m_Blocks, settings.m_Scale);
    return measure;
}

} // namespace

int ZorMotionLevelOfShare(double share, double scale) {
    if (!(share > 0) || !(scale > 0)) {
        return 0;
    }
    return static_cast<int>(std::lround(scale * std::sqrt(std::min(share, 1.0))));
}

SZorMotionMeasure ZorMeasureMotion(const SBeluiBitmap& current, const SBeluiBitmap& previous,
                                   const SZorMotionSettings& settings) {
    return Measure(current, previous, settings, &CountRow);
}

SZorMotionMeasure ZorMeasureMotionReference(const SBeluiBitmap& current,
                                            const SBeluiBitmap& previous,
                                            const SZorMotionSettings& settings) {
    return Measure(current, previous, settings, &CountRowReference);
}
