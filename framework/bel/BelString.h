// CBelString: the counted character string used across the framework and the module.
#pragma once

#include <cstdarg>
#include <string>
#include <string_view>

// The shared empty string.
extern const char* const BelPchNil;

class CBelString {
public:
    CBelString() = default;
    CBelString(const char* text) : m_Text(text ? text : "") {}
    CBelString(std::string text) : m_Text(std::move(text)) {}
    CBelString(std::string_view text) : m_Text(text) {}

    int GetLength() const { return static_cast<int>(m_Text.size()); }
    bool IsEmpty() const { return m_Text.empty(); }
    operator const char*() const { return m_Text.c_str(); }
    const char* c_str() const { return m_Text.c_str(); }
    const std::string& str() const { return m_Text; }
    char operator[](int index) const { return m_Text[static_cast<size_t>(index)]; }

    // printf-style formatting; replaces the contents.
    void Format(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void FormatV(const char* format, va_list args);

    CBelString Left(int count) const;
    CBelString Right(int count) const;
    CBelString Mid(int first, int count = -1) const;
    // Index of the last occurrence of ch, or -1.
    int ReverseFind(char ch) const;
    int Find(char ch, int start = 0) const;
    void MakeUpper();
    void MakeLower();
    // strcmp-style results: negative, zero or positive.
    int Compare(const char* other) const;
    int CompareNoCase(const char* other) const;

    // Direct access for C-style writers: GetBuffer(n) gives room for n characters plus the
    // terminator; ReleaseBuffer(-1) takes the length from the terminator.
    char* GetBuffer(int minLength);
    void ReleaseBuffer(int newLength = -1);

    CBelString& operator+=(const CBelString& other);
    CBelString& operator+=(const char* other);
    CBelString& operator+=(char ch);

    friend CBelString operator+(const CBelString& a, const CBelString& b) {
        return CBelString(a.m_Text + b.m_Text);
    }
    friend CBelString operator+(const CBelString& a, const char* b) {
        return CBelString(a.m_Text + (b ? b : ""));
    }
    friend CBelString operator+(const char* a, const CBelString& b) {
        return CBelString((a ? a : "") + b.m_Text);
    }
    friend bool operator==(const CBelString& a, const CBelString& b) {
        return a.m_Text == b.m_Text;
    }
    friend bool operator==(const CBelString& a, const char* b) { return a.Compare(b) == 0; }
    friend bool operator<(const CBelString& a, const CBelString& b) { return a.m_Text < b.m_Text; }

private:
    std::string m_Text;
};
