#include "analytics/counting/core/BoxTracker.h"

#include <algorithm>
#include <cmath>

namespace zor::counting {

namespace {

// Position and velocity gains of the alpha-beta filter: blob centres jitter by a few pixels, so
// the position follows the box closely and the velocity only slowly.
constexpr double kAlpha = 0.65;
constexpr double kBeta = 0.2;
constexpr double kSizeGain = 0.3;
constexpr double kMaxSpeed = 2.0; // px/ms: faster than anything a camera over a path sees
// A prediction mostly inside another track's, moving alike, is the same thing seen twice (walkers
// who pass each other overlap as much, but move apart).
constexpr double kDuplicateContainment = 0.8;
constexpr double kDuplicateSpeed = 0.03; // px/ms
constexpr long kStoodBeforeLost = 200;   // ms
// Boxes a frame taken at all: far more than a picture's 4 x 4 blocks at 1080p.
constexpr std::size_t kMaxInput = 200000;
// Boxes smaller than this share of a confirmed track's size never stand for it alone.
constexpr double kSpeckShare = 0.2;
// A track must stay away from where it stood this long before it has moved.
constexpr long kMoveConfirm = 120; // ms
// A box within this many pixels of the last one and no larger has stayed or shrunk in place.
constexpr int kShrinkSlack = 2;
// Boxes this close to the picture's edge are cut by it.
constexpr int kBorder = 2;
// A stop long enough to put something down.
constexpr long kNotableStop = 300; // ms
constexpr long kRecentStop = 3000; // ms
// What splits off a track is an object it put down, not a second person, when it is this small.
constexpr double kObjectShare = 0.6;
// A track is held in a shared box when the box covers this much of its prediction.
constexpr double kMergeContainment = 0.6;

SBox BoxAround(double x, double y, double width, double height) {
    const double halfW = 0.5 * width;
    const double halfH = 0.5 * height;
    return SBox{static_cast<int>(std::lround(x - halfW)), static_cast<int>(std::lround(y - halfH)),
                static_cast<int>(std::lround(x + halfW)), static_cast<int>(std::lround(y + halfH))};
}

double Clamp(double value, double low, double high) {
    return low > high ? 0.5 * (low + high) : std::clamp(value, low, high);
}

// Fragments of one upright thing come stacked: they share most of their width and leave a small
// gap between them.
bool Stacked(const SBox& a, const SBox& b) {
    const int shared = std::min(a.m_Right, b.m_Right) - std::max(a.m_Left, b.m_Left);
    const int narrower = std::min(a.Width(), b.Width());
    if (narrower <= 0 || shared * 2 < narrower) {
        return false;
    }
    const int gap = std::max(a.m_Top, b.m_Top) - std::min(a.m_Bottom, b.m_Bottom);
    return gap <= std::max(a.Height(), b.Height()) / 2;
}

} // namespace

CBoxTracker::CBoxTracker(const STrackerConfig& config) : m_Config(config) {}

void CBoxTracker::Reset() {
    m_Tracks.clear();
    m_Ended.clear();
    m_HasTime = false;
}

const std::vector<STrack>& CBoxTracker::Update(long time, const SBox* boxes, std::size_t count) {
    m_Ended.clear();
    if (m_HasTime && time < m_LastTime) {
        Reset();
    }
    m_Dt = m_HasTime ? time - m_LastTime : 0;
    m_Now = time;
    m_HasTime = true;
    m_LastTime = time;

    // Blocks and pieces of one thing become one box; specks go; an absurd number of boxes is cut
    // down, before grouping to what a picture can hold, after it to the largest.
    const std::size_t input = std::min(boxes ? count : 0, kMaxInput);
    m_Dropped = (boxes ? count : 0) - input;
    if (m_Config.m_JoinGap >= 0) {
        m_Grouping.Group(boxes, input, m_Config.m_JoinGap, m_Grouped);
    } else {
        m_Grouped.assign(boxes, boxes + input);
    }
    m_Boxes.clear();
    for (const SBox& box : m_Grouped) {
        if (!box.IsEmpty() && box.Area() >= m_Config.m_MinArea) {
            m_Boxes.push_back(box);
        }
    }
    const std::size_t limit = std::max<std::size_t>(m_Config.m_MaxBoxes, 1);
    if (m_Boxes.size() > limit) {
        m_Dropped += m_Boxes.size() - limit;
        std::nth_element(m_Boxes.begin(), m_Boxes.begin() + static_cast<long>(limit) - 1,
                         m_Boxes.end(),
                         [](const SBox& a, const SBox& b) { return a.Area() > b.Area(); });
        m_Boxes.resize(limit);
    }

    Predict();
    m_BoxOwner.assign(m_Boxes.size(), -1);
    m_TrackBox.assign(m_Tracks.size(), -1);
    m_Observation.assign(m_Tracks.size(), SBox{});
    m_InMerge.assign(m_Tracks.size(), 0);

    FindMerges();
    Match();
    JoinFragments();
    for (std::size_t i = 0; i < m_Tracks.size(); ++i) {
        if (m_TrackBox[i] >= 0) {
            Observe(m_Tracks[i], m_Observation[i], time);
        }
    }
    Retire(time);
    StartTracks(time);
    return m_Tracks;
}

void CBoxTracker::Predict() {
    m_Predicted.resize(m_Tracks.size());
    m_Before.resize(m_Tracks.size());
    for (std::size_t i = 0; i < m_Tracks.size(); ++i) {
        STrack& t = m_Tracks[i];
        m_Before[i] = t.m_Box;
        t.m_X += t.m_VX * static_cast<double>(m_Dt);
        t.m_Y += t.m_VY * static_cast<double>(m_Dt);
        m_Predicted[i] = BoxAround(t.m_X, t.m_Y, t.m_Width, t.m_Height);
    }
}

bool CBoxTracker::Gates(std::size_t index, const SBox& box) const {
    const STrack& track = m_Tracks[index];
    const SBox& predicted = m_Predicted[index];
    if (Intersection(predicted, box).Area() > 0) {
        return true;
    }
    const double size = std::max(8.0, 0.5 * (track.m_Width + track.m_Height));
    const double dx = predicted.CentreX() - box.CentreX();
    const double dy = predicted.CentreY() - box.CentreY();
    // An unseen track may have drifted from its prediction: its reach grows while it coasts.
    const double reach = 0.75 * (1.0 + static_cast<double>(m_Now - track.m_LastSeen) /
                                           static_cast<double>(std::max(m_Config.m_MaxCoast, 1L)));
    return std::hypot(dx, dy) < reach * size;
}

double CBoxTracker::Score(std::size_t index, const SBox& box) const {
    const STrack& track = m_Tracks[index];
    const SBox& predicted = m_Predicted[index];
    const double size = std::max(8.0, 0.5 * (track.m_Width + track.m_Height));
    const double distance =
        std::hypot(predicted.CentreX() - box.CentreX(), predicted.CentreY() - box.CentreY()) / size;
    return IntersectionOverUnion(predicted, box) + 0.5 * std::max(0.0, 1.0 - distance) +
           (track.m_Confirmed ? 0.2 : 0.0);
}

void CBoxTracker::FindMerges() {
    std::vector<std::size_t> inside;
    for (std::size_t b = 0; b < m_Boxes.size(); ++b) {
        const SBox& box = m_Boxes[b];
        inside.clear();
        for (std::size_t i = 0; i < m_Tracks.size(); ++i) {
            const STrack& t = m_Tracks[i];
            if (!t.m_Confirmed || m_InMerge[i]) {
                continue;
            }
            const SBox& predicted = m_Predicted[i];
            const long area = predicted.Area();
            if (area > 0 && static_cast<double>(Intersection(predicted, box).Area()) >=
                                kMergeContainment * static_cast<double>(area)) {
                inside.push_back(i);
            }
        }
        if (inside.size() < 2) {
            continue;
        }
        // One thing followed twice (a fragment that got its own track): keep the older track.
        for (std::size_t a = 0; a < inside.size(); ++a) {
            for (std::size_t c = a + 1; c < inside.size(); ++c) {
                const std::size_t i = inside[a];
                const std::size_t j = inside[c];
                const double speed = std::hypot(m_Tracks[i].m_VX - m_Tracks[j].m_VX,
                                                m_Tracks[i].m_VY - m_Tracks[j].m_VY);
                if (Containment(m_Predicted[i], m_Predicted[j]) >= kDuplicateContainment &&
                    speed < kDuplicateSpeed) {
                    const bool dropJ = m_Tracks[i].m_Hits >= m_Tracks[j].m_Hits;
                    STrack& dropped = m_Tracks[dropJ ? j : i];
                    dropped.m_Duplicate = true; // Retire ends it
                    dropped.m_Confirmed = false;
                }
            }
        }
        std::size_t kept = 0;
        for (std::size_t i : inside) {
            kept += m_Tracks[i].m_Duplicate ? 0 : 1;
        }
        if (kept < 2) {
            continue;
        }
        // Several established tracks in one box: they met. Each goes on by its own prediction.
        m_BoxOwner[b] = -2;
        for (std::size_t i : inside) {
            if (!m_Tracks[i].m_Duplicate) {
                m_InMerge[i] = 1;
                HoldInside(m_Tracks[i], box, m_Now);
            }
        }
    }
}

void CBoxTracker::Match() {
    m_Candidates.clear();
    for (std::size_t i = 0; i < m_Tracks.size(); ++i) {
        if (m_InMerge[i] || m_Tracks[i].m_Duplicate) {
            continue;
        }
        for (std::size_t b = 0; b < m_Boxes.size(); ++b) {
            // A speck beside an established track is noise, not all that is left of it.
            const bool speck = m_Tracks[i].m_Confirmed &&
                               static_cast<double>(m_Boxes[b].Area()) <
                                   kSpeckShare * m_Tracks[i].m_Width * m_Tracks[i].m_Height;
            if (m_BoxOwner[b] == -1 && !speck && Gates(i, m_Boxes[b])) {
                m_Candidates.push_back(SCandidate{Score(i, m_Boxes[b]), i, b});
            }
        }
    }
    std::sort(m_Candidates.begin(), m_Candidates.end(),
              [](const SCandidate& a, const SCandidate& b) {
                  if (a.m_Score != b.m_Score) {
                      return a.m_Score > b.m_Score;
                  }
                  return a.m_Track != b.m_Track ? a.m_Track < b.m_Track : a.m_Box < b.m_Box;
              });
    for (const SCandidate& c : m_Candidates) {
        if (m_TrackBox[c.m_Track] >= 0 || m_BoxOwner[c.m_Box] != -1) {
            continue;
        }
        m_TrackBox[c.m_Track] = static_cast<int>(c.m_Box);
        m_BoxOwner[c.m_Box] = static_cast<int>(c.m_Track);
        m_Observation[c.m_Track] = m_Boxes[c.m_Box];
    }
}

void CBoxTracker::JoinFragments() {
    for (std::size_t b = 0; b < m_Boxes.size(); ++b) {
        if (m_BoxOwner[b] != -1) {
            continue;
        }
        const SBox& box = m_Boxes[b];
        int best = -1;
        double bestScore = 0;
        for (std::size_t i = 0; i < m_Tracks.size(); ++i) {
            if (m_TrackBox[i] < 0) {
                continue;
            }
            const STrack& t = m_Tracks[i];
            const SBox joined = Union(m_Observation[i], box);
            // Young tracks may have been sized on a fragment: give them room to grow.
            const double slack = 1.0 + m_Config.m_FragmentSlack * (t.m_Hits < 5 ? 2.5 : 1.0);
            const double width = std::max(t.m_Width, static_cast<double>(m_Observation[i].Width()));
            const double height =
                std::max(t.m_Height, static_cast<double>(m_Observation[i].Height()));
            if (joined.Width() > width * slack + 4 || joined.Height() > height * slack + 4) {
                continue;
            }
            if (!Stacked(m_Observation[i], box) &&
                Intersection(Grown(m_Observation[i], 2), box).IsEmpty()) {
                continue;
            }
            const double score = Score(i, box);
            if (best < 0 || score > bestScore) {
                best = static_cast<int>(i);
                bestScore = score;
            }
        }
        if (best >= 0) {
            m_Observation[static_cast<std::size_t>(best)] =
                Union(m_Observation[static_cast<std::size_t>(best)], box);
            m_BoxOwner[b] = best;
        }
    }
}

void CBoxTracker::Observe(STrack& t, const SBox& box, long time) {
    const double cx = box.CentreX();
    const double cy = box.CentreY();
    if (t.m_Hits <= 0) {
        t.m_X = cx;
        t.m_Y = cy;
        t.m_Width = box.Width();
        t.m_Height = box.Height();
    } else {
        const double rx = cx - t.m_X;
        const double ry = cy - t.m_Y;
        t.m_X += kAlpha * rx;
        t.m_Y += kAlpha * ry;
        const double span = static_cast<double>(std::max(1L, time - t.m_LastSeen));
        t.m_VX = std::clamp(t.m_VX + kBeta * rx / span, -kMaxSpeed, kMaxSpeed);
        t.m_VY = std::clamp(t.m_VY + kBeta * ry / span, -kMaxSpeed, kMaxSpeed);
        t.m_Width += kSizeGain * (box.Width() - t.m_Width);
        t.m_Height += kSizeGain * (box.Height() - t.m_Height);
    }
    const SBox before = t.m_Box;
    t.m_Box = box;
    t.m_AtBorder = AtBorder(box);
    t.m_LastSeen = time;
    ++t.m_Hits;
    if (t.m_Hits >= m_Config.m_ConfirmHits) {
        t.m_Confirmed = true;
    }
    t.m_State = t.m_Confirmed ? ETrackState::Tracked : ETrackState::Tentative;
    if (t.m_Hits > 1) {
        UpdateStill(t, box, before, time);
    }
}

void CBoxTracker::HoldInside(STrack& t, const SBox& box, long time) {
    t.m_X = Clamp(t.m_X, box.m_Left + 0.5 * t.m_Width, box.m_Right - 0.5 * t.m_Width);
    t.m_Y = Clamp(t.m_Y, box.m_Top + 0.5 * t.m_Height, box.m_Bottom - 0.5 * t.m_Height);
    const SBox before = t.m_Box;
    t.m_Box = BoxAround(t.m_X, t.m_Y, t.m_Width, t.m_Height);
    t.m_State = ETrackState::Merged;
    t.m_LastSeen = time;
    UpdateStill(t, t.m_Box, before, time);
}

bool CBoxTracker::AtBorder(const SBox& box) const {
    return m_FrameWidth > 0 &&
           (box.m_Left <= kBorder || box.m_Top <= kBorder ||
            box.m_Right >= m_FrameWidth - kBorder || box.m_Bottom >= m_FrameHeight - kBorder);
}

void CBoxTracker::UpdateStill(STrack& t, const SBox& box, const SBox& before, long time) {
    // Dwelling is standing about: fidgeting, turning, chatting, within half one's own size.
    if (std::hypot(t.m_X - t.m_DwellX, t.m_Y - t.m_DwellY) >
        0.5 * std::max(t.m_Width, t.m_Height)) {
        t.m_LastDwell = time - t.m_DwellSince;
        t.m_LastDwellEnd = time;
        t.m_DwellX = t.m_X;
        t.m_DwellY = t.m_Y;
        t.m_DwellSince = time;
    }
    const double radius = std::max(static_cast<double>(m_Config.m_StillMinRadius),
                                   m_Config.m_StillRadius * std::max(t.m_Width, t.m_Height));
    // A box that shrinks within where it stood is fading into the background in place; one that
    // shrinks against the picture's edge is leaving it.
    const bool shrankInPlace =
        !AtBorder(box) && Contains(Grown(t.m_StillBox, static_cast<int>(std::ceil(radius))), box);
    if (std::hypot(t.m_X - t.m_StillX, t.m_Y - t.m_StillY) <= radius || shrankInPlace) {
        t.m_Moving = false;
        t.m_DisplacedSince = -1;
        return;
    }
    // Away from where it stood - but a box that stays, or shrinks, within last frame's has not
    // moved on this frame (the foreground's blocks move in steps; a ghost fades from one side).
    t.m_Moving =
        AtBorder(box) || box.Area() > before.Area() || !Contains(Grown(before, kShrinkSlack), box);
    // One stray box (a merge with noise, a missed edge) does not end a stop: the track must stay
    // away for a few frames, and then it has moved since it first left.
    if (t.m_DisplacedSince < 0) {
        t.m_DisplacedSince = time;
    }
    if (time - t.m_DisplacedSince < kMoveConfirm) {
        return;
    }
    if (t.m_DisplacedSince - t.m_StillSince >= kNotableStop) {
        t.m_StopSince = t.m_StillSince;
        t.m_StopEnd = t.m_DisplacedSince;
        t.m_StopBox = t.m_StillBox;
    }
    t.m_StillBox = box;
    t.m_StillX = t.m_X;
    t.m_StillY = t.m_Y;
    t.m_StillSince = t.m_DisplacedSince;
    t.m_DisplacedSince = -1;
    t.m_Moved = true;
}

void CBoxTracker::Retire(long time) {
    std::size_t kept = 0;
    for (std::size_t i = 0; i < m_Tracks.size(); ++i) {
        STrack& t = m_Tracks[i];
        const bool seen = m_TrackBox[i] >= 0 || m_InMerge[i];
        bool keep = true;
        if (t.m_Duplicate) {
            keep = false;
        } else if (!seen) {
            if (!t.m_Confirmed) {
                keep = false;
            } else {
                // A track that stood until it vanished has faded into the background rather than
                // walked off unseen: it stays where it stood, and its still time runs on.
                if (t.m_LastSeen - t.m_StillSince >= kStoodBeforeLost && !t.m_AtBorder) {
                    t.m_VX = 0;
                    t.m_VY = 0;
                }
                t.m_State = ETrackState::Coasting;
                t.m_Box = m_Predicted[i];
                keep = time - t.m_LastSeen <= m_Config.m_MaxCoast;
            }
        }
        if (!keep) {
            if (t.m_Confirmed || t.m_Duplicate) {
                m_Ended.push_back(t);
            }
            continue;
        }
        if (kept != i) {
            m_Tracks[kept] = t;
            m_Before[kept] = m_Before[i];
        }
        ++kept;
    }
    m_Tracks.resize(kept);
    m_Before.resize(kept);
}

void CBoxTracker::StartTracks(long time) {
    // Left-over boxes: stacked fragments of one new thing start one track together.
    std::vector<SBox>& fresh = m_Fresh;
    fresh.clear();
    for (std::size_t b = 0; b < m_Boxes.size(); ++b) {
        if (m_BoxOwner[b] != -1) {
            continue;
        }
        bool joined = false;
        for (SBox& f : fresh) {
            if (Stacked(f, m_Boxes[b])) {
                f = Union(f, m_Boxes[b]);
                joined = true;
                break;
            }
        }
        if (!joined) {
            fresh.push_back(m_Boxes[b]);
        }
    }
    const std::size_t existing = m_Tracks.size();
    for (const SBox& box : fresh) {
        STrack t;
        t.m_Id = m_NextId++;
        t.m_Born = time;
        t.m_LastSeen = time;
        Observe(t, box, time);
        t.m_BornX = t.m_X;
        t.m_BornY = t.m_Y;
        t.m_StillSince = time;
        t.m_StillBox = box;
        t.m_StillX = t.m_X;
        t.m_StillY = t.m_Y;
        t.m_DwellSince = time;
        t.m_DwellX = t.m_X;
        t.m_DwellY = t.m_Y;
        // Born where an established track was a moment ago: split off it (an object put down, a
        // walker leaving a group).
        for (std::size_t i = 0; i < existing; ++i) {
            STrack& parent = m_Tracks[i];
            if (!parent.m_Confirmed || parent.m_State == ETrackState::Coasting) {
                continue;
            }
            const int reach = std::max(4, static_cast<int>(0.25 * parent.m_Width));
            if (Intersection(Grown(Union(parent.m_Box, m_Before[i]), reach), box).IsEmpty()) {
                continue;
            }
            t.m_ParentId = parent.m_Id;
            parent.m_LastSplit = time;
            // Something small left where the parent stopped has lain there since the stop.
            const bool recent = time - parent.m_StopEnd <= kRecentStop;
            long stop = recent ? parent.m_StopSince : -1;
            long stopEnd = parent.m_StopEnd;
            SBox stopBox = parent.m_StopBox;
            if (time - parent.m_StillSince >= kNotableStop) {
                stop = parent.m_StillSince;
                stopEnd = time;
                stopBox = parent.m_StillBox;
            }
            t.m_ParentStop = time - parent.m_DwellSince;
            if (time - parent.m_LastDwellEnd <= kRecentStop) {
                t.m_ParentStop = std::max(t.m_ParentStop, parent.m_LastDwell);
            }
            if (stop >= 0 && !Intersection(Grown(stopBox, reach), box).IsEmpty()) {
                t.m_ParentStop = std::max(t.m_ParentStop, stopEnd - stop);
                if (static_cast<double>(box.Area()) <
                    kObjectShare * parent.m_Width * parent.m_Height) {
                    t.m_StillSince = stop;
                }
            }
            break;
        }
        m_Tracks.push_back(t);
    }
}

} // namespace zor::counting
