// IMA ADPCM block decoding (format tag 17), one block per call.
//
// A block is a 4-byte header followed by data bytes. The header holds the starting predictor
// (16-bit little-endian, bytes 0-1) and the step index (a signed byte, byte 2); byte 3 is
// ignored. The header's predictor is only a starting point and is not output. Each data byte
// gives two samples, low nibble first. Per nibble n:
//   step = step table[index]
//   difference = ((step * (n & 7)) >> 2) + (step >> 3), negated when bit 3 of n is set
//   predictor = predictor + difference, kept modulo 2^16 (it wraps; it is not saturated)
//   output the predictor; index = index + index table[n & 7], clamped to 0..88
// A header step index outside 0..88 is clamped before its first use, so a corrupt header can
// never index past the table. A block shorter than its header yields no samples.
#pragma once

#include <cstddef>

namespace zor::ima {

constexpr std::size_t kHeaderBytes = 4;
constexpr int kMaxStepIndex = 88;

// Samples that DecodeBlock writes for a block of this many bytes: 2 per data byte.
constexpr std::size_t DecodedSamples(std::size_t blockBytes) {
    return blockBytes > kHeaderBytes ? 2 * (blockBytes - kHeaderBytes) : 0;
}

// Decodes one block into DecodedSamples(bytes) samples and returns that count.
std::size_t DecodeBlock(const unsigned char* block, std::size_t bytes, short* out);

} // namespace zor::ima
