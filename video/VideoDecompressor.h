// CZorVideoDecompressor: decodes compressed video packets into planar frame packets with
// libavcodec. It is the engine of the "CreateVideoDecompressor" component and the base of every
// processor that works on decoded pictures (the object tracker derives from it).
//
//   CZorVideoDecompressor decoder(CZorVideoDecompressor::OUTPUT_PLANAR);
//   decoder.SetGreyOutput(true);                  // luma only: nothing is spent on chroma
//   bool produced = false;
//   CKorVideoPacket* frame = decoder.Decompress(packet, &produced);
//   if (produced) { ... CZorVideoFrame::GetPlanes(frame, &luma, nullptr) ...; frame->Release(); }
//
// Invariants:
//  - Output kind 5 gives planar frames (video/VideoFrame.h): NV12, or Y800 with grey output.
//  - The codec follows the compression FOURCC of the input's format record; the decoder is
//    opened again only when a new format sequence number brings another codec or other set-up
//    data, or when the thread count or output kind was changed.
//  - Each frame carries the timestamp and its validity, the real timestamp, the stream number,
//    the attributes (1: the motion level) and a copy of the metadata of the compressed packet
//    that carried its picture, even where the codec reorders pictures or threads delay them.
//    Its frame type is the decoded picture's.
//  - Frames of one size and kind share a format record; its sequence number changes when the
//    decoded size or kind changes, and only then, so a consumer rebuilds its buffers exactly
//    when the number it stored differs.
//  - Pictures of the common 4:2:0 codecs are decoded straight into pooled packet payloads and
//    handed on without a copy (only the chroma is interleaved for NV12); other sample formats
//    are converted into a new frame.
//  - Bad input never crashes or leaks: an undecodable or corrupt packet, an unknown codec or a
//    missing format gives no frame (or the decoder's concealed picture) and one BelDump line
//    per opened decoder; later faults are only counted (ErrorCount).
//  - Not thread-safe: one thread feeds it (the decoder's own threads are internal).
#pragma once

#include "entry/ZorExport.h"

#include <cstdint>
#include <memory>

class CKorVideoFormat;
class CKorVideoPacket;

class ZOR_EXPORT CZorVideoDecompressor {
public:
    // Output kinds. 5: planar frame packets (video/VideoFrame.h).
    enum EOutputKind { OUTPUT_PLANAR = 5 };

    explicit CZorVideoDecompressor(int outputKind = OUTPUT_PLANAR);
    virtual ~CZorVideoDecompressor();
    CZorVideoDecompressor(const CZorVideoDecompressor&) = delete;
    CZorVideoDecompressor& operator=(const CZorVideoDecompressor&) = delete;

    // Decodes one compressed packet (borrowed) and answers the next frame (one reference for the
    // caller) with *produced true; or nullptr with *produced false when there is no picture to
    // give yet (the codec holds it back, or the packet could not be decoded). A frame packet
    // given as input comes back as it is (one more reference). Frames beyond the first that one
    // packet yields wait for the next call or for TakeFrame.
    CKorVideoPacket* Decompress(const CKorVideoPacket* input, bool* produced);
    // Decodes one packet (borrowed), queueing every frame it yields for TakeFrame. Answers false
    // when the packet could not be decoded.
    bool SendPacket(const CKorVideoPacket* input);
    // The oldest queued frame (one reference for the caller), or nullptr. inputIndex, when given,
    // receives the input index of the packet that carried its picture.
    CKorVideoPacket* TakeFrame(std::int64_t* inputIndex = nullptr);
    // The input index the next packet given to SendPacket gets: packets are numbered from 0 in
    // the order they are sent, so a caller can tell which packet a frame came from.
    std::int64_t NextInputIndex() const;
    int QueuedFrames() const;
    // Ends the sequence: pictures the codec still holds back are decoded into the queue, and
    // the decoder is ready for a new sequence starting at a key frame.
    void Drain();
    // Forgets the sequence (a discontinuity): held-back pictures and queued frames are dropped,
    // and the next picture must be decodable on its own.
    virtual void NewSequence();

    // Decoder threads: 1 by default (one stream per core scales best on a recorder), 0 for one
    // per core. Frame threads add one frame of delay each. Takes effect at the next packet.
    void SetThreadCount(int threads);
    int GetThreadCount() const;
    // Grey output: Y800 frames, luma only. Takes effect at the next packet.
    void SetGreyOutput(bool grey);
    bool IsGreyOutput() const;
    int GetOutputKind() const { return m_OutputKind; }

    // The codec's name ("h264"), or "" while no decoder is open.
    const char* CodecName() const;
    // The format record of the last frame given out (borrowed), or nullptr.
    CKorVideoFormat* OutputFormat() const;
    long FramesDecoded() const;
    // Packets that could not be decoded, and pictures the codec had to conceal.
    long ErrorCount() const;
    // Frames handed on without a copy of their luma (the rest were converted).
    long DirectFrames() const;

    // Switches libavcodec's own console messages off, once per process: faults reach the
    // diagnostics through the classes that met them, once per stream, not as one console line
    // per damaged macroblock or encoder setting.
    static void QuietCodecLog();

private:
    struct SImpl;
    const int m_OutputKind;
    std::unique_ptr<SImpl> m_p;
};
