#include "analytics/tracking/FrameSector.h"

#include <cfloat>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

int ReadInt(const unsigned char* p) {
    std::int32_t v = 0;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// |a - b| of two 32-bit values without overflow; as the accumulators take it.
long long IntDifference(const unsigned char* a, const unsigned char* b) {
    return std::llabs(static_cast<long long>(ReadInt(a)) - ReadInt(b));
}

} // namespace

CZorFrameSector::CZorFrameSector(float shortChangeThreshold, int minGroupLength,
                                 float lowerCutThreshold, float higherCutThreshold,
                                 float pixelThreshold, int* valueTable)
    : m_ShortChangeThreshold(shortChangeThreshold), m_MinGroupLength(minGroupLength),
      m_LowerCutThreshold(lowerCutThreshold), m_HigherCutThreshold(higherCutThreshold),
      m_PixelThreshold(pixelThreshold), m_pValueTable(valueTable) {
    // The first 15 entries start as "no history yet".
    for (int i = 0; i < 15; ++i) {
        m_LongChange[i] = -1;
    }
}

int CZorFrameSector::GetLongChangeAtIndex(int index) const {
    return index >= 0 && index < kHistorySize ? m_LongChange[index] : -1;
}

void CZorFrameSector::ShiftLongChangeValueFrom(int from, int to) {
    if (from >= 0 && from < kHistorySize && to >= 0 && to < kHistorySize) {
        m_LongChange[to] = m_LongChange[from];
    }
}

void CZorFrameSector::CalcDiffIncrPixelCount(const unsigned char* a, const unsigned char* b,
                                             int kind, int isShort) {
    float& acc = Accumulator(isShort);
    switch (kind) {
    case 1:
        if (m_pValueTable && static_cast<float>(std::abs(m_pValueTable[*a] - m_pValueTable[*b])) >
                                 m_PixelThreshold) {
            acc += 1.0f;
        }
        break;
    case 2:
        if (IntDifference(a, b) > static_cast<int>(m_PixelThreshold)) {
            acc += 1.0f;
        }
        break;
    case 3:
        // Channels in order; the first that does not exceed the threshold ends the test.
        for (int i = 0; i < 3; ++i) {
            if (!(static_cast<float>(std::abs(a[i] - b[i])) > m_PixelThreshold)) {
                return;
            }
        }
        acc += 1.0f;
        break;
    default:
        break;
    }
}

void CZorFrameSector::CalcDiffAccumulatePixelDiff(const unsigned char* a, const unsigned char* b,
                                                  int kind, int isShort) {
    float& acc = Accumulator(isShort);
    switch (kind) {
    case 1:
        if (m_pValueTable) {
            acc += static_cast<float>(std::abs(m_pValueTable[*a] - m_pValueTable[*b]));
        }
        break;
    case 2:
        acc += static_cast<float>(IntDifference(a, b));
        break;
    case 3:
        for (int i = 0; i < 3; ++i) {
            acc += static_cast<float>(std::abs(a[i] - b[i]));
        }
        break;
    default:
        break;
    }
}

bool CZorFrameSector::AddExactly(float& acc, long long total) {
    // Every add of a feed is a whole, non-negative number: while the accumulator holds a whole
    // number and the sum stays below 2^24, each add is exact, so one add of the total gives the
    // float the adds one by one would.
    constexpr float kExact = 16777216.0f;
    const bool whole =
        acc > -kExact && acc < kExact && static_cast<float>(static_cast<long>(acc)) == acc;
    if (!whole || total < 0 || static_cast<double>(acc) + static_cast<double>(total) >= kExact) {
        return false;
    }
    acc += static_cast<float>(total);
    return true;
}

void CZorFrameSector::CalcDiffIncrPixelCountRow(const unsigned char* a, const unsigned char* b,
                                                int count, int stride, int kind, int isShort) {
    long long changed = 0;
    const unsigned char* pa = a;
    const unsigned char* pb = b;
    if (kind == 1 && m_pValueTable) {
        const int* table = m_pValueTable;
        const float threshold = m_PixelThreshold;
        for (int i = 0; i < count; ++i, pa += stride, pb += stride) {
            changed += static_cast<float>(std::abs(table[*pa] - table[*pb])) > threshold;
        }
    } else if (kind == 3) {
        const float threshold = m_PixelThreshold;
        for (int i = 0; i < count; ++i, pa += stride, pb += stride) {
            changed += static_cast<float>(std::abs(pa[0] - pb[0])) > threshold &&
                       static_cast<float>(std::abs(pa[1] - pb[1])) > threshold &&
                       static_cast<float>(std::abs(pa[2] - pb[2])) > threshold;
        }
    } else {
        changed = -1; // the per-pixel path below
    }
    if (AddExactly(Accumulator(isShort), changed)) {
        return;
    }
    for (int i = 0; i < count; ++i, a += stride, b += stride) {
        CalcDiffIncrPixelCount(a, b, kind, isShort);
    }
}

void CZorFrameSector::CalcDiffAccumulatePixelDiffRow(const unsigned char* a, const unsigned char* b,
                                                     int count, int stride, int kind, int isShort) {
    long long total = 0;
    const unsigned char* pa = a;
    const unsigned char* pb = b;
    if (kind == 1 && m_pValueTable) {
        const int* table = m_pValueTable;
        for (int i = 0; i < count; ++i, pa += stride, pb += stride) {
            total += std::llabs(static_cast<long long>(table[*pa]) - table[*pb]);
        }
    } else if (kind == 3) {
        for (int i = 0; i < count; ++i, pa += stride, pb += stride) {
            total += std::abs(pa[0] - pb[0]) + std::abs(pa[1] - pb[1]) + std::abs(pa[2] - pb[2]);
        }
    } else {
        total = -1;
    }
    if (AddExactly(Accumulator(isShort), total)) {
        return;
    }
    for (int i = 0; i < count; ++i, a += stride, b += stride) {
        CalcDiffAccumulatePixelDiff(a, b, kind, isShort);
    }
}

void CZorFrameSector::CalcDiffIncrPixelCount(int a, int b, int isShort) {
    float& acc = Accumulator(isShort);
    const float scaled = acc * 100.0f;
    const float share = static_cast<float>(a) / static_cast<float>(b);
    acc = scaled / share;
}

void CZorFrameSector::CalcDiffAccPixelDiff(int a, int b, int isShort, int channels) {
    if (b == 0) {
        return;
    }
    const float scaled = m_SDiff * 100.0f;
    const int units = (a / b) * channels * 255;
    Accumulator(isShort) = scaled / static_cast<float>(units);
}

void CZorFrameSector::UpdateLongAverage() {
    const float f = m_LDiff - m_LAverageDiff;
    // A long change (its result is not used by the classification) or a large drop: the average
    // jumps to the value.
    if ((f >= m_ShortChangeThreshold && m_GroupLength >= m_MinGroupLength) ||
        m_LAverageDiff - m_LDiff > m_ShortChangeThreshold) {
        m_LAverageDiff = m_LDiff;
    } else if (m_LAverageDiff < FLT_EPSILON && m_LDiff < FLT_EPSILON) {
        m_LAverageDiff = 0.0f;
    } else {
        const float w = m_GroupLength < 2 ? 1.0f : 2.0f;
        m_LAverageDiff = (w * m_LAverageDiff + m_LDiff) / (w + 1.0f);
    }
}

int CZorFrameSector::UpdateShortAverage() {
    const float f = m_SDiff - m_SAverageDiff;
    if (f >= m_ShortChangeThreshold && m_GroupLength >= m_MinGroupLength) {
        m_GroupLength = 1;
        m_SAverageDiff = m_SDiff;
        m_ShortChangeMagnitude = static_cast<int>(f / m_ShortChangeThreshold);
        if (m_ShortChangeMagnitude + 1 > 5) {
            m_ShortChangeMagnitude = 4;
        }
        return 1;
    }
    if (m_SAverageDiff - m_SDiff > m_ShortChangeThreshold) {
        m_SAverageDiff = m_SDiff;
        ++m_GroupLength;
        return 0;
    }
    if (m_SAverageDiff < FLT_EPSILON && m_SDiff < FLT_EPSILON) {
        m_SAverageDiff = 0.0f;
        return 0;
    }
    const float w = m_GroupLength < 2 ? 1.0f : 2.0f;
    ++m_GroupLength;
    m_SAverageDiff = (w * m_SAverageDiff + m_SDiff) / (w + 1.0f);
    return 0;
}

int CZorFrameSector::CalculateSFTagWithIndex(int index) {
    UpdateLongAverage();
    const int p = index >= 1 && index <= kHistorySize ? m_LongChange[index - 1] : -1;
    const int s = UpdateShortAverage();
    const int h = m_SDiff >= m_LowerCutThreshold ? 1 : 0;
    const int k = m_LDiff == -1.0f ? -1 : (m_LDiff >= m_HigherCutThreshold ? 1 : 0);
    int level = 0;
    if (s == 0) {
        level = (h == 1 || k == 0 || p == 0) ? (k == 0 ? 2 : 3) : 10;
    } else if (h == 1 && k != 0 && p != 0) {
        level = 12;
    } else if (k == 0) {
        level = 8;
    } else if (h == 1 || p == 0) {
        level = m_ShortChangeMagnitude + 3;
    } else {
        level = 10;
    }
    m_ChangeLevel = level;
    return level;
}
