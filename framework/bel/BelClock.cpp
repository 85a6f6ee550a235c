#include "framework/bel/BelClock.h"

#include <atomic>
#include <chrono>
#include <cmath>
#include <mutex>

namespace {

struct SClockState {
    const std::chrono::steady_clock::time_point m_Origin = std::chrono::steady_clock::now();
    std::atomic<bool> m_Virtual{false};
    std::atomic<double> m_VirtualNow{0.0};
    std::mutex m_SwitchMutex;
};

SClockState& State() {
    static SClockState state;
    return state;
}

double RealSeconds() {
    const auto elapsed = std::chrono::steady_clock::now() - State().m_Origin;
    return std::chrono::duration<double>(elapsed).count();
}

} // namespace

double BelDoubleTime() {
    SClockState& s = State();
    return s.m_Virtual.load(std::memory_order_acquire) ? s.m_VirtualNow.load() : RealSeconds();
}

long BelGetTime() {
    return static_cast<long>(std::floor(BelDoubleTime() * 1000.0));
}

void BelUseVirtualClock(bool useVirtual) {
    SClockState& s = State();
    std::lock_guard<std::mutex> lock(s.m_SwitchMutex);
    if (useVirtual == s.m_Virtual.load()) {
        return;
    }
    if (useVirtual) {
        s.m_VirtualNow.store(RealSeconds());
    }
    s.m_Virtual.store(useVirtual, std::memory_order_release);
}

bool BelIsVirtualClock() {
    return State().m_Virtual.load();
}

void BelSetVirtualTime(double seconds) {
    SClockState& s = State();
    if (!s.m_Virtual.load()) {
        return;
    }
    double current = s.m_VirtualNow.load();
    while (seconds > current && !s.m_VirtualNow.compare_exchange_weak(current, seconds)) {
    }
}
