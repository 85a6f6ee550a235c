#include "analytics/counting/core/LeftObjectDetector.h"

#include <algorithm>

namespace zor::counting {

namespace {

// A track that ended must have been seen standing this long to be held: one that was walking
// when it vanished has left, not faded into the background.
constexpr long kStoodBeforeLost = 200;
// Held targets kept at most; beyond, the oldest go.
constexpr std::size_t kMaxHeld = 256;
// A held target's spot counts as covered when foreground covers this share of it.
constexpr double kCovered = 0.6;

} // namespace

CLeftObjectDetector::CLeftObjectDetector(const SLeftObjectConfig& config) : m_Config(config) {}

void CLeftObjectDetector::Reset() {
    m_Started = false;
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
    if (!m_Started) {
        m_Started = true;
        m_Start = time;
    }
    const auto warm = [this](const STrack& t) {
        return m_Config.m_WarmUp <= 0 || t.m_Born >= m_Start + m_Config.m_WarmUp;
    };
    for (const STrack& t : ended) {
        m_Seen.erase(t.m_Id);
        if (m_Ghosts.erase(t.m_Id) > 0 || t.m_Duplicate || t.m_AtBorder ||
            m_Config.m_HoldTime <= 0) {
            continue;
        }
        const bool stood = t.m_LastSeen - t.m_StillSince >= kStoodBeforeLost &&
                           t.StillFor(time) >= m_Config.m_MinStill && warm(t);
        if (stood && InZone(t.m_StillBox)) {
            m_Held.push_back(
                SLeftTarget{t.m_Id, t.m_StillBox, TypeOf(t), t.m_StillSince, true, time, -1});
        }
    }
    std::erase_if(m_Held, [&](const SLeftTarget& h) {
        return m_Config.m_HoldTime <= 0 || time - h.m_HeldSince > m_Config.m_HoldTime;
    });
    if (m_Held.size() > kMaxHeld) {
        m_Held.erase(m_Held.begin(), m_Held.end() - static_cast<long>(kMaxHeld));
    }

    for (const STrack& t : tracks) {
        if (!m_Seen.insert(t.m_Id).second) {
            continue;
        }
        if (t.m_ParentId != 0 && t.m_ParentStop > m_Config.m_LongStop) {
            m_Ghosts.insert(t.m_Id);
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

    // Foreground that stays on a held target's spot is what its leaving left behind (the old
    // picture still in the background), or the spot no longer shows what was held: either way it
    // has gone. Passers-by cover it only for a moment.
    std::erase_if(m_Held, [&](SLeftTarget& h) {
        long covered = 0;
        for (const STrack& t : tracks) {
            if (t.m_State == ETrackState::Tracked || t.m_State == ETrackState::Tentative) {
                covered += Intersection(t.m_Box, h.m_Box).Area();
            }
        }
        if (static_cast<double>(covered) < kCovered * static_cast<double>(h.m_Box.Area())) {
            h.m_CoveredSince = -1;
            return false;
        }
        if (h.m_CoveredSince < 0) {
            h.m_CoveredSince = time;
        }
        return time - h.m_CoveredSince >= m_Config.m_ClearAfter;
    });

    m_Targets.clear();
    for (const STrack& t : tracks) {
        if (!t.m_Confirmed || !warm(t) || m_Ghosts.count(t.m_Id) != 0 ||
            t.StillFor(time) < m_Config.m_MinStill || !InZone(t.m_Box)) {
            continue;
        }
        m_Targets.push_back(SLeftTarget{t.m_Id, t.m_Box, TypeOf(t), t.m_StillSince, false, 0, -1});
    }
    m_Targets.insert(m_Targets.end(), m_Held.begin(), m_Held.end());
    return m_Targets;
}

} // namespace zor::counting
