// Sample loops of level analysis and mixing over signed 16-bit little-endian PCM, in a scalar
// reference and in wide-vector variants (SSE2, AVX2, AVX-512) chosen once at run time from the
// CPU's features. The library is built for the baseline x86-64, so it runs on any of them; every
// variant gives exactly the reference's results (the tests compare them on random data, odd
// lengths and the extremes), and no variant fuses a multiply and an add.
//
// Samples may start at any byte address (a packet's payload is not promised to be aligned), so
// the loops take byte pointers.
#pragma once

#include <cstddef>
#include <cstdint>

enum class EZorSimdPath { Scalar = 0, Sse2 = 1, Avx2 = 2, Avx512 = 3 };

struct SZorSampleStats {
    std::uint32_t m_Peak = 0;         // largest absolute value (32768 for -32768); 0 when empty
    std::uint64_t m_SumOfSquares = 0; // exact
};

struct SZorSampleKernels {
    EZorSimdPath m_Path;
    // Peak and sum of squares of n samples.
    SZorSampleStats (*m_Measure)(const unsigned char* samples, std::size_t n);
    // Replaces each sample by the integer part (toward zero) of sample x gain, wrapped to 16 bits
    // (no saturation). Needs |gain| < 65535, so that every product fits 32 bits.
    void (*m_Scale)(unsigned char* samples, std::size_t n, double gain);
    // Replaces each sample by the integer part (toward zero) of sample x factor + clip sample,
    // held to -32768..32767. Needs a finite factor.
    void (*m_Mix)(unsigned char* samples, const unsigned char* clip, std::size_t n, double factor);
};

// "scalar", "sse2", "avx2", "avx512".
const char* ZorSimdPathName(EZorSimdPath path);
// Whether this build and this CPU run the path (the scalar one always).
bool ZorSimdPathSupported(EZorSimdPath path);
// The loops of one path; the scalar ones when the path is not supported here.
const SZorSampleKernels& ZorSampleKernelsFor(EZorSimdPath path);
// The loops of the widest supported path, chosen on first use.
const SZorSampleKernels& ZorSampleKernels();

// Reference arithmetic of one sample, shared by the scalar loops and the wider loops' tails.
std::int16_t ZorScaleSample(std::int16_t sample, double gain);
std::int16_t ZorMixSample(std::int16_t sample, std::int16_t clip, double factor);
