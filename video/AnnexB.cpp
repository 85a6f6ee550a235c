#include "video/AnnexB.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr std::uint8_t kStartCode[4] = {0, 0, 0, 1};

// H.264 NAL unit types (ITU-T H.264 table 7-1).
constexpr int kH264Slice = 1;
constexpr int kH264Idr = 5;
constexpr int kH264Sps = 7;
constexpr int kH264Pps = 8;
// HEVC NAL unit types (ITU-T H.265 table 7-1): 0-31 are coded slices, 16-23 random access points.
constexpr int kHevcLastVcl = 31;
constexpr int kHevcFirstIrap = 16;
constexpr int kHevcLastIrap = 23;
constexpr int kHevcVps = 32;
constexpr int kHevcSps = 33;
constexpr int kHevcPps = 34;

// The first start code (00 00 01) at or after p, or end. Skips three bytes whenever the third
// cannot end a start code, the usual way of scanning coded data for them.
const std::uint8_t* FindStartCode(const std::uint8_t* p, const std::uint8_t* end) {
    while (end - p >= 3) {
        if (p[2] > 1) {
            p += 3;
        } else if (p[2] == 1) {
            if (p[1] == 0 && p[0] == 0) {
                return p;
            }
            p += 3;
        } else {
            ++p;
        }
    }
    return end;
}

// Walks the NAL units of one access unit, length-prefixed or Annex B. For Annex B a unit's end is
// found only when asked (Size), so reading a slice header never walks the slice.
class CNalWalker {
public:
    CNalWalker(const std::uint8_t* data, std::size_t size, int lengthSize)
        : m_pNext(data), m_pEnd(data + size), m_LengthSize(lengthSize) {}

    bool Next() {
        const std::uint8_t* from = m_pNal ? NalEnd() : m_pNext;
        if (m_LengthSize == 0) {
            const std::uint8_t* code = FindStartCode(from, m_pEnd);
            if (code == m_pEnd) {
                return false;
            }
            m_pNal = code + 3;
            m_pNalEnd = nullptr;
            return m_pNal < m_pEnd;
        }
        if (m_pEnd - from < m_LengthSize) {
            return false;
        }
        std::size_t length = 0;
        for (int i = 0; i < m_LengthSize; ++i) {
            length = length << 8 | from[i];
        }
        from += m_LengthSize;
        if (length > static_cast<std::size_t>(m_pEnd - from)) {
            return false; // runs past the unit: malformed
        }
        m_pNal = from;
        m_pNalEnd = from + length;
        return true;
    }
    const std::uint8_t* Nal() const { return m_pNal; }
    // Bytes that may be read from Nal(): the unit's size, or for Annex B at least that much.
    std::size_t Available() const { return static_cast<std::size_t>(AnyEnd() - m_pNal); }
    std::size_t Size() { return static_cast<std::size_t>(NalEnd() - m_pNal); }

private:
    const std::uint8_t* AnyEnd() const { return m_pNalEnd ? m_pNalEnd : m_pEnd; }
    const std::uint8_t* NalEnd() {
        if (!m_pNalEnd) {
            const std::uint8_t* end = FindStartCode(m_pNal, m_pEnd);
            // Zero bytes before a start code belong to it (a 4-byte code, trailing zeros).
            if (end != m_pEnd) {
                while (end > m_pNal && end[-1] == 0) {
                    --end;
                }
            }
            m_pNalEnd = end;
        }
        return m_pNalEnd;
    }

    const std::uint8_t* m_pNext;
    const std::uint8_t* m_pEnd;
    int m_LengthSize;
    const std::uint8_t* m_pNal = nullptr;
    const std::uint8_t* m_pNalEnd = nullptr;
};

// Reads bits from a NAL unit's payload, taking out the emulation prevention bytes (00 00 03) as
// it goes: only the few bytes a slice header's first fields take are ever looked at. Reading past
// the end sets the overrun flag and gives zeros.
class CRbspReader {
public:
    CRbspReader(const std::uint8_t* payload, std::size_t size)
        : m_pNext(payload), m_pEnd(payload + size) {}

    unsigned Bit() {
        if (m_BitsLeft == 0 && !Load()) {
            m_Overrun = true;
            return 0;
        }
        --m_BitsLeft;
        return m_Byte >> m_BitsLeft & 1U;
    }
    unsigned Bits(int count) {
        unsigned value = 0;
        for (int i = 0; i < count; ++i) {
            value = value << 1 | Bit();
        }
        return value;
    }
    // Unsigned Exp-Golomb code; codes longer than 31 bits are malformed.
    unsigned Ue() {
        int zeros = 0;
        while (Bit() == 0) {
            if (++zeros > 31 || m_Overrun) {
                m_Overrun = true;
                return 0;
            }
        }
        return (1U << zeros) - 1 + Bits(zeros);
    }
    bool Overrun() const { return m_Overrun; }

private:
    bool Load() {
        if (m_pNext == m_pEnd) {
            return false;
        }
        if (m_Zeros >= 2 && *m_pNext == 3) {
            m_Zeros = 0;
            if (++m_pNext == m_pEnd) {
                return false;
            }
        }
        m_Byte = *m_pNext++;
        m_Zeros = m_Byte == 0 ? m_Zeros + 1 : 0;
        m_BitsLeft = 8;
        return true;
    }

    const std::uint8_t* m_pNext;
    const std::uint8_t* m_pEnd;
    unsigned m_Byte = 0;
    int m_BitsLeft = 0;
    int m_Zeros = 0;
    bool m_Overrun = false;
};

int NalType(ENalCodec codec, const std::uint8_t* nal) {
    return codec == ENalCodec::H264 ? nal[0] & 0x1F : nal[0] >> 1 & 0x3F;
}

std::size_t HeaderSize(ENalCodec codec) {
    return codec == ENalCodec::H264 ? 1 : 2;
}

bool IsSlice(ENalCodec codec, int type) {
    return codec == ENalCodec::H264 ? type >= kH264Slice && type <= kH264Idr : type <= kHevcLastVcl;
}

bool IsParameterSet(ENalCodec codec, int type) {
    return codec == ENalCodec::H264 ? type == kH264Sps || type == kH264Pps
                                    : type >= kHevcVps && type <= kHevcPps;
}

void AppendNal(const std::uint8_t* nal, std::size_t size, std::vector<std::uint8_t>* out) {
    out->insert(out->end(), kStartCode, kStartCode + 4);
    out->insert(out->end(), nal, nal + size);
}

unsigned ReadBig(const std::uint8_t* p, int bytes) {
    unsigned value = 0;
    for (int i = 0; i < bytes; ++i) {
        value = value << 8 | p[i];
    }
    return value;
}

// Copies count NAL units stored as (16-bit length, bytes) from *p into Annex B form.
bool ReadNalArray(const std::uint8_t** p, const std::uint8_t* end, unsigned count,
                  std::vector<std::uint8_t>* annexB) {
    for (unsigned i = 0; i < count; ++i) {
        if (end - *p < 2) {
            return false;
        }
        const unsigned length = ReadBig(*p, 2);
        *p += 2;
        if (static_cast<unsigned>(end - *p) < length) {
            return false;
        }
        AppendNal(*p, length, annexB);
        *p += length;
    }
    return true;
}

} // namespace

CNalScanner::CNalScanner(ENalCodec codec, int lengthSize)
    : m_Codec(codec), m_LengthSize(lengthSize) {}

SAccessUnitScan CNalScanner::Scan(const std::uint8_t* data, std::size_t size) {
    SAccessUnitScan scan;
    CNalWalker walker(data, size, m_LengthSize);
    const std::size_t header = HeaderSize(m_Codec);
    while (walker.Next()) {
        if (walker.Available() < header) {
            continue;
        }
        const int type = NalType(m_Codec, walker.Nal());
        if (IsSlice(m_Codec, type)) {
            scan.m_HasSlice = true;
            scan.m_Key = m_Codec == ENalCodec::H264
                             ? type == kH264Idr
                             : type >= kHevcFirstIrap && type <= kHevcLastIrap;
            scan.m_FrameType = SliceType(walker.Nal(), walker.Available());
            break;
        }
        if (IsParameterSet(m_Codec, type)) {
            scan.m_HasParameterSets |= m_Codec == ENalCodec::H264
                                           ? type == kH264Sps
                                           : type == kHevcVps || type == kHevcSps;
            if (m_Codec == ENalCodec::Hevc && type == kHevcPps) {
                LearnNal(walker.Nal(), walker.Size());
            }
        }
    }
    return scan;
}

void CNalScanner::Learn(const std::uint8_t* annexB, std::size_t size) {
    CNalWalker walker(annexB, size, 0);
    while (walker.Next()) {
        if (walker.Available() >= HeaderSize(m_Codec)) {
            LearnNal(walker.Nal(), walker.Size());
        }
    }
}

void CNalScanner::LearnNal(const std::uint8_t* nal, std::size_t size) {
    if (m_Codec != ENalCodec::Hevc || size < 3 || NalType(m_Codec, nal) != kHevcPps) {
        return;
    }
    CRbspReader reader(nal + 2, size - 2);
    const unsigned id = reader.Ue();
    reader.Ue();    // pps_seq_parameter_set_id
    reader.Bits(2); // dependent_slice_segments_enabled_flag, output_flag_present_flag
    const unsigned extraBits = reader.Bits(3);
    if (!reader.Overrun() && id < kHevcPpsCount) {
        m_HevcPps[id] = SHevcPps{true, static_cast<int>(extraBits)};
    }
}

int CNalScanner::SliceType(const std::uint8_t* nal, std::size_t size) const {
    const std::size_t header = HeaderSize(m_Codec);
    CRbspReader reader(nal + header, size - header);
    if (m_Codec == ENalCodec::H264) {
        reader.Ue(); // first_mb_in_slice
        const unsigned type = reader.Ue();
        if (reader.Overrun() || type > 9) {
            return kNalFrameUnknown;
        }
        // P, B, I, SP (a P picture that can switch streams), SI (likewise an I picture).
        constexpr int kTypes[5] = {kNalFrameP, kNalFrameB, kNalFrameI, kNalFrameP, kNalFrameI};
        return kTypes[type % 5];
    }
    if (reader.Bit() == 0) {
        return kNalFrameUnknown; // not the picture's first slice segment: the unit starts mid-way
    }
    const int type = NalType(m_Codec, nal);
    if (type >= kHevcFirstIrap && type <= kHevcLastIrap) {
        reader.Bit(); // no_output_of_prior_pics_flag
    }
    const unsigned pps = reader.Ue();
    if (reader.Overrun() || pps >= kHevcPpsCount) {
        return kNalFrameUnknown;
    }
    reader.Bits(m_HevcPps[pps].m_ExtraSliceHeaderBits); // slice_reserved_flag[i]
    const unsigned sliceType = reader.Ue();
    if (reader.Overrun() || sliceType > 2) {
        return kNalFrameUnknown;
    }
    constexpr int kTypes[3] = {kNalFrameB, kNalFrameP, kNalFrameI};
    return kTypes[sliceType];
}

void CNalScanner::ParameterSets(const std::uint8_t* data, std::size_t size,
                                std::vector<std::uint8_t>* out) const {
    CNalWalker walker(data, size, m_LengthSize);
    while (walker.Next()) {
        if (walker.Available() < HeaderSize(m_Codec)) {
            continue;
        }
        const int type = NalType(m_Codec, walker.Nal());
        if (IsSlice(m_Codec, type)) {
            return;
        }
        if (IsParameterSet(m_Codec, type)) {
            AppendNal(walker.Nal(), walker.Size(), out);
        }
    }
}

std::size_t NalMaxAnnexBSize(std::size_t size, int lengthSize) {
    if (lengthSize <= 0 || lengthSize >= 4) {
        return size;
    }
    // Every unit, even an empty one, takes a prefix; each prefix grows to a 4-byte start code.
    return size +
           size / static_cast<std::size_t>(lengthSize) * static_cast<std::size_t>(4 - lengthSize);
}

std::size_t NalWriteAnnexB(const std::uint8_t* data, std::size_t size, int lengthSize,
                           std::uint8_t* out) {
    if (lengthSize == 0) {
        std::copy_n(data, size, out); // size may be 0 with no data at all
        return size;
    }
    std::uint8_t* start = out;
    const std::uint8_t* end = data + size;
    while (data < end) {
        if (end - data < lengthSize) {
            return 0;
        }
        const std::size_t length = ReadBig(data, lengthSize);
        data += lengthSize;
        if (length > static_cast<std::size_t>(end - data)) {
            return 0;
        }
        if (length == 0) {
            continue;
        }
        std::memcpy(out, kStartCode, 4);
        std::memcpy(out + 4, data, length);
        out += 4 + length;
        data += length;
    }
    return static_cast<std::size_t>(out - start);
}

bool ParseNalConfig(ENalCodec codec, const std::uint8_t* record, std::size_t size,
                    std::vector<std::uint8_t>* annexB, int* lengthSize) {
    annexB->clear();
    const std::uint8_t* end = record + size;
    if (codec == ENalCodec::H264) {
        // configurationVersion, profile, compatibility, level, lengthSizeMinusOne, SPS count.
        if (size < 7 || record[0] != 1) {
            return false;
        }
        *lengthSize = (record[4] & 3) + 1;
        const std::uint8_t* p = record + 6;
        if (!ReadNalArray(&p, end, record[5] & 0x1Fu, annexB) || p >= end) {
            return false;
        }
        const unsigned ppsCount = *p++;
        return ReadNalArray(&p, end, ppsCount, annexB) && *lengthSize != 3;
    }
    // 22 bytes of profile and layout fields, lengthSizeMinusOne in the last; then the arrays.
    if (size < 23 || record[0] != 1) {
        return false;
    }
    *lengthSize = (record[21] & 3) + 1;
    const unsigned arrays = record[22];
    const std::uint8_t* p = record + 23;
    for (unsigned i = 0; i < arrays; ++i) {
        if (end - p < 3) {
            return false;
        }
        const unsigned count = ReadBig(p + 1, 2);
        p += 3;
        if (!ReadNalArray(&p, end, count, annexB)) {
            return false;
        }
    }
    return *lengthSize != 3;
}

bool IsAnnexB(const std::uint8_t* data, std::size_t size) {
    return size >= 4 && data[0] == 0 && data[1] == 0 &&
           (data[2] == 1 || (data[2] == 0 && data[3] == 1));
}
