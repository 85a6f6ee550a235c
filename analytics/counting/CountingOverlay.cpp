#include "analytics/counting/CountingOverlay.h"

#include "framework/kor/LeftObjectDetectionMD.h"
#include "framework/kor/Packet.h"
#include "framework/kor/PeopleCountingMD.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace {

constexpr SZorColour kLine{255, 224, 0};
constexpr SZorColour kLeftObject{255, 32, 32};
constexpr SZorColour kCaptionBackground{0, 0, 0};
constexpr SZorColour kCaptionText{255, 255, 255};

int Scaled(long value, double scale) {
    return static_cast<int>(std::lround(static_cast<double>(value) * scale));
}

} // namespace

CZorCountingOverlay::STrail& CZorCountingOverlay::TrailOf(unsigned long id) {
    for (STrail& trail : m_Trails) {
        if (trail.m_Id == id) {
            return trail;
        }
    }
    m_Trails.push_back(STrail{id, m_Frame, {}});
    return m_Trails.back();
}

void CZorCountingOverlay::Observe(const CKorPacket& frame) {
    ++m_Frame;
    if (const CKorPeopleCountingMD* md = CKorPeopleCountingMD::Find(frame.GetMetadataHandler())) {
        for (int i = 0; i < md->GetTargetCount(); ++i) {
            const SKorCountingTarget& t = md->GetTarget(i);
            STrail& trail = TrailOf(t.m_Id);
            trail.m_LastFrame = m_Frame;
            trail.m_Points.push_back(
                SPoint{(t.m_Left + t.m_Right) / 2, (t.m_Top + t.m_Bottom) / 2});
            if (trail.m_Points.size() > kTrail) {
                trail.m_Points.erase(trail.m_Points.begin());
            }
        }
    }
    std::erase_if(m_Trails, [this](const STrail& t) { return m_Frame - t.m_LastFrame > kForget; });
}

void CZorCountingOverlay::Draw(const CKorPacket& frame, const SZorRgbImage& image, double sx,
                               double sy, int unit, int captionTop) const {
    CKorMetadataHandler* chain = frame.GetMetadataHandler();
    if (const CKorPeopleCountingMD* md = CKorPeopleCountingMD::Find(chain)) {
        const long* c = md->GetGeometryCoordinates();
        if (md->GetGeometry() == CKorPeopleCountingMD::GEOMETRY_LINE) {
            ZorDrawLine(image, Scaled(c[0], sx), Scaled(c[1], sy), Scaled(c[2], sx),
                        Scaled(c[3], sy), kLine, 2 * unit);
        } else if (md->GetGeometry() == CKorPeopleCountingMD::GEOMETRY_ZONE) {
            ZorDrawBox(image, Scaled(c[0], sx), Scaled(c[1], sy), Scaled(c[2], sx),
                       Scaled(c[3], sy), kLine, 2 * unit);
        }
        for (const STrail& trail : m_Trails) {
            const SZorColour colour = ZorBoxColour(static_cast<std::uint32_t>(trail.m_Id));
            for (std::size_t p = 1; p < trail.m_Points.size(); ++p) {
                ZorDrawLine(image, Scaled(trail.m_Points[p - 1].m_X, sx),
                            Scaled(trail.m_Points[p - 1].m_Y, sy),
                            Scaled(trail.m_Points[p].m_X, sx), Scaled(trail.m_Points[p].m_Y, sy),
                            colour, unit);
            }
        }
        for (int i = 0; i < md->GetTargetCount(); ++i) {
            const SKorCountingTarget& t = md->GetTarget(i);
            const SZorColour colour = ZorBoxColour(static_cast<std::uint32_t>(t.m_Id));
            const int left = Scaled(t.m_Left, sx);
            const int top = Scaled(t.m_Top, sy);
            ZorDrawBox(image, left, top, Scaled(t.m_Right, sx), Scaled(t.m_Bottom, sy), colour,
                       unit);
            ZorDrawText(image, left, top - ZorTextHeight(unit) - unit, std::to_string(t.m_Id),
                        colour, unit);
        }
        const std::string counts = "in " + std::to_string(md->GetTotalEntries()) + " out " +
                                   std::to_string(md->GetTotalExits());
        ZorFillRect(image, 0, captionTop, ZorTextWidth(counts, unit) + 4 * unit,
                    captionTop + ZorTextHeight(unit) + 4 * unit, kCaptionBackground);
        ZorDrawText(image, 2 * unit, captionTop + 2 * unit, counts, kCaptionText, unit);
    }
    if (const CKorLeftObjectDetectionMD* md = CKorLeftObjectDetectionMD::Find(chain)) {
        for (int i = 0; i < md->GetBoxCount(); ++i) {
            const CKorLeftObjectDetectionMD::STarget& t = md->GetTarget(i);
            const int left = Scaled(t.m_Left, sx);
            const int bottom = Scaled(t.m_Bottom, sy);
            ZorDrawBox(image, left, Scaled(t.m_Top, sy), Scaled(t.m_Right, sx), bottom, kLeftObject,
                       2 * unit);
            ZorDrawText(image, left, bottom + unit, std::to_string(t.m_StillTime / 10) + "s",
                        kLeftObject, unit);
        }
    }
}
