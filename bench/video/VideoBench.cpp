// Decoding through CZorVideoDecompressor against a plain libavcodec loop over the same packets
// in memory, one thread each. Every iteration decodes the clip both ways, alternating, so that a
// busy machine slows both alike; the counters give frames per second of each and their ratio.
//
// Motion-level stamping beyond the decode it shares: the measure over pictures decoded
// beforehand, pairs of consecutive pictures, as the stamper compares them.
#include "framework/kor/Packet.h"
#include "tests/video/ClipReader.h"
#include "video/VideoDecompressor.h"
#include "video/VideoFrame.h"
#include "video/core/MotionLevel.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// The clip as the AVPackets a demuxer would hand a plain decoding loop.
std::vector<AVPacket*> BarePackets(const zortest::CClipPackets& clip) {
    std::vector<AVPacket*> packets;
    for (int i = 0; i < clip.Count(); ++i) {
        AVPacket* packet = av_packet_alloc();
        av_new_packet(packet, static_cast<int>(clip.At(i)->GetDataSize()));
        std::memcpy(packet->data, clip.At(i)->GetData(), clip.At(i)->GetDataSize());
        packet->pts = i;
        packets.push_back(packet);
    }
    return packets;
}

long BareDecode(const std::vector<AVPacket*>& packets, bool grey) {
    const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_H264);
    AVCodecContext* context = avcodec_alloc_context3(codec);
    context->thread_count = 1;
    if (grey) {
        context->flags |= AV_CODEC_FLAG_GRAY;
    }
    avcodec_open2(context, codec, nullptr);
    AVFrame* frame = av_frame_alloc();
    long frames = 0;
    for (AVPacket* packet : packets) {
        avcodec_send_packet(context, packet);
        while (avcodec_receive_frame(context, frame) == 0) {
            benchmark::DoNotOptimize(frame->data[0][0]);
            av_frame_unref(frame);
            ++frames;
        }
    }
    av_frame_free(&frame);
    avcodec_free_context(&context);
    return frames;
}

long ZorDecode(const zortest::CClipPackets& clip, bool grey) {
    CZorVideoDecompressor decoder(CZorVideoDecompressor::OUTPUT_PLANAR);
    decoder.SetGreyOutput(grey);
    long frames = 0;
    for (int i = 0; i < clip.Count(); ++i) {
        bool produced = false;
        CKorVideoPacket* frame = decoder.Decompress(clip.At(i), &produced);
        if (produced) {
            benchmark::DoNotOptimize(frame->GetData()[0]);
            frame->Release();
            ++frames;
        }
    }
    return frames;
}

void Decode(benchmark::State& state, const char* file, bool grey) {
    const zortest::CClipPackets clip(zortest::ClipPath(file));
    if (!clip.Ok()) {
        state.SkipWithError(clip.Error().c_str());
        return;
    }
    const std::vector<AVPacket*> packets = BarePackets(clip);
    double bareSeconds = 0;
    double zorSeconds = 0;
    long bareFrames = 0;
    long zorFrames = 0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        bareFrames += BareDecode(packets, grey);
        const Clock::time_point middle = Clock::now();
        zorFrames += ZorDecode(clip, grey);
        bareSeconds += std::chrono::duration<double>(middle - start).count();
        zorSeconds += std::chrono::duration<double>(Clock::now() - middle).count();
    }
    for (AVPacket* packet : packets) {
        av_packet_free(&packet);
    }
    const double bareFps = bareFrames / bareSeconds;
    const double zorFps = zorFrames / zorSeconds;
    state.counters["bare_fps"] = bareFps;
    state.counters["zor_fps"] = zorFps;
    state.counters["ratio"] = zorFps / bareFps;
    state.SetLabel(std::to_string(clip.Width()) + "x" + std::to_string(clip.Height()) +
                   (grey ? " grey" : " NV12"));
}

// Up to limit grey pictures of the clip, decoded once.
std::vector<CKorVideoPacket*> GreyPictures(const zortest::CClipPackets& clip, int limit) {
    CZorVideoDecompressor decoder(CZorVideoDecompressor::OUTPUT_PLANAR);
    decoder.SetGreyOutput(true);
    std::vector<CKorVideoPacket*> pictures;
    for (int i = 0; i < clip.Count() && static_cast<int>(pictures.size()) < limit; ++i) {
        bool produced = false;
        if (CKorVideoPacket* frame = decoder.Decompress(clip.At(i), &produced)) {
            pictures.push_back(frame);
        }
    }
    return pictures;
}

void Stamp(benchmark::State& state, const char* file, bool reference) {
    const zortest::CClipPackets clip(zortest::ClipPath(file));
    if (!clip.Ok()) {
        state.SkipWithError(clip.Error().c_str());
        return;
    }
    const std::vector<CKorVideoPacket*> pictures = GreyPictures(clip, 40);
    std::vector<SBeluiBitmap> planes(pictures.size());
    for (size_t i = 0; i < pictures.size(); ++i) {
        CZorVideoFrame::GetPlanes(pictures[i], &planes[i], nullptr);
    }
    const SZorMotionSettings settings;
    size_t next = 1;
    long levels = 0;
    for (auto _ : state) {
        const SBeluiBitmap& current = planes[next];
        const SBeluiBitmap& previous = planes[next - 1];
        levels += reference ? ZorMeasureMotionReference(current, previous, settings).m_Level
                            : ZorMeasureMotion(current, previous, settings).m_Level;
        next = next + 1 < planes.size() ? next + 1 : 1;
    }
    benchmark::DoNotOptimize(levels);
    for (CKorVideoPacket* picture : pictures) {
        picture->Release();
    }
    state.SetItemsProcessed(state.iterations());
    state.SetLabel(std::to_string(clip.Width()) + "x" + std::to_string(clip.Height()) +
                   (reference ? " plain kernel" : " SSE2 kernel"));
}

BENCHMARK_CAPTURE(Stamp, cif, "bench-cif.ts", false);
BENCHMARK_CAPTURE(Stamp, cif_plain, "bench-cif.ts", true);
BENCHMARK_CAPTURE(Stamp, hd, "bench-hd.ts", false);
BENCHMARK_CAPTURE(Stamp, hd_plain, "bench-hd.ts", true);

BENCHMARK_CAPTURE(Decode, cif, "bench-cif.ts", false)->Unit(benchmark::kMillisecond)->MinTime(3);
BENCHMARK_CAPTURE(Decode, cif_grey, "bench-cif.ts", true)
    ->Unit(benchmark::kMillisecond)
    ->MinTime(3);
BENCHMARK_CAPTURE(Decode, hd, "bench-hd.ts", false)->Unit(benchmark::kMillisecond)->MinTime(3);
BENCHMARK_CAPTURE(Decode, hd_grey, "bench-hd.ts", true)->Unit(benchmark::kMillisecond)->MinTime(3);

} // namespace
