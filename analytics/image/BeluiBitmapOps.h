// Bitmap primitives: the pixel operations a foreground detector is chained from. Each works on
// bitmap descriptors (BeluiBitmap.h) of one size, or on a descriptor and a block mask shaped for
// that size (Belui2DMask.h). A call with an empty descriptor, descriptors of different sizes or
// a mask of another shape answers false and writes nothing; a true answer means every pixel was
// processed. Destinations may be the same bitmap as any source.
//
// Conventions:
//  - Samples are unsigned 8-bit. Thresholds, tolerances, levels and values are clamped to
//    0..255.
//  - A mask bitmap acts as a level of protection: an operation that takes a mask level writes
//    only where the mask is at or below that level. A block mask (CBelui2DDWMask) protects a set
//    block completely and a clear block by its mean measure (difference above the noise floor
//    per pixel): a block is "open" at a level when it is clear and that mean is at most the
//    level.
//  - Blends move a sample by alpha of the way to another, in steps of 1/256: alpha becomes
//    w = round(alpha * 256), clamped to 0..128 (alpha 0..0.5), and the result is
//    x + (((y - x) * w + 128) >> 8), the shift rounding down.
//  - History samples use 0 for "no history here"; real samples written into a history are at
//    least 1.
//
// The row loops are vectorised (BeluiRows.h); every vector width gives the scalar reference's
// bytes.
#pragma once

#include "analytics/image/Belui2DMask.h"
#include "analytics/image/BeluiBitmap.h"

// Differencing against a background with a noise floor, measured block by block. The mask is
// (re)shaped to blockWidth x blockHeight blocks over the bitmaps' size, and each block gets its
// measure S = the sum of the differences |a - b| above pixelThreshold over its pixels, and its
// flags:
//   set        when S reaches blockThreshold (scaled by the block's share of a full block's
//              pixels for partial blocks);
//   candidate  when S reaches blockThreshold >> candidateShift (scaled the same way).
//   dst = max(|a - b|, 1) over candidate blocks, 0 over the others.
// A noisy pixel here and there stays under the floor or adds little to S; an object of some
// contrast over most of a block passes the block threshold. dst marks whole blocks, so a pixel of
// a changed block does not drop out of the foreground whenever noise brings it close to the
// background for a frame.
bool BeluiBitmapSubtractAndFilter(const SBeluiBitmap& dst, CBelui2DDWMask& mask,
                                  const SBeluiBitmap& a, const SBeluiBitmap& b, int blockWidth,
                                  int blockHeight, int pixelThreshold, int blockThreshold,
                                  int candidateShift);

// A history that follows c where mask is non-zero.
//   mask == 0                       dst = a
//   b != 0 and |b - c| <= tolerance dst = (b + c + 1) / 2    (the mean of history and sample)
//   otherwise                       dst = max(c, 1)          (history starts again at c)
bool BeluiBitmapMaskDouble(const SBeluiBitmap& dst, const SBeluiBitmap& a, const SBeluiBitmap& b,
                           const SBeluiBitmap& c, const SBeluiBitmap& mask, int tolerance);

// A run counter: dst = min(dst + 1, 255) where mask is non-zero, else value.
bool BeluiBitmapMaskAndIncIfNotZero(const SBeluiBitmap& dst, const SBeluiBitmap& mask, int value);

// Compares two histories a and b where both exist (non-zero):
//   |a - b| > threshold    b = value (with value 0: b's history ends here);
//   otherwise, mask != 0   b = a blended alpha of the way towards b.
// Samples where a or b is 0 are left alone.
bool BeluiBitmapSubtractAndMaskBlendAndMakeMask(const SBeluiBitmap& a, const SBeluiBitmap& b,
                                                const SBeluiBitmap& mask, double alpha,
                                                int threshold, int value);

// dst = src where mask <= level.
bool BeluiBitmapMask(const SBeluiBitmap& dst, const SBeluiBitmap& src, const SBeluiBitmap& mask,
                     int level);
// dst = src over every block open at level.
bool BeluiBitmapMask(const SBeluiBitmap& dst, const SBeluiBitmap& src, const CBelui2DDWMask& mask,
                     int level);

// Marks the blocks to move: the bitmaps are cut into blockWidth x blockHeight blocks (partial at
// the edges); over each block where some src sample reaches threshold, dst = value; over every
// other block, dst = 255.
bool BeluiBitmapMoveBlockIfThreshold(const SBeluiBitmap& dst, const SBeluiBitmap& src,
                                     int blockWidth, int blockHeight, int threshold, int value);

// dst = dst blended alpha of the way towards src, over every block open at level.
bool BeluiBitmapMaskedBlend(const SBeluiBitmap& dst, const SBeluiBitmap& src,
                            const CBelui2DDWMask& mask, double alpha, int level);

// dst = min(255, |b - a| * gain), gain clamped to 0..128: the change from a to b, amplified.
bool BeluiBitmapSubtractFrom(const SBeluiBitmap& dst, const SBeluiBitmap& a, const SBeluiBitmap& b,
                             int gain);

// Relative threshold: where mask <= src >> relShift (a change small against the sample's own
// brightness), dst = src >> dimShift. Shifts are clamped to 0..7.
bool BeluiBitmapMaskThreshold(const SBeluiBitmap& dst, const SBeluiBitmap& src,
                              const SBeluiBitmap& mask, int relShift, int dimShift);

// dst = src.
bool BeluiBitmapCopy(const SBeluiBitmap& dst, const SBeluiBitmap& src);
// dst = value.
bool BeluiBitmapFill(const SBeluiBitmap& dst, int value);
