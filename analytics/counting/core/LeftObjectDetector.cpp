#include "analytics/counting/core/LeftObjectDetector.h"

#include <algorithm>

namespace zor::counting {

namespace {

// A track that ended must have stood still this long before it was last seen to be held: one
// that was walking when it vanished has left, not faded into the background.
constexpr long kStillBeforeLost = 200;

} // namespace

CLeftObjectDetector::CLeftObjectDetector(const SLeftObjectConfig& config) : m_Config(config) {}

void CLeftObjectDetector::Reset() {
    m_Held.clear();
    m_Targets.clear();
    m_Seen.clear();
    m_Ghosts.clear();
}

bool CLeftObjectDetector::InZone(const SBox& box) const {
    if (!m_Config.m_HasZone) {
        return true;
    }
    const SBox& z = m_Config.m_Zone;
    const double x = box.CentreX();
    const double y = box.CentreY();
    return x >= z.m_Left && x < z.m_Right && y >= z.m_Top && y < z.m_Bottom;
}

int CLeftObjectDetector::TypeOf(const STrack& track) {
    if (!track.m_Moved || track.m_LastSplit >= track.m_StillSince) {
        return SLeftTarget::OBJECT;
    }
    return SLeftTarget::STOPPED;
}

const std::vector<SLeftTarget>& CLeftObjectDetector::Update(long time,
                                                            const std::vector<STrack>& tracks,
                                                            const std::vector<STrack>& ended) {
    for (const STrack& t : ended) {
        m_Seen.erase(t.m_Id);
        if (m_Ghosts.erase(t.m_Id) > 0 || t.m_Duplicate || t.m_AtBorder ||
            m_Config.m_HoldTime <= 0) {
            continue;
        }
        const bool stood = t.m_LastSeen - t.m_StillSince >= kStillBeforeLost &&
                           t.StillFor(time) >= m_Config.m_MinStill;
        if (stood && InZone(t.m_StillBox)) {
            m_Held.push_back(
                SLeftTarget{t.m_Id, t.m_StillBox, TypeOf(t), t.m_StillSince, true, time});
        }
    }
    std::erase_if(m_Held, [&](const SLeftTarget& h) {
        return m_Config.m_HoldTime <= 0 || time - h.m_HeldSince > m_Config.m_HoldTime;
    });

    for (const STrack& t : tracks) {
        if (!m_Seen.insert(t.m_Id).second) {
            continue;
        }
        // Something new on the spot of a held target: what was absorbed there has gone.
        const std::size_t before = m_Held.size();
        std::erase_if(m_Held, [&](const SLeftTarget& h) {
            return Containment(t.m_Box, h.m_Box) >= m_Config.m_GhostOverlap;
        });
        if (m_Held.size() != before) {
            m_Ghosts.insert(t.m_Id);
        }
    }

    m_Targets.clear();
    for (const STrack& t : tracks) {
        if (!t.m_Confirmed || m_Ghosts.count(t.m_Id) != 0 ||
            t.StillFor(time) < m_Config.m_MinStill || !InZone(t.m_Box)) {
            continue;
        }
        m_Targets.push_back(SLeftTarget{t.m_Id, t.m_Box, TypeOf(t), t.m_StillSince, false, 0});
    }
    m_Targets.insert(m_Targets.end(), m_Held.begin(), m_Held.end());
    return m_Targets;
}

} // namespace zor::counting
