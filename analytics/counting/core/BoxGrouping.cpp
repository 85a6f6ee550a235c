#include "analytics/counting/core/BoxGrouping.h"

#include <algorithm>

namespace zor::counting {

namespace {

constexpr int kCell = 32; // px: a few blocks a cell, so each cell holds few boxes
// More boxes than this in one cell cannot all be apart (4 x 4 blocks that do not touch fill a
// cell with at most 25): such a crowd is one mass of foreground, and comparing it pair by pair
// would only let absurd input cost quadratic time.
constexpr std::size_t kCrowded = 96;

bool Near(const SBox& a, const SBox& b, int gap) {
    return a.m_Left <= b.m_Right + gap && b.m_Left <= a.m_Right + gap &&
           a.m_Top <= b.m_Bottom + gap && b.m_Top <= a.m_Bottom + gap;
}

int CellOf(int coordinate) {
    return coordinate >= 0 ? coordinate / kCell : -((-coordinate + kCell - 1) / kCell);
}

} // namespace

int CBoxGrouping::Find(int i) {
    while (m_Parent[static_cast<size_t>(i)] != i) {
        int& parent = m_Parent[static_cast<size_t>(i)];
        parent = m_Parent[static_cast<size_t>(parent)];
        i = parent;
    }
    return i;
}

void CBoxGrouping::Group(const SBox* boxes, std::size_t count, int gap, std::vector<SBox>& out) {
    out.clear();
    m_Boxes.clear();
    for (std::size_t i = 0; boxes && i < count; ++i) {
        if (!boxes[i].IsEmpty()) {
            m_Boxes.push_back(boxes[i]);
        }
    }
    const int n = static_cast<int>(m_Boxes.size());
    m_Parent.resize(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
        m_Parent[static_cast<size_t>(i)] = i;
    }
    gap = std::max(gap, 0);
    // Each box goes into every cell its grown area touches; candidate pairs share a cell.
    m_Cells.clear();
    for (int i = 0; i < n; ++i) {
        const SBox& b = m_Boxes[static_cast<size_t>(i)];
        const int x0 = CellOf(b.m_Left - gap);
        const int x1 = CellOf(b.m_Right + gap);
        const int y0 = CellOf(b.m_Top - gap);
        const int y1 = CellOf(b.m_Bottom + gap);
        for (int cy = y0; cy <= y1; ++cy) {
            for (int cx = x0; cx <= x1; ++cx) {
                const long long key = (static_cast<long long>(cy & 0xFFFF) << 16) | (cx & 0xFFFF);
                m_Cells.push_back((key << 32) | i);
            }
        }
    }
    std::sort(m_Cells.begin(), m_Cells.end());
    for (std::size_t start = 0; start < m_Cells.size();) {
        std::size_t end = start;
        while (end < m_Cells.size() && (m_Cells[end] >> 32) == (m_Cells[start] >> 32)) {
            ++end;
        }
        if (end - start > kCrowded) {
            const int first = static_cast<int>(m_Cells[start] & 0xFFFFFFFF);
            for (std::size_t a = start + 1; a < end; ++a) {
                const int ri = Find(first);
                const int rj = Find(static_cast<int>(m_Cells[a] & 0xFFFFFFFF));
                if (ri != rj) {
                    m_Parent[static_cast<size_t>(std::max(ri, rj))] = std::min(ri, rj);
                }
            }
            start = end;
            continue;
        }
        for (std::size_t a = start; a < end; ++a) {
            const int i = static_cast<int>(m_Cells[a] & 0xFFFFFFFF);
            for (std::size_t c = a + 1; c < end; ++c) {
                const int j = static_cast<int>(m_Cells[c] & 0xFFFFFFFF);
                if (Near(m_Boxes[static_cast<size_t>(i)], m_Boxes[static_cast<size_t>(j)], gap)) {
                    const int ri = Find(i);
                    const int rj = Find(j);
                    if (ri != rj) {
                        m_Parent[static_cast<size_t>(std::max(ri, rj))] = std::min(ri, rj);
                    }
                }
            }
        }
        start = end;
    }
    m_Slot.assign(static_cast<size_t>(n), -1);
    for (int i = 0; i < n; ++i) {
        const int root = Find(i);
        int& slot = m_Slot[static_cast<size_t>(root)];
        if (slot < 0) {
            slot = static_cast<int>(out.size());
            out.push_back(m_Boxes[static_cast<size_t>(i)]);
        } else {
            out[static_cast<size_t>(slot)] =
                Union(out[static_cast<size_t>(slot)], m_Boxes[static_cast<size_t>(i)]);
        }
    }
}

} // namespace zor::counting
