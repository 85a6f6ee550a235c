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

void Encode(ELaw law, const short* in, std::size_t count, unsigned char* out) {
    if (law == ELaw::MuLaw) {
        for (std::size_t i = 0; i < count; ++i) {
            out[i] = LinearToMuLaw(in[i]);
        }
    } else {
        for (std::size_t i = 0; i < count; ++i) {
            out[i] = LinearToALaw(in[i]);
        }
    }
}

} // namespace zor::g711
