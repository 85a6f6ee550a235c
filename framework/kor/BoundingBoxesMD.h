// "BBX1" bounding-boxes metadata: the boxes an analyser found on a frame (each with the
// analyser's object id), and, used the other way round, a mask of rectangles that detectors test
// those boxes against.
//
// Coordinates are 16-bit pixels; a box covers left <= x < right, top <= y < bottom, so a box's
// area is (right - left) x (bottom - top) and a box with right <= left or bottom <= top is empty.
//
// The packed form is a text a script can store and type by hand:
//
//     M1:l,t,r,b;l,t,r,b;...      e.g.  "M1:0,0,176,120;200,100,352,240"
//
// "M1:" names version 1 of the form; then one group of four decimal coordinates (left, top,
// right, bottom, each 0..65535, left <= right, top <= bottom) per rectangle, separated by ';'.
// Spaces around numbers are allowed. An empty list packs to the empty string. Object ids are not
// part of the packed form (a mask has none). Parse rejects anything else with a message naming
// what is wrong and where, and leaves the boxes as they were.
//
// The overlap test is exact: it measures the area of (union of the given boxes) intersected with
// (union of this object's rectangles), so overlapping boxes and overlapping mask rectangles are
// never counted twice.
#pragma once

#include "framework/kor/Metadata.h"

#include <cstdint>
#include <vector>

class CBelString;

class CKorBoundingBoxesMD : public CKorMetadataHandler {
public:
    // Rectangles a packed text may hold: bounds the cost of one overlap test.
    static constexpr int kMaxPackedRects = 256;

    CKorBoundingBoxesMD() : CKorMetadataHandler(kMetadataBoundingBoxes) {}

    void AddBox(const SKorBoundingBox& box) {
        m_Boxes.push_back(box);
        m_PiecesValid = false;
    }
    int GetBoxCount() const { return static_cast<int>(m_Boxes.size()); }
    const SKorBoundingBox& GetBox(int index) const { return m_Boxes[static_cast<size_t>(index)]; }
    void Clear() {
        m_Boxes.clear();
        m_PiecesValid = false;
    }

    // Bytes the packed text takes, its terminating zero included.
    long GetPackedSize() const;
    // Writes the packed text and its terminating zero into buffer (size bytes); answers the
    // characters written without the zero, or -1 (and writes nothing) when it does not fit.
    long Pack(char* buffer, long size) const;
    // Replaces the boxes by the rectangles of a packed text of length characters (ids 0). On
    // failure answers false, leaves the boxes unchanged and, when error is given, says why.
    bool Parse(const char* text, long length, CBelString* error);

    // A rectangle in 32-bit coordinates (for the overlap arithmetic).
    struct SRect {
        std::int32_t m_Left, m_Top, m_Right, m_Bottom;
    };

    // True when boxes (borrowed, may be nullptr) cover at least minOverlap pixels of this
    // object's rectangles (a minOverlap below 1 asks for one pixel).
    bool Intersects(const CKorBoundingBoxesMD* boxes, long minOverlap) const;
    // The exact area of (union of boxes) intersected with (union of this object's rectangles).
    long long OverlapArea(const CKorBoundingBoxesMD& boxes) const;

protected:
    CKorMetadataHandler* CloneOne() const override;

private:
    // The union of the boxes as disjoint pieces, one array per coordinate so that a frame's
    // boxes are tested against all pieces at once.
    struct SPieces {
        std::vector<std::int32_t> m_Left, m_Top, m_Right, m_Bottom;
    };
    // Made when first needed after a change.
    const SPieces& Pieces() const;
    // The area of the union of boxes clipped to one piece.
    long long PieceOverlapArea(size_t piece, const CKorBoundingBoxesMD& boxes) const;

    std::vector<SKorBoundingBox> m_Boxes;
    mutable SPieces m_Pieces; // padded with empty pieces to whole blocks
    mutable std::size_t m_PieceCount = 0;
    mutable bool m_PiecesValid = false;
    // Per-test scratch, kept so that a test allocates nothing once warm: an object serves one
    // detector, whose calls do not overlap.
    mutable std::vector<long long> m_Best, m_Sum;
    mutable std::vector<std::uint32_t> m_ChunkBest, m_ChunkSum;
    mutable std::vector<long long> m_PieceArea;
    mutable long long m_LargestPiece = 0; // bounds the boxes one 32-bit pass may take
    mutable struct {
        std::vector<SRect> m_Clipped;
        std::vector<std::int32_t> m_Xs;
        std::vector<std::pair<std::int32_t, std::int32_t>> m_Spans;
    } m_Scratch;
};
