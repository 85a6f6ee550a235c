#include "framework/bel/BelFile.h"

bool CBelFile::Open(const char* path, EMode mode) {
    Close();
    const char* how = mode == MODE_READ ? "rb" : mode == MODE_WRITE ? "wb" : "ab";
    m_pFile = path ? std::fopen(path, how) : nullptr;
    return m_pFile != nullptr;
}

void CBelFile::Close() {
    if (m_pFile) {
        std::fclose(m_pFile);
        m_pFile = nullptr;
    }
}

size_t CBelFile::Read(void* buffer, size_t size) {
    return m_pFile ? std::fread(buffer, 1, size, m_pFile) : 0;
}

size_t CBelFile::Write(const void* data, size_t size) {
    return m_pFile ? std::fwrite(data, 1, size, m_pFile) : 0;
}

bool CBelFile::Flush() {
    return m_pFile && std::fflush(m_pFile) == 0;
}
