// CBoxTracker: follows the boxes of a foreground detector from frame to frame and gives each
// moving thing one identifier for as long as it is seen.
//
// The boxes it is fed are foreground blocks or blobs, not people. Blocks and pieces that touch are
// first grouped into one box each (CBoxGrouping); even so one walker may come as two fragments
// (head and legs), two walkers side by side come as one box, a walker can vanish for a few frames
// behind a post or when the background model briefly absorbs him. The tracker therefore:
//  - predicts each track with constant velocity (an alpha-beta filter on the box centre, a
//    smoothed size) and matches boxes to predictions greedily, best overlap and distance first;
//  - joins the fragments of one track: further boxes that fall within the track's own size around
//    it are merged into its observation;
//  - keeps tracks that meet in one box apart: when a box covers the predictions of two or more
//    tracks that were established before, each of them goes on by its own prediction, held
//    inside that box, until the box splits again and each part is matched to its track;
//  - lets a track that is not seen coast on its prediction for up to "max coast" ms, and picks it
//    up again when a box appears within reach of that prediction (short occlusions);
//  - starts a new track for every box left over; one that appears beside an existing track and
//    moves off is a split (the new track names the old one as its parent), which is how an object
//    put down by a walker starts its own track;
//  - reports a track only once it has been seen "confirm hits" times (noise boxes die young);
//  - measures how long each track has stood still: since its centre estimate last moved further
//    than the still radius from where it stopped, and stayed away for a few frames. A box that
//    shrinks in place (a still object fading into the background) stays still, and so does a
//    track that vanishes after standing (it faded; it did not walk off unseen) - unless it was
//    at the picture's edge, which it left. A small track that splits off a track where that one
//    stopped a moment ago (an object put down) has stood there since the stop.
//
// Pure: standard C++ only. Not thread-safe; one tracker per stream.
#pragma once

#include "analytics/counting/core/BoxGrouping.h"
#include "analytics/counting/core/Boxes.h"

#include <cstddef>
#include <vector>

namespace zor::counting {

struct STrackerConfig {
    int m_JoinGap = 0;            // px: boxes this close are one thing (-1: take them as they come)
    long m_MinArea = 24;          // px^2: smaller things are noise
    std::size_t m_MaxBoxes = 512; // things per frame beyond this: the largest are kept
    int m_ConfirmHits = 3;        // observations before a track is confirmed
    long m_MaxCoast = 800;        // ms a confirmed track lives on unseen
    double m_FragmentSlack = 0.35; // fragments join while the union stays within this share
                                   // beyond the track's size
    double m_StillRadius = 0.12;   // of the track's larger side, at least m_StillMinRadius px
    int m_StillMinRadius = 4;
};

enum class ETrackState {
    Tentative, // not yet confirmed
    Tracked,   // matched to a box on this frame
    Merged,    // shares a box with other tracks; position predicted inside it
    Coasting,  // not seen on this frame; position predicted
};

struct STrack {
    unsigned long m_Id = 0;
    unsigned long m_ParentId = 0; // the track this one split off from, or 0
    ETrackState m_State = ETrackState::Tentative;
    bool m_Confirmed = false;
    SBox m_Box;                       // the observed box, or the predicted one when not observed
    double m_X = 0, m_Y = 0;          // centre estimate
    double m_VX = 0, m_VY = 0;        // px per ms
    double m_Width = 0, m_Height = 0; // smoothed size
    double m_BornX = 0, m_BornY = 0;  // centre when first seen
    long m_Born = 0;
    long m_LastSeen = 0;
    int m_Hits = 0;
    long m_StillSince = 0;
    SBox m_StillBox;                   // the box where it stopped
    double m_StillX = 0, m_StillY = 0; // the centre estimate where it stopped
    long m_StopSince = -1;             // its last stop of some length before this one (-1: none)
    long m_StopEnd = -1;
    long m_DisplacedSince = -1; // when it last left its still box, while that is unconfirmed
    bool m_AtBorder = false;    // last seen cut by the picture's edge
    bool m_Moving = false;      // on this frame, away from where it stood (not its box shrinking or
                                // jittering in place)
    SBox m_StopBox;
    bool m_Moved = false;  // ever left its first still box
    long m_ParentStop = 0; // how long its parent had stood where it split off (ms)
    long m_DwellSince = 0; // since when it has stayed within half its size of one place
    double m_DwellX = 0, m_DwellY = 0;
    long m_LastDwell = 0; // how long its last dwell before this one lasted (ms)
    long m_LastDwellEnd = -1;
    long m_LastSplit = -1;    // when a track last split off it (-1: never)
    bool m_Duplicate = false; // ended as a second track of what another track follows

    bool IsObserved() const {
        return m_State == ETrackState::Tracked || m_State == ETrackState::Tentative;
    }
    long StillFor(long now) const { return now - m_StillSince; }
};

class CBoxTracker {
public:
    explicit CBoxTracker(const STrackerConfig& config = {});

    const STrackerConfig& Config() const { return m_Config; }
    void SetConfig(const STrackerConfig& config) { m_Config = config; }
    // The picture's size, when known (0 x 0: unknown): boxes cut by its edge are leaving it.
    void SetFrameSize(int width, int height) {
        m_FrameWidth = width;
        m_FrameHeight = height;
    }
    bool AtBorder(const SBox& box) const;

    // One frame at time (ms, not decreasing; a frame at an earlier time than the last one is
    // taken as a new sequence and resets the tracker first). Answers the live tracks, confirmed
    // or not, in order of identifier.
    const std::vector<STrack>& Update(long time, const SBox* boxes, std::size_t count);

    const std::vector<STrack>& Tracks() const { return m_Tracks; }
    // Confirmed tracks that ended on the last Update, as they were last (m_Duplicate marks those
    // ended because another track follows the same thing).
    const std::vector<STrack>& Ended() const { return m_Ended; }
    // Boxes dropped on the last Update because the frame had too many (see Update).
    std::size_t Dropped() const { return m_Dropped; }

    // Forgets every track; identifiers go on from where they were.
    void Reset();

private:
    struct SCandidate {
        double m_Score;
        std::size_t m_Track;
        std::size_t m_Box;
    };

    void Predict();
    void FindMerges();
    void Match();
    void JoinFragments();
    void StartTracks(long time);
    void Observe(STrack& track, const SBox& box, long time);
    void HoldInside(STrack& track, const SBox& box, long time);
    // before: the track's box on the frame before.
    void UpdateStill(STrack& track, const SBox& box, const SBox& before, long time);
    void Retire(long time);
    bool Gates(std::size_t track, const SBox& box) const;
    double Score(std::size_t track, const SBox& box) const;

    STrackerConfig m_Config;
    std::vector<STrack> m_Tracks;
    std::vector<STrack> m_Ended;
    unsigned long m_NextId = 1;
    int m_FrameWidth = 0;
    int m_FrameHeight = 0;
    bool m_HasTime = false;
    long m_LastTime = 0;
    std::size_t m_Dropped = 0;

    // Per-frame scratch, kept to avoid allocating on every frame.
    CBoxGrouping m_Grouping;
    std::vector<SBox> m_Grouped;
    std::vector<SBox> m_Boxes;
    std::vector<SBox> m_Predicted;   // per track
    std::vector<SBox> m_Before;      // per track: its box on the frame before
    std::vector<SBox> m_Fresh;       // boxes that start new tracks
    std::vector<int> m_BoxOwner;     // per box: track index, -1 free, -2 shared by a merge
    std::vector<int> m_TrackBox;     // per track: box index or -1
    std::vector<SBox> m_Observation; // per track: union of its boxes
    std::vector<char> m_InMerge;     // per track
    std::vector<SCandidate> m_Candidates;
    long m_Dt = 0;
    long m_Now = 0;
};

} // namespace zor::counting
