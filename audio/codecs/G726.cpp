#include "audio/codecs/G726.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#endif

// The per-sample steps must inline into the block loops so the state lives in registers.
// The six-tap loops must unroll too, or the history shift becomes a memmove call per sample.
#if defined(__GNUC__)
#define ZOR_G726_INLINE inline __attribute__((always_inline))
#define ZOR_G726_UNROLL _Pragma("GCC unroll 8")
#elif defined(_MSC_VER)
#define ZOR_G726_INLINE __forceinline
#define ZOR_G726_UNROLL
#else
#define ZOR_G726_INLINE inline
#define ZOR_G726_UNROLL
#endif

namespace zor::g726 {
namespace {

// Quantiser and adaptation tables by magnitude |I| (ITU-T G.726 quantizer tables for each rate,
// in the Recommendation's fixed-point units): decision levels and reconstruction levels are
// log2 values times 128, W(I) is scaled to the units of Y (times 512), F(I) to those of DMS
// (times 512).
struct RateTable {
    int levels;       // number of magnitudes
    int decision[15]; // DLN at which |I| steps up
    int dqln[16];     // reconstruction level; -2048 stands for minus infinity
    int w[16];        // scale factor multiplier W(I)
    int f[16];        // speed control F(I)
};

constexpr RateTable kRate16 = {2, {261}, {116, 365}, {-704, 14048}, {0, 0xE00}};
constexpr RateTable kRate24 = {
    4, {8, 218, 331}, {-2048, 135, 273, 373}, {-128, 960, 4384, 18624}, {0, 0x200, 0x400, 0xE00}};
constexpr RateTable kRate32 = {8,
                               {-124, 80, 178, 246, 300, 349, 400},
                               {-2048, 4, 135, 213, 273, 323, 373, 425},
                               {-384, 576, 1312, 2048, 3584, 6336, 11360, 35904},
                               {0, 0, 0, 0x200, 0x200, 0x200, 0x600, 0xE00}};
constexpr RateTable kRate40 = {
    16,
    {-122, -16, 68, 139, 198, 250, 298, 339, 378, 413, 445, 475, 502, 528, 553},
    {-2048, -66, 28, 104, 169, 224, 274, 318, 358, 395, 429, 459, 488, 514, 539, 566},
    {448, 448, 768, 1248, 1280, 1312, 1856, 3200, 4512, 5728, 7008, 8960, 11456, 14080, 16928,
     22272},
    {0, 0, 0, 0, 0, 0x200, 0x200, 0x200, 0x200, 0x200, 0x400, 0x600, 0x800, 0xA00, 0xC00, 0xC00}};

// Per-rate tables indexed by the full code, plus the quantiser as one lookup on DLN. DLN lies in
// [-1280, 1783] (DL is at most 1919, Y >> 2 between 136 and 1280); the table covers 12 bits.
template <int Bits> struct Rate {
    static constexpr int kCodes = 1 << Bits;
    static constexpr int kMask = kCodes - 1;
    static constexpr int kSign = kCodes >> 1;

    static constexpr const RateTable& Table() {
        if constexpr (Bits == 2) {
            return kRate16;
        } else if constexpr (Bits == 3) {
            return kRate24;
        } else if constexpr (Bits == 4) {
            return kRate32;
        } else {
            return kRate40;
        }
    }

    // Negative codes count down from all ones, so |I| of code I is I or kMask - I. The top bit
    // is the sign, also for the all-ones positive zero, which decodes as a negative zero.
    static constexpr int Negative(int code) { return (code >> (Bits - 1)) & 1; }
    static constexpr int Magnitude(int code) { return code ^ (kMask & -Negative(code)); }

    // The adaptation's per-magnitude values by code, so that neither coder splits a code into
    // sign and magnitude per sample.
    static constexpr std::array<int, kCodes> ByCode(const int (&byMagnitude)[16]) {
        std::array<int, kCodes> values{};
        for (int code = 0; code < kCodes; ++code) {
            values[code] = byMagnitude[Magnitude(code)];
        }
        return values;
    }
    static constexpr std::array<int, kCodes> kW = ByCode(Table().w);
    static constexpr std::array<int, kCodes> kF = ByCode(Table().f);

    // UPB's gain: the sign of DQ, none where DQ is zero (the zero magnitude without a level).
    static constexpr std::array<int, kCodes> MakeGain() {
        std::array<int, kCodes> gain{};
        for (int code = 0; code < kCodes; ++code) {
            const bool zero = Table().dqln[Magnitude(code)] == -2048;
            gain[code] = zero ? 0 : (Negative(code) ? -128 : 128);
        }
        return gain;
    }
    static constexpr std::array<int, kCodes> kGain = MakeGain();

    // Code for a non-negative difference by DLN + 2048. Where the zero magnitude reconstructs to
    // nothing (24, 32, 40 kbit/s) a positive zero is sent as all ones, the same code as a
    // negative zero; at 16 kbit/s both magnitudes are real levels and code 0 is used.
    static constexpr std::array<std::uint8_t, 4096> MakeQuantTable() {
        std::array<std::uint8_t, 4096> table{};
        for (int i = 0; i < 4096; ++i) {
            const int dln = i - 2048;
            int m = 0;
            while (m < Table().levels - 1 && dln >= Table().decision[m]) {
                ++m;
            }
            table[i] = static_cast<std::uint8_t>(m);
        }
        return table;
    }

    static constexpr std::array<std::uint8_t, 4096> kQuant = MakeQuantTable();
};

// Branch-free: zero magnitudes are common (coefficients after a reset) and unpredictable.
// 2v + 1 is one bit wider than v, zero included, so its top bit's index is v's width (one bit
// scan); values here are well below 2^31.
ZOR_G726_INLINE constexpr int BitWidth(int value) {
    return static_cast<int>(std::bit_width(2 * static_cast<unsigned>(value) + 1u)) - 1;
}

// FMULT: coefficient (already >> 2, 14-bit two's complement) times an 11-bit float history value,
// with the Recommendation's 6-bit mantissa product and rounding. A zero coefficient counts as
// mantissa 32, as the Recommendation has it; any other magnitude's mantissa has bit 5 set, so
// "| 32" covers both. The shift is done in 64 bits so both directions are one expression: left
// by WANEXP - 19 when positive, right otherwise.
ZOR_G726_INLINE int FMult(int an, int srn) {
    const int anSign = an >> 31;
    const int anmag = ((an ^ anSign) - anSign) & 0x1FFF; // coefficient signs flip at random
    const int anexp = BitWidth(anmag);
    const int anmant = ((anmag << 6) >> anexp) | 32;
    const int srexp = (srn >> 6) & 15;
    const int wanmant = (anmant * (srn & 63) + 48) >> 4;
    const int mag =
        static_cast<int>(((static_cast<std::uint64_t>(wanmant) << (anexp + srexp)) >> 19) & 0x7FFF);
    const int sign = anSign ^ -((srn >> 10) & 1);
    return (mag ^ sign) - sign;
}

// FLOATA / FLOATB: magnitude and sign to the 11-bit format.
ZOR_G726_INLINE constexpr int ToFloat(int mag, bool negative) {
    const int exp = BitWidth(mag);
    const int mant = ((mag << 6) >> exp) | 32; // zero is mantissa 32 with exponent 0
    return (negative ? 0x400 : 0) | (exp << 6) | mant;
}

ZOR_G726_INLINE int FloatOfSr(int sr) {
    return ToFloat(sr < 0 ? (-sr) & 0x7FFF : sr, sr < 0);
}

// The same value with its fields spread out for the vector kernel, which would otherwise take
// them apart in every multiply of the six samples a value stays in the history: mantissa in
// bits 0-5 (bits 6-15 clear, so a 16-bit multiply sees it alone), exponent in bits 23-26 (where
// it adds to a float's exponent), sign in bit 31 (an arithmetic shift makes the mask).
constexpr int kSpreadExpShift = 23;
constexpr int kSpreadExpMask = 15 << kSpreadExpShift;

ZOR_G726_INLINE constexpr int SpreadOfMagnitude(int mag) {
    const int exp = BitWidth(mag);
    return (exp << kSpreadExpShift) | ((mag << 6) >> exp) | 32;
}

ZOR_G726_INLINE constexpr int Spread(int packed) {
    return (packed & 63) | ((packed >> 6) & 15) << kSpreadExpShift |
           (-((packed >> 10) & 1) & INT32_MIN);
}

ZOR_G726_INLINE constexpr int Packed(int spread) {
    return (spread & 63) | ((spread & kSpreadExpMask) >> (kSpreadExpShift - 6)) |
           ((spread >> 31) & 0x400);
}

ZOR_G726_INLINE int Wrap16(int value) {
    return static_cast<std::int16_t>(static_cast<std::uint16_t>(value));
}

// LOG and SUBTB: the quantiser's table index for a difference signal.
ZOR_G726_INLINE int QuantIndex(int d, int y) {
    const int dqm = d < 0 ? -d : d;
    const int exp = BitWidth(dqm >> 1);
    const int dl = (exp << 7) + (((dqm << 7) >> exp) & 0x7F);
    return (dl - (y >> 2) + 2048) & 4095;
}

// QUAN: the code for a difference signal.
template <int Bits> ZOR_G726_INLINE int Quantize(int d, int y) {
    using R = Rate<Bits>;
    const int m = R::kQuant[QuantIndex(d, y)];
    // Branch-free from here on: the sign of D is a coin flip for the branch predictor.
    const int positive = (Bits != 2 && m == 0) ? R::kMask : m;
    const int negative = d >> 31;
    return (positive & ~negative) | ((R::kMask - m) & negative);
}

// ADDA and ANTILOG: the magnitude of a quantised difference from its log level.
ZOR_G726_INLINE constexpr int Antilog(int dqln, int y) {
    const int dql = dqln + (y >> 2);
    const int below = dql >> 31; // a negative log is a zero magnitude
    const int q = dql & ~below;
    const int dqt = 128 + (q & 127);
    return ((dqt << 7) >> (14 - (q >> 7))) & ~below;
}

// The encoder's quantiser without LOG: |D| against linear decision magnitudes, one row of them
// per Y >> 2, with the reconstructed magnitude and its float form beside them. LOG, the lookup
// and ANTILOG sat one after another on the encoder's longest dependency chain; the row needs
// only Y, which is ready long before D. LOG is monotonic, so "DL - Y/4 >= level" is
// "|D| > largest magnitude whose DL is below level + Y/4", and the codes stay identical.
constexpr int kMinYShort = 544 >> 2; // Y lies in LIMB's [544, 5120]
constexpr int kMaxYShort = 5120 >> 2;

constexpr int LogMagnitude(int dqm) {
    const int exp = std::bit_width(static_cast<unsigned>(dqm >> 1));
    return (exp << 7) + (((dqm << 7) >> exp) & 0x7F);
}

// The largest magnitude whose log is below a level, -1 when there is none, for every level a
// row can ask for. One walk up the magnitudes fills it (LOG never decreases), which keeps the
// rows' compile-time construction within every compiler's default evaluation budget.
constexpr int kLogLevels = 4096; // above every decision level plus Y >> 2
constexpr std::array<std::int16_t, kLogLevels> MakeLargestBelow() {
    std::array<std::int16_t, kLogLevels> table{};
    int dqm = -1; // the answer for the level in hand; it only grows with the level
    for (int level = 0; level < kLogLevels; ++level) {
        while (dqm < 32767 && LogMagnitude(dqm + 1) < level) {
            ++dqm;
        }
        table[level] = static_cast<std::int16_t>(dqm);
    }
    return table;
}
constexpr std::array<std::int16_t, kLogLevels> kLargestBelow = MakeLargestBelow();

constexpr int LargestBelow(int level) {
    if (level <= 0) {
        return -1; // LOG is never negative
    }
    return level < kLogLevels ? kLargestBelow[level] : 32767;
}

template <int Bits> struct QuantRows {
    static constexpr int kLevels = Rate<Bits>::Table().levels;
    static constexpr int kLanes = kLevels <= 8 ? 8 : 16;
    static constexpr int kCodes = Rate<Bits>::kCodes;
    static constexpr std::size_t kRowBytes = std::bit_ceil(kLanes * 2u + kCodes * 6u);

    // A power-of-two size, so that finding the row is a shift.
    struct alignas(kRowBytes) Row {
        std::int16_t below[kLanes];  // per decision level; unused lanes never compare above
        std::int16_t dq[kCodes];     // DQ by code, signed (a negative zero is 0)
        std::int32_t spread[kCodes]; // the same as a spread float (see Spread), sign included
    };
    static_assert(sizeof(Row) == kRowBytes);

    static constexpr std::array<Row, kMaxYShort - kMinYShort + 1> Make() {
        std::array<Row, kMaxYShort - kMinYShort + 1> rows{};
        const RateTable& table = Rate<Bits>::Table();
        int magnitudeOf[kCodes] = {};
        bool negative[kCodes] = {};
        for (int code = 0; code < kCodes; ++code) {
            magnitudeOf[code] = Rate<Bits>::Magnitude(code);
            negative[code] = Rate<Bits>::Negative(code) != 0;
        }
        for (int yShort = kMinYShort; yShort <= kMaxYShort; ++yShort) {
            Row& row = rows[yShort - kMinYShort];
            for (int k = 0; k < kLanes; ++k) {
                row.below[k] = static_cast<std::int16_t>(
                    k < kLevels - 1 ? LargestBelow(table.decision[k] + yShort) : 32767);
            }
            // Per magnitude first: the codes of one magnitude differ only in sign.
            int mags[16] = {};
            int spreads[16] = {};
            for (int m = 0; m < kLevels; ++m) {
                mags[m] = Antilog(table.dqln[m], yShort << 2);
                spreads[m] = SpreadOfMagnitude(mags[m]);
                if ((mags[m] == 0) != (table.dqln[m] == -2048)) {
                    throw "UPB's gain must vanish exactly where DQ does";
                }
            }
            for (int code = 0; code < kCodes; ++code) {
                const int m = magnitudeOf[code];
                row.dq[code] = static_cast<std::int16_t>(negative[code] ? -mags[m] : mags[m]);
                row.spread[code] = spreads[m] | (negative[code] ? INT32_MIN : 0);
            }
        }
        return rows;
    }

    static constexpr auto kRows = Make();

    // Y lies in LIMB's range: the Adapter holds YU and YL / 64 there, and Y lies between them.
    static ZOR_G726_INLINE const Row& For(int y) {
        return kRows[static_cast<unsigned>((y >> 2) - kMinYShort)];
    }

    // |I| for a magnitude of D: the number of decision magnitudes it exceeds.
    static ZOR_G726_INLINE int Magnitude(const Row& row, int dqm) {
#if defined(__SSE2__) || defined(_M_X64)
        if constexpr (kLevels > 4) {
            // The levels ascend, so the comparison mask is |I| ones from the bottom.
            const __m128i v = _mm_set1_epi16(static_cast<short>(dqm));
            const __m128i low =
                _mm_cmpgt_epi16(v, _mm_load_si128(reinterpret_cast<const __m128i*>(row.below)));
            __m128i high = _mm_setzero_si128();
            if constexpr (kLanes == 16) {
                high = _mm_cmpgt_epi16(
                    v, _mm_load_si128(reinterpret_cast<const __m128i*>(row.below + 8)));
            }
            const auto mask = static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(low, high)));
            return std::countr_zero((mask + 1) | (1u << 16)); // the bit above tells it is never 0
        }
#endif
        int m = 0;
        for (int k = 0; k < kLevels - 1; ++k) {
            m += dqm > row.below[k] ? 1 : 0;
        }
        return m;
    }
};

// ITU-T G.726 constants of the adaptation (TONE, LIMB, TRIGA).
constexpr int kToneA2 = -11776;    // A2 below this is a tone
constexpr int kMinYu = 544;        // LIMB
constexpr int kMaxYu = 5120;       // LIMB
constexpr int kTransitionAp = 256; // TRIGA: AP after a transition

// Everything of the update except the six zero-section taps and the history delay lines, which
// the two kernels keep in different forms: reconstruction (ADDB, ADDC), TRANS, the scale factor
// (FILTD, LIMB, FILTE), the pole coefficients (UPA2, LIMC, UPA1, LIMD, TRIGB), TONE and the speed
// control (FILTA, FILTB, SUBTC, FILTC, TRIGA). Plain scalars, so that a block loop keeps them in
// registers instead of in a State record.
struct Adapter {
    int yl;
    int yu;
    int dms;
    int dml;
    int ap;
    int a1;
    int a2;
    int pk1; // sign of DQ + SEZ as a mask (-1 negative), last sample's
    int pk2; // and the one before
    // TD is not kept: it is "A2 below the tone threshold" after every update and clear after a
    // reset, where A2 is 0, so A2 tells it.

    // A State the coder produced is unchanged by the limits here. They hold any other inside
    // the range the coder keeps (LIMB bounds YU; YL follows YU * 64; AP is never negative), so
    // that Y, which lies between YU and YL / 64, always has a quantiser row.
    explicit Adapter(const State& s)
        : yl(std::clamp(s.yl, kMinYu << 6, kMaxYu << 6)), yu(std::clamp(s.yu, kMinYu, kMaxYu)),
          dms(s.dms), dml(s.dml), ap(std::max(s.ap, 0)), a1(s.a[0]), a2(s.a[1]),
          pk1(-(s.pk[0] & 1)), pk2(-(s.pk[1] & 1)) {}

    void Store(State& s) const {
        s.yl = yl;
        s.yu = yu;
        s.dms = dms;
        s.dml = dml;
        s.ap = ap;
        s.a[0] = a1;
        s.a[1] = a2;
        s.pk[0] = pk1 & 1;
        s.pk[1] = pk2 & 1;
        s.td = Tone() ? 1 : 0;
    }

    // LIMA and MIX: the quantiser scale factor for this sample.
    ZOR_G726_INLINE int ScaleFactor() const {
        const int al = ap >= 256 ? 64 : ap >> 2;
        const int ylShort = yl >> 6;
        const int dif = yu - ylShort;
        // The product's magnitude is truncated, not its value: negative ones round up.
        const int prod = (dif * al + ((dif >> 31) & 63)) >> 6;
        return ylShort + prod;
    }

    // TRANS's threshold on |DQ|, from the slow scale factor.
    int TransitionThreshold() const {
        const int ylint = yl >> 15;
        const int ylfrac = (yl >> 10) & 31;
        const int thr = ylint > 9 ? 31 << 10 : (32 + ylfrac) << ylint;
        return (thr + (thr >> 1)) >> 1;
    }

    // TONE: the last update's A2 marks a tone.
    ZOR_G726_INLINE bool Tone() const { return a2 < kToneA2; }

    // TRANS, before the update: whether this sample ends a tone, restarting the predictor.
    // Only a detected tone can end, and tones are rare: the threshold waits behind a branch that
    // speech predicts well.
    ZOR_G726_INLINE bool Transition(int dqmag) const {
        if (Tone()) [[unlikely]] {
            return dqmag > TransitionThreshold();
        }
        return false;
    }

    // TRIGB and TRIGA, after the update of a sample that was a transition.
    void Restart() {
        a1 = 0;
        a2 = 0;
        ap = kTransitionAp;
    }

    // dq is the quantised difference, signed. Returns SR, 16 bits.
    template <int Bits> ZOR_G726_INLINE int Update(int code, int dq, int se, int sez, int y) {
        const int sr = Wrap16(se + dq);
        const int dqsez = Wrap16(sez + dq);
        const int pk0 = dqsez >> 31;

        int yuNext = y + ((Rate<Bits>::kW[code] - y) >> 5);
        yuNext = yuNext < kMinYu ? kMinYu : (yuNext > kMaxYu ? kMaxYu : yuNext);
        yu = yuNext;
        yl += yuNext + ((-yl) >> 6);

        // UPA2, LIMC, UPA1 and LIMD without branches: the signs of successive DQ + SEZ agree or
        // not at random.
        // Masks, -1 where the signs differ; (x ^ m) - m is then x or -x.
        const int differ1 = pk0 ^ pk1;
        const int differ2 = pk0 ^ pk2;
        pk2 = pk1;
        pk1 = pk0;
        const int live = dqsez == 0 ? 0 : -1; // no gradient terms when DQ + SEZ is zero
        // F(A1) limits |A1| to 8191 (then -8191 >> 5 = -256 and 8191 >> 5 = 255). The limits are
        // symmetric, so A1 is limited before its sign is known, off the path from DQ.
        const int a1Limited = std::min(std::max(a1, -8191), 8191);
        const int fa1 = differ1 - (a1Limited ^ differ1); // +A1 when signs differ, else -A1
        const int uga2 = (fa1 >> 5) + ((128 ^ differ2) - differ2);
        int a2p = a2 - (a2 >> 7) + (uga2 & live);
        a2p = a2p < -12288 ? -12288 : (a2p > 12288 ? 12288 : a2p);
        int a1p = a1 - (a1 >> 8) + (((192 ^ differ1) - differ1) & live);
        const int a1ul = 15360 - a2p;
        a1 = a1p < -a1ul ? -a1ul : (a1p > a1ul ? a1ul : a1p);
        a2 = a2p;

        const int f = Rate<Bits>::kF[code];
        dms += (f - dms) >> 5;
        dml += ((f << 2) - dml) >> 7;
        const int diff = (dms << 2) - dml;
        const bool fast = (y < 1536) | Tone() | ((diff < 0 ? -diff : diff) >= (dml >> 3));
        ap += ((fast ? 512 : 0) - ap) >> 4;
        return sr;
    }
};

// The reference kernel: the Recommendation's blocks one by one on the state record. Used for
// single samples, and for blocks where no vector kernel exists.
struct ScalarKernel {
    State& s;

    int ScaleFactor() const { return Adapter(s).ScaleFactor(); }

    ZOR_G726_INLINE void Predict(int& se, int& sez) const {
        int sezi = 0;
        ZOR_G726_UNROLL
        for (int i = 0; i < 6; ++i) {
            sezi += FMult(s.b[i] >> 2, s.dq[i]);
        }
        const int sei = sezi + FMult(s.a[1] >> 2, s.sr[1]) + FMult(s.a[0] >> 2, s.sr[0]);
        se = Wrap16(sei) >> 1; // ACCUM adds in 16 bits
        sez = Wrap16(sezi) >> 1;
    }

    template <int Bits>
    ZOR_G726_INLINE int Update(int code, int se, int sez, int y, int dq, int dqSpread) {
        Adapter adapter(s);
        const bool tr = adapter.Transition(dq < 0 ? -dq : dq);
        const int sr = adapter.Update<Bits>(code, dq, se, sez, y);
        if (tr) {
            adapter.Restart();
        }
        adapter.Store(s);
        // UPB (the leak is smaller at 40 kbit/s; coefficients wrap at 16 bits) and TRIGB.
        constexpr int leak = Bits == 5 ? 9 : 8;
        const int gain = Rate<Bits>::kGain[code];
        ZOR_G726_UNROLL
        for (int i = 0; i < 6; ++i) {
            const bool negativeHistory = ((s.dq[i] >> 10) & 1) != 0;
            const int bn = Wrap16(s.b[i] - (s.b[i] >> leak) + (negativeHistory ? -gain : gain));
            s.b[i] = tr ? 0 : bn;
        }
        // FLOATA, FLOATB and the delay lines. SR of -32768 reads as a negative zero.
        ZOR_G726_UNROLL
        for (int i = 5; i > 0; --i) {
            s.dq[i] = s.dq[i - 1];
        }
        s.dq[0] = Packed(dqSpread);
        s.sr[1] = s.sr[0];
        s.sr[0] = FloatOfSr(sr);
        return sr;
    }
};

#if defined(__SSE2__) || defined(_M_X64)
// The vector kernel keeps the eight predictor taps in two registers of four 32-bit lanes,
// coefficients [b1 b2 b3 b4 | a1 a2 b5 b6] against history [dq1 dq2 dq3 dq4 | sr1 sr2 dq5 dq6],
// and runs FMULT on all of them at once. SSE2 has no per-lane bit scan or variable shift, so
// both go through exact float conversions: an integer below 2^24 converts exactly, its float
// exponent is the bit width and its top fraction bits are the mantissa; a power-of-two scaling
// is an integer add to the exponent field, and truncation back to an integer is the right shift.
// The scalar state lives in an Adapter of locals; the State is read once and written once.
struct VectorKernel {
    State& out;
    Adapter ad;
    __m128i coef[2];
    __m128i hist[2];

    explicit VectorKernel(State& state) : out(state), ad(state) {
        const State& s = state;
        coef[0] = _mm_setr_epi32(s.b[0], s.b[1], s.b[2], s.b[3]);
        coef[1] = _mm_setr_epi32(s.a[0], s.a[1], s.b[4], s.b[5]);
        hist[0] =
            _mm_setr_epi32(Spread(s.dq[0]), Spread(s.dq[1]), Spread(s.dq[2]), Spread(s.dq[3]));
        hist[1] =
            _mm_setr_epi32(Spread(s.sr[0]), Spread(s.sr[1]), Spread(s.dq[4]), Spread(s.dq[5]));
    }

    void Store() {
        alignas(16) int c[8];
        alignas(16) int h[8];
        _mm_store_si128(reinterpret_cast<__m128i*>(c), coef[0]);
        _mm_store_si128(reinterpret_cast<__m128i*>(c + 4), coef[1]);
        _mm_store_si128(reinterpret_cast<__m128i*>(h), hist[0]);
        _mm_store_si128(reinterpret_cast<__m128i*>(h + 4), hist[1]);
        State& s = out;
        ad.Store(s);
        for (int i = 0; i < 4; ++i) {
            s.b[i] = c[i];
            s.dq[i] = Packed(h[i]);
        }
        s.b[4] = c[6];
        s.b[5] = c[7];
        s.dq[4] = Packed(h[6]);
        s.dq[5] = Packed(h[7]);
        s.sr[0] = Packed(h[4]);
        s.sr[1] = Packed(h[5]);
    }

    int ScaleFactor() const { return ad.ScaleFactor(); }

    // UPB's gain by code in every lane, so that the coefficient update needs no broadcast.
    template <int Bits> struct GainLanes { alignas(16) std::int32_t lanes[Rate<Bits>::kCodes][4]; };
    template <int Bits> static constexpr GainLanes<Bits> MakeGainLanes() {
        GainLanes<Bits> table{};
        for (int code = 0; code < Rate<Bits>::kCodes; ++code) {
            for (int lane = 0; lane < 4; ++lane) {
                table.lanes[code][lane] = Rate<Bits>::kGain[code];
            }
        }
        return table;
    }
    template <int Bits> static constexpr GainLanes<Bits> kGainLanes = MakeGainLanes<Bits>();

    // FLOATB to the spread form, in lane 0. SR converts to float exactly, and the float already
    // has the sign in bit 31 and the exponent in bits 23-30 above the mantissa's fraction bits.
    // Taking 126 off the exponent with unsigned saturation on the upper 16 bits turns it into
    // the bit width, and leaves SR = 0 at 0 (mantissa 32, exponent 0). SR = -32768, a negative
    // zero, has width 16: the 4-bit field drops it to 0, with fraction 0 (mantissa 32).
    static ZOR_G726_INLINE __m128i SpreadOfSr(int sr) {
        const __m128i f = _mm_castps_si128(_mm_cvtsi32_ss(_mm_setzero_ps(), sr));
        const __m128i t = _mm_subs_epu16(f, _mm_set1_epi32(126 << 23));
        const __m128i mant = _mm_and_si128(_mm_srli_epi32(t, 23 - 5), _mm_set1_epi32(31));
        const __m128i signExp = _mm_and_si128(t, _mm_set1_epi32(INT32_MIN | kSpreadExpMask));
        return _mm_or_si128(_mm_or_si128(signExp, mant), _mm_setr_epi32(32, 0, 0, 0));
    }

    // The sign of each history lane as a mask.
    static ZOR_G726_INLINE __m128i HistorySign(__m128i history) {
        return _mm_srai_epi32(history, 31);
    }

    static ZOR_G726_INLINE __m128i FMult4(__m128i coefficient, __m128i history) {
        const __m128i an = _mm_srai_epi32(coefficient, 2);
        const __m128i anSign = _mm_srai_epi32(an, 31);
        const __m128i anmag =
            _mm_and_si128(_mm_sub_epi32(_mm_xor_si128(an, anSign), anSign), _mm_set1_epi32(0x1FFF));
        // Float bits >> 18: biased exponent above 5 fraction bits. A zero gives 0, which is
        // mantissa 32 and, after the saturating subtract, exponent 0, as FMULT wants.
        const __m128i x = _mm_srli_epi32(_mm_castps_si128(_mm_cvtepi32_ps(anmag)), 18);
        const __m128i anmant =
            _mm_or_si128(_mm_and_si128(x, _mm_set1_epi32(31)), _mm_set1_epi32(32));
        const __m128i anexp = _mm_subs_epu16(_mm_srli_epi32(x, 5), _mm_set1_epi32(126));
        // Mantissas are below 64, so a 16-bit multiply per lane is exact; the upper half of
        // each product is zero, as anmant's upper half is.
        const __m128i wanmant =
            _mm_srli_epi32(_mm_add_epi32(_mm_mullo_epi16(anmant, history), _mm_set1_epi32(48)), 4);
        const __m128i shift =
            _mm_add_epi32(_mm_sub_epi32(_mm_slli_epi32(anexp, 23), _mm_set1_epi32(19 << 23)),
                          _mm_and_si128(history, _mm_set1_epi32(kSpreadExpMask)));
        const __m128 scaled =
            _mm_castsi128_ps(_mm_add_epi32(_mm_castps_si128(_mm_cvtepi32_ps(wanmant)), shift));
        const __m128i mag = _mm_and_si128(_mm_cvttps_epi32(scaled), _mm_set1_epi32(0x7FFF));
        const __m128i sign = _mm_xor_si128(anSign, HistorySign(history));
        return _mm_sub_epi32(_mm_xor_si128(mag, sign), sign);
    }

    ZOR_G726_INLINE void Predict(int& se, int& sez) const {
        const __m128i zeros = FMult4(coef[0], hist[0]);
        const __m128i mixed = FMult4(coef[1], hist[1]); // poles in lanes 0-1, zeros in 2-3
        __m128i sum = _mm_add_epi32(zeros, _mm_unpackhi_epi64(mixed, _mm_setzero_si128()));
        sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, _MM_SHUFFLE(1, 0, 3, 2)));
        sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, _MM_SHUFFLE(2, 3, 0, 1)));
        const __m128i poles =
            _mm_add_epi32(mixed, _mm_shuffle_epi32(mixed, _MM_SHUFFLE(2, 3, 0, 1)));
        const int sezi = _mm_cvtsi128_si32(sum);
        const int sei = sezi + _mm_cvtsi128_si32(poles);
        se = Wrap16(sei) >> 1;
        sez = Wrap16(sezi) >> 1;
    }

    // TRANS needs the tone flag from before the update, and only a tone can end: outside tones
    // the update runs without carrying a transition flag across it.
    template <int Bits>
    ZOR_G726_INLINE int Update(int code, int se, int sez, int y, int dq, int dqSpread) {
        if (ad.Tone()) [[unlikely]] {
            const bool tr = ad.Transition(dq < 0 ? -dq : dq);
            const int sr = Adapt<Bits>(code, se, sez, y, dq, dqSpread);
            if (tr) {
                ad.Restart();
                coef[0] = _mm_setzero_si128();
                coef[1] = _mm_setzero_si128();
            }
            return sr;
        }
        return Adapt<Bits>(code, se, sez, y, dq, dqSpread);
    }

    template <int Bits>
    ZOR_G726_INLINE int Adapt(int code, int se, int sez, int y, int dq, int dqSpread) {
        const int sr = ad.Update<Bits>(code, dq, se, sez, y);

        // UPB on the zero-section lanes: the gain takes the sign of DQ, flipped per lane where
        // the history value is negative. The pole lanes are replaced below.
        constexpr int leak = Bits == 5 ? 9 : 8;
        const __m128i g =
            _mm_load_si128(reinterpret_cast<const __m128i*>(kGainLanes<Bits>.lanes[code]));
        for (int r = 0; r < 2; ++r) {
            const __m128i differ = HistorySign(hist[r]);
            const __m128i delta = _mm_sub_epi32(_mm_xor_si128(g, differ), differ);
            const __m128i bn =
                _mm_add_epi32(_mm_sub_epi32(coef[r], _mm_srai_epi32(coef[r], leak)), delta);
            coef[r] = _mm_srai_epi32(_mm_slli_epi32(bn, 16), 16);
        }
        const __m128i poles =
            _mm_unpacklo_epi32(_mm_cvtsi32_si128(ad.a1), _mm_cvtsi32_si128(ad.a2));
        coef[1] = _mm_castps_si128(_mm_shuffle_ps(
            _mm_castsi128_ps(poles), _mm_castsi128_ps(coef[1]), _MM_SHUFFLE(3, 2, 1, 0)));

        // Delay lines: dq moves one lane up, from lane 3 of the first register to lane 2 of
        // the second; sr moves within lanes 0-1.
        const __m128i crossing = _mm_unpackhi_epi32(hist[0], hist[1]); // [dq3 dq5 dq4 dq6]
        hist[0] = _mm_or_si128(_mm_slli_si128(hist[0], 4), _mm_cvtsi32_si128(dqSpread));
        const __m128i srs = _mm_or_si128(_mm_slli_si128(hist[1], 4), SpreadOfSr(sr));
        hist[1] = _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(srs), _mm_castsi128_ps(crossing),
                                                  _MM_SHUFFLE(1, 2, 1, 0)));
        return sr;
    }
};

using BlockKernel = VectorKernel;
#else
struct BlockKernel : ScalarKernel {
    explicit BlockKernel(State& state) : ScalarKernel{state} {}
    void Store() {}
};
#endif

template <int Bits, typename Kernel> ZOR_G726_INLINE int Encode(Kernel& k, int sample) {
    int se = 0;
    int sez = 0;
    k.Predict(se, sez);
    const int y = k.ScaleFactor();
    using Q = QuantRows<Bits>;
    const auto& row = Q::For(y);
    const int d = (sample >> 2) - se;
    const int dqm = d < 0 ? -d : d;
    const int m = Q::Magnitude(row, dqm);
    // QUAN's code choice without branches (the sign of D is a coin flip): negative codes count
    // down from all ones, and so does the positive zero where it has no level of its own. The
    // first decision level alone tells the zero, before the count is ready.
    const int zero = Bits != 2 ? -static_cast<int>(dqm <= row.below[0]) : 0;
    const int flip = (d >> 31) | zero;
    const int code = m ^ (Rate<Bits>::kMask & flip);
    k.template Update<Bits>(code, se, sez, y, row.dq[code], row.spread[code]);
    return code;
}

ZOR_G726_INLINE short ToLinear(int sr) {
    const int v = sr * 4;
    return static_cast<short>(v > 32767 ? 32767 : (v < -32768 ? -32768 : v));
}

template <int Bits, typename Kernel>
ZOR_G726_INLINE short Decode(Kernel& k, int code, SampleTrace* trace) {
    int se = 0;
    int sez = 0;
    k.Predict(se, sez);
    const int y = k.ScaleFactor();
    // The encoder's rows hold DQ for each |I| and Y, in both forms: no ANTILOG or FLOATA here.
    const auto& row = QuantRows<Bits>::For(y);
    const int sr = k.template Update<Bits>(code, se, sez, y, row.dq[code], row.spread[code]);
    if (trace) {
        *trace = {se, y, sr};
    }
    return ToLinear(sr);
}

// Codes of one group packed into its bytes, least significant bit first.
template <int Bits, typename Code>
ZOR_G726_INLINE void PackGroup(const Code* codes, unsigned char* out) {
    std::uint64_t acc = 0;
    for (int k = 0; k < GroupSamples(Bits); ++k) {
        acc |= static_cast<std::uint64_t>(codes[k] & Rate<Bits>::kMask) << (k * Bits);
    }
    for (int j = 0; j < GroupBytes(Bits); ++j) {
        out[j] = static_cast<unsigned char>(acc >> (8 * j));
    }
}

template <int Bits> ZOR_G726_INLINE void UnpackGroup(const unsigned char* in, int* codes) {
    std::uint64_t acc = 0;
    for (int j = 0; j < GroupBytes(Bits); ++j) {
        acc |= static_cast<std::uint64_t>(in[j]) << (8 * j);
    }
    for (int k = 0; k < GroupSamples(Bits); ++k) {
        codes[k] = static_cast<int>(acc >> (k * Bits)) & Rate<Bits>::kMask;
    }
}

template <int Bits>
std::size_t PackCodesT(const unsigned char* codes, std::size_t count, unsigned char* out) {
    constexpr std::size_t G = GroupSamples(Bits);
    std::size_t i = 0;
    for (; i + G <= count; i += G, out += GroupBytes(Bits)) {
        PackGroup<Bits>(codes + i, out);
    }
    if (i < count) { // the last group, padded with zero codes
        unsigned char group[G] = {};
        std::copy(codes + i, codes + count, group);
        PackGroup<Bits>(group, out);
    }
    return EncodedBytes(Bits, count);
}

template <int Bits>
std::size_t UnpackCodesT(const unsigned char* in, std::size_t bytes, unsigned char* codes) {
    constexpr int G = GroupSamples(Bits);
    const std::size_t groups = bytes / GroupBytes(Bits);
    int group[G];
    for (std::size_t g = 0; g < groups; ++g, in += GroupBytes(Bits)) {
        UnpackGroup<Bits>(in, group);
        for (int k = 0; k < G; ++k) {
            *codes++ = static_cast<unsigned char>(group[k]);
        }
    }
    return groups * G;
}

// Blocks go through a small code buffer: the per-sample step stays one tight loop (unrolling it
// per group only spills registers), and packing runs apart from the arithmetic.
constexpr std::size_t kChunkSamples = 240; // a multiple of every group size

template <int Bits>
std::size_t EncodeBlockT(State& state, const short* in, std::size_t count, unsigned char* out) {
    constexpr std::size_t G = GroupSamples(Bits);
    BlockKernel kernel(state); // works on its own copy; Store() writes it back
    unsigned char codes[kChunkSamples];
    const std::size_t padded = (count + G - 1) / G * G;
    for (std::size_t done = 0; done < padded; done += kChunkSamples) {
        const std::size_t n = padded - done < kChunkSamples ? padded - done : kChunkSamples;
        const std::size_t real = count - done < n ? count - done : n;
        for (std::size_t i = 0; i < real; ++i) {
            codes[i] = static_cast<unsigned char>(Encode<Bits>(kernel, in[done + i]));
        }
        for (std::size_t i = real; i < n; ++i) { // zero padding of the last group
            codes[i] = static_cast<unsigned char>(Encode<Bits>(kernel, 0));
        }
        out += PackCodesT<Bits>(codes, n, out);
    }
    kernel.Store();
    return EncodedBytes(Bits, count);
}

template <int Bits>
std::size_t DecodeBlockT(State& state, const unsigned char* in, std::size_t bytes, short* out) {
    constexpr std::size_t chunkBytes = kChunkSamples / GroupSamples(Bits) * GroupBytes(Bits);
    BlockKernel kernel(state);
    unsigned char codes[kChunkSamples];
    const std::size_t total = DecodedSamples(Bits, bytes);
    for (std::size_t done = 0; done < total; done += kChunkSamples) {
        const std::size_t left = bytes - done / GroupSamples(Bits) * GroupBytes(Bits);
        const std::size_t n = UnpackCodesT<Bits>(in, left < chunkBytes ? left : chunkBytes, codes);
        in += chunkBytes;
        for (std::size_t i = 0; i < n; ++i) {
            out[done + i] = Decode<Bits>(kernel, codes[i], nullptr);
        }
    }
    kernel.Store();
    return total;
}

// Next G.711 code one step towards minus (down) or plus infinity, with the zero codes skipped
// and the ends held. Mu-law codes are inverted sign-magnitude; A-law codes are sign-magnitude
// with the even bits inverted (hence the 0x55 toggling).
unsigned char StepMuLaw(unsigned char sp, bool down) {
    if (down) {
        if (sp & 0x80) {
            return sp == 0xFF ? 0x7E : static_cast<unsigned char>(sp + 1);
        }
        return sp == 0x00 ? 0x00 : static_cast<unsigned char>(sp - 1);
    }
    if (sp & 0x80) {
        return sp == 0x80 ? 0x80 : static_cast<unsigned char>(sp - 1);
    }
    return sp == 0x7F ? 0xFE : static_cast<unsigned char>(sp + 1);
}

unsigned char StepALaw(unsigned char sp, bool down) {
    const int plain = sp ^ 0x55;
    if (down) {
        if (sp & 0x80) {
            return sp == 0xD5 ? 0x55 : static_cast<unsigned char>((plain - 1) ^ 0x55);
        }
        return sp == 0x2A ? 0x2A : static_cast<unsigned char>((plain + 1) ^ 0x55);
    }
    if (sp & 0x80) {
        return sp == 0xAA ? 0xAA : static_cast<unsigned char>((plain + 1) ^ 0x55);
    }
    return sp == 0x55 ? 0xD5 : static_cast<unsigned char>((plain - 1) ^ 0x55);
}

template <int Bits> unsigned char SyncAdjustT(g711::ELaw law, const SampleTrace& t, int code) {
    // COMPRESS reads SR as sign and magnitude, so -32768 is a negative zero.
    unsigned char sp = 0;
    if (t.sr == -32768) {
        sp = law == g711::ELaw::MuLaw ? 0x7F : 0x55;
    } else {
        sp = g711::FromLinear(law, ToLinear(t.sr));
    }
    // EXPAND, SUBTA, LOG, SUBTB, QUAN on the compressed value, then SYNC.
    const int id = Quantize<Bits>((g711::ToLinear(law, sp) >> 2) - t.se, t.y);
    constexpr int sign = Rate<Bits>::kSign;
    if (id == code) {
        return sp;
    }
    const bool down = (id ^ sign) > (code ^ sign); // re-encoding lands higher: go lower
    return law == g711::ELaw::MuLaw ? StepMuLaw(sp, down) : StepALaw(sp, down);
}

// Calls f.template operator()<Bits>() for a run-time bit count, or returns fallback.
template <typename F, typename R> R DispatchBits(int bits, R fallback, F&& f) {
    switch (bits) {
    case 2:
        return f.template operator()<2>();
    case 3:
        return f.template operator()<3>();
    case 4:
        return f.template operator()<4>();
    case 5:
        return f.template operator()<5>();
    default:
        return fallback;
    }
}

} // namespace

std::size_t EncodedBytes(int bits, std::size_t samples) {
    if (!IsValidBits(bits)) {
        return 0;
    }
    const std::size_t groups = (samples + GroupSamples(bits) - 1) / GroupSamples(bits);
    return groups * GroupBytes(bits);
}

std::size_t DecodedSamples(int bits, std::size_t bytes) {
    return IsValidBits(bits) ? bytes / GroupBytes(bits) * GroupSamples(bits) : 0;
}

std::size_t MaxSamplesFor(int bits, std::size_t byteCapacity) {
    return DecodedSamples(bits, byteCapacity);
}

int EncodeSample(State& state, int bits, short sample) {
    return DispatchBits(bits, 0, [&]<int B>() {
        ScalarKernel kernel{state};
        return Encode<B>(kernel, sample);
    });
}

short DecodeSample(State& state, int bits, int code, SampleTrace* trace) {
    return DispatchBits(bits, short{0}, [&]<int B>() {
        ScalarKernel kernel{state};
        return Decode<B>(kernel, code & Rate<B>::kMask, trace);
    });
}

std::size_t EncodeBlock(State& state, int bits, const short* in, std::size_t count,
                        unsigned char* out) {
    return DispatchBits(bits, std::size_t{0},
                        [&]<int B>() { return EncodeBlockT<B>(state, in, count, out); });
}

std::size_t DecodeBlock(State& state, int bits, const unsigned char* in, std::size_t bytes,
                        short* out) {
    return DispatchBits(bits, std::size_t{0},
                        [&]<int B>() { return DecodeBlockT<B>(state, in, bytes, out); });
}

std::size_t PackCodes(int bits, const unsigned char* codes, std::size_t count, unsigned char* out) {
    return DispatchBits(bits, std::size_t{0},
                        [&]<int B>() { return PackCodesT<B>(codes, count, out); });
}

std::size_t UnpackCodes(int bits, const unsigned char* in, std::size_t bytes,
                        unsigned char* codes) {
    return DispatchBits(bits, std::size_t{0},
                        [&]<int B>() { return UnpackCodesT<B>(in, bytes, codes); });
}

unsigned char SyncAdjust(g711::ELaw law, int bits, const SampleTrace& trace, int code) {
    return DispatchBits(bits, static_cast<unsigned char>(0),
                        [&]<int B>() { return SyncAdjustT<B>(law, trace, code & Rate<B>::kMask); });
}

} // namespace zor::g726
