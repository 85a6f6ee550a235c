// Groups boxes that touch or nearly touch into one box each: the blobs of a foreground detector
// that reports its foreground block by block (one box per 4 x 4 block), or in pieces.
//
// Two boxes belong together when the gap between them is at most "gap" pixels both across and
// down (0: they overlap or share an edge). Grouping is transitive (connected components), and the
// result is each group's bounding box, in the order of each group's first box. Near-linear: a
// grid of 32-pixel cells finds the candidate pairs, and a cell crowded with more boxes than any
// detector puts there (96) is taken as one mass.
//
// Pure: standard C++ only.
#pragma once

#include "analytics/counting/core/Boxes.h"

#include <cstddef>
#include <vector>

namespace zor::counting {

class CBoxGrouping {
public:
    // boxes may be empty; empty (inside-out) boxes are dropped. out is cleared first.
    void Group(const SBox* boxes, std::size_t count, int gap, std::vector<SBox>& out);

private:
    int Find(int i);

    std::vector<SBox> m_Boxes;
    std::vector<int> m_Parent;
    std::vector<long long> m_Cells; // (cell key << 32) | box, sorted
    std::vector<int> m_Slot;        // root -> output index
};

} // namespace zor::counting
