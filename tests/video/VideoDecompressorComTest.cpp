#include "video/VideoDecompressorCom.h"

#include "framework/jok/GenericData.h"
#include "framework/kor/Packet.h"
#include "tests/support/Harness.h"
#include "tests/video/ClipReader.h"
#include "video/VideoFrame.h"

#include <gtest/gtest.h>

namespace {

using zortest::CClipPackets;
using zortest::ClipPath;
using zortest::CTestSink;
using zortest::CTestSource;

class VideoDecompressorModule : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(m_Clip.Ok()) << m_Clip.Error();
        m_Source | m_Module | m_Sink;
    }
    // The kinds of what reached the sink, frames as 'F'.
    std::string Arrivals() const {
        std::string kinds;
        for (CKorPacket* packet : m_Sink.Packets()) {
            const bool frame = packet->GetKind() == CKorPacket::KIND_VIDEO &&
                               CZorVideoFrame::IsFrame(static_cast<CKorVideoPacket*>(packet));
            kinds += frame ? 'F' : static_cast<char>('0' + packet->GetKind());
        }
        return kinds;
    }

    CClipPackets m_Clip{ClipPath("cif-bframes.ts")};
    CTestSource m_Source;
    CZorVideoDecompressorModule m_Module;
    CTestSink m_Sink;
};

TEST_F(VideoDecompressorModule, FramesAndOtherPacketsKeepTheirOrder) {
    m_Source.Push(new CKorTextPacket("start"));
    for (int i = 0; i < m_Clip.Count(); ++i) {
        m_Source.Push(m_Clip.Take(i));
    }
    auto* end = new CKorTimeBasePacket(0, 1.0);
    end->SetFlags(CKorTimeBasePacket::FLAG_CONTINUOUS | CKorTimeBasePacket::FLAG_END_OF_SEQUENCE);
    m_Source.Push(end);
    // The end of the sequence lets the pictures the B-frames held back out before it.
    EXPECT_EQ(Arrivals(), "2" + std::string(static_cast<size_t>(m_Clip.Count()), 'F') + "4");
}

TEST_F(VideoDecompressorModule, RefusedFramesWaitAndHoldBackInput) {
    m_Sink.m_Refuse = true;
    int next = 0;
    while (m_Module.PendingCount() == 0) { // the clip's B-frames delay the first picture
        ASSERT_TRUE(m_Source.Push(m_Clip.Take(next++))) << "taken: its frame waits";
    }
    EXPECT_EQ(m_Module.PendingCount(), 1);
    EXPECT_FALSE(m_Source.Push(m_Clip.Take(next++)));
    EXPECT_NE(m_Source.Pending(), nullptr) << "refused untouched";
    m_Sink.m_Refuse = false;
    m_Sink.Poll();
    EXPECT_EQ(m_Module.PendingCount(), 0);
    EXPECT_EQ(m_Source.Pending(), nullptr) << "the poll went on upstream";
    EXPECT_EQ(m_Sink.Count(), 2) << "the waiting frame, then the waiting packet's";
    m_Sink.m_Refuse = true;
    m_Source.Push(m_Clip.Take(next));
    m_Module.Flush();
    EXPECT_EQ(m_Module.PendingCount(), 0);
}

TEST_F(VideoDecompressorModule, InvalidTimestampStartsANewSequence) {
    for (int i = 0; i < 8; ++i) {
        m_Source.Push(m_Clip.Take(i));
    }
    const int before = m_Sink.Count();
    EXPECT_LT(before, 8) << "pictures held back by reordering";
    CKorVideoPacket* restart = m_Clip.Copy(0);
    restart->SetTimeStampValid(false);
    m_Source.Push(restart);
    // The old sequence's pictures come out first, then the new key frame's.
    EXPECT_GE(m_Sink.Count(), 8);
    int valid = 0;
    for (CKorPacket* frame : m_Sink.Packets()) {
        valid += frame->IsTimeStampValid() ? 1 : 0;
    }
    EXPECT_EQ(valid, 8);
}

} // namespace
