// The motion-level stamper ("CreateVideoFilter"): stamps attribute 1, the motion level the
// filters read as "VMDLEVEL", on every compressed video packet, measured on the decoded picture
// the way a camera's encoder measures it (video/core/MotionLevel.h: the share of macroblocks
// whose luma changed beyond the noise floor since the previous picture, as a small integer).
// Packets go on otherwise unchanged and in order; frame packets are measured and stamped too.
//
//   local vf = zor.CreateVideoFilter{}
//   zor.connect("video", source, vf, vmd)    -- put it before any fan-out: it stamps in place
//   vf.noiseFloor = 12; vf.scale = 40
//   vf.region = { 0, 176, 352, 64 }           -- x, y, width, height; {} for the whole picture
//   print(vf.level, vf.stamped)
//
// Invariants:
//  - It decodes on its own, luma only, with its own decoder; compressed packets are held only
//    until their picture is decoded (not at all without reordering or decoder threads), so
//    packets leave in the order they came.
//  - The first picture of a sequence, and one whose size differs from the previous picture's,
//    gets level 0. A packet whose picture never comes (undecodable) goes on unstamped.
//  - A video packet with an invalid timestamp, and a time-base packet without its continuous
//    flag, start a new sequence; held packets are measured and sent first.
//  - Stamped packets that downstream refuses wait in the pending list; while any waits, new
//    packets are refused untouched.
#pragma once

#include "entry/ZorExport.h"
#include "framework/kor/Module.h"
#include "framework/kor/PacketChainer.h"
#include "framework/kor/PinComponent.h"
#include "video/VideoDecompressor.h"
#include "video/core/MotionLevel.h"

#include <cstdint>
#include <deque>
#include <memory>

class CJokPropertyEnum;
template <class T> class CJokPropertyMap;

class ZOR_EXPORT CZorMotionLevelStamper : public CKorModule {
public:
    explicit CZorMotionLevelStamper(const char* name = "MotionLevelStamper");
    ~CZorMotionLevelStamper() override;

    // Takes one reference on success (non-zero); see the file comment for the refusal rule.
    int Receive(CKorPacket* packet) override;
    void Poll() override;
    // Releases held and pending packets, forgets the sequence, then flushes downstream.
    void Flush() override;

    SZorMotionSettings& Settings() { return m_Settings; }
    // The part of the picture measured, like a camera's motion window: x, y, width, height in
    // picture samples, clipped to the picture; a width of 0 measures the whole picture.
    struct SRegion {
        int m_X = 0;
        int m_Y = 0;
        int m_Width = 0;
        int m_Height = 0;
    };
    SRegion& Region() { return m_Region; }
    CZorVideoDecompressor& Decoder() { return m_Decoder; }
    // The last level stamped (-1 before the first).
    int LastLevel() const { return m_LastLevel; }
    long StampedCount() const { return m_Stamped; }
    int HeldCount() const { return static_cast<int>(m_Held.size()); }

private:
    // A packet waiting for its level (or, for packets that get none, for those before it).
    struct SHeld {
        CKorPacket* m_pPacket = nullptr; // one reference
        std::int64_t m_Index = -1;       // the decoder's input index; -1 when it gets no level
    };

    // Measures one decoded picture against the previous one; takes the frame's reference.
    int MeasureFrame(CKorVideoPacket* frame);
    void TakeDecodedFrames();
    // Moves held packets that are done to the pending list, oldest first.
    void ReleaseDone(bool all);
    void EndSequence();

    CZorVideoDecompressor m_Decoder;
    SZorMotionSettings m_Settings;
    SRegion m_Region;
    CKorVideoPacket* m_pPrevious = nullptr; // the last picture measured, one reference
    std::deque<SHeld> m_Held;
    CKorPacketChainer m_Pending;
    int m_LastLevel = -1;
    long m_Stamped = 0;
};

class CVideoFilterCom final : public CKor2PinComponent {
public:
    CVideoFilterCom();
    ~CVideoFilterCom() override;

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;
    // The stamper module of the first path asked for; nullptr for any other path.
    CKorModule* CreateContext(const char* path) override;

    int NoiseFloorHandler(double* value, int set);
    int ScaleHandler(double* value, int set);
    int RegionHandler(CJokGenericData** value, int set);
    int ThreadsHandler(double* value, int set);
    int LevelHandler(double* value, int set);
    int StampedHandler(double* value, int set);

    CZorMotionLevelStamper* Module() { return m_pModule; } // borrowed

private:
    static const CJokPropertyMap<CVideoFilterCom>& PropertyMap();

    std::unique_ptr<CZorMotionLevelStamper> m_pOwned; // until a path takes it
    CZorMotionLevelStamper* m_pModule;
};
