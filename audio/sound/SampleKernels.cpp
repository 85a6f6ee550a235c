#include "audio/sound/SampleKernels.h"

#include "audio/sound/SampleKernelsWide.h"

#include <cmath>
#include <cstring>
#include <initializer_list>

namespace {

std::int16_t Load(const unsigned char* p) {
    std::int16_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

void Store(unsigned char* p, std::int16_t v) {
    std::memcpy(p, &v, sizeof v);
}

SZorSampleStats MeasureScalar(const unsigned char* samples, std::size_t n) {
    SZorSampleStats stats;
    for (std::size_t i = 0; i < n; ++i) {
        const std::int32_t s = Load(samples + 2 * i);
        const auto a = static_cast<std::uint32_t>(s < 0 ? -s : s);
        if (a > stats.m_Peak) {
            stats.m_Peak = a;
        }
        stats.m_SumOfSquares += static_cast<std::uint64_t>(a) * a;
    }
    return stats;
}

void ScaleScalar(unsigned char* samples, std::size_t n, double gain) {
    for (std::size_t i = 0; i < n; ++i) {
        Store(samples + 2 * i, ZorScaleSample(Load(samples + 2 * i), gain));
    }
}

void MixScalar(unsigned char* samples, const unsigned char* clip, std::size_t n, double factor) {
    for (std::size_t i = 0; i < n; ++i) {
        Store(samples + 2 * i, ZorMixSample(Load(samples + 2 * i), Load(clip + 2 * i), factor));
    }
}

constexpr SZorSampleKernels kScalar{EZorSimdPath::Scalar, &MeasureScalar, &ScaleScalar, &MixScalar};

} // namespace

std::int16_t ZorScaleSample(std::int16_t sample, double gain) {
    // Truncation toward zero, then the low 16 bits: a product beyond the 16-bit range wraps.
    const auto product = static_cast<std::int32_t>(sample * gain);
    return static_cast<std::int16_t>(static_cast<std::uint16_t>(product));
}

std::int16_t ZorMixSample(std::int16_t sample, std::int16_t clip, double factor) {
    const double mixed = std::trunc(sample * factor + clip);
    if (mixed > 32767.0) {
        return 32767;
    }
    if (mixed < -32768.0) {
        return -32768;
    }
    return static_cast<std::int16_t>(mixed);
}

const char* ZorSimdPathName(EZorSimdPath path) {
    switch (path) {
    case EZorSimdPath::Scalar:
        return "scalar";
    case EZorSimdPath::Sse2:
        return "sse2";
    case EZorSimdPath::Avx2:
        return "avx2";
    case EZorSimdPath::Avx512:
        return "avx512";
    }
    return "scalar";
}

bool ZorSimdPathSupported(EZorSimdPath path) {
    return path == EZorSimdPath::Scalar || ZorWideKernels(path) != nullptr;
}

const SZorSampleKernels& ZorSampleKernelsFor(EZorSimdPath path) {
    const SZorSampleKernels* wide = ZorWideKernels(path);
    return wide ? *wide : kScalar;
}

const SZorSampleKernels& ZorSampleKernels() {
    static const SZorSampleKernels& best = []() -> const SZorSampleKernels& {
        for (EZorSimdPath path : {EZorSimdPath::Avx512, EZorSimdPath::Avx2, EZorSimdPath::Sse2}) {
            if (const SZorSampleKernels* wide = ZorWideKernels(path)) {
                return *wide;
            }
        }
        return kScalar;
    }();
    return best;
}
