// A grid of frame sectors over a picture's luma: each frame, every sector grades how its pixels
// changed since the previous frame (short term) and against a slowly learned reference picture
// (long term), and gets a change level (FrameSector.h). Sudden changes in most sectors at once
// are a global event (lights switched, the camera covered or moved); in a few, a local one.
//
// Both accumulators count changed pixels: a sampled pixel changed when its grey level differs by
// more than the pixel threshold; normalised, each is the percentage of the sector's sampled
// pixels that changed. The reference picture follows the frames with weight 1/referenceFrames,
// so a change that stays is learned within a few times that many frames.
//
// The levels after warm-up:
//   2      calm: like the reference, no sudden change
//   3      steady but unlike the reference (something changed and stayed, or no reference)
//   4..7   a sudden change that also departs from the reference, graded 1..4 by its size in
//          steps of the short-change threshold (7: four steps or more)
//   8      a sudden change while the sector still matches its reference (a flicker, a fast
//          passer-by)
//   10, 12 warming up (no history yet), without and with activity
#pragma once

#include "analytics/image/BeluiBitmap.h"
#include "analytics/tracking/FrameSector.h"

#include <cstdint>
#include <vector>

struct SZorSectorSettings {
    int m_Columns = 4;
    int m_Rows = 4;
    // Every m_Step-th pixel of every m_Step-th row is compared.
    int m_Step = 2;
    // Grey levels a pixel must change by to count.
    float m_PixelThreshold = 16.0f;
    // A jump of the short-term share by this many percentage points is a sudden change.
    float m_ShortChangeThreshold = 5.0f;
    // Frames a run must last before a new sudden change can start one. A sector whose picture
    // does not change at all never lengthens its run, so above 0 a perfectly still sector
    // cannot report the change that ends its stillness: 0 by default.
    int m_MinGroupLength = 0;
    // Short-term share (%) from which a sector counts as active.
    float m_LowerCutThreshold = 2.0f;
    // Long-term share (%) from which a sector counts as unlike its reference.
    float m_HigherCutThreshold = 5.0f;
    // Frames before the levels leave warm-up (1..15).
    int m_WarmUp = 15;
    // The reference picture's time constant, in frames.
    int m_ReferenceFrames = 50;
    // Share of sectors with a sudden change from which a frame's change is global.
    double m_GlobalShare = 0.75;

    // Answers an empty string when the settings are usable, else what is wrong.
    const char* Problem() const;
};

class CZorSectorGrid {
public:
    static constexpr int kMaxSectors = 256;

    explicit CZorSectorGrid(const SZorSectorSettings& settings = SZorSectorSettings());
    // Applies new settings (checked first: answers false and keeps the old ones when unusable);
    // the grid starts again with the next frame.
    bool Configure(const SZorSectorSettings& settings);
    const SZorSectorSettings& Settings() const { return m_Settings; }

    // Grades one picture. A picture of another size than the last starts again (warm-up, and
    // the picture becomes the reference). Answers false for an empty picture.
    bool Process(const SBeluiBitmap& luma);
    void Reset();

    int SectorCount() const { return static_cast<int>(m_Sectors.size()); }
    int Level(int sector) const;
    float ShortShare(int sector) const;
    float LongShare(int sector) const;
    // Sectors with a sudden change (levels 4 to 8) in the last picture.
    int ChangedCount() const { return m_Changed; }
    int HighestLevel() const { return m_Highest; }
    // The last picture's change: 0 none, 1 local, 2 global.
    int Scope() const { return m_Scope; }
    long FramesProcessed() const { return m_Frames; }
    // The pixel rectangle of a sector (right and bottom exclusive).
    void SectorRect(int sector, int* left, int* top, int* right, int* bottom) const;

private:
    void Build(int width, int height);

    SZorSectorSettings m_Settings;
    int m_ValueTable[256];
    std::vector<CZorFrameSector> m_Sectors;
    std::vector<std::uint8_t> m_Previous;   // the last picture's sampled pixels
    std::vector<std::uint16_t> m_Reference; // the reference's sampled pixels, 8.8 fixed point
    std::vector<std::uint8_t> m_Current;    // this picture's sampled pixels
    std::vector<std::uint8_t> m_ReferenceBytes;
    int m_Width = 0;
    int m_Height = 0;
    int m_SampledWidth = 0;
    int m_SampledHeight = 0;
    int m_Changed = 0;
    int m_Highest = 0;
    int m_Scope = 0;
    long m_Frames = 0;
};
