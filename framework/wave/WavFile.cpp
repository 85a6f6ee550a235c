#include "framework/wave/WavFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

constexpr WORD kTagPcm = 1;
// A format chunk larger than this is not a sane WAV file for this system; refusing it keeps a
// corrupt header from driving huge reads.
constexpr unsigned long kMaxFormatSize = 1024;
// The most data a RIFF header can count (its sizes are 32-bit), less the header itself.
constexpr unsigned long kMaxDataSize = 0xFFFFFFFFul - 64;

DWORD ReadLE32(const BYTE* p) {
    return static_cast<DWORD>(p[0]) | (static_cast<DWORD>(p[1]) << 8) |
           (static_cast<DWORD>(p[2]) << 16) | (static_cast<DWORD>(p[3]) << 24);
}

// Writes a chunk's four-character id at offset n; answers the offset after it.
size_t PutTag(BYTE* header, size_t n, const char (&tag)[5]) {
    std::copy_n(tag, 4, header + n);
    return n + 4;
}

void PutLE32(BYTE* p, DWORD v) {
    for (int i = 0; i < 4; ++i) {
        p[i] = static_cast<BYTE>(v >> (8 * i));
    }
}

} // namespace

CWavReader::~CWavReader() {
    Close();
}

void CWavReader::Close() {
    if (m_pFile) {
        std::fclose(m_pFile);
        m_pFile = nullptr;
    }
}

bool CWavReader::Fail(const std::string& why) {
    m_Error = why;
    // A format read before the fault must not pass for the file's.
    m_Format.clear();
    m_DataSize = 0;
    Close();
    return false;
}

bool CWavReader::Open(const std::string& path) {
    Close();
    m_Error.clear();
    m_Format.clear();
    m_DataSize = m_Position = 0;
    m_Truncated = false;
    m_pFile = std::fopen(path.c_str(), "rb");
    if (!m_pFile) {
        return Fail(path + ": cannot open (" + std::strerror(errno) + ")");
    }
    BYTE riff[12];
    if (std::fread(riff, 1, 12, m_pFile) != 12 || std::memcmp(riff, "RIFF", 4) != 0 ||
        std::memcmp(riff + 8, "WAVE", 4) != 0) {
        return Fail(path + ": not a RIFF/WAVE file");
    }
    for (;;) {
        BYTE chunk[8];
        if (std::fread(chunk, 1, 8, m_pFile) != 8) {
            return Fail(path + (m_Format.empty() ? ": no fmt chunk" : ": no data chunk"));
        }
        const DWORD size = ReadLE32(chunk + 4);
        if (std::memcmp(chunk, "fmt ", 4) == 0) {
            if (size < 16 || size > kMaxFormatSize) {
                return Fail(path + ": malformed fmt chunk of " + std::to_string(size) + " bytes");
            }
            std::vector<BYTE> bytes(std::max<size_t>(size, sizeof(WAVEFORMATEX)), 0);
            if (std::fread(bytes.data(), 1, size, m_pFile) != size) {
                return Fail(path + ": truncated fmt chunk");
            }
            if (size & 1) {
                std::fgetc(m_pFile);
            }
            WAVEFORMATEX format;
            std::memcpy(&format, bytes.data(), sizeof(format));
            const size_t available = bytes.size() - sizeof(WAVEFORMATEX);
            if (size < sizeof(WAVEFORMATEX) || format.wFormatTag == kTagPcm) {
                format.cbSize = 0;
            } else if (format.cbSize > available) {
                return Fail(path + ": fmt chunk announces more extra bytes than it holds");
            }
            if (format.nChannels == 0 || format.nBlockAlign == 0 || format.nSamplesPerSec == 0) {
                return Fail(path + ": fmt chunk has zero channels, block alignment or rate");
            }
            std::memcpy(bytes.data(), &format, sizeof(format));
            bytes.resize(sizeof(WAVEFORMATEX) + format.cbSize);
            m_Format = std::move(bytes);
        } else if (std::memcmp(chunk, "data", 4) == 0) {
            if (m_Format.empty()) {
                return Fail(path + ": data chunk before the fmt chunk");
            }
            const long start = std::ftell(m_pFile);
            std::fseek(m_pFile, 0, SEEK_END);
            const long end = std::ftell(m_pFile);
            std::fseek(m_pFile, start, SEEK_SET);
            const unsigned long present = end > start ? static_cast<unsigned long>(end - start) : 0;
            m_DataSize = size;
            if (present < size) {
                m_DataSize = present;
                m_Truncated = true;
            }
            const WORD align = Format().nBlockAlign; // checked non-zero with the fmt chunk
            if (align > 1) {
                m_DataSize -= m_DataSize % align;
            }
            return true;
        } else if (std::fseek(m_pFile, static_cast<long>(size) + (size & 1), SEEK_CUR) != 0) {
            return Fail(path + ": truncated chunk");
        }
    }
}

const WAVEFORMATEX& CWavReader::Format() const {
    static const WAVEFORMATEX kNone{};
    return m_Format.empty() ? kNone : *reinterpret_cast<const WAVEFORMATEX*>(m_Format.data());
}

unsigned long CWavReader::Read(BYTE* buffer, unsigned long size) {
    if (!m_pFile) {
        return 0;
    }
    const WORD align = Format().nBlockAlign;
    unsigned long want = std::min(size, m_DataSize - m_Position);
    want -= want % align;
    const size_t got = std::fread(buffer, 1, want, m_pFile);
    const unsigned long whole =
        static_cast<unsigned long>(got) - static_cast<unsigned long>(got) % align;
    m_Position += whole;
    return whole;
}

CWavWriter::~CWavWriter() {
    Close();
}

bool CWavWriter::Open(const std::string& path, const WAVEFORMATEX& format) {
    Close();
    m_Error.clear();
    const bool pcm = format.wFormatTag == kTagPcm;
    // PCM takes the 16-byte record; other tags the full record with its extra bytes and a fact
    // chunk holding the sample count.
    const size_t extra = pcm ? 0 : format.cbSize;
    const auto* first = reinterpret_cast<const BYTE*>(&format);
    m_Format.assign(first, first + sizeof(WAVEFORMATEX) + extra);
    if (pcm) {
        reinterpret_cast<WAVEFORMATEX*>(m_Format.data())->cbSize = 0;
    }
    m_DataSize = 0;
    m_WriteFailed = false;
    m_pFile = std::fopen(path.c_str(), "wb");
    if (!m_pFile) {
        m_Error = path + ": cannot create (" + std::strerror(errno) + ")";
        return false;
    }
    const auto fmtSize = static_cast<DWORD>(pcm ? 16 : m_Format.size());
    std::vector<BYTE> header(48 + m_Format.size());
    BYTE* h = header.data();
    size_t n = 0;
    n = PutTag(h, n, "RIFF");
    PutLE32(h + n, 0); // patched by Close
    n += 4;
    n = PutTag(h, n, "WAVE");
    n = PutTag(h, n, "fmt ");
    PutLE32(h + n, fmtSize);
    n += 4;
    std::memcpy(header.data() + n, m_Format.data(), fmtSize);
    n += fmtSize;
    if (fmtSize % 2) {
        header[n++] = 0; // chunks are word-aligned
    }
    if (!pcm) {
        n = PutTag(h, n, "fact");
        PutLE32(h + n, 4);
        PutLE32(h + n + 4, 0); // patched by Close
        m_FactSizeOffset = static_cast<long>(n + 4);
        n += 8;
    } else {
        m_FactSizeOffset = -1;
    }
    n = PutTag(h, n, "data");
    PutLE32(h + n, 0); // patched by Close
    m_DataSizeOffset = static_cast<long>(n);
    n += 4;
    if (std::fwrite(header.data(), 1, n, m_pFile) != n) {
        m_WriteFailed = true;
    }
    return true;
}

bool CWavWriter::Write(const BYTE* data, unsigned long size) {
    if (!m_pFile) {
        return false;
    }
    // The RIFF sizes are 32-bit: a longer file could not say how long it is.
    if (size > kMaxDataSize - m_DataSize) {
        m_Error = "a WAV file holds at most 4 GB of data";
        m_WriteFailed = true;
        return false;
    }
    if (std::fwrite(data, 1, size, m_pFile) != size) {
        m_WriteFailed = true;
        return false;
    }
    m_DataSize += size;
    return true;
}

bool CWavWriter::Close() {
    if (!m_pFile) {
        return !m_WriteFailed;
    }
    if (m_DataSize & 1) {
        std::fputc(0, m_pFile); // chunks are word-aligned
    }
    const long end = std::ftell(m_pFile);
    const auto patch = [this](long offset, DWORD value) {
        BYTE word[4];
        PutLE32(word, value);
        if (std::fseek(m_pFile, offset, SEEK_SET) != 0 || std::fwrite(word, 1, 4, m_pFile) != 4) {
            m_WriteFailed = true;
        }
    };
    patch(4, static_cast<DWORD>(end - 8));
    if (m_FactSizeOffset >= 0) {
        const WORD align = Format().nBlockAlign ? Format().nBlockAlign : 1;
        patch(m_FactSizeOffset, static_cast<DWORD>(m_DataSize / align)); // sample frames
    }
    patch(m_DataSizeOffset, static_cast<DWORD>(m_DataSize));
    if (std::fclose(m_pFile) != 0) {
        m_WriteFailed = true;
    }
    m_pFile = nullptr;
    if (m_WriteFailed && m_Error.empty()) {
        m_Error = "write failed";
    }
    return !m_WriteFailed;
}
