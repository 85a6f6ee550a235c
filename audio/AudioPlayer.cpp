#include "audio/AudioPlayer.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/PropertyMap.h"
#include "framework/kor/Packet.h"

namespace {

constexpr const char* kPath = "audio";
constexpr WORD kPcmTag = 1;

bool Playable(const WAVEFORMATEX* format) {
    return format && format->wFormatTag == kPcmTag &&
           (format->wBitsPerSample == 8 || format->wBitsPerSample == 16) && format->nChannels > 0 &&
           format->nSamplesPerSec > 0 &&
           format->nBlockAlign == format->nChannels * format->wBitsPerSample / 8;
}

bool SameLayout(const WAVEFORMATEX& a, const WAVEFORMATEX& b) {
    return a.wFormatTag == b.wFormatTag && a.nChannels == b.nChannels &&
           a.nSamplesPerSec == b.nSamplesPerSec && a.wBitsPerSample == b.wBitsPerSample;
}

} // namespace

CZorAudioPlayer::CZorAudioPlayer() : CKorModule("AudioPlayer") {
    MakeWindow();
}

CZorAudioPlayer::~CZorAudioPlayer() {
    CloseDevice();
}

void CZorAudioPlayer::SetDevice(const CBelString& name, const SKorWaveOptions& options) {
    CloseDevice();
    m_Device = name;
    m_DeviceOptions = options;
    m_Failed = false;
}

void CZorAudioPlayer::Report(const char* operation) const {
    BelDump("AudioPlayer -> %s: %s\n", operation, m_pDevice->GetErrorText().c_str());
}

void CZorAudioPlayer::Drop(CKorPacket* packet) {
    packet->Release();
    ++m_Dropped;
}

int CZorAudioPlayer::Receive(CKorPacket* packet) {
    if (m_InRecv) {
        BelDisplayAssert("!m_InRecv", __FILE__, __LINE__);
        return 0;
    }
    m_InRecv = 1;
    const int answer = Play(packet);
    m_InRecv = 0;
    return answer;
}

int CZorAudioPlayer::Play(CKorPacket* packet) {
    if (packet->GetKind() != CKorPacket::KIND_AUDIO) {
        packet->Release();
        return 1;
    }
    const WAVEFORMATEX* format = static_cast<CKorAudioPacket*>(packet)->GetAudioFormat();
    if (!Playable(format)) {
        if (packet->GetFormatSeqNumber() != m_RejectedSeq) {
            m_RejectedSeq = packet->GetFormatSeqNumber();
            BelDump("AudioPlayer -> only 8- or 16-bit PCM is played: packets of tag %u, %u "
                    "bits are dropped\n",
                    format ? format->wFormatTag : 0U, format ? format->wBitsPerSample : 0U);
        }
        Drop(packet);
        return 1;
    }
    if (m_Failed) {
        Drop(packet);
        return 1;
    }
    if (m_pDevice && !SameLayout(*format, m_DeviceFormat)) {
        if (m_Queued > 0) {
            return 0; // the old format plays out first
        }
        CloseDevice();
    }
    if (!m_pDevice && !OpenFor(*format)) {
        Drop(packet);
        return 1;
    }
    const DWORD bytes = packet->GetDataSize() - packet->GetDataSize() % format->nBlockAlign;
    if (bytes == 0) {
        packet->Release();
        return 1;
    }
    if (m_Queued == kBuffers) {
        return 0;
    }
    int slot = 0;
    while (m_pPlaying[slot]) {
        ++slot;
    }
    WAVEHDR& header = m_Headers[slot];
    header = WAVEHDR{};
    header.lpData = packet->GetData();
    header.dwBufferLength = bytes;
    header.dwUser = static_cast<std::uintptr_t>(slot);
    if (m_pDevice->Prepare(&header) != KORWAVE_OK) {
        Report("waveOutPrepareHeader");
        Drop(packet);
        return 1;
    }
    m_pPlaying[slot] = packet;
    ++m_Queued;
    if (m_pDevice->AddBuffer(&header) != KORWAVE_OK) {
        Report("waveOutWrite");
        m_pDevice->Unprepare(&header);
        m_pPlaying[slot] = nullptr;
        --m_Queued;
        Drop(packet);
    }
    return 1;
}

bool CZorAudioPlayer::OpenFor(const WAVEFORMATEX& format) {
    int error = 0;
    CBelString text;
    m_pDevice = CKorWaveDevice::Open(m_Device, EKorWaveDirection::Out, format, &WaveOutFunc, this,
                                     &error, &text, m_DeviceOptions);
    if (!m_pDevice) {
        BelDump("AudioPlayer -> waveOutOpen: %s\n", text.c_str());
        m_Failed = true;
        return false;
    }
    m_DeviceFormat = format;
    ++m_Session;
    if (m_pDevice->Start() != KORWAVE_OK) {
        Report("waveOutRestart");
    }
    return true;
}

void CZorAudioPlayer::CloseDevice() {
    if (!m_pDevice) {
        return;
    }
    m_Closing = true;
    if (m_pDevice->Reset() != KORWAVE_OK) {
        Report("waveOutReset");
    }
    // Every buffer is back: its message releases its packet now, before the device goes.
    DispatchQueued(WOM_DONE);
    DispatchQueued(WAVE_FAILED);
    for (int i = 0; i < kBuffers; ++i) {
        if (m_pPlaying[i]) {
            m_pDevice->Unprepare(&m_Headers[i]);
            m_pPlaying[i]->Release();
            m_pPlaying[i] = nullptr;
        }
    }
    m_Queued = 0;
    if (m_pDevice->Close() != KORWAVE_OK) {
        Report("waveOutClose");
    }
    m_pDevice.reset();
    ++m_Session;
    m_Closing = false;
}

void CZorAudioPlayer::WaveOutFunc(CKorWaveDevice*, unsigned message, void* instance,
                                  WAVEHDR* header) {
    auto* self = static_cast<CZorAudioPlayer*>(instance);
    const unsigned index = header ? static_cast<unsigned>(header->dwUser) : 0;
    if (!self->PostMessage(message, index, self->m_Session.load())) {
        BelDump("CZorAudioPlayer: PostMessage failed\n");
    }
}

void CZorAudioPlayer::WindowProc(HWND, unsigned message, unsigned wParam, long lParam) {
    if (!m_pDevice || lParam != m_Session.load()) {
        return; // from a device closed since
    }
    if (message == WOM_DONE && wParam < static_cast<unsigned>(kBuffers)) {
        OnPlayed(wParam);
    } else if (message == WAVE_FAILED && !m_Closing) {
        BelDump("AudioPlayer -> playing stopped: %s\n", m_pDevice->GetErrorText().c_str());
        CloseDevice();
        m_Failed = true;
    }
}

void CZorAudioPlayer::OnPlayed(unsigned index) {
    CKorPacket* packet = m_pPlaying[index];
    if (!packet) {
        return;
    }
    if (m_pDevice->Unprepare(&m_Headers[index]) != KORWAVE_OK) {
        Report("waveOutUnprepareHeader");
    }
    m_pPlaying[index] = nullptr;
    --m_Queued;
    packet->Release();
    if (m_Closing) {
        return; // dropped, not played
    }
    ++m_Played;
    UpStreamModule()->Poll();
}

void CZorAudioPlayer::Poll() {
    if (m_Queued < kBuffers) {
        CKorModule::Poll();
    }
}

void CZorAudioPlayer::Flush() {
    CloseDevice();
    CKorModule::Flush();
}

// ---------------------------------------------------------------------------------------------

CAudioPlayerCom::CAudioPlayerCom() : CKorInputPinComponent("AudioPlayer") {
    m_pModule = static_cast<CZorAudioPlayer*>(CreateContext(kPath));
}

CKorModule* CAudioPlayerCom::CreateContext(const char* path) {
    return OnePathContext(path, kPath, [] { return new CZorAudioPlayer; });
}

const CJokPropertyMap<CAudioPlayerCom>& CAudioPlayerCom::PropertyMap() {
    static const CJokPropertyMap<CAudioPlayerCom> map = [] {
        CJokPropertyMap<CAudioPlayerCom> m;
        m.AddNotifiedString("device", &CAudioPlayerCom::DeviceHandler,
                            "&CAudioPlayerCom::DeviceHandler")
            .AddNotifiedDouble("queued", &CAudioPlayerCom::QueuedHandler,
                               "&CAudioPlayerCom::QueuedHandler", 1)
            .AddNotifiedDouble("played", &CAudioPlayerCom::PlayedHandler,
                               "&CAudioPlayerCom::PlayedHandler", 1)
            .AddNotifiedDouble("dropped", &CAudioPlayerCom::DroppedHandler,
                               "&CAudioPlayerCom::DroppedHandler", 1);
        return m;
    }();
    return map;
}

CJokGenericData* CAudioPlayerCom::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKorInputPinComponent::GetProperty(name, flags);
}

int CAudioPlayerCom::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKorInputPinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CAudioPlayerCom::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKorInputPinComponent::GetPropertyEnumerator());
}

int CAudioPlayerCom::DeviceHandler(CBelString* value, int set) {
    if (!set) {
        *value = m_pModule->GetDevice();
        return 1;
    }
    m_pModule->SetDevice(*value);
    return 1;
}

int CAudioPlayerCom::QueuedHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = m_pModule->GetQueuedCount();
    return 1;
}

int CAudioPlayerCom::PlayedHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = static_cast<double>(m_pModule->GetPlayedCount());
    return 1;
}

int CAudioPlayerCom::DroppedHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = static_cast<double>(m_pModule->GetDroppedCount());
    return 1;
}
