#include "analytics/counting/core/LeftObjectDetector.h"

#include <gtest/gtest.h>

#include <vector>

using zor::counting::CLeftObjectDetector;
using zor::counting::ETrackState;
using zor::counting::SBox;
using zor::counting::SLeftObjectConfig;
using zor::counting::SLeftTarget;
using zor::counting::STrack;

namespace {

STrack Still(unsigned long id, SBox box, long since, bool moved = false) {
    STrack t;
    t.m_Id = id;
    t.m_Confirmed = true;
    t.m_State = ETrackState::Tracked;
    t.m_Box = box;
    t.m_StillBox = box;
    t.m_StillSince = since;
    t.m_Moved = moved;
    t.m_LastSeen = since;
    return t;
}

const SBox kBag{100, 180, 112, 190};

// The tests start their tracks at once; the warm-up has its own test.
SLeftObjectConfig Config() {
    SLeftObjectConfig config;
    config.m_WarmUp = 0;
    return config;
}

} // namespace

TEST(LeftObjectDetector, AStillTrackBecomesATargetOfItsType) {
    CLeftObjectDetector detector(Config()); // min still 1000 ms
    struct {
        bool m_Moved;
        long m_LastSplit;
        int m_Type;
    } const table[] = {
        {false, -1, SLeftTarget::OBJECT},   // appeared in place
        {true, 2500, SLeftTarget::OBJECT},  // the walker who stopped here left it behind
        {true, 1500, SLeftTarget::STOPPED}, // moved in and stopped; a split before it stopped
    };
    for (const auto& row : table) {
        detector.Reset();
        STrack t = Still(1, kBag, 2000, row.m_Moved);
        t.m_LastSplit = row.m_LastSplit;
        EXPECT_TRUE(detector.Update(2999, {t}, {}).empty());
        const auto& targets = detector.Update(3000, {t}, {});
        ASSERT_EQ(targets.size(), 1U);
        EXPECT_EQ(targets[0].m_Type, row.m_Type);
        EXPECT_EQ(targets[0].StillFor(3000), 1000);
        EXPECT_FALSE(targets[0].m_Held);
    }
}

TEST(LeftObjectDetector, WhatFadesIntoTheBackgroundIsHeldUntilItsGhostAppears) {
    CLeftObjectDetector detector(Config());
    STrack bag = Still(1, kBag, 1000);
    bag.m_LastSeen = 3000; // seen still from 1000 to 3000, then coasted out
    detector.Update(3000, {bag}, {});
    auto targets = detector.Update(3800, {}, {bag});
    ASSERT_EQ(targets.size(), 1U);
    EXPECT_TRUE(targets[0].m_Held);
    EXPECT_EQ(targets[0].StillFor(3800), 2800);
    EXPECT_EQ(detector.Update(60000, {}, {}).size(), 1U) << "still there, still counting";

    // A passer-by who walks over the spot does not end it; a box born on it (the bag was taken
    // away and the background still shows it) does, and never becomes a target itself.
    STrack walker = Still(2, SBox{60, 160, 76, 200}, 0, true);
    walker.m_StillSince = 61000;
    detector.Update(61000, {walker}, {});
    walker.m_Box = SBox{98, 165, 114, 205};
    EXPECT_EQ(detector.Update(61040, {walker}, {}).size(), 1U);
    const STrack ghost = Still(3, SBox{101, 181, 111, 189}, 62000);
    EXPECT_TRUE(detector.Update(62000, {ghost}, {}).empty());
    EXPECT_TRUE(detector.Update(70000, {ghost}, {}).empty());
    EXPECT_EQ(detector.HeldCount(), 0U);
}

TEST(LeftObjectDetector, OnlyThingsThatStoodAreHeldAndNotForever) {
    SLeftObjectConfig config = Config();
    config.m_HoldTime = 5000;
    CLeftObjectDetector detector(config);
    STrack walker = Still(1, kBag, 2900, true); // moving until just before it was lost
    walker.m_LastSeen = 3000;
    EXPECT_TRUE(detector.Update(3800, {}, {walker}).empty());
    STrack duplicate = Still(2, kBag, 0);
    duplicate.m_Duplicate = true;
    EXPECT_TRUE(detector.Update(3800, {}, {duplicate}).empty());

    STrack bag = Still(3, kBag, 1000);
    bag.m_LastSeen = 3000;
    EXPECT_EQ(detector.Update(3800, {}, {bag}).size(), 1U);
    EXPECT_EQ(detector.Update(8800, {}, {}).size(), 1U);
    EXPECT_TRUE(detector.Update(8801, {}, {}).empty());
}

TEST(LeftObjectDetector, AZoneLimitsWhereTargetsAreLookedFor) {
    SLeftObjectConfig config = Config();
    config.m_HasZone = true;
    config.m_Zone = SBox{0, 0, 100, 100};
    CLeftObjectDetector detector(config);
    const STrack inside = Still(1, SBox{40, 40, 50, 50}, 0);
    const STrack outside = Still(2, kBag, 0);
    const auto& targets = detector.Update(5000, {inside, outside}, {});
    ASSERT_EQ(targets.size(), 1U);
    EXPECT_EQ(targets[0].m_Id, 1U);
}

TEST(LeftObjectDetector, MarksOfTheBackgroundAreNotTargets) {
    CLeftObjectDetector detector; // warm-up 5000 ms from the first frame
    detector.Update(0, {}, {});
    // Born in the warm-up: whoever stood in the first picture, or his ghost.
    STrack early = Still(1, kBag, 4000);
    early.m_Born = 4000;
    // Split off a walker who had stood there for a long while: the mark his standing left.
    STrack mark = Still(2, SBox{200, 100, 210, 110}, 6000);
    mark.m_Born = 6000;
    mark.m_ParentId = 9;
    mark.m_ParentStop = 6000;
    // Split off one who stopped a moment to put it down: a bag.
    STrack bag = Still(3, SBox{300, 100, 310, 110}, 6000);
    bag.m_Born = 6000;
    bag.m_ParentId = 9;
    bag.m_ParentStop = 800;
    const auto& targets = detector.Update(20000, {early, mark, bag}, {});
    ASSERT_EQ(targets.size(), 1U);
    EXPECT_EQ(targets[0].m_Id, 3U);
    // Foreground that stays on a held spot clears it; a passer-by's moment does not.
    CLeftObjectDetector held(Config());
    bag.m_LastSeen = 9000;
    held.Update(9000, {bag}, {});
    ASSERT_EQ(held.Update(9800, {}, {bag}).size(), 1U);
    STrack over = Still(4, SBox{200, 95, 220, 115}, 9900, true); // walks in from elsewhere
    held.Update(9900, {over}, {});
    over.m_Box = SBox{295, 95, 315, 115};
    held.Update(10000, {over}, {});
    held.Update(11000, {over}, {});
    held.Update(11100, {}, {});
    EXPECT_EQ(held.HeldCount(), 1U) << "covered for a second";
    held.Update(12000, {over}, {});
    held.Update(13000, {over}, {});
    held.Update(13500, {over}, {});
    EXPECT_EQ(held.HeldCount(), 0U) << "covered for 1.5 s";
}
