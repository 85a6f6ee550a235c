#include "framework/bel/BelMessageLoop.h"

#include "framework/bel/BelDiagnostics.h"

#include "framework/bel/BelClock.h"
#include "framework/bel/BelIdleProcess.h"
#include "framework/bel/BelTimer.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <limits>
#include <sys/prctl.h>
#include <unordered_map>
#include <vector>

namespace {

struct SWindow {
    CBelMessageLoop* m_pLoop;
    IBelWindowTarget* m_pTarget;
};

// Windows of every thread, so that a post from any thread finds the owning loop.
struct SWindowRegistry {
    std::mutex m_Mutex;
    std::unordered_map<std::uintptr_t, SWindow> m_Windows;
    std::uintptr_t m_NextId = 1;
};

SWindowRegistry& Windows() {
    static SWindowRegistry* registry = new SWindowRegistry; // lives as long as any thread
    return *registry;
}

std::atomic<long> s_MessageCount{0};

constexpr double kNever = std::numeric_limits<double>::infinity();

} // namespace

CBelMessageLoop& CBelMessageLoop::Current() {
    // Loops are kept for the life of the process: timers and windows may refer to them until
    // static destruction, after the thread's own storage is gone.
    thread_local CBelMessageLoop* loop = [] {
        static std::mutex mutex;
        static auto* all = new std::vector<CBelMessageLoop*>;
        std::lock_guard<std::mutex> lock(mutex);
        all->push_back(new CBelMessageLoop);
        return all->back();
    }();
    return *loop;
}

CBelMessageLoop::CBelMessageLoop() = default;
CBelMessageLoop::~CBelMessageLoop() = default;

HWND CBelMessageLoop::MakeWindow(IBelWindowTarget* target) {
    SWindowRegistry& r = Windows();
    std::lock_guard<std::mutex> lock(r.m_Mutex);
    const std::uintptr_t id = r.m_NextId++;
    r.m_Windows[id] = SWindow{this, target};
    // Window handles are opaque ids, never dereferenced.
    return reinterpret_cast<HWND>(id); // NOLINT(performance-no-int-to-ptr)
}

void CBelMessageLoop::DestroyWindow(HWND window) {
    SWindowRegistry& r = Windows();
    std::lock_guard<std::mutex> lock(r.m_Mutex);
    r.m_Windows.erase(reinterpret_cast<std::uintptr_t>(window));
}

bool CBelMessageLoop::PostMessage(HWND window, unsigned message, unsigned wParam, long lParam) {
    CBelMessageLoop* loop = nullptr;
    {
        SWindowRegistry& r = Windows();
        std::lock_guard<std::mutex> lock(r.m_Mutex);
        const auto found = r.m_Windows.find(reinterpret_cast<std::uintptr_t>(window));
        if (found == r.m_Windows.end()) {
            return false;
        }
        loop = found->second.m_pLoop;
    }
    {
        std::lock_guard<std::mutex> lock(loop->m_Mutex);
        loop->m_Posted.push_back(
            SPosted{window, message, wParam, lParam, loop->m_NextPostSequence++});
    }
    loop->m_Wake.notify_all();
    return true;
}

int CBelMessageLoop::DispatchQueued(HWND window, unsigned message) {
    CBelMessageLoop& loop = Current();
    int delivered = 0;
    for (;;) {
        SPosted posted{};
        {
            std::lock_guard<std::mutex> lock(loop.m_Mutex);
            const auto found =
                std::find_if(loop.m_Posted.begin(), loop.m_Posted.end(), [&](const SPosted& p) {
                    return p.m_Window == window && p.m_Message == message;
                });
            if (found == loop.m_Posted.end()) {
                return delivered;
            }
            posted = *found;
            loop.m_Posted.erase(found);
        }
        if (IBelWindowTarget* target = TargetOf(window)) {
            target->OnWindowMessage(window, message, posted.m_WParam, posted.m_LParam);
            ++delivered;
        }
    }
}

void CBelMessageLoop::ScheduleTimer(CBelTimer* timer, double due) {
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        const auto old = m_TimerIndex.find(timer);
        if (old != m_TimerIndex.end()) {
            m_Timers.erase(old->second);
        }
        const STimerKey key{due, m_NextSequence++};
        m_Timers[key] = timer;
        m_TimerIndex[timer] = key;
    }
    m_Wake.notify_all();
}

void CBelMessageLoop::CancelTimer(CBelTimer* timer) {
    std::lock_guard<std::mutex> lock(m_Mutex);
    const auto old = m_TimerIndex.find(timer);
    if (old != m_TimerIndex.end()) {
        m_Timers.erase(old->second);
        m_TimerIndex.erase(old);
    }
}

double CBelMessageLoop::TimerDue(const CBelTimer* timer) const {
    std::lock_guard<std::mutex> lock(m_Mutex);
    const auto found = m_TimerIndex.find(timer);
    return found == m_TimerIndex.end() ? -1.0 : found->second.m_Due;
}

IBelWindowTarget* CBelMessageLoop::TargetOf(HWND window) {
    SWindowRegistry& r = Windows();
    std::lock_guard<std::mutex> lock(r.m_Mutex);
    const auto found = r.m_Windows.find(reinterpret_cast<std::uintptr_t>(window));
    return found == r.m_Windows.end() ? nullptr : found->second.m_pTarget;
}

int CBelMessageLoop::DeliverPosted() {
    // A round delivers what was queued when it began; messages stay queued until their turn, so
    // a handler can still take its own off the queue (DispatchQueued).
    std::uint64_t roundEnd = 0;
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        roundEnd = m_NextPostSequence;
    }
    int delivered = 0;
    for (;;) {
        SPosted posted{};
        {
            std::lock_guard<std::mutex> lock(m_Mutex);
            if (m_Posted.empty() || m_Posted.front().m_Sequence >= roundEnd) {
                return delivered;
            }
            posted = m_Posted.front();
            m_Posted.pop_front();
        }
        // The window may have been destroyed since the post: the message is dropped then.
        if (IBelWindowTarget* target = TargetOf(posted.m_Window)) {
            ++s_MessageCount;
            try {
                target->OnWindowMessage(posted.m_Window, posted.m_Message, posted.m_WParam,
                                        posted.m_LParam);
            } catch (...) {
                BelDumpCurrentException("CBelMessageLoop::DeliverPosted",
                                        "the message was dropped");
            }
            ++delivered;
        }
    }
}

int CBelMessageLoop::FireDueTimers(double now) {
    // Only alarms set before this round fire in it: a timer that re-arms itself with a zero wait
    // from TimeOut fires again in the next round, after the posted messages.
    std::uint64_t roundStart = 0;
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        roundStart = m_NextSequence;
    }
    int fired = 0;
    for (;;) {
        CBelTimer* timer = nullptr;
        {
            std::lock_guard<std::mutex> lock(m_Mutex);
            for (auto it = m_Timers.begin(); it != m_Timers.end() && it->first.m_Due <= now; ++it) {
                if (it->first.m_Sequence < roundStart) {
                    timer = it->second;
                    m_TimerIndex.erase(timer);
                    m_Timers.erase(it);
                    break;
                }
            }
        }
        if (!timer) {
            return fired;
        }
        try {
            timer->TimeOut(BelGetTime());
        } catch (...) {
            BelDumpCurrentException("CBelMessageLoop::FireDueTimers", "the alarm was dropped");
        }
        ++fired;
    }
}

double CBelMessageLoop::NextTimerDue() const {
    std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Timers.empty() ? kNever : m_Timers.begin()->first.m_Due;
}

int CBelMessageLoop::RunUntilIdle() {
    // A bound on the rounds keeps a timer that always re-arms itself from hanging the caller.
    constexpr int kMaxRounds = 1000000;
    int total = 0;
    for (int round = 0; round < kMaxRounds; ++round) {
        const int done = DeliverPosted() + FireDueTimers(BelDoubleTime());
        if (done == 0 && !RunIdleProcesses()) {
            break;
        }
        total += done;
    }
    return total;
}

int CBelMessageLoop::Advance(double milliseconds) {
    if (!BelIsVirtualClock()) {
        return RunUntilIdle();
    }
    if (!(milliseconds > 0)) {
        milliseconds = 0; // NaN would never compare past a timer, and time does not run back
    }
    const double end = BelDoubleTime() + milliseconds / 1000.0;
    int total = RunUntilIdle();
    for (;;) {
        const double next = NextTimerDue();
        if (next > end) {
            break;
        }
        BelSetVirtualTime(next);
        total += RunUntilIdle();
    }
    BelSetVirtualTime(end);
    return total + RunUntilIdle();
}

void CBelMessageLoop::WaitUntil(double deadline) {
    // A timer must fire close to its due time: keep the kernel from batching our wake-ups.
    thread_local const bool slackSet = prctl(PR_SET_TIMERSLACK, 1UL, 0, 0, 0) == 0;
    (void)slackSet;
    std::unique_lock<std::mutex> lock(m_Mutex);
    const double wait = deadline - BelDoubleTime();
    if (wait <= 0 || !m_Posted.empty() || m_QuitRequested) {
        return;
    }
    const auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(wait);
    m_Wake.wait_until(lock, until, [this] { return !m_Posted.empty() || m_QuitRequested; });
}

int CBelMessageLoop::RunFor(double seconds) {
    if (!(seconds > 0)) {
        seconds = 0; // NaN would keep the end out of reach for ever
    }
    if (BelIsVirtualClock()) {
        return Advance(seconds * 1000.0);
    }
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        m_QuitRequested = false;
    }
    const double end = BelDoubleTime() + seconds;
    int total = 0;
    for (;;) {
        total += RunUntilIdle();
        {
            std::lock_guard<std::mutex> lock(m_Mutex);
            if (m_QuitRequested) {
                m_QuitRequested = false;
                return total;
            }
        }
        if (BelDoubleTime() >= end) {
            return total;
        }
        WaitUntil(std::min(end, NextTimerDue()));
    }
}

void CBelMessageLoop::Quit() {
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        m_QuitRequested = true;
    }
    m_Wake.notify_all();
}

bool CBelMessageLoop::HasPendingWork() const {
    std::lock_guard<std::mutex> lock(m_Mutex);
    return !m_Posted.empty() || !m_Timers.empty();
}

void CBelMessageLoop::AddIdleProcess(CBelIdleProcess* process) {
    m_IdleProcesses.push_back(process);
}

void CBelMessageLoop::RemoveIdleProcess(CBelIdleProcess* process) {
    m_IdleProcesses.erase(std::remove(m_IdleProcesses.begin(), m_IdleProcesses.end(), process),
                          m_IdleProcesses.end());
}

bool CBelMessageLoop::RunIdleProcesses() {
    bool more = false;
    const std::vector<CBelIdleProcess*> processes = m_IdleProcesses;
    for (CBelIdleProcess* process : processes) {
        if (std::find(m_IdleProcesses.begin(), m_IdleProcesses.end(), process) !=
            m_IdleProcesses.end()) {
            more = process->OnIdle() || more;
        }
    }
    return more;
}

long CBelMessageLoop::MessageCount() {
    return s_MessageCount.load();
}
