// The row kernels written once over a vector type: BeluiRowsSse2.cpp and BeluiRowsAvx2.cpp
// instantiate them with 16- and 32-byte vectors, each file compiled for its instruction set.
// Every kernel does whole vectors and hands the rest of the row to the scalar reference, so a
// wide table gives the reference's bytes by construction of the arithmetic below (same integer
// formulas, same rounding).
//
// V supplies the vector type T, kBytes and thin wrappers of the integer intrinsics; all
// operations used exist in SSE2 with the same per-128-bit-lane meaning in AVX2.
#pragma once

#include "analytics/image/BeluiRows.h"

namespace belui_simd {

using u8 = std::uint8_t;

template <class V> inline typename V::T AbsDiff(typename V::T a, typename V::T b) {
    return V::Or(V::SubsU8(a, b), V::SubsU8(b, a));
}
// 0xFF where x <= y (unsigned bytes).
template <class V> inline typename V::T LessEqualU8(typename V::T x, typename V::T y) {
    return V::CmpEq8(V::SubsU8(x, y), V::Zero());
}
// m ? a : b, m holding 0x00 or 0xFF per byte.
template <class V> inline typename V::T Pick(typename V::T m, typename V::T a, typename V::T b) {
    return V::Or(V::And(m, a), V::AndNot(m, b));
}
// d + (((s - d) * weight + 128) >> 8) per byte, in 16-bit lanes; the result stays between d
// and s, so the final pack never saturates.
template <class V>
inline typename V::T BlendBytes(typename V::T d, typename V::T s, typename V::T weight16,
                                typename V::T round16) {
    const typename V::T z = V::Zero();
    const typename V::T dl = V::UnpackLo8(d, z);
    const typename V::T dh = V::UnpackHi8(d, z);
    const typename V::T tl =
        V::Srai16(V::Add16(V::Mullo16(V::Sub16(V::UnpackLo8(s, z), dl), weight16), round16), 8);
    const typename V::T th =
        V::Srai16(V::Add16(V::Mullo16(V::Sub16(V::UnpackHi8(s, z), dh), weight16), round16), 8);
    return V::PackUs16(V::Add16(dl, tl), V::Add16(dh, th));
}

template <class V> void AbsDiff(u8* dst, const u8* a, const u8* b, int n) {
    int i = 0;
    for (; i + V::kBytes <= n; i += V::kBytes) {
        V::Store(dst + i, AbsDiff<V>(V::Load(a + i), V::Load(b + i)));
    }
    g_BeluiRowsScalar.AbsDiff(dst + i, a + i, b + i, n - i);
}

template <class V>
void AddGroupsOf4Above(std::uint32_t* sums, const u8* src, int groups, int floor) {
    // A sum of absolute differences against zero adds 8 bytes a 64-bit lane: masking alternate
    // halves gives the even and the odd groups of four, interleaved back into 32-bit lanes.
    const typename V::T lowHalves = V::Set64(0x00000000FFFFFFFFLL);
    const typename V::T z = V::Zero();
    const typename V::T f = V::Set8(floor);
    constexpr int kGroups = V::kBytes / 4;
    int g = 0;
    for (; g + kGroups <= groups; g += kGroups) {
        const typename V::T raw = V::Load(src + 4 * g);
        const typename V::T s = V::AndNot(LessEqualU8<V>(raw, f), raw);
        const typename V::T even = V::Sad(V::And(s, lowHalves), z);
        const typename V::T odd = V::Sad(V::AndNot(lowHalves, s), z);
        const typename V::T both = V::Or(even, V::Slli64(odd, 32));
        V::Store(sums + g, V::Add32(V::Load(sums + g), both));
    }
    g_BeluiRowsScalar.AddGroupsOf4Above(sums + g, src + 4 * g, groups - g, floor);
}

template <class V> void KeepWhere(u8* dst, const u8* allow, int n) {
    const typename V::T one = V::Set8(1);
    int i = 0;
    for (; i + V::kBytes <= n; i += V::kBytes) {
        V::Store(dst + i, V::And(V::Load(allow + i), V::MaxU8(V::Load(dst + i), one)));
    }
    g_BeluiRowsScalar.KeepWhere(dst + i, allow + i, n - i);
}

template <class V>
void MaskDouble(u8* dst, const u8* a, const u8* b, const u8* c, const u8* mask, int n, int t) {
    const typename V::T z = V::Zero();
    const typename V::T tv = V::Set8(t);
    const typename V::T one = V::Set8(1);
    int i = 0;
    for (; i + V::kBytes <= n; i += V::kBytes) {
        const typename V::T va = V::Load(a + i);
        const typename V::T vb = V::Load(b + i);
        const typename V::T vc = V::Load(c + i);
        const typename V::T unmasked = V::CmpEq8(V::Load(mask + i), z);
        const typename V::T close =
            V::AndNot(V::CmpEq8(vb, z), LessEqualU8<V>(AbsDiff<V>(vb, vc), tv));
        const typename V::T masked = Pick<V>(close, V::AvgU8(vb, vc), V::MaxU8(vc, one));
        V::Store(dst + i, Pick<V>(unmasked, va, masked));
    }
    g_BeluiRowsScalar.MaskDouble(dst + i, a + i, b + i, c + i, mask + i, n - i, t);
}

template <class V> void MaskAndIncIfNotZero(u8* dst, const u8* mask, int n, int value) {
    const typename V::T z = V::Zero();
    const typename V::T one = V::Set8(1);
    const typename V::T v = V::Set8(value);
    int i = 0;
    for (; i + V::kBytes <= n; i += V::kBytes) {
        const typename V::T unmasked = V::CmpEq8(V::Load(mask + i), z);
        V::Store(dst + i, Pick<V>(unmasked, v, V::AddsU8(V::Load(dst + i), one)));
    }
    g_BeluiRowsScalar.MaskAndIncIfNotZero(dst + i, mask + i, n - i, value);
}

template <class V>
void SubtractAndMaskBlendAndMakeMask(const u8* a, u8* b, const u8* mask, int n, int weight, int t,
                                     int value) {
    const typename V::T z = V::Zero();
    const typename V::T tv = V::Set8(t);
    const typename V::T v = V::Set8(value);
    const typename V::T w16 = V::Set16(weight);
    const typename V::T r16 = V::Set16(128);
    int i = 0;
    for (; i + V::kBytes <= n; i += V::kBytes) {
        const typename V::T va = V::Load(a + i);
        const typename V::T vb = V::Load(b + i);
        const typename V::T idle = V::Or(V::CmpEq8(va, z), V::CmpEq8(vb, z));
        const typename V::T small = LessEqualU8<V>(AbsDiff<V>(va, vb), tv);
        const typename V::T counted = V::AndNot(V::CmpEq8(V::Load(mask + i), z), small);
        typename V::T out = Pick<V>(small, vb, v);
        out = Pick<V>(counted, BlendBytes<V>(va, vb, w16, r16), out);
        V::Store(b + i, Pick<V>(idle, vb, out));
    }
    g_BeluiRowsScalar.SubtractAndMaskBlendAndMakeMask(a + i, b + i, mask + i, n - i, weight, t,
                                                      value);
}

template <class V> void Mask(u8* dst, const u8* src, const u8* mask, int n, int level) {
    const typename V::T lv = V::Set8(level);
    int i = 0;
    for (; i + V::kBytes <= n; i += V::kBytes) {
        const typename V::T take = LessEqualU8<V>(V::Load(mask + i), lv);
        V::Store(dst + i, Pick<V>(take, V::Load(src + i), V::Load(dst + i)));
    }
    g_BeluiRowsScalar.Mask(dst + i, src + i, mask + i, n - i, level);
}

template <class V> void Select(u8* dst, const u8* src, const u8* allow, int n) {
    int i = 0;
    for (; i + V::kBytes <= n; i += V::kBytes) {
        V::Store(dst + i, Pick<V>(V::Load(allow + i), V::Load(src + i), V::Load(dst + i)));
    }
    g_BeluiRowsScalar.Select(dst + i, src + i, allow + i, n - i);
}

template <class V> void Blend(u8* dst, const u8* src, const u8* allow, int n, int weight) {
    const typename V::T w16 = V::Set16(weight);
    const typename V::T r16 = V::Set16(128);
    int i = 0;
    for (; i + V::kBytes <= n; i += V::kBytes) {
        const typename V::T d = V::Load(dst + i);
        V::Store(dst + i,
                 Pick<V>(V::Load(allow + i), BlendBytes<V>(d, V::Load(src + i), w16, r16), d));
    }
    g_BeluiRowsScalar.Blend(dst + i, src + i, allow + i, n - i, weight);
}

template <class V> void SubtractFrom(u8* dst, const u8* a, const u8* b, int n, int gain) {
    const typename V::T z = V::Zero();
    const typename V::T g16 = V::Set16(gain);
    int i = 0;
    for (; i + V::kBytes <= n; i += V::kBytes) {
        const typename V::T d = AbsDiff<V>(V::Load(a + i), V::Load(b + i));
        V::Store(dst + i, V::PackUs16(V::Mullo16(V::UnpackLo8(d, z), g16),
                                      V::Mullo16(V::UnpackHi8(d, z), g16)));
    }
    g_BeluiRowsScalar.SubtractFrom(dst + i, a + i, b + i, n - i, gain);
}

template <class V>
void MaskThreshold(u8* dst, const u8* src, const u8* mask, int n, int relShift, int dimShift) {
    // Bytes are shifted in 16-bit lanes, then the bits that crossed from the neighbour byte are
    // cleared.
    const typename V::T relKeep = V::Set8(0xFF >> relShift);
    const typename V::T dimKeep = V::Set8(0xFF >> dimShift);
    int i = 0;
    for (; i + V::kBytes <= n; i += V::kBytes) {
        const typename V::T s = V::Load(src + i);
        const typename V::T limit = V::And(V::Srl16(s, relShift), relKeep);
        const typename V::T take = LessEqualU8<V>(V::Load(mask + i), limit);
        V::Store(dst + i, Pick<V>(take, V::And(V::Srl16(s, dimShift), dimKeep), V::Load(dst + i)));
    }
    g_BeluiRowsScalar.MaskThreshold(dst + i, src + i, mask + i, n - i, relShift, dimShift);
}

template <class V>
void MovePairs(u8* dst0, u8* dst1, const u8* r0, const u8* r1, int pairs, int threshold,
               int value) {
    // The larger of the two rows, then of each pair of columns (in the low byte of a 16-bit
    // lane); comparing whole 16-bit lanes gives each pair's answer two bytes wide.
    const typename V::T lowBytes = V::Set16(0x00FF);
    const typename V::T limit = V::Set16(threshold - 1);
    const typename V::T v = V::Set8(value);
    const typename V::T full = V::Set8(255);
    constexpr int kPairs = V::kBytes / 2;
    int p = 0;
    for (; p + kPairs <= pairs; p += kPairs) {
        const typename V::T rows = V::MaxU8(V::Load(r0 + 2 * p), V::Load(r1 + 2 * p));
        const typename V::T top = V::And(V::MaxU8(rows, V::Srl16(rows, 8)), lowBytes);
        const typename V::T out = Pick<V>(V::CmpGt16(top, limit), v, full);
        V::Store(dst0 + 2 * p, out);
        V::Store(dst1 + 2 * p, out);
    }
    g_BeluiRowsScalar.MovePairs(dst0 + 2 * p, dst1 + 2 * p, r0 + 2 * p, r1 + 2 * p, pairs - p,
                                threshold, value);
}

template <class V> constexpr SBeluiRowKernels MakeTable(const char* name) {
    return SBeluiRowKernels{
        name,
        AbsDiff<V>,
        AddGroupsOf4Above<V>,
        KeepWhere<V>,
        MaskDouble<V>,
        MaskAndIncIfNotZero<V>,
        SubtractAndMaskBlendAndMakeMask<V>,
        Mask<V>,
        Select<V>,
        Blend<V>,
        SubtractFrom<V>,
        MaskThreshold<V>,
        MovePairs<V>,
    };
}

} // namespace belui_simd
