#include "audio/AudioDecoderCom.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/PropertyMap.h"
#include "framework/kor/Packet.h"
#include "framework/kor/PacketSource.h"

#include <algorithm>
#include <cstdint>

namespace {

constexpr const char* kPath = "audio";
constexpr long kOutputCapacity = 1440; // the audio packet source's standard packet

constexpr WORD kPcmTag = 1;
constexpr WORD kALawTag = 6;
constexpr WORD kMuLawTag = 7;
constexpr WORD kImaTag = 17;
constexpr WORD kG726Tag = 666;

struct SChoice {
    std::unique_ptr<CAudioDecoderImpl> m_pDecoder;
    int m_Bits = 0;
    const char* m_Name = nullptr;
};

// The decoder of a format record, or none. G.711 and IMA are decoded at their one code size
// whatever the record's bits field says, so a mislabelled record cannot make a zero-sized chunk.
SChoice DecoderFor(const WAVEFORMATEX& format) {
    switch (format.wFormatTag) {
    case kMuLawTag:
        return {std::make_unique<CMuLawDecoder>(), 8, "64 kbps"};
    case kALawTag:
        return {std::make_unique<CALawDecoder>(), 8, "64 kbps"};
    case kImaTag:
        return {std::make_unique<CMicrosoftADPCMDecoder>(), 4, "32 kbps (MS IMA ADPCM)"};
    case kG726Tag:
        switch (format.wBitsPerSample) {
        case 4:
            return {std::make_unique<CADPCM32Decoder>(), 4, "32 kbps"};
        case 3:
            return {std::make_unique<CADPCM24Decoder>(), 3, "24 kbps"};
        case 2:
            return {std::make_unique<CADPCM16Decoder>(), 2, "16 kbps"};
        case 5:
            return {std::make_unique<CADPCM40Decoder>(), 5, "40 kbps"};
        default:
            return {};
        }
    default:
        return {};
    }
}

} // namespace

CZorAudioDecoder::CZorAudioDecoder()
    : CKorModule("AudioDecoder"), m_OutputFormatSeq(CKorPacket::GetNewFormatSeqNumber()) {}

CZorAudioDecoder::~CZorAudioDecoder() = default;

void CZorAudioDecoder::ChooseDecoder(const CKorAudioPacket* packet) {
    const long seq = packet->GetFormatSeqNumber();
    if (seq == m_LastFormatSeq) {
        return;
    }
    m_LastFormatSeq = seq;
    m_pDecoder.reset();
    m_DecoderBits = 0;
    const WAVEFORMATEX* format = packet->GetAudioFormat();
    if (!format) {
        return;
    }
    SChoice choice = DecoderFor(*format);
    if (!choice.m_pDecoder) {
        return; // the name stays: it tells what was decoded last
    }
    m_pDecoder = std::move(choice.m_pDecoder);
    m_DecoderBits = choice.m_Bits;
    m_sFormat = choice.m_Name;
}

void CZorAudioDecoder::DecodePacket(CKorAudioPacket* packet) {
    const WAVEFORMATEX& input = *packet->GetAudioFormat();
    const std::size_t bits = static_cast<std::size_t>(m_DecoderBits);
    const std::size_t size = packet->GetDataSize();

    // 700 samples' worth, in whole blocks where the format has blocks. IMA is cut by sample
    // count alone: each 350-byte chunk is decoded as one block of its own.
    std::size_t chunk = bits * kChunkSamples / 8;
    if (m_pDecoder->UsesBlockAlign() && input.nBlockAlign != 0 && input.nBlockAlign <= chunk) {
        chunk -= chunk % input.nBlockAlign;
    }
    // 3- and 5-bit codes only end on a byte boundary every 3 or 5 bytes: a chunk that split a
    // group would drop its bytes and put every later code out of step.
    if (bits == 3 || bits == 5) {
        chunk -= chunk % bits;
    }

    const DWORD rate = input.nSamplesPerSec;
    const WAVEFORMATEX pcm{kPcmTag, 1, rate, rate * 16 / 8, 2, 16, 0};
    const DWORD avgBytes =
        input.nAvgBytesPerSec ? input.nAvgBytesPerSec : static_cast<DWORD>(rate * bits / 8);
    const BYTE* data = packet->GetData();

    for (std::size_t offset = 0; offset < size; offset += chunk) {
        CKorAudioPacket* out = g_AudioPacketSource.NewPacket(kOutputCapacity);
        out->SetAudioFormat(&pcm, m_OutputFormatSeq);
        const double offsetMs = avgBytes ? static_cast<double>(offset) * 1000.0 / avgBytes : 0.0;
        out->SetTimeStamp(
            static_cast<std::uint32_t>(packet->GetTimeStamp() + static_cast<long>(offsetMs)));
        out->SetTimeStampValid(packet->IsTimeStampValid());
        out->SetRealTimeStamp(packet->GetRealTimeStamp() + offsetMs / 1000.0);
        out->SetStreamNo(packet->GetStreamNo());

        const std::size_t count = std::min(chunk, size - offset);
        const std::size_t samples = count * 8 / bits;
        auto* samplesOut = reinterpret_cast<short*>(out->GetData());
        const std::size_t written =
            m_pDecoder->Decode(data + offset, data + offset + count, samplesOut);
        if (written < samples) {
            std::fill(samplesOut + written, samplesOut + samples, short{0});
        }
        out->SetDataSize(static_cast<unsigned long>(samples * sizeof(short)));
        m_Pending.ChainPacket(out);
    }
    packet->Release();
}

int CZorAudioDecoder::Receive(CKorPacket* packet) {
    if (m_InRecv) {
        BelDisplayAssert("!m_InRecv", __FILE__, __LINE__);
        return 0;
    }
    m_InRecv = 1;
    int answer = 1;
    if (!m_Pending.DeliverTo(DownStreamModule())) {
        answer = 0;
    } else if (packet->GetKind() != CKorPacket::KIND_AUDIO) {
        answer = DownStreamModule()->Receive(packet);
    } else {
        auto* audio = static_cast<CKorAudioPacket*>(packet);
        ChooseDecoder(audio);
        if (m_pDecoder && audio->GetAudioFormat()) {
            DecodePacket(audio);
        } else {
            m_Pending.ChainPacket(audio); // undecodable: goes on as it came
        }
        m_Pending.DeliverTo(DownStreamModule());
    }
    m_InRecv = 0;
    return answer;
}

void CZorAudioDecoder::Poll() {
    if (m_Pending.DeliverTo(DownStreamModule())) {
        CKorModule::Poll();
    }
}

void CZorAudioDecoder::Flush() {
    m_Pending.ReleaseAll();
    CKorModule::Flush();
}

// ---------------------------------------------------------------------------------------------

CAudioDecoderCom::CAudioDecoderCom() : CKor2PinComponent("AudioDecoder") {
    m_pModule = static_cast<CZorAudioDecoder*>(CreateContext(kPath));
}

CKorModule* CAudioDecoderCom::CreateContext(const char* path) {
    return OnePathContext(path, kPath, [] { return new CZorAudioDecoder; });
}

const CJokPropertyMap<CAudioDecoderCom>& CAudioDecoderCom::PropertyMap() {
    static const CJokPropertyMap<CAudioDecoderCom> map = [] {
        CJokPropertyMap<CAudioDecoderCom> m;
        m.AddNotifiedString("format", &CAudioDecoderCom::FormatHandler,
                            "&CAudioDecoderCom::FormatHandler", 1);
        return m;
    }();
    return map;
}

CJokGenericData* CAudioDecoderCom::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKor2PinComponent::GetProperty(name, flags);
}

int CAudioDecoderCom::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKor2PinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CAudioDecoderCom::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKor2PinComponent::GetPropertyEnumerator());
}

int CAudioDecoderCom::FormatHandler(CBelString* value, int set) {
    if (set) {
        return 0; // read-only: the format follows the input
    }
    *value = m_pModule->GetFormat();
    return 1;
}
