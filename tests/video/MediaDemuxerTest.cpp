#include "video/MediaDemuxer.h"

#include "tests/video/TestMedia.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <random>

namespace {

using zortest::Media;

struct SRead {
    std::vector<SMediaPacket> m_Video;
    std::vector<SMediaPacket> m_Audio;
    CMediaDemuxer::EResult m_End = CMediaDemuxer::EResult::End;
    std::vector<std::string> m_Notes;
};

// Reads the input to its end (or at most limit packets).
SRead ReadAll(CMediaDemuxer& demuxer, std::size_t limit = 100000) {
    SRead read;
    for (std::size_t i = 0; i < limit; ++i) {
        SMediaPacket packet;
        read.m_End = demuxer.Read(&packet);
        std::vector<std::string> notes = demuxer.TakeNotes();
        read.m_Notes.insert(read.m_Notes.end(), notes.begin(), notes.end());
        if (read.m_End != CMediaDemuxer::EResult::Packet) {
            break;
        }
        (packet.m_Kind == EMediaKind::Video ? read.m_Video : read.m_Audio)
            .push_back(std::move(packet));
    }
    return read;
}

std::vector<std::uint8_t> Payload(const SMediaPacket& packet) {
    std::vector<std::uint8_t> bytes(packet.PayloadSize());
    bytes.resize(packet.WritePayload(bytes.data()));
    return bytes;
}

// Decodes the delivered payloads as a decoder given nothing but the packets would: no set-up
// data beyond what travels in band. Answers the pictures' types, counted.
std::map<int, int> DecodePictureTypes(int codecId, const std::vector<SMediaPacket>& packets,
                                      int* errors) {
    const AVCodec* codec = avcodec_find_decoder(static_cast<AVCodecID>(codecId));
    AVCodecContext* context = avcodec_alloc_context3(codec);
    EXPECT_EQ(avcodec_open2(context, codec, nullptr), 0);
    AVPacket* av = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    std::map<int, int> types;
    *errors = 0;
    auto drain = [&] {
        while (avcodec_receive_frame(context, frame) == 0) {
            ++types[frame->pict_type];
            *errors += (frame->decode_error_flags != 0);
        }
    };
    for (const SMediaPacket& packet : packets) {
        std::vector<std::uint8_t> bytes = Payload(packet);
        bytes.resize(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE, 0);
        av->data = bytes.data();
        av->size = static_cast<int>(bytes.size() - AV_INPUT_BUFFER_PADDING_SIZE);
        *errors += avcodec_send_packet(context, av) < 0;
        drain();
    }
    avcodec_send_packet(context, nullptr);
    drain();
    av_frame_free(&frame);
    av->data = nullptr;
    av_packet_free(&av);
    avcodec_free_context(&context);
    return types;
}

struct SClip {
    const char* m_File;
    const char* m_FourCC;
    int m_Width;
    int m_Height;
    int m_AudioTag; // 0: no audio
};

class MediaDemuxerClips : public testing::TestWithParam<SClip> {};

// Every container and codec the source claims gives 50 pictures (2 s at 25 frames/s) that a
// decoder fed only the packets decodes without error, with the frame types it finds and one
// picture every 40 ms from the input's start.
TEST_P(MediaDemuxerClips, PacketsDecodeAndCarryTheirPicturesTypesAndTimes) {
    const SClip& clip = GetParam();
    CMediaDemuxer demuxer;
    ASSERT_TRUE(demuxer.Open(Media(clip.m_File), {})) << demuxer.Error();
    const auto format = demuxer.VideoFormat();
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&format->m_FourCC), 4), clip.m_FourCC);
    EXPECT_EQ(format->m_Width, clip.m_Width);
    EXPECT_EQ(format->m_Height, clip.m_Height);
    EXPECT_EQ(MediaFourCCOf(MediaCodecOfFourCC(format->m_FourCC)), format->m_FourCC);

    SRead read = ReadAll(demuxer);
    EXPECT_EQ(read.m_End, CMediaDemuxer::EResult::End);
    ASSERT_EQ(read.m_Video.size(), 50u);
    EXPECT_TRUE(read.m_Video.front().m_Key);
    EXPECT_EQ(read.m_Video.front().m_FrameType, kNalFrameI);

    int errors = 0;
    const std::map<int, int> decoded =
        DecodePictureTypes(MediaCodecOfFourCC(format->m_FourCC), read.m_Video, &errors);
    EXPECT_EQ(errors, 0);
    std::map<int, int> ours;
    const std::map<int, int> pictureType = {{kNalFrameI, AV_PICTURE_TYPE_I},
                                            {kNalFrameP, AV_PICTURE_TYPE_P},
                                            {kNalFrameB, AV_PICTURE_TYPE_B}};
    for (const SMediaPacket& packet : read.m_Video) {
        ++ours[pictureType.at(packet.m_FrameType)];
    }
    EXPECT_EQ(ours, decoded);

    std::vector<std::int64_t> times;
    for (const SMediaPacket& packet : read.m_Video) {
        EXPECT_TRUE(packet.m_PtsValid);
        times.push_back(packet.m_PtsUs);
    }
    std::sort(times.begin(), times.end());
    EXPECT_LT(times.front(), 100000); // within the input's first 100 ms (audio may lead)
    for (std::size_t i = 1; i < times.size(); ++i) {
        EXPECT_NEAR(static_cast<double>(times[i] - times[i - 1]), 40000.0, 1000.0) << i;
    }

    EXPECT_EQ(demuxer.HasAudio(), clip.m_AudioTag != 0);
    if (clip.m_AudioTag != 0) {
        EXPECT_EQ(demuxer.AudioFormat().m_Tag, clip.m_AudioTag);
        EXPECT_FALSE(read.m_Audio.empty());
    }
}

void PrintTo(const SClip& clip, std::ostream* out) {
    *out << clip.m_File;
}

INSTANTIATE_TEST_SUITE_P(Containers, MediaDemuxerClips,
                         testing::Values(SClip{"h264_aac.mp4", "H264", 176, 144, 0xFF},
                                         SClip{"h264_pcm.mkv", "H264", 176, 144, 1},
                                         SClip{"hevc.mkv", "HEVC", 176, 144, 0},
                                         SClip{"mjpeg_alaw.avi", "MJPG", 176, 144, 6},
                                         SClip{"mpeg4_mulaw.avi", "FMP4", 176, 144, 7},
                                         SClip{"h264_mp2.ts", "H264", 176, 144, 0x50},
                                         SClip{"baseline.h264", "H264", 176, 144, 0},
                                         SClip{"card.mjpeg", "MJPG", 176, 144, 0}),
                         [](const testing::TestParamInfo<SClip>& info) {
                             std::string name = info.param.m_File;
                             std::replace(name.begin(), name.end(), '.', '_');
                             return name;
                         });

// Inputs the source cannot use are refused when opened, with the reason.
TEST(MediaDemuxer, UnusableInputsAreRefusedWithTheirReason) {
    const std::string garbage = zortest::Scratch("garbage.mp4");
    zortest::WriteFile(garbage, std::string(4096, '\x5A'));
    const std::string empty = zortest::Scratch("empty.mkv");
    zortest::WriteFile(empty, "");
    const struct {
        std::string m_Url;
        SMediaOpenOptions m_Options;
        const char* m_Reason;
    } cases[] = {
        {Media("missing.mp4"), {}, "cannot open (No such file or directory)"},
        {Media("tone.wav"), {}, "no video stream"},
        {Media("ffv1.mkv"), {}, "unsupported video codec 'ffv1' (the source passes H.264"},
        {garbage, {}, "cannot open (Invalid data found when processing input)"},
        {empty, {}, "cannot open"},
        {Media("baseline.h264"), {"h265x", {}, 5.0, true}, "unknown input format 'h265x'"},
        {Media("baseline.h264"),
         {"", {{"framerat", "10"}}, 5.0, true},
         "option 'framerat' is not known to this input"},
    };
    for (const auto& c : cases) {
        CMediaDemuxer demuxer;
        EXPECT_FALSE(demuxer.Open(c.m_Url, c.m_Options)) << c.m_Url;
        EXPECT_EQ(demuxer.Error().rfind(c.m_Reason, 0), 0u) << c.m_Url << ": " << demuxer.Error();
        SMediaPacket packet;
        EXPECT_EQ(demuxer.Read(&packet), CMediaDemuxer::EResult::Failed);
    }
    // Options libavformat knows are passed on: a raw stream read at another frame rate.
    CMediaDemuxer slow;
    ASSERT_TRUE(slow.Open(Media("card.mjpeg"), {"", {{"framerate", "10"}}, 5.0, true}));
    const SRead read = ReadAll(slow);
    ASSERT_EQ(read.m_Video.size(), 50u);
    EXPECT_EQ(read.m_Video[10].m_PtsUs, 1000000);
}

// A picture size change mid-stream gives a new format generation at the first picture of the
// new size, with that size and its parameter sets, and one note.
TEST(MediaDemuxer, SizeChangeMidStreamStartsANewFormat) {
    CMediaDemuxer demuxer;
    ASSERT_TRUE(demuxer.Open(Media("size_change.h264"), {}));
    const SRead read = ReadAll(demuxer);
    ASSERT_EQ(read.m_Video.size(), 50u);
    for (std::size_t i = 0; i < read.m_Video.size(); ++i) {
        const SMediaVideoFormat& format = *read.m_Video[i].m_pVideoFormat;
        EXPECT_EQ(format.m_Generation, i < 25 ? 1 : 2) << i;
        EXPECT_EQ(format.m_Width, i < 25 ? 176 : 320) << i;
        EXPECT_EQ(format.m_Height, i < 25 ? 144 : 240) << i;
    }
    EXPECT_NE(read.m_Video[0].m_pVideoFormat->m_ExtraData,
              read.m_Video[25].m_pVideoFormat->m_ExtraData);
    ASSERT_EQ(read.m_Notes.size(), 1u);
    EXPECT_EQ(read.m_Notes[0], "video size changes from 176x144 to 320x240 at 1.0 s");
}

TEST(MediaDemuxer, SeekLandsOnTheKeyFrameAtOrBeforeTheTime) {
    CMediaDemuxer demuxer;
    ASSERT_TRUE(demuxer.Open(Media("h264_aac.mp4"), {}));
    ReadAll(demuxer, 30);
    ASSERT_TRUE(demuxer.Seek(1.5));
    SMediaPacket packet;
    do {
        ASSERT_EQ(demuxer.Read(&packet), CMediaDemuxer::EResult::Packet);
    } while (packet.m_Kind != EMediaKind::Video);
    EXPECT_TRUE(packet.m_Key);
    EXPECT_EQ(packet.m_PtsUs, 1000000);
    const SRead rest = ReadAll(demuxer);
    EXPECT_EQ(rest.m_Video.size(), 24u);
}

// A looping input starts again at its end, its times counting on without a gap or overlap.
TEST(MediaDemuxer, LoopingCountsTimeOn) {
    CMediaDemuxer demuxer;
    ASSERT_TRUE(demuxer.Open(Media("h264_pcm.mkv"), {}));
    demuxer.SetLoop(true);
    std::vector<std::int64_t> times;
    while (times.size() < 130) {
        SMediaPacket packet;
        ASSERT_EQ(demuxer.Read(&packet), CMediaDemuxer::EResult::Packet);
        if (packet.m_Kind == EMediaKind::Video) {
            times.push_back(packet.m_PtsUs);
        }
    }
    std::sort(times.begin(), times.end()); // decoding order: B-frames come after their P
    for (std::size_t i = 0; i < 120; ++i) {
        EXPECT_EQ(times[i], static_cast<std::int64_t>(i) * 40000) << i;
    }
}

TEST(MediaDemuxer, CutFilesEndEarlyWithANote) {
    // moov first: the data is cut. moov last: nothing describes the data at all.
    const std::string faststart = zortest::Scratch("cut_faststart.mp4");
    const std::string plain = zortest::Scratch("cut_plain.mp4");
    const std::string whole = zortest::ReadFile(Media("h264_faststart.mp4"));
    zortest::WriteFile(faststart, whole.substr(0, whole.size() / 2));
    const std::string moovLast = zortest::ReadFile(Media("h264_aac.mp4"));
    zortest::WriteFile(plain, moovLast.substr(0, moovLast.size() / 2));

    CMediaDemuxer cut;
    ASSERT_TRUE(cut.Open(faststart, {}));
    const SRead read = ReadAll(cut);
    EXPECT_EQ(read.m_End, CMediaDemuxer::EResult::End);
    EXPECT_GT(read.m_Video.size(), 10u);
    EXPECT_LT(read.m_Video.size(), 50u);
    EXPECT_TRUE(cut.IsTruncated());
    ASSERT_FALSE(read.m_Notes.empty());
    EXPECT_EQ(read.m_Notes.back().rfind("truncated: the data ends at", 0), 0u)
        << read.m_Notes.back();

    CMediaDemuxer lost;
    EXPECT_FALSE(lost.Open(plain, {}));
    EXPECT_EQ(lost.Error().rfind("cannot open", 0), 0u);
}

// Damaged files, made from good ones by seeded mutations, are read to an end without a crash,
// a read outside a buffer (the sanitizer build checks) or a hang.
TEST(MediaDemuxer, DamagedFilesAreReadToAnEnd) {
    std::mt19937 random(20261123);
    for (const char* name : {"h264_aac.mp4", "h264_pcm.mkv", "hevc.mkv", "h264_mp2.ts",
                             "baseline.h264", "mjpeg_alaw.avi", "mpeg4_mulaw.avi"}) {
        const std::string original = zortest::ReadFile(Media(name));
        for (int round = 0; round < 12; ++round) {
            std::string damaged = original;
            std::uniform_int_distribution<std::size_t> position(0, damaged.size() - 1);
            switch (round % 3) {
            case 0: // scattered bytes
                for (int i = 0; i < 40; ++i) {
                    damaged[position(random)] = static_cast<char>(random());
                }
                break;
            case 1: { // a run of bytes overwritten
                const std::size_t at = position(random);
                for (std::size_t i = at; i < std::min(at + 600, damaged.size()); ++i) {
                    damaged[i] = static_cast<char>(random());
                }
                break;
            }
            default: // cut anywhere
                damaged.resize(position(random));
                break;
            }
            const std::string file = zortest::Scratch(std::string("damaged_") + name);
            zortest::WriteFile(file, damaged);
            CMediaDemuxer demuxer;
            if (!demuxer.Open(file, {})) {
                EXPECT_FALSE(demuxer.Error().empty());
                continue;
            }
            const SRead read = ReadAll(demuxer, 5000);
            EXPECT_NE(read.m_End, CMediaDemuxer::EResult::Packet) << name << " round " << round;
            for (const SMediaPacket& packet : read.m_Video) {
                Payload(packet); // every payload written within its size
            }
        }
    }
}

} // namespace
