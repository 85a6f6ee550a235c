// Packet-level audio encoders: 16-bit linear PCM packets in, G.711 mu-law or G.726 packets out.
// Each class wraps one block encoder (audio/codecs/BlockEncoder.h) with the packet work around
// it: the output format record, the encoder's own format sequence number, the stamps and the cut
// into packets of at most 1440 bytes.
//
// Invariants:
//  - The input is read as signed 16-bit mono samples, count = data size / 2; its channel count
//    and bits per sample are ignored.
//  - One output packet never holds more than kPacketBytes bytes. A longer input is cut into
//    several packets of whole groups (SamplesPerPacket samples each), so no sample is lost; each
//    piece is stamped at the input's stamps plus the time of its first sample.
//  - A sample count that is not a whole group (2, 4 or 8 samples for G.726-32, -16, -24) is
//    padded with silence to the end of its group; nothing is read past the input.
//  - The output format and sequence number belong to the encoder object: the number is taken
//    when the object is made and stays for its life, so a new encoder is a new format.
//  - G.726 state carries from packet to packet and resets only with a new encoder object.
#pragma once

#include "audio/codecs/BlockEncoder.h"
#include "entry/ZorExport.h"
#include "framework/bel/WinTypes.h"

#include <cstddef>
#include <vector>

class CKorAudioPacket;

class ZOR_EXPORT CAudioEncoderImpl {
public:
    // The audio packet source's standard packet: the cap on one output packet's payload.
    static constexpr std::size_t kPacketBytes = 1440;

    virtual ~CAudioEncoderImpl();
    CAudioEncoderImpl(const CAudioEncoderImpl&) = delete;
    CAudioEncoderImpl& operator=(const CAudioEncoderImpl&) = delete;

    // Encodes the input's samples from firstSample on, at most SamplesPerPacket() of them, into
    // a new packet carrying the output format, this encoder's sequence number, the input's
    // stream number and the input's stamps advanced by firstSample's time. Borrows pcm. Returns
    // a new packet (one reference, the caller's), or nullptr when no sample is left from
    // firstSample on (firstSample > 0). An input without samples gives an empty packet for
    // firstSample 0. Call with firstSample = 0, SamplesPerPacket(), ... to cover a long input.
    // Virtual, in the slot after the destructor, as other modules expect of an encoder.
    virtual CKorAudioPacket* Encode(const CKorAudioPacket* pcm, std::size_t firstSample = 0);

    // Samples of the input (data size / 2).
    static std::size_t SampleCount(const CKorAudioPacket* pcm);
    // The most samples one output packet takes: whole groups that fit kPacketBytes.
    std::size_t SamplesPerPacket() const { return m_SamplesPerPacket; }
    // The output record as last written (cbSize extra bytes follow it).
    const WAVEFORMATEX* GetOutputFormat() const { return &m_Format.m_Record; }
    long GetFormatSeqNumber() const { return m_FormatSeqNumber; }

protected:
    CAudioEncoderImpl(const WAVEFORMATEX& format, WORD samplesPerBlock,
                      std::size_t samplesPerPacket);

    // Fills in the record's rate fields for an input at this many samples per second.
    virtual void SetOutputRate(DWORD inputRate) = 0;
    // Encodes count samples (count <= SamplesPerPacket()) and answers the bytes written.
    virtual std::size_t EncodeSamples(const short* in, std::size_t count, unsigned char* out) = 0;

    WAVEFORMATEX& Record() { return m_Format.m_Record; }

private:
    // The record with its extra word right behind it, as packets copy it.
#pragma pack(push, 1)
    struct SFormat {
        WAVEFORMATEX m_Record;
        WORD m_SamplesPerBlock;
    };
#pragma pack(pop)

    SFormat m_Format;
    long m_FormatSeqNumber;
    std::size_t m_SamplesPerPacket;
    std::vector<short> m_Aligned; // input copy, only for a payload not aligned for short
};

// G.711 mu-law, 8 bits a sample. The output is labelled 8000 samples per second whatever the
// input rate: no resampling is done.
class ZOR_EXPORT CMuLawEncoder : public CAudioEncoderImpl {
public:
    CMuLawEncoder();

protected:
    void SetOutputRate(DWORD inputRate) override;
    std::size_t EncodeSamples(const short* in, std::size_t count, unsigned char* out) override;

private:
    CG711BlockEncoder m_Block;
};

// G.726 at bitsPerCode x 8 kbit/s (for an 8 kHz input): the output keeps the input's rate.
class ZOR_EXPORT CADPCMEncoder : public CAudioEncoderImpl {
public:
    explicit CADPCMEncoder(int bitsPerCode);

protected:
    void SetOutputRate(DWORD inputRate) override;
    std::size_t EncodeSamples(const short* in, std::size_t count, unsigned char* out) override;

private:
    CG726BlockEncoder m_Block;
};

class ZOR_EXPORT CADPCM16Encoder : public CADPCMEncoder {
public:
    CADPCM16Encoder() : CADPCMEncoder(2) {}
};

class ZOR_EXPORT CADPCM24Encoder : public CADPCMEncoder {
public:
    CADPCM24Encoder() : CADPCMEncoder(3) {}
};

class ZOR_EXPORT CADPCM32Encoder : public CADPCMEncoder {
public:
    CADPCM32Encoder() : CADPCMEncoder(4) {}
};
