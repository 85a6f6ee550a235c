#include "analytics/counting/core/BoxTracker.h"

#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <vector>

using zor::counting::CBoxTracker;
using zor::counting::ETrackState;
using zor::counting::SBox;
using zor::counting::STrack;

namespace {

constexpr long kFrame = 40;

SBox At(double x, double y, int w = 16, int h = 40) {
    return SBox{static_cast<int>(x - w / 2), static_cast<int>(y - h / 2),
                static_cast<int>(x + w / 2), static_cast<int>(y + h / 2)};
}

// Feeds frames made by make(frame index) and answers, for every frame, the confirmed tracks.
std::vector<std::vector<STrack>> Track(CBoxTracker& tracker, int frames,
                                       const std::function<std::vector<SBox>(int)>& make) {
    std::vector<std::vector<STrack>> seen;
    for (int f = 0; f < frames; ++f) {
        const std::vector<SBox> boxes = make(f);
        std::vector<STrack> confirmed;
        for (const STrack& t : tracker.Update(f * kFrame, boxes.data(), boxes.size())) {
            if (t.m_Confirmed) {
                confirmed.push_back(t);
            }
        }
        seen.push_back(confirmed);
    }
    return seen;
}

std::set<unsigned long> Ids(const std::vector<std::vector<STrack>>& frames) {
    std::set<unsigned long> ids;
    for (const auto& frame : frames) {
        for (const STrack& t : frame) {
            ids.insert(t.m_Id);
        }
    }
    return ids;
}

// Halves of one walker, as a detector splits him at the waist.
std::vector<SBox> Halves(const SBox& b) {
    return {SBox{b.m_Left, b.m_Top, b.m_Right, b.m_Top + 20},
            SBox{b.m_Left, b.m_Top + 24, b.m_Right, b.m_Bottom}};
}

} // namespace

// The faults of a blob detector that must not break one walker's identity, and an occlusion
// longer than the tracker coasts (800 ms) that must.
struct SIdentityCase {
    const char* m_Name;
    std::size_t m_Ids;
    std::function<std::vector<SBox>(int)> m_Make;
};

class BoxTrackerIdentity : public testing::TestWithParam<SIdentityCase> {};

TEST_P(BoxTrackerIdentity, OneWalkerKeepsOneIdentityUnlessLostTooLong) {
    CBoxTracker tracker;
    const auto frames = Track(tracker, 90, GetParam().m_Make);
    EXPECT_EQ(Ids(frames).size(), GetParam().m_Ids) << GetParam().m_Name;
    EXPECT_LE(frames.back().size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(
    Faults, BoxTrackerIdentity,
    testing::Values(SIdentityCase{"fragments every other frame", 1,
                                  [](int f) {
                                      const SBox b = At(20 + 3 * f, 100);
                                      return f % 2 == 0 ? std::vector<SBox>{b} : Halves(b);
                                  }},
                    SIdentityCase{"fragments from the first frame on", 1,
                                  [](int f) { return Halves(At(20 + 3 * f, 100)); }},
                    SIdentityCase{"occluded for 400 ms", 1,
                                  [](int f) {
                                      return f >= 30 && f < 40
                                                 ? std::vector<SBox>{}
                                                 : std::vector<SBox>{At(20 + 3 * f, 100)};
                                  }},
                    SIdentityCase{"occluded for 1000 ms", 2,
                                  [](int f) {
                                      return f >= 30 && f < 55
                                                 ? std::vector<SBox>{}
                                                 : std::vector<SBox>{At(20 + 3 * f, 100)};
                                  }},
                    SIdentityCase{"jittering edges beside tiny noise", 1,
                                  [](int f) {
                                      const int j = (f * 7) % 5 - 2;
                                      SBox b = At(20 + 3 * f, 100);
                                      b.m_Left += j;
                                      b.m_Bottom -= j;
                                      return std::vector<SBox>{b, SBox{200 - f, 30, 203 - f, 33}};
                                  }}),
    [](const testing::TestParamInfo<SIdentityCase>& info) { return std::to_string(info.index); });

TEST(BoxTracker, ConfirmsAfterThreeHitsAndForgetsNoise) {
    CBoxTracker tracker;
    const SBox box = At(100, 100);
    for (int f = 0; f < 2; ++f) {
        tracker.Update(f * kFrame, &box, 1);
        ASSERT_EQ(tracker.Tracks().size(), 1U);
        EXPECT_FALSE(tracker.Tracks()[0].m_Confirmed);
    }
    tracker.Update(2 * kFrame, &box, 1);
    EXPECT_TRUE(tracker.Tracks()[0].m_Confirmed);

    // A box seen once and then gone never becomes a track that ends.
    CBoxTracker other;
    other.Update(0, &box, 1);
    other.Update(kFrame, nullptr, 0);
    EXPECT_TRUE(other.Tracks().empty());
    EXPECT_TRUE(other.Ended().empty());
}

TEST(BoxTrackerMerge, WalkersWhoMeetInOneBoxKeepTheirWays) {
    // A walks right, B walks left on the same row; for 16 frames they are one box.
    CBoxTracker tracker;
    auto make = [](int f) {
        const SBox a = At(60 + 4 * f, 100);
        const SBox b = At(300 - 4 * f, 100);
        if (f >= 26 && f < 42) {
            return std::vector<SBox>{zor::counting::Union(a, b)};
        }
        return std::vector<SBox>{a, b};
    };
    const auto frames = Track(tracker, 70, make);
    ASSERT_EQ(Ids(frames).size(), 2U);
    const STrack* right = nullptr;
    const STrack* left = nullptr;
    for (const STrack& t : frames[20]) {
        (t.m_X < 180 ? right : left) = &t; // A is on the left before they meet
    }
    ASSERT_TRUE(right && left);
    const unsigned long idA = right->m_Id;
    bool sawMerged = false;
    for (int f = 26; f < 42; ++f) {
        for (const STrack& t : frames[static_cast<size_t>(f)]) {
            sawMerged = sawMerged || t.m_State == ETrackState::Merged;
        }
    }
    EXPECT_TRUE(sawMerged);
    for (const STrack& t : frames.back()) {
        if (t.m_Id == idA) {
            EXPECT_GT(t.m_X, 250) << "A went on to the right";
        } else {
            EXPECT_LT(t.m_X, 110) << "B went on to the left";
        }
    }
}

TEST(BoxTrackerSplit, WhatAWalkerLeavesBehindStartsATrackOfItsOwn) {
    // A walker with a bag at his feet stops, then walks off and leaves the bag.
    CBoxTracker tracker;
    auto make = [](int f) {
        const double x = f < 20 ? 40 + 3 * f : (f < 30 ? 100 : 100 + 4 * (f - 30));
        const SBox walker = At(x, 100);
        const SBox bag = f < 20 ? At(x + 6, 114, 12, 10) : At(106, 114, 12, 10);
        std::vector<SBox> boxes{walker, bag};
        if (!zor::counting::Intersection(zor::counting::Grown(walker, 1), bag).IsEmpty()) {
            boxes = {zor::counting::Union(walker, bag)};
        }
        return boxes;
    };
    const auto frames = Track(tracker, 70, make);
    ASSERT_EQ(frames.back().size(), 2U);
    const STrack& first = frames.back()[0];
    const STrack& second = frames.back()[1];
    EXPECT_EQ(second.m_ParentId, first.m_Id);
    EXPECT_GE(first.m_LastSplit, 30 * kFrame);
    const STrack& bag = first.m_X < second.m_X ? first : second;
    EXPECT_NEAR(bag.m_X, 106, 4);
    EXPECT_GE(bag.StillFor(69 * kFrame), 1000);
}

TEST(BoxTrackerStill, StillTimeRunsWhileTheBoxStaysOrShrinksInPlace) {
    CBoxTracker tracker;
    auto make = [](int f) {
        if (f < 20) {
            return std::vector<SBox>{At(40 + 3 * f, 100)};
        }
        // Stopped at frame 20; from frame 40 the box fades from the top, as an absorbed one does.
        SBox b = At(97, 100);
        if (f >= 40) {
            b.m_Top = std::min(b.m_Top + (f - 40), b.m_Bottom - 6);
        }
        return std::vector<SBox>{b};
    };
    const auto frames = Track(tracker, 70, make);
    ASSERT_EQ(frames.back().size(), 1U);
    const long still = frames.back()[0].StillFor(69 * kFrame);
    EXPECT_NEAR(still, 50 * kFrame, 3 * kFrame) << "still since it stopped at frame 19";
    EXPECT_TRUE(frames.back()[0].m_Moved);
}

TEST(BoxTrackerLimits, AbsurdBoxCountsAreCutToTheLargest) {
    CBoxTracker tracker;
    std::vector<SBox> boxes; // 4,900 separate things, one of them larger than the rest
    for (int i = 0; i < 4900; ++i) {
        boxes.push_back(SBox{10 * (i % 70), 10 * (i / 70), 10 * (i % 70) + 6, 10 * (i / 70) + 6});
    }
    boxes.push_back(SBox{2000, 2000, 2030, 2030});
    boxes.push_back(SBox{5, 5, 3, 3}); // inside out
    tracker.Update(0, boxes.data(), boxes.size());
    EXPECT_EQ(tracker.Dropped(), 4901U - tracker.Config().m_MaxBoxes);
    EXPECT_EQ(tracker.Tracks().size(), tracker.Config().m_MaxBoxes);
    bool keptLargest = false;
    for (const STrack& t : tracker.Tracks()) {
        keptLargest = keptLargest || t.m_Box == SBox{2000, 2000, 2030, 2030};
    }
    EXPECT_TRUE(keptLargest);
    // Beyond any picture's worth of boxes the rest is not even looked at.
    std::vector<SBox> flood(300000, SBox{0, 0, 8, 8});
    tracker.Update(kFrame, flood.data(), flood.size());
    EXPECT_EQ(tracker.Dropped(), 100000U);
    tracker.Update(2 * kFrame, nullptr, 5); // no boxes at all, whatever the count says
    EXPECT_EQ(tracker.Dropped(), 0U);
}

TEST(BoxTrackerTime, TimeRunningBackwardsStartsAfresh) {
    CBoxTracker tracker;
    const SBox box = At(100, 100);
    for (int f = 0; f < 5; ++f) {
        tracker.Update(1000 + f * kFrame, &box, 1);
    }
    const unsigned long before = tracker.Tracks()[0].m_Id;
    tracker.Update(0, &box, 1);
    ASSERT_EQ(tracker.Tracks().size(), 1U);
    EXPECT_NE(tracker.Tracks()[0].m_Id, before);
    EXPECT_FALSE(tracker.Tracks()[0].m_Confirmed);
}
