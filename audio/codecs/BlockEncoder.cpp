#include "audio/codecs/BlockEncoder.h"

std::size_t CG711BlockEncoder::EncodeBlock(const short* in, std::size_t count,
                                           unsigned char* out) const {
    zor::g711::Encode(m_Law, in, count, out);
    return count;
}

std::size_t CG726BlockEncoder::EncodeBlock(const short* in, std::size_t count, unsigned char* out) {
    return zor::g726::EncodeBlock(m_State, m_Bits, in, count, out);
}
