#include "analytics/tracking/SyntheticClip.h"

#include <algorithm>
#include <cmath>

namespace {

// Small, fast and the same everywhere: SplitMix64.
class CRandom {
public:
    explicit CRandom(std::uint64_t seed) : m_State(seed) {}
    std::uint64_t Next() {
        std::uint64_t z = (m_State += 0x9E3779B97F4A7C15ULL);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
        return z ^ (z >> 31);
    }
    // Uniform in [lo, hi].
    int Between(int lo, int hi) {
        return lo + static_cast<int>(Next() % static_cast<std::uint64_t>(hi - lo + 1));
    }

private:
    std::uint64_t m_State;
};

// A smooth random field: random values on a grid of `cell` pixels, interpolated linearly, in
// [-amplitude, amplitude]. Only basic arithmetic, so every machine gives the same values.
std::vector<int> SmoothField(int width, int height, int cell, int amplitude, CRandom& random) {
    const int gw = width / cell + 2;
    const int gh = height / cell + 2;
    std::vector<int> grid(static_cast<std::size_t>(gw) * gh);
    for (int& g : grid) {
        g = random.Between(-amplitude, amplitude);
    }
    std::vector<int> field(static_cast<std::size_t>(width) * height);
    for (int y = 0; y < height; ++y) {
        const int gy = y / cell;
        const int fy = y % cell;
        for (int x = 0; x < width; ++x) {
            const int gx = x / cell;
            const int fx = x % cell;
            const auto at = [&](int i, int j) {
                return grid[static_cast<std::size_t>(j) * gw + i];
            };
            const int top = at(gx, gy) * (cell - fx) + at(gx + 1, gy) * fx;
            const int bottom = at(gx, gy + 1) * (cell - fx) + at(gx + 1, gy + 1) * fx;
            field[static_cast<std::size_t>(y) * width + x] =
                (top * (cell - fy) + bottom * fy) / (cell * cell);
        }
    }
    return field;
}

std::uint8_t ClampByte(double v) {
    return static_cast<std::uint8_t>(std::clamp(std::floor(v + 0.5), 0.0, 255.0));
}

// Irwin-Hall: the sum of four uniform 16-bit values is close to normal; its standard deviation
// is 65536 / sqrt(3).
constexpr double kIrwinHallSigma = 37837.2270;

double NormalSample(CRandom& random) {
    const std::uint64_t r = random.Next();
    const long sum = static_cast<long>(r & 0xFFFF) + static_cast<long>((r >> 16) & 0xFFFF) +
                     static_cast<long>((r >> 32) & 0xFFFF) + static_cast<long>(r >> 48);
    return static_cast<double>(sum - 2 * 65536) / kIrwinHallSigma;
}

} // namespace

CZorSyntheticClip::CZorSyntheticClip(const SZorSynthScene& scene) : m_Scene(scene) {
    const int w = std::max(m_Scene.m_Width, 1);
    const int h = std::max(m_Scene.m_Height, 1);
    m_Scene.m_Width = w;
    m_Scene.m_Height = h;
    CRandom random(0x5EED0000ULL ^ m_Scene.m_Seed);
    // Large soft shapes, medium detail and fine grain, kept inside 30..210 so that the
    // illumination step still has room above.
    const std::vector<int> large = SmoothField(w, h, 48, 50, random);
    const std::vector<int> medium = SmoothField(w, h, 12, 25, random);
    const std::vector<int> fine = SmoothField(w, h, 3, 8, random);
    m_Background.resize(static_cast<std::size_t>(w) * h);
    for (std::size_t i = 0; i < m_Background.size(); ++i) {
        m_Background[i] =
            static_cast<std::uint8_t>(std::clamp(120 + large[i] + medium[i] + fine[i], 30, 210));
    }
    for (const SZorSynthObject& object : m_Scene.m_Objects) {
        const int ow = std::max(object.m_Width, 1);
        const int oh = std::max(object.m_Height, 1);
        const std::vector<int> field =
            SmoothField(ow, oh, 4, std::max(object.m_Texture, 0), random);
        m_Patterns.emplace_back(field.begin(), field.end());
    }
}

bool CZorSyntheticClip::Position(int i, int n, double* x, double* y) const {
    if (i < 0 || i >= static_cast<int>(m_Scene.m_Objects.size())) {
        return false;
    }
    const std::vector<SZorSynthKey>& path = m_Scene.m_Objects[static_cast<std::size_t>(i)].m_Path;
    for (std::size_t k = 0; k + 1 < path.size(); ++k) {
        const SZorSynthKey& a = path[k];
        const SZorSynthKey& b = path[k + 1];
        if (n >= a.m_Frame && n <= b.m_Frame && b.m_Frame > a.m_Frame) {
            const double t = static_cast<double>(n - a.m_Frame) / (b.m_Frame - a.m_Frame);
            *x = a.m_X + (b.m_X - a.m_X) * t;
            *y = a.m_Y + (b.m_Y - a.m_Y) * t;
            return true;
        }
    }
    return false;
}

bool CZorSyntheticClip::IsStill(int i, int n) const {
    double x0 = 0;
    double y0 = 0;
    double x1 = 0;
    double y1 = 0;
    if (!Position(i, n, &x1, &y1) || !Position(i, n - 1, &x0, &y0)) {
        return false;
    }
    return std::floor(x0 + 0.5) == std::floor(x1 + 0.5) &&
           std::floor(y0 + 0.5) == std::floor(y1 + 0.5);
}

bool CZorSyntheticClip::Render(int n, const SBeluiBitmap& picture,
                               const SBeluiBitmap* truth) const {
    const int w = m_Scene.m_Width;
    const int h = m_Scene.m_Height;
    if (picture.IsEmpty() || picture.m_Width != w || picture.m_Height != h ||
        (truth && (truth->IsEmpty() || truth->m_Width != w || truth->m_Height != h))) {
        return false;
    }
    // The lit scene without noise, then objects over it, then illumination and noise.
    for (int y = 0; y < h; ++y) {
        std::copy_n(&m_Background[static_cast<std::size_t>(y) * w], w, picture.Row(y));
        if (truth) {
            std::fill_n(truth->Row(y), w, kSynthBackground);
        }
    }
    for (int i = 0; i < static_cast<int>(m_Scene.m_Objects.size()); ++i) {
        double fx = 0;
        double fy = 0;
        if (!Position(i, n, &fx, &fy)) {
            continue;
        }
        const SZorSynthObject& object = m_Scene.m_Objects[static_cast<std::size_t>(i)];
        const std::vector<std::int8_t>& pattern = m_Patterns[static_cast<std::size_t>(i)];
        const int ow = std::max(object.m_Width, 1);
        const int oh = std::max(object.m_Height, 1);
        const int ox = static_cast<int>(std::floor(fx + 0.5));
        const int oy = static_cast<int>(std::floor(fy + 0.5));
        const std::uint8_t kind = IsStill(i, n) ? kSynthStill : kSynthMoving;
        const double rx = ow / 2.0;
        const double ry = oh / 2.0;
        // Opaque: the object's own brightness is the mean of the background it covers, moved by
        // its contrast, plus its pattern, which travels with it.
        long sum = 0;
        long count = 0;
        for (int y = std::max(oy, 0); y < std::min(oy + oh, h); ++y) {
            for (int x = std::max(ox, 0); x < std::min(ox + ow, w); ++x) {
                sum += m_Background[static_cast<std::size_t>(y) * w + x];
                ++count;
            }
        }
        const int base = count > 0 ? static_cast<int>(sum / count) : 0;
        for (int j = std::max(0, -oy); j < oh && oy + j < h; ++j) {
            for (int k = std::max(0, -ox); k < ow && ox + k < w; ++k) {
                if (object.m_Ellipse) {
                    const double dx = (k + 0.5 - rx) / rx;
                    const double dy = (j + 0.5 - ry) / ry;
                    if (dx * dx + dy * dy > 1.0) {
                        continue;
                    }
                }
                const int x = ox + k;
                const int y = oy + j;
                const int value =
                    base + object.m_Contrast + pattern[static_cast<std::size_t>(j) * ow + k];
                picture.Row(y)[x] = static_cast<std::uint8_t>(std::clamp(value, 0, 255));
                if (truth) {
                    truth->Row(y)[x] = kind;
                }
            }
        }
    }
    const double gain =
        (m_Scene.m_StepFrame >= 0 && n >= m_Scene.m_StepFrame) ? m_Scene.m_StepGain : 1.0;
    CRandom random((static_cast<std::uint64_t>(m_Scene.m_Seed) << 32) ^
                   static_cast<std::uint64_t>(n) ^ 0xA5A5A5A5ULL);
    const double sigma = m_Scene.m_NoiseSigma;
    for (int y = 0; y < h; ++y) {
        std::uint8_t* row = picture.Row(y);
        for (int x = 0; x < w; ++x) {
            row[x] = ClampByte(row[x] * gain + sigma * NormalSample(random));
        }
    }
    return true;
}

namespace {

SZorSynthObject Object(int w, int h, int contrast, int texture, std::vector<SZorSynthKey> path) {
    SZorSynthObject o;
    o.m_Width = w;
    o.m_Height = h;
    o.m_Contrast = contrast;
    o.m_Texture = texture;
    o.m_Path = std::move(path);
    return o;
}

} // namespace

SZorSynthScene ZorSynthTrafficScene(int width, int height, int frames, double noiseSigma,
                                    std::uint32_t seed) {
    SZorSynthScene s = ZorSynthStaticScene(width, height, frames, noiseSigma, seed);
    // Positions are laid out on a 352 x 240 picture and scaled to the scene's size; objects keep
    // their pixel size, so a bigger picture has relatively smaller objects.
    const double sx = width / 352.0;
    const double sy = height / 240.0;
    const auto key = [&](int f, double x, double y) { return SZorSynthKey{f, x * sx, y * sy}; };
    // A car crossing fast, left to right.
    s.m_Objects.push_back(Object(48, 20, 60, 25, {key(20, -48, 30), key(153, 352, 30)}));
    // A walker, right to left, slowly.
    s.m_Objects.push_back(Object(12, 28, -45, 20, {key(15, 352, 110), key(318, -12, 110)}));
    // A small bright thing, fast and diagonal.
    s.m_Objects.push_back(Object(8, 8, 80, 10, {key(40, 0, 0), key(110, 280, 200)}));
    // A dim, low-contrast one going down.
    s.m_Objects.push_back(Object(24, 24, -25, 12, {key(25, 280, -24), key(157, 280, 240)}));
    // One that walks in, stands still for 90 frames, and walks on.
    s.m_Objects.push_back(
        Object(20, 32, 50, 20,
               {key(30, -20, 170), key(140, 150, 170), key(230, 150, 170), key(320, 352, 170)}));
    // A wide, slow one at 0.7 pixels a frame.
    s.m_Objects.push_back(Object(32, 16, -35, 15, {key(60, 352, 70), key(600, -32, 70)}));
    return s;
}

SZorSynthScene ZorSynthStepScene(int width, int height, int frames, double noiseSigma,
                                 std::uint32_t seed, int stepFrame, double gain) {
    SZorSynthScene s = ZorSynthTrafficScene(width, height, frames, noiseSigma, seed);
    s.m_StepFrame = stepFrame;
    s.m_StepGain = gain;
    return s;
}

SZorSynthScene ZorSynthStaticScene(int width, int height, int frames, double noiseSigma,
                                   std::uint32_t seed) {
    SZorSynthScene s;
    s.m_Width = width;
    s.m_Height = height;
    s.m_Frames = frames;
    s.m_NoiseSigma = noiseSigma;
    s.m_Seed = seed;
    return s;
}
