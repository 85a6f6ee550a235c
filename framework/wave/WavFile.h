// Reading and writing RIFF/WAVE files. Pure file handling, free of the framework's modules:
// CWavReader parses the header and streams the sample data; CWavWriter writes PCM or G.711 data
// under the standard header (a fact chunk for the non-PCM tags, so that common players accept
// it) and patches the sizes when it is closed.
#pragma once

#include "framework/bel/WinTypes.h"

#include <cstdio>
#include <string>
#include <vector>

class CWavReader {
public:
    CWavReader() = default;
    ~CWavReader();
    CWavReader(const CWavReader&) = delete;
    CWavReader& operator=(const CWavReader&) = delete;

    // Opens and checks the header; on failure answers false and Error() says why in one line.
    bool Open(const std::string& path);
    void Close();
    const std::string& Error() const { return m_Error; }

    // The format record with its extra bytes (all zero while no file is open).
    const WAVEFORMATEX& Format() const;
    const std::vector<BYTE>& FormatBytes() const { return m_Format; }
    // Bytes of sample data the header announces and the file really holds.
    unsigned long DataSize() const { return m_DataSize; }
    unsigned long Position() const { return m_Position; }
    // True when the file holds less data than its header announced.
    bool IsTruncated() const { return m_Truncated; }

    // Reads up to size bytes of sample data (whole blocks); answers the bytes read, 0 at the end.
    unsigned long Read(BYTE* buffer, unsigned long size);

private:
    bool Fail(const std::string& why);

    std::FILE* m_pFile = nullptr;
    std::string m_Error;
    std::vector<BYTE> m_Format;
    unsigned long m_DataSize = 0;
    unsigned long m_Position = 0;
    bool m_Truncated = false;
};

class CWavWriter {
public:
    CWavWriter() = default;
    // Closes the file (patching the header) if still open.
    ~CWavWriter();
    CWavWriter(const CWavWriter&) = delete;
    CWavWriter& operator=(const CWavWriter&) = delete;

    // Creates the file for the format (tag 1 PCM, 6 A-law, 7 mu-law, or any other tag, written
    // as given). For a tag other than PCM the format's cbSize extra bytes, which follow it in
    // memory (as in a packet's record), are written too: G.726 keeps its samples-per-block word.
    // Answers false with Error() on failure.
    bool Open(const std::string& path, const WAVEFORMATEX& format);
    bool IsOpen() const { return m_pFile != nullptr; }
    bool Write(const BYTE* data, unsigned long size);
    // Patches the RIFF, fact and data sizes and closes; answers false if a write failed.
    bool Close();
    const std::string& Error() const { return m_Error; }
    // The record as written, its extra bytes behind it.
    const WAVEFORMATEX& Format() const {
        return *reinterpret_cast<const WAVEFORMATEX*>(m_Format.data());
    }
    unsigned long DataSize() const { return m_DataSize; }

private:
    std::FILE* m_pFile = nullptr;
    std::string m_Error;
    std::vector<BYTE> m_Format = std::vector<BYTE>(sizeof(WAVEFORMATEX));
    long m_FactSizeOffset = -1;
    long m_DataSizeOffset = 0;
    unsigned long m_DataSize = 0;
    bool m_WriteFailed = false;
};
