// The wide-vector sample loops behind SampleKernels.h (internal to it and its tests).
#pragma once

#include "audio/sound/SampleKernels.h"

// The loops of a wide path when this build has them and this CPU runs them, else nullptr (always
// nullptr for the scalar path).
const SZorSampleKernels* ZorWideKernels(EZorSimdPath path);
