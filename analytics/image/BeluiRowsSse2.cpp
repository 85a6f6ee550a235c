// The row kernels on 16-byte vectors: SSE2, which every x86-64 CPU has.
#include "analytics/image/BeluiRowsSimd.h"

#include <emmintrin.h>

namespace {

struct SVec128 {
    using T = __m128i;
    static constexpr int kBytes = 16;
    static T Load(const void* p) { return _mm_loadu_si128(static_cast<const T*>(p)); }
    static void Store(void* p, T v) { _mm_storeu_si128(static_cast<T*>(p), v); }
    static T Zero() { return _mm_setzero_si128(); }
    static T Set8(int v) { return _mm_set1_epi8(static_cast<char>(v)); }
    static T Set16(int v) { return _mm_set1_epi16(static_cast<short>(v)); }
    static T Set64(long long v) { return _mm_set1_epi64x(v); }
    static T And(T a, T b) { return _mm_and_si128(a, b); }
    static T AndNot(T a, T b) { return _mm_andnot_si128(a, b); }
    static T Or(T a, T b) { return _mm_or_si128(a, b); }
    static T CmpEq8(T a, T b) { return _mm_cmpeq_epi8(a, b); }
    static T CmpGt16(T a, T b) { return _mm_cmpgt_epi16(a, b); }
    static T SubsU8(T a, T b) { return _mm_subs_epu8(a, b); }
    static T AddsU8(T a, T b) { return _mm_adds_epu8(a, b); }
    static T MaxU8(T a, T b) { return _mm_max_epu8(a, b); }
    static T AvgU8(T a, T b) { return _mm_avg_epu8(a, b); }
    static T UnpackLo8(T a, T b) { return _mm_unpacklo_epi8(a, b); }
    static T UnpackHi8(T a, T b) { return _mm_unpackhi_epi8(a, b); }
    static T Add16(T a, T b) { return _mm_add_epi16(a, b); }
    static T Sub16(T a, T b) { return _mm_sub_epi16(a, b); }
    static T Mullo16(T a, T b) { return _mm_mullo_epi16(a, b); }
    static T Srai16(T a, int n) { return _mm_sra_epi16(a, _mm_cvtsi32_si128(n)); }
    static T Srl16(T a, int n) { return _mm_srl_epi16(a, _mm_cvtsi32_si128(n)); }
    static T PackUs16(T a, T b) { return _mm_packus_epi16(a, b); }
    static T Add32(T a, T b) { return _mm_add_epi32(a, b); }
    static T Sad(T a, T b) { return _mm_sad_epu8(a, b); }
    static T Slli64(T a, int n) { return _mm_sll_epi64(a, _mm_cvtsi32_si128(n)); }
};

} // namespace

constinit const SBeluiRowKernels g_BeluiRowsSse2 = belui_simd::MakeTable<SVec128>("sse2");
