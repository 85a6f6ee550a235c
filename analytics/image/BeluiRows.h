// Row kernels of the bitmap primitives: one table of plain functions per instruction set, the
// scalar one being the reference every wider one must match byte for byte. The primitives
// (BeluiBitmapOps.h) walk rows and call the table chosen once, on first use, from the CPU's
// features; tests and benchmarks may pick a table by level.
//
// Every kernel works element by element on n samples, so a destination may be the same row as
// any of its sources (the chain works in place).
#pragma once

#include <cstdint>

struct SBeluiRowKernels {
    const char* m_Name;

    // dst = |a - b|.
    void (*AbsDiff)(std::uint8_t* dst, const std::uint8_t* a, const std::uint8_t* b, int n);
    // sums[g] += the samples among src[4g .. 4g+3] that exceed floor, for g < groups.
    void (*AddGroupsOf4Above)(std::uint32_t* sums, const std::uint8_t* src, int groups, int floor);
    // dst = allow != 0 ? max(dst, 1) : 0 (allow holds 0 or 255).
    void (*KeepWhere)(std::uint8_t* dst, const std::uint8_t* allow, int n);
    // mask == 0: dst = a; b != 0 and |b - c| <= t: dst = (b + c + 1) / 2; else dst = max(c, 1).
    void (*MaskDouble)(std::uint8_t* dst, const std::uint8_t* a, const std::uint8_t* b,
                       const std::uint8_t* c, const std::uint8_t* mask, int n, int t);
    // dst = mask != 0 ? min(dst + 1, 255) : value.
    void (*MaskAndIncIfNotZero)(std::uint8_t* dst, const std::uint8_t* mask, int n, int value);
    // Where a and b are both non-zero: |a - b| > t: b = value; else where mask != 0:
    // b = a + (((b - a) * weight + 128) >> 8).
    void (*SubtractAndMaskBlendAndMakeMask)(const std::uint8_t* a, std::uint8_t* b,
                                            const std::uint8_t* mask, int n, int weight, int t,
                                            int value);
    // dst = src where mask <= level.
    void (*Mask)(std::uint8_t* dst, const std::uint8_t* src, const std::uint8_t* mask, int n,
                 int level);
    // dst = src where allow != 0 (allow holds 0 or 255).
    void (*Select)(std::uint8_t* dst, const std::uint8_t* src, const std::uint8_t* allow, int n);
    // dst = dst + (((src - dst) * weight + 128) >> 8) where allow != 0 (allow holds 0 or 255).
    void (*Blend)(std::uint8_t* dst, const std::uint8_t* src, const std::uint8_t* allow, int n,
                  int weight);
    // dst = min(255, |b - a| * gain), gain in [0, 128].
    void (*SubtractFrom)(std::uint8_t* dst, const std::uint8_t* a, const std::uint8_t* b, int n,
                         int gain);
    // dst = src >> dimShift where mask <= src >> relShift.
    void (*MaskThreshold)(std::uint8_t* dst, const std::uint8_t* src, const std::uint8_t* mask,
                          int n, int relShift, int dimShift);
    // For pairs of columns of two rows (2 x 2 blocks): all four dst samples = value when the
    // largest of r0[2i], r0[2i+1], r1[2i], r1[2i+1] reaches threshold, else 255.
    void (*MovePairs)(std::uint8_t* dst0, std::uint8_t* dst1, const std::uint8_t* r0,
                      const std::uint8_t* r1, int pairs, int threshold, int value);
};

enum class EBeluiLevel { Scalar = 0, Sse2 = 1, Avx2 = 2 };

// The table the primitives use: the widest level this CPU runs (chosen once).
const SBeluiRowKernels& BeluiRowKernels();
// The table of one level, or nullptr when this build or CPU lacks it.
const SBeluiRowKernels* BeluiRowKernelsFor(EBeluiLevel level);
// Forces the table the primitives use (tests compare whole chains across levels); answers false
// and changes nothing when the level is not available.
bool BeluiUseLevel(EBeluiLevel level);

// Per-level tables, defined in their own files (each compiled for its instruction set).
extern const SBeluiRowKernels g_BeluiRowsScalar;
#if defined(__x86_64__) || defined(__i386__)
extern const SBeluiRowKernels g_BeluiRowsSse2;
extern const SBeluiRowKernels g_BeluiRowsAvx2;
#endif
