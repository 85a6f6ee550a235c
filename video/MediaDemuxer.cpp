#include "video/MediaDemuxer.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/avutil.h>
}

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

namespace {

constexpr std::uint32_t FourCC(const char (&code)[5]) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(code[0])) |
           static_cast<std::uint32_t>(static_cast<unsigned char>(code[1])) << 8 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(code[2])) << 16 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(code[3])) << 24;
}

// The codecs a camera or a recorder's files carry, with the FOURCC each travels under.
struct SVideoCodec {
    AVCodecID m_Id;
    std::uint32_t m_FourCC;
};
constexpr SVideoCodec kVideoCodecs[] = {
    {AV_CODEC_ID_H264, FourCC("H264")},       {AV_CODEC_ID_HEVC, FourCC("HEVC")},
    {AV_CODEC_ID_MJPEG, FourCC("MJPG")},      {AV_CODEC_ID_MPEG4, FourCC("FMP4")},
    {AV_CODEC_ID_MPEG2VIDEO, FourCC("MPG2")}, {AV_CODEC_ID_H263, FourCC("H263")},
    {AV_CODEC_ID_VP8, FourCC("VP80")},        {AV_CODEC_ID_VP9, FourCC("VP90")},
    {AV_CODEC_ID_AV1, FourCC("AV01")},
};
constexpr const char* kVideoCodecList = "H.264, HEVC, MJPEG, MPEG-4, MPEG-2, H.263, VP8, VP9, AV1";

// Protocols whose inputs have no end and no positions.
constexpr const char* kLiveProtocols[] = {"rtsp", "rtsps", "rtp",   "udp",
                                          "srt",  "rtmp",  "rtmps", "tcp"};
constexpr const char* kLiveFormats[] = {"rtsp", "sdp", "rtp"};

// Consecutive read errors a file may give before it counts as unreadable; single damaged spots
// are skipped with a note.
constexpr int kMaxReadErrors = 16;
// Time libavformat may spend studying a network stream before it starts (µs).
constexpr const char* kNetworkAnalyzeDuration = "2000000";
constexpr double kNetworkAnalyzeSeconds = 2.0;
constexpr std::int64_t kMovAnalyzeDuration = 500000;

std::string AvError(int error) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof(text));
    return text;
}

long long NowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

bool IsOneOf(const char* name, const auto& names) {
    return name && std::any_of(std::begin(names), std::end(names),
                               [name](const char* known) { return std::strcmp(name, known) == 0; });
}

int FrameTypeOf(AVPictureType type) {
    switch (type) {
    case AV_PICTURE_TYPE_I:
    case AV_PICTURE_TYPE_SI: // an I picture that can switch streams
    case AV_PICTURE_TYPE_BI: // an intra-coded B picture: nothing before it is needed
        return kNalFrameI;
    case AV_PICTURE_TYPE_P:
    case AV_PICTURE_TYPE_SP:
    case AV_PICTURE_TYPE_S: // a P picture with global motion compensation
        return kNalFrameP;
    case AV_PICTURE_TYPE_B:
        return kNalFrameB;
    default:
        return kNalFrameUnknown;
    }
}

} // namespace

std::uint32_t MediaFourCCOf(int codecId) {
    for (const SVideoCodec& codec : kVideoCodecs) {
        if (codec.m_Id == codecId) {
            return codec.m_FourCC;
        }
    }
    return 0;
}

int MediaCodecOfFourCC(std::uint32_t fourCC) {
    for (const SVideoCodec& codec : kVideoCodecs) {
        if (codec.m_FourCC == fourCC) {
            return codec.m_Id;
        }
    }
    // Other names cameras give HEVC that the container tables lack.
    if (fourCC == FourCC("H265") || fourCC == FourCC("HVC1") || fourCC == FourCC("HEV1") ||
        fourCC == FourCC("hevc")) {
        return AV_CODEC_ID_HEVC;
    }
    // Then the container tag tables: AVI and QuickTime names ("avc1", "hvc1", "mp4v" ...).
    const AVCodecTag* const tables[] = {avformat_get_riff_video_tags(),
                                        avformat_get_mov_video_tags(), nullptr};
    return av_codec_get_id(tables, fourCC);
}

void MediaQuietLibraries() {
    static std::once_flag once;
    std::call_once(once, [] {
        if (!std::getenv("ZOR_FFMPEG_LOG")) {
            av_log_set_level(AV_LOG_QUIET);
        }
    });
}

// SMediaPacket

SMediaPacket::SMediaPacket() : m_pPacket(av_packet_alloc()) {}

SMediaPacket::~SMediaPacket() {
    av_packet_free(&m_pPacket);
}

SMediaPacket::SMediaPacket(SMediaPacket&& other) noexcept {
    *this = std::move(other);
}

SMediaPacket& SMediaPacket::operator=(SMediaPacket&& other) noexcept {
    std::swap(m_pPacket, other.m_pPacket);
    m_Kind = other.m_Kind;
    m_StreamIndex = other.m_StreamIndex;
    m_PtsValid = other.m_PtsValid;
    m_PtsUs = other.m_PtsUs;
    m_DtsUs = other.m_DtsUs;
    m_DurationUs = other.m_DurationUs;
    m_FrameType = other.m_FrameType;
    m_Key = other.m_Key;
    m_pVideoFormat = std::move(other.m_pVideoFormat);
    m_NalLengthSize = other.m_NalLengthSize;
    m_AddParameterSets = other.m_AddParameterSets;
    return *this;
}

const std::uint8_t* SMediaPacket::Data() const {
    return m_pPacket ? m_pPacket->data : nullptr;
}

std::size_t SMediaPacket::Size() const {
    return m_pPacket && m_pPacket->size > 0 ? static_cast<std::size_t>(m_pPacket->size) : 0;
}

std::size_t SMediaPacket::PayloadSize() const {
    std::size_t size = Size();
    if (m_Kind == EMediaKind::Video) {
        size = NalMaxAnnexBSize(size, m_NalLengthSize);
        if (m_AddParameterSets) {
            size += m_pVideoFormat->m_ExtraData.size();
        }
    }
    return size;
}

std::size_t SMediaPacket::WritePayload(std::uint8_t* out) const {
    if (m_Kind != EMediaKind::Video) {
        std::copy_n(Data(), Size(), out);
        return Size();
    }
    std::size_t written = 0;
    if (m_AddParameterSets) {
        const std::vector<std::uint8_t>& sets = m_pVideoFormat->m_ExtraData;
        std::memcpy(out, sets.data(), sets.size());
        written = sets.size();
    }
    const std::size_t unit = NalWriteAnnexB(Data(), Size(), m_NalLengthSize, out + written);
    return unit == 0 && Size() > 0 ? 0 : written + unit;
}

// CMediaDemuxer

CMediaDemuxer::CMediaDemuxer() = default;

CMediaDemuxer::~CMediaDemuxer() {
    av_parser_close(m_pParser);
    avcodec_free_context(&m_pParserCodec);
    avformat_close_input(&m_pFormat);
}

int CMediaDemuxer::InterruptCallback(void* opaque) {
    auto* self = static_cast<CMediaDemuxer*>(opaque);
    if (self->m_Abort) {
        return 1;
    }
    const long long deadline = self->m_DeadlineNs;
    if (deadline != 0 && NowNs() > deadline) {
        self->m_TimedOut = true;
        return 1;
    }
    return 0;
}

void CMediaDemuxer::Arm(double seconds) {
    if (m_Network) {
        m_DeadlineNs = NowNs() + static_cast<long long>(seconds * 1e9);
    }
}

bool CMediaDemuxer::Fail(const std::string& reason, int error) {
    if (m_Abort) {
        m_Error = "stopped";
    } else if (m_TimedOut) {
        char text[64];
        std::snprintf(text, sizeof(text), "no answer within %g s", m_TimeoutSeconds);
        m_Error = text;
    } else {
        m_Error = error != 0 ? reason + " (" + AvError(error) + ")" : reason;
    }
    return false;
}

std::vector<std::string> CMediaDemuxer::TakeNotes() {
    std::vector<std::string> notes;
    notes.swap(m_Notes);
    return notes;
}

const char* CMediaDemuxer::VideoCodecName() const {
    return m_VideoStream >= 0
               ? avcodec_get_name(m_pFormat->streams[m_VideoStream]->codecpar->codec_id)
               : "";
}

const char* CMediaDemuxer::AudioCodecName() const {
    return m_AudioStream >= 0
               ? avcodec_get_name(m_pFormat->streams[m_AudioStream]->codecpar->codec_id)
               : "";
}

std::string CMediaDemuxer::Seconds(std::int64_t us) const {
    char text[32];
    std::snprintf(text, sizeof(text), "%.1f s", static_cast<double>(us) / 1e6);
    return text;
}

bool CMediaDemuxer::Open(const std::string& url, const SMediaOpenOptions& options) {
    MediaQuietLibraries();
    if (m_pFormat) {
        return Fail("the input is open already", 0);
    }
    m_Url = url;
    m_TimeoutSeconds = options.m_TimeoutSeconds;
    m_TimedOut = false;
    // By the address's scheme: some (rtsp) are demuxers rather than protocols of libavformat.
    const std::size_t colon = url.find("://");
    const std::string scheme = colon == std::string::npos ? "" : url.substr(0, colon);
    m_Network = !scheme.empty() && scheme != "file";
    m_Live = IsOneOf(scheme.c_str(), kLiveProtocols);

    const AVInputFormat* format = nullptr;
    if (!options.m_Format.empty()) {
        format = av_find_input_format(options.m_Format.c_str());
        if (!format) {
            return Fail("unknown input format '" + options.m_Format + "'", 0);
        }
    }
    AVDictionary* dictionary = nullptr;
    for (const auto& [name, value] : options.m_Options) {
        av_dict_set(&dictionary, name.c_str(), value.c_str(), 0);
    }
    const bool analyzeGiven = av_dict_get(dictionary, "analyzeduration", nullptr, 0) != nullptr;
    if (m_Network && !analyzeGiven) {
        av_dict_set(&dictionary, "analyzeduration", kNetworkAnalyzeDuration, 0);
    }
    m_pFormat = avformat_alloc_context();
    m_pFormat->interrupt_callback = AVIOInterruptCB{&InterruptCallback, this};
    Arm(m_TimeoutSeconds);
    int result = avformat_open_input(&m_pFormat, url.c_str(), format, &dictionary);
    Disarm();
    if (result < 0) {
        av_dict_free(&dictionary);
        return Fail("cannot open", result);
    }
    if (const AVDictionaryEntry* unused =
            av_dict_get(dictionary, "", nullptr, AV_DICT_IGNORE_SUFFIX)) {
        const std::string name = unused->key;
        av_dict_free(&dictionary);
        return Fail("option '" + name + "' is not known to this input", 0);
    }
    av_dict_free(&dictionary);
    // MP4 and MOV store whole frames with both their times (for the codings HasWholeFramesOnly
    // lists): libavformat's own parse of every frame's headers, more than half the cost of a
    // read, learns nothing the source does not read itself, more cheaply. Without that parse,
    // studying the stream would decode pictures for seconds to learn what the file's header has
    // already said: half a second of them is plenty.
    if (std::strncmp(m_pFormat->iformat->name, "mov,", 4) == 0 && HasWholeFramesOnly()) {
        m_pFormat->flags |= AVFMT_FLAG_NOPARSE | AVFMT_FLAG_NOFILLIN;
        if (!analyzeGiven) {
            m_pFormat->max_analyze_duration = kMovAnalyzeDuration;
        }
    }

    Arm(m_TimeoutSeconds + kNetworkAnalyzeSeconds);
    result = avformat_find_stream_info(m_pFormat, nullptr);
    Disarm();
    if (result < 0) {
        return Fail("cannot read the stream parameters", result);
    }
    if (!ChooseVideo()) {
        return false;
    }
    if (options.m_WantAudio) {
        ChooseAudio();
    }
    for (unsigned i = 0; i < m_pFormat->nb_streams; ++i) {
        if (static_cast<int>(i) != m_VideoStream && static_cast<int>(i) != m_AudioStream) {
            m_pFormat->streams[i]->discard = AVDISCARD_ALL;
        }
    }
    if (m_pFormat->duration != AV_NOPTS_VALUE && m_pFormat->duration > 0) {
        m_DurationSeconds = static_cast<double>(m_pFormat->duration) / AV_TIME_BASE;
    }
    const bool seekable = m_pFormat->pb && (m_pFormat->pb->seekable & AVIO_SEEKABLE_NORMAL);
    m_Live = m_Live || IsOneOf(m_pFormat->iformat->name, kLiveFormats) ||
             (m_Network && (m_DurationSeconds == 0.0 || !seekable));
    if (m_pFormat->start_time != AV_NOPTS_VALUE) {
        m_OriginUs = m_pFormat->start_time;
        m_HaveOrigin = true;
    }
    StartFormat();
    return m_Error.empty();
}

bool CMediaDemuxer::HasWholeFramesOnly() const {
    // Codings the MP4 reader stores a frame per sample of; others (MPEG audio, AC-3, VP8 ...) it
    // leaves to libavformat's parse to cut into frames.
    constexpr AVCodecID kWhole[] = {
        AV_CODEC_ID_H264,     AV_CODEC_ID_HEVC,      AV_CODEC_ID_MJPEG,     AV_CODEC_ID_MPEG4,
        AV_CODEC_ID_H263,     AV_CODEC_ID_AAC,       AV_CODEC_ID_PCM_S16LE, AV_CODEC_ID_PCM_S16BE,
        AV_CODEC_ID_PCM_U8,   AV_CODEC_ID_PCM_S24LE, AV_CODEC_ID_PCM_S32LE, AV_CODEC_ID_PCM_F32LE,
        AV_CODEC_ID_PCM_ALAW, AV_CODEC_ID_PCM_MULAW, AV_CODEC_ID_OPUS,
    };
    for (unsigned i = 0; i < m_pFormat->nb_streams; ++i) {
        const AVCodecParameters* parameters = m_pFormat->streams[i]->codecpar;
        const bool media = parameters->codec_type == AVMEDIA_TYPE_VIDEO ||
                           parameters->codec_type == AVMEDIA_TYPE_AUDIO;
        if (media && std::find(std::begin(kWhole), std::end(kWhole), parameters->codec_id) ==
                         std::end(kWhole)) {
            return false;
        }
    }
    return true;
}

bool CMediaDemuxer::ChooseVideo() {
    const int stream = av_find_best_stream(m_pFormat, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (stream < 0) {
        return Fail("no video stream", 0);
    }
    const AVStream* video = m_pFormat->streams[stream];
    const AVCodecParameters* parameters = video->codecpar;
    if (MediaFourCCOf(parameters->codec_id) == 0) {
        return Fail(std::string("unsupported video codec '") +
                        avcodec_get_name(parameters->codec_id) + "' (the source passes " +
                        kVideoCodecList + ")",
                    0);
    }
    if (parameters->width <= 0 || parameters->height <= 0) {
        return Fail("the video stream states no picture size", 0);
    }
    m_VideoStream = stream;
    const AVRational rate = av_guess_frame_rate(m_pFormat, m_pFormat->streams[stream], nullptr);
    m_FrameRate = rate.num > 0 && rate.den > 0 ? av_q2d(rate) : 0.0;
    return true;
}

void CMediaDemuxer::ChooseAudio() {
    const int stream =
        av_find_best_stream(m_pFormat, AVMEDIA_TYPE_AUDIO, -1, m_VideoStream, nullptr, 0);
    if (stream < 0) {
        return;
    }
    const AVCodecParameters* parameters = m_pFormat->streams[stream]->codecpar;
    const char* name = avcodec_get_name(parameters->codec_id);
    SMediaAudioFormat format;
    format.m_Channels = parameters->ch_layout.nb_channels;
    format.m_Rate = parameters->sample_rate;
    if (format.m_Channels <= 0 || format.m_Rate <= 0) {
        Note(std::string("the audio stream (") + name + ") states no format: left out");
        return;
    }
    struct SSampleCoding {
        AVCodecID m_Id;
        int m_Bits;
        std::uint16_t m_Tag;
        bool m_Swap;
    };
    // WAVEFORMATEX tags: 1 PCM, 3 IEEE float, 6 G.711 A-law, 7 G.711 mu-law.
    constexpr SSampleCoding kSampleCodings[] = {
        {AV_CODEC_ID_PCM_S16LE, 16, 1, false}, {AV_CODEC_ID_PCM_S16BE, 16, 1, true},
        {AV_CODEC_ID_PCM_U8, 8, 1, false},     {AV_CODEC_ID_PCM_S24LE, 24, 1, false},
        {AV_CODEC_ID_PCM_S32LE, 32, 1, false}, {AV_CODEC_ID_PCM_F32LE, 32, 3, false},
        {AV_CODEC_ID_PCM_ALAW, 8, 6, false},   {AV_CODEC_ID_PCM_MULAW, 8, 7, false},
    };
    const auto* coding =
        std::find_if(std::begin(kSampleCodings), std::end(kSampleCodings),
                     [&](const SSampleCoding& c) { return c.m_Id == parameters->codec_id; });
    if (coding != std::end(kSampleCodings)) {
        format.m_Tag = coding->m_Tag;
        format.m_Bits = coding->m_Bits;
        format.m_SwapBytes = coding->m_Swap;
        format.m_Samples = true;
        format.m_BlockAlign = format.m_Channels * format.m_Bits / 8;
        format.m_AvgBytes = format.m_Rate * format.m_BlockAlign;
    } else {
        const AVCodecTag* const tables[] = {avformat_get_riff_audio_tags(), nullptr};
        format.m_Tag = static_cast<std::uint16_t>(av_codec_get_tag(tables, parameters->codec_id));
        if (format.m_Tag == 0) {
            Note(std::string("the audio stream (") + name + ") has no format tag: left out");
            return;
        }
        format.m_Bits = parameters->bits_per_coded_sample;
        format.m_BlockAlign = parameters->block_align > 0 ? parameters->block_align : 1;
        format.m_AvgBytes = static_cast<int>(parameters->bit_rate / 8);
        format.m_Extra.assign(parameters->extradata,
                              parameters->extradata + std::max(parameters->extradata_size, 0));
    }
    char text[160];
    if (format.m_Extra.size() > static_cast<std::size_t>(kMediaAudioSetUpBytes)) {
        std::snprintf(text, sizeof(text),
                      "the audio stream (%s) has %zu bytes of set-up data, more than an audio "
                      "format record holds: left out",
                      name, format.m_Extra.size());
        Note(text);
        return;
    }
    if (format.m_Samples && format.m_BlockAlign > kMediaAudioPacketBytes) {
        std::snprintf(text, sizeof(text),
                      "the audio stream (%s) has blocks of %d bytes, more than an audio packet "
                      "holds: left out",
                      name, format.m_BlockAlign);
        Note(text);
        return;
    }
    m_AudioStream = stream;
    m_AudioFormat = std::move(format);
}

void CMediaDemuxer::StartFormat() {
    const AVCodecParameters* parameters = m_pFormat->streams[m_VideoStream]->codecpar;
    auto format = std::make_shared<SMediaVideoFormat>();
    format->m_Generation = 1;
    format->m_FourCC = MediaFourCCOf(parameters->codec_id);
    format->m_Width = parameters->width;
    format->m_Height = parameters->height;
    const std::uint8_t* extra = parameters->extradata;
    const std::size_t extraSize = std::max(parameters->extradata_size, 0);
    const bool nal =
        parameters->codec_id == AV_CODEC_ID_H264 || parameters->codec_id == AV_CODEC_ID_HEVC;
    if (nal) {
        const ENalCodec codec =
            parameters->codec_id == AV_CODEC_ID_H264 ? ENalCodec::H264 : ENalCodec::Hevc;
        m_NalLengthSize = 0;
        if (extraSize > 0 && !IsAnnexB(extra, extraSize)) {
            if (!ParseNalConfig(codec, extra, extraSize, &format->m_ExtraData, &m_NalLengthSize)) {
                Fail("the codec set-up data is damaged", 0);
                return;
            }
        } else {
            format->m_ExtraData.assign(extra, extra + extraSize);
        }
        m_pScanner = std::make_unique<CNalScanner>(codec, m_NalLengthSize);
        m_pScanner->Learn(format->m_ExtraData.data(), format->m_ExtraData.size());
    } else {
        format->m_ExtraData.assign(extra, extra + extraSize);
        const AVCodecDescriptor* descriptor = avcodec_descriptor_get(parameters->codec_id);
        m_IntraOnly = descriptor && (descriptor->props & AV_CODEC_PROP_INTRA_ONLY);
    }
    if (!m_IntraOnly) {
        m_pParser = av_parser_init(parameters->codec_id);
        if (m_pParser) {
            m_pParser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
            m_pParserCodec = avcodec_alloc_context3(nullptr);
        }
    }
    m_pVideoFormat = std::move(format);
}

void CMediaDemuxer::ResetVideoState() {
    m_SeenKey = false;
}

CMediaDemuxer::EResult CMediaDemuxer::Read(SMediaPacket* packet) {
    if (!m_pFormat || m_VideoStream < 0) {
        Fail("the input is not open", 0);
        return EResult::Failed;
    }
    AVPacket* raw = packet->m_pPacket;
    m_TimedOut = false;
    bool waiting = false; // on a non-blocking input: the time runs on
    for (;;) {
        if (!waiting) {
            Arm(m_TimeoutSeconds);
        }
        av_packet_unref(raw);
        const int result = av_read_frame(m_pFormat, raw);
        waiting = result == AVERROR(EAGAIN) && !m_TimedOut && !m_Abort;
        if (waiting) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            continue;
        }
        Disarm();
        if (result == AVERROR_EOF) {
            if (!m_Live && m_DurationSeconds > 0.0 &&
                static_cast<double>(m_EndUs) / 1e6 <
                    m_DurationSeconds - std::max(0.5, 2.0 / std::max(m_FrameRate, 1.0))) {
                if (!m_Truncated) {
                    char text[96];
                    std::snprintf(text, sizeof(text),
                                  "truncated: the data ends at %.1f s of %.1f s",
                                  static_cast<double>(m_EndUs) / 1e6, m_DurationSeconds);
                    Note(text);
                }
                m_Truncated = true;
            }
            if (m_Loop && !m_Live && Restart()) {
                continue;
            }
            return EResult::End;
        }
        if (result < 0) {
            // Only the interrupt callback asks for an exit; when it timed out a read that still
            // returned data, the exit shows on the next read.
            m_TimedOut = m_TimedOut || (result == AVERROR_EXIT && !m_Abort);
            if (m_Abort || m_TimedOut || m_Network || ++m_ReadErrors > kMaxReadErrors) {
                Fail("cannot read at " + Seconds(m_EndUs + m_LoopOffsetUs), result);
                return EResult::Failed;
            }
            Note("damaged data skipped at " + Seconds(m_EndUs + m_LoopOffsetUs) + " (" +
                 AvError(result) + ")");
            continue;
        }
        m_ReadErrors = 0;
        if (raw->stream_index == m_VideoStream) {
            packet->m_Kind = EMediaKind::Video;
            Stamp(packet, m_pFormat->streams[m_VideoStream]);
            if (ProcessVideo(packet)) {
                return EResult::Packet;
            }
        } else if (raw->stream_index == m_AudioStream) {
            packet->m_Kind = EMediaKind::Audio;
            Stamp(packet, m_pFormat->streams[m_AudioStream]);
            packet->m_pVideoFormat.reset();
            return EResult::Packet;
        }
    }
}

void CMediaDemuxer::Stamp(SMediaPacket* packet, const AVStream* stream) {
    const AVPacket* raw = packet->m_pPacket;
    const bool hasPts = raw->pts != AV_NOPTS_VALUE;
    const bool hasDts = raw->dts != AV_NOPTS_VALUE;
    const std::int64_t pts = hasPts ? av_rescale_q(raw->pts, stream->time_base, AV_TIME_BASE_Q) : 0;
    const std::int64_t dts = hasDts ? av_rescale_q(raw->dts, stream->time_base, AV_TIME_BASE_Q) : 0;
    if (!m_HaveOrigin && (hasPts || hasDts)) {
        m_OriginUs = hasPts ? pts : dts;
        m_HaveOrigin = true;
    }
    std::int64_t duration =
        raw->duration > 0 ? av_rescale_q(raw->duration, stream->time_base, AV_TIME_BASE_Q) : 0;
    if (duration == 0 && packet->m_Kind == EMediaKind::Video && m_FrameRate > 0.0) {
        duration = static_cast<std::int64_t>(1e6 / m_FrameRate);
    }
    packet->m_StreamIndex = raw->stream_index;
    packet->m_DurationUs = duration;
    // Without a presentation time the decoding time stands in. Raw streams have neither: a video
    // packet then follows the one before by a frame, a valid time when the frame rate is known.
    const bool video = packet->m_Kind == EMediaKind::Video;
    std::int64_t position = hasPts ? pts - m_OriginUs : dts - m_OriginUs;
    packet->m_PtsValid = hasPts || hasDts;
    if (!packet->m_PtsValid) {
        position = video ? m_NextVideoUs : m_EndUs;
        packet->m_PtsValid = video && duration > 0;
    }
    packet->m_PtsUs = position + m_LoopOffsetUs;
    packet->m_DtsUs = hasDts ? dts - m_OriginUs + m_LoopOffsetUs : packet->m_PtsUs;
    if (video) {
        m_NextVideoUs = position + duration;
    }
    m_EndUs = std::max(m_EndUs, position + duration);
}

bool CMediaDemuxer::ProcessVideo(SMediaPacket* packet) {
    const AVPacket* raw = packet->m_pPacket;
    const std::uint8_t* data = raw->data;
    const std::size_t size = packet->Size();
    const bool containerKey = (raw->flags & AV_PKT_FLAG_KEY) != 0;
    if (raw->flags & AV_PKT_FLAG_CORRUPT) {
        Note("damaged video packet at " + Seconds(packet->m_PtsUs) + " passed on");
    }
    // Containers announce new set-up data (another sample description, say) with the packet.
    std::size_t setUpSize = 0;
    if (const std::uint8_t* setUp =
            av_packet_get_side_data(raw, AV_PKT_DATA_NEW_EXTRADATA, &setUpSize)) {
        NewSetUp(setUp, setUpSize, *packet);
    }
    int frameType = kNalFrameUnknown;
    bool key = containerKey;
    bool addParameterSets = false;
    if (m_pScanner) {
        const SAccessUnitScan scan = m_pScanner->Scan(data, size);
        key = scan.m_Key || containerKey;
        frameType = scan.m_FrameType;
        if (key && scan.m_HasParameterSets) {
            CheckParameterSets(*packet);
        }
        addParameterSets = key && !scan.m_HasParameterSets && !m_pVideoFormat->m_ExtraData.empty();
    } else if (m_IntraOnly) {
        key = true;
        frameType = kNalFrameI;
    } else if (m_pParser) {
        int width = 0;
        int height = 0;
        frameType = ParseFrame(data, size, &width, &height);
        if (key && width > 0 && height > 0 &&
            (width != m_pVideoFormat->m_Width || height != m_pVideoFormat->m_Height)) {
            ChangeFormat(m_pVideoFormat->m_ExtraData, width, height, packet->m_PtsUs);
        }
    }
    if (frameType == kNalFrameUnknown) {
        frameType = key ? kNalFrameI : kNalFrameP;
    }
    if (!m_SeenKey) {
        if (!key) {
            ++m_Skipped;
            return false;
        }
        if (m_Skipped > 0) {
            Note(std::to_string(m_Skipped) + " video packets before the first key frame skipped");
            m_Skipped = 0;
        }
        m_SeenKey = true;
    }
    packet->m_FrameType = frameType;
    packet->m_Key = key;
    packet->m_pVideoFormat = m_pVideoFormat;
    packet->m_NalLengthSize = m_NalLengthSize;
    packet->m_AddParameterSets = addParameterSets;
    ++m_VideoPackets;
    return true;
}

void CMediaDemuxer::CheckParameterSets(const SMediaPacket& packet) {
    m_ParameterSets.clear();
    m_pScanner->ParameterSets(packet.Data(), packet.Size(), &m_ParameterSets);
    AdoptSetUp(m_ParameterSets, packet);
}

void CMediaDemuxer::NewSetUp(const std::uint8_t* data, std::size_t size,
                             const SMediaPacket& packet) {
    std::vector<std::uint8_t> setUp;
    if (m_pScanner && !IsAnnexB(data, size)) {
        int lengthSize = 0;
        if (!ParseNalConfig(m_pScanner->Codec(), data, size, &setUp, &lengthSize)) {
            Note("damaged codec set-up data at " + Seconds(packet.m_PtsUs) + " ignored");
            return;
        }
        if (lengthSize != m_NalLengthSize) {
            m_NalLengthSize = lengthSize;
            m_pScanner = std::make_unique<CNalScanner>(m_pScanner->Codec(), lengthSize);
        }
    } else {
        setUp.assign(data, data + size);
    }
    AdoptSetUp(setUp, packet);
}

void CMediaDemuxer::AdoptSetUp(const std::vector<std::uint8_t>& setUp, const SMediaPacket& packet) {
    if (setUp == m_pVideoFormat->m_ExtraData) {
        return;
    }
    int width = 0;
    int height = 0;
    if (m_pScanner) {
        m_pScanner->Learn(setUp.data(), setUp.size());
        // The picture size is read by libavcodec's parser from the set-up data and the unit in
        // Annex B form.
        if (m_pParser) {
            m_Scratch.assign(setUp.begin(), setUp.end());
            m_Scratch.resize(setUp.size() + NalMaxAnnexBSize(packet.Size(), m_NalLengthSize));
            const std::size_t size = NalWriteAnnexB(packet.Data(), packet.Size(), m_NalLengthSize,
                                                    m_Scratch.data() + setUp.size());
            ParseFrame(m_Scratch.data(), setUp.size() + size, &width, &height);
        }
    }
    if (m_VideoPackets == 0) {
        // The stream's own set-up data describes it better than the container's summary.
        auto format = std::make_shared<SMediaVideoFormat>(*m_pVideoFormat);
        format->m_ExtraData = setUp;
        if (width > 0 && height > 0) {
            format->m_Width = width;
            format->m_Height = height;
        }
        m_pVideoFormat = std::move(format);
        return;
    }
    ChangeFormat(setUp, width, height, static_cast<double>(packet.m_PtsUs));
}

void CMediaDemuxer::ChangeFormat(std::vector<std::uint8_t> extraData, int width, int height,
                                 double at) {
    auto format = std::make_shared<SMediaVideoFormat>(*m_pVideoFormat);
    ++format->m_Generation;
    format->m_ExtraData = std::move(extraData);
    char text[128];
    if (width > 0 && height > 0 &&
        (width != m_pVideoFormat->m_Width || height != m_pVideoFormat->m_Height)) {
        std::snprintf(text, sizeof(text), "video size changes from %dx%d to %dx%d at %.1f s",
                      m_pVideoFormat->m_Width, m_pVideoFormat->m_Height, width, height, at / 1e6);
        format->m_Width = width;
        format->m_Height = height;
    } else {
        std::snprintf(text, sizeof(text), "video parameters change at %.1f s", at / 1e6);
    }
    Note(text);
    m_pVideoFormat = std::move(format);
}

int CMediaDemuxer::ParseFrame(const std::uint8_t* data, std::size_t size, int* width, int* height) {
    std::uint8_t* out = nullptr;
    int outSize = 0;
    av_parser_parse2(m_pParser, m_pParserCodec, &out, &outSize, data, static_cast<int>(size),
                     AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
    *width = m_pParser->width;
    *height = m_pParser->height;
    return FrameTypeOf(static_cast<AVPictureType>(m_pParser->pict_type));
}

bool CMediaDemuxer::SeekToStart() {
    // Raw streams carry no times to seek by, but start again at their first byte.
    return av_seek_frame(m_pFormat, -1, m_OriginUs, AVSEEK_FLAG_BACKWARD) >= 0 ||
           av_seek_frame(m_pFormat, -1, 0, AVSEEK_FLAG_BYTE) >= 0;
}

bool CMediaDemuxer::Restart() {
    if (!SeekToStart()) {
        Note("cannot loop: the input cannot go back to its start");
        m_Loop = false;
        return false;
    }
    m_LoopOffsetUs += m_EndUs;
    m_EndUs = 0;
    m_NextVideoUs = 0;
    ResetVideoState();
    return true;
}

bool CMediaDemuxer::Seek(double seconds) {
    if (!m_pFormat) {
        return Fail("the input is not open", 0);
    }
    if (m_Live) {
        return Fail("a live input cannot seek", 0);
    }
    const auto target = m_OriginUs + static_cast<std::int64_t>(seconds * 1e6);
    Arm(m_TimeoutSeconds);
    int result = av_seek_frame(m_pFormat, -1, target, AVSEEK_FLAG_BACKWARD);
    if (result < 0 && seconds == 0.0 && SeekToStart()) {
        result = 0;
    }
    Disarm();
    if (result < 0) {
        return Fail("cannot seek to " + Seconds(static_cast<std::int64_t>(seconds * 1e6)), result);
    }
    ResetVideoState();
    return true;
}
