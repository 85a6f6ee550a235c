#include "audio/WaveFormatString.h"

#include "framework/bel/BelDiagnostics.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

#pragma pack(push, 1)
struct SFormatWithExtra {
    WAVEFORMATEX m_Record;
    WORD m_Extra;
};
#pragma pack(pop)

TEST(WaveFormatString, WriterEmitsRecordBytesInMemoryOrder) {
    const WAVEFORMATEX pcm{1, 1, 8000, 16000, 2, 16, 0};
    EXPECT_EQ(ZorWaveFormatToString(&pcm), "01000100401f0000803e0000020010000000");

    // Other tags carry their extra bytes; PCM never does, whatever cbSize says.
    const SFormatWithExtra g726{{666, 1, 8000, 3000, 12, 3, 2}, 32};
    EXPECT_EQ(ZorWaveFormatToString(&g726.m_Record), "9a020100401f0000b80b00000c00030002002000");
    SFormatWithExtra oddPcm{{1, 1, 8000, 16000, 2, 16, 2}, 0xFFFF};
    EXPECT_EQ(ZorWaveFormatToString(&oddPcm.m_Record).GetLength(), 36);
}

TEST(WaveFormatString, ReadersRoundTripTheWriter) {
    const SFormatWithExtra g726{{666, 1, 16000, 8000, 4, 4, 2}, 8};
    const CBelString text = ZorWaveFormatToString(&g726.m_Record);

    std::vector<BYTE> bytes;
    ASSERT_TRUE(ZorHexStringToBytes(text, bytes));
    ASSERT_EQ(bytes.size(), sizeof(g726));
    EXPECT_EQ(std::memcmp(bytes.data(), &g726, sizeof(g726)), 0);

    WAVEFORMATEX record{};
    ASSERT_TRUE(ZorWaveFormatFromString(text, &record)) << "extra digits past 36 are ignored";
    EXPECT_EQ(std::memcmp(&record, &g726.m_Record, sizeof(record)), 0);

    EXPECT_FALSE(ZorHexStringToBytes("0g", bytes));
    EXPECT_TRUE(bytes.empty());
    EXPECT_FALSE(ZorHexStringToBytes("012", bytes));
    EXPECT_FALSE(ZorWaveFormatFromString("zz000100401f0000803e0000020010000000", &record));
    EXPECT_EQ(record.wFormatTag, 0) << "a text that is not hex leaves a zeroed record";
}

} // namespace
