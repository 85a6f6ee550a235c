#include "video/ProgressLine.h"

#include <cmath>
#include <cstdio>
#include <utility>

namespace {

// "1:02:03", "02:03.4": hours only when needed, tenths only below an hour.
std::string Clock(double seconds) {
    if (!(seconds >= 0.0)) {
        seconds = 0.0;
    }
    char text[32];
    const auto whole = static_cast<long long>(seconds);
    if (whole >= 3600) {
        std::snprintf(text, sizeof(text), "%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60,
                      whole % 60);
    } else {
        const long long minutes = whole / 60;
        std::snprintf(text, sizeof(text), "%02lld:%04.1f", minutes,
                      seconds - static_cast<double>(minutes * 60));
    }
    return text;
}

} // namespace

CProgressLine::CProgressLine(std::string name, Writer write, double delaySeconds,
                             double intervalSeconds)
    : m_Name(std::move(name)), m_Write(std::move(write)), m_Delay(delaySeconds),
      m_Interval(intervalSeconds) {}

std::string CProgressLine::Format(const std::string& name, double position, double duration,
                                  double speed) {
    std::string line = name + "  " + Clock(position);
    char text[96];
    if (duration > 0.0) {
        const double share = std::fmin(position / duration, 1.0);
        std::snprintf(text, sizeof(text), " / %s (%d%%)", Clock(duration).c_str(),
                      static_cast<int>(share * 100.0));
        line += text;
    }
    if (speed > 0.0) {
        std::snprintf(text, sizeof(text), "  %.1fx real time", speed);
        line += text;
        if (duration > 0.0) {
            line += "  " + Clock(std::fmax(duration - position, 0.0) / speed) + " left";
        }
    }
    return line;
}

void CProgressLine::Start(double wallNow, double position) {
    m_StartWall = wallNow;
    m_StartPosition = position;
    m_Running = true;
}

void CProgressLine::Update(double wallNow, double position, double duration) {
    if (!m_Running || wallNow - m_StartWall < m_Delay || wallNow - m_LastDraw < m_Interval) {
        return;
    }
    Draw(wallNow, position, duration);
}

void CProgressLine::Finish(double wallNow, double position, double duration) {
    if (m_Shown) {
        Draw(wallNow, position, duration);
        m_Write("\n");
    }
    m_Running = false;
    m_Shown = false;
    m_LastLength = 0;
}

void CProgressLine::Draw(double wallNow, double position, double duration) {
    const double elapsed = wallNow - m_StartWall;
    const double speed = elapsed > 0.0 ? (position - m_StartPosition) / elapsed : 0.0;
    std::string line = Format(m_Name, position, duration, speed);
    const std::size_t length = line.size();
    // Spaces wipe what a longer line before left behind.
    if (length < m_LastLength) {
        line.append(m_LastLength - length, ' ');
    }
    m_Write("\r" + line);
    m_LastLength = length;
    m_LastDraw = wallNow;
    m_Shown = true;
}
