// The archive's row codecs and database layer alone.
#include "storage/ArchiveStore.h"
#include "storage/ArchiveRows.h"

#include <gtest/gtest.h>

#include <sqlite3.h>

#include <climits>
#include <cstdio>
#include <fstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

using namespace zorarchive;

namespace {

// A directory of the test program's own.
const std::string& ScratchDir() {
    static const std::string dir = [] {
        std::string pattern = ::testing::TempDir() + "zor-archive-XXXXXX";
        return std::string(mkdtemp(pattern.data()));
    }();
    return dir;
}

// A fresh file name in it.
std::string Scratch(const char* name) {
    const std::string path = ScratchDir() + "/" + name;
    for (const char* suffix : {"", "-wal", "-shm"}) {
        std::remove((path + suffix).c_str());
    }
    return path;
}

std::vector<SFrameRow> ReadAll(CArchiveDatabase& db, const char* camera, int stream,
                               std::int64_t from = INT64_MIN, std::int64_t to = INT64_MAX) {
    std::int64_t id = 0;
    std::string error;
    std::vector<SFrameRow> rows;
    if (!db.FindStream(camera, stream, false, &id, &error)) {
        ADD_FAILURE() << error;
        return rows;
    }
    CArchiveCursor cursor(&db);
    EXPECT_TRUE(cursor.SetRange(id, from, to, &error)) << error;
    for (bool more = cursor.Rewind(); more; more = cursor.Advance()) {
        rows.push_back(*cursor.Current());
    }
    EXPECT_EQ(cursor.Error(), "");
    return rows;
}

TEST(ArchiveRows, BoxSetsRoundTripAndMalformedBlobsAreRefused) {
    const std::vector<SArchiveBox> boxes = {{1, 2, 3, 4, 5}, {65535, 0, 65535, 65535, 0xFFFFFFFFu}};
    std::string blob;
    EncodeBoxes(boxes.data(), boxes.size(), &blob);
    EXPECT_EQ(blob.size(), 3u + 2 * 12u);
    std::vector<SArchiveBox> back;
    std::string error;
    ASSERT_TRUE(DecodeBoxes(blob.data(), blob.size(), &back, &error));
    EXPECT_EQ(back, boxes);
    const struct {
        std::string blob;
        const char* reason;
    } bad[] = {{"", "too short"},
               {std::string("\x02\0\0", 3), "version 2 is not known"},
               {blob.substr(0, blob.size() - 1), "do not hold 2 boxes"},
               {blob + "x", "do not hold 2 boxes"}};
    for (const auto& b : bad) {
        EXPECT_FALSE(DecodeBoxes(b.blob.data(), b.blob.size(), &back, &error));
        EXPECT_NE(error.find(b.reason), std::string::npos) << error;
    }
}

TEST(ArchiveStore, FramesComeBackInTimeOrderWithKeysThatChangeOnlyWithTheBoxes) {
    const std::string path = Scratch("frames.db");
    CArchiveDatabase db;
    std::string error;
    ASSERT_TRUE(db.Open(path, CArchiveDatabase::WRITE, 0, &error)) << error;
    {
        CArchiveWriter writer(&db);
        writer.m_BatchRows = 3;
        const SArchiveBox a[] = {{0, 0, 10, 10, 1}};
        const SArchiveBox b[] = {{0, 0, 10, 10, 2}};
        const struct {
            std::int32_t time;
            const SArchiveBox* boxes;
        } frames[] = {{40, a}, {0, nullptr}, {80, a}, {120, b}, {160, nullptr}, {200, a}, {240, a}};
        for (const auto& f : frames) {
            ASSERT_TRUE(writer.Append("cam1", 0, f.time, f.time / 1000.0, f.time / 40, f.boxes,
                                      f.boxes ? 1 : 0, &error))
                << error;
        }
        ASSERT_TRUE(writer.Append("cam2", 3, 0, 0, -5, nullptr, 0, &error)) << error;
        EXPECT_EQ(writer.Written(), 8);
    }
    // Frames read in time order; keys were given in arrival order, so the frame at 0 (which came
    // second, without boxes) split the two runs of box set a.
    std::vector<std::pair<std::int64_t, std::int64_t>> timeKey;
    for (const SFrameRow& row : ReadAll(db, "cam1", 0)) {
        timeKey.emplace_back(row.m_Time, row.m_Key);
    }
    EXPECT_EQ(timeKey, (std::vector<std::pair<std::int64_t, std::int64_t>>{
                           {0, 0}, {40, 1}, {80, 2}, {120, 3}, {160, 0}, {200, 4}, {240, 4}}));
    const std::vector<SFrameRow> other = ReadAll(db, "cam2", 3);
    ASSERT_EQ(other.size(), 1u);
    EXPECT_EQ(other[0].m_Level, -1);
    EXPECT_EQ(db.DescribeStreams(), "\"cam1\"/0, \"cam2\"/3");
}

TEST(ArchiveStore, StoredTimesGoOnPastTheThirtyTwoBitWrap) {
    const std::string path = Scratch("wrap.db");
    CArchiveDatabase db;
    std::string error;
    ASSERT_TRUE(db.Open(path, CArchiveDatabase::WRITE, 0, &error)) << error;
    {
        CArchiveWriter writer(&db);
        for (std::int32_t t : {INT_MAX - 40, INT_MAX, INT_MIN + 39}) {
            ASSERT_TRUE(writer.Append("c", 0, t, 0, 1, nullptr, 0, &error)) << error;
        }
    }
    const std::vector<SFrameRow> rows = ReadAll(db, "c", 0);
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[2].m_Time, static_cast<std::int64_t>(INT_MAX) + 40);
}

TEST(ArchiveStore, TheCursorRangesCountsAndStepsBack) {
    const std::string path = Scratch("cursor.db");
    CArchiveDatabase db;
    std::string error;
    ASSERT_TRUE(db.Open(path, CArchiveDatabase::WRITE, 0, &error)) << error;
    {
        CArchiveWriter writer(&db);
        for (int i = 0; i < 200; ++i) {
            writer.Append("c", 0, i * 10, 0, i, nullptr, 0, &error);
        }
    }
    std::int64_t id = 0;
    ASSERT_TRUE(db.FindStream("c", 0, false, &id, &error));
    CArchiveCursor cursor(&db);
    ASSERT_TRUE(cursor.SetRange(id, 100, 1000, &error));
    EXPECT_EQ(cursor.Count(), 90);
    ASSERT_TRUE(cursor.Rewind());
    EXPECT_EQ(cursor.Current()->m_Time, 100);
    EXPECT_FALSE(cursor.StepBack());
    for (int i = 0; i < 89; ++i) {
        ASSERT_TRUE(cursor.Advance());
    }
    EXPECT_FALSE(cursor.Advance());
    EXPECT_EQ(cursor.Current(), nullptr);
    ASSERT_TRUE(cursor.StepBack());
    EXPECT_EQ(cursor.Current()->m_Time, 990);
    for (size_t i = 1; i < CArchiveCursor::kHistory; ++i) {
        ASSERT_TRUE(cursor.StepBack());
    }
    EXPECT_FALSE(cursor.StepBack()); // only so much history is kept
    EXPECT_TRUE(cursor.Advance());
    EXPECT_EQ(cursor.Current()->m_Time,
              1000 - 10 * static_cast<int>(CArchiveCursor::kHistory) + 10);
}

TEST(ArchiveStore, ACrashedWriterLeavesEveryCommittedBatch) {
    const std::string path = Scratch("crash.db");
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        CArchiveDatabase db;
        std::string error;
        if (!db.Open(path, CArchiveDatabase::WRITE, 0, &error)) {
            _exit(2);
        }
        auto* writer = new CArchiveWriter(&db); // never destroyed: the process dies mid-batch
        writer->m_BatchRows = 100;
        for (int i = 0; i < 250; ++i) {
            writer->Append("c", 0, i * 40, 0, 7, nullptr, 0, &error);
        }
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    std::ifstream wal(path + "-wal");
    EXPECT_TRUE(wal.good()); // the log was left behind, not checkpointed
    CArchiveDatabase db;
    std::string error;
    ASSERT_TRUE(db.Open(path, CArchiveDatabase::READ, 0, &error)) << error;
    EXPECT_EQ(ReadAll(db, "c", 0).size(), 200u);
}

TEST(ArchiveStore, UnusableFilesAreRefusedWithAReason) {
    std::string error;
    const std::string& dir = ScratchDir();
    const auto expectRefused = [&](const std::string& path, CArchiveDatabase::EMode mode,
                                   const char* reason) {
        CArchiveDatabase db;
        EXPECT_FALSE(db.Open(path, mode, 0, &error)) << path;
        EXPECT_NE(error.find(reason), std::string::npos) << error;
        EXPECT_EQ(error.rfind(path, 0), 0u) << error; // names the file first
    };
    expectRefused(Scratch("missing.db"), CArchiveDatabase::READ, "no such file");
    expectRefused(dir, CArchiveDatabase::READ, "is a directory");

    const std::string garbage = Scratch("garbage.db");
    std::ofstream(garbage) << std::string(4096, 'x');
    expectRefused(garbage, CArchiveDatabase::READ, "not a database file");
    expectRefused(garbage, CArchiveDatabase::WRITE, "not a database file");

    const std::string foreign = Scratch("foreign.db");
    sqlite3* other = nullptr;
    sqlite3_open(foreign.c_str(), &other);
    sqlite3_exec(other, "CREATE TABLE songs (title TEXT)", nullptr, nullptr, nullptr);
    sqlite3_close(other);
    expectRefused(foreign, CArchiveDatabase::WRITE,
                  "not a metadata archive (a database of "
                  "another kind, with tables songs)");

    const std::string empty = Scratch("empty.db");
    sqlite3_open(empty.c_str(), &other);
    sqlite3_close(other);
    std::ofstream(empty, std::ios::app).flush();
    expectRefused(empty, CArchiveDatabase::READ, "an empty database");

    const std::string newer = Scratch("newer.db");
    {
        CArchiveDatabase db;
        ASSERT_TRUE(db.Open(newer, CArchiveDatabase::WRITE, 0, &error)) << error;
        sqlite3_exec(db.Handle(), "PRAGMA user_version = 7", nullptr, nullptr, nullptr);
    }
    expectRefused(newer, CArchiveDatabase::READ, "schema version 7 is newer than this build reads");

    const std::string locked = Scratch("locked.db");
    CArchiveDatabase first;
    ASSERT_TRUE(first.Open(locked, CArchiveDatabase::WRITE, 0, &error)) << error;
    sqlite3_exec(first.Handle(), "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
    expectRefused(locked, CArchiveDatabase::WRITE, "locked by another writer");
    CArchiveDatabase reader; // readers go on while a writer works
    EXPECT_TRUE(reader.Open(locked, CArchiveDatabase::READ, 0, &error)) << error;
    std::int64_t id = 0;
    EXPECT_FALSE(reader.FindStream("nobody", 1, false, &id, &error));
    EXPECT_NE(error.find("no stream 1 of camera \"nobody\" (the archive holds no streams)"),
              std::string::npos)
        << error;
    sqlite3_exec(first.Handle(), "COMMIT", nullptr, nullptr, nullptr);
}

} // namespace
