#include "video/PictureFiles.h"

#include "framework/kor/Packet.h"
#include "video/VideoDecompressor.h"
#include "video/VideoFrame.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

std::string AvError(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof(text));
    return text;
}

bool Fail(std::string* error, const std::string& text) {
    if (error) {
        *error = text;
    }
    return false;
}

} // namespace

void CZorRgbPicture::Resize(int width, int height) {
    m_Width = width > 0 ? width : 0;
    m_Height = height > 0 ? height : 0;
    m_Pixels.assign(static_cast<size_t>(3) * m_Width * m_Height, 0);
}

// ---------------------------------------------------------------------------------------------

struct CZorFrameToRgb::SImpl {
    ~SImpl() { sws_freeContext(m_pScaler); }
    SwsContext* m_pScaler = nullptr;
};

CZorFrameToRgb::CZorFrameToRgb() : m_p(std::make_unique<SImpl>()) {}

CZorFrameToRgb::~CZorFrameToRgb() = default;

bool CZorFrameToRgb::Convert(const CKorVideoPacket* frame, int width, int height,
                             CZorRgbPicture* picture) {
    SBeluiBitmap luma;
    SBeluiBitmap chroma;
    if (!CZorVideoFrame::GetPlanes(frame, &luma, &chroma) ||
        !CZorVideoFrame::IsValidSize(width, height)) {
        return false;
    }
    const bool grey = chroma.IsEmpty();
    // Shrinking averages whole areas (thumbnails stay clean); anything else interpolates.
    const int flags = width < luma.m_Width ? SWS_AREA : SWS_BILINEAR;
    m_p->m_pScaler = sws_getCachedContext(m_p->m_pScaler, luma.m_Width, luma.m_Height,
                                          grey ? AV_PIX_FMT_GRAY8 : AV_PIX_FMT_NV12, width, height,
                                          AV_PIX_FMT_RGB24, flags, nullptr, nullptr, nullptr);
    if (!m_p->m_pScaler) {
        return false;
    }
    const bool fullRange = (frame->GetBitmapFormat()->Flags() & CZorVideoFrame::kFullRange) != 0;
    const int* coefficients = sws_getCoefficients(SWS_CS_ITU601);
    sws_setColorspaceDetails(m_p->m_pScaler, coefficients, fullRange ? 1 : 0, coefficients, 1, 0,
                             1 << 16, 1 << 16);
    if (picture->Width() != width || picture->Height() != height) {
        picture->Resize(width, height);
    }
    const std::uint8_t* source[4] = {luma.m_pData, grey ? nullptr : chroma.m_pData, nullptr,
                                     nullptr};
    const int sourceStrides[4] = {luma.m_Stride, grey ? 0 : chroma.m_Stride, 0, 0};
    SZorRgbImage image = picture->Image();
    std::uint8_t* target[4] = {image.m_pData, nullptr, nullptr, nullptr};
    const int targetStrides[4] = {image.m_Stride, 0, 0, 0};
    sws_scale(m_p->m_pScaler, source, sourceStrides, 0, luma.m_Height, target, targetStrides);
    return true;
}

// ---------------------------------------------------------------------------------------------

bool CZorPngFile::Write(const std::string& file, const SZorRgbImage& picture, std::string* error) {
    if (!picture.m_pData || picture.m_Width <= 0 || picture.m_Height <= 0) {
        return Fail(error, file + ": no picture to write");
    }
    CZorVideoDecompressor::QuietCodecLog();
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_PNG);
    AVCodecContext* context = codec ? avcodec_alloc_context3(codec) : nullptr;
    if (!context) {
        return Fail(error, file + ": no PNG encoder");
    }
    context->width = picture.m_Width;
    context->height = picture.m_Height;
    context->pix_fmt = AV_PIX_FMT_RGB24;
    context->time_base = AVRational{1, 25};
    AVFrame* frame = av_frame_alloc();
    AVPacket* packet = av_packet_alloc();
    bool ok = false;
    int result = avcodec_open2(context, codec, nullptr);
    if (result >= 0 && frame && packet) {
        frame->format = AV_PIX_FMT_RGB24;
        frame->width = picture.m_Width;
        frame->height = picture.m_Height;
        frame->data[0] = picture.m_pData;
        frame->linesize[0] = picture.m_Stride;
        result = avcodec_send_frame(context, frame);
        if (result >= 0) {
            result = avcodec_receive_packet(context, packet);
        }
        if (result >= 0) {
            std::FILE* out = std::fopen(file.c_str(), "wb");
            if (!out) {
                Fail(error, file + ": cannot create (" + std::strerror(errno) + ")");
            } else {
                const bool written = std::fwrite(packet->data, 1, static_cast<size_t>(packet->size),
                                                 out) == static_cast<size_t>(packet->size);
                ok = std::fclose(out) == 0 && written;
                if (!ok) {
                    Fail(error, file + ": cannot write (" + std::strerror(errno) + ")");
                }
            }
        }
    }
    if (result < 0) {
        Fail(error, file + ": PNG encoding failed (" + AvError(result) + ")");
    }
    av_packet_free(&packet);
    av_frame_free(&frame);
    avcodec_free_context(&context);
    return ok;
}

// ---------------------------------------------------------------------------------------------

struct CZorVideoFile::SImpl {
    ~SImpl() { Free(); }
    void Free() {
        if (m_pOutput && !(m_pOutput->oformat->flags & AVFMT_NOFILE)) {
            avio_closep(&m_pOutput->pb);
        }
        avformat_free_context(m_pOutput);
        m_pOutput = nullptr;
        avcodec_free_context(&m_pEncoder);
        av_frame_free(&m_pFrame);
        av_packet_free(&m_pPacket);
        sws_freeContext(m_pScaler);
        m_pScaler = nullptr;
        m_Open = false;
    }
    // Moves what the encoder has finished into the file.
    bool Drain(std::string* error) {
        for (;;) {
            int result = avcodec_receive_packet(m_pEncoder, m_pPacket);
            if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) {
                return true;
            }
            if (result >= 0) {
                // Without a duration the container would end its last picture at its start, and
                // players would drop it.
                if (m_pPacket->duration <= 0) {
                    m_pPacket->duration = m_FrameDuration;
                }
                av_packet_rescale_ts(m_pPacket, m_pEncoder->time_base, m_pStream->time_base);
                m_pPacket->stream_index = m_pStream->index;
                result = av_interleaved_write_frame(m_pOutput, m_pPacket);
            }
            if (result < 0) {
                return Fail(error, m_File + ": cannot write video (" + AvError(result) + ")");
            }
        }
    }

    std::string m_File;
    std::string m_EncoderName;
    AVFormatContext* m_pOutput = nullptr;
    AVStream* m_pStream = nullptr;
    AVCodecContext* m_pEncoder = nullptr;
    AVFrame* m_pFrame = nullptr;
    AVPacket* m_pPacket = nullptr;
    SwsContext* m_pScaler = nullptr;
    long long m_LastTime = 0;
    long long m_FrameDuration = 40; // ms: the last step between pictures
    long m_Frames = 0;
    bool m_Open = false;
};

CZorVideoFile::CZorVideoFile() : m_p(std::make_unique<SImpl>()) {}

CZorVideoFile::~CZorVideoFile() {
    Close(nullptr);
}

bool CZorVideoFile::Open(const std::string& file, int width, int height, const std::string& encoder,
                         std::string* error) {
    Close(nullptr);
    CZorVideoDecompressor::QuietCodecLog();
    SImpl& s = *m_p;
    s.m_File = file;
    if (width <= 0 || height <= 0 || width % 2 != 0 || height % 2 != 0) {
        return Fail(error, file + ": picture size must be even (" + std::to_string(width) + "x" +
                               std::to_string(height) + ")");
    }
    const AVCodec* codec = nullptr;
    if (encoder.empty()) {
        codec = avcodec_find_encoder_by_name("libx264");
        codec = codec ? codec : avcodec_find_encoder(AV_CODEC_ID_MPEG4);
    } else {
        codec = avcodec_find_encoder_by_name(encoder.c_str());
    }
    if (!codec || codec->type != AVMEDIA_TYPE_VIDEO) {
        return Fail(error, file + ": no video encoder '" + encoder + "'");
    }
    if (avformat_alloc_output_context2(&s.m_pOutput, nullptr, nullptr, file.c_str()) < 0 ||
        !s.m_pOutput) {
        return Fail(error, file + ": no container for this file name (use .mp4, .mkv or .avi)");
    }
    s.m_pStream = avformat_new_stream(s.m_pOutput, nullptr);
    s.m_pEncoder = avcodec_alloc_context3(codec);
    s.m_pFrame = av_frame_alloc();
    s.m_pPacket = av_packet_alloc();
    if (!s.m_pStream || !s.m_pEncoder || !s.m_pFrame || !s.m_pPacket) {
        s.Free();
        return Fail(error, file + ": out of memory");
    }
    AVCodecContext* c = s.m_pEncoder;
    c->width = width;
    c->height = height;
    c->pix_fmt = AV_PIX_FMT_YUV420P;
    c->time_base = AVRational{1, 1000}; // packet timestamps are milliseconds
    c->framerate = AVRational{25, 1};   // a hint for rate control; times come from the frames
    c->gop_size = 50;
    // No reordering: every picture written is a picture in the file, decodable as it comes, and
    // times that are uneven (a live source, a size change) need no reorder delay.
    c->max_b_frames = 0;
    if (s.m_pOutput->oformat->flags & AVFMT_GLOBALHEADER) {
        c->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    if (codec->id == AV_CODEC_ID_H264) {
        av_opt_set(c->priv_data, "preset", "veryfast", 0);
        av_opt_set(c->priv_data, "crf", "23", 0);
    } else {
        c->flags |= AV_CODEC_FLAG_QSCALE;
        c->global_quality = FF_QP2LAMBDA * 4;
    }
    int result = avcodec_open2(c, codec, nullptr);
    if (result >= 0) {
        result = avcodec_parameters_from_context(s.m_pStream->codecpar, c);
    }
    if (result < 0) {
        s.Free();
        return Fail(error, file + ": cannot open the " + codec->name + " encoder (" +
                               AvError(result) + ")");
    }
    s.m_pStream->time_base = c->time_base;
    if (!(s.m_pOutput->oformat->flags & AVFMT_NOFILE)) {
        result = avio_open(&s.m_pOutput->pb, file.c_str(), AVIO_FLAG_WRITE);
        if (result < 0) {
            s.Free();
            return Fail(error, file + ": cannot create (" + AvError(result) + ")");
        }
    }
    result = avformat_write_header(s.m_pOutput, nullptr);
    if (result < 0) {
        s.Free();
        return Fail(error, file + ": cannot write the header (" + AvError(result) + ")");
    }
    s.m_pFrame->format = c->pix_fmt;
    s.m_pFrame->width = width;
    s.m_pFrame->height = height;
    if (av_frame_get_buffer(s.m_pFrame, 0) < 0) {
        s.Free();
        return Fail(error, file + ": out of memory");
    }
    s.m_EncoderName = codec->name;
    s.m_LastTime = -1;
    s.m_Frames = 0;
    s.m_Open = true;
    return true;
}

bool CZorVideoFile::Write(const SZorRgbImage& picture, long long milliseconds, std::string* error) {
    SImpl& s = *m_p;
    if (!s.m_Open) {
        return Fail(error, s.m_File + ": not open");
    }
    if (picture.m_Width != s.m_pEncoder->width || picture.m_Height != s.m_pEncoder->height) {
        return Fail(error, s.m_File + ": picture of another size");
    }
    s.m_pScaler = sws_getCachedContext(s.m_pScaler, picture.m_Width, picture.m_Height,
                                       AV_PIX_FMT_RGB24, picture.m_Width, picture.m_Height,
                                       AV_PIX_FMT_YUV420P, SWS_BILINEAR, nullptr, nullptr, nullptr);
    // The encoder may still hold the frame's buffers from the last picture.
    if (!s.m_pScaler || av_frame_make_writable(s.m_pFrame) < 0) {
        return Fail(error, s.m_File + ": cannot convert the picture");
    }
    const std::uint8_t* source[4] = {picture.m_pData, nullptr, nullptr, nullptr};
    const int sourceStrides[4] = {picture.m_Stride, 0, 0, 0};
    sws_scale(s.m_pScaler, source, sourceStrides, 0, picture.m_Height, s.m_pFrame->data,
              s.m_pFrame->linesize);
    const long long time = milliseconds > s.m_LastTime ? milliseconds : s.m_LastTime + 1;
    if (s.m_LastTime >= 0) {
        s.m_FrameDuration = time - s.m_LastTime;
    }
    s.m_LastTime = time;
    s.m_pFrame->pts = s.m_LastTime;
    const int result = avcodec_send_frame(s.m_pEncoder, s.m_pFrame);
    if (result < 0) {
        return Fail(error, s.m_File + ": encoding failed (" + AvError(result) + ")");
    }
    ++s.m_Frames;
    return s.Drain(error);
}

bool CZorVideoFile::Close(std::string* error) {
    SImpl& s = *m_p;
    if (!s.m_Open) {
        return true;
    }
    bool ok = avcodec_send_frame(s.m_pEncoder, nullptr) >= 0 && s.Drain(error);
    const int result = av_write_trailer(s.m_pOutput);
    if (ok && result < 0) {
        ok = Fail(error, s.m_File + ": cannot finish the file (" + AvError(result) + ")");
    }
    s.Free();
    return ok;
}

bool CZorVideoFile::IsOpen() const {
    return m_p->m_Open;
}

long CZorVideoFile::FramesWritten() const {
    return m_p->m_Frames;
}

const std::string& CZorVideoFile::EncoderName() const {
    return m_p->m_EncoderName;
}
