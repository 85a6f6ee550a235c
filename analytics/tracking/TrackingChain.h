// The object tracker's image chain on plain bitmaps: a learned background, the foreground blocks
// against it, the processed output image and the boxes. The processing module
// (ObjectTracking.h) only decodes, keeps the format and wraps the result in packets; everything
// here runs, is tested and is benchmarked on buffers of its own.
//
// Per frame (Track), after the two histories have swapped:
//   1  foreground = the blocks whose differences above 8 add up to 250 >> 1 (candidates);
//      blocks reaching 250 are set
//   2  block filter, strength 1 (isolated blocks out, single holes filled)
//   3  block filter, strength 2 (pairs and line ends out)
//   4  expand into candidate blocks, diagonals included
//   5  history B follows the frame where there is foreground (tolerance 16)
//   6  counter counts the frames a pixel has been foreground
//   7  history compared with the previous one: a jump above 15 ends it, else it settles (0.1)
//   8  counter back to 0 where the history ended
//   9  2 x 2 blocks where a counter reaches 30 are marked to move
//  10  the marked blocks of the frame become background at once
//  11  the background learns the frame by 0.1 in blocks that are clear and calm (mean measure
//      at most 34)
// Steps 5 to 10 are the escape: a pixel that stays foreground while the frame holds still there
// (an object that stopped, a light switched on) is absorbed after about 30 frames, while a
// moving object keeps breaking its history and stays foreground.
//
// The image buffers are allocated only when the frame size changes (Rebuild).
#pragma once

#include "analytics/image/Belui2DMask.h"
#include "analytics/image/BeluiBitmapBuffer.h"

#include <vector>

class CZorTrackingChain {
public:
    // Whether the buffers were made for frames of this size.
    bool HasShape(int width, int height) const;
    bool IsEmpty() const { return m_Background.IsEmpty(); }
    // Makes the buffers for the frame's size and takes the frame as the background (and its
    // second copy); foreground, counter and histories start at 0. Answers false, leaving the
    // chain empty, for an empty frame.
    bool Rebuild(const SBeluiBitmap& frame);
    // One frame through the eleven steps. Answers false, changing nothing, when the chain is
    // empty or the frame's size is not the chain's.
    bool Track(const SBeluiBitmap& frame);
    // The processed image of the last tracked frame into out (the frame's size): the picture
    // itself in calm blocks; in foreground blocks, the change against the background amplified
    // three times where it is large against the picture's own brightness, else the picture at a
    // quarter of its brightness.
    bool RenderOutput(const SBeluiBitmap& frame, const SBeluiBitmap& out) const;
    // The colour of the processed image, for frames with a chroma plane at half resolution both
    // ways (two samples a pair, as NV12): the frame's colour where RenderOutput shows the
    // picture, neutral grey (128) where it shows the change.
    bool RenderChroma(const SBeluiBitmap& frameChroma, const SBeluiBitmap& out) const;
    // The foreground blocks as pixel rectangles, one per block, top-down coordinates.
    void GetBoxes(std::vector<SBeluiRect>& out) const;

    const CBelui2DDWMask& BlockMask() const { return m_BlockMask; }
    const SBeluiBitmap& Background() const { return m_Background.Bitmap(); }
    const SBeluiBitmap& Foreground() const { return m_Foreground.Bitmap(); }
    const SBeluiBitmap& Counter() const { return m_Counter.Bitmap(); }

private:
    CBeluiBitmapBuffer m_Background;
    CBeluiBitmapBuffer m_Background2;
    CBeluiBitmapBuffer m_Foreground;
    CBeluiBitmapBuffer m_Counter;
    CBeluiBitmapBuffer m_HistoryA;
    CBeluiBitmapBuffer m_HistoryB;
    CBelui2DDWMask m_BlockMask;
};

// Turns top-down boxes into a bottom-up frame's coordinates: top and bottom become
// height - top and height - bottom (so top > bottom afterwards).
void ZorFlipBoxes(std::vector<SBeluiRect>& boxes, int height);
