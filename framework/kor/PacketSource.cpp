#include "framework/kor/PacketSource.h"

#include "framework/kor/Packet.h"

#include <bit>
#include <cstring>

namespace {

// Pools outlive everything that could release a packet into them.
CKorPacketPool& PoolOfKind(int kind) {
    static CKorPacketPool* audio = new CKorPacketPool(CKorPacket::KIND_AUDIO);
    static CKorPacketPool* video = new CKorPacketPool(CKorPacket::KIND_VIDEO);
    static CKorPacketPool* data = new CKorPacketPool(CKorPacket::KIND_DATA);
    static CKorPacketPool* trellum = new CKorPacketPool(CKorPacket::KIND_TRELLUM);
    switch (kind) {
    case CKorPacket::KIND_AUDIO:
        return *audio;
    case CKorPacket::KIND_VIDEO:
        return *video;
    case CKorPacket::KIND_TRELLUM:
        return *trellum;
    default:
        return *data;
    }
}

template <typename TPacket>
TPacket* TakeWithData(CKorPacketPool& pool, const void* data, long size) {
    const unsigned long bytes = size > 0 ? static_cast<unsigned long>(size) : 0;
    auto* packet = static_cast<TPacket*>(pool.Take(bytes));
    if (data && bytes > 0) {
        std::memcpy(packet->GetData(), data, bytes);
        packet->SetDataSize(bytes);
    }
    return packet;
}

} // namespace

CKorAudioPacketSource g_AudioPacketSource;
CKorVideoPacketSource g_VideoPacketSource;
CKorDataPacketSource g_DataPacketSource;
CKorAudioFormatMgr g_AudioFormatMgr;

CKorPacketPool::CKorPacketPool(int kind) : m_Kind(kind) {}

int CKorPacketPool::BucketOf(unsigned long capacity) {
    const unsigned long rounded = std::bit_ceil(capacity < 64 ? 64UL : capacity);
    return std::countr_zero(rounded);
}

CKorPacket* CKorPacketPool::MakePacket() const {
    switch (m_Kind) {
    case CKorPacket::KIND_AUDIO:
        return new CKorAudioPacket;
    case CKorPacket::KIND_VIDEO:
        return new CKorVideoPacket;
    case CKorPacket::KIND_TRELLUM:
        return new CKorTrellumPacket;
    default:
        return new CKorDataPacket;
    }
}

CKorPacket* CKorPacketPool::Take(unsigned long capacity) {
    const int bucket = BucketOf(capacity);
    CKorPacket* packet = nullptr;
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        std::vector<CKorPacket*>& idle = m_Idle[static_cast<size_t>(bucket)];
        if (!idle.empty()) {
            packet = idle.back();
            idle.pop_back();
        } else {
            m_Allocations += 2;
        }
    }
    if (!packet) {
        packet = MakePacket();
        packet->m_pPool = this;
        packet->m_pBuffer = new BYTE[1UL << bucket];
    }
    packet->m_Capacity = capacity;
    return packet;
}

void CKorPacketPool::Recycle(CKorPacket* packet) {
    packet->Reset();
    const int bucket = BucketOf(packet->m_Capacity);
    std::lock_guard<std::mutex> lock(m_Mutex);
    m_Idle[static_cast<size_t>(bucket)].push_back(packet);
}

void CKorPacketPool::Trim() {
    std::array<std::vector<CKorPacket*>, kBuckets> idle;
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        idle.swap(m_Idle);
    }
    for (auto& bucket : idle) {
        for (CKorPacket* packet : bucket) {
            packet->m_pPool = nullptr;
            packet->Release();
        }
    }
}

long CKorPacketPool::Allocations() const {
    std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Allocations;
}

CKorAudioPacket* CKorAudioPacketSource::NewPacket(long size) {
    return TakeWithData<CKorAudioPacket>(Pool(), nullptr, size);
}

CKorAudioPacket* CKorAudioPacketSource::NewPacket(const void* data, long size, long) {
    return TakeWithData<CKorAudioPacket>(Pool(), data, size);
}

CKorPacketPool& CKorAudioPacketSource::Pool() {
    return PoolOfKind(CKorPacket::KIND_AUDIO);
}

CKorVideoPacket* CKorVideoPacketSource::NewPacket(long size) {
    return TakeWithData<CKorVideoPacket>(Pool(), nullptr, size);
}

CKorVideoPacket* CKorVideoPacketSource::NewPacket(const void* data, long size, long) {
    return TakeWithData<CKorVideoPacket>(Pool(), data, size);
}

CKorPacketPool& CKorVideoPacketSource::Pool() {
    return PoolOfKind(CKorPacket::KIND_VIDEO);
}

CKorDataPacket* CKorDataPacketSource::NewPacket(long size) {
    return TakeWithData<CKorDataPacket>(Pool(), nullptr, size);
}

CKorDataPacket* CKorDataPacketSource::NewPacket(const void* data, long size, long) {
    return TakeWithData<CKorDataPacket>(Pool(), data, size);
}

CKorTrellumPacket* CKorDataPacketSource::NewTrellumPacket(const void* data, long size,
                                                          int packetType) {
    auto* packet =
        TakeWithData<CKorTrellumPacket>(PoolOfKind(CKorPacket::KIND_TRELLUM), data, size);
    packet->SetPacketType(packetType);
    return packet;
}

CKorPacketPool& CKorDataPacketSource::Pool() {
    return PoolOfKind(CKorPacket::KIND_DATA);
}

namespace {

struct SKnownAudioFormat {
    unsigned m_SubMediaId;
    WAVEFORMATEX m_Format;
    WORD m_Extra; // samples per block, for the formats that carry one
};

// clang-format off
constexpr SKnownAudioFormat kKnownAudioFormats[] = {
    {1,  {1, 1, 8000, 16000, 2, 16, 0}, 0},
    {2,  {1, 1, 16000, 32000, 2, 16, 0}, 0},
    {3,  {1, 2, 44100, 176400, 4, 16, 0}, 0},
    {6,  {6, 1, 8000, 8000, 1, 8, 0}, 0},
    {7,  {7, 1, 8000, 8000, 1, 8, 0}, 0},
    {16, {666, 1, 8000, 2000, 4, 2, 2}, 16},
    {24, {666, 1, 8000, 3000, 12, 3, 2}, 32},
    {32, {666, 1, 8000, 4000, 4, 4, 2}, 8},
    {40, {666, 1, 8000, 5000, 5, 5, 0}, 0},
    {17, {0x11, 1, 8000, 4055, 256, 4, 2}, 505},
};
// clang-format on

} // namespace

const WAVEFORMATEX* CKorAudioFormatMgr::GrabFormatEXBySubMID(unsigned subMediaId,
                                                             long& size) const {
    for (const SKnownAudioFormat& known : kKnownAudioFormats) {
        if (known.m_SubMediaId == subMediaId) {
            size = static_cast<long>(sizeof(WAVEFORMATEX) + known.m_Format.cbSize);
            // The record and its extra word sit next to each other, as on the wire.
            static_assert(offsetof(SKnownAudioFormat, m_Extra) == 4 + sizeof(WAVEFORMATEX));
            return &known.m_Format;
        }
    }
    size = 0;
    return nullptr;
}
