#include "tests/video/ClipReader.h"

#include "framework/kor/Packet.h"
#include "framework/kor/PacketSource.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#ifndef ZOR_TEST_CLIPS
#error "ZOR_TEST_CLIPS names the build tree's clip folder"
#endif

namespace zortest {

std::string ClipPath(const std::string& name) {
    return std::string(ZOR_TEST_CLIPS) + "/" + name;
}

CClipPackets::CClipPackets(const std::string& file) {
    AVFormatContext* input = nullptr;
    if (avformat_open_input(&input, file.c_str(), nullptr, nullptr) < 0) {
        m_Error = file + ": cannot open (run tests/video/make_clips.sh, or ctest -R video.clips)";
        return;
    }
    const int stream = avformat_find_stream_info(input, nullptr) >= 0
                           ? av_find_best_stream(input, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0)
                           : -1;
    if (stream < 0) {
        m_Error = file + ": no video stream";
        avformat_close_input(&input);
        return;
    }
    const AVCodecParameters* parameters = input->streams[stream]->codecpar;
    const AVRational timeBase = input->streams[stream]->time_base;
    const AVCodecTag* const tags[] = {avformat_get_riff_video_tags(), nullptr};
    m_Width = parameters->width;
    m_Height = parameters->height;
    // The header followed by the codec's set-up data, as a format record carries it.
    std::vector<BYTE> record(sizeof(BITMAPINFOHEADER) +
                             static_cast<size_t>(std::max(parameters->extradata_size, 0)));
    const BITMAPINFOHEADER header{static_cast<DWORD>(record.size()),
                                  parameters->width,
                                  parameters->height,
                                  1,
                                  24,
                                  parameters->codec_id == AV_CODEC_ID_HEVC
                                      ? MakeFourCC('H', 'E', 'V', 'C') // as the source names it
                                      : av_codec_get_tag(tags, parameters->codec_id),
                                  0,
                                  0,
                                  0,
                                  0,
                                  0};
    std::memcpy(record.data(), &header, sizeof(header));
    if (parameters->extradata_size > 0) {
        std::memcpy(record.data() + sizeof(header), parameters->extradata,
                    static_cast<size_t>(parameters->extradata_size));
    }
    CKorVideoFormat* format =
        CKorVideoPacket::GetVideoFormat(reinterpret_cast<const BITMAPINFOHEADER*>(record.data()),
                                        CKorPacket::GetNewFormatSeqNumber(), 0);

    AVPacket* packet = av_packet_alloc();
    while (av_read_frame(input, packet) >= 0) {
        if (packet->stream_index == stream) {
            CKorVideoPacket* video = g_VideoPacketSource.NewPacket(packet->data, packet->size, 0);
            video->SetBitmapFormat(format);
            const bool stamped = packet->pts != AV_NOPTS_VALUE;
            const double seconds =
                stamped ? static_cast<double>(packet->pts) * av_q2d(timeBase) : 0;
            video->SetTimeStamp(static_cast<std::uint32_t>(std::lround(seconds * 1000)));
            video->SetTimeStampValid(stamped);
            video->SetRealTimeStamp(seconds);
            video->SetFrameType((packet->flags & AV_PKT_FLAG_KEY) ? CKorVideoPacket::I_FRAME
                                                                  : CKorVideoPacket::P_FRAME);
            m_Packets.push_back(video);
        }
        av_packet_unref(packet);
    }
    av_packet_free(&packet);
    avformat_close_input(&input);
    CKorVideoPacket::ReleaseVideoFormat(format);
}

CClipPackets::~CClipPackets() {
    for (CKorVideoPacket* packet : m_Packets) {
        packet->Release();
    }
}

CKorVideoPacket* CClipPackets::Take(int index) const {
    CKorVideoPacket* packet = At(index);
    packet->AddRef();
    return packet;
}

CKorVideoPacket* CClipPackets::Copy(int index) const {
    return static_cast<CKorVideoPacket*>(At(index)->Clone());
}

} // namespace zortest
