#include "framework/bel/BelTimer.h"

#include "framework/bel/BelClock.h"
#include "framework/bel/BelMessageLoop.h"

CBelTimer::CBelTimer() : m_Loop(CBelMessageLoop::Current()) {}

CBelTimer::~CBelTimer() {
    m_Loop.CancelTimer(this);
}

void CBelTimer::TimeOut(long) {}

void CBelTimer::SetAlarm(long milliseconds) {
    SetAlarmAt(BelDoubleTime() + static_cast<double>(milliseconds) / 1000.0);
}

void CBelTimer::SetAlarmIfEarlier(long milliseconds) {
    const double due = BelDoubleTime() + static_cast<double>(milliseconds) / 1000.0;
    const double current = m_Loop.TimerDue(this);
    if (current < 0 || due < current) {
        SetAlarmAt(due);
    }
}

void CBelTimer::SetAlarmAt(double dueSeconds) {
    m_Loop.ScheduleTimer(this, dueSeconds);
}

void CBelTimer::KillAlarm() {
    m_Loop.CancelTimer(this);
}

bool CBelTimer::IsAlarmSet() const {
    return m_Loop.TimerDue(this) >= 0;
}
