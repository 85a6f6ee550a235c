#include "audio/codecs/AudioDecoderImpl.h"

#include "audio/codecs/G711.h"
#include "audio/codecs/ImaAdpcm.h"

namespace {

std::size_t Length(const unsigned char* first, const unsigned char* end) {
    return end > first ? static_cast<std::size_t>(end - first) : 0;
}

} // namespace

std::size_t CMuLawDecoder::Decode(const unsigned char* first, const unsigned char* end,
                                  short* out) {
    const std::size_t n = Length(first, end);
    zor::g711::Decode(zor::g711::ELaw::MuLaw, first, n, out);
    return n;
}

std::size_t CALawDecoder::Decode(const unsigned char* first, const unsigned char* end, short* out) {
    const std::size_t n = Length(first, end);
    zor::g711::Decode(zor::g711::ELaw::ALaw, first, n, out);
    return n;
}

std::size_t CADPCM16Decoder::Decode(const unsigned char* first, const unsigned char* end,
                                    short* out) {
    return zor::g726::DecodeBlock(m_State, 2, first, Length(first, end), out);
}

std::size_t CADPCM24Decoder::Decode(const unsigned char* first, const unsigned char* end,
                                    short* out) {
    return zor::g726::DecodeBlock(m_State, 3, first, Length(first, end), out);
}

std::size_t CADPCM32Decoder::Decode(const unsigned char* first, const unsigned char* end,
                                    short* out) {
    return zor::g726::DecodeBlock(m_State, 4, first, Length(first, end), out);
}

std::size_t CADPCM40Decoder::Decode(const unsigned char* first, const unsigned char* end,
                                    short* out) {
    return zor::g726::DecodeBlock(m_State, 5, first, Length(first, end), out);
}

std::size_t CMicrosoftADPCMDecoder::Decode(const unsigned char* first, const unsigned char* end,
                                           short* out) {
    return zor::ima::DecodeBlock(first, Length(first, end), out);
}
