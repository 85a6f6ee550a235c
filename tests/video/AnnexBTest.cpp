#include "video/AnnexB.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

// Writes the bit fields of a NAL unit's payload, then escapes it as an encoder does.
class CBitWriter {
public:
    CBitWriter& Bits(unsigned value, int count) {
        for (int i = count - 1; i >= 0; --i) {
            Bit(value >> i & 1U);
        }
        return *this;
    }
    CBitWriter& Ue(unsigned value) {
        const unsigned coded = value + 1;
        int length = 0;
        while (coded >> (length + 1)) {
            ++length;
        }
        Bits(0, length);
        return Bits(coded, length + 1);
    }
    // The payload with its stop bit, behind the NAL header bytes, with emulation prevention.
    Bytes Nal(Bytes header) {
        Bit(1);
        while (m_Count % 8 != 0) {
            Bit(0);
        }
        int zeros = 0;
        for (std::uint8_t byte : m_Bytes) {
            if (zeros >= 2 && byte <= 3) {
                header.push_back(3);
                zeros = 0;
            }
            header.push_back(byte);
            zeros = byte == 0 ? zeros + 1 : 0;
        }
        return header;
    }

private:
    void Bit(unsigned bit) {
        if (m_Count % 8 == 0) {
            m_Bytes.push_back(0);
        }
        m_Bytes.back() |= static_cast<std::uint8_t>(bit << (7 - m_Count % 8));
        ++m_Count;
    }
    Bytes m_Bytes;
    int m_Count = 0;
};

Bytes H264Slice(int nalType, unsigned sliceType, unsigned firstMb = 0) {
    return CBitWriter().Ue(firstMb).Ue(sliceType).Ue(0).Bits(0, 8).Nal(
        {static_cast<std::uint8_t>(0x60 | nalType)});
}

Bytes HevcNal(int type, CBitWriter bits) {
    return bits.Nal({static_cast<std::uint8_t>(type << 1), 1});
}

Bytes HevcSlice(int nalType, unsigned pps, int extraBits, unsigned sliceType) {
    CBitWriter bits;
    bits.Bits(1, 1); // first_slice_segment_in_pic_flag
    if (nalType >= 16 && nalType <= 23) {
        bits.Bits(0, 1); // no_output_of_prior_pics_flag
    }
    bits.Ue(pps).Bits(0, extraBits).Ue(sliceType).Bits(0, 8);
    return HevcNal(nalType, bits);
}

Bytes HevcPps(unsigned id, int extraBits) {
    return HevcNal(34,
                   CBitWriter().Ue(id).Ue(0).Bits(0, 2).Bits(static_cast<unsigned>(extraBits), 3));
}

const Bytes kSps = {0x67, 0x42, 0xC0, 0x1E, 0xDA};
const Bytes kPps = {0x68, 0xCE, 0x3C, 0x80};

// Joins units behind 4-byte start codes (or 3-byte ones when asked).
Bytes AnnexB(const std::vector<Bytes>& units, bool shortCodes = false) {
    Bytes out;
    for (const Bytes& unit : units) {
        if (!shortCodes) {
            out.push_back(0);
        }
        out.insert(out.end(), {0, 0, 1});
        out.insert(out.end(), unit.begin(), unit.end());
    }
    return out;
}

Bytes LengthPrefixed(const std::vector<Bytes>& units, int lengthSize) {
    Bytes out;
    for (const Bytes& unit : units) {
        for (int i = lengthSize - 1; i >= 0; --i) {
            out.push_back(static_cast<std::uint8_t>(unit.size() >> (8 * i)));
        }
        out.insert(out.end(), unit.begin(), unit.end());
    }
    return out;
}

SAccessUnitScan Scan(ENalCodec codec, const Bytes& unit, int lengthSize = 0) {
    CNalScanner scanner(codec, lengthSize);
    return scanner.Scan(unit.data(), unit.size());
}

// slice_type 0-9: P, B, I, SP, SI, and the same again for "all slices alike".
TEST(AnnexB, H264SliceTypesFollowTheFirstSlice) {
    const int expected[10] = {1, 3, 0, 1, 0, 1, 3, 0, 1, 0};
    for (unsigned type = 0; type < 10; ++type) {
        const SAccessUnitScan scan = Scan(ENalCodec::H264, AnnexB({H264Slice(1, type)}));
        EXPECT_EQ(scan.m_FrameType, expected[type]) << "slice_type " << type;
        EXPECT_FALSE(scan.m_Key);
    }
    // Only the first slice counts, as with libavcodec's parser.
    const SAccessUnitScan mixed =
        Scan(ENalCodec::H264, AnnexB({H264Slice(1, 2), H264Slice(1, 0, 40)}));
    EXPECT_EQ(mixed.m_FrameType, kNalFrameI);
    EXPECT_EQ(Scan(ENalCodec::H264, AnnexB({H264Slice(1, 12)})).m_FrameType, kNalFrameUnknown);
}

TEST(AnnexB, H264KeyFramesAndParameterSets) {
    const SAccessUnitScan idr = Scan(
        ENalCodec::H264, AnnexB({{0x09, 0xF0}, kSps, kPps, {0x06, 0x05, 0x01}, H264Slice(5, 7)}));
    EXPECT_TRUE(idr.m_Key && idr.m_HasParameterSets && idr.m_HasSlice);
    EXPECT_EQ(idr.m_FrameType, kNalFrameI);
    // A PPS alone does not make a unit self-contained; parameter sets after the slice are not
    // looked at.
    EXPECT_FALSE(Scan(ENalCodec::H264, AnnexB({kPps, H264Slice(5, 7)})).m_HasParameterSets);
    EXPECT_FALSE(Scan(ENalCodec::H264, AnnexB({H264Slice(5, 7), kSps})).m_HasParameterSets);
    const SAccessUnitScan none = Scan(ENalCodec::H264, AnnexB({kSps, kPps}));
    EXPECT_FALSE(none.m_HasSlice);
    EXPECT_EQ(none.m_FrameType, kNalFrameUnknown);
}

TEST(AnnexB, SliceHeaderIsReadThroughEmulationPrevention) {
    // first_mb_in_slice 2^23 - 1 codes as 23 zero bits, a one and 23 zero bits: the escaped
    // header holds 00 00 03 01 and 00 00 03 00.
    const Bytes slice = H264Slice(1, 1, (1U << 23) - 1);
    bool escaped = false;
    for (std::size_t i = 2; i < slice.size(); ++i) {
        escaped |= slice[i - 2] == 0 && slice[i - 1] == 0 && slice[i] == 3;
    }
    ASSERT_TRUE(escaped);
    EXPECT_EQ(Scan(ENalCodec::H264, AnnexB({slice})).m_FrameType, kNalFrameB);
}

TEST(AnnexB, StartCodesOfThreeAndFourBytesAndTrailingZeros) {
    Bytes unit = AnnexB({kSps, kPps}, true);
    unit.insert(unit.end(), {0, 0}); // trailing zeros before the next start code
    const Bytes slice = AnnexB({H264Slice(5, 2)});
    unit.insert(unit.end(), slice.begin(), slice.end());
    const SAccessUnitScan scan = Scan(ENalCodec::H264, unit);
    EXPECT_TRUE(scan.m_Key && scan.m_HasParameterSets);
    std::vector<std::uint8_t> sets;
    CNalScanner(ENalCodec::H264, 0).ParameterSets(unit.data(), unit.size(), &sets);
    EXPECT_EQ(sets, AnnexB({kSps, kPps})); // trailing zeros are not part of the PPS
}

TEST(AnnexB, HevcSliceTypesDependOnTheLearnedPictureParameterSet) {
    // A picture parameter set with 2 extra slice header bits, in band before the slice.
    const Bytes unit = AnnexB({HevcPps(3, 2), HevcSlice(1, 3, 2, 0)});
    EXPECT_EQ(Scan(ENalCodec::Hevc, unit).m_FrameType, kNalFrameB);
    const Bytes next = AnnexB({HevcSlice(1, 3, 2, 1)});
    CNalScanner scanner(ENalCodec::Hevc, 0);
    const Bytes sets = AnnexB({HevcPps(3, 2)});
    scanner.Learn(sets.data(), sets.size()); // as from the set-up data
    EXPECT_EQ(scanner.Scan(next.data(), next.size()).m_FrameType, kNalFrameP);
    // IRAP pictures (16-23) are key frames and carry one more flag before the PPS id.
    const SAccessUnitScan cra = Scan(
        ENalCodec::Hevc, AnnexB({HevcNal(32, CBitWriter().Bits(0, 8)), HevcSlice(21, 0, 0, 2)}));
    EXPECT_TRUE(cra.m_Key && cra.m_HasParameterSets);
    EXPECT_EQ(cra.m_FrameType, kNalFrameI);
}

TEST(AnnexB, LengthPrefixedUnitsScanAndConvertLikeAnnexB) {
    const std::vector<Bytes> units = {kSps, kPps, H264Slice(5, 7), {}, H264Slice(1, 0, 9)};
    const std::vector<Bytes> present = {kSps, kPps, H264Slice(5, 7), H264Slice(1, 0, 9)};
    for (int lengthSize : {1, 2, 4}) {
        const Bytes prefixed = LengthPrefixed(units, lengthSize);
        const SAccessUnitScan scan = Scan(ENalCodec::H264, prefixed, lengthSize);
        EXPECT_TRUE(scan.m_Key && scan.m_HasParameterSets) << lengthSize;
        Bytes out(NalMaxAnnexBSize(prefixed.size(), lengthSize));
        const std::size_t written =
            NalWriteAnnexB(prefixed.data(), prefixed.size(), lengthSize, out.data());
        out.resize(written);
        EXPECT_EQ(out, AnnexB(present)) << lengthSize; // empty units vanish
    }
}

TEST(AnnexB, MalformedLengthsAreRefusedWithoutReadingPastTheEnd) {
    Bytes prefixed = LengthPrefixed({kSps, H264Slice(1, 0)}, 4);
    prefixed[kSps.size() + 4 + 3] = 0xF0; // the slice claims more bytes than there are
    Bytes out(NalMaxAnnexBSize(prefixed.size(), 4));
    EXPECT_EQ(NalWriteAnnexB(prefixed.data(), prefixed.size(), 4, out.data()), 0u);
    EXPECT_FALSE(Scan(ENalCodec::H264, prefixed, 4).m_HasSlice);
    const Bytes cut = {0, 0, 0}; // a prefix shorter than its size
    EXPECT_EQ(NalWriteAnnexB(cut.data(), cut.size(), 4, out.data()), 0u);
}

TEST(AnnexB, ConfigurationRecordsGiveParameterSetsInAnnexB) {
    // avcC: version 1, profile, compatibility, level, 4-byte lengths, one SPS, one PPS.
    Bytes avcc = {1, 0x42, 0xC0, 0x1E, 0xFF, 0xE1, 0, static_cast<std::uint8_t>(kSps.size())};
    avcc.insert(avcc.end(), kSps.begin(), kSps.end());
    avcc.insert(avcc.end(), {1, 0, static_cast<std::uint8_t>(kPps.size())});
    avcc.insert(avcc.end(), kPps.begin(), kPps.end());
    std::vector<std::uint8_t> sets;
    int lengthSize = 0;
    ASSERT_TRUE(ParseNalConfig(ENalCodec::H264, avcc.data(), avcc.size(), &sets, &lengthSize));
    EXPECT_EQ(lengthSize, 4);
    EXPECT_EQ(sets, AnnexB({kSps, kPps}));
    // Every cut of the record is refused, and read only within its bytes.
    for (std::size_t size = 0; size < avcc.size(); ++size) {
        const Bytes cut(avcc.begin(), avcc.begin() + static_cast<long>(size));
        EXPECT_FALSE(ParseNalConfig(ENalCodec::H264, cut.data(), cut.size(), &sets, &lengthSize))
            << size;
    }

    // hvcC: 22 bytes of fields, 2-byte lengths, one array of one VPS.
    Bytes hvcc(23, 0);
    hvcc[0] = 1;
    hvcc[21] = 0x01;
    hvcc[22] = 1;
    const Bytes vps = HevcNal(32, CBitWriter().Bits(0x5A, 8));
    hvcc.insert(hvcc.end(), {0xA0, 0, 1, 0, static_cast<std::uint8_t>(vps.size())});
    hvcc.insert(hvcc.end(), vps.begin(), vps.end());
    ASSERT_TRUE(ParseNalConfig(ENalCodec::Hevc, hvcc.data(), hvcc.size(), &sets, &lengthSize));
    EXPECT_EQ(lengthSize, 2);
    EXPECT_EQ(sets, AnnexB({vps}));
    EXPECT_TRUE(IsAnnexB(sets.data(), sets.size()));
    EXPECT_FALSE(IsAnnexB(avcc.data(), avcc.size()));
    hvcc.pop_back();
    EXPECT_FALSE(ParseNalConfig(ENalCodec::Hevc, hvcc.data(), hvcc.size(), &sets, &lengthSize));
}

} // namespace
