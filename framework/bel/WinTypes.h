// Windows record and interface types that the module's formats and scripts depend on, laid out
// field for field as on the module's original platform (packed, little-endian), so that byte
// strings such as the wave-format hex string mean the same thing everywhere.
#pragma once

#include <cstdint>
#include <cstring>

using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using LONG = std::int32_t;
using HRESULT = std::int32_t;
using HWND = void*;
using HDC = void*;
using HINSTANCE = void*;

constexpr HRESULT S_OK = 0;
constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002u);
constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003u);

#pragma pack(push, 1)
struct GUID {
    DWORD Data1;
    WORD Data2;
    WORD Data3;
    BYTE Data4[8];
};

struct WAVEFORMATEX {
    WORD wFormatTag;
    WORD nChannels;
    DWORD nSamplesPerSec;
    DWORD nAvgBytesPerSec;
    WORD nBlockAlign;
    WORD wBitsPerSample;
    WORD cbSize; // count of extra bytes that follow the record
};

struct BITMAPINFOHEADER {
    DWORD biSize;
    LONG biWidth;
    LONG biHeight;
    WORD biPlanes;
    WORD biBitCount;
    DWORD biCompression;
    DWORD biSizeImage;
    LONG biXPelsPerMeter;
    LONG biYPelsPerMeter;
    DWORD biClrUsed;
    DWORD biClrImportant;
};
#pragma pack(pop)

static_assert(sizeof(GUID) == 16);
static_assert(sizeof(WAVEFORMATEX) == 18);
static_assert(sizeof(BITMAPINFOHEADER) == 40);

using IID = GUID;

inline bool operator==(const GUID& a, const GUID& b) {
    return std::memcmp(&a, &b, sizeof(GUID)) == 0;
}

// {00000000-0000-0000-C000-000000000046}
inline constexpr IID IID_IUnknown = {
    0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

// The root of every interface that crosses the module boundary.
struct IUnknown {
    virtual HRESULT QueryInterface(const IID& iid, void** object) = 0;
    virtual unsigned long AddRef() = 0;
    virtual unsigned long Release() = 0;

protected:
    ~IUnknown() = default;
};

constexpr DWORD MakeFourCC(char a, char b, char c, char d) {
    return static_cast<DWORD>(static_cast<BYTE>(a)) |
           (static_cast<DWORD>(static_cast<BYTE>(b)) << 8) |
           (static_cast<DWORD>(static_cast<BYTE>(c)) << 16) |
           (static_cast<DWORD>(static_cast<BYTE>(d)) << 24);
}
