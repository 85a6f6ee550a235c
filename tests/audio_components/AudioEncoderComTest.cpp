#include "audio/AudioEncoderCom.h"

#include "audio/codecs/G711.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/GenericData.h"
#include "framework/kor/Packet.h"
#include "tests/support/Harness.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

using namespace zortest;

namespace {

std::vector<short> Tone(std::size_t count, double amplitude = 8000.0) {
    std::vector<short> samples(count);
    for (std::size_t i = 0; i < count; ++i)
        samples[i] =
            static_cast<short>(amplitude * std::sin(i * 0.3) + amplitude / 3 * std::sin(i * 1.1));
    return samples;
}

const WAVEFORMATEX& FormatOf(const CKorPacket* packet) {
    return *static_cast<const CKorAudioPacket*>(packet)->GetAudioFormat();
}

WORD ExtraWord(const CKorPacket* packet) {
    WORD word = 0;
    std::memcpy(&word, reinterpret_cast<const BYTE*>(&FormatOf(packet)) + sizeof(WAVEFORMATEX), 2);
    return word;
}

class AudioEncoder : public ::testing::Test {
protected:
    void SetUp() override {
        m_pCom = new CAudioEncoderCom;
        m_pEncoder = m_pCom->Module();
        m_Source | *m_pEncoder | m_Sink;
    }
    void TearDown() override {
        m_Source.LinkModule(CKorNullModule::GetModule());
        m_pCom->Release();
    }
    bool SetFormat(const char* name) {
        CJokGdString* value = CJokGdString::Allocate(name);
        const int result = m_pCom->SetProperty("format", value);
        value->Release();
        return result == 1;
    }
    CBelString Format() {
        CBelString name;
        m_pCom->FormatHandler(&name, 0);
        return name;
    }
    // Calls "SetWaveFormatEx" and answers its boolean result.
    bool SetWaveFormatEx(const char* hex) {
        CJokCommandContext context;
        context.AddParam("format", hex);
        m_pCom->SetWaveFormatExHandler(&context);
        auto* result = static_cast<CJokGdBoolean*>(context.GetReturnValue());
        return result && result->GetValue();
    }

    CTestSource m_Source;
    CTestSink m_Sink;
    CAudioEncoderCom* m_pCom = nullptr;
    CZorAudioEncoder* m_pEncoder = nullptr;
};

struct SFormatRow {
    const char* m_Name;
    unsigned m_InputRate;
    WORD m_Tag;
    DWORD m_Rate, m_AvgBytes;
    WORD m_BlockAlign, m_Bits, m_Extra, m_SamplesPerBlock;
    unsigned long m_BytesFor720;
};

TEST_F(AudioEncoder, EachFormatWritesItsRecordAndSize) {
    const SFormatRow rows[] = {
        // mu-law is labelled 8 kHz whatever the input rate: no resampling.
        {"64 kbps", 8000, 7, 8000, 8000, 1, 8, 0, 0, 720},
        {"64 kbps", 16000, 7, 8000, 8000, 1, 8, 0, 0, 720},
        {"32 kbps", 8000, 666, 8000, 4000, 4, 4, 2, 8, 360},
        {"32 kbps", 16000, 666, 16000, 8000, 4, 4, 2, 8, 360},
        {"24 kbps", 8000, 666, 8000, 3000, 12, 3, 2, 32, 270},
        {"16 kbps", 8000, 666, 8000, 2000, 4, 2, 2, 16, 180},
    };
    for (const SFormatRow& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.m_Name << " at " << row.m_InputRate);
        ASSERT_TRUE(SetFormat(row.m_Name));
        m_Sink.Clear();
        m_Source.Push(MakePcmPacket(40, Tone(720), row.m_InputRate));
        ASSERT_EQ(m_Sink.Count(), 1);
        const CKorPacket* out = m_Sink.Packets()[0];
        const WAVEFORMATEX& f = FormatOf(out);
        EXPECT_EQ(f.wFormatTag, row.m_Tag);
        EXPECT_EQ(f.nChannels, 1);
        EXPECT_EQ(f.nSamplesPerSec, row.m_Rate);
        EXPECT_EQ(f.nAvgBytesPerSec, row.m_AvgBytes);
        EXPECT_EQ(f.nBlockAlign, row.m_BlockAlign);
        EXPECT_EQ(f.wBitsPerSample, row.m_Bits);
        EXPECT_EQ(f.cbSize, row.m_Extra);
        if (row.m_Extra) {
            EXPECT_EQ(ExtraWord(out), row.m_SamplesPerBlock);
        }
        EXPECT_EQ(out->GetDataSize(), row.m_BytesFor720);
        EXPECT_EQ(out->GetTimeStamp(), 40);
        EXPECT_EQ(out->GetFormatSeqNumber(), m_pEncoder->GetEncoder()->GetFormatSeqNumber());
    }
}

TEST_F(AudioEncoder, FormatAcceptsOnlyNamesWithAnEncoder) {
    EXPECT_EQ(Format(), "64 kbps");
    CAudioEncoderImpl* before = m_pEncoder->GetEncoder();
    EXPECT_FALSE(SetFormat("40 kbps"));
    EXPECT_FALSE(SetFormat("32 kbps (MS IMA ADPCM)"));
    EXPECT_FALSE(SetFormat("32 KBPS"));
    EXPECT_EQ(Format(), "64 kbps");
    EXPECT_EQ(m_pEncoder->GetEncoder(), before) << "the old encoder and its state stay";
}

TEST_F(AudioEncoder, SetWaveFormatExSelectsByTagAndBits) {
    CBelDiagnosticCapture capture;
    EXPECT_TRUE(SetWaveFormatEx("9A020100401F0000B80B00000C0003000200"
                                "2000"));
    EXPECT_EQ(Format(), "24 kbps");
    EXPECT_TRUE(SetWaveFormatEx("07000100401f0000401f000001000800"
                                "0000")); // lower case reads too
    EXPECT_EQ(Format(), "64 kbps");
    EXPECT_EQ(capture.Text(EBelDiagnosticKind::Dump), "");

    const char* invalid[] = {
        "06000100401f0000401f000001000800"
        "0000", // A-law
        "11000100401f0000d70f0000000104000200"
        "f901", // IMA ADPCM
        "9a020100401f000088130000050005000200"
        "0800", // G.726 at 40 kbit/s
    };
    for (const char* hex : invalid) {
        EXPECT_FALSE(SetWaveFormatEx(hex)) << hex;
        EXPECT_EQ(capture.Text(EBelDiagnosticKind::Dump),
                  "CAudioEncoderCom::SetWaveFormatEx -> Invalid audio format.\n");
        capture.Take();
    }
    EXPECT_EQ(Format(), "64 kbps");

    const long asserts = BelAssertCount();
    EXPECT_FALSE(SetWaveFormatEx("9a02"));
    EXPECT_EQ(BelAssertCount(), asserts + 1);
    EXPECT_EQ(BelLastAssert().m_Text, "sT.GetLength() == 2 * sizeof(T)");
}

TEST_F(AudioEncoder, NonPcmPassesThroughUntouched) {
    CKorAudioPacket* coded = MakePcmPacket(0, Tone(8));
    const WAVEFORMATEX muLaw{7, 1, 8000, 8000, 1, 8, 0};
    coded->SetAudioFormat(&muLaw, 77);
    m_Source.Push(coded);
    CKorPacket* data = MakeDataPacket(1);
    m_Source.Push(data);
    ASSERT_EQ(m_Sink.Count(), 2);
    EXPECT_EQ(m_Sink.Packets()[0], coded);
    EXPECT_EQ(m_Sink.Packets()[1], data);
}

TEST_F(AudioEncoder, LongInputIsCutIntoCappedPacketsInOrder) {
    const std::vector<short> pcm = Tone(3000);
    m_Sink.m_Refuse = true;
    EXPECT_TRUE(m_Source.Push(MakePcmPacket(1000, pcm)));
    EXPECT_FALSE(m_Source.Push(MakePcmPacket(2000, Tone(10))))
        << "pieces still wait: the next input is refused";
    m_Sink.m_Refuse = false;
    m_pEncoder->Poll();

    ASSERT_EQ(m_Sink.Count(), 4);
    const unsigned long sizes[] = {1440, 1440, 120, 10};
    const long stamps[] = {1000, 1180, 1360, 2000}; // 1440 samples = 180 ms at 8 kHz
    std::vector<BYTE> codes;
    for (int i = 0; i < 4; ++i) {
        const CKorPacket* piece = m_Sink.Packets()[static_cast<std::size_t>(i)];
        EXPECT_EQ(piece->GetDataSize(), sizes[i]) << i;
        EXPECT_EQ(piece->GetTimeStamp(), stamps[i]) << i;
        if (i < 3)
            codes.insert(codes.end(), piece->GetData(), piece->GetData() + piece->GetDataSize());
    }
    EXPECT_DOUBLE_EQ(m_Sink.Packets()[1]->GetRealTimeStamp(), 1.18);
    ASSERT_EQ(codes.size(), pcm.size());
    for (std::size_t i = 0; i < pcm.size(); ++i)
        ASSERT_EQ(codes[i], zor::g711::LinearToMuLaw(pcm[i])) << "sample " << i;

    // G.726-16 takes 5760 samples a packet: 6000 make two.
    ASSERT_TRUE(SetFormat("16 kbps"));
    m_Sink.Clear();
    m_Source.Push(MakePcmPacket(0, Tone(6000)));
    ASSERT_EQ(m_Sink.Count(), 2);
    EXPECT_EQ(m_Sink.Packets()[0]->GetDataSize(), 1440u);
    EXPECT_EQ(m_Sink.Packets()[1]->GetDataSize(), 60u);
}

// An empty PCM packet is replaced like any other: by an empty packet of the output format, with
// the input's stamps, at every rate.
TEST_F(AudioEncoder, EmptyInputIsReplacedByAnEmptyEncodedPacket) {
    for (const char* name : {"64 kbps", "32 kbps", "24 kbps", "16 kbps"}) {
        SCOPED_TRACE(name);
        ASSERT_TRUE(SetFormat(name));
        m_Sink.Clear();
        m_Source.Push(MakePcmPacket(70, {}));
        ASSERT_EQ(m_Sink.Count(), 1);
        const CKorPacket* out = m_Sink.Packets()[0];
        EXPECT_EQ(out->GetDataSize(), 0u);
        EXPECT_EQ(out->GetTimeStamp(), 70);
        EXPECT_TRUE(out->IsTimeStampValid());
        EXPECT_NE(FormatOf(out).wFormatTag, 1) << "the output format, not the input's";
        EXPECT_EQ(out->GetFormatSeqNumber(), m_pEncoder->GetEncoder()->GetFormatSeqNumber());
    }
}

TEST_F(AudioEncoder, PartialGroupIsPaddedWithSilence) {
    // 5 samples at 24 kbit/s: one 3-byte group of 8 codes; the decoder sees 5 samples then 3
    // silent ones, exactly as if the input had been padded.
    ASSERT_TRUE(SetFormat("24 kbps"));
    std::vector<short> five = Tone(5);
    m_Source.Push(MakePcmPacket(0, five));
    ASSERT_EQ(m_Sink.Count(), 1);
    ASSERT_EQ(m_Sink.Packets()[0]->GetDataSize(), 3u);

    CADPCM24Encoder reference;
    std::vector<short> padded = five;
    padded.resize(8, 0);
    CKorAudioPacket* whole = MakePcmPacket(0, padded);
    CKorAudioPacket* expected = reference.Encode(whole);
    EXPECT_EQ(std::memcmp(expected->GetData(), m_Sink.Packets()[0]->GetData(), 3), 0);
    expected->Release();
    whole->Release();
}

} // namespace
