// CBelTimer: one alarm on the message loop of the thread that made the timer. TimeOut arrives on
// that thread when the alarm falls due. A negative or zero wait fires at the earliest opportunity.
// A timer must not outlive the thread that made it.
#pragma once

class CBelMessageLoop;

class CBelTimer {
public:
    CBelTimer();
    virtual ~CBelTimer();
    CBelTimer(const CBelTimer&) = delete;
    CBelTimer& operator=(const CBelTimer&) = delete;

    // Called on the owning thread when the alarm falls due, with the framework time in ms.
    virtual void TimeOut(long now);

    // Sets the alarm to fire after milliseconds, replacing any alarm already set.
    void SetAlarm(long milliseconds);
    // Sets the alarm only when none is set or the new one falls due sooner.
    void SetAlarmIfEarlier(long milliseconds);
    // Precise form of SetAlarm for callers that work in fractions of a millisecond.
    void SetAlarmAt(double dueSeconds);
    void KillAlarm();
    bool IsAlarmSet() const;

private:
    CBelMessageLoop& m_Loop;
};
