#include "video/VideoDecompressor.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/kor/Metadata.h"
#include "framework/kor/Packet.h"
#include "framework/kor/PacketSource.h"
#include "video/MediaDemuxer.h"
#include "video/VideoFrame.h"
#include "video/core/PlaneKernels.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <array>
#include <cstdint>
#include <cstring>
#include <deque>
#include <mutex>
#include <string>
#include <unordered_set>
#include <vector>

namespace {

// Buffers handed to the codec start planes on this boundary: the widest vector loads of any CPU
// the codec may pick code for.
constexpr std::uintptr_t kPlaneAlign = 64;
// Bytes the codec may read past a plane's last row (its own allocator leaves as much).
constexpr unsigned long kPlaneSlack = 64 + 16;
// Compressed packets waiting for their picture: more than any codec's reordering plus frame
// threads can hold back.
constexpr int kInFlight = 128;

unsigned long AlignUp(unsigned long value, unsigned long alignment) {
    return (value + alignment - 1) / alignment * alignment;
}

std::string AvError(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof(text));
    return text;
}

std::string FourCCText(DWORD fourcc) {
    std::string text;
    for (int i = 0; i < 4; ++i) {
        const char c = static_cast<char>((fourcc >> (8 * i)) & 0xFF);
        text += (c >= 32 && c < 127) ? c : '?';
    }
    return text;
}

// Codecs known to leave a picture alone once they have given it out, so that it can travel
// downstream while they still read it as a reference. Others may rewrite a kept frame in place,
// so their pictures are copied.
bool WritesPicturesOnce(AVCodecID codec) {
    switch (codec) {
    case AV_CODEC_ID_H264:
    case AV_CODEC_ID_HEVC:
    case AV_CODEC_ID_MPEG1VIDEO:
    case AV_CODEC_ID_MPEG2VIDEO:
    case AV_CODEC_ID_MPEG4:
    case AV_CODEC_ID_H263:
    case AV_CODEC_ID_MJPEG:
    case AV_CODEC_ID_VP8:
    case AV_CODEC_ID_VP9:
        return true;
    default:
        return false;
    }
}

bool IsDirectFormat(int format) {
    return format == AV_PIX_FMT_YUV420P || format == AV_PIX_FMT_YUVJ420P ||
           format == AV_PIX_FMT_GRAY8;
}

int FrameTypeOf(AVPictureType type, int fallback) {
    switch (type) {
    case AV_PICTURE_TYPE_I:
    case AV_PICTURE_TYPE_SI:
        return CKorVideoPacket::I_FRAME;
    case AV_PICTURE_TYPE_P:
    case AV_PICTURE_TYPE_SP:
    case AV_PICTURE_TYPE_S:
        return CKorVideoPacket::P_FRAME;
    case AV_PICTURE_TYPE_B:
    case AV_PICTURE_TYPE_BI:
        return CKorVideoPacket::B_FRAME;
    default:
        return fallback;
    }
}

// Pooled payloads currently lent to a codec. A frame whose buffer is in here is a packet
// already; any other frame is converted.
class CLentBuffers {
public:
    void Add(const void* packet) {
        std::lock_guard<std::mutex> lock(m_Mutex);
        m_Lent.insert(packet);
    }
    void Remove(const void* packet) {
        std::lock_guard<std::mutex> lock(m_Mutex);
        m_Lent.erase(packet);
    }
    bool Contains(const void* packet) const {
        std::lock_guard<std::mutex> lock(m_Mutex);
        return m_Lent.count(packet) != 0;
    }

private:
    mutable std::mutex m_Mutex;
    std::unordered_set<const void*> m_Lent;
};

CLentBuffers& LentBuffers() {
    static CLentBuffers* lent = new CLentBuffers; // buffers may come back during shutdown
    return *lent;
}

// What the codec's allocator needs to know; fixed while the decoder is open (the codec may call
// the allocator from its own threads).
struct SAllocatorSettings {
    bool m_Direct = false; // the codec leaves given-out pictures alone
    bool m_Grey = false;   // no NV12 chroma area is needed
};

void ReturnBuffer(void* opaque, std::uint8_t*) {
    auto* packet = static_cast<CKorVideoPacket*>(opaque);
    LentBuffers().Remove(packet);
    packet->Release();
}

// The codec's picture allocator: planes in one pooled video packet, laid out as the codec's own
// allocator would, followed by room for the NV12 chroma the frame will carry. The packet's
// plane layout is set here; its format when the picture is given out.
int GetPictureBuffer(AVCodecContext* context, AVFrame* frame, int flags) {
    const auto* settings = static_cast<const SAllocatorSettings*>(context->opaque);
    if (!settings || !settings->m_Direct || !IsDirectFormat(frame->format) ||
        !CZorVideoFrame::IsValidSize(frame->width, frame->height)) {
        return avcodec_default_get_buffer2(context, frame, flags);
    }
    int width = frame->width;
    int height = frame->height;
    int strideAlign[AV_NUM_DATA_POINTERS] = {};
    avcodec_align_dimensions2(context, &width, &height, strideAlign);
    const bool greySource = frame->format == AV_PIX_FMT_GRAY8;
    const unsigned long lumaStride = AlignUp(static_cast<unsigned long>(width), kPlaneAlign);
    const unsigned long sourceChromaStride =
        greySource ? 0 : AlignUp(static_cast<unsigned long>((width + 1) / 2), kPlaneAlign);
    const unsigned long sourceChromaRows = greySource ? 0 : (height + 1) / 2;
    const unsigned long nv12Stride =
        settings->m_Grey
            ? 0
            : AlignUp(static_cast<unsigned long>(CZorVideoFrame::ChromaWidth(frame->width)),
                      kPlaneAlign);
    const unsigned long nv12Rows =
        settings->m_Grey ? 0 : CZorVideoFrame::ChromaHeight(frame->height);

    // Offsets from an aligned start; the packet's data may begin anywhere.
    const unsigned long lumaSize = AlignUp(lumaStride * height + kPlaneSlack, kPlaneAlign);
    const unsigned long chromaSize =
        AlignUp(sourceChromaStride * sourceChromaRows + kPlaneSlack, kPlaneAlign);
    const unsigned long uOffset = lumaSize;
    const unsigned long vOffset = uOffset + chromaSize;
    const unsigned long nv12Offset = vOffset + chromaSize;
    const unsigned long total = kPlaneAlign + nv12Offset + nv12Stride * nv12Rows;

    CKorVideoPacket* packet = g_VideoPacketSource.NewPacket(static_cast<long>(total));
    BYTE* data = packet->GetData();
    const auto address = reinterpret_cast<std::uintptr_t>(data);
    const unsigned long start = static_cast<unsigned long>(AlignUp(address, kPlaneAlign) - address);
    packet->SetDataSize(total);
    packet->SetPlane(0, start, static_cast<int>(lumaStride));
    packet->SetPlane(1, settings->m_Grey ? 0 : start + nv12Offset, static_cast<int>(nv12Stride));

    frame->buf[0] = av_buffer_create(data, static_cast<int>(total), &ReturnBuffer, packet, 0);
    if (!frame->buf[0]) {
        packet->Release();
        return AVERROR(ENOMEM);
    }
    LentBuffers().Add(packet);
    frame->data[0] = data + start;
    frame->linesize[0] = static_cast<int>(lumaStride);
    if (!greySource) {
        frame->data[1] = data + start + uOffset;
        frame->data[2] = data + start + vOffset;
        frame->linesize[1] = frame->linesize[2] = static_cast<int>(sourceChromaStride);
    }
    frame->extended_data = frame->data;
    return 0;
}

} // namespace

struct CZorVideoDecompressor::SImpl {
    // A compressed packet waiting for its picture.
    struct SInFlight {
        std::int64_t m_Index = -1;
        CKorVideoPacket* m_pPacket = nullptr; // one reference
    };
    // A decoded frame and the input index of its packet.
    struct SDecoded {
        CKorVideoPacket* m_pFrame = nullptr; // one reference
        std::int64_t m_Index = -1;
    };

    ~SImpl() {
        Close();
        ReleaseQueue();
        CKorVideoPacket::ReleaseVideoFormat(m_pOutputFormat);
        sws_freeContext(m_pScaler);
        av_frame_free(&m_pFrame);
        av_packet_free(&m_pPacket);
    }

    void Close() {
        avcodec_free_context(&m_pContext);
        ReleaseInFlight();
        m_CodecId = AV_CODEC_ID_NONE;
    }
    void ReleaseInFlight() {
        for (SInFlight& slot : m_InFlight) {
            if (slot.m_pPacket) {
                slot.m_pPacket->Release();
            }
            slot = SInFlight{};
        }
    }
    void ReleaseQueue() {
        for (const SDecoded& decoded : m_Queue) {
            decoded.m_pFrame->Release();
        }
        m_Queue.clear();
    }

    // Reports a fault of the stream, once per opened decoder; counts every one.
    void Fault(bool* reported, const std::string& text) {
        ++m_Errors;
        if (*reported) {
            return;
        }
        *reported = true;
        BelDump("CZorVideoDecompressor::Decompress -> %s\n", text.c_str());
    }

    bool EnsureDecoder(const CKorVideoPacket* input);
    bool Open(AVCodecID codec, const std::vector<std::uint8_t>& setup);
    void Receive();
    CKorVideoPacket* MakeFrame(const AVFrame* picture);
    CKorVideoPacket* Convert(const AVFrame* picture, CKorVideoFormat* format);
    CKorVideoPacket* CopyOf(const CKorVideoPacket* given);
    CKorVideoFormat* FormatFor(int width, int height, bool grey, bool fullRange);
    // Answers the input index of the packet whose fields it copied (-1: none).
    std::int64_t CopyFields(CKorVideoPacket* frame, const AVFrame* picture);

    AVCodecContext* m_pContext = nullptr;
    AVCodecID m_CodecId = AV_CODEC_ID_NONE;
    SAllocatorSettings m_Allocator;
    AVPacket* m_pPacket = av_packet_alloc();
    AVFrame* m_pFrame = av_frame_alloc();
    SwsContext* m_pScaler = nullptr;

    long m_InputFormatSeq = 0;         // of the last input that chose the codec
    std::vector<std::uint8_t> m_Setup; // the open decoder's set-up data
    bool m_Reopen = false;             // a setting changed since the decoder was opened
    int m_Threads = 1;
    bool m_Grey = false;

    std::array<SInFlight, kInFlight> m_InFlight{};
    std::int64_t m_NextIndex = 0;
    std::deque<SDecoded> m_Queue;

    CKorVideoFormat* m_pOutputFormat = nullptr; // one reference

    long m_Frames = 0;
    long m_Errors = 0;
    long m_Direct = 0;
    bool m_ReportedStream = false; // a fault of the compressed data was reported
    bool m_ReportedSetup = false;  // a fault of the format or codec was reported
};

bool CZorVideoDecompressor::SImpl::Open(AVCodecID codecId, const std::vector<std::uint8_t>& setup) {
    if (m_pContext && avcodec_send_packet(m_pContext, nullptr) >= 0) {
        Receive(); // pictures of the old decoder still come out
    }
    Close();
    const AVCodec* codec = avcodec_find_decoder(codecId);
    if (!codec) {
        Fault(&m_ReportedSetup, "no decoder for " + std::string(avcodec_get_name(codecId)));
        return false;
    }
    m_pContext = avcodec_alloc_context3(codec);
    if (!m_pContext) {
        Fault(&m_ReportedSetup, "out of memory opening the decoder");
        return false;
    }
    m_Allocator = SAllocatorSettings{
        WritesPicturesOnce(codecId) && (codec->capabilities & AV_CODEC_CAP_DR1) != 0, m_Grey};
    m_pContext->opaque = &m_Allocator;
    m_pContext->get_buffer2 = &GetPictureBuffer;
    m_pContext->thread_count = m_Threads;
    m_pContext->thread_type = FF_THREAD_FRAME | FF_THREAD_SLICE;
    if (m_Grey) {
        m_pContext->flags |= AV_CODEC_FLAG_GRAY; // codecs built with it skip chroma altogether
    }
    if (!setup.empty()) {
        // The codec owns its set-up data and reads past its end: a padded copy.
        m_pContext->extradata =
            static_cast<std::uint8_t*>(av_mallocz(setup.size() + AV_INPUT_BUFFER_PADDING_SIZE));
        if (m_pContext->extradata) {
            std::memcpy(m_pContext->extradata, setup.data(), setup.size());
            m_pContext->extradata_size = static_cast<int>(setup.size());
        }
    }
    const int result = avcodec_open2(m_pContext, codec, nullptr);
    if (result < 0) {
        Fault(&m_ReportedSetup,
              "cannot open the " + std::string(codec->name) + " decoder (" + AvError(result) + ")");
        avcodec_free_context(&m_pContext);
        return false;
    }
    m_CodecId = codecId;
    m_Setup = setup;
    m_Reopen = false;
    return true;
}

bool CZorVideoDecompressor::SImpl::EnsureDecoder(const CKorVideoPacket* input) {
    const long seq = input->GetFormatSeqNumber();
    if (m_pContext && !m_Reopen && seq == m_InputFormatSeq) {
        return true;
    }
    AVCodecID codec = m_CodecId; // a packet without a record continues its stream
    std::vector<std::uint8_t> setup = m_Setup;
    if (const CKorVideoFormat* format = input->GetBitmapFormat()) {
        const BITMAPINFOHEADER* header = &format->Header();
        setup.assign(format->ExtraData(), format->ExtraData() + format->ExtraSize());
        codec = static_cast<AVCodecID>(MediaCodecOfFourCC(header->biCompression));
        if (codec == AV_CODEC_ID_NONE) {
            Fault(&m_ReportedSetup,
                  "unsupported compression '" + FourCCText(header->biCompression) + "'");
            m_InputFormatSeq = seq;
            Close();
            return false;
        }
    } else if (codec == AV_CODEC_ID_NONE) {
        Fault(&m_ReportedSetup, "video packet without a format record");
        return false;
    }
    m_InputFormatSeq = seq;
    if (m_pContext && !m_Reopen && codec == m_CodecId && setup == m_Setup) {
        return true; // new parameters of the same codec travel in band
    }
    if (codec != m_CodecId) {
        m_ReportedStream = false; // another codec: its faults are news
        m_ReportedSetup = false;
    }
    return Open(codec, setup);
}

CKorVideoFormat* CZorVideoDecompressor::SImpl::FormatFor(int width, int height, bool grey,
                                                         bool fullRange) {
    const BITMAPINFOHEADER header = CZorVideoFrame::MakeHeader(width, height, grey);
    const long flags = fullRange ? CZorVideoFrame::kFullRange : 0;
    if (!m_pOutputFormat || std::memcmp(&m_pOutputFormat->Header(), &header, sizeof(header)) != 0 ||
        m_pOutputFormat->Flags() != flags) {
        CKorVideoPacket::ReleaseVideoFormat(m_pOutputFormat);
        m_pOutputFormat =
            CKorVideoPacket::GetVideoFormat(&header, CKorPacket::GetNewFormatSeqNumber(), flags);
    }
    return m_pOutputFormat;
}

std::int64_t CZorVideoDecompressor::SImpl::CopyFields(CKorVideoPacket* frame,
                                                      const AVFrame* picture) {
    CKorVideoPacket* source = nullptr;
    std::int64_t index = picture->pts;
    if (index != AV_NOPTS_VALUE && index >= 0) {
        SInFlight& slot = m_InFlight[static_cast<size_t>(index % kInFlight)];
        if (slot.m_Index == index) {
            source = slot.m_pPacket;
            slot = SInFlight{};
        }
    }
    if (!source) {
        // A codec that does not carry the packet's stamp through: the latest packet is the best
        // guess, and it stays in flight for its own picture.
        index = m_NextIndex - 1;
        const SInFlight& latest = m_InFlight[static_cast<size_t>(index % kInFlight)];
        if (index < 0 || !latest.m_pPacket) {
            return -1;
        }
        source = latest.m_pPacket;
        source->AddRef();
    }
    frame->SetTimeStamp(static_cast<std::uint32_t>(source->GetTimeStamp()));
    frame->SetTimeStampValid(source->IsTimeStampValid());
    frame->SetRealTimeStamp(source->GetRealTimeStamp());
    frame->SetStreamNo(source->GetStreamNo());
    frame->SetReceivedTime(source->GetReceivedTime());
    for (int i = 0, number = 0, value = 0; source->GetAttributeAt(i, &number, &value); ++i) {
        frame->SetAttribute(number, value);
    }
    if (const CKorMetadataHandler* metadata = source->GetMetadataHandler()) {
        frame->SetMetadataHandler(metadata->CloneChain(), true);
    }
    frame->SetFrameType(FrameTypeOf(picture->pict_type, source->GetFrameType()));
    source->Release();
    return index;
}

CKorVideoPacket* CZorVideoDecompressor::SImpl::Convert(const AVFrame* picture,
                                                       CKorVideoFormat* format) {
    CKorVideoPacket* frame = CZorVideoFrame::NewFrame(format);
    SBeluiBitmap luma;
    SBeluiBitmap chroma;
    CZorVideoFrame::GetPlanes(frame, &luma, &chroma);
    const AVPixelFormat target = m_Grey ? AV_PIX_FMT_GRAY8 : AV_PIX_FMT_NV12;
    m_pScaler = sws_getCachedContext(
        m_pScaler, picture->width, picture->height, static_cast<AVPixelFormat>(picture->format),
        picture->width, picture->height, target, SWS_BILINEAR, nullptr, nullptr, nullptr);
    if (!m_pScaler) {
        frame->Release();
        Fault(&m_ReportedStream,
              std::string("cannot convert pictures of sample format ") +
                  (av_get_pix_fmt_name(static_cast<AVPixelFormat>(picture->format))
                       ? av_get_pix_fmt_name(static_cast<AVPixelFormat>(picture->format))
                       : "unknown"));
        return nullptr;
    }
    // Keep the source's range: the frame's format says which it is.
    const bool fullRange = (format->Flags() & CZorVideoFrame::kFullRange) != 0;
    const int* coefficients = sws_getCoefficients(SWS_CS_DEFAULT);
    sws_setColorspaceDetails(m_pScaler, coefficients, fullRange, coefficients, fullRange, 0,
                             1 << 16, 1 << 16);
    std::uint8_t* planes[4] = {luma.m_pData, chroma.m_pData, nullptr, nullptr};
    const int strides[4] = {luma.m_Stride, chroma.m_Stride, 0, 0};
    sws_scale(m_pScaler, picture->data, picture->linesize, 0, picture->height, planes, strides);
    return frame;
}

CKorVideoPacket* CZorVideoDecompressor::SImpl::MakeFrame(const AVFrame* picture) {
    if (!CZorVideoFrame::IsValidSize(picture->width, picture->height)) {
        Fault(&m_ReportedStream, "picture of unusable size " + std::to_string(picture->width) +
                                     "x" + std::to_string(picture->height));
        return nullptr;
    }
    if (picture->decode_error_flags != 0 || (picture->flags & AV_FRAME_FLAG_CORRUPT) != 0) {
        Fault(&m_ReportedStream, "corrupt picture in the " +
                                     std::string(avcodec_get_name(m_CodecId)) +
                                     " stream (concealed)");
    }
    const bool fullRange =
        picture->color_range == AVCOL_RANGE_JPEG || picture->format == AV_PIX_FMT_YUVJ420P ||
        picture->format == AV_PIX_FMT_YUVJ422P || picture->format == AV_PIX_FMT_YUVJ444P;
    CKorVideoFormat* format = FormatFor(picture->width, picture->height, m_Grey, fullRange);

    auto* lent = picture->buf[0] && !picture->buf[1]
                     ? static_cast<CKorVideoPacket*>(av_buffer_get_opaque(picture->buf[0]))
                     : nullptr;
    if (!lent || !IsDirectFormat(picture->format) || !LentBuffers().Contains(lent)) {
        return Convert(picture, format);
    }
    if (lent->GetBitmapFormat()) {
        // The codec gives the same picture out again: the first frame is downstream already and
        // must not change under its readers.
        return CopyOf(lent);
    }
    lent->AddRef();
    if (!m_Grey) {
        // The NV12 chroma area lies beyond the codec's planes: the codec neither reads nor
        // writes it, even while its threads decode other pictures from this one.
        BYTE* nv12 = lent->GetData() + lent->GetPlaneOffset(1);
        const int stride = lent->GetPlaneStride(1);
        const int pairs = (picture->width + 1) / 2;
        const int rows = (picture->height + 1) / 2;
        for (int y = 0; y < rows; ++y) {
            BYTE* row = nv12 + static_cast<std::ptrdiff_t>(y) * stride;
            if (picture->format == AV_PIX_FMT_GRAY8) {
                std::memset(row, 128, 2 * static_cast<size_t>(pairs));
            } else {
                ZorInterleaveChromaRow(picture->data[1] + y * picture->linesize[1],
                                       picture->data[2] + y * picture->linesize[2], row, pairs);
            }
        }
    }
    lent->SetBitmapFormat(format);
    ++m_Direct;
    return lent;
}

CKorVideoPacket* CZorVideoDecompressor::SImpl::CopyOf(const CKorVideoPacket* given) {
    CKorVideoPacket* frame = CZorVideoFrame::NewFrameLike(given);
    SBeluiBitmap from[2];
    SBeluiBitmap to[2];
    CZorVideoFrame::GetPlanes(given, &from[0], &from[1]);
    CZorVideoFrame::GetPlanes(frame, &to[0], &to[1]);
    for (int plane = 0; plane < 2; ++plane) {
        for (int y = 0; y < from[plane].m_Height; ++y) {
            std::memcpy(to[plane].Row(y), from[plane].Row(y),
                        static_cast<size_t>(from[plane].m_Width));
        }
    }
    return frame;
}

void CZorVideoDecompressor::SImpl::Receive() {
    for (;;) {
        const int result = avcodec_receive_frame(m_pContext, m_pFrame);
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) {
            return;
        }
        if (result < 0) {
            Fault(&m_ReportedStream, "the " + std::string(avcodec_get_name(m_CodecId)) +
                                         " decoder failed (" + AvError(result) + ")");
            return;
        }
        CKorVideoPacket* frame = MakeFrame(m_pFrame);
        if (frame) {
            m_Queue.push_back(SDecoded{frame, CopyFields(frame, m_pFrame)});
            ++m_Frames;
        }
        av_frame_unref(m_pFrame);
    }
}

// ---------------------------------------------------------------------------------------------

CZorVideoDecompressor::CZorVideoDecompressor(int outputKind)
    : m_OutputKind(outputKind), m_p(std::make_unique<SImpl>()) {
    if (outputKind != OUTPUT_PLANAR) {
        BelDisplayAssert("outputKind == OUTPUT_PLANAR", __FILE__, __LINE__);
    }
    QuietCodecLog();
}

CZorVideoDecompressor::~CZorVideoDecompressor() = default;

bool CZorVideoDecompressor::SendPacket(const CKorVideoPacket* input) {
    if (!input) {
        BelDisplayAssert("input != 0", __FILE__, __LINE__);
        return false;
    }
    const std::int64_t index = m_p->m_NextIndex++; // every packet has one, decoded or not
    if (CZorVideoFrame::IsFrame(input)) {
        const_cast<CKorVideoPacket*>(input)->AddRef();
        m_p->m_Queue.push_back(SImpl::SDecoded{const_cast<CKorVideoPacket*>(input), index});
        return true;
    }
    if (!m_p->EnsureDecoder(input)) {
        return false;
    }
    const unsigned long size = input->GetDataSize();
    if (size == 0 || size > static_cast<unsigned long>(INT32_MAX - AV_INPUT_BUFFER_PADDING_SIZE)) {
        return true; // nothing to decode; an empty packet would end the stream for the codec
    }
    // The codec needs zeroed padding after the data; a packet's payload has none to spare.
    AVPacket* packet = m_p->m_pPacket;
    if (av_new_packet(packet, static_cast<int>(size)) < 0) {
        m_p->Fault(&m_p->m_ReportedStream, "out of memory for a compressed packet");
        return false;
    }
    std::memcpy(packet->data, input->GetData(), size);
    packet->pts = index;
    if (input->GetFrameType() == CKorVideoPacket::I_FRAME) {
        packet->flags |= AV_PKT_FLAG_KEY;
    }
    SImpl::SInFlight& slot = m_p->m_InFlight[static_cast<size_t>(index % kInFlight)];
    if (slot.m_pPacket) {
        slot.m_pPacket->Release(); // its picture never came: the codec dropped it
    }
    const_cast<CKorVideoPacket*>(input)->AddRef();
    slot = SImpl::SInFlight{index, const_cast<CKorVideoPacket*>(input)};

    int result = avcodec_send_packet(m_p->m_pContext, packet);
    if (result == AVERROR(EAGAIN)) {
        m_p->Receive();
        result = avcodec_send_packet(m_p->m_pContext, packet);
    }
    av_packet_unref(packet);
    if (result < 0) {
        if (slot.m_Index == index && slot.m_pPacket) {
            slot.m_pPacket->Release();
            slot = SImpl::SInFlight{};
        }
        m_p->Fault(&m_p->m_ReportedStream,
                   "undecodable " + std::string(avcodec_get_name(m_p->m_CodecId)) + " packet at " +
                       std::to_string(input->GetTimeStamp()) + " ms (" + AvError(result) + ")");
        m_p->Receive();
        return false;
    }
    m_p->Receive();
    return true;
}

CKorVideoPacket* CZorVideoDecompressor::Decompress(const CKorVideoPacket* input, bool* produced) {
    SendPacket(input);
    CKorVideoPacket* frame = TakeFrame();
    if (produced) {
        *produced = frame != nullptr;
    }
    return frame;
}

CKorVideoPacket* CZorVideoDecompressor::TakeFrame(std::int64_t* inputIndex) {
    if (m_p->m_Queue.empty()) {
        return nullptr;
    }
    const SImpl::SDecoded decoded = m_p->m_Queue.front();
    m_p->m_Queue.pop_front();
    if (inputIndex) {
        *inputIndex = decoded.m_Index;
    }
    return decoded.m_pFrame;
}

std::int64_t CZorVideoDecompressor::NextInputIndex() const {
    return m_p->m_NextIndex;
}

int CZorVideoDecompressor::QueuedFrames() const {
    return static_cast<int>(m_p->m_Queue.size());
}

void CZorVideoDecompressor::Drain() {
    if (!m_p->m_pContext) {
        return;
    }
    if (avcodec_send_packet(m_p->m_pContext, nullptr) >= 0) {
        m_p->Receive();
    }
    avcodec_flush_buffers(m_p->m_pContext);
    m_p->ReleaseInFlight();
}

void CZorVideoDecompressor::NewSequence() {
    if (m_p->m_pContext) {
        avcodec_flush_buffers(m_p->m_pContext);
    }
    m_p->ReleaseInFlight();
    m_p->ReleaseQueue();
}

void CZorVideoDecompressor::SetThreadCount(int threads) {
    threads = threads < 0 ? 1 : threads;
    if (threads != m_p->m_Threads) {
        m_p->m_Threads = threads;
        m_p->m_Reopen = true;
    }
}

int CZorVideoDecompressor::GetThreadCount() const {
    return m_p->m_Threads;
}

void CZorVideoDecompressor::SetGreyOutput(bool grey) {
    if (grey != m_p->m_Grey) {
        m_p->m_Grey = grey;
        m_p->m_Reopen = true;
    }
}

bool CZorVideoDecompressor::IsGreyOutput() const {
    return m_p->m_Grey;
}

const char* CZorVideoDecompressor::CodecName() const {
    return m_p->m_pContext ? avcodec_get_name(m_p->m_CodecId) : "";
}

CKorVideoFormat* CZorVideoDecompressor::OutputFormat() const {
    return m_p->m_pOutputFormat;
}

long CZorVideoDecompressor::FramesDecoded() const {
    return m_p->m_Frames;
}

long CZorVideoDecompressor::ErrorCount() const {
    return m_p->m_Errors;
}

void CZorVideoDecompressor::QuietCodecLog() {
    static std::once_flag once;
    std::call_once(once, [] { av_log_set_level(AV_LOG_QUIET); });
}

long CZorVideoDecompressor::DirectFrames() const {
    return m_p->m_Direct;
}
