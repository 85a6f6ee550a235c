#include "audio/AudioEncoder.h"

#include "framework/kor/Packet.h"
#include "framework/kor/PacketSource.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace {

constexpr WORD kMuLawTag = 7;
constexpr WORD kG726Tag = 666; // this system's own tag for G.726; the rate is in the bits
constexpr DWORD kMuLawRate = 8000;

constexpr WAVEFORMATEX MuLawRecord() {
    return WAVEFORMATEX{kMuLawTag, 1, kMuLawRate, kMuLawRate, 1, 8, 0};
}

// Block alignment and samples per block as the recorder labels its G.726 streams: one 3-byte
// group at 24 kbit/s is kept whole four times over; the other rates use 4-byte blocks.
WAVEFORMATEX AdpcmRecord(int bits) {
    const WORD blockAlign = bits == 3 ? 12 : 4;
    return WAVEFORMATEX{kG726Tag, 1, 0, 0, blockAlign, static_cast<WORD>(bits), 2};
}

WORD AdpcmSamplesPerBlock(int bits) {
    return static_cast<WORD>(bits == 3 ? 96 / bits : 32 / bits);
}

} // namespace

CAudioEncoderImpl::CAudioEncoderImpl(const WAVEFORMATEX& format, WORD samplesPerBlock,
                                     std::size_t samplesPerPacket)
    : m_Format{format, samplesPerBlock}, m_FormatSeqNumber(CKorPacket::GetNewFormatSeqNumber()),
      m_SamplesPerPacket(samplesPerPacket) {}

CAudioEncoderImpl::~CAudioEncoderImpl() = default;

std::size_t CAudioEncoderImpl::SampleCount(const CKorAudioPacket* pcm) {
    return pcm ? pcm->GetDataSize() / sizeof(short) : 0;
}

CKorAudioPacket* CAudioEncoderImpl::Encode(const CKorAudioPacket* pcm, std::size_t firstSample) {
    const std::size_t total = SampleCount(pcm);
    // An empty input still makes its (empty) output packet: it replaces the input, so whatever
    // the packet marks downstream (a time, a gap) is not lost at the encoder.
    if ((firstSample >= total && !(firstSample == 0 && pcm)) || m_SamplesPerPacket == 0) {
        return nullptr;
    }
    const std::size_t count = std::min(total - firstSample, m_SamplesPerPacket);

    const short* in = nullptr;
    const BYTE* data = pcm->GetData() + firstSample * sizeof(short);
    if (reinterpret_cast<std::uintptr_t>(data) % alignof(short) == 0) {
        in = reinterpret_cast<const short*>(data);
    } else {
        m_Aligned.resize(count);
        std::memcpy(m_Aligned.data(), data, count * sizeof(short));
        in = m_Aligned.data();
    }

    const WAVEFORMATEX* input = pcm->GetAudioFormat();
    const DWORD rate = input ? input->nSamplesPerSec : 0;
    SetOutputRate(rate);

    CKorAudioPacket* out = g_AudioPacketSource.NewPacket(static_cast<long>(kPacketBytes));
    out->SetAudioFormat(&m_Format.m_Record, m_FormatSeqNumber);
    const double offsetMs = rate ? static_cast<double>(firstSample) * 1000.0 / rate : 0.0;
    out->SetTimeStamp(
        static_cast<std::uint32_t>(pcm->GetTimeStamp() + static_cast<long>(offsetMs)));
    out->SetTimeStampValid(pcm->IsTimeStampValid());
    out->SetRealTimeStamp(pcm->GetRealTimeStamp() + offsetMs / 1000.0);
    out->SetStreamNo(pcm->GetStreamNo());
    out->SetDataSize(static_cast<unsigned long>(EncodeSamples(in, count, out->GetData())));
    return out;
}

// ---------------------------------------------------------------------------------------------

CMuLawEncoder::CMuLawEncoder()
    : CAudioEncoderImpl(MuLawRecord(), 0, CG711BlockEncoder::MaxSamplesFor(kPacketBytes)),
      m_Block(zor::g711::ELaw::MuLaw) {}

void CMuLawEncoder::SetOutputRate(DWORD) {
    // Labelled 8 kHz whatever came in: the format is only ever used at 8 kHz.
}

std::size_t CMuLawEncoder::EncodeSamples(const short* in, std::size_t count, unsigned char* out) {
    return m_Block.EncodeBlock(in, count, out);
}

// ---------------------------------------------------------------------------------------------

CADPCMEncoder::CADPCMEncoder(int bitsPerCode)
    : CAudioEncoderImpl(AdpcmRecord(bitsPerCode), AdpcmSamplesPerBlock(bitsPerCode),
                        zor::g726::MaxSamplesFor(bitsPerCode, kPacketBytes)),
      m_Block(bitsPerCode) {}

void CADPCMEncoder::SetOutputRate(DWORD inputRate) {
    WAVEFORMATEX& record = Record();
    record.nSamplesPerSec = inputRate;
    record.nAvgBytesPerSec =
        static_cast<DWORD>(static_cast<std::uint64_t>(m_Block.BitsPerCode()) * inputRate / 8);
}

std::size_t CADPCMEncoder::EncodeSamples(const short* in, std::size_t count, unsigned char* out) {
    return m_Block.EncodeBlock(in, count, out);
}
