// Demux speed of the media source against a bare libavformat read loop over the same file (the
// bundled clip, from the page cache). Opening (which studies the stream) is left out of both:
// the figure is the packet path, read to delivered.
//
//   BM_BareReadFrame   av_read_frame and av_packet_unref, nothing else
//   BM_BareReadFrame/1 the same with libavformat's per-picture header parse switched off, as the
//                      source switches it off for MP4: what the source adds to its own reads
//   BM_Demuxer         the source's core: read, frame type, format tracking
//   BM_PacketSource    the whole source: the above, Annex B payload into a pooled video packet,
//                      fields and format, delivered to a consuming module
//   BM_SourceVsBare    the loops in turn in each pass, so a loaded machine slows them alike;
//                      "ratio" is the source's packet rate over the bare loop's, "ratio_same"
//                      over the bare loop's with the source's libavformat flags
#include "tests/support/Harness.h"
#include "video/MediaDemuxer.h"
#include "video/PacketSource.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>
#include <string>

namespace {

const std::string kClip = std::string(ZOR_SOURCE_DIR) + "/examples/data/pedestrians.mp4";

struct SBareInput {
    explicit SBareInput(bool sameFlags) {
        avformat_open_input(&m_pFormat, kClip.c_str(), nullptr, nullptr);
        if (sameFlags) {
            m_pFormat->flags |= AVFMT_FLAG_NOPARSE | AVFMT_FLAG_NOFILLIN;
        }
        avformat_find_stream_info(m_pFormat, nullptr);
    }
    ~SBareInput() {
        av_packet_free(&m_pPacket);
        avformat_close_input(&m_pFormat);
    }
    long ReadAll() {
        long packets = 0;
        while (av_read_frame(m_pFormat, m_pPacket) >= 0) {
            ++packets;
            av_packet_unref(m_pPacket);
        }
        return packets;
    }
    AVFormatContext* m_pFormat = nullptr;
    AVPacket* m_pPacket = av_packet_alloc();
};

struct SSourceInput {
    SSourceInput() {
        m_Source.Open(kClip, {});
        m_Source.SetQuiet(true);
        m_Port = std::make_unique<CZorPacketSourcePort>(&m_Source, EMediaKind::Video);
        *m_Port | m_Sink;
    }
    CZorPacketSource m_Source;
    std::unique_ptr<CZorPacketSourcePort> m_Port;
    zortest::CConsumingSink m_Sink;
};

void BM_BareReadFrame(benchmark::State& state) {
    long packets = 0;
    for (auto _ : state) {
        state.PauseTiming();
        auto input = std::make_unique<SBareInput>(state.range(0) != 0);
        state.ResumeTiming();
        packets += input->ReadAll();
        state.PauseTiming(); // closing is not reading
        input.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(packets);
}
BENCHMARK(BM_BareReadFrame)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_Demuxer(benchmark::State& state) {
    long packets = 0;
    for (auto _ : state) {
        state.PauseTiming();
        auto demuxer = std::make_unique<CMediaDemuxer>();
        demuxer->Open(kClip, {});
        SMediaPacket packet;
        state.ResumeTiming();
        while (demuxer->Read(&packet) == CMediaDemuxer::EResult::Packet) {
            ++packets;
        }
        state.PauseTiming();
        demuxer.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(packets);
}
BENCHMARK(BM_Demuxer)->Unit(benchmark::kMillisecond);

void BM_PacketSource(benchmark::State& state) {
    long packets = 0;
    for (auto _ : state) {
        state.PauseTiming();
        auto input = std::make_unique<SSourceInput>();
        state.ResumeTiming();
        packets += input->m_Source.Run();
        state.PauseTiming();
        input.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(packets);
}
BENCHMARK(BM_PacketSource)->Unit(benchmark::kMillisecond);

void BM_SourceVsBare(benchmark::State& state) {
    using Clock = std::chrono::steady_clock;
    double seconds[3] = {};
    long packets[3] = {};
    auto time = [&](int which, auto&& read) {
        const auto start = Clock::now();
        packets[which] += read();
        seconds[which] += std::chrono::duration<double>(Clock::now() - start).count();
    };
    for (auto _ : state) {
        for (int flags = 0; flags < 2; ++flags) {
            SBareInput bare(flags != 0);
            time(flags, [&] { return bare.ReadAll(); });
        }
        SSourceInput source;
        time(2, [&] { return source.m_Source.Run(); });
    }
    auto rate = [&](int which) { return static_cast<double>(packets[which]) / seconds[which]; };
    state.counters["bare_pps"] = rate(0);
    state.counters["source_pps"] = rate(2);
    state.counters["ratio"] = rate(2) / rate(0);
    state.counters["ratio_same"] = rate(2) / rate(1);
}
BENCHMARK(BM_SourceVsBare)->Unit(benchmark::kMillisecond)->MinTime(3.0);

} // namespace
