#include "audio/AudioDecoderCom.h"

#include "audio/codecs/G711.h"
#include "framework/kor/Packet.h"
#include "framework/kor/PacketSource.h"
#include "tests/support/Harness.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

using namespace zortest;

namespace {

// A coded audio packet: tag, bits per sample, block alignment, rate and payload as given; the
// average byte rate is the one the format implies.
CKorAudioPacket* MakeCoded(WORD tag, WORD bits, WORD blockAlign, long seq,
                           const std::vector<BYTE>& bytes, long timeStamp = 0, DWORD rate = 8000) {
    CKorAudioPacket* packet =
        g_AudioPacketSource.NewPacket(bytes.data(), static_cast<long>(bytes.size()), 0);
    const WAVEFORMATEX format{tag, 1, rate, rate * bits / 8, blockAlign, bits, 0};
    packet->SetAudioFormat(&format, seq);
    packet->SetTimeStamp(static_cast<std::uint32_t>(timeStamp));
    packet->SetTimeStampValid(true);
    packet->SetRealTimeStamp(timeStamp / 1000.0);
    packet->SetStreamNo(3);
    return packet;
}

std::vector<short> Samples(const CKorPacket* packet) {
    std::vector<short> samples(packet->GetDataSize() / 2);
    std::memcpy(samples.data(), packet->GetData(), samples.size() * 2);
    return samples;
}

class AudioDecoder : public ::testing::Test {
protected:
    void SetUp() override {
        m_pCom = new CAudioDecoderCom;
        m_pDecoder = m_pCom->Module();
        m_Source | *m_pDecoder | m_Sink;
    }
    void TearDown() override {
        m_Source.LinkModule(CKorNullModule::GetModule());
        m_pCom->Release();
    }
    CBelString Format() {
        CBelString name;
        m_pCom->FormatHandler(&name, 0);
        return name;
    }

    CTestSource m_Source;
    CTestSink m_Sink;
    CAudioDecoderCom* m_pCom = nullptr;
    CZorAudioDecoder* m_pDecoder = nullptr;
};

TEST_F(AudioDecoder, MuLawPacketIsCutInto700SampleChunksStampedByByteOffset) {
    std::vector<BYTE> codes(1000);
    for (std::size_t i = 0; i < codes.size(); ++i)
        codes[i] = static_cast<BYTE>(i * 7);
    EXPECT_EQ(Format(), "");
    ASSERT_TRUE(m_Source.Push(MakeCoded(7, 8, 1, 101, codes, 5000)));

    ASSERT_EQ(m_Sink.Count(), 2);
    const CKorPacket* first = m_Sink.Packets()[0];
    const CKorPacket* second = m_Sink.Packets()[1];
    EXPECT_EQ(first->GetDataSize(), 700u * 2);
    EXPECT_EQ(second->GetDataSize(), 300u * 2);
    EXPECT_EQ(first->GetTimeStamp(), 5000);
    EXPECT_EQ(second->GetTimeStamp(), 5087) << "700 * 1000 / 8000 = 87.5 ms, truncated";
    EXPECT_NEAR(second->GetRealTimeStamp() - first->GetRealTimeStamp(), 0.0875, 1e-9);
    EXPECT_EQ(second->GetStreamNo(), 3);
    EXPECT_TRUE(second->IsTimeStampValid());

    const auto* out = static_cast<const CKorAudioPacket*>(second);
    const WAVEFORMATEX& pcm = *out->GetAudioFormat();
    EXPECT_EQ(pcm.wFormatTag, 1);
    EXPECT_EQ(pcm.nSamplesPerSec, 8000u);
    EXPECT_EQ(pcm.nAvgBytesPerSec, 16000u);
    EXPECT_EQ(pcm.wBitsPerSample, 16);
    EXPECT_EQ(out->GetFormatSeqNumber(), m_pDecoder->GetOutputFormatSeqNumber());
    EXPECT_EQ(Samples(second)[0], zor::g711::MuLawToLinear(codes[700]));
    EXPECT_EQ(Format(), "64 kbps");
}

TEST_F(AudioDecoder, DecoderIsChosenOnlyWhenTheSequenceNumberChanges) {
    const std::vector<BYTE> codes = {0x00, 0x55, 0xD5, 0xFF};
    m_Source.Push(MakeCoded(7, 8, 1, 201, codes));
    // Same number, A-law tag: the mu-law decoder stays.
    m_Source.Push(MakeCoded(6, 8, 1, 201, codes));
    ASSERT_EQ(m_Sink.Count(), 2);
    EXPECT_EQ(Samples(m_Sink.Packets()[1])[1], zor::g711::MuLawToLinear(0x55));

    // New number, G.726 with 6 bits: no decoder; the packet passes through as it came.
    CKorAudioPacket* odd = MakeCoded(666, 6, 6, 202, codes);
    m_Source.Push(odd);
    ASSERT_EQ(m_Sink.Count(), 3);
    EXPECT_EQ(m_Sink.Packets()[2], odd);
    EXPECT_EQ(m_pDecoder->GetDecoder(), nullptr);
    EXPECT_EQ(Format(), "64 kbps") << "the name of the last decoder stays";

    m_Source.Push(MakeCoded(666, 3, 12, 203, std::vector<BYTE>(12)));
    EXPECT_EQ(Format(), "24 kbps");
}

TEST_F(AudioDecoder, ImaPredictorWrapsAndTheLastEightSamplesAreSilence) {
    // Leave recognisable garbage in the pool so a sample the decoder skips would show it.
    CKorAudioPacket* dirty = g_AudioPacketSource.NewPacket(1440);
    std::memset(dirty->GetData(), 0x55, 1440);
    dirty->Release();

    // Predictor 32700, step index 60 (step 2272): nibble 7 adds 3976 + 284 and wraps.
    std::vector<BYTE> block = {0xBC, 0x7F, 60, 0};
    block.resize(20, 0x77);
    m_Source.Push(MakeCoded(17, 4, 20, 301, block));
    ASSERT_EQ(m_Sink.Count(), 1);
    const std::vector<short> samples = Samples(m_Sink.Packets()[0]);
    ASSERT_EQ(samples.size(), 40u) << "sized as 2 samples a byte, header included";
    EXPECT_EQ(samples[0], static_cast<short>(32700 + 4260 - 65536));
    for (std::size_t i = 32; i < 40; ++i)
        EXPECT_EQ(samples[i], 0) << "sample " << i;
    EXPECT_EQ(Format(), "32 kbps (MS IMA ADPCM)");

    // IMA chunks are 350 bytes whatever the block alignment says.
    m_Sink.Clear();
    m_Source.Push(MakeCoded(17, 4, 256, 301, std::vector<BYTE>(400)));
    ASSERT_EQ(m_Sink.Count(), 2);
    EXPECT_EQ(m_Sink.Packets()[0]->GetDataSize(), 700u * 2);
    EXPECT_EQ(m_Sink.Packets()[1]->GetDataSize(), 100u * 2);
}

TEST_F(AudioDecoder, G726ChunksAreWholeBlocksAndAPartialGroupEndsInSilence) {
    // 24 kbit/s, 12-byte blocks: 262 bytes of 700 samples round down to 252 (672 samples).
    m_Source.Push(MakeCoded(666, 3, 12, 401, std::vector<BYTE>(600, 0x5A), 1000));
    ASSERT_EQ(m_Sink.Count(), 3);
    EXPECT_EQ(m_Sink.Packets()[0]->GetDataSize(), 672u * 2);
    EXPECT_EQ(m_Sink.Packets()[1]->GetTimeStamp(), 1084) << "252 bytes at 3000 bytes/s";
    EXPECT_EQ(m_Sink.Packets()[2]->GetDataSize(), 256u * 2);

    // 10 bytes at 24 kbit/s: three groups (24 samples) and one stray byte. Sized as 26 samples,
    // the two the stray byte stands for are silence.
    m_Sink.Clear();
    CKorAudioPacket* dirty = g_AudioPacketSource.NewPacket(1440);
    std::memset(dirty->GetData(), 0x55, 1440);
    dirty->Release();
    const std::vector<BYTE> bytes(10, 0x5A);
    m_Source.Push(MakeCoded(666, 3, 1, 402, bytes));
    ASSERT_EQ(m_Sink.Count(), 1);
    const std::vector<short> samples = Samples(m_Sink.Packets()[0]);
    ASSERT_EQ(samples.size(), 26u);
    std::vector<short> reference(24);
    CADPCM24Decoder().Decode(bytes.data(), bytes.data() + 9, reference.data());
    EXPECT_EQ(std::vector<short>(samples.begin(), samples.begin() + 24), reference);
    EXPECT_EQ(samples[24], 0);
    EXPECT_EQ(samples[25], 0);
}

TEST_F(AudioDecoder, RefusedOutputWaitsAndPollDrainsItBeforeAskingUpstream) {
    m_Sink.m_Refuse = true;
    EXPECT_TRUE(m_Source.Push(MakeCoded(7, 8, 1, 501, std::vector<BYTE>(1000), 0)))
        << "the decoder takes the packet; its output waits";
    EXPECT_EQ(m_pDecoder->PendingCount(), 2);
    EXPECT_FALSE(m_Source.Push(MakeCoded(7, 8, 1, 501, std::vector<BYTE>(100), 200)));
    ASSERT_NE(m_Source.Pending(), nullptr) << "refused untouched, kept by the source";
    CKorPacket* text = new CKorTextPacket("meta");
    EXPECT_EQ(m_pDecoder->Receive(text), 0) << "nothing overtakes the waiting output";

    m_pDecoder->Poll();
    EXPECT_EQ(m_Source.PollCount(), 0) << "the list is not empty: no poll upstream";
    m_Sink.m_Refuse = false;
    m_pDecoder->Poll();
    EXPECT_EQ(m_Source.PollCount(), 1);
    ASSERT_EQ(m_Sink.Count(), 3);
    EXPECT_EQ(m_Sink.Packets()[0]->GetTimeStamp(), 0);
    EXPECT_EQ(m_Sink.Packets()[1]->GetTimeStamp(), 87);
    EXPECT_EQ(m_Sink.Packets()[2]->GetTimeStamp(), 200);

    EXPECT_EQ(m_pDecoder->Receive(text), 1) << "non-audio goes straight on";
    EXPECT_EQ(m_Sink.Packets().back(), text);
}

TEST_F(AudioDecoder, FlushReleasesTheWaitingOutput) {
    m_Sink.m_Refuse = true;
    m_Source.Push(MakeCoded(7, 8, 1, 601, std::vector<BYTE>(1000)));
    ASSERT_EQ(m_pDecoder->PendingCount(), 2);
    m_pDecoder->Flush();
    EXPECT_EQ(m_pDecoder->PendingCount(), 0);
    EXPECT_EQ(m_Sink.m_FlushCount, 1);
}

} // namespace
