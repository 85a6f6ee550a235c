// CBelTime: a point in wall-clock time (seconds since 1970, UTC); CBelTimeSpan: a length of time
// in seconds. Framework timing uses BelGetTime; these serve calendar display and archives.
#pragma once

#include "framework/bel/BelString.h"

#include <cstdint>

class CBelTimeSpan {
public:
    explicit CBelTimeSpan(double seconds = 0.0) : m_Seconds(seconds) {}
    double GetTotalSeconds() const { return m_Seconds; }
    long GetTotalMilliseconds() const { return static_cast<long>(m_Seconds * 1000.0); }

private:
    double m_Seconds;
};

class CBelTime {
public:
    explicit CBelTime(double secondsSince1970 = 0.0) : m_Seconds(secondsSince1970) {}
    static CBelTime GetCurrentTime();
    double GetSeconds() const { return m_Seconds; }
    // "YYYY-MM-DD hh:mm:ss.mmm" in UTC.
    CBelString Format() const;
    CBelTime operator+(const CBelTimeSpan& span) const {
        return CBelTime(m_Seconds + span.GetTotalSeconds());
    }
    CBelTimeSpan operator-(const CBelTime& other) const {
        return CBelTimeSpan(m_Seconds - other.m_Seconds);
    }

private:
    double m_Seconds;
};
