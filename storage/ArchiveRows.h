// The row codecs of the metadata archive, without the database: the packed form of one frame's
// boxes as stored in a box set, and the schema text with its version.
//
// Box set blob, version 1 (little-endian):
//   byte 0      version (1)
//   bytes 1-2   box count n
//   then n x 12 bytes: left, top, right, bottom (16 bits each), object id (32 bits)
// Decoding checks the version and that the length is exactly 3 + 12 n.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zorarchive {

struct SArchiveBox {
    std::uint16_t m_Left = 0;
    std::uint16_t m_Top = 0;
    std::uint16_t m_Right = 0;
    std::uint16_t m_Bottom = 0;
    std::uint32_t m_Id = 0;
    bool operator==(const SArchiveBox&) const = default;
};

inline constexpr std::uint8_t kBoxBlobVersion = 1;
inline constexpr std::size_t kBoxBlobHeader = 3;
inline constexpr std::size_t kBoxBlobEntry = 12;
// A frame's box count must fit the blob's 16-bit count.
inline constexpr std::size_t kMaxBoxesPerFrame = 0xFFFF;

// Appends the blob of count boxes (at most kMaxBoxesPerFrame) to out, replacing its contents.
void EncodeBoxes(const SArchiveBox* boxes, std::size_t count, std::string* out);
// Fills boxes from a blob; answers false with a reason in error when the blob is malformed.
bool DecodeBoxes(const void* data, std::size_t size, std::vector<SArchiveBox>* boxes,
                 std::string* error);

// The schema. The database's application_id marks it as an archive and user_version is the
// schema version; a database with another application_id and tables of its own is foreign.
inline constexpr std::int32_t kArchiveApplicationId = 0x5A4F524D; // "ZORM"
inline constexpr int kArchiveSchemaVersion = 1;
// The statements that make an empty database an archive of kArchiveSchemaVersion.
extern const char* const kArchiveSchemaSql;

} // namespace zorarchive
