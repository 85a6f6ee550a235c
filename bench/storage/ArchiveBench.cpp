// The archive's figures: frames stored per second by the metadata writer (motion level and two
// moving boxes per frame), and a day of one camera at 10 frames a second (864,000 frames)
// searched from SQLite by the archive filters, in frames per second of wall time including the
// read.
//
// The day is written once per run into a temporary file: levels with a burst of motion every
// ten minutes, and boxes on a fifth of the frames (a new box set on each of them, as a tracker's
// moving boxes give), none on the rest.

#include "analytics/motion/GVMDFilter.h"
#include "analytics/motion/VMDFilter.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/GenericData.h"
#include "framework/kor/BoundingBoxesMD.h"
#include "framework/kor/Packet.h"
#include "storage/ArchiveStore.h"
#include "storage/MetaDataReader.h"
#include "storage/MetaDataWriter.h"
#include "tests/support/Harness.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr int kDayFrames = 864000; // 24 h at 10 frames a second
constexpr int kFrameMs = 100;

std::string TempName(const char* what) {
    char pattern[] = "/tmp/zor-bench-XXXXXX";
    const int fd = mkstemp(pattern);
    if (fd >= 0) {
        close(fd);
        std::remove(pattern);
    }
    return std::string(pattern) + what;
}

void RemoveArchive(const std::string& file) {
    for (const char* suffix : {"", "-wal", "-shm"}) {
        std::remove((file + suffix).c_str());
    }
}

const std::string& DayArchive() {
    static const std::string file = [] {
        const std::string name = TempName("-day.db");
        zorarchive::CArchiveDatabase db;
        std::string error;
        if (!db.Open(name, zorarchive::CArchiveDatabase::WRITE, 0, &error)) {
            std::fprintf(stderr, "%s\n", error.c_str());
            return name;
        }
        zorarchive::CArchiveWriter writer(&db);
        writer.m_BatchRows = 10000;
        for (int i = 0; i < kDayFrames; ++i) {
            const int t = i * kFrameMs;
            const int level = (t % 600000) < 20000 ? 45 + i % 4 : 10 + i % 3;
            const zorarchive::SArchiveBox box = {static_cast<std::uint16_t>(i % 300), 100,
                                                 static_cast<std::uint16_t>(i % 300 + 40), 160, 1};
            const bool boxes = (i / 50) % 5 == 0;
            writer.Append("cam", 0, t, t / 1000.0, level, &box, boxes ? 1 : 0, &error);
        }
        writer.Commit(&error);
        std::atexit([] { RemoveArchive(DayArchive()); });
        return name;
    }();
    return file;
}

CMetaDataReaderCom* OpenDay(benchmark::State& state) {
    auto* reader = new CMetaDataReaderCom;
    std::string error;
    if (!reader->Open(DayArchive(), "cam", 0, nullptr, nullptr, &error)) {
        state.SkipWithError(error.c_str());
        reader->Release();
        return nullptr;
    }
    return reader;
}

void BM_ArchiveReadDay(benchmark::State& state) {
    CMetaDataReaderCom* reader = OpenDay(state);
    if (!reader) {
        return;
    }
    IJokArchiveAttributeSource* source = reader->GetSource();
    long rows = 0;
    for (auto _ : state) {
        rows = 0;
        std::int32_t time = 0, level = 0;
        for (int more = source->Rewind(1); more; more = source->Advance(1)) {
            source->ReadLong(KOR_ATTR_TIME, &time);
            source->ReadLong(KOR_ATTR_LEVEL, &level);
            ++rows;
        }
        benchmark::DoNotOptimize(level);
    }
    state.counters["rows/s"] =
        benchmark::Counter(static_cast<double>(rows) * static_cast<double>(state.iterations()),
                           benchmark::Counter::kIsRate);
    reader->Release();
}
BENCHMARK(BM_ArchiveReadDay)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

void BM_FindMotionLevelsDay(benchmark::State& state) {
    CMetaDataReaderCom* reader = OpenDay(state);
    if (!reader) {
        return;
    }
    auto* filter = new CArchiveVMDFilter;
    IUnknown* unknown = reader->GetSource();
    filter->SourceHandler(&unknown, 1);
    size_t found = 0;
    for (auto _ : state) {
        CJokCommandContext context;
        context.AddParam("fps", 10.0);
        filter->FindMotionLevels(&context);
        found =
            static_cast<size_t>(static_cast<CJokGdVector*>(context.GetReturnValue())->GetSize());
    }
    state.counters["rows/s"] = benchmark::Counter(static_cast<double>(kDayFrames) *
                                                      static_cast<double>(state.iterations()),
                                                  benchmark::Counter::kIsRate);
    state.counters["motions"] = static_cast<double>(found);
    filter->Release();
    reader->Release();
}
BENCHMARK(BM_FindMotionLevelsDay)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

void BM_FindCollisionsDay(benchmark::State& state) {
    CMetaDataReaderCom* reader = OpenDay(state);
    if (!reader) {
        return;
    }
    auto* filter = new CZorArchiveGVMDFilter;
    CBelString mask = "M1:0,0,176,240";
    filter->PackedMaskHandler(&mask, 1);
    filter->LongDelay(2000, 1);
    IUnknown* unknown = reader->GetSource();
    filter->SourceProperty(&unknown, 1);
    size_t found = 0;
    for (auto _ : state) {
        CJokCommandContext context;
        filter->FindCollisions(&context);
        found =
            static_cast<size_t>(static_cast<CJokGdVector*>(context.GetReturnValue())->GetSize());
    }
    state.counters["rows/s"] = benchmark::Counter(static_cast<double>(filter->GetRowsRead()) *
                                                      static_cast<double>(state.iterations()),
                                                  benchmark::Counter::kIsRate);
    state.counters["collisions"] = static_cast<double>(found);
    filter->Release();
    reader->Release();
}
BENCHMARK(BM_FindCollisionsDay)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

// Video packets with a level and two moving boxes through the writer component's module.
void BM_WriterPackets(benchmark::State& state) {
    const std::string file = TempName("-writer.db");
    CZorMetaDataWriter writer;
    std::string error;
    if (!writer.Open(file, "cam", 0, &error)) {
        state.SkipWithError(error.c_str());
        return;
    }
    zortest::CConsumingSink sink;
    writer | sink;
    std::vector<CKorVideoPacket*> packets;
    for (int i = 0; i < 256; ++i) {
        CKorVideoPacket* p = zortest::MakeVideoPacket(0, CKorVideoPacket::P_FRAME);
        p->SetAttribute(1, 10 + i % 7);
        auto* boxes = new CKorBoundingBoxesMD;
        boxes->AddBox(
            {static_cast<std::uint16_t>(i), 10, static_cast<std::uint16_t>(i + 30), 50, 1});
        boxes->AddBox({50, static_cast<std::uint16_t>(i % 200), 90,
                       static_cast<std::uint16_t>(i % 200 + 40), 2});
        p->SetMetadataHandler(boxes, true);
        packets.push_back(p);
    }
    std::uint32_t time = 0;
    unsigned i = 0;
    for (auto _ : state) {
        CKorVideoPacket* p = packets[i++ & 255];
        p->SetTimeStamp(time += 40);
        p->AddRef();
        writer.Receive(p);
    }
    writer.Close();
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
    for (CKorVideoPacket* p : packets) {
        p->Release();
    }
    RemoveArchive(file);
}
BENCHMARK(BM_WriterPackets)->UseRealTime();

} // namespace
