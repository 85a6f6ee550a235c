// The row kernels on 32-byte vectors. This file alone is compiled with AVX2 enabled; its table
// is used only after the CPU has been asked (BeluiRows.cpp).
#include "analytics/image/BeluiRowsSimd.h"

#include <immintrin.h>

namespace {

struct SVec256 {
    using T = __m256i;
    static constexpr int kBytes = 32;
    static T Load(const void* p) { return _mm256_loadu_si256(static_cast<const T*>(p)); }
    static void Store(void* p, T v) { _mm256_storeu_si256(static_cast<T*>(p), v); }
    static T Zero() { return _mm256_setzero_si256(); }
    static T Set8(int v) { return _mm256_set1_epi8(static_cast<char>(v)); }
    static T Set16(int v) { return _mm256_set1_epi16(static_cast<short>(v)); }
    static T Set64(long long v) { return _mm256_set1_epi64x(v); }
    static T And(T a, T b) { return _mm256_and_si256(a, b); }
    static T AndNot(T a, T b) { return _mm256_andnot_si256(a, b); }
    static T Or(T a, T b) { return _mm256_or_si256(a, b); }
    static T CmpEq8(T a, T b) { return _mm256_cmpeq_epi8(a, b); }
    static T CmpGt16(T a, T b) { return _mm256_cmpgt_epi16(a, b); }
    static T SubsU8(T a, T b) { return _mm256_subs_epu8(a, b); }
    static T AddsU8(T a, T b) { return _mm256_adds_epu8(a, b); }
    static T MaxU8(T a, T b) { return _mm256_max_epu8(a, b); }
    static T AvgU8(T a, T b) { return _mm256_avg_epu8(a, b); }
    static T UnpackLo8(T a, T b) { return _mm256_unpacklo_epi8(a, b); }
    static T UnpackHi8(T a, T b) { return _mm256_unpackhi_epi8(a, b); }
    static T Add16(T a, T b) { return _mm256_add_epi16(a, b); }
    static T Sub16(T a, T b) { return _mm256_sub_epi16(a, b); }
    static T Mullo16(T a, T b) { return _mm256_mullo_epi16(a, b); }
    static T Srai16(T a, int n) { return _mm256_sra_epi16(a, _mm_cvtsi32_si128(n)); }
    static T Srl16(T a, int n) { return _mm256_srl_epi16(a, _mm_cvtsi32_si128(n)); }
    static T PackUs16(T a, T b) { return _mm256_packus_epi16(a, b); }
    static T Add32(T a, T b) { return _mm256_add_epi32(a, b); }
    static T Sad(T a, T b) { return _mm256_sad_epu8(a, b); }
    static T Slli64(T a, int n) { return _mm256_sll_epi64(a, _mm_cvtsi32_si128(n)); }
};

} // namespace

constinit const SBeluiRowKernels g_BeluiRowsAvx2 = belui_simd::MakeTable<SVec256>("avx2");
