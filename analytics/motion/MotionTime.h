// 32-bit millisecond time arithmetic shared by the motion detectors: timestamps are 32-bit
// counts that wrap, so differences and sums are taken modulo 2^32 and read as signed.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>

namespace zormotion {

// b - a, signed, wrapping.
inline std::int32_t Elapsed(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(b) - static_cast<std::uint32_t>(a));
}

// a + b, wrapping.
inline std::int32_t Later(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

// A millisecond setting truncated to whole ms and held within the 32-bit range (a delay longer
// than that never runs out within one wrap of the clock anyway).
inline std::int32_t TruncateMs(double value) {
    if (std::isnan(value)) {
        return 0;
    }
    if (value >= 2147483647.0) {
        return INT32_MAX;
    }
    if (value <= -2147483648.0) {
        return INT32_MIN;
    }
    return static_cast<std::int32_t>(value);
}

// A setting's value for a message: "NaN" rather than the C library's "-nan".
inline std::string NumberText(double value) {
    if (std::isnan(value)) {
        return "NaN";
    }
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

} // namespace zormotion
