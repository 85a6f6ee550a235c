#include "analytics/counting/synthetic/RenderedScenes.h"

#include "analytics/image/BeluiBitmapBuffer.h"
#include "analytics/tracking/SyntheticClip.h"
#include "analytics/tracking/TrackingChain.h"

#include <cmath>

namespace zor::counting::synthetic {

std::vector<SFrame> TrackScene(const SScene& scene, double noiseSigma) {
    SZorSynthScene synth;
    synth.m_Width = scene.m_Width;
    synth.m_Height = scene.m_Height;
    synth.m_Frames = static_cast<int>(scene.m_Duration / scene.m_FrameMs);
    synth.m_Seed = scene.m_Seed;
    synth.m_NoiseSigma = noiseSigma;
    for (std::size_t a = 0; a < scene.m_Actors.size(); ++a) {
        const SActor& actor = scene.m_Actors[a];
        SZorSynthObject object;
        object.m_Width = static_cast<int>(actor.m_Width);
        object.m_Height = static_cast<int>(actor.m_Height);
        // Dark and light clothes in turn; a bag stands out from the pavement.
        object.m_Contrast = actor.m_Kind == SActor::OBJECT ? 70 : (a % 2 ? 45 : -55);
        object.m_Texture = 15;
        object.m_Ellipse = actor.m_Kind == SActor::WALKER;
        for (const SWaypoint& w : actor.m_Path) {
            object.m_Path.push_back(SZorSynthKey{static_cast<int>(w.m_Time / scene.m_FrameMs),
                                                 w.m_X - 0.5 * actor.m_Width,
                                                 w.m_Y - 0.5 * actor.m_Height});
        }
        synth.m_Objects.push_back(object);
    }
    CZorSyntheticClip clip(synth);
    CBeluiBitmapBuffer picture;
    picture.Allocate(synth.m_Width, synth.m_Height);
    CZorTrackingChain chain;
    std::vector<SBeluiRect> blocks;
    std::vector<SFrame> frames;
    for (int n = 0; n < synth.m_Frames; ++n) {
        clip.Render(n, picture.Bitmap());
        if (n == 0) {
            chain.Rebuild(picture.Bitmap());
        }
        chain.Track(picture.Bitmap());
        chain.GetBoxes(blocks);
        SFrame frame{n * scene.m_FrameMs, {}};
        for (const SBeluiRect& b : blocks) {
            frame.m_Boxes.push_back(SBox{b.m_Left, b.m_Top, b.m_Right, b.m_Bottom});
        }
        frames.push_back(std::move(frame));
    }
    return frames;
}

} // namespace zor::counting::synthetic
