#include "framework/wave/WavFile.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

class WavFile : public ::testing::Test {
protected:
    std::string Path(const char* name) const { return ::testing::TempDir() + "wavfile_" + name; }
    std::string WriteBytes(const char* name, const std::string& bytes) const {
        const std::string path = Path(name);
        std::FILE* f = std::fopen(path.c_str(), "wb");
        std::fwrite(bytes.data(), 1, bytes.size(), f);
        std::fclose(f);
        return path;
    }
    static std::string ReadBytes(const std::string& path) {
        std::string bytes;
        std::FILE* f = std::fopen(path.c_str(), "rb");
        for (int c; (c = std::fgetc(f)) != EOF;) {
            bytes += static_cast<char>(c);
        }
        std::fclose(f);
        return bytes;
    }
    // Writes data under format and answers the file's bytes.
    std::string Written(const char* name, const WAVEFORMATEX& format, const std::string& data) {
        CWavWriter writer;
        EXPECT_TRUE(writer.Open(Path(name), format));
        EXPECT_TRUE(writer.Write(reinterpret_cast<const BYTE*>(data.data()), data.size()));
        EXPECT_TRUE(writer.Close());
        return ReadBytes(Path(name));
    }
    static std::string Le32(DWORD v) {
        return std::string{static_cast<char>(v), static_cast<char>(v >> 8),
                           static_cast<char>(v >> 16), static_cast<char>(v >> 24)};
    }
    static std::string Chunk(const char* id, const std::string& body) {
        std::string chunk = std::string(id, 4) + Le32(static_cast<DWORD>(body.size())) + body;
        return body.size() % 2 ? chunk + '\0' : chunk;
    }
    static std::string Riff(const std::string& chunks) {
        return "RIFF" + Le32(static_cast<DWORD>(4 + chunks.size())) + "WAVE" + chunks;
    }
    static std::string FmtBody(WORD tag, WORD channels, DWORD rate, WORD align, WORD bits) {
        WAVEFORMATEX f{tag, channels, rate, rate * align, align, bits, 0};
        return std::string(reinterpret_cast<const char*>(&f), 16);
    }

    const WAVEFORMATEX m_Pcm{1, 1, 8000, 16000, 2, 16, 0};
};

TEST_F(WavFile, PcmRoundTripKeepsFormatAndData) {
    const std::string data = "\x01\x02\x03\x04\x05\x06";
    const std::string bytes = Written("pcm.wav", m_Pcm, data);
    EXPECT_EQ(bytes.size(), 44u + data.size()) << "a 16-byte fmt chunk and no fact chunk for PCM";
    CWavReader reader;
    ASSERT_TRUE(reader.Open(Path("pcm.wav"))) << reader.Error();
    EXPECT_EQ(reader.Format().nSamplesPerSec, 8000u);
    EXPECT_EQ(reader.Format().cbSize, 0);
    EXPECT_EQ(reader.DataSize(), data.size());
    EXPECT_FALSE(reader.IsTruncated());
    std::vector<BYTE> buffer(64);
    ASSERT_EQ(reader.Read(buffer.data(), 64), data.size());
    EXPECT_EQ(std::string(buffer.begin(), buffer.begin() + 6), data);
    EXPECT_EQ(reader.Read(buffer.data(), 64), 0u);
}

TEST_F(WavFile, G711HasFullRecordAndFactChunkCountingSamples) {
    const WAVEFORMATEX alaw{6, 1, 8000, 8000, 1, 8, 0};
    const std::string bytes = Written("alaw.wav", alaw, std::string(1001, '\x55'));
    EXPECT_EQ(bytes.substr(16, 4), Le32(18)) << "fmt with cbSize";
    EXPECT_EQ(bytes.substr(38, 4), "fact");
    EXPECT_EQ(bytes.substr(46, 4), Le32(1001)) << "one sample per byte";
    EXPECT_EQ(bytes.substr(54, 4), Le32(1001));
    EXPECT_EQ(bytes.size(), 58u + 1001 + 1) << "odd data is padded to a word";
    EXPECT_EQ(bytes.substr(4, 4), Le32(static_cast<DWORD>(bytes.size() - 8)));
    CWavReader reader;
    ASSERT_TRUE(reader.Open(Path("alaw.wav"))) << reader.Error();
    EXPECT_EQ(reader.Format().wFormatTag, 6);
    EXPECT_EQ(reader.DataSize(), 1001u) << "the pad byte is no data";
}

// A G.726 record (tag 666) keeps its extra size and samples-per-block word, so the file reads
// back as it was written.
TEST_F(WavFile, ExtraFormatBytesAreWrittenAndReadBack) {
#pragma pack(push, 1)
    struct {
        WAVEFORMATEX m_Record;
        WORD m_SamplesPerBlock;
    } g726{{666, 1, 8000, 3000, 12, 3, 2}, 32};
#pragma pack(pop)
    const std::string bytes = Written("g726.wav", g726.m_Record, std::string(24, '\x2a'));
    EXPECT_EQ(bytes.substr(16, 4), Le32(20)) << "fmt with its two extra bytes";
    CWavReader reader;
    ASSERT_TRUE(reader.Open(Path("g726.wav"))) << reader.Error();
    ASSERT_EQ(reader.Format().cbSize, 2);
    EXPECT_EQ(reader.FormatBytes()[sizeof(WAVEFORMATEX)], 32);
    EXPECT_EQ(reader.DataSize(), 24u);
}

TEST_F(WavFile, ReadsWholeBlocksOnly) {
    Written("blocks.wav", WAVEFORMATEX{1, 2, 8000, 32000, 4, 16, 0}, std::string(40, '\1'));
    CWavReader reader;
    ASSERT_TRUE(reader.Open(Path("blocks.wav")));
    std::vector<BYTE> buffer(64);
    EXPECT_EQ(reader.Read(buffer.data(), 10), 8u);
    EXPECT_EQ(reader.Read(buffer.data(), 3), 0u) << "less than a block asks for nothing";
    EXPECT_EQ(reader.Position(), 8u);
}

TEST_F(WavFile, SkipsOtherChunksAndKeepsExtraFormatBytes) {
    std::string fmt =
        FmtBody(0xFFFE, 1, 8000, 2, 16) + std::string("\x16\0", 2) + std::string(22, '\7');
    const std::string path = WriteBytes(
        "extensible.wav", Riff(Chunk("LIST", "odd") + Chunk("fmt ", fmt) + Chunk("data", "abcd")));
    CWavReader reader;
    ASSERT_TRUE(reader.Open(path)) << reader.Error();
    EXPECT_EQ(reader.Format().cbSize, 22);
    EXPECT_EQ(reader.FormatBytes().size(), sizeof(WAVEFORMATEX) + 22);
    EXPECT_EQ(reader.DataSize(), 4u);
}

TEST_F(WavFile, TruncatedDataIsReadAsFarAsWholeBlocksGo) {
    std::string bytes = Written("cut.wav", m_Pcm, std::string(100, '\2'));
    const std::string path = WriteBytes("cut2.wav", bytes.substr(0, 44 + 51));
    CWavReader reader;
    ASSERT_TRUE(reader.Open(path));
    EXPECT_TRUE(reader.IsTruncated());
    EXPECT_EQ(reader.DataSize(), 50u);
}

TEST_F(WavFile, MalformedFilesAreRefusedWithAReason) {
    const std::string fmt = Chunk("fmt ", FmtBody(1, 1, 8000, 2, 16));
    const struct {
        const char* m_Name;
        std::string m_Bytes;
        const char* m_Reason;
    } cases[] = {
        {"empty", "", "not a RIFF/WAVE file"},
        {"avi", "RIFF\4\0\0\0AVI ", "not a RIFF/WAVE file"},
        {"nofmt", Riff(Chunk("data", "ab")), "data chunk before the fmt chunk"},
        {"nodata", Riff(fmt), "no data chunk"},
        {"smallfmt", Riff(Chunk("fmt ", "12345678") + Chunk("data", "ab")), "malformed fmt chunk"},
        {"hugefmt", Riff("fmt " + Le32(100000)), "malformed fmt chunk"},
        {"cutfmt", Riff("fmt " + Le32(16) + "1234"), "truncated fmt chunk"},
        {"zeroalign", Riff(Chunk("fmt ", FmtBody(1, 1, 8000, 0, 16)) + Chunk("data", "ab")),
         "zero channels, block alignment or rate"},
        {"extra",
         Riff(Chunk("fmt ", FmtBody(2, 1, 8000, 2, 4) + std::string("\x20\0", 2)) +
              Chunk("data", "ab")),
         "more extra bytes than it holds"},
    };
    for (const auto& c : cases) {
        CWavReader reader;
        EXPECT_FALSE(reader.Open(WriteBytes(c.m_Name, c.m_Bytes))) << c.m_Name;
        EXPECT_NE(reader.Error().find(c.m_Reason), std::string::npos)
            << c.m_Name << ": " << reader.Error();
        EXPECT_EQ(reader.Format().nBlockAlign, 0) << "a failed open leaves no format";
    }
    CWavReader missing;
    EXPECT_FALSE(missing.Open(Path("does_not_exist.wav")));
    EXPECT_NE(missing.Error().find("cannot open"), std::string::npos);
    std::vector<BYTE> buffer(4);
    EXPECT_EQ(missing.Read(buffer.data(), 4), 0u);
}

TEST_F(WavFile, WriterReportsWhatItCannotWrite) {
    CWavWriter writer;
    EXPECT_FALSE(writer.Open(Path("no_dir/x.wav"), m_Pcm));
    EXPECT_NE(writer.Error().find("cannot create"), std::string::npos);
    EXPECT_FALSE(writer.Write(reinterpret_cast<const BYTE*>("ab"), 2));
    CWavWriter full;
    ASSERT_TRUE(full.Open("/dev/full", m_Pcm));
    full.Write(reinterpret_cast<const BYTE*>("ab"), 2);
    EXPECT_FALSE(full.Close()) << "a failed flush or patch is reported";
}

} // namespace
