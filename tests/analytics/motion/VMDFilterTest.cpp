#include "analytics/motion/VMDFilter.h"

#include "framework/bel/BelDiagnostics.h"
#include "tests/analytics/motion/MotionTestSupport.h"
#include "tests/support/Harness.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

using namespace zortest;

namespace {

// A level series with known bursts: 10 on a quiet scene, +30 during each burst, with noise.
std::vector<SSourceRow> Scene(int frames, int stepMs, std::vector<std::pair<int, int>> bursts,
                              unsigned seed) {
    std::mt19937 random(seed);
    std::vector<SSourceRow> rows;
    for (int i = 0; i < frames; ++i) {
        const int t = i * stepMs;
        int level = 10 + static_cast<int>(random() % 3);
        for (const auto& [from, to] : bursts) {
            if (t >= from && t < to) {
                level += 30;
            }
        }
        rows.push_back({t, level});
    }
    return rows;
}

class VMDFilter : public ::testing::Test {
protected:
    void SetUp() override {
        m_pFilter = new CVMDFilter;
        m_pCallback = new CRecordingCallback;
        SetCallback(m_pFilter, "onVMD", m_pCallback);
        m_Source | *m_pFilter->CreateContext("video") | m_Sink;
    }
    void TearDown() override {
        m_Source.Flush();
        m_pFilter->Release();
        m_pCallback->Release();
    }
    void Push(long time, int level, long formatSeq = 0) {
        CKorVideoPacket* packet = MakeVideoPacket(time, CKorVideoPacket::P_FRAME);
        if (level != INT_MIN) {
            packet->SetAttribute(1, level);
        }
        packet->SetFormatSeqNumber(formatSeq);
        m_Source.Push(packet);
    }
    // (motion flag or NaN for null, time when called) of every callback so far.
    std::vector<std::pair<double, double>> Calls() const {
        std::vector<std::pair<double, double>> calls;
        for (size_t i = 0; i < m_pCallback->m_Calls.size(); ++i) {
            calls.emplace_back(m_pCallback->m_Calls[i][0], m_Times[i]);
        }
        return calls;
    }

    CTestSource m_Source;
    CTestSink m_Sink;
    CVMDFilter* m_pFilter = nullptr;
    CRecordingCallback* m_pCallback = nullptr;
    std::vector<double> m_Times;
};

TEST_F(VMDFilter, PropertiesCoupleLongDelayToTheBaselineWindowAndRefuseBadValues) {
    EXPECT_EQ(GetNumber(m_pFilter, "longDelay"), 20000);
    EXPECT_EQ(SetNumber(m_pFilter, "baselineWindow", 5000), 1);
    EXPECT_EQ(GetNumber(m_pFilter, "longDelay"), 15000);   // the hold time stayed 10000
    EXPECT_EQ(SetNumber(m_pFilter, "longDelay", 8000), 1); // hold 3000 against 5000
    EXPECT_EQ(SetNumber(m_pFilter, "baselineWindow", 10000), 1);
    EXPECT_EQ(GetNumber(m_pFilter, "longDelay"), 13000);
    EXPECT_EQ(SetNumber(m_pFilter, "averagingWindow", 1010), 1);
    EXPECT_EQ(GetNumber(m_pFilter, "averagingWindow"), 1000);
    EXPECT_EQ(SetNumber(m_pFilter, "level", 3), 0);
    EXPECT_EQ(SetNumber(m_pFilter, "timeStamp", 3), 0);

    // Bad settings are refused with a message and change nothing.
    CBelDiagnosticCapture capture;
    for (const char* name : {"baselineWindow", "averagingWindow", "shortDelay", "longDelay"}) {
        for (double bad : {-1.0, std::nan(""), 1e300}) {
            const double before = GetNumber(m_pFilter, name);
            EXPECT_EQ(SetNumber(m_pFilter, name, bad), 0) << name << " " << bad;
            EXPECT_EQ(GetNumber(m_pFilter, name), before) << name;
        }
    }
    EXPECT_EQ(SetNumber(m_pFilter, "threshold", NAN), 0);
    EXPECT_EQ(SetNumber(m_pFilter, "threshold", -1), 0);
    const CBelString errors = capture.Text(EBelDiagnosticKind::ScriptError);
    EXPECT_NE(errors.str().find("VMDFilter.shortDelay: NaN is not a time in ms"),
              std::string::npos);
    EXPECT_NE(errors.str().find("VMDFilter.threshold: -1 is not a level margin"),
              std::string::npos);
}

TEST_F(VMDFilter, ReportsStartAndStopOfABurstAndPassesEveryPacket) {
    m_pCallback->m_Calls.clear();
    SetBoolean(m_pFilter, "enabled", true);
    SetNumber(m_pFilter, "longDelay", 12000); // hold 2000
    // Record the filter's time at each call through a second look at timeStamp.
    for (const SSourceRow& row : Scene(750, 40, {{12000, 15000}}, 1)) {
        const size_t before = m_pCallback->m_Calls.size();
        Push(row.m_Time, row.m_Level);
        if (m_pCallback->m_Calls.size() > before) {
            m_Times.push_back(GetNumber(m_pFilter, "timeStamp"));
        }
    }
    const auto calls = Calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].first, 1);
    EXPECT_GE(calls[0].second, 12040); // more than the short delay after the rise
    EXPECT_LE(calls[0].second, 12200);
    EXPECT_EQ(calls[1].first, 0);
    EXPECT_GE(calls[1].second, 15000 + 2000);
    EXPECT_EQ(m_pCallback->m_Calls[0][1], -1); // the filter itself, last
    EXPECT_EQ(m_Sink.Count(), 750);
}

// "No level" is told after six frames without one on a format that never had levels, once per
// life of the filter; a gap on a format that had levels is no such thing.
TEST_F(VMDFilter, NoLevelIsToldOnceAfterSixFramesOnAFormatWithoutLevels) {
    SetBoolean(m_pFilter, "enabled", true);
    for (int i = 0; i < 20; ++i) {
        Push(i * 40, i < 10 ? 10 : -1, 7);
    }
    for (int i = 20; i < 25; ++i) {
        Push(i * 40, -1, 8);
    }
    EXPECT_TRUE(m_pCallback->m_Calls.empty());
    Push(1000, INT_MIN, 8); // no attribute at all counts as no level
    ASSERT_EQ(m_pCallback->m_Calls.size(), 1u);
    EXPECT_TRUE(std::isnan(m_pCallback->m_Calls[0][0]));
    SetBoolean(m_pFilter, "enabled", false);
    SetBoolean(m_pFilter, "enabled", true);
    for (int i = 0; i < 20; ++i) {
        Push(2000 + i * 40, -1, 8);
    }
    EXPECT_EQ(m_pCallback->m_Calls.size(), 1u);
}

TEST_F(VMDFilter, DisabledFilterPassesPacketsUntouchedAndDisablingResets) {
    Push(0, 90);
    EXPECT_EQ(m_pFilter->Trace().size(), 0u);
    EXPECT_EQ(GetNumber(m_pFilter, "level"), 0);
    SetBoolean(m_pFilter, "enabled", true);
    SetNumber(m_pFilter, "shortDelay", 0);
    for (int i = 1; i < 30; ++i) {
        Push(i * 40, i < 20 ? 10 : 90);
    }
    EXPECT_EQ(m_pFilter->GetState(), zormotion::CVmdStateMachine::MOTION);
    SetBoolean(m_pFilter, "enabled", false);
    EXPECT_EQ(m_pFilter->GetState(), zormotion::CVmdStateMachine::IDLE);
    EXPECT_EQ(GetNumber(m_pFilter, "baseline"), 0);
    EXPECT_EQ(m_Sink.Count(), 30);
}

// ---------------------------------------------------------------------------------------------
// The archive filter over rows in memory.

class ArchiveVMDFilter : public ::testing::Test {
protected:
    void SetUp() override { m_pFilter = new CArchiveVMDFilter; }
    void TearDown() override { m_pFilter->Release(); }

    void Attach(CFakeAttributeSource* source) {
        IUnknown* unknown = source;
        m_pFilter->SourceHandler(&unknown, 1);
        source->Release();
    }
    std::vector<std::pair<double, double>> Find(double fps, double start, double end,
                                                bool continued = false, bool lowState = true) {
        CJokCommandContext context;
        context.AddParam("fps", fps);
        context.AddParam("StartTime", start);
        context.AddParam("EndTime", end);
        context.AddBooleanParam("ContinuedFromPrevious", continued);
        context.AddBooleanParam("LowState", lowState);
        m_pFilter->FindMotionLevels(&context);
        return Intervals<CVMDMotionInfoCom>(context.GetReturnValue());
    }
    // The same rows through a live filter at their own times: (start, end) per motion.
    static std::vector<std::pair<double, double>> Live(const std::vector<SSourceRow>& rows,
                                                       double longDelay) {
        auto* filter = new CVMDFilter;
        auto* callback = new CRecordingCallback;
        SetCallback(filter, "onVMD", callback);
        SetNumber(filter, "longDelay", longDelay);
        SetBoolean(filter, "enabled", true);
        std::vector<std::pair<double, double>> intervals;
        for (const SSourceRow& row : rows) {
            const size_t before = callback->m_Calls.size();
            filter->ProcessVMDLevel(row.m_Time, row.m_Level);
            if (callback->m_Calls.size() > before) {
                if (callback->m_Calls.back()[0] == 1) {
                    intervals.emplace_back(row.m_Time, -1.0);
                } else {
                    intervals.back().second = row.m_Time;
                }
            }
        }
        filter->Release();
        callback->Release();
        return intervals;
    }

    CArchiveVMDFilter* m_pFilter = nullptr;
};

TEST_F(ArchiveVMDFilter, ReplayAtTheFrameRateFindsTheLiveIntervals) {
    const auto rows = Scene(3000, 40, {{15000, 19000}, {40000, 41000}, {116000, 120000}}, 5);
    SetNumber(m_pFilter, "longDelay", 13000);
    Attach(new CFakeAttributeSource(rows));
    const auto archive = Find(25, 0, -1);
    const auto live = Live(rows, 13000);
    ASSERT_EQ(live.size(), 3u);
    EXPECT_EQ(live.back().second, -1.0); // still moving when the rows end
    EXPECT_EQ(archive, live);
}

TEST_F(ArchiveVMDFilter, ConstantStretchesAreSkippedWithoutChangingTheResult) {
    // Only the frames where the level changes are stored; the live filter saw every frame.
    std::vector<SSourceRow> dense;
    std::vector<SSourceRow> changes;
    for (int t = 0; t < 900000; t += 100) {
        const int level = (t >= 300000 && t < 304000) || (t >= 620000 && t < 621000) ? 50 : 10;
        dense.push_back({t, level});
        if (changes.empty() || changes.back().m_Level != level) {
            changes.push_back({t, level});
        }
    }
    changes.push_back({899900, 10});
    Attach(new CFakeAttributeSource(changes));
    SetBoolean(m_pFilter, "record", true);
    const auto archive = Find(10, 0, 900000);
    ASSERT_EQ(archive.size(), 2u);
    EXPECT_EQ(archive, Live(dense, 20000));
    EXPECT_LT(m_pFilter->Trace().size(), dense.size() / 2); // most of the quiet time skipped
}

TEST_F(ArchiveVMDFilter, ARangeStartingBetweenRowsHoldsThePreviousLevelFromItsStart) {
    Attach(new CFakeAttributeSource({{0, 5}, {1000, 6}, {3000, 7}, {5000, 8}}));
    Find(1, 2000, 4000);
    EXPECT_EQ(m_pFilter->Times(), (std::vector<std::int32_t>{2000, 3000, 4001, 0, 0, 0}));
    EXPECT_EQ(m_pFilter->Levels(), (std::vector<std::int32_t>{6, 7, 7, 0, 0, 0}));
    EXPECT_EQ(m_pFilter->GetTimeOffset(), 4001);
}

TEST_F(ArchiveVMDFilter, AMotionOpenAtTheEndReopensInTheNextRange) {
    SetNumber(m_pFilter, "shortDelay", 0);
    std::vector<SSourceRow> first, second;
    for (int t = 0; t < 60000; t += 100) {
        first.push_back({t, t < 55000 ? 10 : 60});
        second.push_back({t, t < 5000 ? 60 : 10});
    }
    Attach(new CFakeAttributeSource(first));
    const auto a = Find(10, 0, 60000);
    ASSERT_EQ(a.size(), 1u);
    EXPECT_EQ(a[0].second, -1.0);
    Attach(new CFakeAttributeSource(second));
    const auto b = Find(10, 0, 60000, true, false);
    ASSERT_EQ(b.size(), 1u);
    EXPECT_EQ(b[0].first, 0.0);
    EXPECT_GT(b[0].second, 5000.0);
}

TEST_F(ArchiveVMDFilter, FpsBelowOneFeedsOneSamplePerSecond) {
    Attach(new CFakeAttributeSource({{0, 10}}));
    SetBoolean(m_pFilter, "record", true);
    SetNumber(m_pFilter, "baselineWindow", 1000000); // no skipping: every sample is fed
    for (double fps : {0.0, -3.0, 0.5, std::nan("")}) {
        CJokCommandContext clear;
        m_pFilter->ClearTrace(&clear);
        Find(fps, 0, 9999);
        EXPECT_EQ(m_pFilter->Trace().size(), 10u) << fps;
    }
}

TEST_F(ArchiveVMDFilter, MissingEmptyOrFailingSourcesGiveEmptyResults) {
    EXPECT_TRUE(Find(10, 0, -1).empty());
    Attach(new CFakeAttributeSource({}));
    EXPECT_TRUE(Find(10, 0, -1).empty());
    auto* failing = new CFakeAttributeSource(Scene(100, 40, {{0, 4000}}, 3));
    failing->m_FailAt = 50;
    Attach(failing);
    CBelDiagnosticCapture capture;
    EXPECT_TRUE(Find(10, 0, -1).empty());
    EXPECT_EQ(capture.Text(EBelDiagnosticKind::Dump),
              "CArchiveVMDFilter::RetrieveLevels -> Error retrieving attribute values: the test "
              "broke row\n");
    CJokCommandContext bad;
    bad.AddParam("StartTime", std::nan(""));
    m_pFilter->FindMotionLevels(&bad);
    EXPECT_NE(capture.Text(EBelDiagnosticKind::ScriptError).str().find("must be numbers"),
              std::string::npos);
}

} // namespace
