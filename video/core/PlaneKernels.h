// Row kernels on 8-bit planes that the decoder and the frame writer share. Each has a plain
// reference version beside the vector one; they give identical output.
#pragma once

#include <cstdint>

// Interleaves count samples of u and v into count (u, v) pairs at out (an NV12 chroma row).
void ZorInterleaveChromaRow(const std::uint8_t* u, const std::uint8_t* v, std::uint8_t* out,
                            int count);
void ZorInterleaveChromaRowReference(const std::uint8_t* u, const std::uint8_t* v,
                                     std::uint8_t* out, int count);
