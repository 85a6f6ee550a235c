// The synthetic scenes as video: each actor drawn by the synthetic clip generator (a textured
// static background, sensor noise), every picture run through the object tracker's image chain,
// and its foreground blocks taken as the frame's boxes - the whole chain a counter sees on a
// camera, with the truth still known from the paths.
#pragma once

#include "analytics/counting/synthetic/SyntheticScenes.h"

namespace zor::counting::synthetic {

// noiseSigma: the sensor noise in grey levels.
std::vector<SFrame> TrackScene(const SScene& scene, double noiseSigma = 3.0);

} // namespace zor::counting::synthetic
