#include "audio/AudioSampleMixer.h"

#include "audio/sound/SampleKernels.h"
#include "entry/Registry.h"
#include "framework/bel/BelClock.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/PropertyMap.h"
#include "framework/kor/Packet.h"
#include "framework/kor/PacketSource.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

constexpr const char* kDefaultPath = "audio";
constexpr WORD kPcmTag = 1;
constexpr long kPacketBytes = 1440; // the framework's audio packets
// A refused generator packet is offered again this much later, so a busy downstream is not spun
// on.
constexpr double kRetrySeconds = 0.001;

// The generator's packets: 8 kHz 16-bit mono PCM, format sequence number 0.
constexpr WAVEFORMATEX kCarrierFormat{kPcmTag, 1, 8000, 16000, 2, 16, 0};

} // namespace

CZorAudioSampleMixer::CZorAudioSampleMixer()
    : CKorUnbufferedModule("AudioSampleMixer"), m_Kernels(ZorSampleKernels()) {}

CZorAudioSampleMixer::~CZorAudioSampleMixer() {
    KillAlarm();
}

void CZorAudioSampleMixer::Play(const CBelString& identifier,
                                std::shared_ptr<const std::string> clip, double factor,
                                const SGenerator* generator) {
    CBelString ended;
    const bool wasPlaying = TakeClip(&ended);
    if (clip && !clip->empty()) {
        m_Identifier = identifier;
        m_pClip = std::move(clip);
        m_Factor = factor;
    }
    if (generator) {
        m_Generator = *generator;
        m_Generating = true;
        ++m_GeneratorRun;
        m_Next = BelDoubleTime();
        SetAlarm(0);
    }
    if (wasPlaying && m_Done) {
        m_Done(ended);
    }
}

void CZorAudioSampleMixer::Stop() {
    EndClip();
}

void CZorAudioSampleMixer::StopGenerator() {
    if (m_Generating) {
        m_Generating = false;
        ++m_GeneratorRun;
        KillAlarm();
    }
}

bool CZorAudioSampleMixer::TakeClip(CBelString* identifier) {
    StopGenerator();
    const bool wasPlaying = m_pClip != nullptr;
    *identifier = m_Identifier;
    m_Identifier = CBelString();
    m_pClip.reset();
    m_Position = 0;
    return wasPlaying;
}

void CZorAudioSampleMixer::EndClip() {
    CBelString ended;
    if (TakeClip(&ended) && m_Done) {
        m_Done(ended);
    }
}

void CZorAudioSampleMixer::ProcessPacket() {
    if (!m_pClip || m_pPacket->GetKind() != CKorPacket::KIND_AUDIO) {
        return;
    }
    auto* audio = static_cast<CKorAudioPacket*>(m_pPacket);
    const WAVEFORMATEX* format = audio->GetAudioFormat();
    if (!format || format->wFormatTag != kPcmTag || format->wBitsPerSample != 16 ||
        format->nChannels != 1) {
        if (audio->GetFormatSeqNumber() != m_ReportedFormat) {
            m_ReportedFormat = audio->GetFormatSeqNumber();
            BelDump("CZorAudioSampleMixer::ProcessPacket -> format tag %d, %d bits, %d channels: "
                    "only 16-bit mono PCM takes the clip.\n",
                    format ? format->wFormatTag : 0, format ? format->wBitsPerSample : 0,
                    format ? format->nChannels : 0);
        }
        return;
    }
    const std::size_t left = (m_pClip->size() - m_Position) / 2;
    const std::size_t n = std::min<std::size_t>(audio->GetDataSize() / 2, left);
    m_Kernels.m_Mix(audio->GetData(),
                    reinterpret_cast<const unsigned char*>(m_pClip->data()) + m_Position, n,
                    m_Factor);
    m_Position += 2 * n;
    if (m_Position >= m_pClip->size()) {
        EndClip();
    }
}

void CZorAudioSampleMixer::TimeOut(long) {
    if (!m_Generating) {
        return;
    }
    const unsigned run = m_GeneratorRun;
    CKorAudioPacket* packet = g_AudioPacketSource.NewPacket(kPacketBytes);
    packet->SetAudioFormat(&kCarrierFormat, 0);
    packet->SetTimeStamp(static_cast<std::uint32_t>(BelGetTime()));
    packet->SetTimeStampValid(true);
    packet->SetRealTimeStamp(BelDoubleTime());
    BYTE* data = packet->GetData();
    for (int i = 0; i < m_Generator.m_Samples; ++i) {
        std::memcpy(data + 2 * i, &m_Generator.m_Value, 2);
    }
    packet->SetDataSize(2UL * static_cast<unsigned long>(m_Generator.m_Samples));
    const bool taken = Receive(packet) != 0;
    if (!taken) {
        packet->Release();
    }
    if (run != m_GeneratorRun) {
        return; // the clip ended, or the callback started another run, during delivery
    }
    const double now = BelDoubleTime();
    if (taken) {
        m_Next += m_Generator.m_Interval;
        SetAlarmAt(m_Next);
    } else {
        SetAlarmAt(std::max(m_Next, now + kRetrySeconds));
    }
}

// ---------------------------------------------------------------------------------------------

CAudioSampleMixerCom::CAudioSampleMixerCom(const char* dataPath)
    : CKor2PinComponent("AudioSampleMixer"),
      m_Path(dataPath && *dataPath ? dataPath : kDefaultPath) {
    m_pModule = static_cast<CZorAudioSampleMixer*>(CreateContext(m_Path));
    m_pModule->SetDoneCallback(
        [this](const CBelString& identifier) { CallMixingDone(identifier); });
    if (dataPath && *dataPath) {
        ConnectPath(dataPath);
    }
}

CAudioSampleMixerCom::~CAudioSampleMixerCom() {
    m_pModule->SetDoneCallback({});
    if (m_pMixingDoneCallback) {
        m_pMixingDoneCallback->Release();
    }
}

CKorModule* CAudioSampleMixerCom::CreateContext(const char* path) {
    return OnePathContext(path, m_Path.c_str(), [] { return new CZorAudioSampleMixer; });
}

const CJokPropertyMap<CAudioSampleMixerCom>& CAudioSampleMixerCom::PropertyMap() {
    static const CJokPropertyMap<CAudioSampleMixerCom> map = [] {
        CJokPropertyMap<CAudioSampleMixerCom> m;
        m.AddFunction("AddSound", &CAudioSampleMixerCom::AddSound,
                      "&CAudioSampleMixerCom::AddSound")
            .AddFunction("Mix", &CAudioSampleMixerCom::Mix, "&CAudioSampleMixerCom::Mix")
            .AddFunction("Stop", &CAudioSampleMixerCom::Stop, "&CAudioSampleMixerCom::Stop")
            .AddInterface("mixingDoneCallback", &CAudioSampleMixerCom::m_pMixingDoneCallback,
                          IID_IJokCommand, "IJokCommand",
                          "&CAudioSampleMixerCom::m_pMixingDoneCallback");
        return m;
    }();
    return map;
}

CJokGenericData* CAudioSampleMixerCom::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKor2PinComponent::GetProperty(name, flags);
}

int CAudioSampleMixerCom::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKor2PinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CAudioSampleMixerCom::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKor2PinComponent::GetPropertyEnumerator());
}

int CAudioSampleMixerCom::AddSound(CJokCommandContext* context) {
    CBelString identifier;
    CBelString audioData;
    context->GetParam("identifier", &identifier, 0);
    context->GetParam("audioData", &audioData, 0);
    if (!context->CanProceed(0)) {
        return 1;
    }
    // Whole samples only: a trailing odd byte is not a sample.
    const std::size_t bytes = audioData.str().size() & ~static_cast<std::size_t>(1);
    if (bytes == 0) {
        CBelString message;
        message.Format("AudioSampleMixer: AddSound: \"%s\" has no samples", identifier.c_str());
        context->OutputErrorString(message);
        return 1;
    }
    m_Sounds[identifier.str()] = std::make_shared<const std::string>(audioData.str(), 0, bytes);
    return 1;
}

int CAudioSampleMixerCom::Mix(CJokCommandContext* context) {
    CBelString identifier;
    double frequency = 0.0;
    double samples = 0.0;
    double silenceValue = 0.0;
    double mixFactor = 1.0;
    context->GetParam("identifier", &identifier, 0);
    context->GetParam("frequency", &frequency, 1);
    context->GetParam("samples", &samples, 1);
    context->GetParam("silenceValue", &silenceValue, 1);
    context->GetParam("mixFactor", &mixFactor, 1);
    if (!context->CanProceed(0)) {
        return 1;
    }
    const bool generate = frequency > 0;
    if (generate &&
        !(std::isfinite(frequency) && samples >= 1 &&
          samples <= CZorAudioSampleMixer::kMaxGeneratorSamples && !std::isnan(silenceValue))) {
        context->OutputErrorString("AudioSampleMixer: Mix: a generator needs a finite frequency, "
                                   "1 to 720 samples (a 1440-byte packet) and a silenceValue");
        return 1;
    }
    if (!std::isfinite(mixFactor)) {
        context->OutputErrorString("AudioSampleMixer: Mix: mixFactor must be a finite number");
        return 1;
    }
    std::shared_ptr<const std::string> clip;
    if (!identifier.IsEmpty()) {
        const auto found = m_Sounds.find(identifier.str());
        if (found != m_Sounds.end()) {
            clip = found->second;
        }
    }
    if (!clip && (!identifier.IsEmpty() || !generate)) {
        BelDump("AudioSampleMixer: %s is an unknown sample identifier\n", identifier.c_str());
        return 1;
    }
    CZorAudioSampleMixer::SGenerator generator{};
    if (generate) {
        generator.m_Samples = static_cast<int>(samples);
        // Values beyond 16 bits are held to the range, as mixed samples are.
        generator.m_Value =
            static_cast<short>(std::clamp(std::trunc(silenceValue), -32768.0, 32767.0));
        generator.m_Interval = samples / frequency;
    }
    m_pModule->Play(identifier, std::move(clip), mixFactor, generate ? &generator : nullptr);
    return 1;
}

int CAudioSampleMixerCom::Stop(CJokCommandContext* context) {
    if (!context->CanProceed(0)) {
        return 1;
    }
    m_pModule->Stop();
    return 1;
}

void CAudioSampleMixerCom::CallMixingDone(const CBelString& identifier) {
    if (!m_pMixingDoneCallback) {
        return;
    }
    CJokCommandContext context;
    context.AddParam(nullptr, identifier);
    CallScript(m_pMixingDoneCallback, context); // the mixer may be gone with the context
}

int CreateAudioSampleMixer(CJokCommandContext* context) {
    return ZorCreateWithDataPath<CAudioSampleMixerCom>(context);
}
