// IJokArchiveAttributeSource {067F573A-8416-11D0-BDFD-0020AF6FA161}: stored rows of per-frame
// attributes, as archive searches read them.
//
// A source serves one stream over one time range as rows in ascending time. Each row has
// numbered columns:
//
//   1  time in ms, ascending (32-bit; a source states what its time 0 is)
//   2  the motion level in force from that time on (negative: no level)
//   5  a key that changes exactly when the row's metadata changes (0: none)
//   6  the metadata handler in force from that row on (read with ReadMetadata)
//
// Other column numbers are the source's own; a column a source does not serve fails to read.
//
// The cursor is the source's: Rewind puts it on the first row, Advance moves one row on,
// StepBack one row back (a source must allow at least one step back after an Advance). Every
// column shares one cursor in the sources built so far, so the column argument of the moves
// only says which column the caller is walking. Reads answer 0 on failure (no current row, a
// column the source does not serve, a store that failed); a failed read leaves *value alone.
//
// The interface says nothing of where rows live: the SQLite metadata reader answers it now, and
// a server database can answer it later with the callers unchanged. Sources fetch rows as the
// cursor moves, so a caller walking a day of rows does not need them all in memory at once.
#pragma once

#include "framework/bel/WinTypes.h"
#include "framework/jok/Command.h"

#include <cstdint>

class CKorMetadataHandler;

enum EKorAttributeColumn : long {
    KOR_ATTR_TIME = 1,
    KOR_ATTR_LEVEL = 2,
    KOR_ATTR_KEY = 5,
    KOR_ATTR_METADATA = 6,
};

// Virtual slots after IUnknown's, in this order.
struct IJokArchiveAttributeSource : IUnknown {
    // Rows the column has within the source's range (0 when there are none or on failure).
    virtual long GetRowCount(long column) = 0;
    // Puts the cursor on the first row; answers 0 when there is none.
    virtual int Rewind(long column) = 0;
    // Moves to the next row; answers 0 (and stays past the end) when there is none.
    virtual int Advance(long column) = 0;
    // Moves to the previous row; answers 0 when the source cannot.
    virtual int StepBack(long column) = 0;
    // The current row's value of the column as a 32-bit integer.
    virtual int ReadLong(long column, std::int32_t* value) = 0;
    // The current row's metadata: a new handler chain that the caller owns and deletes, or
    // nullptr for a row without metadata (both answer 1).
    virtual int ReadMetadata(long column, CKorMetadataHandler** handler) = 0;
    // The last failure in words ("" when none), for the caller's diagnostics; borrowed, valid
    // until the next call.
    virtual const char* GetLastError() = 0;

protected:
    ~IJokArchiveAttributeSource() = default;
};
