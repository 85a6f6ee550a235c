#include "framework/bel/BelString.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <strings.h>

const char* const BelPchNil = "";

void CBelString::Format(const char* format, ...) {
    va_list args;
    va_start(args, format);
    FormatV(format, args);
    va_end(args);
}

void CBelString::FormatV(const char* format, va_list args) {
    va_list copy;
    va_copy(copy, args);
    // va_copy initialised copy; the analyser does not follow it through the macro.
    const int needed =
        std::vsnprintf(nullptr, 0, format, copy); // NOLINT(clang-analyzer-valist.Uninitialized)
    va_end(copy);
    if (needed < 0) {
        m_Text.clear();
        return;
    }
    m_Text.resize(static_cast<size_t>(needed) + 1);
    std::vsnprintf(m_Text.data(), m_Text.size(), format, args);
    m_Text.resize(static_cast<size_t>(needed));
}

CBelString CBelString::Left(int count) const {
    count = std::clamp(count, 0, GetLength());
    return CBelString(m_Text.substr(0, static_cast<size_t>(count)));
}

CBelString CBelString::Right(int count) const {
    count = std::clamp(count, 0, GetLength());
    return CBelString(m_Text.substr(m_Text.size() - static_cast<size_t>(count)));
}

CBelString CBelString::Mid(int first, int count) const {
    first = std::clamp(first, 0, GetLength());
    const int available = GetLength() - first;
    if (count < 0 || count > available) {
        count = available;
    }
    return CBelString(m_Text.substr(static_cast<size_t>(first), static_cast<size_t>(count)));
}

int CBelString::ReverseFind(char ch) const {
    const size_t at = m_Text.rfind(ch);
    return at == std::string::npos ? -1 : static_cast<int>(at);
}

int CBelString::Find(char ch, int start) const {
    if (start < 0 || start >= GetLength()) {
        return -1;
    }
    const size_t at = m_Text.find(ch, static_cast<size_t>(start));
    return at == std::string::npos ? -1 : static_cast<int>(at);
}

void CBelString::MakeUpper() {
    for (char& c : m_Text) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
}

void CBelString::MakeLower() {
    for (char& c : m_Text) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
}

int CBelString::Compare(const char* other) const {
    return std::strcmp(m_Text.c_str(), other ? other : "");
}

int CBelString::CompareNoCase(const char* other) const {
    return strcasecmp(m_Text.c_str(), other ? other : "");
}

char* CBelString::GetBuffer(int minLength) {
    if (minLength > GetLength()) {
        m_Text.resize(static_cast<size_t>(minLength));
    }
    return m_Text.data();
}

void CBelString::ReleaseBuffer(int newLength) {
    if (newLength < 0) {
        newLength = static_cast<int>(std::strlen(m_Text.c_str()));
    }
    m_Text.resize(static_cast<size_t>(std::min(newLength, GetLength())));
}

CBelString& CBelString::operator+=(const CBelString& other) {
    m_Text += other.m_Text;
    return *this;
}

CBelString& CBelString::operator+=(const char* other) {
    m_Text += other ? other : "";
    return *this;
}

CBelString& CBelString::operator+=(char ch) {
    m_Text += ch;
    return *this;
}
