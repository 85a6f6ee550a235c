// The sample decoders behind the audio decoder component: one small class per input format,
// each turning a run of input bytes into signed 16-bit linear PCM.
//
// G.711 and G.726 decoders carry their state from call to call; only a new object starts
// afresh. The G.726 state record lives in the base (unused by the other formats) and starts at
// the Recommendation's reset values.
//
// Output room: out must hold (end - first) * 8 / bits-per-sample samples, the count the caller
// sizes its packet by; no decoder writes more. Decode returns how many it wrote, which is less
// when the input ends inside a G.726-24/-40 group (that partial group is ignored) and, for IMA
// ADPCM, by the 4 header bytes (8 samples): the caller fills the rest with silence.
#pragma once

#include <cstddef>

#include "audio/codecs/G726.h"

class CAudioDecoderImpl {
public:
    CAudioDecoderImpl() = default;
    CAudioDecoderImpl(const CAudioDecoderImpl&) = delete;
    CAudioDecoderImpl& operator=(const CAudioDecoderImpl&) = delete;

    // Decodes the bytes in [first, end) into out; returns the number of samples written.
    virtual std::size_t Decode(const unsigned char* first, const unsigned char* end,
                               short* out) = 0;
    // True when the caller's chunks must be whole multiples of the format's block alignment.
    virtual bool UsesBlockAlign() const { return true; }
    // Declared last so Decode and UsesBlockAlign keep the first two slots; virtual because the
    // owner deletes through a base pointer (std::unique_ptr<CAudioDecoderImpl>).
    virtual ~CAudioDecoderImpl() = default;

protected:
    zor::g726::State m_State;
};

// G.711 mu-law (format tag 7): one byte a sample.
class CMuLawDecoder final : public CAudioDecoderImpl {
public:
    std::size_t Decode(const unsigned char* first, const unsigned char* end, short* out) override;
};

// G.711 A-law (format tag 6): one byte a sample.
class CALawDecoder final : public CAudioDecoderImpl {
public:
    std::size_t Decode(const unsigned char* first, const unsigned char* end, short* out) override;
};

// G.726 (format tag 666) at 16 kbit/s: 2-bit codes, 4 per byte.
class CADPCM16Decoder final : public CAudioDecoderImpl {
public:
    std::size_t Decode(const unsigned char* first, const unsigned char* end, short* out) override;
};

// G.726 at 24 kbit/s: 3-bit codes, 8 per 3-byte group.
class CADPCM24Decoder final : public CAudioDecoderImpl {
public:
    std::size_t Decode(const unsigned char* first, const unsigned char* end, short* out) override;
};

// G.726 at 32 kbit/s: 4-bit codes, 2 per byte.
class CADPCM32Decoder final : public CAudioDecoderImpl {
public:
    std::size_t Decode(const unsigned char* first, const unsigned char* end, short* out) override;
};

// G.726 at 40 kbit/s: 5-bit codes, 8 per 5-byte group.
class CADPCM40Decoder final : public CAudioDecoderImpl {
public:
    std::size_t Decode(const unsigned char* first, const unsigned char* end, short* out) override;
};

// IMA ADPCM (format tag 17): every call is one block, header included. Block alignment does not
// apply: the caller cuts chunks by sample count alone.
class CMicrosoftADPCMDecoder final : public CAudioDecoderImpl {
public:
    std::size_t Decode(const unsigned char* first, const unsigned char* end, short* out) override;
    bool UsesBlockAlign() const override { return false; }
};
