#include "audio/codecs/ImaAdpcm.h"

#include <array>
#include <cstdint>

namespace zor::ima {
namespace {

// IMA ADPCM step table (89 entries, 7 to 32767) and index adjustment table.
constexpr std::array<int, 89> kStep = {
    7,     8,     9,     10,    11,    12,    13,    14,    16,    17,    19,   21,    23,
    25,    28,    31,    34,    37,    41,    45,    50,    55,    60,    66,   73,    80,
    88,    97,    107,   118,   130,   143,   157,   173,   190,   209,   230,  253,   279,
    307,   337,   371,   408,   449,   494,   544,   598,   658,   724,   796,  876,   963,
    1060,  1166,  1282,  1411,  1552,  1707,  1878,  2066,  2272,  2499,  2749, 3024,  3327,
    3660,  4026,  4428,  4871,  5358,  5894,  6484,  7132,  7845,  8630,  9493, 10442, 11487,
    12635, 13899, 15289, 16818, 18500, 20350, 22385, 24623, 27086, 29794, 32767};
constexpr std::array<int, 8> kIndexStep = {-1, -1, -1, -1, 2, 4, 6, 8};

// Everything a nibble does, per (index, nibble): the signed difference and the next index.
// One lookup per sample keeps the loop to an add and a wrap.
struct Transition {
    std::int32_t difference;
    std::int32_t next;
};
constexpr std::array<Transition, 89 * 16> MakeTransitions() {
    std::array<Transition, 89 * 16> table{};
    for (int index = 0; index <= kMaxStepIndex; ++index) {
        const int step = kStep[index];
        for (int nibble = 0; nibble < 16; ++nibble) {
            const int magnitude = ((step * (nibble & 7)) >> 2) + (step >> 3);
            int next = index + kIndexStep[nibble & 7];
            next = next < 0 ? 0 : (next > kMaxStepIndex ? kMaxStepIndex : next);
            table[index * 16 + nibble] = {(nibble & 8) ? -magnitude : magnitude, next * 16};
        }
    }
    return table;
}
constexpr std::array<Transition, 89 * 16> kTransition = MakeTransitions();

} // namespace

std::size_t DecodeBlock(const unsigned char* block, std::size_t bytes, short* out) {
    if (bytes <= kHeaderBytes) {
        return 0;
    }
    std::uint16_t predictor = static_cast<std::uint16_t>(block[0] | (block[1] << 8));
    // The step index is stored as a signed byte.
    int index = block[2] < 128 ? block[2] : block[2] - 256;
    index = index < 0 ? 0 : (index > kMaxStepIndex ? kMaxStepIndex : index);
    int row = index * 16; // kept premultiplied: the table's next index is too

    const unsigned char* data = block + kHeaderBytes;
    const std::size_t dataBytes = bytes - kHeaderBytes;
    for (std::size_t i = 0; i < dataBytes; ++i) {
        const Transition low = kTransition[row + (data[i] & 0x0F)];
        predictor = static_cast<std::uint16_t>(predictor + low.difference);
        out[2 * i] = static_cast<short>(predictor);
        const Transition high = kTransition[low.next + (data[i] >> 4)];
        predictor = static_cast<std::uint16_t>(predictor + high.difference);
        out[2 * i + 1] = static_cast<short>(predictor);
        row = high.next;
    }
    return 2 * dataBytes;
}

} // namespace zor::ima
