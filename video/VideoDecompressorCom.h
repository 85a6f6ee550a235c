// The video decompressor component: compressed video packets in, planar frame packets out
// (video/VideoFrame.h), each frame stamped with the timestamp, validity and motion level of the
// packet that carried its picture. Every other packet goes on in order with the frames.
//
//   local dec = zor.CreateVideoDecompressor{ dataPath = "video" }
//   dec.threads = 2        -- decoder threads (default 1; 0: one per core)
//   dec.grey = true        -- luma-only frames for grey consumers
//   print(dec.codec, dec.width, dec.height, dec.frames, dec.errors)
//
// Invariants:
//  - A video packet with an invalid timestamp, and a time-base packet without the continuous
//    flag, start a new sequence: pictures the codec still holds back come out first, then the
//    codec forgets the old sequence. A time-base packet marking the end of a sequence lets the
//    held-back pictures out before it goes on.
//  - Decoded frames wait in the pending list, oldest first, until downstream takes them; while
//    any waits, new packets are refused untouched. Poll drains the list before asking upstream.
//  - A compressed packet is consumed: it goes on as its frame (or as nothing, when it could not
//    be decoded; the fault is reported once per stream through BelDump).
#pragma once

#include "entry/ZorExport.h"
#include "framework/kor/Module.h"
#include "framework/kor/PacketChainer.h"
#include "framework/kor/PinComponent.h"
#include "video/VideoDecompressor.h"

#include <memory>

class CJokCommandContext;
class CJokPropertyEnum;
template <class T> class CJokPropertyMap;

class ZOR_EXPORT CZorVideoDecompressorModule : public CKorModule, public CZorVideoDecompressor {
public:
    explicit CZorVideoDecompressorModule(const char* name = "VideoDecompressor");
    ~CZorVideoDecompressorModule() override;

    // Takes one reference on success (non-zero); see the file comment for the refusal rule.
    int Receive(CKorPacket* packet) override;
    void Poll() override;
    // Releases the pending list, forgets the sequence, then flushes downstream.
    void Flush() override;

    int PendingCount() const { return m_Pending.Count(); }

private:
    // Moves decoded frames to the pending list.
    void CollectFrames();

    CKorPacketChainer m_Pending;
};

class CZorVideoDecompressorCom final : public CKor2PinComponent {
public:
    explicit CZorVideoDecompressorCom(const char* dataPath);
    ~CZorVideoDecompressorCom() override;

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;
    // The decompressor module of the component's path (made on first request); nullptr for any
    // other path.
    CKorModule* CreateContext(const char* path) override;

    int ThreadsHandler(double* value, int set);
    int GreyHandler(int* value, int set);
    int CodecHandler(CBelString* value, int set);
    int WidthHandler(double* value, int set);
    int HeightHandler(double* value, int set);
    int FramesHandler(double* value, int set);
    int ErrorsHandler(double* value, int set);

    CZorVideoDecompressorModule* Module() { return m_pModule; } // borrowed

private:
    static const CJokPropertyMap<CZorVideoDecompressorCom>& PropertyMap();

    // The module until a path takes it (the component's bus owns it from then on).
    std::unique_ptr<CZorVideoDecompressorModule> m_pOwned;
    CZorVideoDecompressorModule* m_pModule;
};

// "CreateVideoDecompressor": optional "dataPath" (default "video").
int CreateVideoDecompressor(CJokCommandContext* context);
