#include "video/VideoDecompressor.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/kor/Metadata.h"
#include "framework/kor/Packet.h"
#include "framework/kor/PacketSource.h"
#include "tests/video/ClipReader.h"
#include "tests/video/VideoTestSupport.h"
#include "video/VideoFrame.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

using zortest::CClipPackets;
using zortest::ClipPath;
using zortest::DecodeAll;
using zortest::SPictureSums;

struct SClipCase {
    const char* m_File;
    int m_Width;
    int m_Height;
    bool m_Direct; // pictures are handed on without a copy
};

class DecompressorClip : public testing::TestWithParam<SClipCase> {};

// Every picture comes out once, in order, with the pixels a plain libavcodec decode gives, and
// the fields of the packet that carried it.
TEST_P(DecompressorClip, DecodesEveryPictureAsTheCodecDoes) {
    const SClipCase& clip = GetParam();
    CClipPackets packets(ClipPath(clip.m_File));
    ASSERT_TRUE(packets.Ok()) << packets.Error();
    const std::vector<SPictureSums> reference = zortest::ReferenceDecode(ClipPath(clip.m_File));
    ASSERT_EQ(static_cast<int>(reference.size()), packets.Count());

    for (int i = 0; i < packets.Count(); ++i) {
        packets.At(i)->SetAttribute(1, i % 7);
        packets.At(i)->SetStreamNo(3);
    }
    CZorVideoDecompressor decoder;
    std::vector<CKorVideoPacket*> frames = DecodeAll(decoder, packets);
    ASSERT_EQ(static_cast<int>(frames.size()), packets.Count());
    EXPECT_EQ(decoder.ErrorCount(), 0);
    EXPECT_EQ(decoder.DirectFrames() > 0, clip.m_Direct);
    const long formatSeq = frames[0]->GetFormatSeqNumber();
    for (size_t i = 0; i < frames.size(); ++i) {
        CKorVideoPacket* frame = frames[i];
        const CKorVideoPacket* packet = packets.At(static_cast<int>(i));
        EXPECT_EQ(frame->GetBitmapInfo()->biWidth, clip.m_Width);
        EXPECT_EQ(frame->GetBitmapInfo()->biHeight, -clip.m_Height);
        EXPECT_EQ(frame->GetFormatSeqNumber(), formatSeq);
        EXPECT_EQ(frame->GetTimeStamp(), packet->GetTimeStamp());
        EXPECT_TRUE(frame->IsTimeStampValid());
        EXPECT_EQ(frame->GetStreamNo(), 3);
        int level = -1;
        EXPECT_TRUE(frame->GetAttribute(1, &level));
        EXPECT_EQ(level, static_cast<int>(i % 7));
        SPictureSums sums = zortest::SumsOf(frame);
        if (reference[i].m_Cb == 0) {
            sums.m_Cb = sums.m_Cr = 0; // 4:2:2 chroma is resampled: only luma is the codec's
        }
        EXPECT_EQ(sums, reference[i]) << "picture " << i;
        frame->Release();
    }
}

INSTANTIATE_TEST_SUITE_P(Clips, DecompressorClip,
                         testing::Values(SClipCase{"cif.ts", 352, 288, true},
                                         SClipCase{"hd.ts", 1920, 1080, true},
                                         SClipCase{"cif-mjpeg.avi", 352, 288, true},
                                         SClipCase{"qcif-avcc.mkv", 176, 144, true},
                                         SClipCase{"qcif-hevc.ts", 176, 144, true},
                                         SClipCase{"cif-mjpeg422.avi", 352, 288, false},
                                         SClipCase{"small-mpeg4.avi", 174, 98, true}),
                         [](const testing::TestParamInfo<SClipCase>& info) {
                             std::string name = info.param.m_File;
                             std::replace_if(
                                 name.begin(), name.end(), [](char c) { return !std::isalnum(c); },
                                 '_');
                             return name;
                         });

TEST(VideoDecompressor, GreyOutputIsTheLumaAlone) {
    CClipPackets packets(ClipPath("qcif.ts"));
    ASSERT_TRUE(packets.Ok()) << packets.Error();
    CZorVideoDecompressor colour;
    CZorVideoDecompressor grey;
    grey.SetGreyOutput(true);
    std::vector<CKorVideoPacket*> a = DecodeAll(colour, packets);
    std::vector<CKorVideoPacket*> b = DecodeAll(grey, packets);
    ASSERT_EQ(a.size(), b.size());
    for (size_t i = 0; i < a.size(); ++i) {
        SBeluiBitmap luma;
        SBeluiBitmap chroma;
        ASSERT_TRUE(CZorVideoFrame::GetPlanes(b[i], &luma, &chroma));
        EXPECT_EQ(b[i]->GetBitmapInfo()->biCompression, CZorVideoFrame::kGrey);
        EXPECT_TRUE(chroma.IsEmpty());
        EXPECT_EQ(zortest::SumsOf(b[i]).m_Luma, zortest::SumsOf(a[i]).m_Luma);
        EXPECT_NE(a[i]->GetFormatSeqNumber(), b[i]->GetFormatSeqNumber());
        a[i]->Release();
        b[i]->Release();
    }
}

// Reordered pictures (B-frames) and frame threads delay pictures; each still carries the fields
// of its own packet, and threads change no pixel.
TEST(VideoDecompressor, FieldsFollowPicturesThroughReorderingAndThreads) {
    CClipPackets packets(ClipPath("cif-bframes.ts"));
    ASSERT_TRUE(packets.Ok()) << packets.Error();
    const std::vector<SPictureSums> reference =
        zortest::ReferenceDecode(ClipPath("cif-bframes.ts"));
    for (int i = 0; i < packets.Count(); ++i) {
        packets.At(i)->SetAttribute(1, packets.At(i)->GetTimeStamp() / 40);
    }
    for (int threads : {1, 3}) {
        CZorVideoDecompressor decoder;
        decoder.SetThreadCount(threads);
        std::vector<CKorVideoPacket*> frames = DecodeAll(decoder, packets);
        ASSERT_EQ(frames.size(), reference.size()) << threads;
        long last = -1;
        for (size_t i = 0; i < frames.size(); ++i) {
            EXPECT_GT(frames[i]->GetTimeStamp(), last) << "display order";
            last = frames[i]->GetTimeStamp();
            int level = -1;
            frames[i]->GetAttribute(1, &level);
            EXPECT_EQ(level, frames[i]->GetTimeStamp() / 40) << "fields of another packet";
            EXPECT_EQ(zortest::SumsOf(frames[i]), reference[i]) << threads << " threads, " << i;
            frames[i]->Release();
        }
    }
}

TEST(VideoDecompressor, FormatNumberFollowsTheDecodedSize) {
    CClipPackets small(ClipPath("qcif.ts"));
    CClipPackets large(ClipPath("cif.ts"));
    ASSERT_TRUE(small.Ok() && large.Ok());
    CZorVideoDecompressor decoder;
    std::vector<long> numbers;
    std::vector<int> widths;
    for (const CClipPackets* clip : {&small, &large, &small}) {
        for (int i = 0; i < 10; ++i) {
            // One stream whose size changes in band: the record stays the first clip's.
            CKorVideoPacket* packet = clip->Copy(i);
            packet->SetBitmapFormat(small.At(0)->GetBitmapFormat());
            bool produced = false;
            CKorVideoPacket* frame = decoder.Decompress(packet, &produced);
            packet->Release();
            ASSERT_TRUE(produced);
            if (numbers.empty() || numbers.back() != frame->GetFormatSeqNumber()) {
                numbers.push_back(frame->GetFormatSeqNumber());
                widths.push_back(frame->GetBitmapInfo()->biWidth);
            }
            frame->Release();
        }
    }
    EXPECT_EQ(widths, (std::vector<int>{176, 352, 176}));
    EXPECT_EQ(std::set<long>(numbers.begin(), numbers.end()).size(), 3u);
}

// A new sequence drops what the codec holds back and restarts at a key frame; frames given out
// before it must not change while the codec goes on decoding.
TEST(VideoDecompressor, NewSequenceDropsWhatIsHeldBackAndKeepsWhatWasGivenOut) {
    CClipPackets packets(ClipPath("cif-bframes.ts"));
    ASSERT_TRUE(packets.Ok()) << packets.Error();
    CZorVideoDecompressor decoder;
    std::vector<CKorVideoPacket*> kept;
    std::vector<SPictureSums> sums;
    for (int i = 0; i < 10; ++i) {
        decoder.SendPacket(packets.At(i));
        while (CKorVideoPacket* frame = decoder.TakeFrame()) {
            sums.push_back(zortest::SumsOf(frame));
            kept.push_back(frame);
        }
    }
    ASSERT_FALSE(kept.empty());
    EXPECT_GT(decoder.DirectFrames(), 0) << "frames handed on without a copy";
    EXPECT_LT(kept.size(), 10u) << "the clip's B-frames hold pictures back";
    decoder.NewSequence();
    EXPECT_EQ(decoder.TakeFrame(), nullptr);
    // The clip's second key frame starts a sequence that decodes in full.
    int key = 1;
    while (packets.At(key)->GetFrameType() != CKorVideoPacket::I_FRAME) {
        ++key;
    }
    for (int i = key; i < packets.Count(); ++i) {
        decoder.SendPacket(packets.At(i));
    }
    decoder.Drain();
    EXPECT_EQ(decoder.QueuedFrames(), packets.Count() - key);
    EXPECT_EQ(decoder.ErrorCount(), 0);
    for (size_t i = 0; i < kept.size(); ++i) {
        EXPECT_EQ(zortest::SumsOf(kept[i]), sums[i]) << i;
        kept[i]->Release();
    }
}

// Faults of the stream: reported once, counted, never a crash or a leak (the sanitizer build
// checks the last two).
TEST(VideoDecompressor, ReportsAnUnusableStreamOnce) {
    CBelDiagnosticCapture capture;
    CZorVideoDecompressor decoder;
    const BITMAPINFOHEADER unknown{40, 16, 16, 1, 24, MakeFourCC('Z', 'Z', '9', '9'),
                                   0,  0,  0,  0, 0};
    for (int i = 0; i < 5; ++i) {
        CKorVideoPacket* packet = g_VideoPacketSource.NewPacket("abc", 3, 0);
        packet->SetBitmapFormat(&unknown, 77, 0);
        bool produced = true;
        EXPECT_EQ(decoder.Decompress(packet, &produced), nullptr);
        EXPECT_FALSE(produced);
        packet->Release();
    }
    CKorVideoPacket* bare = g_VideoPacketSource.NewPacket("abc", 3, 0);
    bool produced = true;
    EXPECT_EQ(decoder.Decompress(bare, &produced), nullptr);
    bare->Release();
    EXPECT_EQ(decoder.ErrorCount(), 6);
    EXPECT_EQ(std::string(capture.Text(EBelDiagnosticKind::Dump).c_str()),
              "CZorVideoDecompressor::Decompress -> unsupported compression 'ZZ99'\n");
}

// Damage of every kind to a camera stream: the decoder survives, conceals or skips, says so
// once, and is back to whole pictures after the next key frame.
TEST(VideoDecompressor, SurvivesCorruptPacketsAndRecoversAtTheNextKeyFrame) {
    CClipPackets packets(ClipPath("cif.ts"));
    ASSERT_TRUE(packets.Ok()) << packets.Error();
    const std::vector<SPictureSums> reference = zortest::ReferenceDecode(ClipPath("cif.ts"));
    const int damagedEnd = 40; // packets 5..39 are damaged; 50 is a key frame
    for (unsigned seed = 1; seed <= 6; ++seed) {
        CBelDiagnosticCapture capture;
        std::mt19937 random(seed);
        CZorVideoDecompressor decoder;
        std::vector<SPictureSums> decoded;
        for (int i = 0; i < packets.Count(); ++i) {
            CKorVideoPacket* packet = packets.Copy(i);
            if (i >= 5 && i < damagedEnd) {
                zortest::Damage(packet, random, seed);
            }
            decoder.SendPacket(packet);
            packet->Release();
            while (CKorVideoPacket* frame = decoder.TakeFrame()) {
                if (frame->GetTimeStamp() >= packets.At(50)->GetTimeStamp()) {
                    decoded.push_back(zortest::SumsOf(frame));
                }
                frame->Release();
            }
        }
        decoder.Drain();
        while (CKorVideoPacket* frame = decoder.TakeFrame()) {
            decoded.push_back(zortest::SumsOf(frame));
            frame->Release();
        }
        const std::vector<SPictureSums> tail(reference.begin() + 50, reference.end());
        EXPECT_EQ(decoded, tail) << "seed " << seed;
        EXPECT_GT(decoder.ErrorCount(), 0) << "seed " << seed;
        EXPECT_LE(capture.Take().size(), 1u) << "seed " << seed;
    }
}

TEST(VideoDecompressor, FramesPassThroughAndEmptyPacketsAreSkipped) {
    CZorFrameBuilder builder;
    CKorVideoPacket* frame = builder.NewFrame(8, 8, true);
    CZorVideoDecompressor decoder;
    bool produced = false;
    CKorVideoPacket* out = decoder.Decompress(frame, &produced);
    EXPECT_TRUE(produced);
    EXPECT_EQ(out, frame);
    out->Release();
    frame->Release();

    CClipPackets packets(ClipPath("qcif.ts"));
    ASSERT_TRUE(packets.Ok()) << packets.Error();
    CKorVideoPacket* empty = packets.Copy(0);
    empty->SetDataSize(0);
    EXPECT_EQ(decoder.Decompress(empty, &produced), nullptr);
    empty->Release();
    out = decoder.Decompress(packets.At(0), &produced);
    ASSERT_TRUE(produced) << "an empty packet must not end the codec's stream";
    out->Release();
}

} // namespace
