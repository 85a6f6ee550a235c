#include "video/core/PlaneKernels.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

void ZorInterleaveChromaRowReference(const std::uint8_t* u, const std::uint8_t* v,
                                     std::uint8_t* out, int count) {
    for (int x = 0; x < count; ++x) {
        out[2 * x] = u[x];
        out[2 * x + 1] = v[x];
    }
}

void ZorInterleaveChromaRow(const std::uint8_t* u, const std::uint8_t* v, std::uint8_t* out,
                            int count) {
    int x = 0;
#if defined(__SSE2__)
    // SSE2 is part of every x86-64, so this needs no run-time dispatch.
    for (; x + 16 <= count; x += 16) {
        const __m128i cb = _mm_loadu_si128(reinterpret_cast<const __m128i*>(u + x));
        const __m128i cr = _mm_loadu_si128(reinterpret_cast<const __m128i*>(v + x));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 2 * x), _mm_unpacklo_epi8(cb, cr));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 2 * x + 16), _mm_unpackhi_epi8(cb, cr));
    }
#endif
    ZorInterleaveChromaRowReference(u + x, v + x, out + 2 * x, count - x);
}
