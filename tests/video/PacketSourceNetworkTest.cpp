// The media source on network inputs, against peers on the loopback interface. Network time is
// real time: these tests run the message loop on the real clock until what they wait for has
// happened, with a generous cap that only a failure ever reaches.
#include "video/PacketSource.h"

#include "framework/bel/BelClock.h"
#include "framework/bel/BelMessageLoop.h"
#include "framework/kor/Packet.h"
#include "tests/support/Harness.h"
#include "tests/video/NetworkPeers.h"
#include "tests/video/TestMedia.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>

namespace {

using zortest::Media;

struct SGraph {
    SGraph() {
        m_Source.SetQuiet(true);
        m_Port = std::make_unique<CZorPacketSourcePort>(&m_Source, EMediaKind::Video);
        *m_Port | m_Sink;
    }
    CZorPacketSource m_Source;
    std::unique_ptr<CZorPacketSourcePort> m_Port;
    zortest::CTestSink m_Sink;
};

// Runs the message loop until done() holds or ten seconds have gone by.
bool RunUntil(const std::function<bool()>& done) {
    const double end = BelDoubleTime() + 10.0;
    while (!done() && BelDoubleTime() < end) {
        CBelMessageLoop::Current().RunFor(0.01);
    }
    return done();
}

SMediaOpenOptions Options(double timeout, const char* format = "") {
    SMediaOpenOptions options;
    options.m_TimeoutSeconds = timeout;
    options.m_Format = format;
    return options;
}

// A file over HTTP is read on the reader thread but is no live stream: it has a length, is
// paced like a file, gives exactly the file's packets and can seek.
TEST(PacketSourceNetwork, HttpFilesGiveTheFilesPackets) {
    zortest::CHttpServer server(Media("h264_faststart.mp4"));
    SGraph remote;
    ASSERT_TRUE(remote.m_Source.Open(server.Url("clip.mp4"), Options(5.0)))
        << remote.m_Source.Error();
    EXPECT_TRUE(remote.m_Source.Demuxer().IsNetwork());
    EXPECT_FALSE(remote.m_Source.Demuxer().IsLive());
    EXPECT_DOUBLE_EQ(remote.m_Source.Demuxer().Duration(), 2.0);
    remote.m_Source.SetSpeed(0.0);
    remote.m_Source.Start();
    ASSERT_TRUE(RunUntil([&] { return remote.m_Source.IsDone(); }));
    EXPECT_EQ(remote.m_Source.Error(), "");

    SGraph local;
    ASSERT_TRUE(local.m_Source.Open(Media("h264_faststart.mp4"), {}));
    local.m_Source.Run();
    ASSERT_EQ(remote.m_Sink.Count(), 50);
    ASSERT_EQ(local.m_Sink.Count(), 50);
    for (int i = 0; i < 50; ++i) {
        const CKorPacket* a = remote.m_Sink.Packets()[static_cast<std::size_t>(i)];
        const CKorPacket* b = local.m_Sink.Packets()[static_cast<std::size_t>(i)];
        EXPECT_EQ(a->GetTimeStamp(), b->GetTimeStamp()) << i;
        ASSERT_EQ(a->GetDataSize(), b->GetDataSize()) << i;
        EXPECT_EQ(std::memcmp(a->GetData(), b->GetData(), a->GetDataSize()), 0) << i;
    }
    // Seeking restarts the reader at the new place.
    ASSERT_TRUE(remote.m_Source.Seek(1.0));
    ASSERT_TRUE(RunUntil([&] { return remote.m_Source.IsDone(); }));
    ASSERT_EQ(remote.m_Sink.Count(), 75);
    EXPECT_EQ(remote.m_Sink.Packets()[50]->GetTimeStamp(), 1000);
}

enum class ELive { Udp, Rtp, Rtsp };

class PacketSourceLive : public testing::TestWithParam<ELive> {};

// A camera's MPEG-TS over UDP, over RTP, or over RTSP interleaved on its connection (as a camera
// behind a firewall is usually asked for): live, joined at a key frame, a picture every 40 ms.
TEST_P(PacketSourceLive, StreamsAreJoinedAtAKeyFrame) {
    const ELive kind = GetParam();
    const int port = zortest::FreePort(true);
    std::unique_ptr<zortest::CTsSender> sender;
    std::unique_ptr<zortest::CRtspCamera> camera;
    std::string url;
    SMediaOpenOptions options = Options(5.0, kind == ELive::Udp ? "mpegts" : "");
    if (kind == ELive::Rtsp) {
        camera = std::make_unique<zortest::CRtspCamera>(Media("h264_mp2.ts"));
        url = camera->Url();
        options.m_Options = {{"rtsp_transport", "tcp"}};
    } else {
        sender =
            std::make_unique<zortest::CTsSender>(Media("h264_mp2.ts"), port, kind == ELive::Rtp);
        url = std::string(kind == ELive::Rtp ? "rtp" : "udp") +
              "://127.0.0.1:" + std::to_string(port);
    }
    SGraph graph;
    ASSERT_TRUE(graph.m_Source.Open(url, options)) << graph.m_Source.Error();
    EXPECT_TRUE(graph.m_Source.Demuxer().IsLive());
    graph.m_Source.Start();
    ASSERT_TRUE(RunUntil([&] { return graph.m_Sink.Count() >= 20; }));
    const auto* first = static_cast<const CKorVideoPacket*>(graph.m_Sink.Packets()[0]);
    EXPECT_EQ(first->GetFrameType(), CKorVideoPacket::I_FRAME);
    EXPECT_EQ(first->GetBitmapInfo()->biCompression, MakeFourCC('H', '2', '6', '4'));
    EXPECT_EQ(first->GetBitmapInfo()->biWidth, 176);
    // The real timestamp of a live stream is the wall clock's.
    EXPECT_GT(first->GetRealTimeStamp(), 1.7e9);
    for (int i = 1; i < 10; ++i) {
        EXPECT_EQ(graph.m_Sink.Packets()[static_cast<std::size_t>(i)]->GetTimeStamp() -
                      graph.m_Sink.Packets()[static_cast<std::size_t>(i) - 1]->GetTimeStamp(),
                  40)
            << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Transports, PacketSourceLive,
                         testing::Values(ELive::Udp, ELive::Rtp, ELive::Rtsp),
                         [](const testing::TestParamInfo<ELive>& info) {
                             return std::string(info.param == ELive::Udp   ? "Udp"
                                                : info.param == ELive::Rtp ? "Rtp"
                                                                           : "Rtsp");
                         });

// Inputs that do not answer fail after the timeout, with the reason.
TEST(PacketSourceNetwork, SilentOrMissingPeersFailWithTheReason) {
    zortest::CSilentServer silent;
    const struct {
        std::string m_Url;
        const char* m_Format;
        const char* m_Reason;
    } cases[] = {
        {"udp://127.0.0.1:" + std::to_string(zortest::FreePort(true)), "mpegts",
         "no answer within 0.3 s"},
        {"rtsp://127.0.0.1:" + std::to_string(silent.Port()) + "/cam", "",
         "no answer within 0.3 s"},
        {"http://127.0.0.1:" + std::to_string(zortest::FreePort(false)) + "/clip.mp4", "",
         "cannot open (Connection refused)"},
    };
    for (const auto& c : cases) {
        CZorPacketSource source;
        EXPECT_FALSE(source.Open(c.m_Url, Options(0.3, c.m_Format)));
        EXPECT_EQ(source.Error(), c.m_Url + ": " + c.m_Reason);
    }
}

// A stream that stops sending mid-way ends the source with the reason, the packets before it
// delivered; destroying a source whose reader waits on a silent peer does not wait for it.
TEST(PacketSourceNetwork, AStreamThatStallsEndsWithTheReason) {
    zortest::CHttpServer stalling(Media("h264_faststart.mp4"), 70000);
    SGraph graph;
    ASSERT_TRUE(graph.m_Source.Open(stalling.Url("clip.mp4"), Options(0.5)))
        << graph.m_Source.Error();
    graph.m_Source.SetSpeed(0.0);
    graph.m_Source.Start();
    ASSERT_TRUE(RunUntil([&] { return graph.m_Source.IsDone(); }));
    EXPECT_EQ(graph.m_Source.Error(), stalling.Url("clip.mp4") + ": no answer within 0.5 s");
    EXPECT_GT(graph.m_Sink.Count(), 5);
    EXPECT_LT(graph.m_Sink.Count(), 50);

    zortest::CHttpServer silent(Media("h264_faststart.mp4"), 70000);
    auto waiting = std::make_unique<SGraph>();
    ASSERT_TRUE(waiting->m_Source.Open(silent.Url("clip.mp4"), Options(60.0)));
    waiting->m_Source.Start();
    ASSERT_TRUE(RunUntil([&] { return waiting->m_Sink.Count() > 5; }));
    waiting.reset(); // the reader is stopped, not waited for (a hang here would be 60 s)
}

} // namespace
