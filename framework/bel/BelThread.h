// CBelThread: a thread whose body is the virtual Run; CBelEvent: an auto-reset event.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

class CBelThread {
public:
    CBelThread() = default;
    // Joins the thread: a derived class must stop its Run (and Join) before its own members go.
    virtual ~CBelThread();
    CBelThread(const CBelThread&) = delete;
    CBelThread& operator=(const CBelThread&) = delete;

    // Starts Run on a new thread; answers false when it is already running. The priority is
    // advisory on this platform (normal scheduling), kept for interface compatibility.
    bool Start(int priority = 0, int suspended = 0);
    void SetPriority(int priority) { m_Priority = priority; }
    int GetPriority() const { return m_Priority; }
    // True from Start until Run has returned.
    bool IsActive() const { return m_Active.load(); }
    // Waits up to milliseconds (negative: for ever) for Run to return; answers whether it did.
    bool Join(long milliseconds = -1);

protected:
    virtual void Run() = 0;

private:
    std::thread m_Thread;
    std::atomic<bool> m_Active{false};
    std::mutex m_DoneMutex;
    std::condition_variable m_Done;
    int m_Priority = 0;
};

class CBelEvent {
public:
    void Set();
    void Reset();
    // Waits up to milliseconds (negative: for ever); answers non-zero when the event was set.
    // The event resets itself when a wait is satisfied.
    int Wait(long milliseconds = -1);

private:
    std::mutex m_Mutex;
    std::condition_variable m_Signal;
    bool m_Set = false;
};
