// Synthetic video with known foreground, for measuring detectors: a textured static background,
// objects of chosen size, contrast and texture moving along paths (and standing still where a
// path holds a position), sensor noise and a sudden change of illumination. Every frame is a
// pure function of the scene and its number, so frames can be rendered in any order and the
// same scene gives the same bytes on every machine.
//
// Alongside each picture the generator gives the truth: per pixel, 0 for background, 1 for an
// object in motion, 2 for an object standing still.
#pragma once

#include "analytics/image/BeluiBitmap.h"

#include <cstdint>
#include <vector>

// A point of an object's path: at frame m_Frame its top-left corner is at (m_X, m_Y). Between
// two keys the object moves in a straight line; two keys at the same place make it stand still.
// Before its first key and after its last the object is not in the picture.
struct SZorSynthKey {
    int m_Frame;
    double m_X;
    double m_Y;
};

struct SZorSynthObject {
    int m_Width = 16;
    int m_Height = 16;
    // The object's brightness against the background under it (signed), before its texture.
    int m_Contrast = 40;
    // The peak amplitude of the object's own pattern, which moves with it.
    int m_Texture = 20;
    bool m_Ellipse = true;
    std::vector<SZorSynthKey> m_Path;
};

struct SZorSynthScene {
    int m_Width = 352;
    int m_Height = 240;
    int m_Frames = 300;
    std::uint32_t m_Seed = 1;
    // Standard deviation of the per-pixel noise, in grey levels.
    double m_NoiseSigma = 3.0;
    // From this frame on, every sample is multiplied by m_StepGain (-1: never).
    int m_StepFrame = -1;
    double m_StepGain = 1.15;
    std::vector<SZorSynthObject> m_Objects;
};

enum EZorSynthTruth : std::uint8_t { kSynthBackground = 0, kSynthMoving = 1, kSynthStill = 2 };

class CZorSyntheticClip {
public:
    explicit CZorSyntheticClip(const SZorSynthScene& scene);

    const SZorSynthScene& Scene() const { return m_Scene; }
    // Renders frame n into picture (the scene's size); also the truth when truth is given (same
    // size). Answers false for a descriptor of another size.
    bool Render(int n, const SBeluiBitmap& picture, const SBeluiBitmap* truth = nullptr) const;
    // Where object i is at frame n: answers false when it is not in the picture.
    bool Position(int i, int n, double* x, double* y) const;
    // Whether object i stands still at frame n (in the picture and at the same place as at n - 1).
    bool IsStill(int i, int n) const;

private:
    SZorSynthScene m_Scene;
    std::vector<std::uint8_t> m_Background;           // the lit scene, width x height
    std::vector<std::vector<std::int8_t>> m_Patterns; // each object's texture, its own size
};

// Ready-made scenes used by the quality measurements and tests.
// Several objects (sizes 8 to 48 pixels, contrasts 25 to 80 either way, speeds 0.7 to 4 pixels a
// frame), one of which stops for 90 frames.
SZorSynthScene ZorSynthTrafficScene(int width, int height, int frames, double noiseSigma,
                                    std::uint32_t seed);
// The same objects and a global brightness step of gain at frame stepFrame.
SZorSynthScene ZorSynthStepScene(int width, int height, int frames, double noiseSigma,
                                 std::uint32_t seed, int stepFrame, double gain);
// No object at all.
SZorSynthScene ZorSynthStaticScene(int width, int height, int frames, double noiseSigma,
                                   std::uint32_t seed);
