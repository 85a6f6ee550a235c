#include "audio/AudioSource.h"

#include "audio/WaveFormatString.h"
#include "framework/bel/BelClock.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/PropertyMap.h"
#include "framework/kor/Packet.h"
#include "framework/kor/PacketSource.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>

namespace {

constexpr const char* kPath = "audio";
constexpr const char* kProbeFolder = "AudioSource";
constexpr WORD kPcmTag = 1;
constexpr WORD kG726Tag = 666;
constexpr unsigned kFrequencies[] = {8000, 11025, 22050, 44100};

// A script number as the unsigned the module operations take: a negative number wraps (and is
// refused as out of range), NaN is 0, anything beyond 32 bits is the largest value.
unsigned ToUnsigned(double value) {
    if (std::isnan(value)) {
        return 0;
    }
    value = std::clamp(value, static_cast<double>(INT_MIN), static_cast<double>(UINT_MAX));
    return static_cast<unsigned>(static_cast<long long>(value));
}

// The millisecond of a clock reading in seconds. The silence clock is often taken over from a
// whole millisecond of the capture clock, which must not come out one less through rounding.
long Milliseconds(double seconds) {
    return static_cast<long>(std::floor(seconds * 1000.0 + 1e-6));
}

WAVEFORMATEX PcmFormat(int channels, int bits, unsigned frequency) {
    WAVEFORMATEX format{};
    format.wFormatTag = kPcmTag;
    format.nChannels = static_cast<WORD>(channels);
    format.nSamplesPerSec = frequency;
    format.wBitsPerSample = static_cast<WORD>(bits);
    format.nBlockAlign = static_cast<WORD>(bits / 8 * channels);
    format.nAvgBytesPerSec = format.nBlockAlign * frequency;
    format.cbSize = 0;
    return format;
}

} // namespace

CBelProbedLong CZorAudioSource::sm_TimeOffset("AudioTimeOffset", kProbeFolder, 0);
CBelProbedLong CZorAudioSource::sm_NoCorrection("NoAudioTimeCorrection", kProbeFolder, 0);
CBelProbedLong CZorAudioSource::sm_DebugTime("DebugAudioTime", kProbeFolder, 0);
CBelProbedDouble CZorAudioSource::sm_SilenceRate("SilenceAudioRate", kProbeFolder, 0.0);

CZorAudioSource::CZorAudioSource() : CKorModule("AudioSource") {
    MakeWindow();
    SetPCMFormat(1, 16, 8000);
}

CZorAudioSource::~CZorAudioSource() {
    m_SilenceMode = 0;
    StopRecording();
    KillAlarm();
    ReleaseRing();
}

void CZorAudioSource::SetPCMFormat(int channels, int bits, unsigned sampleFrequency) {
    if (m_Recording) {
        BelDump("AudioSource -> Cannot set the format when recording\n");
        return;
    }
    m_Format = PcmFormat(channels, bits, sampleFrequency);
    // A new number from the framework rather than the old one plus one, so that no other
    // stream's number is ever reused.
    m_FormatSeqNumber = CKorPacket::GetNewFormatSeqNumber();
    m_MsPerByte = m_Format.nAvgBytesPerSec ? 1000.0 / m_Format.nAvgBytesPerSec : 0.0;
}

int CZorAudioSource::SetSampleFrequency(unsigned frequency) {
    if (m_Recording) {
        BelDump("AudioSource -> Cannot set the sample frequency when recording\n");
        return 0;
    }
    if (std::find(std::begin(kFrequencies), std::end(kFrequencies), frequency) ==
        std::end(kFrequencies)) {
        BelDump("AudioSource -> %d is an invalid frequency.\n", static_cast<int>(frequency));
        return 0;
    }
    // 8000 is applied again even when it is the rate already: that renews the format's
    // sequence number, which is how a script tells receivers to look at the format again.
    if (frequency == m_Format.nSamplesPerSec && frequency != 8000) {
        return 1;
    }
    SetPCMFormat(m_Format.nChannels, m_Format.wBitsPerSample, frequency);
    BelDump("AudioSource -> samplePerSec:%d\n", static_cast<int>(frequency));
    return 1;
}

int CZorAudioSource::SetSamplesPerPacket(unsigned samples) {
    if (samples < m_Format.nBlockAlign || samples > kMaxSamplesPerPacket) {
        BelDump("AudioSource -> samplesPerPacket should be between %d and %d.\n",
                static_cast<int>(m_Format.nBlockAlign), static_cast<int>(kMaxSamplesPerPacket));
        return 0;
    }
    BelDump("In SetSamplesPerPacket to %d\n", static_cast<int>(samples));
    m_SamplesPerPacket = samples;
    return 1;
}

void CZorAudioSource::SetDevice(const CBelString& name, const SKorWaveOptions& options) {
    m_Device = name;
    m_DeviceOptions = options;
}

unsigned long CZorAudioSource::PacketBytes() const {
    const unsigned long align = m_Format.nBlockAlign ? m_Format.nBlockAlign : 1;
    const unsigned long bytes =
        static_cast<unsigned long>(m_Format.wBitsPerSample) * m_SamplesPerPacket / 8;
    return std::max(align, bytes - bytes % align);
}

CKorAudioPacket* CZorAudioSource::NewPacket() const {
    CKorAudioPacket* packet =
        g_AudioPacketSource.NewPacket(static_cast<long>(std::max(kPacketCapacity, PacketBytes())));
    packet->SetAudioFormat(&m_Format, m_FormatSeqNumber);
    return packet;
}

void CZorAudioSource::Report(const char* operation, const CBelString& text) const {
    BelDump("AudioSource -> %s: %s\n", operation, text.c_str());
}

bool CZorAudioSource::Busy() const {
    return m_SilenceMode && !m_Recording && IsAlarmSet();
}

void CZorAudioSource::Notify(int code, long) {
    if (code == kStartRecording) {
        StartRecording();
    } else if (code == kStopRecording) {
        if (m_Recording && !m_Epilogue.IsEmpty()) {
            m_EpilogueMode = true;
        } else {
            StopRecording();
        }
    }
}

void CZorAudioSource::StartRecording() {
    if ((m_Recording || m_StartDelayed) && !m_EpilogueMode) {
        return;
    }
    if (m_EpilogueMode) {
        StopRecording();
    }
    // A silence packet covers time ahead of the clock: recording starts when its time is up,
    // so the two never overlap.
    if (Busy()) {
        BelDump("Delaying StartRecording for silence packet to be done\n");
        m_StartDelayed = true;
        return;
    }
    m_ProloguePos = 0;
    m_EpiloguePos = 0;
    m_EpilogueMode = false;

    int error = 0;
    CBelString text;
    const long session = m_Session.load() + 1;
    m_pDevice = CKorWaveDevice::Open(m_Device, EKorWaveDirection::In, m_Format, &WaveInFunc, this,
                                     &error, &text, m_DeviceOptions);
    if (!m_pDevice) {
        Report("waveInOpen", text);
        return;
    }
    m_Session = session;
    m_Recording = true;
    const auto bytes = static_cast<DWORD>(PacketBytes());
    for (int i = 0; i < kBuffers; ++i) {
        m_pCapture[i] = NewPacket();
        WAVEHDR& header = m_Headers[i];
        header = WAVEHDR{};
        header.lpData = m_pCapture[i]->GetData();
        header.dwBufferLength = bytes;
        header.dwUser = static_cast<std::uintptr_t>(i);
        if (m_pDevice->Prepare(&header) != KORWAVE_OK) {
            Report("waveInPrepareHeader", m_pDevice->GetErrorText());
            break;
        }
        if (m_pDevice->AddBuffer(&header) != KORWAVE_OK) {
            Report("waveInAddBuffer", m_pDevice->GetErrorText());
            break;
        }
    }
    m_Clock.Reset(static_cast<double>(BelGetTime()));
    if (m_pDevice->Start() != KORWAVE_OK) {
        Report("waveInStart", m_pDevice->GetErrorText());
    }
    m_Frames = 0;
}

void CZorAudioSource::StopRecording() {
    if (m_StartDelayed) {
        m_StartDelayed = false;
        // The timer stays armed for silence, if silence goes on.
        if (!m_SilenceMode) {
            KillAlarm();
        }
    }
    if (!m_Recording) {
        return;
    }
    m_Recording = false;
    m_EpilogueMode = false;
    if (m_pDevice->Stop() != KORWAVE_OK) {
        Report("waveInStop", m_pDevice->GetErrorText());
    }
    if (m_pDevice->Reset() != KORWAVE_OK) {
        Report("waveInReset", m_pDevice->GetErrorText());
    }
    // Every buffer is back; messages still queued for them are handled now (and ignored, as
    // nothing records), before the buffers go.
    DispatchQueued(WIM_DATA);
    DispatchQueued(WAVE_FAILED);
    for (int i = 0; i < kBuffers; ++i) {
        if (m_pCapture[i] && m_pDevice->Unprepare(&m_Headers[i]) != KORWAVE_OK) {
            Report("waveInUnprepareHeader", m_pDevice->GetErrorText());
        }
        if (m_pCapture[i]) {
            m_pCapture[i]->Release();
            m_pCapture[i] = nullptr;
        }
    }
    if (m_pDevice->Close() != KORWAVE_OK) {
        Report("waveInClose", m_pDevice->GetErrorText());
    }
    m_pDevice.reset();
    if (m_SilenceMode) {
        // Silence takes over where the recording's clock stands.
        m_SilenceClock = m_Clock.Value() / 1000.0;
        m_SilenceStart = m_SilenceClock;
        m_SilenceSamples = 0.0;
        SetAlarmAt(m_SilenceClock);
    }
}

void CZorAudioSource::WaveInFunc(CKorWaveDevice*, unsigned message, void* instance,
                                 WAVEHDR* header) {
    auto* self = static_cast<CZorAudioSource*>(instance);
    if (message == WIM_DATA && header) {
        self->OnBufferDone(header);
    } else if (message == WAVE_FAILED &&
               !self->PostMessage(WAVE_FAILED, 0, self->m_Session.load())) {
        BelDump("CZorAudioSource: PostMessage failed\n");
    }
}

void CZorAudioSource::OnBufferDone(WAVEHDR* header) {
    const long now = BelGetTime();
    const CZorAudioClock::SStep step =
        m_Clock.Step(header->dwBytesRecorded * m_MsPerByte, now, sm_NoCorrection == 0);
    const long offset = sm_TimeOffset;
    CKorAudioPacket* capture = m_pCapture[header->dwUser];
    capture->SetTimeStamp(static_cast<std::uint32_t>(static_cast<long>(step.m_Stamp) + offset));
    capture->SetTimeStampValid(true);
    capture->SetRealTimeStamp((step.m_Stamp + static_cast<double>(offset)) / 1000.0);
    if (step.m_Jumped) {
        BelDump("##### Correct Audio time by %ld ######\n", step.m_Difference);
    }
    if (sm_DebugTime) {
        BelDump("Time difference: %ld (%ld)\n", now - static_cast<long>(m_Clock.Value()),
                step.m_CorrectionLeft);
    }
    if (!PostMessage(WIM_DATA, static_cast<unsigned>(header->dwUser), m_Session.load())) {
        BelDump("CZorAudioSource: PostMessage failed\n");
    }
}

void CZorAudioSource::WindowProc(HWND, unsigned message, unsigned wParam, long lParam) {
    if (!m_Recording || lParam != m_Session.load()) {
        return; // left over from a recording that has ended
    }
    if (message == WIM_DATA && wParam < static_cast<unsigned>(kBuffers)) {
        OnBufferPosted(wParam);
    } else if (message == WAVE_FAILED) {
        OnDeviceFailed();
    }
}

void CZorAudioSource::OnBufferPosted(unsigned index) {
    WAVEHDR& header = m_Headers[index];
    const CKorAudioPacket* capture = m_pCapture[index];
    CKorAudioPacket* out = NewPacket();
    DWORD bytes = header.dwBytesRecorded;
    if (bytes > out->GetDataCapacity()) {
        // The text names the record field this compares against on every platform.
        BelDisplayAssert("header->dwBytesRecorded <= outputPacket->Header()->dwBufferLength",
                         __FILE__, __LINE__);
        bytes = static_cast<DWORD>(out->GetDataCapacity());
    }
    BYTE* data = out->GetData();
    bool epilogueDone = false;
    if (m_EpilogueMode) {
        const auto left = static_cast<DWORD>(std::max(0, m_Epilogue.GetLength() - m_EpiloguePos));
        bytes = std::min(bytes, left);
        std::memcpy(data, m_Epilogue.c_str() + m_EpiloguePos, bytes);
        m_EpiloguePos += static_cast<int>(bytes);
        epilogueDone = m_EpiloguePos >= m_Epilogue.GetLength();
    } else {
        std::memcpy(data, header.lpData, bytes);
        const int prologueLeft = std::max(0, m_Prologue.GetLength() - m_ProloguePos);
        if (prologueLeft > 0) {
            const auto n = std::min(bytes, static_cast<DWORD>(prologueLeft));
            std::memcpy(data, m_Prologue.c_str() + m_ProloguePos, n);
            m_ProloguePos += static_cast<int>(n);
        }
    }
    out->SetDataSize(bytes);
    out->SetTimeStamp(static_cast<std::uint32_t>(capture->GetTimeStamp()));
    out->SetTimeStampValid(capture->IsTimeStampValid());
    out->SetRealTimeStamp(capture->GetRealTimeStamp());
    if (bytes > 0) {
        ++m_Frames;
        AddToRing(out);
    } else {
        out->Release();
    }
    if (epilogueDone) {
        StopRecording();
        return;
    }
    // Downstream may have stopped the recording from inside its Receive.
    if (!m_Recording) {
        return;
    }
    if (m_pDevice->AddBuffer(&header) != KORWAVE_OK) {
        Report("waveInAddBuffer", m_pDevice->GetErrorText());
    }
}

void CZorAudioSource::OnDeviceFailed() {
    BelDump("AudioSource -> recording stopped: %s\n", m_pDevice->GetErrorText().c_str());
    StopRecording();
}

void CZorAudioSource::SilenceMode(int on) {
    if (on && !m_SilenceMode) {
        m_SilenceMode = 1;
        if (!m_Recording && !m_StartDelayed) {
            m_SilenceClock = BelDoubleTime();
            m_SilenceStart = m_SilenceClock;
            m_SilenceSamples = 0.0;
            EmitSilence();
        }
    } else if (!on && m_SilenceMode) {
        m_SilenceMode = 0;
        if (!m_Recording) {
            KillAlarm();
            if (m_StartDelayed) {
                m_StartDelayed = false;
                StartRecording();
            }
        }
    }
}

void CZorAudioSource::EmitSilence() {
    CKorAudioPacket* packet = NewPacket();
    const unsigned long bytes = PacketBytes();
    // Silence is mid-scale: 0 for 16-bit samples, 0x80 for unsigned 8-bit ones.
    std::memset(packet->GetData(), m_Format.wBitsPerSample == 8 ? 0x80 : 0, bytes);
    packet->SetDataSize(bytes);
    const long offset = sm_TimeOffset;
    packet->SetTimeStamp(static_cast<std::uint32_t>(Milliseconds(m_SilenceClock) + offset));
    packet->SetTimeStampValid(true);
    packet->SetRealTimeStamp(m_SilenceClock + static_cast<double>(offset) / 1000.0);
    AddToRing(packet);

    const unsigned long wholeFrames = bytes / m_Format.nBlockAlign; // PacketBytes is whole frames
    const auto frames = static_cast<double>(wholeFrames);
    m_SilenceClock += frames / m_Format.nSamplesPerSec;
    m_SilenceSamples += frames;
    // Each packet is emitted at the start of its time, so the rate over the silence emitted
    // is the nominal one until the loop falls behind; then the time that really passed counts.
    const double span = std::max(m_SilenceClock, BelDoubleTime()) - m_SilenceStart;
    sm_SilenceRate = m_SilenceSamples / span;
    SetAlarmAt(m_SilenceClock);
}

void CZorAudioSource::TimeOut(long) {
    if (m_StartDelayed) {
        m_StartDelayed = false;
        StartRecording();
        if (!m_Recording && m_SilenceMode) {
            SetAlarmAt(m_SilenceClock); // the device would not open: silence goes on
        }
        return;
    }
    if (m_SilenceMode && !m_Recording) {
        EmitSilence();
    }
}

void CZorAudioSource::AddToRing(CKorPacket* packet) {
    if (m_RingCount == kRingSize) {
        Poll();
    }
    if (m_RingCount == kRingSize) {
        packet->Release();
        ++m_Dropped;
        if (!m_Dropping) {
            BelDump("AudioSource -> downstream takes nothing: packets are dropped\n");
            m_Dropping = true;
        }
        return;
    }
    m_Ring[(m_RingHead + m_RingCount) % kRingSize] = packet;
    ++m_RingCount;
    Poll();
}

void CZorAudioSource::Poll() {
    // A receiver that polls back from inside Receive must not see its packet offered twice.
    if (m_InPoll) {
        return;
    }
    m_InPoll = true;
    while (m_RingCount > 0) {
        if (!DownStreamModule()->Receive(m_Ring[m_RingHead])) {
            break;
        }
        m_Ring[m_RingHead] = nullptr;
        m_RingHead = (m_RingHead + 1) % kRingSize;
        --m_RingCount;
        m_Dropping = false;
    }
    m_InPoll = false;
}

void CZorAudioSource::ReleaseRing() {
    while (m_RingCount > 0) {
        m_Ring[m_RingHead]->Release();
        m_Ring[m_RingHead] = nullptr;
        m_RingHead = (m_RingHead + 1) % kRingSize;
        --m_RingCount;
    }
}

void CZorAudioSource::Flush() {
    ReleaseRing();
    CKorModule::Flush();
}

// ---------------------------------------------------------------------------------------------

CAudioSrcCom::CAudioSrcCom() : CKorOutputPinComponent("AudioSrc") {
    m_pModule = static_cast<CZorAudioSource*>(CreateContext(kPath));
}

CKorModule* CAudioSrcCom::CreateContext(const char* path) {
    return OnePathContext(path, kPath, [] { return new CZorAudioSource; });
}

const CJokPropertyMap<CAudioSrcCom>& CAudioSrcCom::PropertyMap() {
    static const CJokPropertyMap<CAudioSrcCom> map = [] {
        CJokPropertyMap<CAudioSrcCom> m;
        m.AddNotifiedDouble("samplesPerPacket", &CAudioSrcCom::SamplesPerPacketHandler,
                            "&CAudioSrcCom::SamplesPerPacketHandler")
            .AddNotifiedDouble("sampleFrequency", &CAudioSrcCom::SampleFrequencyHandler,
                               "&CAudioSrcCom::SampleFrequencyHandler")
            .AddNotifiedBoolean("silenceMode", &CAudioSrcCom::SilenceModeHandler,
                                "&CAudioSrcCom::SilenceModeHandler")
            .AddNotifiedString("epilogueData", &CAudioSrcCom::EpilogueHandler,
                               "&CAudioSrcCom::EpilogueHandler")
            .AddNotifiedString("prologueData", &CAudioSrcCom::PrologueHandler,
                               "&CAudioSrcCom::PrologueHandler")
            .AddNotifiedBoolean("recording", &CAudioSrcCom::RecordingPropertyHandler,
                                "&CAudioSrcCom::RecordingPropertyHandler")
            .AddFunction("GetFormatString", &CAudioSrcCom::GetFormatString,
                         "&CAudioSrcCom::GetFormatString")
            .AddNotifiedString("device", &CAudioSrcCom::DeviceHandler,
                               "&CAudioSrcCom::DeviceHandler")
            .AddNotifiedDouble("channels", &CAudioSrcCom::ChannelsHandler,
                               "&CAudioSrcCom::ChannelsHandler")
            .AddNotifiedDouble("bitsPerSample", &CAudioSrcCom::BitsPerSampleHandler,
                               "&CAudioSrcCom::BitsPerSampleHandler")
            .AddNotifiedDouble("framesRecorded", &CAudioSrcCom::FramesHandler,
                               "&CAudioSrcCom::FramesHandler", 1)
            .AddNotifiedDouble("dropped", &CAudioSrcCom::DroppedHandler,
                               "&CAudioSrcCom::DroppedHandler", 1);
        return m;
    }();
    return map;
}

CJokGenericData* CAudioSrcCom::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKorOutputPinComponent::GetProperty(name, flags);
}

int CAudioSrcCom::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKorOutputPinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CAudioSrcCom::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKorOutputPinComponent::GetPropertyEnumerator());
}

int CAudioSrcCom::SamplesPerPacketHandler(double* value, int set) {
    if (!set) {
        *value = m_pModule->GetSamplesPerPacket();
        return 1;
    }
    return m_pModule->SetSamplesPerPacket(ToUnsigned(*value));
}

int CAudioSrcCom::SampleFrequencyHandler(double* value, int set) {
    if (!set) {
        *value = m_pModule->GetSampleFrequency();
        return 1;
    }
    return m_pModule->SetSampleFrequency(ToUnsigned(*value));
}

int CAudioSrcCom::SilenceModeHandler(int* value, int set) {
    if (!set) {
        *value = m_pModule->IsSilenceMode();
        return 1;
    }
    m_pModule->SilenceMode(*value);
    return 1;
}

int CAudioSrcCom::EpilogueHandler(CBelString* value, int set) {
    if (!set) {
        *value = m_pModule->GetEpilogueData();
        return 1;
    }
    m_pModule->SetEpilogueData(*value);
    return 1;
}

int CAudioSrcCom::PrologueHandler(CBelString* value, int set) {
    if (!set) {
        *value = m_pModule->GetPrologueData();
        return 1;
    }
    m_pModule->SetPrologueData(*value);
    return 1;
}

int CAudioSrcCom::RecordingPropertyHandler(int* value, int set) {
    if (!set) {
        *value = m_pModule->IsRecording() ? 1 : 0;
        return 1;
    }
    // Asking is always accepted; whether the device opened shows in the property afterwards
    // and in the diagnostics.
    m_pModule->Notify(*value ? CZorAudioSource::kStartRecording : CZorAudioSource::kStopRecording,
                      0L);
    return 1;
}

int CAudioSrcCom::DeviceHandler(CBelString* value, int set) {
    if (!set) {
        *value = m_pModule->GetDevice();
        return 1;
    }
    if (m_pModule->IsRecording()) {
        BelDump("AudioSource -> Cannot change the device when recording\n");
        return 0;
    }
    m_pModule->SetDevice(*value);
    return 1;
}

int CAudioSrcCom::ChannelsHandler(double* value, int set) {
    const WAVEFORMATEX& format = m_pModule->GetPCMFormat();
    if (!set) {
        *value = format.nChannels;
        return 1;
    }
    if (*value != 1 && *value != 2) {
        BelDump("AudioSource -> channels should be 1 or 2.\n");
        return 0;
    }
    if (m_pModule->IsRecording()) {
        BelDump("AudioSource -> Cannot set the format when recording\n");
        return 0;
    }
    m_pModule->SetPCMFormat(static_cast<int>(*value), format.wBitsPerSample, format.nSamplesPerSec);
    return 1;
}

int CAudioSrcCom::BitsPerSampleHandler(double* value, int set) {
    const WAVEFORMATEX& format = m_pModule->GetPCMFormat();
    if (!set) {
        *value = format.wBitsPerSample;
        return 1;
    }
    if (*value != 8 && *value != 16) {
        BelDump("AudioSource -> bitsPerSample should be 8 or 16.\n");
        return 0;
    }
    if (m_pModule->IsRecording()) {
        BelDump("AudioSource -> Cannot set the format when recording\n");
        return 0;
    }
    m_pModule->SetPCMFormat(format.nChannels, static_cast<int>(*value), format.nSamplesPerSec);
    return 1;
}

int CAudioSrcCom::FramesHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = static_cast<double>(m_pModule->GetFrameCount());
    return 1;
}

int CAudioSrcCom::DroppedHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = static_cast<double>(m_pModule->GetDroppedCount());
    return 1;
}

int CAudioSrcCom::GetFormatString(CJokCommandContext* context) {
    CBelString name = "PCM";
    context->GetParam("format", &name, 1);
    if (!context->CanProceed(0)) {
        return 1;
    }
    // The record with room for the extra word that G.726 carries (samples per block).
#pragma pack(push, 1)
    struct SFormat {
        WAVEFORMATEX m_Record;
        WORD m_SamplesPerBlock;
    } format{m_pModule->GetPCMFormat(), 0};
#pragma pack(pop)
    const DWORD rate = format.m_Record.nSamplesPerSec;
    const auto g726 = [&](WORD bits, WORD blockAlign, WORD samplesPerBlock) {
        format.m_Record = WAVEFORMATEX{kG726Tag, 1, rate, bits * rate / 8, blockAlign, bits, 2};
        format.m_SamplesPerBlock = samplesPerBlock;
    };
    if (name == "G711") {
        // mu-law, labelled 8 kHz whatever the capture rate, as the encoder labels it.
        format.m_Record = WAVEFORMATEX{7, 1, 8000, 8000, 1, 8, 0};
    } else if (name == "G721") {
        g726(4, 4, 8);
    } else if (name == "G723_24") {
        g726(3, 12, 32);
    } else if (name == "G723_16") {
        g726(2, 4, 16);
    } else if (name != "PCM") {
        CBelString message;
        message.Format("AudioSrc.GetFormatString: unknown format \"%s\" (PCM, G711, G721, "
                       "G723_24 or G723_16)",
                       name.c_str());
        context->OutputErrorString(message);
        return 1;
    }
    context->SetReturnValueNoRef(CJokGdString::Allocate(ZorWaveFormatToString(&format.m_Record)));
    return 1;
}

int IsAudioFullDuplexHandler(CJokCommandContext* context) {
    CBelString device;
    context->GetParam("device", &device, 1);
    if (!context->CanProceed(0)) {
        return 1;
    }
    context->SetReturnValueNoRef(CJokGdBoolean::Allocate(CKorWaveDevice::IsFullDuplex(device)));
    return 1;
}
