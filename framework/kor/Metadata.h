// Metadata handlers: FOURCC-tagged records attached to packets ("BBX1" bounding boxes, "PCD1"
// people counting, "LOD1" left-object detection ...). A packet holds a chain of handlers; the
// analytics components that produce and read each kind complete its contents.
#pragma once

#include "framework/bel/WinTypes.h"

#include <cstdint>
#include <vector>

class CKorMetadataHandler {
public:
    CKorMetadataHandler() = default;
    explicit CKorMetadataHandler(unsigned long type) : m_Type(static_cast<DWORD>(type)) {}
    virtual ~CKorMetadataHandler();
    CKorMetadataHandler(const CKorMetadataHandler&) = delete;
    CKorMetadataHandler& operator=(const CKorMetadataHandler&) = delete;

    DWORD GetType() const { return m_Type; }
    // The next handler in the packet's chain (owned by this one), or nullptr.
    CKorMetadataHandler* Next() const { return m_pNext; }
    // Appends a handler at the end of the chain and takes ownership of it.
    void Append(CKorMetadataHandler* handler);
    // A deep copy of this handler and the rest of its chain.
    CKorMetadataHandler* CloneChain() const;

protected:
    virtual CKorMetadataHandler* CloneOne() const;

private:
    DWORD m_Type = 0;
    CKorMetadataHandler* m_pNext = nullptr;
};

inline constexpr DWORD kMetadataAspectRatio = MakeFourCC('A', 'S', 'P', '1');
inline constexpr DWORD kMetadataBoundingBoxes = MakeFourCC('B', 'B', 'X', '1');
inline constexpr DWORD kMetadataPeopleCounting = MakeFourCC('P', 'C', 'D', '1');
inline constexpr DWORD kMetadataLeftObject = MakeFourCC('L', 'O', 'D', '1');
inline constexpr DWORD kMetadataSubStream = MakeFourCC('S', 'U', 'B', '1');

class CKorAspectRatioMD : public CKorMetadataHandler {
public:
    CKorAspectRatioMD() : CKorMetadataHandler(kMetadataAspectRatio) {}
    void SetAspectRatio(long x, long y) {
        m_X = x;
        m_Y = y;
    }
    // The X part when x is true, else the Y part.
    long GetAspectRatio(bool x) const { return x ? m_X : m_Y; }

protected:
    CKorMetadataHandler* CloneOne() const override;

private:
    long m_X = 1;
    long m_Y = 1;
};

// One detected object's box in frame coordinates, with the detector's object id.
struct SKorBoundingBox {
    std::uint16_t m_Left;
    std::uint16_t m_Top;
    std::uint16_t m_Right;
    std::uint16_t m_Bottom;
    std::uint32_t m_Id;
};

// Free-form metadata under a caller-chosen FOURCC.
class CKorGeneralDataMD : public CKorMetadataHandler {
public:
    explicit CKorGeneralDataMD(unsigned long type) : CKorMetadataHandler(type) {}
    std::vector<BYTE>& Data() { return m_Data; }
    const std::vector<BYTE>& Data() const { return m_Data; }

protected:
    CKorMetadataHandler* CloneOne() const override;

private:
    std::vector<BYTE> m_Data;
};

// Sizes of the sub-streams packed one after another in a packet's data.
class CKorSubStreamMD : public CKorMetadataHandler {
public:
    CKorSubStreamMD() : CKorMetadataHandler(kMetadataSubStream) {}
    void AddStream(long size) { m_Sizes.push_back(size); }
    int GetStreamCount() const { return static_cast<int>(m_Sizes.size()); }
    long GetSize(int index) const {
        return index >= 0 && index < GetStreamCount() ? m_Sizes[static_cast<size_t>(index)] : 0;
    }

protected:
    CKorMetadataHandler* CloneOne() const override;

private:
    std::vector<long> m_Sizes;
};

// Bounding boxes have their own pair; code that finds them through this header keeps working.
#include "framework/kor/BoundingBoxesMD.h"
