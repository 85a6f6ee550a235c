// libFuzzer harness over the compressed-packet path: arbitrary bytes are cut into packets by
// libavcodec's parser for one of the codecs cameras send (the first byte chooses it and the
// decoder's settings), then decoded by CZorVideoDecompressor, and every frame that comes out is
// read through its plane descriptors and measured against the one before, as the motion-level
// stamper does. Nothing may crash, leak or read outside a buffer.
#include "framework/bel/BelDiagnostics.h"
#include "framework/kor/Packet.h"
#include "framework/kor/PacketSource.h"
#include "video/VideoDecompressor.h"
#include "video/VideoFrame.h"
#include "video/core/MotionLevel.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <cstddef>
#include <cstdint>

namespace {

struct SCodec {
    DWORD m_FourCC;
    AVCodecID m_Id;
};

constexpr SCodec kCodecs[] = {
    {MakeFourCC('H', '2', '6', '4'), AV_CODEC_ID_H264},
    {MakeFourCC('H', 'E', 'V', 'C'), AV_CODEC_ID_HEVC},
    {MakeFourCC('M', 'J', 'P', 'G'), AV_CODEC_ID_MJPEG},
    {MakeFourCC('F', 'M', 'P', '4'), AV_CODEC_ID_MPEG4},
    {MakeFourCC('m', 'p', 'g', '2'), AV_CODEC_ID_MPEG2VIDEO},
    {MakeFourCC('H', '2', '6', '3'), AV_CODEC_ID_H263},
};
constexpr std::size_t kCodecCount = sizeof(kCodecs) / sizeof(kCodecs[0]);

// The decoder's once-per-stream reports would be one line per input here: dropped.
class CSilentSink : public IBelDiagnosticSink {
public:
    void Write(const SBelDiagnostic&) override {}
};

// Reads and measures every frame the decoder has given out.
void TakeFrames(CZorVideoDecompressor& decoder, CKorVideoPacket*& previous) {
    while (CKorVideoPacket* frame = decoder.TakeFrame()) {
        SBeluiBitmap luma;
        SBeluiBitmap chroma;
        if (!CZorVideoFrame::GetPlanes(frame, &luma, &chroma)) {
            __builtin_trap(); // the decoder gave out something that is not a frame
        }
        SBeluiBitmap before;
        if (previous && CZorVideoFrame::GetPlanes(previous, &before, nullptr)) {
            ZorMeasureMotion(luma, before, SZorMotionSettings{});
        }
        if (previous) {
            previous->Release();
        }
        previous = frame;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) {
        return 0;
    }
    static CSilentSink silent;
    static IBelDiagnosticSink* const stderrSink = BelSetDiagnosticSink(&silent);
    (void)stderrSink;
    CZorVideoDecompressor::QuietCodecLog();
    const SCodec& codec = kCodecs[data[0] % kCodecCount];
    const unsigned settings = data[0] / kCodecCount;
    ++data;
    --size;

    CZorVideoDecompressor decoder;
    decoder.SetGreyOutput((settings & 1) != 0);
    decoder.SetThreadCount((settings & 2) != 0 ? 2 : 1);
    const BITMAPINFOHEADER header{40, 0, 0, 1, 24, codec.m_FourCC, 0, 0, 0, 0, 0};
    CKorVideoFormat* format = CKorVideoPacket::GetVideoFormat(&header, 1, 0);

    AVCodecParserContext* parser = av_parser_init(codec.m_Id);
    AVCodecContext* context = avcodec_alloc_context3(nullptr);
    CKorVideoPacket* previous = nullptr;
    std::uint32_t time = 0;
    bool more = parser && context;
    while (more) {
        // The input, then an empty call that gives out the parser's last packet.
        std::uint8_t* out = nullptr;
        int outSize = 0;
        const int used =
            av_parser_parse2(parser, context, &out, &outSize, data, static_cast<int>(size),
                             AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
        more = size > 0 && used > 0;
        if (more) {
            data += used;
            size -= static_cast<std::size_t>(used);
        }
        if (outSize > 0) {
            CKorVideoPacket* packet = g_VideoPacketSource.NewPacket(out, outSize, 0);
            packet->SetBitmapFormat(format);
            packet->SetTimeStamp(time += 40);
            packet->SetTimeStampValid((settings & 4) == 0 || time % 400 != 0);
            if (!packet->IsTimeStampValid()) {
                decoder.NewSequence();
            }
            decoder.SendPacket(packet);
            packet->Release();
            TakeFrames(decoder, previous);
        }
    }
    decoder.Drain();
    TakeFrames(decoder, previous);
    if (previous) {
        previous->Release();
    }
    av_parser_close(parser);
    avcodec_free_context(&context);
    CKorVideoPacket::ReleaseVideoFormat(format);
    // The pool keeps idle payloads of every size a damaged stream announced: freed, so that the
    // fuzzer's memory shows only what an input really keeps.
    CKorVideoPacket::CleanupPackets();
    return 0;
}
