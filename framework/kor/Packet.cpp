#include "framework/kor/Packet.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/kor/Metadata.h"
#include "framework/kor/PacketSource.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <mutex>
#include <string_view>
#include <tuple>

CKorPacket::CKorPacket() = default;

CKorPacket::~CKorPacket() {
    SetMetadataHandler(nullptr, false);
    for (int i = 0; i < m_ReferenceCount; ++i) {
        m_References[i]->Release();
    }
    delete[] m_pBuffer;
}

unsigned long CKorPacket::AddRef() {
    return m_RefCount.fetch_add(1, std::memory_order_relaxed) + 1;
}

unsigned long CKorPacket::Release() {
    const unsigned long left = m_RefCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (left == 0) {
        if (m_pPool) {
            m_pPool->Recycle(this);
        } else {
            delete this;
        }
    }
    return left;
}

int CKorPacket::GetKind() const {
    return KIND_DATA;
}

CKorPacket* CKorPacket::Clone() const {
    CKorPacket* copy = g_DataPacketSource.NewPacket(static_cast<long>(m_Capacity));
    CopyCommonTo(*copy);
    return copy;
}

long CKorPacket::GetNewFormatSeqNumber() {
    static std::atomic<long> next{1};
    return next.fetch_add(1);
}

bool CKorPacket::GetAttribute(int number, int* value) const {
    for (int i = 0; i < m_AttributeCount; ++i) {
        if (m_Attributes[i].m_Number == number) {
            *value = m_Attributes[i].m_Value;
            return true;
        }
    }
    return false;
}

bool CKorPacket::GetAttributeAt(int index, int* number, int* value) const {
    if (index < 0 || index >= m_AttributeCount) {
        return false;
    }
    *number = m_Attributes[index].m_Number;
    *value = m_Attributes[index].m_Value;
    return true;
}

bool CKorPacket::SetAttribute(int number, int value) {
    for (int i = 0; i < m_AttributeCount; ++i) {
        if (m_Attributes[i].m_Number == number) {
            m_Attributes[i].m_Value = value;
            return true;
        }
    }
    if (m_AttributeCount == kMaxAttributes) {
        return false;
    }
    m_Attributes[m_AttributeCount++] = SAttribute{number, value};
    return true;
}

CKorMetadataHandler* CKorPacket::FindMetadata(DWORD type) const {
    for (CKorMetadataHandler* h = m_pMetadata; h; h = h->Next()) {
        if (h->GetType() == type) {
            return h;
        }
    }
    return nullptr;
}

void CKorPacket::SetMetadataHandler(CKorMetadataHandler* handler, bool takeOwnership) {
    if (m_pMetadata == handler) {
        m_OwnsMetadata = takeOwnership;
        return;
    }
    if (m_OwnsMetadata) {
        delete m_pMetadata;
    }
    m_pMetadata = handler;
    m_OwnsMetadata = handler && takeOwnership;
}

BYTE* CKorPacket::GetAddress(PacketSegment segment) {
    if (!m_pBuffer) {
        return nullptr;
    }
    return segment == SEGMENT_HEADER ? m_pBuffer : m_pBuffer + m_HeaderLength;
}

const BYTE* CKorPacket::GetAddress(PacketSegment segment) const {
    return const_cast<CKorPacket*>(this)->GetAddress(segment);
}

bool CKorPacket::SetDataSize(unsigned long size) {
    if (size > GetDataCapacity()) {
        return false;
    }
    m_DataSize = size;
    return true;
}

void CKorPacket::SetHeaderBufferLength(unsigned long length) {
    m_HeaderLength = std::min(length, m_Capacity);
    m_DataSize = std::min(m_DataSize, GetDataCapacity());
}

bool CKorPacket::AddReference(CKorPacket* referenced) {
    if (!referenced || m_ReferenceCount == kMaxReferences) {
        return false;
    }
    referenced->AddRef();
    m_References[m_ReferenceCount++] = referenced;
    return true;
}

CKorPacket* CKorPacket::GetReference(int index) const {
    return index >= 0 && index < m_ReferenceCount ? m_References[index] : nullptr;
}

void CKorPacket::CopyCommonTo(CKorPacket& target) const {
    target.m_TimeStamp = m_TimeStamp;
    target.m_TimeStampValid = m_TimeStampValid;
    target.m_StreamNo = m_StreamNo;
    target.m_RealTimeStamp = m_RealTimeStamp;
    target.m_FormatSeqNumber = m_FormatSeqNumber;
    target.m_ReceivedTime = m_ReceivedTime;
    target.m_AttributeCount = m_AttributeCount;
    std::copy_n(m_Attributes, m_AttributeCount, target.m_Attributes);
    if (m_pMetadata) {
        target.SetMetadataHandler(m_pMetadata->CloneChain(), true);
    }
    for (int i = 0; i < m_ReferenceCount; ++i) {
        target.AddReference(m_References[i]);
    }
    if (m_pBuffer && target.m_pBuffer && target.m_Capacity >= m_Capacity) {
        std::memcpy(target.m_pBuffer, m_pBuffer, m_HeaderLength + m_DataSize);
        target.m_HeaderLength = m_HeaderLength;
        target.m_DataSize = m_DataSize;
    }
}

void CKorPacket::Reset() {
    SetMetadataHandler(nullptr, false);
    for (int i = 0; i < m_ReferenceCount; ++i) {
        m_References[i]->Release();
        m_References[i] = nullptr;
    }
    m_ReferenceCount = 0;
    m_TimeStamp = 0;
    m_TimeStampValid = false;
    m_StreamNo = 0;
    m_RealTimeStamp = 0.0;
    m_FormatSeqNumber = 0;
    m_ReceivedTime = 0;
    m_AttributeCount = 0;
    m_HeaderLength = 0;
    m_DataSize = 0;
    m_RefCount.store(1, std::memory_order_relaxed);
}

CKorPacket* CKorDataPacket::Clone() const {
    return CKorPacket::Clone();
}

// Audio

CKorPacket* CKorAudioPacket::Clone() const {
    CKorAudioPacket* copy = g_AudioPacketSource.NewPacket(static_cast<long>(m_Capacity));
    CopyCommonTo(*copy);
    std::memcpy(copy->m_Format, m_Format, sizeof(m_Format));
    copy->m_HasFormat = m_HasFormat;
    return copy;
}

void CKorAudioPacket::SetAudioFormat(const WAVEFORMATEX* format, long formatSeqNumber) {
    if (!format) {
        m_HasFormat = false;
        return;
    }
    const size_t extra = std::min<size_t>(format->cbSize, kMaxFormatExtra);
    std::memcpy(m_Format, format, sizeof(WAVEFORMATEX) + extra);
    reinterpret_cast<WAVEFORMATEX*>(m_Format)->cbSize = static_cast<WORD>(extra);
    m_HasFormat = true;
    SetFormatSeqNumber(formatSeqNumber);
}

const WAVEFORMATEX* CKorAudioPacket::GetAudioFormat() const {
    return m_HasFormat ? reinterpret_cast<const WAVEFORMATEX*>(m_Format) : nullptr;
}

void CKorAudioPacket::Append(CKorAudioPacket* packet) {
    CKorAudioPacket* last = this;
    while (last->m_pNext) {
        last = last->m_pNext;
    }
    last->m_pNext = packet;
}

CKorAudioPacket::~CKorAudioPacket() {
    if (m_pNext) {
        m_pNext->Release();
    }
}

void CKorAudioPacket::Reset() {
    CKorPacket::Reset();
    m_HasFormat = false;
    if (m_pNext) {
        m_pNext->Release();
        m_pNext = nullptr;
    }
}

// Video

namespace {

// A format's identity: its record bytes (header and set-up data), sequence number and flags.
// The bytes are viewed, not copied: a stored key views its format's own record, a lookup key
// the caller's, so finding a shared format allocates nothing.
struct SVideoFormatKey {
    std::string_view m_Record;
    long m_Seq;
    long m_Flags;
    bool operator<(const SVideoFormatKey& other) const {
        return std::tie(m_Record, m_Seq, m_Flags) <
               std::tie(other.m_Record, other.m_Seq, other.m_Flags);
    }
};

struct SVideoFormats {
    std::mutex m_Mutex;
    std::map<SVideoFormatKey, CKorVideoFormat*> m_Formats;
};

SVideoFormats& VideoFormats() {
    static SVideoFormats* formats = new SVideoFormats; // outlives every packet
    return *formats;
}

// The set-up data size a header announces, or -1 when biSize is out of range.
long ExtraSizeOf(const BITMAPINFOHEADER& header) {
    if (header.biSize <= sizeof(BITMAPINFOHEADER)) {
        return 0; // older writers leave biSize 0 or 40
    }
    const unsigned long extra = header.biSize - sizeof(BITMAPINFOHEADER);
    return extra <= static_cast<unsigned long>(CKorVideoFormat::kMaxExtraSize)
               ? static_cast<long>(extra)
               : -1;
}

std::string_view RecordOf(const BITMAPINFOHEADER* header, long extraSize) {
    return {reinterpret_cast<const char*>(header), sizeof(BITMAPINFOHEADER) + extraSize};
}

} // namespace

CKorPacket* CKorVideoPacket::Clone() const {
    CKorVideoPacket* copy = g_VideoPacketSource.NewPacket(static_cast<long>(m_Capacity));
    CopyCommonTo(*copy);
    copy->m_FrameType = m_FrameType;
    copy->m_Layer = m_Layer;
    copy->SetBitmapFormat(m_pFormat);
    std::copy_n(m_PlaneOffset, kMaxPlanes, copy->m_PlaneOffset);
    std::copy_n(m_PlaneStride, kMaxPlanes, copy->m_PlaneStride);
    return copy;
}

bool CKorVideoPacket::SetPlane(int plane, unsigned long offset, int stride) {
    if (plane < 0 || plane >= kMaxPlanes) {
        return false;
    }
    m_PlaneOffset[plane] = offset;
    m_PlaneStride[plane] = stride;
    return true;
}

unsigned long CKorVideoPacket::GetPlaneOffset(int plane) const {
    return plane >= 0 && plane < kMaxPlanes ? m_PlaneOffset[plane] : 0;
}

int CKorVideoPacket::GetPlaneStride(int plane) const {
    return plane >= 0 && plane < kMaxPlanes ? m_PlaneStride[plane] : 0;
}

void CKorVideoPacket::SetBitmapFormat(CKorVideoFormat* format) {
    if (format == m_pFormat) {
        return;
    }
    if (format) {
        std::lock_guard<std::mutex> lock(VideoFormats().m_Mutex);
        ++format->m_RefCount;
    }
    if (m_pFormat) {
        ReleaseVideoFormat(m_pFormat);
    }
    m_pFormat = format;
    if (format) {
        SetFormatSeqNumber(format->FormatSeqNumber());
    }
}

void CKorVideoPacket::SetBitmapFormat(const BITMAPINFOHEADER* header, long formatSeqNumber,
                                      long flags) {
    CKorVideoFormat* format = GetVideoFormat(header, formatSeqNumber, flags);
    SetBitmapFormat(format);
    if (format) {
        ReleaseVideoFormat(format);
    }
}

const BITMAPINFOHEADER* CKorVideoPacket::GetBitmapInfo() const {
    return m_pFormat ? &m_pFormat->Header() : nullptr;
}

CKorVideoFormat::CKorVideoFormat(const BITMAPINFOHEADER* header, long extraSize,
                                 long formatSeqNumber, long flags)
    : m_pBytes(new BYTE[sizeof(BITMAPINFOHEADER) + extraSize]), m_ExtraSize(extraSize),
      m_FormatSeqNumber(formatSeqNumber), m_Flags(flags) {
    std::memcpy(m_pBytes.get(), header, sizeof(BITMAPINFOHEADER) + extraSize);
}

CKorVideoFormat* CKorVideoPacket::GetVideoFormat(const BITMAPINFOHEADER* header,
                                                 long formatSeqNumber, long flags) {
    if (!header) {
        return nullptr;
    }
    const long extraSize = ExtraSizeOf(*header);
    if (extraSize < 0) {
        BelDisplayAssert("header->biSize <= 40 + CKorVideoFormat::kMaxExtraSize", __FILE__,
                         __LINE__);
        return nullptr;
    }
    SVideoFormats& formats = VideoFormats();
    std::lock_guard<std::mutex> lock(formats.m_Mutex);
    const SVideoFormatKey lookup{RecordOf(header, extraSize), formatSeqNumber, flags};
    auto found = formats.m_Formats.find(lookup);
    if (found == formats.m_Formats.end()) {
        auto* format = new CKorVideoFormat(header, extraSize, formatSeqNumber, flags);
        const SVideoFormatKey key{RecordOf(&format->Header(), extraSize), formatSeqNumber, flags};
        found = formats.m_Formats.emplace(key, format).first;
    }
    ++found->second->m_RefCount;
    return found->second;
}

void CKorVideoPacket::ReleaseVideoFormat(CKorVideoFormat* format) {
    if (!format) {
        return;
    }
    SVideoFormats& formats = VideoFormats();
    std::lock_guard<std::mutex> lock(formats.m_Mutex);
    if (--format->m_RefCount > 0) {
        return;
    }
    formats.m_Formats.erase(SVideoFormatKey{RecordOf(&format->Header(), format->m_ExtraSize),
                                            format->m_FormatSeqNumber, format->m_Flags});
    delete format;
}

int CKorVideoPacket::FrameCopy(CKorVideoPacket* dest, const CKorVideoPacket* src) {
    if (!dest || !src || dest->GetDataCapacity() < src->GetDataSize()) {
        return 0;
    }
    std::memcpy(dest->GetData(), src->GetData(), src->GetDataSize());
    dest->SetDataSize(src->GetDataSize());
    dest->m_FrameType = src->m_FrameType;
    dest->m_Layer = src->m_Layer;
    dest->SetBitmapFormat(src->m_pFormat);
    std::copy_n(src->m_PlaneOffset, kMaxPlanes, dest->m_PlaneOffset);
    std::copy_n(src->m_PlaneStride, kMaxPlanes, dest->m_PlaneStride);
    return 1;
}

void CKorVideoPacket::CleanupPackets() {
    g_VideoPacketSource.Pool().Trim();
}

CKorVideoPacket::~CKorVideoPacket() {
    ReleaseVideoFormat(m_pFormat);
}

void CKorVideoPacket::Reset() {
    CKorPacket::Reset();
    m_FrameType = I_FRAME;
    m_Layer = 0;
    SetBitmapFormat(static_cast<CKorVideoFormat*>(nullptr));
    std::fill_n(m_PlaneOffset, kMaxPlanes, 0UL);
    std::fill_n(m_PlaneStride, kMaxPlanes, 0);
}

// Text, time base, general data, GPS, TRELLUM

CKorTextPacket::CKorTextPacket(const char* text, int schema) : m_Text(text), m_Schema(schema) {}

CKorPacket* CKorTextPacket::Clone() const {
    auto* copy = new CKorTextPacket(m_Text, m_Schema);
    CopyCommonTo(*copy);
    return copy;
}

CKorTimeBasePacket::CKorTimeBasePacket(long time, double scaleFactor)
    : m_Time(time), m_ScaleFactor(scaleFactor) {}

CKorPacket* CKorTimeBasePacket::Clone() const {
    auto* copy = new CKorTimeBasePacket(m_Time, m_ScaleFactor);
    CopyCommonTo(*copy);
    copy->m_Delay = m_Delay;
    copy->m_Flags = m_Flags;
    return copy;
}

CKorGeneralDataPacket::CKorGeneralDataPacket(const char* tag) : m_Tag(tag) {}

CKorPacket* CKorGeneralDataPacket::Clone() const {
    auto* copy = new CKorGeneralDataPacket(m_Tag);
    CopyCommonTo(*copy);
    copy->m_Value = m_Value;
    return copy;
}

void CKorGeneralDataPacket::SetTag(const char* tag, int length) {
    m_Tag = std::string_view(tag ? tag : "", tag && length > 0 ? static_cast<size_t>(length) : 0);
}

void CKorGeneralDataPacket::SetValue(const char* value, int length) {
    m_Value =
        std::string_view(value ? value : "", value && length > 0 ? static_cast<size_t>(length) : 0);
}

CKorGeneralDataListPacket::~CKorGeneralDataListPacket() {
    for (int i = 0; i < m_Count; ++i) {
        m_Items[i]->Release();
    }
}

CKorPacket* CKorGeneralDataListPacket::Clone() const {
    auto* copy = new CKorGeneralDataListPacket;
    CopyCommonTo(*copy);
    for (int i = 0; i < m_Count; ++i) {
        m_Items[i]->AddRef();
        copy->Append(m_Items[i]);
    }
    return copy;
}

void CKorGeneralDataListPacket::Append(CKorGeneralDataPacket* item) {
    if (!item) {
        return;
    }
    if (m_Count == kMaxItems) {
        item->Release(); // the list is full: the reference handed over is dropped
        return;
    }
    m_Items[m_Count++] = item;
}

CKorGeneralDataPacket* CKorGeneralDataListPacket::GetItem(int index) const {
    return index >= 0 && index < m_Count ? m_Items[index] : nullptr;
}

CKorPacket* CKorGPSPacket::Clone() const {
    auto* copy = new CKorGPSPacket;
    CopyCommonTo(*copy);
    copy->m_Latitude = m_Latitude;
    copy->m_Longitude = m_Longitude;
    copy->m_Altitude = m_Altitude;
    copy->m_Speed = m_Speed;
    return copy;
}

CKorPacket* CKorTrellumPacket::Clone() const {
    CKorTrellumPacket* copy =
        g_DataPacketSource.NewTrellumPacket(nullptr, static_cast<long>(m_Capacity), m_PacketType);
    CopyCommonTo(*copy);
    return copy;
}

void CKorTrellumPacket::Reset() {
    CKorPacket::Reset();
    m_PacketType = TL3_C_PCK;
}
