#include "analytics/counting/core/LineCounter.h"

#include <gtest/gtest.h>

#include <vector>

using zor::counting::CLineCounter;
using zor::counting::ETrackState;
using zor::counting::SCrossing;
using zor::counting::STrack;

namespace {

struct SPoint {
    double m_X;
    double m_Y;
    ETrackState m_State = ETrackState::Tracked;
};

// A confirmed, moving track of a walker's size (16x40), born at (x, y).
STrack Walker(unsigned long id, double x, double y) {
    STrack t;
    t.m_Id = id;
    t.m_Confirmed = true;
    t.m_Moving = true;
    t.m_Width = 16;
    t.m_Height = 40;
    t.m_BornX = t.m_X = t.m_StillX = x;
    t.m_BornY = t.m_Y = t.m_StillY = y;
    return t;
}

// Walks one walker's track (born at the first point) through the points, one frame each;
// answers the directions counted, in order.
std::vector<int> Walk(CLineCounter& counter, const std::vector<SPoint>& points,
                      unsigned long id = 1, unsigned long parent = 0) {
    std::vector<SCrossing> crossings;
    STrack t = Walker(id, points.front().m_X, points.front().m_Y);
    t.m_ParentId = parent;
    long time = 0;
    for (const SPoint& p : points) {
        t.m_X = t.m_StillX = p.m_X;
        t.m_Y = t.m_StillY = p.m_Y;
        t.m_State = p.m_State;
        counter.Update(time, {t}, {}, crossings);
        time += 40;
    }
    std::vector<int> directions;
    for (const SCrossing& c : crossings) {
        directions.push_back(c.m_Direction);
    }
    return directions;
}

std::vector<SPoint> Line(double x0, double y0, double x1, double y1, int steps) {
    std::vector<SPoint> points;
    for (int i = 0; i <= steps; ++i) {
        const double f = static_cast<double>(i) / steps;
        points.push_back(SPoint{x0 + f * (x1 - x0), y0 + f * (y1 - y0)});
    }
    return points;
}

} // namespace

// Which way is an entry: left to right of the directed line, with y running down the picture.
struct SDirectionCase {
    double m_Line[4];
    double m_From[2];
    double m_To[2];
    std::vector<int> m_Expected;
};

class LineCounterDirection : public testing::TestWithParam<SDirectionCase> {};

TEST_P(LineCounterDirection, CountsTheRightWay) {
    const SDirectionCase& c = GetParam();
    CLineCounter counter;
    ASSERT_TRUE(counter.SetLine(c.m_Line[0], c.m_Line[1], c.m_Line[2], c.m_Line[3]));
    EXPECT_EQ(Walk(counter, Line(c.m_From[0], c.m_From[1], c.m_To[0], c.m_To[1], 40)),
              c.m_Expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, LineCounterDirection,
    testing::Values(
        // Drawn left to right: walking down the picture enters, up exits.
        SDirectionCase{{0, 120, 352, 120}, {100, 40}, {100, 200}, {1}},
        SDirectionCase{{0, 120, 352, 120}, {100, 200}, {100, 40}, {-1}},
        // Drawn right to left: the other way round.
        SDirectionCase{{352, 120, 0, 120}, {100, 40}, {100, 200}, {-1}},
        // Drawn top to bottom: walking left enters.
        SDirectionCase{{176, 0, 176, 240}, {260, 100}, {80, 100}, {1}},
        // Diagonal line, walk across its middle.
        SDirectionCase{{50, 50, 250, 200}, {200, 60}, {100, 190}, {1}},
        // Passing beyond the end of the segment (plus half a width) counts nothing.
        SDirectionCase{{0, 120, 150, 120}, {200, 40}, {200, 200}, {}},
        // Just inside the end, allowing for half the walker's width.
        SDirectionCase{{0, 120, 150, 120}, {155, 40}, {155, 200}, {1}},
        // Walking along the line counts nothing.
        SDirectionCase{{0, 120, 352, 120}, {10, 100}, {340, 100}, {}}));

TEST(LineCounter, JitterOnTheLineCountsNothingAndAStopOnItCountsOnce) {
    CLineCounter counter;
    counter.SetLine(0, 120, 352, 120);
    std::vector<SPoint> walk = Line(100, 40, 100, 118, 20);
    for (int i = 0; i < 50; ++i) {
        walk.push_back(SPoint{100, 118.0 + (i % 2 ? 4 : -4)}); // stands on the line, swaying
    }
    std::vector<SPoint> on = Line(100, 118, 100, 200, 20);
    walk.insert(walk.end(), on.begin(), on.end());
    EXPECT_EQ(Walk(counter, walk), std::vector<int>{1});
}

TEST(LineCounter, TurningBackCountsBothWaysAndOccupancyNeverGoesNegative) {
    CLineCounter counter;
    counter.SetLine(0, 120, 352, 120);
    // Someone who was inside before counting began comes out: occupancy stays at zero.
    EXPECT_EQ(Walk(counter, Line(100, 200, 100, 40, 20), 1), std::vector<int>{-1});
    EXPECT_EQ(counter.Occupancy(), 0);
    std::vector<SPoint> there = Line(200, 40, 200, 200, 20);
    std::vector<SPoint> back = Line(200, 200, 200, 40, 20);
    there.insert(there.end(), back.begin(), back.end());
    EXPECT_EQ(Walk(counter, there, 2), (std::vector<int>{1, -1}));
    EXPECT_EQ(Walk(counter, Line(300, 40, 300, 200, 20), 3), std::vector<int>{1});
    EXPECT_EQ(counter.Entries(), 2U);
    EXPECT_EQ(counter.Exits(), 2U);
    EXPECT_EQ(counter.Occupancy(), 1);
}

TEST(LineCounter, AStandingTrackKeepsItsSide) {
    // Someone stops on the line and fades into the background from the head down: his box's
    // centre sinks across the line, but he does not move.
    CLineCounter counter;
    counter.SetLine(0, 120, 352, 120);
    std::vector<SCrossing> crossings;
    STrack t = Walker(1, 100, 60);
    long time = 0;
    for (double y = 60; y <= 118; y += 2, time += 40) {
        t.m_Y = t.m_StillY = y;
        counter.Update(time, {t}, {}, crossings);
    }
    for (double y = 118; y <= 136; y += 2, time += 40) {
        t.m_Y = y;
        t.m_Moving = false;
        counter.Update(time, {t}, {}, crossings);
    }
    EXPECT_TRUE(crossings.empty());
    EXPECT_EQ(counter.SideOf(1), -1);
}

TEST(LineCounter, OnlyWhatWasSeenCounts) {
    CLineCounter counter;
    counter.SetLine(0, 120, 352, 120);
    // Lost before the line, predicted across it, found again beyond: counted once, when found.
    std::vector<SPoint> walk = Line(100, 40, 100, 100, 10);
    for (SPoint p : Line(100, 104, 100, 150, 10)) {
        p.m_State = ETrackState::Coasting;
        walk.push_back(p);
    }
    walk.push_back(SPoint{100, 155});
    EXPECT_EQ(Walk(counter, walk), std::vector<int>{1});
    // Predicted across and back again while unseen: nothing.
    CLineCounter other;
    other.SetLine(0, 120, 352, 120);
    std::vector<SPoint> ghost = Line(100, 40, 100, 100, 10);
    for (SPoint p : Line(100, 104, 100, 170, 10)) {
        p.m_State = ETrackState::Coasting;
        ghost.push_back(p);
    }
    ghost.push_back(SPoint{100, 90});
    EXPECT_TRUE(Walk(other, ghost).empty());
}

TEST(LineCounter, CrossingsWhileBeingConfirmedAndAfterASplitCount) {
    CLineCounter counter;
    counter.SetLine(0, 120, 352, 120);
    // First seen confirmed already beyond the line: its birth point says where it came from.
    STrack t = Walker(5, 100, 90);
    t.m_Y = t.m_StillY = 150;
    std::vector<SCrossing> crossings;
    counter.Update(0, {t}, {}, crossings);
    ASSERT_EQ(crossings.size(), 1U);
    EXPECT_EQ(crossings[0].m_Direction, 1);
    // A walker born on the line out of a group that was above it takes the group's side.
    Walk(counter, Line(200, 40, 200, 80, 5), 6);
    EXPECT_EQ(Walk(counter, Line(200, 121, 200, 200, 10), 7, 6), std::vector<int>{1});
}

TEST(LineCounterZone, EntersLeavesAndHoldsTheOccupancy) {
    CLineCounter counter;
    ASSERT_TRUE(counter.SetZone(100, 80, 250, 160));
    EXPECT_EQ(Walk(counter, Line(20, 120, 180, 120, 20), 1), std::vector<int>{1});
    EXPECT_EQ(counter.Occupancy(), 1);
    std::vector<SPoint> through = Line(175, 10, 175, 230, 30);
    EXPECT_EQ(Walk(counter, through, 2), (std::vector<int>{1, -1}));
    EXPECT_EQ(counter.Occupancy(), 1);
    std::vector<SCrossing> none;
    STrack gone;
    gone.m_Id = 1;
    counter.Update(0, {}, {gone}, none); // a track that ends inside leaves the occupancy
    EXPECT_EQ(counter.Occupancy(), 0);
    EXPECT_EQ(counter.Entries(), 2U);
    EXPECT_EQ(counter.Exits(), 1U);
}

TEST(LineCounterGeometry, RefusesDegenerateShapesAndKnowsWhetherItReachesTheFrame) {
    CLineCounter counter;
    EXPECT_FALSE(counter.SetLine(10, 10, 10.5, 10));
    EXPECT_FALSE(counter.SetZone(10, 10, 5, 50));
    EXPECT_EQ(counter.Geometry(), CLineCounter::NONE);
    EXPECT_FALSE(counter.Reaches(352, 240));
    EXPECT_TRUE(Walk(counter, Line(100, 40, 100, 200, 10)).empty());

    struct {
        double m_Line[4];
        bool m_Reaches;
    } const table[] = {
        {{0, 120, 352, 120}, true},     {{-100, 120, 500, 120}, true}, // across, beyond both sides
        {{400, 0, 400, 240}, false},    {{-50, -10, -5, 300}, false},  // beside the frame
        {{-100, 300, 500, 260}, false}, {{-10, 250, 30, 230}, true},   // below / a corner
    };
    for (const auto& row : table) {
        ASSERT_TRUE(counter.SetLine(row.m_Line[0], row.m_Line[1], row.m_Line[2], row.m_Line[3]));
        EXPECT_EQ(counter.Reaches(352, 240), row.m_Reaches)
            << row.m_Line[0] << "," << row.m_Line[1];
    }
    ASSERT_TRUE(counter.SetZone(400, 10, 500, 100));
    EXPECT_FALSE(counter.Reaches(352, 240));
}
