#include "framework/bel/BelTime.h"

#include <chrono>
#include <cmath>
#include <ctime>

CBelTime CBelTime::GetCurrentTime() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return CBelTime(std::chrono::duration<double>(now).count());
}

CBelString CBelTime::Format() const {
    const double whole = std::floor(m_Seconds);
    const std::time_t t = static_cast<std::time_t>(whole);
    std::tm parts{};
    gmtime_r(&t, &parts);
    CBelString text;
    text.Format("%04d-%02d-%02d %02d:%02d:%02d.%03d", parts.tm_year + 1900, parts.tm_mon + 1,
                parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                static_cast<int>((m_Seconds - whole) * 1000.0));
    return text;
}
