#include "analytics/tracking/BlockScore.h"

#include "analytics/tracking/SyntheticClip.h"

#include <algorithm>
#include <climits>

double SZorBlockCounts::Precision() const {
    const long found = m_TruePositives + m_FalsePositives;
    return found > 0 ? static_cast<double>(m_TruePositives) / found : 1.0;
}

double SZorBlockCounts::Recall() const {
    const long real = m_TruePositives + m_FalseNegatives;
    return real > 0 ? static_cast<double>(m_TruePositives) / real : 1.0;
}

double SZorBlockCounts::F1() const {
    const double p = Precision();
    const double r = Recall();
    return p + r > 0 ? 2 * p * r / (p + r) : 0.0;
}

void SZorBlockCounts::Add(const SZorBlockCounts& other) {
    m_TruePositives += other.m_TruePositives;
    m_FalsePositives += other.m_FalsePositives;
    m_FalseNegatives += other.m_FalseNegatives;
    m_Negatives += other.m_Negatives;
}

CZorBlockScorer::CZorBlockScorer(int width, int height, int blockSize, int settleFrames)
    : m_Width(width), m_Height(height), m_BlockSize(blockSize), m_SettleFrames(settleFrames),
      m_Across((width + blockSize - 1) / blockSize), m_Down((height + blockSize - 1) / blockSize),
      m_SinceStill(static_cast<std::size_t>(m_Across) * m_Down, INT_MAX / 2) {}

SZorBlockCounts CZorBlockScorer::Judge(const SBeluiBitmap& truth, const CBelui2DMask& detected) {
    SZorBlockCounts counts;
    if (truth.m_Width != m_Width || truth.m_Height != m_Height ||
        detected.BlocksAcross() != m_Across || detected.BlocksDown() != m_Down) {
        return counts;
    }
    for (int by = 0; by < m_Down; ++by) {
        for (int bx = 0; bx < m_Across; ++bx) {
            int moving = 0;
            int still = 0;
            const int x0 = bx * m_BlockSize;
            const int y0 = by * m_BlockSize;
            const int x1 = std::min(x0 + m_BlockSize, m_Width);
            const int y1 = std::min(y0 + m_BlockSize, m_Height);
            for (int y = y0; y < y1; ++y) {
                for (int x = x0; x < x1; ++x) {
                    const std::uint8_t t = truth.Row(y)[x];
                    moving += t == kSynthMoving;
                    still += t == kSynthStill;
                }
            }
            int& since = m_SinceStill[static_cast<std::size_t>(by) * m_Across + bx];
            since = still > 0 ? 0 : since + 1;
            const int pixels = (x1 - x0) * (y1 - y0);
            const bool set = detected.IsSet(bx, by);
            if (4 * moving >= pixels) {
                (set ? counts.m_TruePositives : counts.m_FalseNegatives)++;
            } else if (moving == 0 && still == 0 && since > m_SettleFrames) {
                counts.m_Negatives++;
                counts.m_FalsePositives += set;
            }
        }
    }
    return counts;
}
