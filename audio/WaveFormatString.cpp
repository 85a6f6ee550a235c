#include "audio/WaveFormatString.h"

#include "framework/bel/BelDiagnostics.h"

#include <cstring>

namespace {

constexpr int kPcmTag = 1;
constexpr int kRecordChars = 2 * static_cast<int>(sizeof(WAVEFORMATEX));

int HexValue(char digit) {
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    if (digit >= 'A' && digit <= 'F') {
        return digit - 'A' + 10;
    }
    return -1;
}

// Upper-cased text in, bytes out; false at the first character that is not a hex digit.
bool DecodeHex(CBelString text, BYTE* out, std::size_t size) {
    text.MakeUpper();
    for (std::size_t i = 0; i < size; ++i) {
        const int high = HexValue(text[static_cast<int>(2 * i)]);
        const int low = HexValue(text[static_cast<int>(2 * i + 1)]);
        if (high < 0 || low < 0) {
            return false;
        }
        out[i] = static_cast<BYTE>(high << 4 | low);
    }
    return true;
}

} // namespace

CBelString ZorWaveFormatToString(const WAVEFORMATEX* format) {
    if (!format) {
        return CBelString();
    }
    std::size_t size = sizeof(WAVEFORMATEX);
    if (format->wFormatTag != kPcmTag) {
        size += format->cbSize;
    }
    static const char kDigits[] = "0123456789abcdef";
    const auto* bytes = reinterpret_cast<const BYTE*>(format);
    std::string text;
    text.reserve(2 * size);
    for (std::size_t i = 0; i < size; ++i) {
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 0x0F];
    }
    return CBelString(std::move(text));
}

bool ZorHexStringToBytes(const char* text, std::vector<BYTE>& bytes) {
    bytes.clear();
    const CBelString hex(text);
    if (hex.GetLength() % 2 != 0) {
        return false;
    }
    bytes.resize(static_cast<std::size_t>(hex.GetLength() / 2));
    if (!DecodeHex(hex, bytes.data(), bytes.size())) {
        bytes.clear();
        return false;
    }
    return true;
}

bool ZorBinFromString(const CBelString& sT, void* value, std::size_t size) {
    auto* out = static_cast<BYTE*>(value);
    std::memset(out, 0, size);
    if (sT.GetLength() != static_cast<int>(2 * size)) {
        BelDisplayAssert("sT.GetLength() == 2 * sizeof(T)", __FILE__, __LINE__);
        return false;
    }
    if (!DecodeHex(sT, out, size)) {
        std::memset(out, 0, size);
        return false;
    }
    return true;
}

bool ZorWaveFormatFromString(const char* text, WAVEFORMATEX* format) {
    CBelString record = CBelString(text).Left(kRecordChars);
    record.MakeUpper();
    return ZorBinFromString(record, format);
}
