#include "tests/video/VideoTestSupport.h"

#include "framework/kor/Packet.h"
#include "tests/video/ClipReader.h"
#include "video/VideoDecompressor.h"
#include "video/VideoFrame.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <functional>

namespace zortest {

namespace {

// FNV-1a over the samples of a plane, step samples apart from first.
std::uint64_t Hash(const std::uint8_t* data, int stride, int width, int height, int first,
                   int step) {
    std::uint64_t hash = 1469598103934665603ULL;
    for (int y = 0; y < height; ++y) {
        const std::uint8_t* row = data + static_cast<std::ptrdiff_t>(y) * stride;
        for (int x = first; x < width; x += step) {
            hash = (hash ^ row[x]) * 1099511628211ULL;
        }
    }
    return hash;
}

// Decodes every picture of the file's first video stream with libavcodec alone on one thread,
// in output order; answers the codec's name, empty when nothing could be read.
std::string DecodeFile(const std::string& file,
                       const std::function<void(const AVFrame*, const AVRational&)>& each) {
    AVFormatContext* input = nullptr;
    if (avformat_open_input(&input, file.c_str(), nullptr, nullptr) < 0) {
        return {};
    }
    avformat_find_stream_info(input, nullptr);
    const int stream = av_find_best_stream(input, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    const AVCodec* codec =
        stream >= 0 ? avcodec_find_decoder(input->streams[stream]->codecpar->codec_id) : nullptr;
    AVCodecContext* context = codec ? avcodec_alloc_context3(codec) : nullptr;
    if (!context) {
        avformat_close_input(&input);
        return {};
    }
    const AVRational timeBase = input->streams[stream]->time_base;
    avcodec_parameters_to_context(context, input->streams[stream]->codecpar);
    context->thread_count = 1;
    avcodec_open2(context, codec, nullptr);
    AVPacket* packet = av_packet_alloc();
    AVFrame* picture = av_frame_alloc();
    auto take = [&] {
        while (avcodec_receive_frame(context, picture) == 0) {
            each(picture, timeBase);
            av_frame_unref(picture);
        }
    };
    while (av_read_frame(input, packet) >= 0) {
        if (packet->stream_index == stream && avcodec_send_packet(context, packet) >= 0) {
            take();
        }
        av_packet_unref(packet);
    }
    avcodec_send_packet(context, nullptr);
    take();
    av_frame_free(&picture);
    av_packet_free(&packet);
    avcodec_free_context(&context);
    avformat_close_input(&input);
    return codec->name;
}

} // namespace

SPictureSums SumsOf(const CKorVideoPacket* frame) {
    SBeluiBitmap luma;
    SBeluiBitmap chroma;
    if (!CZorVideoFrame::GetPlanes(frame, &luma, &chroma)) {
        return {};
    }
    SPictureSums sums;
    sums.m_Luma = Hash(luma.m_pData, luma.m_Stride, luma.m_Width, luma.m_Height, 0, 1);
    if (!chroma.IsEmpty()) {
        sums.m_Cb = Hash(chroma.m_pData, chroma.m_Stride, chroma.m_Width, chroma.m_Height, 0, 2);
        sums.m_Cr = Hash(chroma.m_pData, chroma.m_Stride, chroma.m_Width, chroma.m_Height, 1, 2);
    }
    return sums;
}

std::vector<SPictureSums> ReferenceDecode(const std::string& file) {
    std::vector<SPictureSums> sums;
    DecodeFile(file, [&](const AVFrame* picture, const AVRational&) {
        SPictureSums one;
        one.m_Luma =
            Hash(picture->data[0], picture->linesize[0], picture->width, picture->height, 0, 1);
        if (picture->format == AV_PIX_FMT_YUV420P || picture->format == AV_PIX_FMT_YUVJ420P) {
            const int cw = (picture->width + 1) / 2;
            const int ch = (picture->height + 1) / 2;
            one.m_Cb = Hash(picture->data[1], picture->linesize[1], cw, ch, 0, 1);
            one.m_Cr = Hash(picture->data[2], picture->linesize[2], cw, ch, 0, 1);
        }
        sums.push_back(one);
    });
    return sums;
}

std::vector<CKorVideoPacket*> DecodeAll(CZorVideoDecompressor& decoder, const CClipPackets& clip) {
    std::vector<CKorVideoPacket*> frames;
    for (int i = 0; i < clip.Count(); ++i) {
        decoder.SendPacket(clip.At(i));
        while (CKorVideoPacket* frame = decoder.TakeFrame()) {
            frames.push_back(frame);
        }
    }
    decoder.Drain();
    while (CKorVideoPacket* frame = decoder.TakeFrame()) {
        frames.push_back(frame);
    }
    return frames;
}

void Damage(CKorVideoPacket* packet, std::mt19937& random, unsigned kind) {
    const unsigned long size = packet->GetDataSize();
    if (size == 0) {
        return;
    }
    std::uint8_t* data = packet->GetData();
    std::uniform_int_distribution<unsigned long> at(0, size - 1);
    switch (kind % 4) {
    case 0: // bit errors of a noisy link
        for (int i = 0; i < 8; ++i) {
            data[at(random)] ^= static_cast<std::uint8_t>(1u << (random() % 8));
        }
        break;
    case 1: // a packet cut short
        packet->SetDataSize(at(random));
        break;
    case 2: // a run of zeroes, as a lost network packet leaves
        std::fill(data + at(random) / 2, data + size, std::uint8_t{0});
        break;
    default: // garbage throughout
        for (unsigned long i = 4; i < size; ++i) {
            data[i] = static_cast<std::uint8_t>(random());
        }
        break;
    }
}

SReadBack ReadBack(const std::string& file) {
    SReadBack back;
    back.m_Codec = DecodeFile(file, [&](const AVFrame* picture, const AVRational& timeBase) {
        if (back.m_Frames++ == 0) {
            back.m_Width = picture->width;
            back.m_Height = picture->height;
            back.m_First.resize(static_cast<size_t>(3) * picture->width * picture->height);
            SwsContext* scaler = sws_getContext(picture->width, picture->height,
                                                static_cast<AVPixelFormat>(picture->format),
                                                picture->width, picture->height, AV_PIX_FMT_RGB24,
                                                SWS_POINT, nullptr, nullptr, nullptr);
            std::uint8_t* planes[4] = {back.m_First.data(), nullptr, nullptr, nullptr};
            const int strides[4] = {3 * picture->width, 0, 0, 0};
            sws_scale(scaler, picture->data, picture->linesize, 0, picture->height, planes,
                      strides);
            sws_freeContext(scaler);
        }
        const long long pts = picture->best_effort_timestamp;
        back.m_TimesMs.push_back(
            pts == AV_NOPTS_VALUE ? -1 : av_rescale_q(pts, timeBase, AVRational{1, 1000}));
    });
    return back;
}

} // namespace zortest
