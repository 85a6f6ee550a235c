// G.711 companding kernels: mu-law and A-law to and from 16-bit linear PCM.
//
// The rule is the classic reference conversion of ITU-T G.711: mu-law works on the 14-bit value
// (sample >> 2, magnitude clipped to 8159, biased by 33; expansion biased by 0x84), A-law on the
// 13-bit value (sample >> 3, negative values one's-complemented). Every conversion is a single
// table lookup; the tables are built at compile time from the formulas below, which stay
// available for tests and for code that converts one value off the hot path.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace zor::g711 {

enum class ELaw { MuLaw, ALaw };

// The reference formulas. Kept branch-light and constexpr so the tables below come from them.
constexpr std::uint8_t MuLawEncodeFormula(int sample) {
    int magnitude = sample >> 2; // 14-bit value; floor keeps -1..-3 on the negative side
    std::uint8_t mask = 0xFF;
    if (magnitude < 0) {
        magnitude = -magnitude;
        mask = 0x7F;
    }
    if (magnitude > 8159) { // ITU-T G.711 mu-law clip point in the 14-bit domain
        magnitude = 8159;
    }
    magnitude += 33; // the mu-law bias (0x84 >> 2)
    const int segment = static_cast<int>(std::bit_width(static_cast<unsigned>(magnitude))) - 6;
    if (segment >= 8) { // 8159 + 33 is the one value past the last segment: full scale
        return static_cast<std::uint8_t>(0x7F ^ mask);
    }
    const int code = (segment << 4) | ((magnitude >> (segment + 1)) & 0x0F);
    return static_cast<std::uint8_t>(code ^ mask);
}

constexpr std::int16_t MuLawDecodeFormula(std::uint8_t code) {
    const int inverted = ~code & 0xFF;
    const int t = (((inverted & 0x0F) << 3) + 0x84) << ((inverted & 0x70) >> 4);
    return static_cast<std::int16_t>((inverted & 0x80) ? 0x84 - t : t - 0x84);
}

constexpr std::uint8_t ALawEncodeFormula(int sample) {
    int magnitude = sample >> 3; // 13-bit value
    std::uint8_t mask = 0xD5;
    if (magnitude < 0) {
        magnitude = -magnitude - 1; // one's complement: -1 shares the first step with 0
        mask = 0x55;
    }
    if (magnitude > 4095) {
        magnitude = 4095;
    }
    int segment = static_cast<int>(std::bit_width(static_cast<unsigned>(magnitude))) - 5;
    if (segment < 0) {
        segment = 0;
    }
    const int shift = segment < 2 ? 1 : segment;
    const int code = (segment << 4) | ((magnitude >> shift) & 0x0F);
    return static_cast<std::uint8_t>(code ^ mask);
}

constexpr std::int16_t ALawDecodeFormula(std::uint8_t code) {
    const int a = code ^ 0x55;
    const int segment = (a & 0x70) >> 4;
    int t = (a & 0x0F) << 4;
    t = segment == 0 ? t + 8 : (t + 0x108) << (segment - 1);
    return static_cast<std::int16_t>((a & 0x80) ? t : -t);
}

namespace detail {
// Decoding: one entry per code. Encoding: mu-law by the 14-bit value, A-law by the 13-bit value
// (the bits below never change the code), indexed by the sample's top bits read unsigned (so 0
// and up come first, then the negative samples): the index is one zero-extending load and one
// shift, with no sign extension on the way.
extern const std::array<std::int16_t, 256> kMuLawToLinear;
extern const std::array<std::int16_t, 256> kALawToLinear;
extern const std::array<std::uint8_t, 16384> kLinearToMuLaw;
extern const std::array<std::uint8_t, 8192> kLinearToALaw;
} // namespace detail

inline short MuLawToLinear(unsigned char code) {
    return detail::kMuLawToLinear[code];
}
inline short ALawToLinear(unsigned char code) {
    return detail::kALawToLinear[code];
}
inline unsigned char LinearToMuLaw(short sample) {
    return detail::kLinearToMuLaw[static_cast<std::uint16_t>(sample) >> 2];
}
inline unsigned char LinearToALaw(short sample) {
    return detail::kLinearToALaw[static_cast<std::uint16_t>(sample) >> 3];
}

inline short ToLinear(ELaw law, unsigned char code) {
    return law == ELaw::MuLaw ? MuLawToLinear(code) : ALawToLinear(code);
}
inline unsigned char FromLinear(ELaw law, short sample) {
    return law == ELaw::MuLaw ? LinearToMuLaw(sample) : LinearToALaw(sample);
}

// Block conversions: one code per sample, count samples each way.
void Decode(ELaw law, const unsigned char* in, std::size_t count, short* out);
void Encode(ELaw law, const short* in, std::size_t count, unsigned char* out);

} // namespace zor::g711
