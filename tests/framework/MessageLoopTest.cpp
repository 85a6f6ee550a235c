#include "framework/bel/BelMessageLoop.h"

#include "framework/bel/BelClock.h"
#include "framework/bel/BelTimer.h"
#include "framework/kor/Module.h"
#include "tests/support/Harness.h"

#include <functional>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

using namespace zortest;

namespace {

class CRecordingTimer : public CBelTimer {
public:
    CRecordingTimer(std::vector<int>& log, int id) : m_Log(log), m_Id(id) {}
    void TimeOut(long now) override {
        m_Log.push_back(m_Id);
        m_FiredAt = now;
    }
    std::vector<int>& m_Log;
    int m_Id;
    long m_FiredAt = -1;
};

TEST(MessageLoop, VirtualClockFiresTimersInDueOrderAtTheirTimes) {
    CVirtualClockScope clock;
    std::vector<int> log;
    CRecordingTimer late(log, 3), early(log, 1), middle(log, 2);
    const long start = BelGetTime();
    late.SetAlarm(300);
    early.SetAlarm(100);
    middle.SetAlarm(200);
    clock.Advance(150);
    EXPECT_EQ(log, std::vector<int>({1}));
    EXPECT_EQ(early.m_FiredAt - start, 100);
    clock.Advance(1000);
    EXPECT_EQ(log, std::vector<int>({1, 2, 3}));
    EXPECT_EQ(middle.m_FiredAt - start, 200);
    EXPECT_EQ(late.m_FiredAt - start, 300);
}

TEST(MessageLoop, AlarmRulesReplaceIfEarlierAndKill) {
    CVirtualClockScope clock;
    std::vector<int> log;
    CRecordingTimer timer(log, 1);
    timer.SetAlarm(100);
    timer.SetAlarmIfEarlier(500);
    timer.SetAlarmIfEarlier(50);
    const long start = BelGetTime();
    clock.Advance(60);
    EXPECT_EQ(timer.m_FiredAt - start, 50);
    timer.SetAlarm(10);
    timer.KillAlarm();
    clock.Advance(100);
    EXPECT_EQ(log.size(), 1u);
    EXPECT_FALSE(timer.IsAlarmSet());
}

TEST(MessageLoop, ZeroOrNegativeWaitFiresAtTheEarliestOpportunity) {
    CVirtualClockScope clock;
    std::vector<int> log;
    CRecordingTimer zero(log, 1), negative(log, 2);
    zero.SetAlarm(0);
    negative.SetAlarm(-5);
    CBelMessageLoop::Current().RunUntilIdle();
    EXPECT_EQ(log, std::vector<int>({2, 1}));
}

class CSelfRearmingTimer : public CBelTimer {
public:
    void TimeOut(long) override {
        if (++m_Count < 5) {
            SetAlarm(0);
        }
    }
    int m_Count = 0;
};

TEST(MessageLoop, TimerRearmingFromTimeOutFiresAgain) {
    CVirtualClockScope clock;
    CSelfRearmingTimer timer;
    timer.SetAlarm(0);
    CBelMessageLoop::Current().RunUntilIdle();
    EXPECT_EQ(timer.m_Count, 5);
}

class CWindowModule : public CKorModule {
public:
    CWindowModule() : CKorModule("Window") { MakeWindow(); }
    void WindowProc(HWND, unsigned message, unsigned wParam, long lParam) override {
        m_Thread = std::this_thread::get_id();
        m_Received.push_back(static_cast<long>(message) * 1000 + wParam + lParam);
        if (m_OnMessage) {
            m_OnMessage(message);
        }
    }
    std::thread::id m_Thread;
    std::vector<long> m_Received;
    std::function<void(unsigned)> m_OnMessage;
};

TEST(MessageLoop, MessagePostedFromAnotherThreadArrivesOnTheOwningThread) {
    CWindowModule module;
    std::thread poster([&] {
        for (unsigned i = 0; i < 3; ++i) {
            EXPECT_TRUE(module.PostMessage(7, i, 100));
        }
    });
    poster.join();
    EXPECT_TRUE(module.m_Received.empty()) << "nothing is delivered before the loop runs";
    CBelMessageLoop::Current().RunUntilIdle();
    EXPECT_EQ(module.m_Received, std::vector<long>({7100, 7101, 7102}));
    EXPECT_EQ(module.m_Thread, std::this_thread::get_id());
}

TEST(MessageLoop, MessageToADestroyedWindowIsDropped) {
    auto* module = new CWindowModule;
    const HWND window = module->GetWindow();
    delete module;
    EXPECT_FALSE(CBelMessageLoop::PostMessage(window, 1, 0, 0));
    EXPECT_EQ(CBelMessageLoop::Current().RunUntilIdle(), 0);
}

// A module takes its own messages off the queue before it frees what they refer to: from inside
// a handler too, for messages queued in the same round.
TEST(MessageLoop, DispatchQueuedDeliversOneKindNowAndLeavesTheRest) {
    CWindowModule module;
    module.PostMessage(7, 1, 0);
    module.PostMessage(8, 2, 0);
    module.PostMessage(7, 3, 0);
    const long delivered = CBelMessageLoop::MessageCount();
    EXPECT_EQ(module.DispatchQueued(7), 2);
    EXPECT_EQ(module.m_Received, std::vector<long>({7001, 7003}));
    EXPECT_EQ(CBelMessageLoop::MessageCount(), delivered) << "a drain is not counted";
    CBelMessageLoop::Current().RunUntilIdle();
    EXPECT_EQ(module.m_Received, std::vector<long>({7001, 7003, 8002}));

    module.m_Received.clear();
    module.m_OnMessage = [&](unsigned message) {
        if (message == 8) {
            module.DispatchQueued(7);
        }
    };
    module.PostMessage(8, 0, 0);
    module.PostMessage(7, 5, 0);
    module.PostMessage(7, 6, 0);
    EXPECT_EQ(CBelMessageLoop::Current().RunUntilIdle(), 1) << "the rest went in the drain";
    EXPECT_EQ(module.m_Received, std::vector<long>({8000, 7005, 7006}));
}

TEST(MessageLoop, RealClockRunForWakesForADueTimer) {
    std::vector<int> log;
    CRecordingTimer timer(log, 1);
    timer.SetAlarm(5);
    const double start = BelDoubleTime();
    CBelMessageLoop::Current().RunFor(0.05);
    EXPECT_EQ(log.size(), 1u);
    EXPECT_GE(BelDoubleTime() - start, 0.05);
}

} // namespace
