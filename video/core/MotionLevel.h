// The motion level of a picture, measured the way a camera's encoder does it for its motion
// detection: the share of 16x16 macroblocks whose luma changed since the previous picture beyond
// the sensor's noise.
//
// A sample has changed when it differs from the previous picture's by more than the noise
// floor; a macroblock has changed when at least 1/16 of its samples have (so a figure's moving
// edge counts, a speck of noise does not). The level is
//
//     level = round(scale * sqrt(changed macroblocks / all macroblocks))
//
// a small integer that does not depend on the picture size: 0 for a still scene, about 3 to 6
// while one person walks through a scene where a person covers a few percent of the picture,
// more for several, and `scale` when everything changes. The square root keeps small movers
// visible without letting a full-frame change run away.
#pragma once

#include "analytics/image/BeluiBitmap.h"

#include <cstdint>
#include <vector>

struct SZorMotionSettings {
    // Luma difference, in sample values, that sensor and coding noise stays within.
    int m_NoiseFloor = 12;
    // The level when every macroblock changed.
    double m_Scale = 40.0;
};

struct SZorMotionMeasure {
    int m_Level = 0;
    int m_ChangedBlocks = 0;
    int m_Blocks = 0;
};

// Compares two luma planes of the same size (a size mismatch or an empty plane gives level 0).
SZorMotionMeasure ZorMeasureMotion(const SBeluiBitmap& current, const SBeluiBitmap& previous,
                                   const SZorMotionSettings& settings);

// The same with the plain reference kernel; identical results.
SZorMotionMeasure ZorMeasureMotionReference(const SBeluiBitmap& current,
                                            const SBeluiBitmap& previous,
                                            const SZorMotionSettings& settings);

// The level of a changed share (0..1).
int ZorMotionLevelOfShare(double share, double scale);
