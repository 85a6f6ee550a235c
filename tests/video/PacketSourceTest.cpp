#include "video/PacketSource.h"

#include "framework/bel/BelMessageLoop.h"
#include "framework/kor/Packet.h"
#include "tests/support/Harness.h"
#include "tests/video/TestMedia.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <tuple>
#include <vector>

namespace {

using zortest::CTestSink;
using zortest::CVirtualClockScope;
using zortest::Media;

const std::string kClip = std::string(ZOR_SOURCE_DIR) + "/examples/data/pedestrians.mp4";

// A sink that asks before taking each packet (answering false refuses it).
class CAskingSink : public CTestSink {
public:
    std::function<bool(CKorPacket*)> m_Take;
    int Receive(CKorPacket* packet) override {
        if (m_Take && !m_Take(packet)) {
            ++m_RefusedCount;
            return 0;
        }
        return CTestSink::Receive(packet);
    }
};

// A source on an input with a sink on its video output (and one on its audio, if asked).
struct SGraph {
    explicit SGraph(const std::string& url, bool audio = false) {
        EXPECT_TRUE(m_Source.Open(url, {})) << m_Source.Error();
        m_Source.SetQuiet(true);
        m_Video = std::make_unique<CZorPacketSourcePort>(&m_Source, EMediaKind::Video);
        *m_Video | m_VideoSink;
        if (audio) {
            m_Audio = std::make_unique<CZorPacketSourcePort>(&m_Source, EMediaKind::Audio);
            *m_Audio | m_AudioSink;
        }
    }
    CZorPacketSource m_Source;
    std::unique_ptr<CZorPacketSourcePort> m_Video;
    std::unique_ptr<CZorPacketSourcePort> m_Audio;
    CAskingSink m_VideoSink;
    CAskingSink m_AudioSink;
};

using SSummary = std::tuple<int, long, unsigned long, int>; // kind, ts, size, frame type

std::vector<SSummary> Summarise(const std::vector<CKorPacket*>& packets) {
    std::vector<SSummary> summary;
    for (const CKorPacket* packet : packets) {
        const int type = packet->GetKind() == CKorPacket::KIND_VIDEO
                             ? static_cast<const CKorVideoPacket*>(packet)->GetFrameType()
                             : -1;
        summary.emplace_back(packet->GetKind(), packet->GetTimeStamp(), packet->GetDataSize(),
                             type);
    }
    return summary;
}

TEST(PacketSource, VideoPacketsCarryTheInputsFieldsAndFormat) {
    SGraph graph(kClip);
    EXPECT_EQ(graph.m_Source.Run(), 300);
    EXPECT_TRUE(graph.m_Source.IsDone());
    const std::vector<CKorPacket*>& packets = graph.m_VideoSink.Packets();
    ASSERT_EQ(packets.size(), 300u);
    const auto* first = static_cast<const CKorVideoPacket*>(packets[0]);
    const CKorVideoFormat* format = first->GetBitmapFormat();
    ASSERT_NE(format, nullptr);
    const BITMAPINFOHEADER& header = format->Header();
    EXPECT_EQ(header.biCompression, MakeFourCC('H', '2', '6', '4'));
    EXPECT_EQ(header.biWidth, 352);
    EXPECT_EQ(header.biHeight, 240);
    EXPECT_EQ(header.biSize, 40u + static_cast<DWORD>(format->ExtraSize()));
    ASSERT_GT(format->ExtraSize(), 8);
    EXPECT_EQ(std::memcmp(format->ExtraData(), "\0\0\0\1\x67", 5), 0); // the SPS leads
    for (std::size_t i = 0; i < packets.size(); ++i) {
        const auto* video = static_cast<const CKorVideoPacket*>(packets[i]);
        ASSERT_EQ(video->GetKind(), CKorPacket::KIND_VIDEO);
        EXPECT_EQ(video->GetTimeStamp(), static_cast<long>(i) * 100) << i;
        EXPECT_TRUE(video->IsTimeStampValid());
        EXPECT_DOUBLE_EQ(video->GetRealTimeStamp(), static_cast<double>(i) / 10.0);
        EXPECT_EQ(video->GetStreamNo(), 0);
        EXPECT_EQ(video->GetFrameType(),
                  i % 20 == 0 ? CKorVideoPacket::I_FRAME : CKorVideoPacket::P_FRAME)
            << i;
        EXPECT_EQ(video->GetBitmapFormat(), format);
        EXPECT_EQ(video->GetFormatSeqNumber(), format->FormatSeqNumber());
        EXPECT_EQ(video->RefCount(), 1u);
        // Key frames open with the parameter sets, every frame with a start code.
        const bool withSets = std::memcmp(video->GetData(), format->ExtraData(),
                                          static_cast<std::size_t>(format->ExtraSize())) == 0;
        EXPECT_EQ(withSets, i % 20 == 0) << i;
        EXPECT_EQ(std::memcmp(video->GetData(), "\0\0\0\1", 4), 0);
    }
}

TEST(PacketSource, ChangedStreamParametersGiveANewFormatSequenceNumber) {
    SGraph graph(Media("size_change.h264"));
    graph.m_Source.Run();
    const std::vector<CKorPacket*>& packets = graph.m_VideoSink.Packets();
    ASSERT_EQ(packets.size(), 50u);
    const auto* before = static_cast<const CKorVideoPacket*>(packets[24]);
    const auto* after = static_cast<const CKorVideoPacket*>(packets[25]);
    EXPECT_EQ(static_cast<const CKorVideoPacket*>(packets[0])->GetFormatSeqNumber(),
              before->GetFormatSeqNumber());
    EXPECT_NE(before->GetFormatSeqNumber(), after->GetFormatSeqNumber());
    EXPECT_EQ(after->GetBitmapInfo()->biWidth, 320);
    EXPECT_EQ(after->GetBitmapInfo()->biHeight, 240);
    EXPECT_EQ(static_cast<const CKorVideoPacket*>(packets[49])->GetBitmapFormat(),
              after->GetBitmapFormat());
}

TEST(PacketSource, PacedRunsReleasePacketsOnTheFrameworkClock) {
    CVirtualClockScope clock;
    SGraph graph(kClip);
    CZorPacketSource& source = graph.m_Source;
    source.Start();
    EXPECT_EQ(graph.m_VideoSink.Count(), 1); // the first packet goes at once
    clock.Advance(999);
    EXPECT_EQ(graph.m_VideoSink.Count(), 10); // 0, 100, ... 900 ms
    clock.Advance(1);
    EXPECT_EQ(graph.m_VideoSink.Count(), 11);
    ASSERT_TRUE(source.SetSpeed(2.0));
    clock.Advance(500);
    EXPECT_EQ(graph.m_VideoSink.Count(), 21); // a second of the input in half a second
    source.Stop();
    clock.Advance(5000);
    EXPECT_EQ(graph.m_VideoSink.Count(), 21);
    source.Start();
    EXPECT_EQ(graph.m_VideoSink.Count(), 22); // it goes on at once, paced from there
    clock.Advance(49);
    EXPECT_EQ(graph.m_VideoSink.Count(), 22);
    clock.Advance(1);
    EXPECT_EQ(graph.m_VideoSink.Count(), 23);
    EXPECT_FALSE(source.SetSpeed(-1.0));
}

// Flat out, in slices on the message loop, paced on the virtual clock, and with downstream
// refusing every third offer (a poll brings the refused packet back): the same packets, each once.
TEST(PacketSource, EveryWayOfDrivingGivesTheSamePackets) {
    SGraph run(Media("h264_pcm.mkv"), true);
    run.m_Source.Run();
    const auto expected =
        std::make_pair(Summarise(run.m_VideoSink.Packets()), Summarise(run.m_AudioSink.Packets()));
    ASSERT_EQ(expected.first.size(), 50u);
    auto packetsOf = [](const SGraph& graph) {
        return std::make_pair(Summarise(graph.m_VideoSink.Packets()),
                              Summarise(graph.m_AudioSink.Packets()));
    };

    SGraph refusing(Media("h264_pcm.mkv"), true);
    int offers = 0;
    auto refuseThirds = [&offers](CKorPacket*) { return ++offers % 3 != 0; };
    refusing.m_VideoSink.m_Take = refuseThirds;
    refusing.m_AudioSink.m_Take = refuseThirds;
    long rounds = 0;
    refusing.m_Source.Run();
    while (!refusing.m_Source.IsDone() && ++rounds < 10000) {
        (rounds % 2 ? *refusing.m_Video : *refusing.m_Audio).Poll(); // either output's will do
    }
    EXPECT_TRUE(refusing.m_Source.IsDone());
    EXPECT_GT(refusing.m_VideoSink.m_RefusedCount + refusing.m_AudioSink.m_RefusedCount, 20);
    EXPECT_EQ(packetsOf(refusing), expected);
    for (const CKorPacket* packet : refusing.m_VideoSink.Packets()) {
        EXPECT_EQ(packet->RefCount(), 1u);
    }

    CVirtualClockScope clock;
    SGraph sliced(Media("h264_pcm.mkv"), true);
    sliced.m_Source.SetSpeed(0.0);
    sliced.m_Source.Start();
    CBelMessageLoop::Current().RunUntilIdle();
    EXPECT_TRUE(sliced.m_Source.IsDone());
    EXPECT_EQ(packetsOf(sliced), expected);

    SGraph paced(Media("h264_pcm.mkv"), true);
    paced.m_Source.Start();
    clock.Advance(2500);
    EXPECT_TRUE(paced.m_Source.IsDone());
    EXPECT_EQ(packetsOf(paced), expected);
}

TEST(PacketSource, AudioSamplesGoInPacketsOfWholeBlocks) {
    SGraph graph(Media("h264_pcm.mkv"), true);
    graph.m_Source.Run();
    const std::vector<CKorPacket*>& packets = graph.m_AudioSink.Packets();
    ASSERT_FALSE(packets.empty());
    unsigned long bytes = 0;
    double expectedMs = 0.0;
    for (const CKorPacket* packet : packets) {
        const auto* audio = static_cast<const CKorAudioPacket*>(packet);
        const WAVEFORMATEX* format = audio->GetAudioFormat();
        EXPECT_EQ(format->wFormatTag, 1);
        EXPECT_EQ(format->nSamplesPerSec, 8000u);
        EXPECT_EQ(format->wBitsPerSample, 16);
        EXPECT_EQ(audio->GetFormatSeqNumber(), packets[0]->GetFormatSeqNumber());
        EXPECT_LE(audio->GetDataSize(), 1440u);
        EXPECT_EQ(audio->GetDataSize() % 2, 0u);
        EXPECT_NEAR(static_cast<double>(audio->GetTimeStamp()), expectedMs, 1.0);
        expectedMs += static_cast<double>(audio->GetDataSize()) / 2.0 / 8.0;
        bytes += audio->GetDataSize();
    }
    EXPECT_EQ(bytes, 2u * 8000u * 2u);
}

// A downstream callback may seek or flush the source while it delivers: what the source held
// is released (not offered again) and delivery starts over from the new place.
TEST(PacketSource, SeekFromInsideDeliveryStartsOverCleanly) {
    SGraph graph(kClip);
    int offers = 0;
    graph.m_VideoSink.m_Take = [&](CKorPacket*) {
        if (++offers == 10) {
            EXPECT_TRUE(graph.m_Source.Seek(0.0));
            return false; // refused while seeking: the packet is void
        }
        return true;
    };
    graph.m_Source.Run();
    graph.m_VideoSink.m_Take = nullptr;
    graph.m_Source.Run();
    const std::vector<CKorPacket*>& packets = graph.m_VideoSink.Packets();
    ASSERT_EQ(packets.size(), 9u + 300u);
    EXPECT_EQ(packets[8]->GetTimeStamp(), 800);
    EXPECT_EQ(packets[9]->GetTimeStamp(), 0);
    EXPECT_EQ(graph.m_VideoSink.m_FlushCount, 1);
}

TEST(PacketSource, FlushDropsTheWaitingPacketAndFlushesDownstream) {
    SGraph graph(kClip);
    graph.m_VideoSink.m_Refuse = true;
    EXPECT_EQ(graph.m_Source.Run(), 0);
    graph.m_Video->Flush();
    EXPECT_EQ(graph.m_VideoSink.m_FlushCount, 1);
    graph.m_VideoSink.m_Refuse = false;
    graph.m_Video->Poll(); // the run goes on without the dropped packet
    ASSERT_EQ(graph.m_VideoSink.Count(), 299);
    EXPECT_EQ(graph.m_VideoSink.Packets()[0]->GetTimeStamp(), 100);

    SGraph held(kClip);
    held.m_VideoSink.m_Refuse = true;
    held.m_Source.Run(); // ends with a packet waiting: released with the source
}

TEST(PacketSource, AnInputThatCannotBeOpenedIsNamedInTheError) {
    CZorPacketSource source;
    EXPECT_FALSE(source.Open(Media("missing.mkv"), {}));
    EXPECT_EQ(source.Error(), Media("missing.mkv") + ": cannot open (No such file or directory)");
    EXPECT_TRUE(source.IsDone());
    source.Start();
    EXPECT_EQ(source.Run(), 0);
    EXPECT_FALSE(source.Seek(1.0));
}

} // namespace
