// The wave-format hex string: the text form of a WAVEFORMATEX that scripts hand to the audio
// components. Each byte of the record, in memory order (little-endian fields), is written as two
// hexadecimal digits: 18 bytes for PCM (tag 1), 18 plus cbSize extra bytes for any other tag.
//
//   16-bit PCM, mono, 8 kHz:  "01000100401f0000803e0000020010000000"
//   G.726 at 24 kbit/s:       "9a020100401f0000b80b00000c0003000200" + "2000"
//
// The writer emits lower-case digits; the readers upper-case first, so either case reads.
#pragma once

#include "framework/bel/BelString.h"
#include "framework/bel/WinTypes.h"

#include <cstddef>
#include <vector>

// The text form of the record and, for tags other than PCM, its cbSize extra bytes, which must
// follow the record in memory (as in an audio packet's format). Borrows format.
CBelString ZorWaveFormatToString(const WAVEFORMATEX* format);

// Reads an even-length hex text into bytes. Answers false, with bytes emptied, when the length
// is odd or a character is not a hex digit.
bool ZorHexStringToBytes(const char* text, std::vector<BYTE>& bytes);

// Reads exactly sizeof(T) bytes of raw memory from 2 * sizeof(T) hex digits. Another length is
// a programming fault of the caller (assertion "sT.GetLength() == 2 * sizeof(T)"); the value is
// then zeroed, as it is for a text that is not hex, and the answer is false.
bool ZorBinFromString(const CBelString& sT, void* value, std::size_t size);
template <class T> bool ZorBinFromString(const CBelString& sT, T* value) {
    return ZorBinFromString(sT, value, sizeof(T));
}

// What the encoder's "SetWaveFormatEx" reads: the first 36 characters, upper-cased, as the 18
// bytes of the record (extra bytes, if given, are not read). Answers false, with *format
// zeroed, when the text is shorter or not hex.
bool ZorWaveFormatFromString(const char* text, WAVEFORMATEX* format);
