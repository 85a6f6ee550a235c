// SSE2, AVX2 and AVX-512 forms of the sample loops. Each function carries its own target, so the
// file builds for the baseline x86-64 and a wider loop only runs after the CPU check below.
//
// Exactness: samples become doubles exactly; one multiply and one add per sample, in the
// reference's order and never fused (the target is built with -ffp-contract=off); truncation is
// the conversion with truncation, as the reference's cast. Mixing holds the sum to the 16-bit
// range before truncating, which gives what truncating and then saturating gives.
#include "audio/sound/SampleKernelsWide.h"

#if defined(__x86_64__)

// GCC 12's AVX-512 headers fill "undefined" registers with a self-assignment that its own
// uninitialised-use analysis then reports inside every conversion used here.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include <immintrin.h>

#include <algorithm>
#include <cstdint>

namespace {

// --- SSE2 -----------------------------------------------------------------------------------

SZorSampleStats Reduce(const std::int16_t* maxima, const std::int16_t* minima, int lanes,
                       std::uint64_t sum) {
    std::int32_t high = 0;
    std::int32_t low = 0;
    for (int i = 0; i < lanes; ++i) {
        high = std::max<std::int32_t>(high, maxima[i]);
        low = std::min<std::int32_t>(low, minima[i]);
    }
    SZorSampleStats stats;
    stats.m_Peak = static_cast<std::uint32_t>(std::max(high, -low));
    stats.m_SumOfSquares = sum;
    return stats;
}

void AddTail(SZorSampleStats* stats, const unsigned char* samples, std::size_t n) {
    const SZorSampleStats tail = ZorSampleKernelsFor(EZorSimdPath::Scalar).m_Measure(samples, n);
    stats->m_Peak = std::max(stats->m_Peak, tail.m_Peak);
    stats->m_SumOfSquares += tail.m_SumOfSquares;
}

SZorSampleStats MeasureSse2(const unsigned char* samples, std::size_t n) {
    const __m128i zero = _mm_setzero_si128();
    __m128i high = zero;
    __m128i low = zero;
    __m128i sum = zero;
    std::size_t i = 0;
    for (; i + 8 <= n; i += 8) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(samples + 2 * i));
        high = _mm_max_epi16(high, v);
        low = _mm_min_epi16(low, v);
        // Pairs of squares reach 2^31 (two of -32768): read as unsigned and widened to 64 bits.
        const __m128i squares = _mm_madd_epi16(v, v);
        sum = _mm_add_epi64(sum, _mm_unpacklo_epi32(squares, zero));
        sum = _mm_add_epi64(sum, _mm_unpackhi_epi32(squares, zero));
    }
    alignas(16) std::int16_t maxima[8];
    alignas(16) std::int16_t minima[8];
    alignas(16) std::uint64_t sums[2];
    _mm_store_si128(reinterpret_cast<__m128i*>(maxima), high);
    _mm_store_si128(reinterpret_cast<__m128i*>(minima), low);
    _mm_store_si128(reinterpret_cast<__m128i*>(sums), sum);
    SZorSampleStats stats = Reduce(maxima, minima, 8, sums[0] + sums[1]);
    AddTail(&stats, samples + 2 * i, n - i);
    return stats;
}

// Four int32 lanes to the low 16 bits of each, sign-extended again, so a pack cannot saturate.
__m128i Wrap16(__m128i v) {
    return _mm_srai_epi32(_mm_slli_epi32(v, 16), 16);
}

void ScaleSse2(unsigned char* samples, std::size_t n, double gain) {
    const __m128d g = _mm_set1_pd(gain);
    std::size_t i = 0;
    for (; i + 8 <= n; i += 8) {
        auto* p = reinterpret_cast<__m128i*>(samples + 2 * i);
        const __m128i v = _mm_loadu_si128(p);
        const __m128i lo = _mm_srai_epi32(_mm_unpacklo_epi16(v, v), 16);
        const __m128i hi = _mm_srai_epi32(_mm_unpackhi_epi16(v, v), 16);
        const __m128i r0 = _mm_cvttpd_epi32(_mm_mul_pd(_mm_cvtepi32_pd(lo), g));
        const __m128i r1 =
            _mm_cvttpd_epi32(_mm_mul_pd(_mm_cvtepi32_pd(_mm_shuffle_epi32(lo, 0xEE)), g));
        const __m128i r2 = _mm_cvttpd_epi32(_mm_mul_pd(_mm_cvtepi32_pd(hi), g));
        const __m128i r3 =
            _mm_cvttpd_epi32(_mm_mul_pd(_mm_cvtepi32_pd(_mm_shuffle_epi32(hi, 0xEE)), g));
        const __m128i a = Wrap16(_mm_unpacklo_epi64(r0, r1));
        const __m128i b = Wrap16(_mm_unpacklo_epi64(r2, r3));
        _mm_storeu_si128(p, _mm_packs_epi32(a, b));
    }
    ZorSampleKernelsFor(EZorSimdPath::Scalar).m_Scale(samples + 2 * i, n - i, gain);
}

// Two samples: sample x factor + clip, held to the 16-bit range, truncated.
__m128i MixPairSse2(__m128i in, __m128i clip, __m128d factor) {
    const __m128d lowest = _mm_set1_pd(-32768.0);
    const __m128d highest = _mm_set1_pd(32767.0);
    __m128d v = _mm_add_pd(_mm_mul_pd(_mm_cvtepi32_pd(in), factor), _mm_cvtepi32_pd(clip));
    v = _mm_min_pd(_mm_max_pd(v, lowest), highest);
    return _mm_cvttpd_epi32(v);
}

void MixSse2(unsigned char* samples, const unsigned char* clip, std::size_t n, double factor) {
    const __m128d f = _mm_set1_pd(factor);
    std::size_t i = 0;
    for (; i + 8 <= n; i += 8) {
        auto* p = reinterpret_cast<__m128i*>(samples + 2 * i);
        const __m128i v = _mm_loadu_si128(p);
        const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(clip + 2 * i));
        const __m128i vlo = _mm_srai_epi32(_mm_unpacklo_epi16(v, v), 16);
        const __m128i vhi = _mm_srai_epi32(_mm_unpackhi_epi16(v, v), 16);
        const __m128i clo = _mm_srai_epi32(_mm_unpacklo_epi16(c, c), 16);
        const __m128i chi = _mm_srai_epi32(_mm_unpackhi_epi16(c, c), 16);
        const __m128i r0 = MixPairSse2(vlo, clo, f);
        const __m128i r1 =
            MixPairSse2(_mm_shuffle_epi32(vlo, 0xEE), _mm_shuffle_epi32(clo, 0xEE), f);
        const __m128i r2 = MixPairSse2(vhi, chi, f);
        const __m128i r3 =
            MixPairSse2(_mm_shuffle_epi32(vhi, 0xEE), _mm_shuffle_epi32(chi, 0xEE), f);
        _mm_storeu_si128(p,
                         _mm_packs_epi32(_mm_unpacklo_epi64(r0, r1), _mm_unpacklo_epi64(r2, r3)));
    }
    ZorSampleKernelsFor(EZorSimdPath::Scalar).m_Mix(samples + 2 * i, clip + 2 * i, n - i, factor);
}

// --- AVX2 -----------------------------------------------------------------------------------

__attribute__((target("avx2"))) SZorSampleStats MeasureAvx2(const unsigned char* samples,
                                                            std::size_t n) {
    const __m256i zero = _mm256_setzero_si256();
    __m256i high = zero;
    __m256i low = zero;
    __m256i sum = zero;
    std::size_t i = 0;
    for (; i + 16 <= n; i += 16) {
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(samples + 2 * i));
        high = _mm256_max_epi16(high, v);
        low = _mm256_min_epi16(low, v);
        const __m256i squares = _mm256_madd_epi16(v, v);
        sum = _mm256_add_epi64(sum, _mm256_unpacklo_epi32(squares, zero));
        sum = _mm256_add_epi64(sum, _mm256_unpackhi_epi32(squares, zero));
    }
    alignas(32) std::int16_t maxima[16];
    alignas(32) std::int16_t minima[16];
    alignas(32) std::uint64_t sums[4];
    _mm256_store_si256(reinterpret_cast<__m256i*>(maxima), high);
    _mm256_store_si256(reinterpret_cast<__m256i*>(minima), low);
    _mm256_store_si256(reinterpret_cast<__m256i*>(sums), sum);
    SZorSampleStats stats = Reduce(maxima, minima, 16, sums[0] + sums[1] + sums[2] + sums[3]);
    AddTail(&stats, samples + 2 * i, n - i);
    return stats;
}

// Eight int32 lanes (two 128-bit halves of doubles' results) to 16 bits without saturation.
__attribute__((target("avx2"))) __m256i Wrap16Avx2(__m256i v) {
    return _mm256_srai_epi32(_mm256_slli_epi32(v, 16), 16);
}

// Sixteen int32 lanes in two registers to sixteen int16 in order (the pack works per lane).
__attribute__((target("avx2"))) __m256i PackAvx2(__m256i a, __m256i b) {
    return _mm256_permute4x64_epi64(_mm256_packs_epi32(a, b), 0xD8);
}

__attribute__((target("avx2"))) void ScaleAvx2(unsigned char* samples, std::size_t n, double gain) {
    const __m256d g = _mm256_set1_pd(gain);
    std::size_t i = 0;
    for (; i + 16 <= n; i += 16) {
        auto* p = reinterpret_cast<__m256i*>(samples + 2 * i);
        const __m256i v = _mm256_loadu_si256(p);
        const __m256i a = _mm256_cvtepi16_epi32(_mm256_castsi256_si128(v));
        const __m256i b = _mm256_cvtepi16_epi32(_mm256_extracti128_si256(v, 1));
        const __m128i r0 =
            _mm256_cvttpd_epi32(_mm256_mul_pd(_mm256_cvtepi32_pd(_mm256_castsi256_si128(a)), g));
        const __m128i r1 = _mm256_cvttpd_epi32(
            _mm256_mul_pd(_mm256_cvtepi32_pd(_mm256_extracti128_si256(a, 1)), g));
        const __m128i r2 =
            _mm256_cvttpd_epi32(_mm256_mul_pd(_mm256_cvtepi32_pd(_mm256_castsi256_si128(b)), g));
        const __m128i r3 = _mm256_cvttpd_epi32(
            _mm256_mul_pd(_mm256_cvtepi32_pd(_mm256_extracti128_si256(b, 1)), g));
        _mm256_storeu_si256(p, PackAvx2(Wrap16Avx2(_mm256_set_m128i(r1, r0)),
                                        Wrap16Avx2(_mm256_set_m128i(r3, r2))));
    }
    ZorSampleKernelsFor(EZorSimdPath::Scalar).m_Scale(samples + 2 * i, n - i, gain);
}

__attribute__((target("avx2"))) __m128i MixQuadAvx2(__m128i in, __m128i clip, __m256d factor) {
    const __m256d lowest = _mm256_set1_pd(-32768.0);
    const __m256d highest = _mm256_set1_pd(32767.0);
    __m256d v =
        _mm256_add_pd(_mm256_mul_pd(_mm256_cvtepi32_pd(in), factor), _mm256_cvtepi32_pd(clip));
    v = _mm256_min_pd(_mm256_max_pd(v, lowest), highest);
    return _mm256_cvttpd_epi32(v);
}

__attribute__((target("avx2"))) void MixAvx2(unsigned char* samples, const unsigned char* clip,
                                             std::size_t n, double factor) {
    const __m256d f = _mm256_set1_pd(factor);
    std::size_t i = 0;
    for (; i + 16 <= n; i += 16) {
        auto* p = reinterpret_cast<__m256i*>(samples + 2 * i);
        const __m256i v = _mm256_loadu_si256(p);
        const __m256i c = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(clip + 2 * i));
        const __m256i va = _mm256_cvtepi16_epi32(_mm256_castsi256_si128(v));
        const __m256i vb = _mm256_cvtepi16_epi32(_mm256_extracti128_si256(v, 1));
        const __m256i ca = _mm256_cvtepi16_epi32(_mm256_castsi256_si128(c));
        const __m256i cb = _mm256_cvtepi16_epi32(_mm256_extracti128_si256(c, 1));
        const __m128i r0 = MixQuadAvx2(_mm256_castsi256_si128(va), _mm256_castsi256_si128(ca), f);
        const __m128i r1 =
            MixQuadAvx2(_mm256_extracti128_si256(va, 1), _mm256_extracti128_si256(ca, 1), f);
        const __m128i r2 = MixQuadAvx2(_mm256_castsi256_si128(vb), _mm256_castsi256_si128(cb), f);
        const __m128i r3 =
            MixQuadAvx2(_mm256_extracti128_si256(vb, 1), _mm256_extracti128_si256(cb, 1), f);
        _mm256_storeu_si256(p, PackAvx2(_mm256_set_m128i(r1, r0), _mm256_set_m128i(r3, r2)));
    }
    ZorSampleKernelsFor(EZorSimdPath::Scalar).m_Mix(samples + 2 * i, clip + 2 * i, n - i, factor);
}

// --- AVX-512 --------------------------------------------------------------------------------

__attribute__((target("avx512f,avx512bw"))) SZorSampleStats
MeasureAvx512(const unsigned char* samples, std::size_t n) {
    const __m512i zero = _mm512_setzero_si512();
    __m512i high = zero;
    __m512i low = zero;
    __m512i sum = zero;
    std::size_t i = 0;
    for (; i + 32 <= n; i += 32) {
        const __m512i v = _mm512_loadu_si512(samples + 2 * i);
        high = _mm512_max_epi16(high, v);
        low = _mm512_min_epi16(low, v);
        const __m512i squares = _mm512_madd_epi16(v, v);
        sum = _mm512_add_epi64(sum, _mm512_unpacklo_epi32(squares, zero));
        sum = _mm512_add_epi64(sum, _mm512_unpackhi_epi32(squares, zero));
    }
    alignas(64) std::int16_t maxima[32];
    alignas(64) std::int16_t minima[32];
    _mm512_store_si512(maxima, high);
    _mm512_store_si512(minima, low);
    SZorSampleStats stats =
        Reduce(maxima, minima, 32, static_cast<std::uint64_t>(_mm512_reduce_add_epi64(sum)));
    AddTail(&stats, samples + 2 * i, n - i);
    return stats;
}

// Sixteen samples as two registers of eight doubles.
__attribute__((target("avx512f,avx512bw"))) void ToDoubles(__m256i samples, __m512d* low,
                                                           __m512d* high) {
    const __m512i wide = _mm512_cvtepi16_epi32(samples);
    *low = _mm512_cvtepi32_pd(_mm512_castsi512_si256(wide));
    *high = _mm512_cvtepi32_pd(_mm512_extracti64x4_epi64(wide, 1));
}

__attribute__((target("avx512f,avx512bw"))) __m512i Join(__m256i low, __m256i high) {
    return _mm512_inserti64x4(_mm512_castsi256_si512(low), high, 1);
}

__attribute__((target("avx512f,avx512bw"))) void ScaleAvx512(unsigned char* samples, std::size_t n,
                                                             double gain) {
    const __m512d g = _mm512_set1_pd(gain);
    std::size_t i = 0;
    for (; i + 16 <= n; i += 16) {
        auto* p = reinterpret_cast<__m256i*>(samples + 2 * i);
        __m512d a;
        __m512d b;
        ToDoubles(_mm256_loadu_si256(p), &a, &b);
        const __m512i r = Join(_mm512_cvttpd_epi32(_mm512_mul_pd(a, g)),
                               _mm512_cvttpd_epi32(_mm512_mul_pd(b, g)));
        _mm256_storeu_si256(p, _mm512_cvtepi32_epi16(r)); // keeps the low 16 bits: wraps
    }
    ZorSampleKernelsFor(EZorSimdPath::Scalar).m_Scale(samples + 2 * i, n - i, gain);
}

__attribute__((target("avx512f,avx512bw"))) __m256i MixOctAvx512(__m512d in, __m512d clip,
                                                                 __m512d factor) {
    const __m512d lowest = _mm512_set1_pd(-32768.0);
    const __m512d highest = _mm512_set1_pd(32767.0);
    __m512d v = _mm512_add_pd(_mm512_mul_pd(in, factor), clip);
    v = _mm512_min_pd(_mm512_max_pd(v, lowest), highest);
    return _mm512_cvttpd_epi32(v);
}

__attribute__((target("avx512f,avx512bw"))) void
MixAvx512(unsigned char* samples, const unsigned char* clip, std::size_t n, double factor) {
    const __m512d f = _mm512_set1_pd(factor);
    std::size_t i = 0;
    for (; i + 16 <= n; i += 16) {
        auto* p = reinterpret_cast<__m256i*>(samples + 2 * i);
        __m512d va;
        __m512d vb;
        __m512d ca;
        __m512d cb;
        ToDoubles(_mm256_loadu_si256(p), &va, &vb);
        ToDoubles(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(clip + 2 * i)), &ca, &cb);
        const __m512i r = Join(MixOctAvx512(va, ca, f), MixOctAvx512(vb, cb, f));
        _mm256_storeu_si256(p, _mm512_cvtepi32_epi16(r)); // already in range
    }
    ZorSampleKernelsFor(EZorSimdPath::Scalar).m_Mix(samples + 2 * i, clip + 2 * i, n - i, factor);
}

constexpr SZorSampleKernels kSse2{EZorSimdPath::Sse2, &MeasureSse2, &ScaleSse2, &MixSse2};
constexpr SZorSampleKernels kAvx2{EZorSimdPath::Avx2, &MeasureAvx2, &ScaleAvx2, &MixAvx2};
constexpr SZorSampleKernels kAvx512{EZorSimdPath::Avx512, &MeasureAvx512, &ScaleAvx512, &MixAvx512};

} // namespace

const SZorSampleKernels* ZorWideKernels(EZorSimdPath path) {
    __builtin_cpu_init();
    switch (path) {
    case EZorSimdPath::Sse2:
        return __builtin_cpu_supports("sse2") ? &kSse2 : nullptr;
    case EZorSimdPath::Avx2:
        return __builtin_cpu_supports("avx2") ? &kAvx2 : nullptr;
    case EZorSimdPath::Avx512:
        return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") ? &kAvx512
                                                                                       : nullptr;
    case EZorSimdPath::Scalar:
        break;
    }
    return nullptr;
}

#else

const SZorSampleKernels* ZorWideKernels(EZorSimdPath) {
    return nullptr;
}

#endif
