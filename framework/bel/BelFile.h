// CBelFile: a binary file opened for reading, writing or appending, closed when destroyed.
#pragma once

#include <cstddef>
#include <cstdio>

class CBelFile {
public:
    enum EMode { MODE_READ, MODE_WRITE, MODE_APPEND };

    CBelFile() = default;
    ~CBelFile() { Close(); }
    CBelFile(const CBelFile&) = delete;
    CBelFile& operator=(const CBelFile&) = delete;

    bool Open(const char* path, EMode mode);
    bool IsOpen() const { return m_pFile != nullptr; }
    void Close();
    // Answer the bytes moved; fewer than asked means the end of the file or an error.
    size_t Read(void* buffer, size_t size);
    size_t Write(const void* data, size_t size);
    bool Flush();

private:
    std::FILE* m_pFile = nullptr;
};
