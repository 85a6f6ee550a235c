// CKorPacket and its kinds: the reference-counted units that flow between modules.
//
// Ownership: whoever holds a CKorPacket* holds one reference and gives it up with Release.
// New packets come with one reference. Handing a packet to a module's Receive that answers
// non-zero hands that reference over (see CKorModule).
//
// Payload memory of data, audio and video packets comes from the pooled packet sources
// (PacketSource.h): a released packet goes back to its pool with its buffer, so steady-state
// processing allocates nothing per packet.
#pragma once

#include "framework/bel/BelString.h"
#include "framework/bel/WinTypes.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

class CKorMetadataHandler;
class CKorPacketPool;
class CKorVideoFormat;

class CKorPacket {
public:
    // Kind codes. The ones the module relies on are fixed; 3 (general data) is ours.
    enum Kind {
        KIND_DATA = 0,
        KIND_AUDIO = 1,
        KIND_TEXT = 2,
        KIND_GENERAL_DATA = 3,
        KIND_TIMEBASE = 4,
        KIND_VIDEO = 9,
        KIND_GENERAL_DATA_LIST = 11,
        KIND_GPS = 12,
        KIND_TRELLUM = 13,
    };
    // Segments of the payload: an optional header area, then the data.
    enum PacketSegment { SEGMENT_HEADER = 0, SEGMENT_DATA = 1 };

    static constexpr int kMaxAttributes = 16;
    static constexpr int kMaxReferences = 8;

    // Drops one reference; the packet is destroyed (or returned to its pool) at zero.
    virtual unsigned long Release();
    virtual unsigned long AddRef();
    virtual int GetKind() const;
    // A new packet with one reference carrying the same fields, payload and metadata copy.
    virtual CKorPacket* Clone() const;

    unsigned long RefCount() const { return m_RefCount.load(std::memory_order_relaxed); }

    // Hands out a new format sequence number (never 0, never repeated in a process).
    static long GetNewFormatSeqNumber();

    long GetTimeStamp() const { return static_cast<std::int32_t>(m_TimeStamp); }
    void SetTimeStamp(std::uint32_t timeStamp) { m_TimeStamp = timeStamp; }
    bool IsTimeStampValid() const { return m_TimeStampValid; }
    void SetTimeStampValid(bool valid) { m_TimeStampValid = valid; }
    double GetRealTimeStamp() const { return m_RealTimeStamp; }
    void SetRealTimeStamp(double seconds) { m_RealTimeStamp = seconds; }
    int GetStreamNo() const { return m_StreamNo; }
    void SetStreamNo(int streamNo) { m_StreamNo = streamNo; }
    long GetFormatSeqNumber() const { return m_FormatSeqNumber; }
    void SetFormatSeqNumber(long number) { m_FormatSeqNumber = number; }
    // The system time (ms) at which a module stamped the packet's arrival; 0 when never stamped.
    long GetReceivedTime() const { return m_ReceivedTime; }
    void SetReceivedTime(long milliseconds) { m_ReceivedTime = milliseconds; }

    // Integer attributes by number (attribute 1 is the motion-detection level). Set answers false
    // when the packet has no room for another attribute number.
    bool GetAttribute(int number, int* value) const;
    bool SetAttribute(int number, int value);
    int GetAttributeCount() const { return m_AttributeCount; }
    // The index-th attribute in the order it was first set; answers false out of range.
    bool GetAttributeAt(int index, int* number, int* value) const;

    // The metadata handler (borrowed); owned by the packet when set with takeOwnership.
    CKorMetadataHandler* GetMetadataHandler() const { return m_pMetadata; }
    // Finds the handler of a FOURCC type in the handler chain; borrowed, nullptr when absent.
    CKorMetadataHandler* FindMetadata(DWORD type) const;
    void SetMetadataHandler(CKorMetadataHandler* handler, bool takeOwnership);

    // Payload. Capacity is what the pool gave; data size is what is used. Text, time-base and
    // list packets have no payload.
    BYTE* GetAddress(PacketSegment segment);
    const BYTE* GetAddress(PacketSegment segment) const;
    BYTE* GetData() { return GetAddress(SEGMENT_DATA); }
    const BYTE* GetData() const { return GetAddress(SEGMENT_DATA); }
    unsigned long GetDataSize() const { return m_DataSize; }
    // Answers false (and changes nothing) when the size exceeds the capacity left after the
    // header.
    bool SetDataSize(unsigned long size);
    unsigned long GetCapacity() const { return m_Capacity; }
    unsigned long GetDataCapacity() const { return m_Capacity - m_HeaderLength; }
    void SetHeaderBufferLength(unsigned long length);
    unsigned long GetHeaderBufferLength() const { return m_HeaderLength; }

    // Packets this one refers to (a kind may carry them, e.g. a key frame's parts). Each held
    // reference is the packet's own. AddReference takes a new reference of the referenced one.
    bool AddReference(CKorPacket* referenced);
    int GetReferenceCount() const { return m_ReferenceCount; }
    CKorPacket* GetReference(int index) const; // borrowed

protected:
    CKorPacket();
    virtual ~CKorPacket();
    CKorPacket(const CKorPacket&) = delete;
    CKorPacket& operator=(const CKorPacket&) = delete;
    // Copies the common fields, payload and metadata onto a fresh packet of the same kind.
    void CopyCommonTo(CKorPacket& target) const;
    // Returns the packet to the state of a new one (pool reuse).
    virtual void Reset();

private:
    friend class CKorPacketPool;
    struct SAttribute {
        int m_Number;
        int m_Value;
    };

    std::atomic<unsigned long> m_RefCount{1};
    std::uint32_t m_TimeStamp = 0;
    bool m_TimeStampValid = false;
    bool m_OwnsMetadata = false;
    int m_StreamNo = 0;
    double m_RealTimeStamp = 0.0;
    long m_FormatSeqNumber = 0;
    long m_ReceivedTime = 0;
    int m_AttributeCount = 0;
    SAttribute m_Attributes[kMaxAttributes] = {};
    CKorMetadataHandler* m_pMetadata = nullptr;
    int m_ReferenceCount = 0;
    CKorPacket* m_References[kMaxReferences] = {};

protected:
    // Payload (from the pool that made the packet, which gets it back on release).
    CKorPacketPool* m_pPool = nullptr;
    BYTE* m_pBuffer = nullptr;
    unsigned long m_Capacity = 0;
    unsigned long m_HeaderLength = 0;
    unsigned long m_DataSize = 0;
};

// A plain data packet (kind 0).
class CKorDataPacket : public CKorPacket {
public:
    CKorPacket* Clone() const override;

private:
    friend class CKorPacketPool;
    CKorDataPacket() = default;
};

// Audio: payload plus the format record (WAVEFORMATEX and its extra bytes). Audio packets also
// form a chain (Append adds a packet at the end and takes its reference; Next walks it).
class CKorAudioPacket : public CKorPacket {
public:
    static constexpr int kMaxFormatExtra = 32;

    int GetKind() const override { return KIND_AUDIO; }
    CKorPacket* Clone() const override;

    // Copies the record and cbSize extra bytes (at most kMaxFormatExtra), and sets the sequence
    // number.
    void SetAudioFormat(const WAVEFORMATEX* format, long formatSeqNumber);
    const WAVEFORMATEX* GetAudioFormat() const;
    bool HasAudioFormat() const { return m_HasFormat; }

    void Append(CKorAudioPacket* packet);
    CKorAudioPacket* Next() const { return m_pNext; }

protected:
    ~CKorAudioPacket() override;
    void Reset() override;

private:
    friend class CKorPacketPool;
    CKorAudioPacket() = default;
    alignas(4) BYTE m_Format[sizeof(WAVEFORMATEX) + kMaxFormatExtra] = {};
    bool m_HasFormat = false;
    CKorAudioPacket* m_pNext = nullptr;
};

// Video: payload plus frame type, layer and a shared video format.
class CKorVideoPacket : public CKorPacket {
public:
    enum FrameType {
        I_FRAME = 0,
        P_FRAME = 1,
        PB_FRAME = 2,
        B_FRAME = 3,
        EI_FRAME = 4,
        EP_FRAME = 5
    };

    int GetKind() const override { return KIND_VIDEO; }
    CKorPacket* Clone() const override;

    int GetFrameType() const { return m_FrameType; }
    void SetFrameType(int type) { m_FrameType = type; }
    int GetLayer() const { return m_Layer; }
    void SetLayer(int layer) { m_Layer = layer; }

    // The format is shared between packets; the packet holds one reference to it. The header
    // form also keeps the biSize - 40 bytes of set-up data that follow the header in memory.
    void SetBitmapFormat(CKorVideoFormat* format);
    void SetBitmapFormat(const BITMAPINFOHEADER* header, long formatSeqNumber, long flags);
    CKorVideoFormat* GetBitmapFormat() const { return m_pFormat; }
    const BITMAPINFOHEADER* GetBitmapInfo() const;

    // Shared formats: one object per distinct header, set-up data (the biSize - 40 bytes after
    // the header), sequence number and flags, with a reference for the caller (released with
    // ReleaseVideoFormat).
    static CKorVideoFormat* GetVideoFormat(const BITMAPINFOHEADER* header, long formatSeqNumber,
                                           long flags);
    static void ReleaseVideoFormat(CKorVideoFormat* format);
    // Planar frames (decoded pictures): where each plane starts, in bytes from GetData(), and
    // how far apart its rows are. Plane 0 is luma, plane 1 chroma; a stride of 0 marks a plane
    // the frame does not have. A decoder writes its pictures straight into the packet's payload,
    // at the alignment and padding it needs, so the planes are placed by the writer rather than
    // implied by the format; offsets keep the layout valid in a clone or a frame copy.
    // video/VideoFrame.h turns this into plane descriptors.
    static constexpr int kMaxPlanes = 2;
    // Answers false (and changes nothing) for a plane number out of range.
    bool SetPlane(int plane, unsigned long offset, int stride);
    unsigned long GetPlaneOffset(int plane) const;
    int GetPlaneStride(int plane) const;

    // Copies frame data, plane layout and format from src into dest; answers 0 when dest is too
    // small.
    static int FrameCopy(CKorVideoPacket* dest, const CKorVideoPacket* src);
    // Frees the video pool's idle packets (at shutdown or under memory pressure).
    static void CleanupPackets();

protected:
    ~CKorVideoPacket() override;
    void Reset() override;

private:
    friend class CKorPacketPool;
    CKorVideoPacket() = default;
    int m_FrameType = I_FRAME;
    int m_Layer = 0;
    CKorVideoFormat* m_pFormat = nullptr;
    unsigned long m_PlaneOffset[kMaxPlanes] = {};
    int m_PlaneStride[kMaxPlanes] = {};
};

// A shared, reference-counted video format record: a BITMAPINFOHEADER followed, Windows style,
// by the codec's set-up data (biSize = 40 + its size). The header and the set-up data are one
// contiguous block, so a decoder can take the record as it is.
class CKorVideoFormat {
public:
    // The set-up data a record may carry; a larger biSize is a caller's fault.
    static constexpr long kMaxExtraSize = 1L << 20;

    const BITMAPINFOHEADER& Header() const {
        return *reinterpret_cast<const BITMAPINFOHEADER*>(m_pBytes.get());
    }
    // The codec set-up data after the header (nullptr when there is none).
    const BYTE* ExtraData() const {
        return m_ExtraSize > 0 ? m_pBytes.get() + sizeof(BITMAPINFOHEADER) : nullptr;
    }
    long ExtraSize() const { return m_ExtraSize; }
    long FormatSeqNumber() const { return m_FormatSeqNumber; }
    long Flags() const { return m_Flags; }

private:
    friend class CKorVideoPacket;
    CKorVideoFormat(const BITMAPINFOHEADER* header, long extraSize, long formatSeqNumber,
                    long flags);

    std::unique_ptr<BYTE[]> m_pBytes;
    long m_ExtraSize;
    long m_FormatSeqNumber;
    long m_Flags;
    int m_RefCount = 0;
};

// Text (kind 2), optionally tagged with a schema code.
class CKorTextPacket : public CKorPacket {
public:
    explicit CKorTextPacket(const char* text = "", int schema = 0);
    int GetKind() const override { return KIND_TEXT; }
    CKorPacket* Clone() const override;
    const CBelString& Text() const { return m_Text; }
    void SetText(const char* text) { m_Text = text; }
    int GetSchema() const { return m_Schema; }
    void SetSchema(int schema) { m_Schema = schema; }

private:
    CBelString m_Text;
    int m_Schema;
};

// Time base (kind 4): re-anchors a module's clock and sets its scale.
class CKorTimeBasePacket : public CKorPacket {
public:
    enum Flags { FLAG_CONTINUOUS = 1, FLAG_END_OF_SEQUENCE = 2 };

    CKorTimeBasePacket(long time, double scaleFactor);
    int GetKind() const override { return KIND_TIMEBASE; }
    CKorPacket* Clone() const override;
    long Time() const { return m_Time; }
    double GetScaleFactor() const { return m_ScaleFactor; }
    void SetScaleFactor(double scaleFactor) { m_ScaleFactor = scaleFactor; }
    double GetDelay() const { return m_Delay; }
    void SetDelay(double delay) { m_Delay = delay; }
    int GetFlags() const { return m_Flags; }
    void SetFlags(int flags) { m_Flags = flags; }

private:
    long m_Time;
    double m_ScaleFactor;
    double m_Delay = 0.0;
    int m_Flags = 0;
};

// One tagged value.
class CKorGeneralDataPacket : public CKorPacket {
public:
    explicit CKorGeneralDataPacket(const char* tag = "");
    int GetKind() const override { return KIND_GENERAL_DATA; }
    CKorPacket* Clone() const override;
    void SetTag(const char* tag, int length);
    const CBelString& GetTag() const { return m_Tag; }
    void SetValue(const char* value, int length);
    const CBelString& GetValue() const { return m_Value; }

private:
    CBelString m_Tag;
    CBelString m_Value;
};

// A list of general-data packets (kind 11); the list holds one reference to each.
class CKorGeneralDataListPacket : public CKorPacket {
public:
    CKorGeneralDataListPacket() = default;
    int GetKind() const override { return KIND_GENERAL_DATA_LIST; }
    CKorPacket* Clone() const override;
    // Takes the item's reference.
    void Append(CKorGeneralDataPacket* item);
    int GetCount() const { return m_Count; }
    CKorGeneralDataPacket* GetItem(int index) const; // borrowed

protected:
    ~CKorGeneralDataListPacket() override;

private:
    static constexpr int kMaxItems = 64;
    CKorGeneralDataPacket* m_Items[kMaxItems] = {};
    int m_Count = 0;
};

// A position fix (kind 12).
class CKorGPSPacket : public CKorPacket {
public:
    CKorGPSPacket() = default;
    int GetKind() const override { return KIND_GPS; }
    CKorPacket* Clone() const override;
    double m_Latitude = 0.0;
    double m_Longitude = 0.0;
    double m_Altitude = 0.0;
    double m_Speed = 0.0;
};

// The proprietary stream packet (kind 13): a payload with a sub-type.
class CKorTrellumPacket : public CKorPacket {
public:
    enum SubType { TL3_C_PCK = 0, TL3_K_PCK = 1, TL3_P_PCK = 2, TL3_S_PCK = 3, TL3_V_PCK = 4 };
    int GetKind() const override { return KIND_TRELLUM; }
    CKorPacket* Clone() const override;
    int GetPacketType() const { return m_PacketType; }
    void SetPacketType(int type) { m_PacketType = type; }

protected:
    void Reset() override;

private:
    friend class CKorPacketPool;
    CKorTrellumPacket() = default;
    int m_PacketType = TL3_C_PCK;
};
