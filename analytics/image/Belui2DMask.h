// Block masks: a frame cut into blocks of blockWidth x blockHeight pixels, one cell per block.
// The last column and row of blocks are partial when the frame's size is not a multiple of the
// block size; every operation counts a partial block by the pixels it really has.
//
// A cell holds two flags:
//  - set: the block is foreground;
//  - candidate: the block showed enough change to join a foreground neighbour (Expand), though
//    not enough to be foreground on its own.
// CBelui2DDWMask adds a 32-bit measure per block: the sum of the pixel differences above the
// noise floor that BeluiBitmapSubtractAndFilter found in it.
//
// Cells live in a grid with a border of one empty cell on every side, so neighbourhood
// operations read no cell outside the grid and treat blocks beyond the frame as not set.
// Nothing is allocated while the frame and block sizes stay the same.
#pragma once

#include <cstdint>
#include <vector>

// A rectangle; right and bottom are exclusive.
struct SBeluiRect {
    int m_Left;
    int m_Top;
    int m_Right;
    int m_Bottom;
};

class CBelui2DMask {
public:
    static constexpr std::uint8_t kSet = 1;
    static constexpr std::uint8_t kCandidate = 2;

    CBelui2DMask() = default;
    virtual ~CBelui2DMask() = default;

    // Shapes the grid for a frame and clears every cell. Answers false, and leaves an empty
    // mask, for a non-positive frame or block size.
    bool Create(int frameWidth, int frameHeight, int blockWidth, int blockHeight);
    bool HasShape(int frameWidth, int frameHeight, int blockWidth, int blockHeight) const {
        return m_FrameWidth == frameWidth && m_FrameHeight == frameHeight &&
               m_BlockWidth == blockWidth && m_BlockHeight == blockHeight;
    }
    bool IsEmpty() const { return m_BlocksAcross == 0; }
    void Clear();

    int FrameWidth() const { return m_FrameWidth; }
    int FrameHeight() const { return m_FrameHeight; }
    int BlockWidth() const { return m_BlockWidth; }
    int BlockHeight() const { return m_BlockHeight; }
    int BlocksAcross() const { return m_BlocksAcross; }
    int BlocksDown() const { return m_BlocksDown; }
    // Pixels of block (bx, by) inside the frame.
    int BlockPixels(int bx, int by) const;

    std::uint8_t Cell(int bx, int by) const { return m_Cells[Index(bx, by)]; }
    void SetCell(int bx, int by, std::uint8_t flags) { m_Cells[Index(bx, by)] = flags; }
    bool IsSet(int bx, int by) const { return (Cell(bx, by) & kSet) != 0; }
    // The cells of one block row, BlocksAcross() of them (the grid's border lies either side).
    std::uint8_t* CellRow(int by) { return &m_Cells[Index(0, by)]; }
    const std::uint8_t* CellRow(int by) const { return &m_Cells[Index(0, by)]; }
    int CountSet() const;

    // One pass of a rank filter on the set flag, against noise: a set block with fewer than
    // `strength` set blocks among its 8 neighbours is cleared, and a clear block with more than
    // 8 - strength set neighbours is set (a pinhole or notch inside an object). Every block is
    // judged on the mask as it was before the pass. Strength 1 removes isolated blocks and fills
    // single holes; strength 2 also removes pairs and line ends. Strength <= 0 does nothing.
    void BlockFilter(int strength);
    // Grows the foreground by one ring: a clear block with the candidate flag becomes set when
    // a side neighbour (and, with diagonals, a corner neighbour) is set. Blocks without the
    // candidate flag never grow, so an object's edge blocks join it but quiet background does
    // not.
    void Expand(bool diagonals);
    // The set blocks as rectangles, row by row from the top, left to right: in pixels (clipped
    // to the frame) when inPixels, else in block units; with mergeRuns, each horizontal run of
    // set blocks is one rectangle, otherwise every block is its own. An empty list when no
    // block is set.
    std::vector<SBeluiRect> GetBlocksCoordinates(bool inPixels, bool mergeRuns) const;
    // The same into a list the caller keeps (cleared first), to reuse its memory.
    void GetBlocksCoordinates(bool inPixels, bool mergeRuns, std::vector<SBeluiRect>& out) const;

protected:
    int Index(int bx, int by) const { return (by + 1) * m_CellStride + bx + 1; }

private:
    int m_FrameWidth = 0;
    int m_FrameHeight = 0;
    int m_BlockWidth = 0;
    int m_BlockHeight = 0;
    int m_BlocksAcross = 0;
    int m_BlocksDown = 0;
    int m_CellStride = 0;
    std::vector<std::uint8_t> m_Cells;
    std::vector<std::uint8_t> m_Before; // the cells before a filter pass
};

class CBelui2DDWMask : public CBelui2DMask {
public:
    bool Create(int frameWidth, int frameHeight, int blockWidth, int blockHeight);
    void Clear();

    std::uint32_t Value(int bx, int by) const { return m_Values[ValueIndex(bx, by)]; }
    void SetValue(int bx, int by, std::uint32_t value) { m_Values[ValueIndex(bx, by)] = value; }
    // The values of one block row, BlocksAcross() of them.
    std::uint32_t* ValueRow(int by) {
        return m_Values.data() + static_cast<std::size_t>(by) * BlocksAcross();
    }
    const std::uint32_t* ValueRow(int by) const {
        return m_Values.data() + static_cast<std::size_t>(by) * BlocksAcross();
    }
    // Whether a block is open at a level: not set, and its mean measure per pixel is at most
    // level. A set block is never open.
    bool IsOpen(int bx, int by, int level) const;

private:
    std::size_t ValueIndex(int bx, int by) const {
        return static_cast<std::size_t>(by) * BlocksAcross() + bx;
    }
    std::vector<std::uint32_t> m_Values;
};
