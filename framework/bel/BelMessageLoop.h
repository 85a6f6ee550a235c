// The per-thread message loop: it carries timers (CBelTimer alarms) and messages posted to a
// window from any thread, and delivers both on the thread that owns them.
//
// A thread's loop is made on first use (CBelMessageLoop::Current). Nothing runs by itself: the
// owning thread drives its loop with RunUntilIdle, RunFor or Advance (the host's zor.run,
// zor.run_until_idle and zor.advance). On the real clock RunFor sleeps until the next timer or
// message, with the thread's timer slack at its minimum so a timer fires within about 0.1 ms.
// On the virtual clock nothing sleeps: Advance moves the clock from timer to timer and fires each
// one in due order.
#pragma once

#include "framework/bel/WinTypes.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <vector>

class CBelIdleProcess;
class CBelTimer;

// What a hidden window delivers messages to.
class IBelWindowTarget {
public:
    virtual void OnWindowMessage(HWND window, unsigned message, unsigned wParam, long lParam) = 0;

protected:
    ~IBelWindowTarget() = default;
};

class CBelMessageLoop {
public:
    // The calling thread's loop.
    static CBelMessageLoop& Current();

    CBelMessageLoop();
    ~CBelMessageLoop();
    CBelMessageLoop(const CBelMessageLoop&) = delete;
    CBelMessageLoop& operator=(const CBelMessageLoop&) = delete;

    // Hidden windows. A window belongs to the loop of the thread that made it; messages posted to
    // a window that has been destroyed are dropped.
    HWND MakeWindow(IBelWindowTarget* target);
    void DestroyWindow(HWND window);
    // Queues a message for the window's owning thread; answers false for an unknown window.
    static bool PostMessage(HWND window, unsigned message, unsigned wParam, long lParam);
    // On the window's owning thread: delivers now, in order, every message of this number that
    // is queued for the window, and takes them off the queue; answers how many. A module
    // empties its queue this way before it frees what the messages refer to. These deliveries
    // do not count in MessageCount.
    static int DispatchQueued(HWND window, unsigned message);

    // Timers, keyed by the timer object; due is a framework-clock reading in seconds.
    void ScheduleTimer(CBelTimer* timer, double due);
    void CancelTimer(CBelTimer* timer);
    // Due time of the timer's alarm, or a negative value when none is set.
    double TimerDue(const CBelTimer* timer) const;

    // Delivers every posted message and every timer due now, repeatedly, until nothing is left
    // to do at the current time. Answers how many deliveries were made.
    int RunUntilIdle();
    // Runs for a span of framework time: on the real clock by waiting, on the virtual clock by
    // advancing it. Answers the deliveries made.
    int RunFor(double seconds);
    // Virtual clock only: moves the clock forward by milliseconds, firing due timers in order.
    int Advance(double milliseconds);
    // Wakes a RunFor that waits on another thread and makes it return.
    void Quit();

    // Idle processes run when a round delivers nothing (see BelIdleProcess.h).
    void AddIdleProcess(CBelIdleProcess* process);
    void RemoveIdleProcess(CBelIdleProcess* process);

    bool HasPendingWork() const;
    static long MessageCount();

private:
    struct SPosted {
        HWND m_Window;
        unsigned m_Message;
        unsigned m_WParam;
        long m_LParam;
        std::uint64_t m_Sequence;
    };
    struct STimerKey {
        double m_Due;
        std::uint64_t m_Sequence;
        bool operator<(const STimerKey& other) const {
            return m_Due < other.m_Due || (m_Due == other.m_Due && m_Sequence < other.m_Sequence);
        }
    };

    int DeliverPosted();
    // Looks the window's target up; nullptr once the window is destroyed.
    static IBelWindowTarget* TargetOf(HWND window);
    bool RunIdleProcesses();
    int FireDueTimers(double now);
    double NextTimerDue() const;
    void WaitUntil(double deadline);

    mutable std::mutex m_Mutex;
    std::condition_variable m_Wake;
    std::deque<SPosted> m_Posted;
    std::uint64_t m_NextPostSequence = 0;
    bool m_QuitRequested = false;
    std::map<STimerKey, CBelTimer*> m_Timers;
    std::map<const CBelTimer*, STimerKey> m_TimerIndex;
    std::uint64_t m_NextSequence = 0;
    std::vector<CBelIdleProcess*> m_IdleProcesses; // owning thread only
};
