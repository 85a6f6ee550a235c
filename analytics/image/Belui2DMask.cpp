#include "analytics/image/Belui2DMask.h"

#include <algorithm>
#include <cstring>

bool CBelui2DMask::Create(int frameWidth, int frameHeight, int blockWidth, int blockHeight) {
    if (frameWidth <= 0 || frameHeight <= 0 || blockWidth <= 0 || blockHeight <= 0) {
        *this = CBelui2DMask();
        return false;
    }
    m_FrameWidth = frameWidth;
    m_FrameHeight = frameHeight;
    m_BlockWidth = blockWidth;
    m_BlockHeight = blockHeight;
    m_BlocksAcross = (frameWidth + blockWidth - 1) / blockWidth;
    m_BlocksDown = (frameHeight + blockHeight - 1) / blockHeight;
    m_CellStride = m_BlocksAcross + 2;
    const std::size_t cells = static_cast<std::size_t>(m_CellStride) * (m_BlocksDown + 2);
    m_Cells.assign(cells, 0);
    m_Before.assign(cells, 0);
    return true;
}

void CBelui2DMask::Clear() {
    std::fill(m_Cells.begin(), m_Cells.end(), 0);
}

int CBelui2DMask::BlockPixels(int bx, int by) const {
    const int w = std::min(m_BlockWidth, m_FrameWidth - bx * m_BlockWidth);
    const int h = std::min(m_BlockHeight, m_FrameHeight - by * m_BlockHeight);
    return w * h;
}

int CBelui2DMask::CountSet() const {
    int count = 0;
    for (int by = 0; by < m_BlocksDown; ++by) {
        const std::uint8_t* row = &m_Cells[Index(0, by)];
        for (int bx = 0; bx < m_BlocksAcross; ++bx) {
            count += row[bx] & kSet;
        }
    }
    return count;
}

void CBelui2DMask::BlockFilter(int strength) {
    if (strength <= 0 || IsEmpty()) {
        return;
    }
    m_Before = m_Cells;
    // Locals: the byte stores below could alias members, which would stop the vectoriser.
    const int stride = m_CellStride;
    const int across = m_BlocksAcross;
    const auto keepAt = static_cast<std::uint8_t>(std::min(strength, 9));
    const auto fillAt = static_cast<std::uint8_t>(std::max(9 - strength, 0));
    for (int by = 0; by < m_BlocksDown; ++by) {
        const std::uint8_t* up = &m_Before[Index(0, by) - stride];
        const std::uint8_t* mid = &m_Before[Index(0, by)];
        const std::uint8_t* down = &m_Before[Index(0, by) + stride];
        std::uint8_t* out = &m_Cells[Index(0, by)];
        // Plain byte arithmetic over a row, so the compiler vectorises it.
        for (int bx = 0; bx < across; ++bx) {
            const auto neighbours = static_cast<std::uint8_t>(
                (up[bx - 1] & kSet) + (up[bx] & kSet) + (up[bx + 1] & kSet) + (mid[bx - 1] & kSet) +
                (mid[bx + 1] & kSet) + (down[bx - 1] & kSet) + (down[bx] & kSet) +
                (down[bx + 1] & kSet));
            const std::uint8_t set = mid[bx] & kSet;
            const std::uint8_t keep = set ? static_cast<std::uint8_t>(neighbours >= keepAt)
                                          : static_cast<std::uint8_t>(neighbours >= fillAt);
            out[bx] = static_cast<std::uint8_t>((mid[bx] & ~kSet) | keep);
        }
    }
}

void CBelui2DMask::Expand(bool diagonals) {
    if (IsEmpty()) {
        return;
    }
    m_Before = m_Cells;
    const int stride = m_CellStride;
    const int across = m_BlocksAcross;
    const std::uint8_t corner = diagonals ? kSet : 0;
    for (int by = 0; by < m_BlocksDown; ++by) {
        const std::uint8_t* up = &m_Before[Index(0, by) - stride];
        const std::uint8_t* mid = &m_Before[Index(0, by)];
        const std::uint8_t* down = &m_Before[Index(0, by) + stride];
        std::uint8_t* out = &m_Cells[Index(0, by)];
        for (int bx = 0; bx < across; ++bx) {
            const auto sides =
                static_cast<std::uint8_t>(up[bx] | down[bx] | mid[bx - 1] | mid[bx + 1]);
            const auto corners = static_cast<std::uint8_t>(
                (up[bx - 1] | up[bx + 1] | down[bx - 1] | down[bx + 1]) & corner);
            // kCandidate is 2: shifted down it lines up with kSet.
            const auto grows = static_cast<std::uint8_t>((sides | corners) & (mid[bx] >> 1) & kSet);
            out[bx] = static_cast<std::uint8_t>(mid[bx] | grows);
        }
    }
}

std::vector<SBeluiRect> CBelui2DMask::GetBlocksCoordinates(bool inPixels, bool mergeRuns) const {
    std::vector<SBeluiRect> rects;
    GetBlocksCoordinates(inPixels, mergeRuns, rects);
    return rects;
}

void CBelui2DMask::GetBlocksCoordinates(bool inPixels, bool mergeRuns,
                                        std::vector<SBeluiRect>& out) const {
    out.clear();
    for (int by = 0; by < m_BlocksDown; ++by) {
        const std::uint8_t* row = &m_Cells[Index(0, by)];
        for (int bx = 0; bx < m_BlocksAcross; ++bx) {
            if ((row[bx] & kSet) == 0) {
                continue;
            }
            int end = bx + 1;
            if (mergeRuns) {
                while (end < m_BlocksAcross && (row[end] & kSet) != 0) {
                    ++end;
                }
            }
            if (inPixels) {
                out.push_back(SBeluiRect{bx * m_BlockWidth, by * m_BlockHeight,
                                         std::min(end * m_BlockWidth, m_FrameWidth),
                                         std::min((by + 1) * m_BlockHeight, m_FrameHeight)});
            } else {
                out.push_back(SBeluiRect{bx, by, end, by + 1});
            }
            bx = end - 1;
        }
    }
}

bool CBelui2DDWMask::Create(int frameWidth, int frameHeight, int blockWidth, int blockHeight) {
    const bool made = CBelui2DMask::Create(frameWidth, frameHeight, blockWidth, blockHeight);
    m_Values.assign(static_cast<std::size_t>(BlocksAcross()) * BlocksDown(), 0);
    return made;
}

void CBelui2DDWMask::Clear() {
    CBelui2DMask::Clear();
    std::fill(m_Values.begin(), m_Values.end(), 0);
}

bool CBelui2DDWMask::IsOpen(int bx, int by, int level) const {
    if (IsSet(bx, by) || level < 0) {
        return false;
    }
    return Value(bx, by) <= static_cast<std::uint64_t>(level) * BlockPixels(bx, by);
}
