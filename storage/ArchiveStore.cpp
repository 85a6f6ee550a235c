#include "storage/ArchiveStore.h"

#include <sqlite3.h>
#include <sys/stat.h>

namespace zorarchive {

namespace {

std::int32_t Elapsed(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(b) - static_cast<std::uint32_t>(a));
}

// Runs a statement that answers one integer.
bool QueryInt(sqlite3* db, const char* sql, std::int64_t* value) {
    CStatement statement;
    if (!statement.Prepare(db, sql) || sqlite3_step(statement.Get()) != SQLITE_ROW) {
        return false;
    }
    *value = sqlite3_column_int64(statement.Get(), 0);
    return true;
}

bool IsBusy(int code) {
    return (code & 0xFF) == SQLITE_BUSY || (code & 0xFF) == SQLITE_LOCKED;
}

} // namespace

CStatement::~CStatement() {
    Finalize();
}

bool CStatement::Prepare(sqlite3* db, const char* sql) {
    Finalize();
    return sqlite3_prepare_v2(db, sql, -1, &m_pStmt, nullptr) == SQLITE_OK;
}

void CStatement::Finalize() {
    if (m_pStmt) {
        sqlite3_finalize(m_pStmt);
        m_pStmt = nullptr;
    }
}

// ---------------------------------------------------------------------------------------------
// CArchiveDatabase

CArchiveDatabase::~CArchiveDatabase() {
    Close();
}

void CArchiveDatabase::Close() {
    if (m_pDb) {
        sqlite3_close_v2(m_pDb);
        m_pDb = nullptr;
    }
}

std::string CArchiveDatabase::Describe(const std::string& what) const {
    std::string text = m_Path + ": " + what;
    if (m_pDb && sqlite3_errcode(m_pDb) != SQLITE_OK) {
        text += std::string(" (") + sqlite3_errmsg(m_pDb) + ")";
    }
    return text;
}

bool CArchiveDatabase::Open(const std::string& path, EMode mode, int busyTimeoutMs,
                            std::string* error) {
    Close();
    m_Path = path;
    struct stat info {};
    const bool exists = ::stat(path.c_str(), &info) == 0;
    if (mode == READ && !exists) {
        *error = path + ": no such file";
        return false;
    }
    if (exists && S_ISDIR(info.st_mode)) {
        *error = path + ": is a directory, not an archive file";
        return false;
    }
    int flags = SQLITE_OPEN_READWRITE | (mode == WRITE ? SQLITE_OPEN_CREATE : 0);
    int rc = sqlite3_open_v2(path.c_str(), &m_pDb, flags, nullptr);
    if (rc != SQLITE_OK && mode == READ) {
        // A file we may only read: read it as it is.
        Close();
        rc = sqlite3_open_v2(path.c_str(), &m_pDb, SQLITE_OPEN_READONLY, nullptr);
    }
    if (rc != SQLITE_OK) {
        *error = Describe("cannot open the archive");
        Close();
        return false;
    }
    sqlite3_extended_result_codes(m_pDb, 1);
    sqlite3_busy_timeout(m_pDb, busyTimeoutMs < 0 ? 0 : busyTimeoutMs);
    if (!Identify(mode, error)) {
        Close();
        return false;
    }
    return true;
}

bool CArchiveDatabase::Identify(EMode mode, std::string* error) {
    std::int64_t application = 0;
    std::int64_t version = 0;
    std::int64_t tables = 0;
    if (!QueryInt(m_pDb, "PRAGMA application_id", &application) ||
        !QueryInt(m_pDb, "PRAGMA user_version", &version) ||
        !QueryInt(m_pDb, "SELECT count(*) FROM sqlite_master", &tables)) {
        const int code = sqlite3_extended_errcode(m_pDb);
        if (IsBusy(code)) {
            *error = Describe("the archive is locked by another process");
        } else if ((code & 0xFF) == SQLITE_NOTADB) {
            *error = Describe("not a database file");
        } else {
            *error = Describe("cannot read the archive");
        }
        return false;
    }
    if (application != kArchiveApplicationId) {
        if (tables > 0) {
            std::string names;
            CStatement list;
            if (list.Prepare(m_pDb, "SELECT name FROM sqlite_master WHERE type = 'table' "
                                    "ORDER BY name LIMIT 5")) {
                while (sqlite3_step(list.Get()) == SQLITE_ROW) {
                    names += (names.empty() ? "" : ", ") +
                             std::string(
                                 reinterpret_cast<const char*>(sqlite3_column_text(list.Get(), 0)));
                }
            }
            *error = m_Path + ": not a metadata archive (a database of another kind, with tables " +
                     names + ")";
            return false;
        }
        if (mode == READ) {
            *error = m_Path + ": an empty database, not a metadata archive (nothing was ever "
                              "written to it)";
            return false;
        }
        return CreateSchema(error);
    }
    if (version > kArchiveSchemaVersion) {
        *error = m_Path + ": archive schema version " + std::to_string(version) +
                 " is newer than this build reads (" + std::to_string(kArchiveSchemaVersion) + ")";
        return false;
    }
    if (version < 1) {
        *error = m_Path + ": damaged archive (no schema version)";
        return false;
    }
    if (mode == WRITE) {
        // Fails at once, rather than at the first batch, when another writer holds the archive.
        if (sqlite3_exec(m_pDb,
                         "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; "
                         "BEGIN IMMEDIATE; COMMIT",
                         nullptr, nullptr, nullptr) != SQLITE_OK) {
            *error = IsBusy(sqlite3_extended_errcode(m_pDb))
                         ? Describe("the archive is locked by another writer")
                         : Describe("cannot write the archive");
            return false;
        }
    }
    return true;
}

bool CArchiveDatabase::CreateSchema(std::string* error) {
    // The log mode is set outside the transaction that makes the schema.
    if (sqlite3_exec(m_pDb, "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL", nullptr, nullptr,
                     nullptr) != SQLITE_OK) {
        *error = IsBusy(sqlite3_extended_errcode(m_pDb))
                     ? Describe("the archive is locked by another writer")
                     : Describe("cannot write the archive");
        return false;
    }
    const std::string sql = std::string("BEGIN IMMEDIATE;") + kArchiveSchemaSql +
                            "PRAGMA application_id=" + std::to_string(kArchiveApplicationId) +
                            ";PRAGMA user_version=" + std::to_string(kArchiveSchemaVersion) +
                            ";COMMIT;";
    if (sqlite3_exec(m_pDb, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
        *error = IsBusy(sqlite3_extended_errcode(m_pDb))
                     ? Describe("the archive is locked by another writer")
                     : Describe("cannot create the archive's tables");
        sqlite3_exec(m_pDb, "ROLLBACK", nullptr, nullptr, nullptr);
        return false;
    }
    return true;
}

bool CArchiveDatabase::FindStream(const std::string& camera, int stream, bool create,
                                  std::int64_t* id, std::string* error) {
    if (create) {
        CStatement insert;
        if (!insert.Prepare(m_pDb,
                            "INSERT OR IGNORE INTO streams (camera, stream) VALUES (?, ?)")) {
            *error = Describe("cannot add a stream");
            return false;
        }
        sqlite3_bind_text(insert.Get(), 1, camera.c_str(), -1, SQLITE_TRANSIENT);
        sqlite3_bind_int(insert.Get(), 2, stream);
        if (sqlite3_step(insert.Get()) != SQLITE_DONE) {
            *error = Describe("cannot add a stream");
            return false;
        }
    }
    CStatement find;
    if (!find.Prepare(m_pDb, "SELECT id FROM streams WHERE camera = ? AND stream = ?")) {
        *error = Describe("cannot read the streams");
        return false;
    }
    sqlite3_bind_text(find.Get(), 1, camera.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_int(find.Get(), 2, stream);
    const int rc = sqlite3_step(find.Get());
    if (rc == SQLITE_ROW) {
        *id = sqlite3_column_int64(find.Get(), 0);
        return true;
    }
    if (rc != SQLITE_DONE) {
        *error = Describe("cannot read the streams");
        return false;
    }
    *error = m_Path + ": no stream " + std::to_string(stream) + " of camera \"" + camera +
             "\" (the archive holds " + DescribeStreams() + ")";
    return false;
}

std::vector<std::pair<std::string, int>> CArchiveDatabase::Streams() {
    std::vector<std::pair<std::string, int>> streams;
    CStatement list;
    if (!list.Prepare(m_pDb, "SELECT camera, stream FROM streams ORDER BY camera, stream")) {
        return streams;
    }
    while (sqlite3_step(list.Get()) == SQLITE_ROW) {
        streams.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(list.Get(), 0)),
                             sqlite3_column_int(list.Get(), 1));
    }
    return streams;
}

std::string CArchiveDatabase::DescribeStreams() {
    std::string text;
    for (const auto& [camera, stream] : Streams()) {
        text += (text.empty() ? "\"" : ", \"") + camera + "\"/" + std::to_string(stream);
    }
    return text.empty() ? "no streams" : text;
}

bool CArchiveDatabase::TimeSpan(std::int64_t streamId, std::int64_t* first, std::int64_t* last) {
    CStatement span;
    if (!span.Prepare(m_pDb, "SELECT min(time), max(time) FROM frames WHERE stream_id = ?")) {
        return false;
    }
    sqlite3_bind_int64(span.Get(), 1, streamId);
    if (sqlite3_step(span.Get()) != SQLITE_ROW ||
        sqlite3_column_type(span.Get(), 0) == SQLITE_NULL) {
        return false;
    }
    *first = sqlite3_column_int64(span.Get(), 0);
    *last = sqlite3_column_int64(span.Get(), 1);
    return true;
}

// ---------------------------------------------------------------------------------------------
// CArchiveWriter

CArchiveWriter::CArchiveWriter(CArchiveDatabase* db) : m_pDb(db) {}

CArchiveWriter::~CArchiveWriter() {
    std::string ignored;
    Commit(&ignored);
}

bool CArchiveWriter::Fail(const char* what, std::string* error) {
    *error = m_pDb->Describe(what);
    return false;
}

bool CArchiveWriter::Prepare(std::string* error) {
    if (m_InsertFrame.Get()) {
        return true;
    }
    // A frame at a time already stored (a stream written again) replaces the old row.
    if (!m_InsertFrame.Prepare(m_pDb->Handle(),
                               "INSERT OR REPLACE INTO frames (stream_id, time, real_time, level, "
                               "box_key) VALUES (?, ?, ?, ?, ?)") ||
        !m_InsertBoxes.Prepare(m_pDb->Handle(), "INSERT OR REPLACE INTO box_sets (stream_id, "
                                                "box_key, boxes) VALUES (?, ?, ?)")) {
        return Fail("cannot prepare the writer", error);
    }
    return true;
}

CArchiveWriter::SStream* CArchiveWriter::FindOrAdd(const std::string& camera, int stream,
                                                   std::string* error) {
    if (m_pLast && m_pLast->m_Stream == stream && m_pLast->m_Camera == camera) {
        return m_pLast;
    }
    for (SStream& known : m_Streams) {
        if (known.m_Stream == stream && known.m_Camera == camera) {
            return m_pLast = &known;
        }
    }
    SStream added;
    added.m_Camera = camera;
    added.m_Stream = stream;
    if (!m_pDb->FindStream(camera, stream, true, &added.m_Id, error)) {
        return nullptr;
    }
    // Keys go on from what an earlier run of the stream gave out.
    CStatement last;
    if (!last.Prepare(m_pDb->Handle(), "SELECT max(box_key) FROM box_sets WHERE stream_id = ?")) {
        Fail("cannot read the box sets", error);
        return nullptr;
    }
    sqlite3_bind_int64(last.Get(), 1, added.m_Id);
    if (sqlite3_step(last.Get()) == SQLITE_ROW) {
        added.m_LastKey = sqlite3_column_int64(last.Get(), 0);
    }
    m_Streams.push_back(std::move(added));
    return m_pLast = &m_Streams.back();
}

bool CArchiveWriter::Append(const std::string& camera, int stream, std::int32_t time,
                            double realTime, std::int32_t level, const SArchiveBox* boxes,
                            std::size_t count, std::string* error) {
    if (!Prepare(error)) {
        return false;
    }
    if (!m_InBatch) {
        if (sqlite3_exec(m_pDb->Handle(), "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) !=
            SQLITE_OK) {
            return Fail(IsBusy(sqlite3_extended_errcode(m_pDb->Handle()))
                            ? "the archive is locked by another writer"
                            : "cannot start a batch",
                        error);
        }
        m_InBatch = true;
    }
    SStream* s = FindOrAdd(camera, stream, error);
    if (!s) {
        return false;
    }
    // Stored times go on past the wrap of the 32-bit timestamps.
    const std::int64_t stored = s->m_Started ? s->m_LastTime + Elapsed(s->m_LastRaw, time) : time;
    std::int64_t key = 0;
    if (count > 0) {
        EncodeBoxes(boxes, count, &m_Blob);
        if (!s->m_HasSet || m_Blob != s->m_LastBlob) {
            key = s->m_LastKey + 1;
            sqlite3_stmt* insert = m_InsertBoxes.Get();
            sqlite3_reset(insert);
            sqlite3_bind_int64(insert, 1, s->m_Id);
            sqlite3_bind_int64(insert, 2, key);
            sqlite3_bind_blob(insert, 3, m_Blob.data(), static_cast<int>(m_Blob.size()),
                              SQLITE_STATIC);
            if (sqlite3_step(insert) != SQLITE_DONE) {
                return Fail("cannot store a box set", error);
            }
            s->m_LastKey = key;
            s->m_LastBlob.swap(m_Blob);
        } else {
            key = s->m_LastKey;
        }
    }
    s->m_HasSet = count > 0;
    sqlite3_stmt* insert = m_InsertFrame.Get();
    sqlite3_reset(insert);
    sqlite3_bind_int64(insert, 1, s->m_Id);
    sqlite3_bind_int64(insert, 2, stored);
    sqlite3_bind_double(insert, 3, realTime);
    sqlite3_bind_int(insert, 4, level < 0 ? -1 : level);
    sqlite3_bind_int64(insert, 5, key);
    if (sqlite3_step(insert) != SQLITE_DONE) {
        return Fail("cannot store a frame", error);
    }
    s->m_Started = true;
    s->m_LastRaw = time;
    s->m_LastTime = stored;
    ++m_Written;
    if (++m_Pending >= m_BatchRows) {
        return Commit(error);
    }
    return true;
}

bool CArchiveWriter::Commit(std::string* error) {
    if (!m_InBatch) {
        return true;
    }
    m_InBatch = false;
    m_Pending = 0;
    if (sqlite3_exec(m_pDb->Handle(), "COMMIT", nullptr, nullptr, nullptr) != SQLITE_OK) {
        Fail("cannot commit a batch", error);
        sqlite3_exec(m_pDb->Handle(), "ROLLBACK", nullptr, nullptr, nullptr);
        return false;
    }
    return true;
}

// ---------------------------------------------------------------------------------------------
// CArchiveCursor

CArchiveCursor::CArchiveCursor(CArchiveDatabase* db) : m_pDb(db) {}

bool CArchiveCursor::Fail(const char* what) {
    m_Error = m_pDb->Describe(what);
    m_Valid = false;
    return false;
}

bool CArchiveCursor::SetRange(std::int64_t streamId, std::int64_t from, std::int64_t to,
                              std::string* error) {
    m_StreamId = streamId;
    m_From = from;
    m_To = to;
    m_Window.clear();
    m_Valid = false;
    m_Exhausted = false;
    m_Error.clear();
    sqlite3* db = m_pDb->Handle();
    if (!m_Rows.Prepare(db, "SELECT time, real_time, level, box_key FROM frames "
                            "WHERE stream_id = ? AND time >= ? AND time < ? ORDER BY time") ||
        !m_Count.Prepare(db, "SELECT count(*) FROM frames "
                             "WHERE stream_id = ? AND time >= ? AND time < ?") ||
        !m_Boxes.Prepare(db, "SELECT boxes FROM box_sets WHERE stream_id = ? AND box_key = ?")) {
        *error = m_pDb->Describe("cannot read the frames");
        return false;
    }
    return true;
}

std::int64_t CArchiveCursor::Count() {
    sqlite3_stmt* count = m_Count.Get();
    if (!count) {
        return -1;
    }
    sqlite3_reset(count);
    sqlite3_bind_int64(count, 1, m_StreamId);
    sqlite3_bind_int64(count, 2, m_From);
    sqlite3_bind_int64(count, 3, m_To);
    if (sqlite3_step(count) != SQLITE_ROW) {
        Fail("cannot count the frames");
        sqlite3_reset(count);
        return -1;
    }
    const std::int64_t rows = sqlite3_column_int64(count, 0);
    sqlite3_reset(count);
    return rows;
}

bool CArchiveCursor::Fetch() {
    sqlite3_stmt* rows = m_Rows.Get();
    const int rc = sqlite3_step(rows);
    if (rc == SQLITE_DONE) {
        m_Exhausted = true;
        return false;
    }
    if (rc != SQLITE_ROW) {
        m_Exhausted = true;
        return Fail("cannot read the frames");
    }
    SFrameRow row;
    row.m_Time = sqlite3_column_int64(rows, 0);
    row.m_RealTime = sqlite3_column_double(rows, 1);
    row.m_Level = sqlite3_column_int(rows, 2);
    row.m_Key = sqlite3_column_int64(rows, 3);
    if (m_Window.size() == kHistory) {
        m_Window.pop_front();
        --m_Index;
    }
    m_Window.push_back(row);
    return true;
}

bool CArchiveCursor::Rewind() {
    sqlite3_stmt* rows = m_Rows.Get();
    m_Error.clear();
    m_Window.clear();
    m_Index = 0;
    m_Valid = false;
    m_Exhausted = false;
    if (!rows) {
        return false;
    }
    sqlite3_reset(rows);
    sqlite3_bind_int64(rows, 1, m_StreamId);
    sqlite3_bind_int64(rows, 2, m_From);
    sqlite3_bind_int64(rows, 3, m_To);
    if (!Fetch()) {
        return false;
    }
    m_Valid = true;
    return true;
}

bool CArchiveCursor::Advance() {
    if (!m_Valid) {
        return false;
    }
    if (m_Index + 1 < m_Window.size()) {
        ++m_Index;
        return true;
    }
    if (m_Exhausted || !Fetch()) {
        m_Valid = false;
        m_Index = m_Window.size();
        return false;
    }
    m_Index = m_Window.size() - 1;
    return true;
}

bool CArchiveCursor::StepBack() {
    // Past the end, stepping back lands on the last row again.
    const std::size_t position = m_Valid ? m_Index : m_Window.size();
    if (position == 0 || m_Window.empty() || !m_Error.empty()) {
        return false;
    }
    m_Index = position - 1;
    m_Valid = true;
    return true;
}

const SFrameRow* CArchiveCursor::Current() const {
    return m_Valid ? &m_Window[m_Index] : nullptr;
}

bool CArchiveCursor::ReadBoxes(std::int64_t key, std::vector<SArchiveBox>* boxes) {
    sqlite3_stmt* find = m_Boxes.Get();
    if (!find) {
        return false;
    }
    sqlite3_reset(find);
    sqlite3_bind_int64(find, 1, m_StreamId);
    sqlite3_bind_int64(find, 2, key);
    const int rc = sqlite3_step(find);
    if (rc != SQLITE_ROW) {
        m_Error = rc == SQLITE_DONE
                      ? m_pDb->Path() + ": box set " + std::to_string(key) + " is missing"
                      : m_pDb->Describe("cannot read a box set");
        sqlite3_reset(find);
        return false;
    }
    std::string error;
    const bool ok =
        DecodeBoxes(sqlite3_column_blob(find, 0),
                    static_cast<std::size_t>(sqlite3_column_bytes(find, 0)), boxes, &error);
    sqlite3_reset(find);
    if (!ok) {
        m_Error = m_pDb->Path() + ": " + error;
    }
    return ok;
}

} // namespace zorarchive
