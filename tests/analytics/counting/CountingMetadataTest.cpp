#include "framework/kor/LeftObjectDetectionMD.h"
#include "framework/kor/PeopleCountingMD.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace {

struct SFrame {
    long m_Time;
    bool m_Valid;
    int m_Entries;
    int m_Exits;
    long m_Occupancy;
    // Expected after the step: the open interval's counts, and the interval closed (start, end,
    // entries, exits) or {-1} for none.
    unsigned long m_OpenEntries;
    unsigned long m_OpenExits;
    long m_Closed[4];
};

} // namespace

TEST(PeopleCountingMD, IntervalScanCountsFromTheStartTimeAndClosesEachInterval) {
    SKorPeopleCountScan scan;
    scan.m_StartTime = 1000;
    scan.m_Interval = 1000;
    const SFrame frames[] = {
        {500, true, 1, 0, 1, 0, 0, {-1}},  // before the start: not counted
        {1000, true, 1, 0, 1, 1, 0, {-1}}, // the first interval opens at 1000
        {1500, true, 0, 2, 0, 1, 2, {-1}},
        {1700, false, 1, 0, 1, 2, 2, {-1}},              // no valid time: counts where it is
        {3100, true, 1, 1, 1, 1, 1, {1000, 2000, 2, 2}}, // 2000-3000 saw nothing: not opened
        {3200, true, 0, 0, 1, 1, 1, {-1}},
        {900, true, 5, 0, 5, 0, 0, {3000, 4000, 1, 1}}, // back before the start: closed
        {900, false, 1, 0, 5, 0, 0, {-1}},              // nothing open: nothing counts
    };
    for (const SFrame& f : frames) {
        CKorPeopleCountingMD md;
        for (int i = 0; i < f.m_Entries; ++i) {
            md.AddEvent(1, +1);
        }
        for (int i = 0; i < f.m_Exits; ++i) {
            md.AddEvent(2, -1);
        }
        md.SetTotals(0, 0, f.m_Occupancy);
        SKorPeopleCountInterval closed{};
        const bool didClose = md.Update(scan, f.m_Time, f.m_Valid, &closed);
        SCOPED_TRACE(f.m_Time);
        EXPECT_EQ(scan.m_Open ? scan.m_Entries : 0, f.m_OpenEntries);
        EXPECT_EQ(scan.m_Open ? scan.m_Exits : 0, f.m_OpenExits);
        ASSERT_EQ(didClose, f.m_Closed[0] >= 0);
        if (didClose) {
            EXPECT_EQ(closed.m_Start, f.m_Closed[0]);
            EXPECT_EQ(closed.m_End, f.m_Closed[1]);
            EXPECT_EQ(closed.m_Entries, static_cast<unsigned long>(f.m_Closed[2]));
            EXPECT_EQ(closed.m_Exits, static_cast<unsigned long>(f.m_Closed[3]));
        }
    }
}

TEST(PeopleCountingMD, WithoutAnIntervalCountsFromTheStartOnAndCopiesWhole) {
    SKorPeopleCountScan scan; // start 0, interval 0
    CKorPeopleCountingMD md;
    md.SetLine(0, 120, 352, 120);
    md.AddEvent(7, +1);
    md.SetTotals(10, 4, 6);
    md.AddTarget(SKorCountingTarget{1, 2, 3, 4, 7, CKorPeopleCountingMD::TARGET_TRACKED, 1});
    for (long t = 0; t < 100000; t += 40000) {
        EXPECT_FALSE(md.Update(scan, t, true, nullptr));
    }
    EXPECT_EQ(scan.m_Entries, 3U);
    EXPECT_EQ(scan.m_Occupancy, 6);

    std::unique_ptr<CKorMetadataHandler> copy(md.CloneChain());
    auto* same = CKorPeopleCountingMD::Find(copy.get());
    ASSERT_NE(same, nullptr);
    EXPECT_EQ(same->GetGeometry(), CKorPeopleCountingMD::GEOMETRY_LINE);
    EXPECT_EQ(same->GetGeometryCoordinates()[2], 352);
    EXPECT_EQ(same->GetEntries(), 1U);
    EXPECT_EQ(same->GetTotalExits(), 4U);
    ASSERT_EQ(same->GetTargetCount(), 1);
    EXPECT_EQ(same->GetTarget(0).m_Id, 7U);
    same->Clear();
    EXPECT_EQ(same->GetEventCount() + same->GetTargetCount(), 0);
    EXPECT_EQ(same->GetGeometry(), CKorPeopleCountingMD::GEOMETRY_NONE);
}

namespace {

void AddTargets(CKorLeftObjectDetectionMD& md) {
    md.AddTarget(10, 10, 20, 20, 1, CKorLeftObjectDetectionMD::TYPE_OBJECT, 120); // 12 s
    md.AddTarget(30, 30, 40, 40, 2, CKorLeftObjectDetectionMD::TYPE_STOPPED, 60); // 6 s
    md.AddTarget(50, 50, 60, 60, 3, CKorLeftObjectDetectionMD::TYPE_OBJECT, 20);  // 2 s
}

} // namespace

TEST(LeftObjectDetectionMD, EntriesAreTargetsThatStoodLongerThanTheDuration) {
    CKorLeftObjectDetectionMD md;
    AddTargets(md);
    struct {
        long m_Duration;
        int m_Type;
        unsigned long m_Id;
        int m_Number;
        SKorLeftObjectCounters m_Expected;
    } const table[] = {
        {5000, 0, 0, 1, {2, 3, 12, 1}},
        {6000, 0, 0, 1, {1, 3, 12, 1}}, // longer than, not as long as
        {0, 0, 0, 1, {3, 3, 12, 1}},    // no duration: every target
        {-400, 0, 0, 1, {3, 3, 12, 1}},
        {5000, 2, 0, 1, {1, 1, 6, 2}},  // stopped things only
        {1000, 1, 0, 1, {2, 2, 12, 1}}, // objects only
        {1000, 0, 3, 1, {1, 1, 2, 3}},  // one identifier
        {1000, 0, 9, 1, {0, 0, 0, 0}},
        {5000, 0, 0, 3, {0, 3, 12, 1}}, // two entries do not make three
        {5000, 0, 0, -2, {2, 3, 12, 1}},
    };
    for (const auto& row : table) {
        SKorLeftObjectQuery query;
        query.m_Duration = row.m_Duration;
        query.m_Type = row.m_Type;
        query.m_Id = row.m_Id;
        query.m_Number = row.m_Number;
        SKorLeftObjectCounters counters;
        const unsigned long answer = md.Update(query, 0, true, &counters);
        SCOPED_TRACE(row.m_Duration);
        EXPECT_EQ(answer, row.m_Expected.m_Entries);
        EXPECT_EQ(counters.m_Entries, row.m_Expected.m_Entries);
        EXPECT_EQ(counters.m_Targets, row.m_Expected.m_Targets);
        EXPECT_EQ(counters.m_LongestStill, row.m_Expected.m_LongestStill);
        EXPECT_EQ(counters.m_LongestId, row.m_Expected.m_LongestId);
    }
}

TEST(LeftObjectDetectionMD, EntriesAreAnsweredOnlyAtScanInstants) {
    CKorLeftObjectDetectionMD md;
    AddTargets(md);
    SKorLeftObjectQuery query;
    query.m_StartTime = 1000;
    query.m_Interval = 500;
    const struct {
        long m_Time;
        bool m_Valid;
        unsigned long m_Answer;
    } steps[] = {
        {900, true, 0},  {1000, true, 3},  {1040, true, 0}, {1499, true, 0},
        {1500, true, 3}, {1600, false, 0}, {2990, true, 3}, {3000, true, 3},
        {3100, true, 0}, {200, true, 0}, // back before the start: disarmed
        {1200, true, 3},                 // armed again at the first frame after the start
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.m_Time);
        EXPECT_EQ(md.Update(query, step.m_Time, step.m_Valid, nullptr), step.m_Answer);
    }
    EXPECT_EQ(CKorLeftObjectDetectionMD::StillTimeFromMs(-5), 0);
    EXPECT_EQ(CKorLeftObjectDetectionMD::StillTimeFromMs(1299), 12);
    EXPECT_EQ(CKorLeftObjectDetectionMD::StillTimeFromMs(100000000), 65535);
}
