#include "audio/AudioPlayer.h"

#include "framework/bel/BelClock.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/bel/BelMessageLoop.h"
#include "framework/kor/Packet.h"
#include "framework/kor/PacketSource.h"
#include "framework/wave/WavFile.h"
#include "tests/support/AlsaTestConfig.h"
#include "tests/support/Harness.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace zortest;

namespace {

// A packet of the speech's bytes [offset, offset + size) in its format (8 kHz 16-bit mono).
CKorAudioPacket* SpeechPacket(size_t offset, size_t size, long seq = 0) {
    const std::vector<BYTE>& speech = CAlsaTestConfig::Install().SpeechData();
    static const long speechSeq = CKorPacket::GetNewFormatSeqNumber();
    const WAVEFORMATEX format{1, 1, 8000, 16000, 2, 16, 0};
    CKorAudioPacket* packet =
        g_AudioPacketSource.NewPacket(speech.data() + offset, static_cast<long>(size), 0);
    packet->SetAudioFormat(&format, seq ? seq : speechSeq);
    return packet;
}

std::vector<BYTE> ReadWav(const std::string& path) {
    CWavReader reader;
    std::vector<BYTE> data;
    if (reader.Open(path)) {
        data.resize(reader.DataSize());
        data.resize(reader.Read(data.data(), reader.DataSize()));
    }
    return data;
}

class AudioPlayerTest : public ::testing::Test {
protected:
    AudioPlayerTest() { m_Source | m_Player; }
    ~AudioPlayerTest() override { std::remove(m_File.c_str()); }
    std::string Dumps() const { return m_Diagnostics.Text(EBelDiagnosticKind::Dump).str(); }

    const std::string m_File = ::testing::TempDir() + "zor-player.wav";
    CBelDiagnosticCapture m_Diagnostics;
    CTestSource m_Source;
    CZorAudioPlayer m_Player;
};

// Twelve packets fill the device; the next waits upstream until the device has played one,
// and the device's done call brings it in. The file holds every byte, in order.
TEST_F(AudioPlayerTest, TheDeviceSetsThePaceAndPushesBack) {
    CVirtualClockScope clock;
    m_Player.SetDevice(("file:" + m_File).c_str());
    const double start = BelDoubleTime();
    int pushed = 0;
    for (; pushed < 12; ++pushed) {
        ASSERT_TRUE(m_Source.Push(SpeechPacket(800 * pushed, 800))) << pushed;
    }
    EXPECT_FALSE(m_Source.Push(SpeechPacket(800 * pushed, 800)));
    EXPECT_EQ(m_Player.GetQueuedCount(), 12);
    clock.Advance(50); // one packet of 50 ms played
    EXPECT_EQ(m_Source.Pending(), nullptr) << "taken when the device had room";
    EXPECT_EQ(m_Player.GetPlayedCount(), 1);
    // A refused packet waits in the source, which offers it again when the player polls.
    for (++pushed; pushed < 20;) {
        if (m_Source.Pending()) {
            clock.Advance(10);
        } else {
            m_Source.Push(SpeechPacket(800 * pushed++, 800));
        }
    }
    while (m_Player.GetPlayedCount() < 20 && BelDoubleTime() - start < 5) {
        clock.Advance(10);
    }
    EXPECT_EQ(m_Player.GetQueuedCount(), 0);
    EXPECT_NEAR(BelDoubleTime() - start, 1.0, 0.011) << "20 packets of 50 ms, played back to back";
    m_Player.SetDevice(""); // closes the file
    const std::vector<BYTE> written = ReadWav(m_File);
    const std::vector<BYTE>& speech = CAlsaTestConfig::Install().SpeechData();
    ASSERT_EQ(written.size(), 16000u);
    EXPECT_TRUE(std::equal(written.begin(), written.end(), speech.begin()));
}

// What cannot be played is taken and released, with one line per cause; a device that does
// not open is reported once and the player plays again once given another.
TEST_F(AudioPlayerTest, WhatCannotBePlayedIsDroppedWithOneLine) {
    CVirtualClockScope clock;
    const WAVEFORMATEX muLaw{7, 1, 8000, 8000, 1, 8, 0};
    const long muLawSeq = CKorPacket::GetNewFormatSeqNumber();
    for (int i = 0; i < 3; ++i) {
        CKorAudioPacket* packet = g_AudioPacketSource.NewPacket(100);
        packet->SetAudioFormat(&muLaw, muLawSeq);
        packet->SetDataSize(100);
        EXPECT_TRUE(m_Source.Push(packet));
    }
    EXPECT_TRUE(m_Source.Push(MakeVideoPacket(0, 0)));
    EXPECT_EQ(m_Player.GetDroppedCount(), 3);
    EXPECT_EQ(Dumps(), "AudioPlayer -> only 8- or 16-bit PCM is played: packets of tag 7, 8 bits "
                       "are dropped\n");
    m_Diagnostics.Take();

    m_Player.SetDevice("file:/nonexistent/played.wav");
    EXPECT_TRUE(m_Source.Push(SpeechPacket(0, 800)));
    EXPECT_TRUE(m_Source.Push(SpeechPacket(800, 800)));
    EXPECT_EQ(m_Player.GetDroppedCount(), 5);
    EXPECT_EQ(
        Dumps().rfind("AudioPlayer -> waveOutOpen: /nonexistent/played.wav: cannot create", 0), 0u)
        << Dumps();
    EXPECT_EQ(Dumps().find('\n'), Dumps().size() - 1) << "one line only";

    m_Player.SetDevice(("file:" + m_File).c_str());
    EXPECT_TRUE(m_Source.Push(SpeechPacket(0, 800)));
    clock.Advance(100);
    EXPECT_EQ(m_Player.GetPlayedCount(), 1);
}

// A new format waits until the old one has played, then the device opens again for it.
TEST_F(AudioPlayerTest, ANewFormatWaitsForTheOldOneToPlayOut) {
    CVirtualClockScope clock;
    m_Player.SetDevice(("file:" + m_File).c_str());
    EXPECT_TRUE(m_Source.Push(SpeechPacket(0, 800)));
    EXPECT_TRUE(m_Source.Push(SpeechPacket(800, 800)));
    const WAVEFORMATEX wide{1, 1, 16000, 32000, 2, 16, 0};
    CKorAudioPacket* packet = SpeechPacket(1600, 3200);
    packet->SetAudioFormat(&wide, CKorPacket::GetNewFormatSeqNumber());
    EXPECT_FALSE(m_Source.Push(packet));
    clock.Advance(100);
    EXPECT_EQ(m_Source.Pending(), nullptr);
    clock.Advance(100);
    EXPECT_EQ(m_Player.GetPlayedCount(), 3);
    m_Player.SetDevice("");
    CWavReader reader;
    ASSERT_TRUE(reader.Open(m_File));
    EXPECT_EQ(reader.Format().nSamplesPerSec, 16000u) << "a file device starts its file anew";
}

// Through ALSA (alsa-lib's file plugin as the card): the bytes arrive as they were sent; a card
// that goes away is reported and the player drops until given a device again.
TEST_F(AudioPlayerTest, AlsaPlaybackCarriesTheBytesAndSurvivesACardThatGoes) {
    const CAlsaTestConfig& config = CAlsaTestConfig::Install();
    m_Player.SetDevice("zor_file_out");
    size_t offset = 0;
    const double deadline = BelDoubleTime() + 10.0;
    while (offset < 32000 && BelDoubleTime() < deadline) {
        if (!m_Source.Pending()) {
            m_Source.Push(SpeechPacket(offset, 1000));
            offset += 1000;
        }
        CBelMessageLoop::Current().RunFor(0.001);
    }
    while (m_Player.GetQueuedCount() > 0 && BelDoubleTime() < deadline) {
        CBelMessageLoop::Current().RunFor(0.01);
    }
    EXPECT_EQ(m_Player.GetPlayedCount(), 32);
    m_Player.SetDevice("zor_vanishing");
    const std::vector<BYTE> played = config.RawOutput();
    ASSERT_EQ(played.size(), 32000u);
    EXPECT_TRUE(std::equal(played.begin(), played.end(), config.SpeechData().begin()));

    offset = 0;
    while (Dumps().find("playing stopped") == std::string::npos && BelDoubleTime() < deadline) {
        if (!m_Source.Pending()) {
            m_Source.Push(SpeechPacket(offset % 80000, 800));
            offset += 800;
        }
        CBelMessageLoop::Current().RunFor(0.01);
    }
    EXPECT_NE(Dumps().find("AudioPlayer -> playing stopped: zor_vanishing: playback stopped"),
              std::string::npos)
        << Dumps();
    EXPECT_EQ(m_Player.GetQueuedCount(), 0) << "what the card held is released";
    const long dropped = m_Player.GetDroppedCount();
    EXPECT_TRUE(m_Source.Push(SpeechPacket(0, 800)));
    EXPECT_EQ(m_Player.GetDroppedCount(), dropped + 1);
}

} // namespace
