// Block encoders from signed 16-bit linear PCM, for the audio encoder component to build on:
// G.711 (one byte a sample) and G.726 (packed codes, state carried from call to call).
//
// Output sizes are exact and known in advance (EncodedBytes), and MaxSamplesFor tells how many
// input samples fit a bounded output buffer in whole groups, so a caller with a capped packet
// splits long input itself. A G.726 sample count that is not a whole group is padded with
// silence to the end of its group (see G726.h), so no sample is lost and the decoder stays in
// step; to avoid the padding mid-stream, feed whole groups.
#pragma once

#include <cstddef>

#include "audio/codecs/G711.h"
#include "audio/codecs/G726.h"

class CG711BlockEncoder {
public:
    explicit CG711BlockEncoder(zor::g711::ELaw law = zor::g711::ELaw::MuLaw) : m_Law(law) {}

    static std::size_t EncodedBytes(std::size_t samples) { return samples; }
    static std::size_t MaxSamplesFor(std::size_t byteCapacity) { return byteCapacity; }

    // Writes EncodedBytes(count) bytes and returns that count.
    std::size_t EncodeBlock(const short* in, std::size_t count, unsigned char* out) const;

private:
    zor::g711::ELaw m_Law;
};

class CG726BlockEncoder {
public:
    // bitsPerCode 2, 3, 4 or 5 (16, 24, 32, 40 kbit/s). Any other value makes an encoder that
    // writes nothing (IsValid() false), so a bad format cannot overrun a buffer.
    explicit CG726BlockEncoder(int bitsPerCode) : m_Bits(bitsPerCode) {}

    bool IsValid() const { return zor::g726::IsValidBits(m_Bits); }
    int BitsPerCode() const { return m_Bits; }
    std::size_t EncodedBytes(std::size_t samples) const {
        return zor::g726::EncodedBytes(m_Bits, samples);
    }
    std::size_t MaxSamplesFor(std::size_t byteCapacity) const {
        return zor::g726::MaxSamplesFor(m_Bits, byteCapacity);
    }

    // Writes EncodedBytes(count) bytes and returns that count.
    std::size_t EncodeBlock(const short* in, std::size_t count, unsigned char* out);
    // Back to the Recommendation's reset state.
    void Reset() { m_State.Reset(); }

private:
    int m_Bits;
    zor::g726::State m_State;
};
