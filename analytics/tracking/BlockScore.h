// Scores a block detector against a synthetic clip's truth, block by block.
//
// A block counts as
//  - foreground when objects in motion cover at least a quarter of its pixels;
//  - background when no object covers any of its pixels and no object has stood still on it in
//    the last `settleFrames` frames;
//  - neither (not scored) otherwise: the ragged edge of an object, an object standing still
//    (which a detector should absorb after a while), and the place a still object left, where
//    a background that had absorbed it must learn again.
// Frames before `warmUp` are not scored: the first frame is the background.
#pragma once

#include "analytics/image/Belui2DMask.h"
#include "analytics/image/BeluiBitmap.h"

#include <vector>

struct SZorBlockCounts {
    long m_TruePositives = 0;
    long m_FalsePositives = 0;
    long m_FalseNegatives = 0;
    long m_Negatives = 0; // background blocks seen

    double Precision() const;
    double Recall() const;
    double F1() const;
    void Add(const SZorBlockCounts& other);
};

class CZorBlockScorer {
public:
    CZorBlockScorer(int width, int height, int blockSize, int settleFrames);

    // Judges one frame's detected blocks (a mask with this scorer's block grid) against its
    // truth bitmap; answers that frame's counts. Frames must come in order.
    SZorBlockCounts Judge(const SBeluiBitmap& truth, const CBelui2DMask& detected);

private:
    int m_Width;
    int m_Height;
    int m_BlockSize;
    int m_SettleFrames;
    int m_Across;
    int m_Down;
    std::vector<int> m_SinceStill; // frames since an object last stood on each block
};
