#include "analytics/tracking/TrackingChain.h"

#include "analytics/image/BeluiBitmapOps.h"

#include <algorithm>
#include <cstring>

namespace {

// The block level up to which the output shows the picture (see RenderOutput).
constexpr int kPictureLevel = 16;

} // namespace

bool CZorTrackingChain::HasShape(int width, int height) const {
    const SBeluiBitmap& b = m_Background.Bitmap();
    return !b.IsEmpty() && b.m_Width == width && b.m_Height == height;
}

bool CZorTrackingChain::Rebuild(const SBeluiBitmap& frame) {
    CBeluiBitmapBuffer* all[] = {&m_Background, &m_Background2, &m_Foreground,
                                 &m_Counter,    &m_HistoryA,    &m_HistoryB};
    for (CBeluiBitmapBuffer* buffer : all) {
        if (frame.IsEmpty() || !buffer->Allocate(frame.m_Width, frame.m_Height)) {
            for (CBeluiBitmapBuffer* b : all) {
                b->Free();
            }
            m_BlockMask = CBelui2DDWMask();
            return false;
        }
    }
    BeluiBitmapCopy(m_Background.Bitmap(), frame);
    BeluiBitmapCopy(m_Background2.Bitmap(), frame);
    m_BlockMask.Create(frame.m_Width, frame.m_Height, 4, 4);
    return true;
}

bool CZorTrackingChain::Track(const SBeluiBitmap& frame) {
    if (!HasShape(frame.m_Width, frame.m_Height)) {
        return false;
    }
    m_HistoryA.Swap(m_HistoryB);
    const SBeluiBitmap& background = m_Background.Bitmap();
    const SBeluiBitmap& foreground = m_Foreground.Bitmap();
    const SBeluiBitmap& counter = m_Counter.Bitmap();
    const SBeluiBitmap& historyA = m_HistoryA.Bitmap();
    const SBeluiBitmap& historyB = m_HistoryB.Bitmap();

    BeluiBitmapSubtractAndFilter(foreground, m_BlockMask, frame, background, 4, 4, 8, 250, 1);
    m_BlockMask.BlockFilter(1);
    m_BlockMask.BlockFilter(2);
    m_BlockMask.Expand(true);
    BeluiBitmapMaskDouble(historyB, historyB, historyA, frame, foreground, 16);
    BeluiBitmapMaskAndIncIfNotZero(counter, foreground, 0);
    BeluiBitmapSubtractAndMaskBlendAndMakeMask(historyA, historyB, counter, 0.1, 15, 0);
    BeluiBitmapMask(counter, historyB, historyB, 0);
    BeluiBitmapMoveBlockIfThreshold(foreground, counter, 2, 2, 30, 0);
    BeluiBitmapMask(background, frame, foreground, 0);
    BeluiBitmapMaskedBlend(background, frame, m_BlockMask, 0.1, 34);
    return true;
}

bool CZorTrackingChain::RenderOutput(const SBeluiBitmap& frame, const SBeluiBitmap& out) const {
    if (!HasShape(frame.m_Width, frame.m_Height)) {
        return false;
    }
    return BeluiBitmapSubtractFrom(out, m_Background.Bitmap(), frame, 3) &&
           BeluiBitmapMaskThreshold(out, frame, out, 2, 2) &&
           BeluiBitmapMask(out, frame, m_BlockMask, kPictureLevel);
}

bool CZorTrackingChain::RenderChroma(const SBeluiBitmap& frameChroma,
                                     const SBeluiBitmap& out) const {
    if (IsEmpty() || frameChroma.IsEmpty() || out.IsEmpty() || frameChroma.m_Width != out.m_Width ||
        frameChroma.m_Height != out.m_Height ||
        frameChroma.m_Height != (Background().m_Height + 1) / 2 ||
        frameChroma.m_Width < Background().m_Width) {
        return false;
    }
    // A chroma pair covers two luma columns and two luma rows, and its two samples sit in the
    // luma columns they cover: chroma columns map to luma columns one to one, chroma rows to
    // pairs of luma rows.
    const CBelui2DDWMask& mask = m_BlockMask;
    const int bw = mask.BlockWidth();
    for (int r = 0; r < out.m_Height; ++r) {
        const int by = std::min(2 * r, Background().m_Height - 1) / mask.BlockHeight();
        const std::uint8_t* in = frameChroma.Row(r);
        std::uint8_t* row = out.Row(r);
        for (int bx = 0; bx < mask.BlocksAcross(); ++bx) {
            const int x0 = bx * bw;
            const int x1 = bx + 1 == mask.BlocksAcross() ? out.m_Width : x0 + bw;
            if (mask.IsOpen(bx, by, kPictureLevel)) {
                std::memcpy(row + x0, in + x0, static_cast<std::size_t>(x1 - x0));
            } else {
                std::memset(row + x0, 128, static_cast<std::size_t>(x1 - x0));
            }
        }
    }
    return true;
}

void CZorTrackingChain::GetBoxes(std::vector<SBeluiRect>& out) const {
    m_BlockMask.GetBlocksCoordinates(true, false, out);
}

void ZorFlipBoxes(std::vector<SBeluiRect>& boxes, int height) {
    for (SBeluiRect& box : boxes) {
        box.m_Top = height - box.m_Top;
        box.m_Bottom = height - box.m_Bottom;
    }
}
