#include "framework/kor/BoundingBoxesMD.h"

#include "framework/bel/BelString.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

constexpr char kPackedTag[] = "M1:";
constexpr long kPackedTagLength = 3;
constexpr long kMaxCoordinate = 0xFFFF;
// Mask pieces are tested in blocks of this many (the arrays are padded with empty pieces), so
// that the inner loop has a fixed length the compiler turns into whole vectors.
constexpr size_t kPieceBlock = 8;

using SRect = CKorBoundingBoxesMD::SRect;

bool IsEmpty(const SRect& r) {
    return r.m_Right <= r.m_Left || r.m_Bottom <= r.m_Top;
}

// The area of the union of rects: x-slabs between successive edges, and in each slab the merged
// y-intervals of the rectangles that span it.
long long UnionArea(const std::vector<SRect>& rects, std::vector<std::int32_t>& xs,
                    std::vector<std::pair<std::int32_t, std::int32_t>>& spans) {
    xs.clear();
    for (const SRect& r : rects) {
        xs.push_back(r.m_Left);
        xs.push_back(r.m_Right);
    }
    std::sort(xs.begin(), xs.end());
    xs.erase(std::unique(xs.begin(), xs.end()), xs.end());
    long long area = 0;
    for (size_t i = 0; i + 1 < xs.size(); ++i) {
        spans.clear();
        for (const SRect& r : rects) {
            if (r.m_Left <= xs[i] && r.m_Right >= xs[i + 1]) {
                spans.emplace_back(r.m_Top, r.m_Bottom);
            }
        }
        std::sort(spans.begin(), spans.end());
        long long covered = 0;
        std::int32_t top = 0, bottom = 0;
        bool open = false;
        for (const auto& [from, to] : spans) {
            if (open && from <= bottom) {
                bottom = std::max(bottom, to);
                continue;
            }
            if (open) {
                covered += bottom - top;
            }
            top = from;
            bottom = to;
            open = true;
        }
        if (open) {
            covered += bottom - top;
        }
        area += covered * (xs[i + 1] - xs[i]);
    }
    return area;
}

SRect Clip(const SKorBoundingBox& box, std::int32_t left, std::int32_t top, std::int32_t right,
           std::int32_t bottom) {
    return SRect{std::max<std::int32_t>(box.m_Left, left), std::max<std::int32_t>(box.m_Top, top),
                 std::min<std::int32_t>(box.m_Right, right),
                 std::min<std::int32_t>(box.m_Bottom, bottom)};
}

// Reads "spaces digits spaces" at pos; answers false when there are no digits or the number
// passes the 16-bit range.
bool ReadCoordinate(const char* text, long length, long* pos, long* value) {
    while (*pos < length && text[*pos] == ' ') {
        ++*pos;
    }
    const long start = *pos;
    long number = 0;
    while (*pos < length && text[*pos] >= '0' && text[*pos] <= '9') {
        number = number * 10 + (text[*pos] - '0');
        if (number > kMaxCoordinate) {
            return false;
        }
        ++*pos;
    }
    if (*pos == start) {
        return false;
    }
    while (*pos < length && text[*pos] == ' ') {
        ++*pos;
    }
    *value = number;
    return true;
}

bool Fail(CBelString* error, const char* format, ...) __attribute__((format(printf, 2, 3)));
bool Fail(CBelString* error, const char* format, ...) {
    if (error) {
        va_list args;
        va_start(args, format);
        CBelString text;
        text.FormatV(format, args);
        va_end(args);
        *error = "packed mask: " + text;
    }
    return false;
}

} // namespace

long CKorBoundingBoxesMD::GetPackedSize() const {
    if (m_Boxes.empty()) {
        return 1;
    }
    long size = kPackedTagLength + 1;
    char number[8];
    for (const SKorBoundingBox& box : m_Boxes) {
        for (unsigned value : {box.m_Left, box.m_Top, box.m_Right, box.m_Bottom}) {
            size += std::snprintf(number, sizeof number, "%u", value) + 1; // and a separator
        }
    }
    return size - 1; // no separator after the last number
}

long CKorBoundingBoxesMD::Pack(char* buffer, long size) const {
    const long needed = GetPackedSize();
    if (!buffer || size < needed) {
        return -1;
    }
    if (m_Boxes.empty()) {
        buffer[0] = '\0';
        return 0;
    }
    long used = std::snprintf(buffer, static_cast<size_t>(size), "%s", kPackedTag);
    for (size_t i = 0; i < m_Boxes.size(); ++i) {
        const SKorBoundingBox& box = m_Boxes[i];
        used += std::snprintf(buffer + used, static_cast<size_t>(size - used), "%s%u,%u,%u,%u",
                              i == 0 ? "" : ";", static_cast<unsigned>(box.m_Left),
                              static_cast<unsigned>(box.m_Top), static_cast<unsigned>(box.m_Right),
                              static_cast<unsigned>(box.m_Bottom));
    }
    return used;
}

bool CKorBoundingBoxesMD::Parse(const char* text, long length, CBelString* error) {
    if (!text || length < 0) {
        return Fail(error, "no text given");
    }
    if (length == 0) {
        Clear();
        return true;
    }
    if (length < kPackedTagLength || text[0] != 'M' || text[1] < '0' || text[1] > '9' ||
        text[2] != ':') {
        return Fail(error, "expected the version tag \"M1:\" at the start");
    }
    if (text[1] != '1') {
        return Fail(error, "version %c of the packed form is not known (this build reads 1)",
                    text[1]);
    }
    std::vector<SKorBoundingBox> boxes;
    long pos = kPackedTagLength;
    while (pos < length) {
        const long rect = static_cast<long>(boxes.size()) + 1;
        if (rect > kMaxPackedRects) {
            return Fail(error, "more than %d rectangles", kMaxPackedRects);
        }
        long value[4] = {};
        for (int i = 0; i < 4; ++i) {
            if (!ReadCoordinate(text, length, &pos, &value[i])) {
                return Fail(error,
                            "rectangle %ld, number %d: expected a whole number 0..65535 at "
                            "character %ld",
                            rect, i + 1, pos + 1);
            }
            const char separator = i < 3 ? ',' : ';';
            if (pos < length && text[pos] == separator) {
                ++pos;
            } else if (i < 3 || pos < length) {
                return Fail(error, "rectangle %ld: expected '%c' at character %ld", rect, separator,
                            pos + 1);
            } else {
                break; // the last rectangle ends the text
            }
            if (i == 3 && pos == length) {
                return Fail(error, "a ';' with no rectangle after it ends the text");
            }
        }
        if (value[0] > value[2] || value[1] > value[3]) {
            return Fail(error, "rectangle %ld: %s %ld is beyond %s %ld", rect,
                        value[0] > value[2] ? "left" : "top",
                        value[0] > value[2] ? value[0] : value[1],
                        value[0] > value[2] ? "right" : "bottom",
                        value[0] > value[2] ? value[2] : value[3]);
        }
        boxes.push_back(SKorBoundingBox{
            static_cast<std::uint16_t>(value[0]), static_cast<std::uint16_t>(value[1]),
            static_cast<std::uint16_t>(value[2]), static_cast<std::uint16_t>(value[3]), 0});
    }
    if (boxes.empty()) {
        return Fail(error, "no rectangle after \"M1:\" (an empty mask is the empty string)");
    }
    m_Boxes.swap(boxes);
    m_PiecesValid = false;
    return true;
}

const CKorBoundingBoxesMD::SPieces& CKorBoundingBoxesMD::Pieces() const {
    if (m_PiecesValid) {
        return m_Pieces;
    }
    m_Pieces = SPieces{};
    std::vector<std::int32_t> xs;
    for (const SKorBoundingBox& box : m_Boxes) {
        if (box.m_Right > box.m_Left && box.m_Bottom > box.m_Top) {
            xs.push_back(box.m_Left);
            xs.push_back(box.m_Right);
        }
    }
    std::sort(xs.begin(), xs.end());
    xs.erase(std::unique(xs.begin(), xs.end()), xs.end());
    // Per slab, the merged y-intervals; a slab whose intervals equal the previous slab's
    // widens that slab's pieces instead of starting new ones, so a mask of separate
    // rectangles stays that many pieces.
    using Spans = std::vector<std::pair<std::int32_t, std::int32_t>>;
    Spans previous;
    std::int32_t runStart = 0, runEnd = 0;
    const auto emit = [&] {
        for (const auto& [top, bottom] : previous) {
            m_Pieces.m_Left.push_back(runStart);
            m_Pieces.m_Top.push_back(top);
            m_Pieces.m_Right.push_back(runEnd);
            m_Pieces.m_Bottom.push_back(bottom);
        }
    };
    Spans spans;
    for (size_t i = 0; i + 1 < xs.size(); ++i) {
        spans.clear();
        for (const SKorBoundingBox& box : m_Boxes) {
            if (box.m_Left <= xs[i] && box.m_Right >= xs[i + 1] && box.m_Bottom > box.m_Top) {
                spans.emplace_back(box.m_Top, box.m_Bottom);
            }
        }
        std::sort(spans.begin(), spans.end());
        Spans merged;
        for (const auto& span : spans) {
            if (!merged.empty() && span.first <= merged.back().second) {
                merged.back().second = std::max(merged.back().second, span.second);
            } else {
                merged.push_back(span);
            }
        }
        if (merged == previous && runEnd == xs[i]) {
            runEnd = xs[i + 1];
            continue;
        }
        emit();
        previous = merged;
        runStart = xs[i];
        runEnd = xs[i + 1];
    }
    emit();
    m_PieceCount = m_Pieces.m_Left.size();
    const size_t padded = (m_PieceCount + kPieceBlock - 1) / kPieceBlock * kPieceBlock;
    for (std::vector<std::int32_t>* side :
         {&m_Pieces.m_Left, &m_Pieces.m_Top, &m_Pieces.m_Right, &m_Pieces.m_Bottom}) {
        side->resize(padded, 0); // empty pieces: they overlap nothing
    }
    m_Best.assign(padded, 0);
    m_Sum.assign(padded, 0);
    m_ChunkBest.assign(padded, 0);
    m_ChunkSum.assign(padded, 0);
    m_PieceArea.assign(m_PieceCount, 0);
    m_LargestPiece = 0;
    for (size_t j = 0; j < m_PieceCount; ++j) {
        m_PieceArea[j] = static_cast<long long>(m_Pieces.m_Right[j] - m_Pieces.m_Left[j]) *
                         (m_Pieces.m_Bottom[j] - m_Pieces.m_Top[j]);
        m_LargestPiece = std::max(m_LargestPiece, m_PieceArea[j]);
    }
    m_PiecesValid = true;
    return m_Pieces;
}

long long CKorBoundingBoxesMD::PieceOverlapArea(size_t piece,
                                                const CKorBoundingBoxesMD& boxes) const {
    const SPieces& pieces = Pieces();
    std::vector<SRect>& clipped = m_Scratch.m_Clipped;
    clipped.clear();
    for (const SKorBoundingBox& box : boxes.m_Boxes) {
        const SRect r = Clip(box, pieces.m_Left[piece], pieces.m_Top[piece], pieces.m_Right[piece],
                             pieces.m_Bottom[piece]);
        if (!IsEmpty(r)) {
            clipped.push_back(r);
        }
    }
    return UnionArea(clipped, m_Scratch.m_Xs, m_Scratch.m_Spans);
}

long long CKorBoundingBoxesMD::OverlapArea(const CKorBoundingBoxesMD& boxes) const {
    // The pieces are disjoint, so the overlap is the sum over pieces of the union of the boxes
    // clipped to each.
    Pieces(); // brings m_PieceCount up to date
    long long area = 0;
    for (size_t j = 0; j < m_PieceCount; ++j) {
        area += PieceOverlapArea(j, boxes);
    }
    return area;
}

namespace {

// Every box against every piece: per piece the largest and the summed box overlap. Answers true
// as soon as one box covers `needed` pixels of one piece (the sums are then incomplete). In 32
// bits, twice the vector width of 64: one overlap of 16-bit coordinates fits, and the caller
// keeps each call's boxes few enough that no sum passes 32 bits. Built twice, for AVX2 and for
// the baseline, and the loader picks one; it is integer arithmetic, so both give the same answers.
__attribute__((target_clones("avx2", "default"))) bool
PairOverlaps(const SKorBoundingBox* boxes, size_t count, const std::int32_t* __restrict left,
             const std::int32_t* __restrict top, const std::int32_t* __restrict right,
             const std::int32_t* __restrict bottom, size_t blocks, std::uint32_t needed,
             std::uint32_t* __restrict best, std::uint32_t* __restrict sum) {
    for (size_t j = 0; j < blocks * kPieceBlock; ++j) {
        best[j] = 0;
        sum[j] = 0;
    }
    for (size_t i = 0; i < count; ++i) {
        const std::int32_t l = boxes[i].m_Left, t = boxes[i].m_Top;
        const std::int32_t r = boxes[i].m_Right, b = boxes[i].m_Bottom;
        std::uint32_t largest = 0;
        for (size_t block = 0; block < blocks; ++block) {
            const size_t base = block * kPieceBlock;
            for (size_t k = 0; k < kPieceBlock; ++k) {
                const size_t j = base + k;
                std::int32_t w = std::min(r, right[j]) - std::max(l, left[j]);
                std::int32_t h = std::min(b, bottom[j]) - std::max(t, top[j]);
                w = w > 0 ? w : 0;
                h = h > 0 ? h : 0;
                const std::uint32_t a =
                    static_cast<std::uint32_t>(w) * static_cast<std::uint32_t>(h);
                sum[j] += a;
                best[j] = a > best[j] ? a : best[j];
                largest = a > largest ? a : largest;
            }
        }
        if (largest >= needed) {
            return true;
        }
    }
    return false;
}

} // namespace

bool CKorBoundingBoxesMD::Intersects(const CKorBoundingBoxesMD* boxes, long minOverlap) const {
    if (!boxes || boxes->m_Boxes.empty()) {
        return false;
    }
    const long long needed = std::max(minOverlap, 1L);
    const SPieces& pieces = Pieces();
    // Bounds first: the largest single box-piece overlap per piece sums to no more than the
    // exact area (pieces are disjoint), and all pairwise overlaps sum to no less. Only when the
    // threshold falls between them is the exact sweep needed.
    const size_t count = boxes->m_Boxes.size();
    const size_t chunk = std::max<size_t>(1, UINT32_MAX / std::max(m_LargestPiece, 1LL));
    const auto needed32 = static_cast<std::uint32_t>(std::min<long long>(needed, UINT32_MAX));
    std::fill(m_Best.begin(), m_Best.end(), 0);
    std::fill(m_Sum.begin(), m_Sum.end(), 0);
    for (size_t first = 0; first < count; first += chunk) {
        if (PairOverlaps(boxes->m_Boxes.data() + first, std::min(chunk, count - first),
                         pieces.m_Left.data(), pieces.m_Top.data(), pieces.m_Right.data(),
                         pieces.m_Bottom.data(), pieces.m_Left.size() / kPieceBlock, needed32,
                         m_ChunkBest.data(), m_ChunkSum.data())) {
            return true;
        }
        for (size_t j = 0; j < m_PieceCount; ++j) {
            m_Best[j] = std::max<long long>(m_Best[j], m_ChunkBest[j]);
            m_Sum[j] += m_ChunkSum[j];
        }
    }
    long long lower = 0;
    long long upper = 0;
    for (size_t j = 0; j < m_PieceCount; ++j) {
        m_Sum[j] = std::min(m_Sum[j], m_PieceArea[j]); // boxes cover at most the whole piece
        lower += m_Best[j];
        upper += m_Sum[j];
    }
    if (lower >= needed) {
        return true;
    }
    if (upper < needed) {
        return false;
    }
    // Exact, piece by piece, only where boxes overlap each other within a piece (elsewhere the
    // sum is the union; a piece one box covers whole is its area), stopping as soon as the answer
    // is certain either way.
    long long exact = 0;
    long long rest = upper;
    for (size_t j = 0; j < m_PieceCount; ++j) {
        rest -= m_Sum[j];
        exact += m_Sum[j] == m_Best[j] ? m_Sum[j] : PieceOverlapArea(j, *boxes);
        if (exact >= needed) {
            return true;
        }
        if (exact + rest < needed) {
            return false;
        }
    }
    return false;
}

CKorMetadataHandler* CKorBoundingBoxesMD::CloneOne() const {
    auto* copy = new CKorBoundingBoxesMD;
    copy->m_Boxes = m_Boxes;
    return copy;
}
