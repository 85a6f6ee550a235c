// Plain boxes for the counting cores: pixel rectangles [left, right) x [top, bottom) in top-down
// frame coordinates, and the few measures the trackers need of them.
#pragma once

#include <algorithm>

namespace zor::counting {

struct SBox {
    int m_Left = 0;
    int m_Top = 0;
    int m_Right = 0;
    int m_Bottom = 0;

    int Width() const { return m_Right - m_Left; }
    int Height() const { return m_Bottom - m_Top; }
    bool IsEmpty() const { return m_Right <= m_Left || m_Bottom <= m_Top; }
    long Area() const { return IsEmpty() ? 0 : static_cast<long>(Width()) * Height(); }
    double CentreX() const { return 0.5 * (m_Left + m_Right); }
    double CentreY() const { return 0.5 * (m_Top + m_Bottom); }
    bool operator==(const SBox&) const = default;
};

inline SBox Intersection(const SBox& a, const SBox& b) {
    return SBox{std::max(a.m_Left, b.m_Left), std::max(a.m_Top, b.m_Top),
                std::min(a.m_Right, b.m_Right), std::min(a.m_Bottom, b.m_Bottom)};
}

inline SBox Union(const SBox& a, const SBox& b) {
    if (a.IsEmpty()) {
        return b;
    }
    if (b.IsEmpty()) {
        return a;
    }
    return SBox{std::min(a.m_Left, b.m_Left), std::min(a.m_Top, b.m_Top),
                std::max(a.m_Right, b.m_Right), std::max(a.m_Bottom, b.m_Bottom)};
}

inline double IntersectionOverUnion(const SBox& a, const SBox& b) {
    const long shared = Intersection(a, b).Area();
    if (shared == 0) {
        return 0.0;
    }
    return static_cast<double>(shared) / static_cast<double>(a.Area() + b.Area() - shared);
}

// The share of the smaller box that the two have in common.
inline double Containment(const SBox& a, const SBox& b) {
    const long smaller = std::min(a.Area(), b.Area());
    return smaller == 0
               ? 0.0
               : static_cast<double>(Intersection(a, b).Area()) / static_cast<double>(smaller);
}

inline SBox Grown(const SBox& box, int by) {
    return SBox{box.m_Left - by, box.m_Top - by, box.m_Right + by, box.m_Bottom + by};
}

inline bool Contains(const SBox& outer, const SBox& inner) {
    return inner.m_Left >= outer.m_Left && inner.m_Top >= outer.m_Top &&
           inner.m_Right <= outer.m_Right && inner.m_Bottom <= outer.m_Bottom;
}

} // namespace zor::counting
