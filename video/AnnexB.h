// H.264 and HEVC elementary streams in the form the media source delivers them: Annex B (start
// codes before NAL units) with the parameter sets in band before each key frame, as a camera
// sends them.
//
// Containers such as MP4 and MKV store NAL units behind length prefixes and keep the parameter
// sets in a configuration record (avcC, hvcC). These helpers convert both to Annex B and read
// from an access unit what the source needs: the first slice's type, whether it starts a coded
// video sequence, and which parameter sets it carries. They do it in one copy and a few dozen
// bytes of parsing per unit, because the demuxer's own path must stay near the bare read speed.
//
// Input comes from files and networks: every read is bounds-checked, and malformed input gives
// "unknown" answers or a failed conversion, never a read outside the buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

enum class ENalCodec { H264, Hevc };

// Frame types as the system numbers them.
enum ENalFrameType { kNalFrameUnknown = -1, kNalFrameI = 0, kNalFrameP = 1, kNalFrameB = 3 };

// What an access unit holds, read up to its first slice.
struct SAccessUnitScan {
    int m_FrameType = kNalFrameUnknown; // of the first slice
    bool m_Key = false;                 // an IDR picture (H.264) or an IRAP picture (HEVC)
    bool m_HasParameterSets = false;    // an SPS (H.264) or a VPS or SPS (HEVC) before the slice
    bool m_HasSlice = false;
};

class CNalScanner {
public:
    // lengthSize: bytes of the NAL length prefixes (1, 2 or 4), or 0 for Annex B input.
    CNalScanner(ENalCodec codec, int lengthSize);

    ENalCodec Codec() const { return m_Codec; }
    int LengthSize() const { return m_LengthSize; }

    // Reads the unit up to its first slice, learning HEVC picture parameter sets on the way.
    SAccessUnitScan Scan(const std::uint8_t* data, std::size_t size);
    // Learns the picture parameter sets of set-up data in Annex B form.
    void Learn(const std::uint8_t* annexB, std::size_t size);
    // Appends the parameter-set NAL units (VPS, SPS, PPS) found before the first slice to *out,
    // each behind a 4-byte start code.
    void ParameterSets(const std::uint8_t* data, std::size_t size,
                       std::vector<std::uint8_t>* out) const;

private:
    // HEVC picture parameter set fields the slice header depends on.
    struct SHevcPps {
        bool m_Known = false;
        int m_ExtraSliceHeaderBits = 0;
    };
    static constexpr int kHevcPpsCount = 64;

    void LearnNal(const std::uint8_t* nal, std::size_t size);
    int SliceType(const std::uint8_t* nal, std::size_t size) const;

    ENalCodec m_Codec;
    int m_LengthSize;
    SHevcPps m_HevcPps[kHevcPpsCount];
};

// Reads an avcC (H.264) or hvcC (HEVC) configuration record: its parameter sets in Annex B form
// into *annexB and its NAL length size into *lengthSize. Answers false for a malformed record.
bool ParseNalConfig(ENalCodec codec, const std::uint8_t* record, std::size_t size,
                    std::vector<std::uint8_t>* annexB, int* lengthSize);

// Bytes NalWriteAnnexB may write for a unit of size bytes with the given length prefixes.
std::size_t NalMaxAnnexBSize(std::size_t size, int lengthSize);
// Writes a unit to out in Annex B form: copied when lengthSize is 0, else every length prefix
// becomes a 4-byte start code. Answers the bytes written, or 0 when a length prefix runs past the
// end of the unit.
std::size_t NalWriteAnnexB(const std::uint8_t* data, std::size_t size, int lengthSize,
                           std::uint8_t* out);

// Whether set-up data is already in Annex B form (starts with a start code).
bool IsAnnexB(const std::uint8_t* data, std::size_t size);
