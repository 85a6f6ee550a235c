// Pooled packet sources. A pool keeps released packets with their payload buffers and hands them
// out again, so a steady stream of packets allocates nothing once the pool has warmed up.
// Pools live for the whole process: packets may be released during static destruction.
#pragma once

#include "framework/bel/WinTypes.h"

#include <array>
#include <mutex>
#include <vector>

class CKorPacket;
class CKorAudioPacket;
class CKorVideoPacket;
class CKorDataPacket;
class CKorTrellumPacket;

class CKorPacketPool {
public:
    explicit CKorPacketPool(int kind);
    // A packet of the pool's kind with one reference, in its new state, whose payload holds at
    // least capacity bytes (GetCapacity answers capacity).
    CKorPacket* Take(unsigned long capacity);
    // Called by a packet whose last reference went.
    void Recycle(CKorPacket* packet);
    // Frees the idle packets.
    void Trim();
    // Packets and buffers allocated so far (the pool's own heap traffic).
    long Allocations() const;

private:
    static constexpr int kBuckets = 32;
    static int BucketOf(unsigned long capacity);
    CKorPacket* MakePacket() const;

    const int m_Kind;
    mutable std::mutex m_Mutex;
    std::array<std::vector<CKorPacket*>, kBuckets> m_Idle;
    long m_Allocations = 0;
};

class CKorAudioPacketSource {
public:
    // A new audio packet with a payload of size bytes and data size 0.
    CKorAudioPacket* NewPacket(long size);
    // A new audio packet holding a copy of size bytes of data (data size = size).
    CKorAudioPacket* NewPacket(const void* data, long size, long flags);
    CKorPacketPool& Pool();
};

class CKorVideoPacketSource {
public:
    CKorVideoPacket* NewPacket(long size);
    CKorVideoPacket* NewPacket(const void* data, long size, long flags);
    CKorPacketPool& Pool();
};

class CKorDataPacketSource {
public:
    CKorDataPacket* NewPacket(long size);
    CKorDataPacket* NewPacket(const void* data, long size, long flags);
    CKorTrellumPacket* NewTrellumPacket(const void* data, long size, int packetType);
    CKorPacketPool& Pool();
};

extern CKorAudioPacketSource g_AudioPacketSource;
extern CKorVideoPacketSource g_VideoPacketSource;
extern CKorDataPacketSource g_DataPacketSource;

// Maps an audio sub-media identifier to a format record. The identifiers are this system's own:
//   1 = PCM 8 kHz 16-bit mono,  2 = PCM 16 kHz 16-bit mono,  3 = PCM 44.1 kHz 16-bit stereo,
//   6 = G.711 A-law 8 kHz,      7 = G.711 mu-law 8 kHz,
//   16, 24, 32, 40 = G.726 at that many kbit/s (tag 666),  17 = IMA ADPCM 8 kHz 4-bit.
class CKorAudioFormatMgr {
public:
    // Answers the shared record (borrowed, never freed) and its size in bytes with the extra
    // bytes, or nullptr and size 0 for an unknown identifier.
    const WAVEFORMATEX* GrabFormatEXBySubMID(unsigned subMediaId, long& size) const;
};

extern CKorAudioFormatMgr g_AudioFormatMgr;
