#include "framework/bel/BelIdleProcess.h"
#include "framework/bel/BelMessageLoop.h"
#include "framework/bel/BelProbed.h"
#include "framework/bel/BelSubject.h"
#include "framework/bel/BelThread.h"

#include <gtest/gtest.h>
#include <thread>

namespace {

class CCountingObserver : public CBelObserver {
public:
    void Update(CBelSubject*, int event) override { m_Sum += event; }
    int m_Sum = 0;
};

TEST(BelSubject, DestroyedObserverIsNeverCalled) {
    CBelSubject subject;
    CCountingObserver kept;
    subject.Attach(&kept);
    {
        CCountingObserver gone;
        subject.Attach(&gone);
        EXPECT_TRUE(subject.IsAttached(&gone));
    }
    subject.Notify(5);
    EXPECT_EQ(kept.m_Sum, 5);
}

TEST(BelProbed, VariablesAreFoundByFolderAndName) {
    CBelProbedLong threshold("threshold", "vmd", 12);
    EXPECT_EQ(static_cast<long>(threshold), 12);
    CBelProbedVariable* found = CBelRealTimeProber::Instance().Find("vmd/threshold");
    ASSERT_EQ(found, &threshold);
    found->SetFromDouble(30);
    EXPECT_EQ(static_cast<long>(threshold), 30);
}

class CWorker : public CBelThread {
public:
    ~CWorker() override { Join(-1); }
    CBelEvent m_Go;
    CBelEvent m_Done;

protected:
    void Run() override {
        m_Go.Wait(-1);
        m_Done.Set();
    }
};

TEST(BelThread, EventsHandOverBetweenThreads) {
    CWorker worker;
    ASSERT_TRUE(worker.Start(0, 0));
    EXPECT_TRUE(worker.IsActive());
    EXPECT_EQ(worker.m_Done.Wait(10), 0) << "nothing happens before the event is set";
    worker.m_Go.Set();
    EXPECT_EQ(worker.m_Done.Wait(-1), 1);
    EXPECT_TRUE(worker.Join(-1));
    EXPECT_FALSE(worker.IsActive());
}

class CIdleCounter : public CBelIdleProcess {
public:
    bool OnIdle() override { return ++m_Runs < 3; }
    int m_Runs = 0;
};

TEST(BelIdleProcess, RunsWhileItHasWorkWhenTheLoopIsIdle) {
    CIdleCounter idle;
    CBelMessageLoop::Current().RunUntilIdle();
    EXPECT_EQ(idle.m_Runs, 3);
}

} // namespace
