#include "analytics/image/BeluiBitmapOps.h"

#include "analytics/image/BeluiRows.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace {

using u8 = std::uint8_t;

int Clamp255(int v) {
    return std::clamp(v, 0, 255);
}

int WeightOf(double alpha) {
    if (!(alpha > 0.0)) { // also NaN
        return 0;
    }
    return static_cast<int>(std::lround(std::min(alpha, 0.5) * 256.0));
}

bool SameShape(const SBeluiBitmap& a, const SBeluiBitmap& b) {
    return !a.IsEmpty() && !b.IsEmpty() && a.m_Width == b.m_Width && a.m_Height == b.m_Height &&
           a.m_Stride >= a.m_Width && b.m_Stride >= b.m_Width;
}

bool Fits(const CBelui2DMask& mask, const SBeluiBitmap& bitmap) {
    return !mask.IsEmpty() && mask.FrameWidth() == bitmap.m_Width &&
           mask.FrameHeight() == bitmap.m_Height;
}

// Spreads one byte per block (0 or 255) over a row of pixels. Kept per thread and grown only
// when a wider frame comes.
const u8* SpreadBlocks(const CBelui2DMask& mask, const u8* perBlock) {
    thread_local std::vector<u8> row;
    const int width = mask.FrameWidth();
    if (row.size() < static_cast<std::size_t>(width)) {
        row.resize(static_cast<std::size_t>(width));
    }
    const int bw = mask.BlockWidth();
    u8* out = row.data();
    int bx = 0;
    if (bw == 4) {
        for (; bx < width / 4; ++bx) {
            const std::uint32_t v = perBlock[bx] * 0x01010101U;
            std::memcpy(out + 4 * bx, &v, 4);
        }
    }
    for (; bx < mask.BlocksAcross(); ++bx) {
        std::memset(out + bx * bw, perBlock[bx],
                    static_cast<std::size_t>(std::min(bw, width - bx * bw)));
    }
    return out;
}

u8* BlockScratch(const CBelui2DMask& mask) {
    thread_local std::vector<u8> blocks;
    if (blocks.size() < static_cast<std::size_t>(mask.BlocksAcross())) {
        blocks.resize(static_cast<std::size_t>(mask.BlocksAcross()));
    }
    return blocks.data();
}

// The pixels of the blocks of a row open at level (clear, with a measure of at most level per
// pixel) as 255, the others as 0.
const u8* OpenRow(const CBelui2DDWMask& mask, int by, int level) {
    u8* open = BlockScratch(mask);
    const int across = mask.BlocksAcross();
    if (level < 0) {
        std::memset(open, 0, static_cast<std::size_t>(across));
        return SpreadBlocks(mask, open);
    }
    const std::uint32_t* values = mask.ValueRow(by);
    const u8* cells = mask.CellRow(by);
    const int rows = std::min(mask.BlockHeight(), mask.FrameHeight() - by * mask.BlockHeight());
    const auto limit = static_cast<std::uint64_t>(level) * mask.BlockWidth() * rows;
    const int full = mask.FrameWidth() / mask.BlockWidth();
    for (int bx = 0; bx < full; ++bx) {
        open[bx] = ((cells[bx] & CBelui2DMask::kSet) == 0 && values[bx] <= limit) ? 255 : 0;
    }
    for (int bx = full; bx < across; ++bx) {
        const auto partial = static_cast<std::uint64_t>(level) * mask.BlockPixels(bx, by);
        open[bx] = ((cells[bx] & CBelui2DMask::kSet) == 0 && values[bx] <= partial) ? 255 : 0;
    }
    return SpreadBlocks(mask, open);
}

} // namespace

bool BeluiBitmapSubtractAndFilter(const SBeluiBitmap& dst, CBelui2DDWMask& mask,
                                  const SBeluiBitmap& a, const SBeluiBitmap& b, int blockWidth,
                                  int blockHeight, int pixelThreshold, int blockThreshold,
                                  int candidateShift) {
    if (!SameShape(dst, a) || !SameShape(a, b) || blockWidth <= 0 || blockHeight <= 0) {
        return false;
    }
    const int w = dst.m_Width;
    const int h = dst.m_Height;
    if (!mask.HasShape(w, h, blockWidth, blockHeight)) {
        mask.Create(w, h, blockWidth, blockHeight);
    }
    const SBeluiRowKernels& k = BeluiRowKernels();
    const int floor = Clamp255(pixelThreshold);
    const auto setAt = static_cast<std::uint64_t>(std::max(blockThreshold, 0));
    const std::uint64_t candidateAt = setAt >> std::clamp(candidateShift, 0, 31);
    const int across = mask.BlocksAcross();
    const int fullColumns = w / blockWidth; // blocks with all their columns inside the frame
    const auto fullPixels = static_cast<std::uint64_t>(blockWidth) * blockHeight;
    for (int by = 0; by < mask.BlocksDown(); ++by) {
        std::uint32_t* sums = mask.ValueRow(by);
        std::fill(sums, sums + across, 0U);
        const int y0 = by * blockHeight;
        const int y1 = std::min(y0 + blockHeight, h);
        for (int y = y0; y < y1; ++y) {
            u8* out = dst.Row(y);
            k.AbsDiff(out, a.Row(y), b.Row(y), w);
            int bx = 0;
            if (blockWidth == 4) {
                k.AddGroupsOf4Above(sums, out, fullColumns, floor);
                bx = fullColumns;
            }
            for (; bx < across; ++bx) {
                const int x0 = bx * blockWidth;
                const int x1 = std::min(x0 + blockWidth, w);
                std::uint32_t s = 0;
                for (int x = x0; x < x1; ++x) {
                    s += out[x] > floor ? out[x] : 0;
                }
                sums[bx] += s;
            }
        }
        // The thresholds are a full block's: a measure counts scaled by the block's real
        // pixels (rows short at the bottom, columns short at the right).
        u8* cells = mask.CellRow(by);
        u8* candidates = BlockScratch(mask);
        const int rows = y1 - y0;
        const auto pixels = static_cast<std::uint64_t>(blockWidth) * rows;
        for (int bx = 0; bx < across; ++bx) {
            const std::uint64_t blockPixels =
                bx < fullColumns ? pixels : static_cast<std::uint64_t>(mask.BlockPixels(bx, by));
            const std::uint64_t scaled = sums[bx] * fullPixels;
            const u8 flags = (scaled >= setAt * blockPixels ? CBelui2DMask::kSet : 0) |
                             (scaled >= candidateAt * blockPixels ? CBelui2DMask::kCandidate : 0);
            cells[bx] = flags;
            candidates[bx] = (flags & CBelui2DMask::kCandidate) != 0 ? 255 : 0;
        }
        const u8* keep = SpreadBlocks(mask, candidates);
        for (int y = y0; y < y1; ++y) {
            k.KeepWhere(dst.Row(y), keep, w);
        }
    }
    return true;
}

bool BeluiBitmapMaskDouble(const SBeluiBitmap& dst, const SBeluiBitmap& a, const SBeluiBitmap& b,
                           const SBeluiBitmap& c, const SBeluiBitmap& mask, int tolerance) {
    if (!SameShape(dst, a) || !SameShape(a, b) || !SameShape(b, c) || !SameShape(c, mask)) {
        return false;
    }
    const SBeluiRowKernels& k = BeluiRowKernels();
    const int t = Clamp255(tolerance);
    for (int y = 0; y < dst.m_Height; ++y) {
        k.MaskDouble(dst.Row(y), a.Row(y), b.Row(y), c.Row(y), mask.Row(y), dst.m_Width, t);
    }
    return true;
}

bool BeluiBitmapMaskAndIncIfNotZero(const SBeluiBitmap& dst, const SBeluiBitmap& mask, int value) {
    if (!SameShape(dst, mask)) {
        return false;
    }
    const SBeluiRowKernels& k = BeluiRowKernels();
    const int v = Clamp255(value);
    for (int y = 0; y < dst.m_Height; ++y) {
        k.MaskAndIncIfNotZero(dst.Row(y), mask.Row(y), dst.m_Width, v);
    }
    return true;
}

bool BeluiBitmapSubtractAndMaskBlendAndMakeMask(const SBeluiBitmap& a, const SBeluiBitmap& b,
                                                const SBeluiBitmap& mask, double alpha,
                                                int threshold, int value) {
    if (!SameShape(a, b) || !SameShape(b, mask)) {
        return false;
    }
    const SBeluiRowKernels& k = BeluiRowKernels();
    const int w = WeightOf(alpha);
    const int t = Clamp255(threshold);
    const int v = Clamp255(value);
    for (int y = 0; y < a.m_Height; ++y) {
        k.SubtractAndMaskBlendAndMakeMask(a.Row(y), b.Row(y), mask.Row(y), a.m_Width, w, t, v);
    }
    return true;
}

bool BeluiBitmapMask(const SBeluiBitmap& dst, const SBeluiBitmap& src, const SBeluiBitmap& mask,
                     int level) {
    if (!SameShape(dst, src) || !SameShape(src, mask)) {
        return false;
    }
    if (level < 0) {
        return true; // no mask value is below 0: nothing passes
    }
    const SBeluiRowKernels& k = BeluiRowKernels();
    const int l = Clamp255(level);
    for (int y = 0; y < dst.m_Height; ++y) {
        k.Mask(dst.Row(y), src.Row(y), mask.Row(y), dst.m_Width, l);
    }
    return true;
}

bool BeluiBitmapMask(const SBeluiBitmap& dst, const SBeluiBitmap& src, const CBelui2DDWMask& mask,
                     int level) {
    if (!SameShape(dst, src) || !Fits(mask, dst)) {
        return false;
    }
    const SBeluiRowKernels& k = BeluiRowKernels();
    for (int by = 0; by < mask.BlocksDown(); ++by) {
        const u8* open = OpenRow(mask, by, level);
        const int y1 = std::min((by + 1) * mask.BlockHeight(), dst.m_Height);
        for (int y = by * mask.BlockHeight(); y < y1; ++y) {
            k.Select(dst.Row(y), src.Row(y), open, dst.m_Width);
        }
    }
    return true;
}

bool BeluiBitmapMoveBlockIfThreshold(const SBeluiBitmap& dst, const SBeluiBitmap& src,
                                     int blockWidth, int blockHeight, int threshold, int value) {
    if (!SameShape(dst, src) || blockWidth <= 0 || blockHeight <= 0) {
        return false;
    }
    const SBeluiRowKernels& k = BeluiRowKernels();
    const int t = Clamp255(threshold);
    const u8 v = static_cast<u8>(Clamp255(value));
    const int w = dst.m_Width;
    const int h = dst.m_Height;
    // Whole 2 x 2 blocks go through the row kernel; any other block size, and the partial
    // blocks at the edges, through the plain loop below.
    int fastRows = 0;
    int fastColumns = 0;
    if (blockWidth == 2 && blockHeight == 2) {
        fastRows = h / 2 * 2;
        fastColumns = w / 2 * 2;
        for (int y = 0; y < fastRows; y += 2) {
            k.MovePairs(dst.Row(y), dst.Row(y + 1), src.Row(y), src.Row(y + 1), w / 2, t, v);
        }
    }
    for (int y0 = 0; y0 < h; y0 += blockHeight) {
        const int y1 = std::min(y0 + blockHeight, h);
        const int xStart = y1 <= fastRows ? fastColumns : 0;
        for (int x0 = xStart; x0 < w; x0 += blockWidth) {
            const int x1 = std::min(x0 + blockWidth, w);
            int top = 0;
            for (int y = y0; y < y1; ++y) {
                const u8* row = src.Row(y);
                top = std::max(top, static_cast<int>(*std::max_element(row + x0, row + x1)));
            }
            const u8 out = top >= t ? v : 255;
            for (int y = y0; y < y1; ++y) {
                std::memset(dst.Row(y) + x0, out, static_cast<std::size_t>(x1 - x0));
            }
        }
    }
    return true;
}

bool BeluiBitmapMaskedBlend(const SBeluiBitmap& dst, const SBeluiBitmap& src,
                            const CBelui2DDWMask& mask, double alpha, int level) {
    if (!SameShape(dst, src) || !Fits(mask, dst)) {
        return false;
    }
    const SBeluiRowKernels& k = BeluiRowKernels();
    const int weight = WeightOf(alpha);
    for (int by = 0; by < mask.BlocksDown(); ++by) {
        const u8* open = OpenRow(mask, by, level);
        const int y1 = std::min((by + 1) * mask.BlockHeight(), dst.m_Height);
        for (int y = by * mask.BlockHeight(); y < y1; ++y) {
            k.Blend(dst.Row(y), src.Row(y), open, dst.m_Width, weight);
        }
    }
    return true;
}

bool BeluiBitmapSubtractFrom(const SBeluiBitmap& dst, const SBeluiBitmap& a, const SBeluiBitmap& b,
                             int gain) {
    if (!SameShape(dst, a) || !SameShape(a, b)) {
        return false;
    }
    const SBeluiRowKernels& k = BeluiRowKernels();
    const int g = std::clamp(gain, 0, 128);
    for (int y = 0; y < dst.m_Height; ++y) {
        k.SubtractFrom(dst.Row(y), a.Row(y), b.Row(y), dst.m_Width, g);
    }
    return true;
}

bool BeluiBitmapMaskThreshold(const SBeluiBitmap& dst, const SBeluiBitmap& src,
                              const SBeluiBitmap& mask, int relShift, int dimShift) {
    if (!SameShape(dst, src) || !SameShape(src, mask)) {
        return false;
    }
    const SBeluiRowKernels& k = BeluiRowKernels();
    const int rel = std::clamp(relShift, 0, 7);
    const int dim = std::clamp(dimShift, 0, 7);
    for (int y = 0; y < dst.m_Height; ++y) {
        k.MaskThreshold(dst.Row(y), src.Row(y), mask.Row(y), dst.m_Width, rel, dim);
    }
    return true;
}

bool BeluiBitmapCopy(const SBeluiBitmap& dst, const SBeluiBitmap& src) {
    if (!SameShape(dst, src)) {
        return false;
    }
    for (int y = 0; y < dst.m_Height; ++y) {
        std::memmove(dst.Row(y), src.Row(y), static_cast<std::size_t>(dst.m_Width));
    }
    return true;
}

bool BeluiBitmapFill(const SBeluiBitmap& dst, int value) {
    if (dst.IsEmpty()) {
        return false;
    }
    for (int y = 0; y < dst.m_Height; ++y) {
        std::memset(dst.Row(y), Clamp255(value), static_cast<std::size_t>(dst.m_Width));
    }
    return true;
}
