#include "storage/ArchiveRows.h"

namespace zorarchive {

namespace {

void Put16(std::string* out, std::uint32_t value) {
    out->push_back(static_cast<char>(value & 0xFF));
    out->push_back(static_cast<char>((value >> 8) & 0xFF));
}

void Put32(std::string* out, std::uint32_t value) {
    Put16(out, value & 0xFFFF);
    Put16(out, value >> 16);
}

std::uint32_t Get16(const std::uint8_t* p) {
    return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8);
}

std::uint32_t Get32(const std::uint8_t* p) {
    return Get16(p) | (Get16(p + 2) << 16);
}

} // namespace

// Frames keyed on (stream, time): the primary key is the time index every range search uses,
// and WITHOUT ROWID stores each row once, in that order. A box set is stored once per run of
// frames that carry it.
const char* const kArchiveSchemaSql = R"sql(
CREATE TABLE streams (
    id INTEGER PRIMARY KEY,
    camera TEXT NOT NULL,
    stream INTEGER NOT NULL,
    UNIQUE (camera, stream)
);
CREATE TABLE frames (
    stream_id INTEGER NOT NULL REFERENCES streams (id),
    time INTEGER NOT NULL,
    real_time REAL NOT NULL,
    level INTEGER NOT NULL,
    box_key INTEGER NOT NULL,
    PRIMARY KEY (stream_id, time)
) WITHOUT ROWID;
CREATE TABLE box_sets (
    stream_id INTEGER NOT NULL REFERENCES streams (id),
    box_key INTEGER NOT NULL,
    boxes BLOB NOT NULL,
    PRIMARY KEY (stream_id, box_key)
) WITHOUT ROWID;
)sql";

void EncodeBoxes(const SArchiveBox* boxes, std::size_t count, std::string* out) {
    if (count > kMaxBoxesPerFrame) {
        count = kMaxBoxesPerFrame;
    }
    out->clear();
    out->reserve(kBoxBlobHeader + count * kBoxBlobEntry);
    out->push_back(static_cast<char>(kBoxBlobVersion));
    Put16(out, static_cast<std::uint32_t>(count));
    for (std::size_t i = 0; i < count; ++i) {
        Put16(out, boxes[i].m_Left);
        Put16(out, boxes[i].m_Top);
        Put16(out, boxes[i].m_Right);
        Put16(out, boxes[i].m_Bottom);
        Put32(out, boxes[i].m_Id);
    }
}

bool DecodeBoxes(const void* data, std::size_t size, std::vector<SArchiveBox>* boxes,
                 std::string* error) {
    const auto* p = static_cast<const std::uint8_t*>(data);
    if (!p || size < kBoxBlobHeader) {
        *error = "box set: " + std::to_string(size) + " bytes is too short for its header";
        return false;
    }
    if (p[0] != kBoxBlobVersion) {
        *error = "box set: version " + std::to_string(p[0]) + " is not known (this build reads " +
                 std::to_string(kBoxBlobVersion) + ")";
        return false;
    }
    const std::size_t count = Get16(p + 1);
    if (size != kBoxBlobHeader + count * kBoxBlobEntry) {
        *error = "box set: " + std::to_string(size) + " bytes do not hold " +
                 std::to_string(count) + " boxes";
        return false;
    }
    boxes->resize(count);
    const std::uint8_t* entry = p + kBoxBlobHeader;
    for (std::size_t i = 0; i < count; ++i, entry += kBoxBlobEntry) {
        SArchiveBox& box = (*boxes)[i];
        box.m_Left = static_cast<std::uint16_t>(Get16(entry));
        box.m_Top = static_cast<std::uint16_t>(Get16(entry + 2));
        box.m_Right = static_cast<std::uint16_t>(Get16(entry + 4));
        box.m_Bottom = static_cast<std::uint16_t>(Get16(entry + 6));
        box.m_Id = Get32(entry + 8);
    }
    return true;
}

} // namespace zorarchive
