// Draws what the counting analysers saw onto a picture of a frame: the counting line (or zone),
// every followed target with its identifier and the trail of where it has been, the counts so
// far, and the left objects with how long each has stood. The frame writer shows it each frame
// (Observe, which extends the trails) and draws it on each picture it renders (Draw), when its
// "drawCounting" is set.
//
// Invariants: drawing is clipped to the picture (coordinates come from packets); a trail is
// dropped when its target has not been seen for kForget frames, and holds at most kTrail points,
// so memory stays bounded whatever the stream.
#pragma once

#include "video/core/Drawing.h"

#include <vector>

class CKorPacket;

class CZorCountingOverlay {
public:
    // Extends the trails with the frame's targets (once per frame).
    void Observe(const CKorPacket& frame);
    // image shows frame's picture scaled by sx, sy; unit is the width of a stroke in pixels.
    // The counts caption goes below the time caption, its top at captionTop.
    void Draw(const CKorPacket& frame, const SZorRgbImage& image, double sx, double sy, int unit,
              int captionTop) const;
    void Reset() { m_Trails.clear(); }

private:
    static constexpr std::size_t kTrail = 40;
    static constexpr long kForget = 20;

    struct SPoint {
        int m_X;
        int m_Y;
    };
    struct STrail {
        unsigned long m_Id;
        long m_LastFrame;
        std::vector<SPoint> m_Points; // frame coordinates, oldest first
    };

    STrail& TrailOf(unsigned long id);

    std::vector<STrail> m_Trails;
    long m_Frame = 0;
};
