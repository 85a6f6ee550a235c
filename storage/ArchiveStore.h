// The metadata archive in SQLite, without the framework: opening and checking a database,
// writing frames in batches, and walking a stream's frames over a time range.
//
// Durability: the database runs with a write-ahead log and synchronous=NORMAL, and the writer
// commits one transaction per batch of frames. A process that dies loses at most the batch it
// had not committed; the next open replays the log, so a database left by a crashed run opens as
// the last committed batch left it.
//
// Every failure answers false with a message that names the file and says what is wrong in words
// ("no such file", "locked by another writer", "not a database file", "not a metadata archive",
// "schema version 3 is newer than this build reads").
#pragma once

#include "storage/ArchiveRows.h"

#include <cstdint>
#include <deque>
#include <string>
#include <utility>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace zorarchive {

// One frame as stored: time in ms (the stream's own timestamps, carried past the 32-bit wrap),
// real time in seconds, motion level (negative: none) and box set key (0: no boxes).
struct SFrameRow {
    std::int64_t m_Time = 0;
    double m_RealTime = 0.0;
    std::int32_t m_Level = -1;
    std::int64_t m_Key = 0;
};

// A prepared statement, finalised with its owner.
class CStatement {
public:
    CStatement() = default;
    ~CStatement();
    CStatement(const CStatement&) = delete;
    CStatement& operator=(const CStatement&) = delete;
    bool Prepare(sqlite3* db, const char* sql);
    void Finalize();
    sqlite3_stmt* Get() const { return m_pStmt; }

private:
    sqlite3_stmt* m_pStmt = nullptr;
};

class CArchiveDatabase {
public:
    enum EMode { READ, WRITE };

    CArchiveDatabase() = default;
    ~CArchiveDatabase();
    CArchiveDatabase(const CArchiveDatabase&) = delete;
    CArchiveDatabase& operator=(const CArchiveDatabase&) = delete;

    // READ opens an existing archive; WRITE also creates the file and the schema and checks
    // that no other writer holds the database. busyTimeoutMs: how long a locked database is
    // waited for.
    bool Open(const std::string& path, EMode mode, int busyTimeoutMs, std::string* error);
    void Close();
    bool IsOpen() const { return m_pDb != nullptr; }
    sqlite3* Handle() const { return m_pDb; }
    const std::string& Path() const { return m_Path; }

    // The id of (camera, stream); with create, made when missing. Answers false with a message
    // when it is missing (and not to be made) or the database fails.
    bool FindStream(const std::string& camera, int stream, bool create, std::int64_t* id,
                    std::string* error);
    // The (camera, stream) pairs stored, in order.
    std::vector<std::pair<std::string, int>> Streams();
    // "cam1/0, cam2/3" or "none".
    std::string DescribeStreams();
    // The first and last frame times of a stream; false when it has no frames.
    bool TimeSpan(std::int64_t streamId, std::int64_t* first, std::int64_t* last);

    // "path: what (sqlite's words)".
    std::string Describe(const std::string& what) const;

private:
    bool Identify(EMode mode, std::string* error);
    bool CreateSchema(std::string* error);

    sqlite3* m_pDb = nullptr;
    std::string m_Path;
};

// Appends frames of any streams of one database; commits every m_BatchRows frames, on Commit
// and when destroyed.
class CArchiveWriter {
public:
    explicit CArchiveWriter(CArchiveDatabase* db); // borrows db, which outlives the writer
    ~CArchiveWriter();
    CArchiveWriter(const CArchiveWriter&) = delete;
    CArchiveWriter& operator=(const CArchiveWriter&) = delete;

    // One frame. time is the packet's 32-bit timestamp; boxes (count of them) are the frame's
    // box set, none when count is 0.
    bool Append(const std::string& camera, int stream, std::int32_t time, double realTime,
                std::int32_t level, const SArchiveBox* boxes, std::size_t count,
                std::string* error);
    // Commits the open batch, if any.
    bool Commit(std::string* error);

    std::int64_t Written() const { return m_Written; }
    int Pending() const { return m_Pending; }
    int m_BatchRows = 1000;

private:
    struct SStream {
        std::string m_Camera;
        int m_Stream = 0;
        std::int64_t m_Id = 0;
        bool m_Started = false;
        std::int32_t m_LastRaw = 0;
        std::int64_t m_LastTime = 0;
        std::int64_t m_LastKey = 0; // the largest key given out
        bool m_HasSet = false;      // the previous frame had boxes (key m_LastKey)
        std::string m_LastBlob;
    };
    SStream* FindOrAdd(const std::string& camera, int stream, std::string* error);
    bool Prepare(std::string* error);
    bool Fail(const char* what, std::string* error);

    CArchiveDatabase* m_pDb;
    CStatement m_InsertFrame;
    CStatement m_InsertBoxes;
    std::deque<SStream> m_Streams;
    SStream* m_pLast = nullptr;
    std::string m_Blob;
    bool m_InBatch = false;
    int m_Pending = 0;
    std::int64_t m_Written = 0;
};

// Walks the frames of one stream with from <= time < to, in time order. Rows are fetched as
// the cursor moves; the last kHistory rows are kept so that the cursor can step back.
class CArchiveCursor {
public:
    static constexpr std::size_t kHistory = 64;

    explicit CArchiveCursor(CArchiveDatabase* db); // borrows db, which outlives the cursor
    CArchiveCursor(const CArchiveCursor&) = delete;
    CArchiveCursor& operator=(const CArchiveCursor&) = delete;

    bool SetRange(std::int64_t streamId, std::int64_t from, std::int64_t to, std::string* error);
    // Frames in the range; -1 when the database fails (see Error).
    std::int64_t Count();
    bool Rewind();
    bool Advance();
    bool StepBack();
    // The current frame, or nullptr (before Rewind, past the end, after a failure).
    const SFrameRow* Current() const;
    // The box set of a key of this stream.
    bool ReadBoxes(std::int64_t key, std::vector<SArchiveBox>* boxes);
    // The last failure ("" when the last move simply ran out of rows).
    const std::string& Error() const { return m_Error; }

private:
    bool Fetch();
    bool Fail(const char* what);

    CArchiveDatabase* m_pDb;
    CStatement m_Rows;
    CStatement m_Count;
    CStatement m_Boxes;
    std::int64_t m_StreamId = 0;
    std::int64_t m_From = 0;
    std::int64_t m_To = 0;
    std::deque<SFrameRow> m_Window;
    std::size_t m_Index = 0;  // into m_Window
    bool m_Valid = false;     // the cursor is on a row
    bool m_Exhausted = false; // the statement has no more rows
    std::string m_Error;
};

} // namespace zorarchive
