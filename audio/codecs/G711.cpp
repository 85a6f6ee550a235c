#include "audio/codecs/G711.h"

namespace zor::g711 {
namespace {

constexpr std::array<std::int16_t, 256> MakeDecodeTable(ELaw law) {
    std::array<std::int16_t, 256> table{};
    for (int code = 0; code < 256; ++code) {
        const auto c = static_cast<std::uint8_t>(code);
        table[code] = law == ELaw::MuLaw ? MuLawDecodeFormula(c) : ALawDecodeFormula(c);
    }
    return table;
}

template <std::size_t N> constexpr std::array<std::uint8_t, N> MakeEncodeTable(ELaw law) {
    // Entry i stands for every sample whose top bits equal i - N / 2.
    const int shift = law == ELaw::MuLaw ? 2 : 3;
    std::array<std::uint8_t, N> table{};
    for (std::size_t i = 0; i < N; ++i) {
        const int sample = (static_cast<int>(i) - static_cast<int>(N / 2)) * (1 << shift);
        table[i] = law == ELaw::MuLaw ? MuLawEncodeFormula(sample) : ALawEncodeFormula(sample);
    }
    return table;
}

} // namespace

namespace detail {
extern const std::array<std::int16_t, 256> kMuLawToLinear = MakeDecodeTable(ELaw::MuLaw);
extern const std::array<std::int16_t, 256> kALawToLinear = MakeDecodeTable(ELaw::ALaw);
extern const std::array<std::uint8_t, 16384> kLinearToMuLaw = MakeEncodeTable<16384>(ELaw::MuLaw);
extern const std::array<std::uint8_t, 8192> kLinearToALaw = MakeEncodeTable<8192>(ELaw::ALaw);
} // namespace detail

void Decode(ELaw law, const unsigned char* in, std::size_t count, short* out) {
    const std::int16_t* table =
        (law == ELaw::MuLaw ? detail::kMuLawToLinear : detail::kALawToLinear).data();
    // Four independent lookups a round: the codes are read before any sample is stored, so the
    // stores (which may alias the byte input as far as the compiler knows) never force a reload.
    std::size_t i = 0;
    for (; i + 4 <= count; i += 4) {
        const unsigned c0 = in[i], c1 = in[i + 1], c2 = in[i + 2], c3 = in[i + 3];
        out[i] = table[c0];
        out[i + 1] = table[c1];
        out[i + 2] = table[c2];
        out[i + 3] = table[c3];
    }
    for (; i < count; ++i) {
        out[i] = table[in[i]];
    }
}

namespace {

// One lookup a sample in a table of 2^(16 - Shift) codes: the sample's top bits, taken in int
// (a 16-bit shift and add would be partial-register work), index the table from its middle, so
// the offset costs nothing. Four lookups a round, all read before any code is stored: the
// stores may alias the input as far as the compiler knows and would otherwise force a reload
// each. This runs at the speed of a plain lookup in a table of all 65,536 samples (loads and
// stores are the limit) with a table a quarter of its size; wider rounds, and one 64-bit load
// with one 32-bit store a round, measured slower.
template <int Shift>
void EncodeWithTable(const std::uint8_t* table, const short* in, std::size_t count,
                     unsigned char* out) {
    const std::uint8_t* middle = table + (32768 >> Shift);
    std::size_t i = 0;
    for (; i + 4 <= count; i += 4) {
        const int s0 = in[i] >> Shift, s1 = in[i + 1] >> Shift;
        const int s2 = in[i + 2] >> Shift, s3 = in[i + 3] >> Shift;
        const std::uint8_t c0 = middle[s0], c1 = middle[s1], c2 = middle[s2], c3 = middle[s3];
        out[i] = c0;
        out[i + 1] = c1;
        out[i + 2] = c2;
        out[i + 3] = c3;
    }
    for (; i < count; ++i) {
        out[i] = middle[in[i] >> Shift];
    }
}

} // namespace

void Encode(ELaw law, const short* in, std::size_t count, unsigned char* out) {
    if (law == ELaw::MuLaw) {
        EncodeWithTable<2>(detail::kLinearToMuLaw.data(), in, count, out);
    } else {
        EncodeWithTable<3>(detail::kLinearToALaw.data(), in, count, out);
    }
}

} // namespace zor::g711
