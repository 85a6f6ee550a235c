#include "audio/AudioEncoderCom.h"

#include "audio/WaveFormatString.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/Property.h"
#include "framework/jok/PropertyMap.h"
#include "framework/kor/Packet.h"

namespace {

constexpr const char* kPath = "audio";
constexpr WORD kPcmTag = 1;
constexpr WORD kMuLawTag = 7;
constexpr WORD kG726Tag = 666;

std::unique_ptr<CAudioEncoderImpl> MakeEncoder(const CBelString& name) {
    if (name == "64 kbps") {
        return std::make_unique<CMuLawEncoder>();
    }
    if (name == "32 kbps") {
        return std::make_unique<CADPCM32Encoder>();
    }
    if (name == "24 kbps") {
        return std::make_unique<CADPCM24Encoder>();
    }
    if (name == "16 kbps") {
        return std::make_unique<CADPCM16Encoder>();
    }
    return nullptr;
}

} // namespace

CZorAudioEncoder::CZorAudioEncoder() : CKorUnbufferedModule("AudioEncoder") {
    SetFormat("64 kbps");
}

CZorAudioEncoder::~CZorAudioEncoder() = default;

bool CZorAudioEncoder::SetFormat(const CBelString& name) {
    std::unique_ptr<CAudioEncoderImpl> encoder = MakeEncoder(name);
    if (!encoder) {
        return false;
    }
    m_pEncoder = std::move(encoder);
    m_sFormat = name;
    return true;
}

const char* CZorAudioEncoder::FormatNameOf(const WAVEFORMATEX& format) {
    if (format.wFormatTag == kMuLawTag) {
        return "64 kbps";
    }
    if (format.wFormatTag == kG726Tag) {
        switch (format.wBitsPerSample) {
        case 2:
            return "16 kbps";
        case 3:
            return "24 kbps";
        case 4:
            return "32 kbps";
        default:
            break;
        }
    }
    return nullptr;
}

void CZorAudioEncoder::ProcessPacket() {
    if (m_pPacket->GetKind() != CKorPacket::KIND_AUDIO || !m_pEncoder) {
        return;
    }
    auto* pcm = static_cast<CKorAudioPacket*>(m_pPacket);
    const WAVEFORMATEX* format = pcm->GetAudioFormat();
    if (!format || format->wFormatTag != kPcmTag) {
        return;
    }
    CKorAudioPacket* first = m_pEncoder->Encode(pcm, 0);
    const std::size_t step = m_pEncoder->SamplesPerPacket();
    if (CAudioEncoderImpl::SampleCount(pcm) > step) {
        // Longer than one output packet: every piece goes out in order from the piece list, which
        // Receive and Poll drain before anything else.
        m_Pieces.ChainPacket(first);
        for (std::size_t offset = step;; offset += step) {
            CKorAudioPacket* piece = m_pEncoder->Encode(pcm, offset);
            if (!piece) {
                break;
            }
            m_Pieces.ChainPacket(piece);
        }
        m_pPacket->Release();
        m_pPacket = nullptr;
        m_Pieces.DeliverTo(DownStreamModule());
        return;
    }
    m_pPacket->Release();
    m_pPacket = first; // an empty input gives an empty packet of the output format
}

int CZorAudioEncoder::Receive(CKorPacket* packet) {
    // Pieces are only queued while nothing is pending in the base, so draining them first keeps
    // the output in order.
    if (!m_InRecv && !m_Pieces.DeliverTo(DownStreamModule())) {
        return 0;
    }
    return CKorUnbufferedModule::Receive(packet);
}

void CZorAudioEncoder::Poll() {
    if (!m_Pieces.DeliverTo(DownStreamModule())) {
        return;
    }
    CKorUnbufferedModule::Poll();
}

void CZorAudioEncoder::Flush() {
    m_Pieces.ReleaseAll();
    CKorUnbufferedModule::Flush();
}

// ---------------------------------------------------------------------------------------------

CAudioEncoderCom::CAudioEncoderCom() : CKor2PinComponent("AudioEncoder") {
    m_pModule = static_cast<CZorAudioEncoder*>(CreateContext(kPath));
}

CKorModule* CAudioEncoderCom::CreateContext(const char* path) {
    return OnePathContext(path, kPath, [] { return new CZorAudioEncoder; });
}

const CJokPropertyMap<CAudioEncoderCom>& CAudioEncoderCom::PropertyMap() {
    static const CJokPropertyMap<CAudioEncoderCom> map = [] {
        CJokPropertyMap<CAudioEncoderCom> m;
        m.AddNotifiedString("format", &CAudioEncoderCom::FormatHandler,
                            "&CAudioEncoderCom::FormatHandler")
            .AddFunction("SetWaveFormatEx", &CAudioEncoderCom::SetWaveFormatExHandler,
                         "&CAudioEncoderCom::SetWaveFormatExHandler");
        return m;
    }();
    return map;
}

CJokGenericData* CAudioEncoderCom::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKor2PinComponent::GetProperty(name, flags);
}

int CAudioEncoderCom::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKor2PinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CAudioEncoderCom::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKor2PinComponent::GetPropertyEnumerator());
}

int CAudioEncoderCom::FormatHandler(CBelString* value, int set) {
    if (!set) {
        *value = m_pModule->GetFormat();
        return 1;
    }
    if (!m_pModule->SetFormat(*value)) {
        CBelString reason;
        reason.Format("no encoder for '%s' (valid: 64 kbps, 32 kbps, 24 kbps, 16 kbps)",
                      value->c_str());
        return JokRefuseProperty(reason);
    }
    return 1;
}

int CAudioEncoderCom::SetWaveFormatExHandler(CJokCommandContext* context) {
    CBelString text;
    context->GetParam("format", &text, 0);
    if (!context->CanProceed(0)) {
        return 1;
    }
    WAVEFORMATEX format{};
    ZorWaveFormatFromString(text, &format); // a bad text leaves a zeroed, invalid record
    const char* name = CZorAudioEncoder::FormatNameOf(format);
    if (!name) {
        BelDump("CAudioEncoderCom::SetWaveFormatEx -> Invalid audio format.\n");
        context->SetReturnValueNoRef(CJokGdBoolean::Allocate(0));
        return 1;
    }
    CBelString chosen(name);
    const int applied = FormatHandler(&chosen, 1);
    context->SetReturnValueNoRef(CJokGdBoolean::Allocate(applied));
    return 1;
}
