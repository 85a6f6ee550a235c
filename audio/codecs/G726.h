// ITU-T G.726 ADPCM at 16, 24, 32 and 40 kbit/s on 16-bit linear PCM, bit-exact with the
// Recommendation's fixed-point arithmetic.
//
// Linear input is taken as the 14-bit signal the Recommendation works on (sample >> 2); linear
// output is the reconstructed signal times 4, saturated to 16 bits. Codes are 2, 3, 4 or 5 bits
// ("bits" below). Packed streams are one continuous bit stream, least significant bit first: at
// 32 kbit/s the low nibble of a byte is the earlier code; at 16 kbit/s a byte holds codes 0..3
// in bits 0-1, 2-3, 4-5, 6-7; 3-bit and 5-bit codes run across byte boundaries, so 8 codes make
// a group of 3 or 5 bytes. The state is carried across calls; nothing resets it but Reset().
//
// Partial groups (a byte count or sample count that is not a whole group):
// - Decoding consumes whole groups only; trailing bytes of a partial group are ignored and no
//   byte past the end is read. Callers fill the samples they expected but did not get.
// - Encoding pads the partial group with zero samples, encoded through the state like real ones,
//   so that no input sample is lost and a decoder that decodes the padding stays in step.
#pragma once

#include <cstddef>

#include "audio/codecs/G711.h"

namespace zor::g726 {

constexpr int kMinBits = 2;
constexpr int kMaxBits = 5;
constexpr bool IsValidBits(int bits) {
    return bits >= kMinBits && bits <= kMaxBits;
}

// Samples and bytes of one packing group: the shortest run of codes that ends on a byte boundary.
constexpr int GroupSamples(int bits) {
    return (bits & 1) ? 8 : 8 / bits;
}
constexpr int GroupBytes(int bits) {
    return (bits & 1) ? bits : 1;
}

// Bytes that EncodeBlock writes for a sample count (the last group padded); 0 for invalid bits.
std::size_t EncodedBytes(int bits, std::size_t samples);
// Samples that DecodeBlock writes for a byte count (whole groups only); 0 for invalid bits.
std::size_t DecodedSamples(int bits, std::size_t bytes);
// The largest whole-group sample count whose encoding fits in a byte capacity, so that a caller
// with a bounded output buffer can split its input.
std::size_t MaxSamplesFor(int bits, std::size_t byteCapacity);

// The ITU-T G.726 state variables, at the Recommendation's reset values when constructed.
// Floating-point history values use the Recommendation's 11-bit format: sign in bit 10, 4-bit
// exponent in bits 6-9, 6-bit mantissa in bits 0-5 (32 means "1.0" with exponent 0, also zero).
struct State {
    int yl = 34816; // slow quantiser scale factor, 19 bits
    int yu = 544;   // fast quantiser scale factor, 13 bits
    int dms = 0;    // short-term average of F(I)
    int dml = 0;    // long-term average of F(I)
    int ap = 0;     // speed control parameter
    int a[2] = {0, 0};
    int b[6] = {0, 0, 0, 0, 0, 0};
    int dq[6] = {32, 32, 32, 32, 32, 32};
    int sr[2] = {32, 32};
    int pk[2] = {0, 0};
    int td = 0; // tone detected

    void Reset() { *this = State(); }
    friend bool operator==(const State&, const State&) = default;
};

// What the synchronous coding adjustment needs of one decoded sample: the decoder's signal
// estimate and quantiser scale factor before the sample, and the 16-bit reconstructed signal
// (where -32768 is the Recommendation's negative zero, not a value).
struct SampleTrace {
    int se = 0;
    int y = 0;
    int sr = 0;
};

// One sample each way. Codes are taken modulo 2^bits; invalid bits give 0.
int EncodeSample(State& state, int bits, short sample);
short DecodeSample(State& state, int bits, int code, SampleTrace* trace = nullptr);

// Packed blocks. EncodeBlock writes EncodedBytes(bits, count) bytes and returns that count;
// DecodeBlock writes DecodedSamples(bits, bytes) samples and returns that count.
std::size_t EncodeBlock(State& state, int bits, const short* in, std::size_t count,
                        unsigned char* out);
std::size_t DecodeBlock(State& state, int bits, const unsigned char* in, std::size_t bytes,
                        short* out);

// Packing alone, one code per byte (low bits used), same order and partial-group rules.
std::size_t PackCodes(int bits, const unsigned char* codes, std::size_t count, unsigned char* out);
std::size_t UnpackCodes(int bits, const unsigned char* in, std::size_t bytes, unsigned char* codes);

// The Recommendation's synchronous coding adjustment for a decoder with G.711 output: compresses
// the reconstructed signal, then moves the code one step up or down when re-encoding it in the
// decoder's state would not give back the received code. Makes tandem ADPCM-PCM-ADPCM lossless.
unsigned char SyncAdjust(g711::ELaw law, int bits, const SampleTrace& trace, int code);

} // namespace zor::g726
