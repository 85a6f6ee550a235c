#include "analytics/counting/core/LineCounter.h"

#include <algorithm>
#include <cmath>

namespace zor::counting {

CLineCounter::CLineCounter(const SCounterConfig& config) : m_Config(config) {}

bool CLineCounter::SetLine(double x1, double y1, double x2, double y2) {
    return Place(LINE, {x1, y1, x2, y2}, std::hypot(x2 - x1, y2 - y1) >= 1.0);
}

bool CLineCounter::SetZone(double left, double top, double right, double bottom) {
    return Place(ZONE, {left, top, right, bottom}, right - left >= 1.0 && bottom - top >= 1.0);
}

bool CLineCounter::Place(EGeometry geometry, const std::array<double, 4>& coordinates,
                         bool bigEnough) {
    if (!bigEnough || !std::all_of(coordinates.begin(), coordinates.end(),
                                   [](double c) { return std::isfinite(c); })) {
        return false;
    }
    m_Geometry = geometry;
    std::copy(coordinates.begin(), coordinates.end(), m_Coordinates);
    Reset();
    return true;
}

bool CLineCounter::Reaches(int width, int height) const {
    const double* c = m_Coordinates;
    if (m_Geometry == ZONE) {
        return c[0] < width && c[2] > 0 && c[1] < height && c[3] > 0;
    }
    if (m_Geometry != LINE) {
        return false;
    }
    // Clip the segment to the frame (Liang-Barsky): it reaches in when something is left.
    double t0 = 0.0;
    double t1 = 1.0;
    const double dx = c[2] - c[0];
    const double dy = c[3] - c[1];
    const double p[4] = {-dx, dx, -dy, dy};
    const double q[4] = {c[0], width - c[0], c[1], height - c[1]};
    for (int i = 0; i < 4; ++i) {
        if (p[i] == 0.0) {
            if (q[i] < 0.0) {
                return false;
            }
            continue;
        }
        const double r = q[i] / p[i];
        if (p[i] < 0.0) {
            t0 = std::max(t0, r);
        } else {
            t1 = std::min(t1, r);
        }
    }
    return t0 <= t1;
}

void CLineCounter::Reset() {
    m_States.clear();
    m_Lost.clear();
    m_Entries = 0;
    m_Exits = 0;
    m_Occupancy = 0;
}

long CLineCounter::Occupancy() const {
    if (m_Geometry != ZONE) {
        return m_Occupancy;
    }
    long inside = 0;
    for (const auto& [id, state] : m_States) {
        inside += state.m_Side > 0 ? 1 : 0;
    }
    return inside;
}

int CLineCounter::SideOf(unsigned long trackId) const {
    auto found = m_States.find(trackId);
    return found == m_States.end() ? 0 : found->second.m_Side;
}

void CLineCounter::ReferencePoint(const STrack& track, double* x, double* y) const {
    *x = track.m_X;
    *y = m_Config.m_Feet ? track.m_Y + 0.5 * track.m_Height : track.m_Y;
}

int CLineCounter::Classify(const STrack& track, double x, double y, double widen) const {
    const double* c = m_Coordinates;
    const double band =
        widen *
        std::max(m_Config.m_Band, m_Config.m_BandShare * std::min(track.m_Width, track.m_Height));
    if (m_Geometry == ZONE) {
        const double shrink =
            std::min({band, 0.5 * (c[2] - c[0]) - 0.5, 0.5 * (c[3] - c[1]) - 0.5});
        if (x > c[0] + shrink && x < c[2] - shrink && y > c[1] + shrink && y < c[3] - shrink) {
            return 1;
        }
        if (x < c[0] - band || x > c[2] + band || y < c[1] - band || y > c[3] + band) {
            return -1;
        }
        return 0;
    }
    const double dx = c[2] - c[0];
    const double dy = c[3] - c[1];
    // Positive on the right of the direction of travel along the line (y runs down the image).
    const double distance = (dx * (y - c[1]) - dy * (x - c[0])) / std::hypot(dx, dy);
    if (distance > band) {
        return 1;
    }
    if (distance < -band) {
        return -1;
    }
    return 0;
}

int CLineCounter::NormalSpeedSign(const STrack& t) const {
    if (m_Geometry != LINE) {
        return 0;
    }
    const double* c = m_Coordinates;
    const double normal = (c[2] - c[0]) * t.m_VY - (c[3] - c[1]) * t.m_VX;
    return normal > 0 ? 1 : (normal < 0 ? -1 : 0);
}

bool CLineCounter::CrossesSegment(const STrack& track, double x0, double y0, double x1,
                                  double y1) const {
    const double* c = m_Coordinates;
    const double dx = c[2] - c[0];
    const double dy = c[3] - c[1];
    const double length = std::hypot(dx, dy);
    const double d0 = dx * (y0 - c[1]) - dy * (x0 - c[0]);
    const double d1 = dx * (y1 - c[1]) - dy * (x1 - c[0]);
    if (d0 == d1) {
        return false;
    }
    const double t = d0 / (d0 - d1);
    const double ix = x0 + t * (x1 - x0);
    const double iy = y0 + t * (y1 - y0);
    const double along = ((ix - c[0]) * dx + (iy - c[1]) * dy) / length;
    const double margin = 0.5 * track.m_Width;
    return along >= -margin && along <= length + margin;
}

void CLineCounter::RememberLost(long time, const std::vector<STrack>& ended) {
    std::erase_if(m_Lost,
                  [&](const SLost& lost) { return time - lost.m_Time > m_Config.m_LostMemory; });
    for (const STrack& t : ended) {
        auto found = m_States.find(t.m_Id);
        if (found == m_States.end()) {
            continue;
        }
        // Where it stood: a box fading away shrinks towards its feet.
        STrack stood = t;
        stood.m_X = t.m_StillX;
        stood.m_Y = t.m_StillY;
        double x = 0;
        double y = 0;
        ReferencePoint(stood, &x, &y);
        // Near the line rather than strictly in the band: where it stood is known only roughly.
        if (m_Geometry == LINE && found->second.m_Side != 0 && !t.m_Duplicate &&
            Classify(t, x, y, 2.0) == 0) {
            m_Lost.push_back(SLost{Grown(Union(t.m_Box, t.m_StillBox), 4), found->second, time});
        }
        m_States.erase(found);
    }
}

CLineCounter::SState CLineCounter::StartState(const STrack& t) const {
    SState state;
    const double bornY = m_Config.m_Feet ? t.m_BornY + 0.5 * t.m_Height : t.m_BornY;
    state.m_Side = Classify(t, t.m_BornX, bornY);
    state.m_X = t.m_BornX;
    state.m_Y = bornY;
    // A track that split off another was part of it: born in the band, it comes from its
    // parent's side; born past the line from its parent and walking on away from it, it left a
    // group that stood or walked on the other side (one walking towards the parent's side is the
    // rear of a group that has not crossed yet).
    if (t.m_ParentId != 0) {
        auto parent = m_States.find(t.m_ParentId);
        if (parent != m_States.end() && parent->second.m_Side != 0 &&
            (state.m_Side == 0 ||
             (state.m_Side != parent->second.m_Side && NormalSpeedSign(t) == state.m_Side))) {
            return parent->second;
        }
    }
    // Born where a track was lost standing on the line: the same walker, back after fading into
    // the background - unless it heads back the way that one came.
    for (auto lost = m_Lost.rbegin(); lost != m_Lost.rend(); ++lost) {
        const SBox& b = lost->m_Box;
        if (t.m_BornX >= b.m_Left && t.m_BornX < b.m_Right && t.m_BornY >= b.m_Top &&
            t.m_BornY < b.m_Bottom &&
            (state.m_Side == 0 || (state.m_Side != lost->m_State.m_Side &&
                                   NormalSpeedSign(t) != lost->m_State.m_Side))) {
            return lost->m_State;
        }
    }
    return state;
}

void CLineCounter::Update(long time, const std::vector<STrack>& tracks,
                          const std::vector<STrack>& ended, std::vector<SCrossing>& crossings) {
    RememberLost(time, ended);
    if (m_Geometry == NONE) {
        return;
    }
    for (const STrack& t : tracks) {
        if (!t.m_Confirmed || t.m_State == ETrackState::Coasting) {
            continue;
        }
        double x = 0;
        double y = 0;
        ReferencePoint(t, &x, &y);
        const int side = Classify(t, x, y);
        auto found = m_States.find(t.m_Id);
        if (found == m_States.end()) {
            // First confirmed sight: start from where the track came from, so that a crossing
            // made while it was still being confirmed counts.
            found = m_States.emplace(t.m_Id, StartState(t)).first;
        }
        SState& state = found->second;
        // A track standing still keeps its side: its box shrinking as it fades into the
        // background moves its centre, not the one standing there.
        if (side == 0 || !t.m_Moving) {
            continue;
        }
        if (state.m_Side != 0 && side != state.m_Side &&
            (m_Geometry == ZONE || CrossesSegment(t, state.m_X, state.m_Y, x, y))) {
            const int direction = side > 0 ? 1 : -1;
            crossings.push_back(SCrossing{t.m_Id, direction, time});
            if (direction > 0) {
                ++m_Entries;
                ++m_Occupancy;
            } else {
                ++m_Exits;
                m_Occupancy = std::max(0L, m_Occupancy - 1);
            }
        }
        state.m_Side = side;
        state.m_X = x;
        state.m_Y = y;
    }
}

} // namespace zor::counting
