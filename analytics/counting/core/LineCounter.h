// CLineCounter: counts tracks crossing a counting line, or entering and leaving a zone.
//
// Line: a directed segment (x1, y1) -> (x2, y2) in top-down frame coordinates. Each confirmed
// track's reference point (its centre, or the middle of its bottom edge, where the feet are) has
// a side: its signed distance from the line. Around the line lies a band of half-width
// max(band px, band share x the track's smaller side); a point inside the band has no side, so
// jitter on the line never counts. A track's side is settled when its point is beyond the band;
// when it settles on the other side than before, and the step between the two settled points
// crosses the segment (its ends extended by half the track's width), one crossing is counted:
// from the left to the right of the line, looking from (x1, y1) towards (x2, y2), is an entry,
// the other way an exit. A track that turns back is counted again, the other way.
//
// Only what the tracker saw counts, and only while the track moves: a track standing still keeps
// its side (a walker fading into the background from the head down moves his box's centre, not
// himself). Also: a coasting track's predicted point never settles a side,
// so a track that is lost and found again on the other side is counted when it is found. A track
// that split off another, born within the band, takes the side of its parent (a walker leaving a
// group on the line); born across the line from its parent and walking on away from it, it left a
// group on the other side and is counted at once. One born within the band with no parent takes
// the side of a track that was lost standing on or near the line where it is born, within "lost
// memory" ms (a walker who stood on the line long enough to fade into the background, and walks
// on).
//
// Zone: a rectangle; a track enters when its point goes from outside the zone grown by the band
// to inside the zone shrunk by it, and leaves the other way round.
//
// Occupancy: for a line, entries minus exits, never below zero; for a zone, the confirmed tracks
// inside it.
//
// Pure: standard C++ only.
#pragma once

#include "analytics/counting/core/BoxTracker.h"

#include <array>
#include <unordered_map>
#include <vector>

namespace zor::counting {

struct SCounterConfig {
    double m_Band = 4.0;       // px
    double m_BandShare = 0.15; // of the track's smaller side
    bool m_Feet = false;       // reference point: bottom middle instead of the centre
    long m_LostMemory = 30000; // ms
};

struct SCrossing {
    unsigned long m_TrackId;
    int m_Direction; // +1 entry, -1 exit
    long m_Time;
};

class CLineCounter {
public:
    enum EGeometry { NONE, LINE, ZONE };

    explicit CLineCounter(const SCounterConfig& config = {});

    const SCounterConfig& Config() const { return m_Config; }
    void SetConfig(const SCounterConfig& config) { m_Config = config; }
    // A line of zero length counts nothing (answers false).
    bool SetLine(double x1, double y1, double x2, double y2);
    bool SetZone(double left, double top, double right, double bottom);
    EGeometry Geometry() const { return m_Geometry; }
    const double* Coordinates() const { return m_Coordinates; }
    // Whether the line or zone reaches into a width x height frame at all.
    bool Reaches(int width, int height) const;

    // One frame: the tracker's live and ended tracks. Crossings counted on this frame are
    // appended to crossings (which is not cleared).
    void Update(long time, const std::vector<STrack>& tracks, const std::vector<STrack>& ended,
                std::vector<SCrossing>& crossings);

    unsigned long Entries() const { return m_Entries; }
    unsigned long Exits() const { return m_Exits; }
    long Occupancy() const;
    // The settled side of a track: line -1 / +1, zone +1 inside / -1 outside, 0 not settled.
    int SideOf(unsigned long trackId) const;

    // Forgets the tracks' sides and zeroes the counts.
    void Reset();
    // Forgets the tracks' sides only (the tracker was reset).
    void ForgetTracks() {
        m_States.clear();
        m_Lost.clear();
    }

private:
    struct SState {
        int m_Side = 0;
        double m_X = 0, m_Y = 0; // where the side was last settled
    };

    // A track lost while it stood in the band, and the side it had.
    struct SLost {
        SBox m_Box;
        SState m_State;
        long m_Time;
    };

    // Takes a line or zone whose coordinates are finite and which is big enough to count on.
    bool Place(EGeometry geometry, const std::array<double, 4>& coordinates, bool bigEnough);
    void ReferencePoint(const STrack& track, double* x, double* y) const;
    void RememberLost(long time, const std::vector<STrack>& ended);
    SState StartState(const STrack& track) const;
    // -1 / +1 beyond the band (widened by the factor), 0 inside it.
    int Classify(const STrack& track, double x, double y, double widen = 1.0) const;
    // +1 / -1: the track moves towards the line's right / left side; 0: along it, or a zone.
    int NormalSpeedSign(const STrack& track) const;
    bool CrossesSegment(const STrack& track, double x0, double y0, double x1, double y1) const;

    SCounterConfig m_Config;
    EGeometry m_Geometry = NONE;
    double m_Coordinates[4] = {};
    std::unordered_map<unsigned long, SState> m_States;
    std::vector<SLost> m_Lost;
    unsigned long m_Entries = 0;
    unsigned long m_Exits = 0;
    long m_Occupancy = 0;
};

} // namespace zor::counting
