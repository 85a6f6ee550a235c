#include "analytics/tracking/SectorGrid.h"

#include <algorithm>
#include <cmath>

const char* SZorSectorSettings::Problem() const {
    if (m_Columns < 1 || m_Rows < 1 || m_Columns * m_Rows > CZorSectorGrid::kMaxSectors) {
        return "columns and rows must be at least 1, with at most 256 sectors";
    }
    if (m_Step < 1 || m_Step > 64) {
        return "step must be 1 to 64";
    }
    if (!(m_PixelThreshold >= 0 && m_PixelThreshold <= 255)) {
        return "pixelThreshold must be 0 to 255";
    }
    if (!(m_ShortChangeThreshold > 0 && m_ShortChangeThreshold <= 100)) {
        return "shortChangeThreshold must be above 0, at most 100";
    }
    if (m_MinGroupLength < 0) {
        return "minGroupLength must not be negative";
    }
    if (!(m_LowerCutThreshold >= 0 && m_LowerCutThreshold <= 100) ||
        !(m_HigherCutThreshold >= 0 && m_HigherCutThreshold <= 100)) {
        return "the cut thresholds must be 0 to 100";
    }
    if (m_WarmUp < 1 || m_WarmUp > 15) {
        return "warmUp must be 1 to 15";
    }
    if (m_ReferenceFrames < 1 || m_ReferenceFrames > 100000) {
        return "referenceFrames must be 1 to 100000";
    }
    if (!(m_GlobalShare > 0 && m_GlobalShare <= 1)) {
        return "globalShare must be above 0, at most 1";
    }
    return "";
}

CZorSectorGrid::CZorSectorGrid(const SZorSectorSettings& settings) {
    for (int i = 0; i < 256; ++i) {
        m_ValueTable[i] = i;
    }
    if (*settings.Problem() == '\0') {
        m_Settings = settings;
    }
}

bool CZorSectorGrid::Configure(const SZorSectorSettings& settings) {
    if (*settings.Problem() != '\0') {
        return false;
    }
    m_Settings = settings;
    Reset();
    return true;
}

void CZorSectorGrid::Reset() {
    m_Sectors.clear();
    m_Width = 0;
    m_Height = 0;
    m_Changed = 0;
    m_Highest = 0;
    m_Scope = 0;
}

void CZorSectorGrid::Build(int width, int height) {
    const int step = m_Settings.m_Step;
    m_Width = width;
    m_Height = height;
    m_SampledWidth = (width + step - 1) / step;
    m_SampledHeight = (height + step - 1) / step;
    const auto samples = static_cast<std::size_t>(m_SampledWidth) * m_SampledHeight;
    m_Previous.assign(samples, 0);
    m_Current.assign(samples, 0);
    m_Reference.assign(samples, 0);
    m_ReferenceBytes.assign(samples, 0);
    // A picture smaller than the grid gets one sector per sampled pixel at most.
    const int sectors = std::min(m_Settings.m_Columns, m_SampledWidth) *
                        std::min(m_Settings.m_Rows, m_SampledHeight);
    m_Sectors.clear();
    for (int i = 0; i < sectors; ++i) {
        m_Sectors.emplace_back(m_Settings.m_ShortChangeThreshold, m_Settings.m_MinGroupLength,
                               m_Settings.m_LowerCutThreshold, m_Settings.m_HigherCutThreshold,
                               m_Settings.m_PixelThreshold, m_ValueTable);
    }
}

void CZorSectorGrid::SectorRect(int sector, int* left, int* top, int* right, int* bottom) const {
    const int columns = std::min(m_Settings.m_Columns, m_SampledWidth);
    const int rows = std::min(m_Settings.m_Rows, m_SampledHeight);
    if (sector < 0 || sector >= SectorCount() || columns == 0) {
        *left = *top = *right = *bottom = 0;
        return;
    }
    const int c = sector % columns;
    const int r = sector / columns;
    const int step = m_Settings.m_Step;
    *left = c * m_SampledWidth / columns * step;
    *right = std::min((c + 1) * m_SampledWidth / columns * step, m_Width);
    *top = r * m_SampledHeight / rows * step;
    *bottom = std::min((r + 1) * m_SampledHeight / rows * step, m_Height);
}

bool CZorSectorGrid::Process(const SBeluiBitmap& luma) {
    if (luma.IsEmpty()) {
        return false;
    }
    const bool fresh = m_Sectors.empty() || luma.m_Width != m_Width || luma.m_Height != m_Height;
    if (fresh) {
        Build(luma.m_Width, luma.m_Height);
    }
    const int step = m_Settings.m_Step;
    const int sw = m_SampledWidth;
    const int sh = m_SampledHeight;
    for (int y = 0; y < sh; ++y) {
        const std::uint8_t* row = luma.Row(y * step);
        std::uint8_t* out = &m_Current[static_cast<std::size_t>(y) * sw];
        for (int x = 0; x < sw; ++x) {
            out[x] = row[x * step];
        }
    }
    if (fresh) {
        m_Previous = m_Current;
        for (std::size_t i = 0; i < m_Current.size(); ++i) {
            m_Reference[i] = static_cast<std::uint16_t>(m_Current[i] << 8);
        }
    }
    for (std::size_t i = 0; i < m_Reference.size(); ++i) {
        m_ReferenceBytes[i] = static_cast<std::uint8_t>((m_Reference[i] + 128) >> 8);
    }
    const int columns = std::min(m_Settings.m_Columns, sw);
    const int rows = std::min(m_Settings.m_Rows, sh);
    m_Changed = 0;
    m_Highest = 0;
    for (int r = 0; r < rows; ++r) {
        const int y0 = r * sh / rows;
        const int y1 = (r + 1) * sh / rows;
        for (int c = 0; c < columns; ++c) {
            const int x0 = c * sw / columns;
            const int n = (c + 1) * sw / columns - x0;
            CZorFrameSector& sector = m_Sectors[static_cast<std::size_t>(r) * columns + c];
            sector.ResetSDiff();
            sector.ResetLDiff();
            for (int y = y0; y < y1; ++y) {
                const std::size_t at = static_cast<std::size_t>(y) * sw + x0;
                sector.CalcDiffIncrPixelCountRow(&m_Current[at], &m_Previous[at], n, 1, 1, 1);
                sector.CalcDiffIncrPixelCountRow(&m_Current[at], &m_ReferenceBytes[at], n, 1, 1, 0);
            }
            const int sampled = n * (y1 - y0);
            sector.CalcDiffIncrPixelCount(sampled, 1, 1);
            sector.CalcDiffIncrPixelCount(sampled, 1, 0);
            // The history: a new entry 0 each frame, so entry warmUp - 1 turns from "none yet"
            // (-1) to 0 once warmUp frames have been graded.
            for (int i = CZorFrameSector::kHistorySize - 1; i > 0; --i) {
                sector.ShiftLongChangeValueFrom(i - 1, i);
            }
            sector.ResetLongChange();
            const int level = sector.CalculateSFTagWithIndex(m_Settings.m_WarmUp);
            m_Changed += level >= 4 && level <= 8;
            m_Highest = std::max(m_Highest, level);
        }
    }
    const int total = SectorCount();
    m_Scope = m_Changed == 0                                                               ? 0
              : m_Changed >= static_cast<int>(std::ceil(m_Settings.m_GlobalShare * total)) ? 2
                                                                                           : 1;
    // Learn: the previous picture is this one; the reference moves 1/referenceFrames of the way.
    m_Previous.swap(m_Current);
    const int frames = m_Settings.m_ReferenceFrames;
    for (std::size_t i = 0; i < m_Reference.size(); ++i) {
        const int target = m_Previous[i] << 8;
        m_Reference[i] =
            static_cast<std::uint16_t>(m_Reference[i] + (target - m_Reference[i]) / frames);
    }
    ++m_Frames;
    return true;
}

int CZorSectorGrid::Level(int sector) const {
    return sector >= 0 && sector < SectorCount()
               ? m_Sectors[static_cast<std::size_t>(sector)].GetChangeLevel()
               : 0;
}

float CZorSectorGrid::ShortShare(int sector) const {
    return sector >= 0 && sector < SectorCount()
               ? m_Sectors[static_cast<std::size_t>(sector)].GetSDiff()
               : 0.0f;
}

float CZorSectorGrid::LongShare(int sector) const {
    return sector >= 0 && sector < SectorCount()
               ? m_Sectors[static_cast<std::size_t>(sector)].GetLDiff()
               : 0.0f;
}
