#include "framework/wave/AlsaWaveDevice.h"

#include <alsa/asoundlib.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <poll.h>
#include <string>
#include <sys/eventfd.h>
#include <unistd.h>

namespace {

// The period the device wakes at, and the ring ALSA keeps: capture rides out a busy owner for
// half a second; playback keeps its latency short.
constexpr unsigned kPeriodMicros = 10000;
constexpr unsigned kCaptureRingMicros = 500000;
constexpr unsigned kPlaybackRingMicros = 250000;

thread_local std::string t_AlsaMessage;

void __attribute__((format(printf, 5, 6)))
KeepAlsaMessage(const char*, int, const char*, int, const char* format, ...) {
    char text[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    t_AlsaMessage = text;
}

void InstallMessageHandler() {
    static std::once_flag once;
    std::call_once(once, [] { snd_lib_error_set_handler(&KeepAlsaMessage); });
}

// "what: words (ALSA's last message)"; the message is used up.
CBelString AlsaText(const CBelString& what, long error) {
    CBelString text = what + ": " + snd_strerror(static_cast<int>(error));
    if (!t_AlsaMessage.empty()) {
        text += " (" + CBelString(t_AlsaMessage) + ")";
        t_AlsaMessage.clear();
    }
    return text;
}

const char* SideName(EKorWaveDirection direction) {
    return direction == EKorWaveDirection::In ? "capture" : "playback";
}

// Sets the PCM up for the format; answers 0 or ALSA's error with *text.
int Configure(snd_pcm_t* pcm, const char* name, EKorWaveDirection direction,
              const WAVEFORMATEX& format, snd_pcm_uframes_t* periodFrames, CBelString* text) {
    snd_pcm_hw_params_t* hw = nullptr;
    snd_pcm_hw_params_alloca(&hw);
    const auto fail = [&](const char* step, int error) {
        CBelString what;
        what.Format("%s: %s", name, step);
        *text = AlsaText(what, error);
        return error;
    };
    int err = snd_pcm_hw_params_any(pcm, hw);
    if (err < 0) {
        return fail("no hardware configuration", err);
    }
    if ((err = snd_pcm_hw_params_set_access(pcm, hw, SND_PCM_ACCESS_RW_INTERLEAVED)) < 0) {
        return fail("interleaved access is not available", err);
    }
    const snd_pcm_format_t sampleFormat =
        format.wBitsPerSample == 8 ? SND_PCM_FORMAT_U8 : SND_PCM_FORMAT_S16_LE;
    if ((err = snd_pcm_hw_params_set_format(pcm, hw, sampleFormat)) < 0) {
        return fail(format.wBitsPerSample == 8 ? "8-bit samples are not available"
                                               : "16-bit samples are not available",
                    err);
    }
    if ((err = snd_pcm_hw_params_set_channels(pcm, hw, format.nChannels)) < 0) {
        CBelString step;
        step.Format("%u channel(s) are not available", format.nChannels);
        return fail(step, err);
    }
    if ((err = snd_pcm_hw_params_set_rate(pcm, hw, format.nSamplesPerSec, 0)) < 0) {
        CBelString step;
        step.Format("%u Hz is not available", format.nSamplesPerSec);
        return fail(step, err);
    }
    unsigned period = kPeriodMicros;
    unsigned ring = direction == EKorWaveDirection::In ? kCaptureRingMicros : kPlaybackRingMicros;
    int dir = 0;
    snd_pcm_hw_params_set_period_time_near(pcm, hw, &period, &dir);
    snd_pcm_hw_params_set_buffer_time_near(pcm, hw, &ring, &dir);
    if ((err = snd_pcm_hw_params(pcm, hw)) < 0) {
        return fail("cannot set the hardware parameters", err);
    }
    snd_pcm_hw_params_get_period_size(hw, periodFrames, &dir);

    snd_pcm_sw_params_t* sw = nullptr;
    snd_pcm_sw_params_alloca(&sw);
    snd_pcm_sw_params_current(pcm, sw);
    snd_pcm_sw_params_set_avail_min(pcm, sw, *periodFrames);
    // Playback starts with its first frame (the owner queues whole buffers at once), so a short
    // last stretch is played too; capture starts when told.
    if (direction == EKorWaveDirection::Out) {
        snd_pcm_sw_params_set_start_threshold(pcm, sw, 1);
    }
    if ((err = snd_pcm_sw_params(pcm, sw)) < 0) {
        return fail("cannot set the software parameters", err);
    }
    return 0;
}

snd_pcm_stream_t StreamOf(EKorWaveDirection direction) {
    return direction == EKorWaveDirection::In ? SND_PCM_STREAM_CAPTURE : SND_PCM_STREAM_PLAYBACK;
}

} // namespace

std::unique_ptr<CKorWaveDevice> CKorAlsaWaveDevice::Open(const char* name,
                                                         EKorWaveDirection direction,
                                                         const WAVEFORMATEX& format,
                                                         KorWaveCallback callback, void* instance,
                                                         int* error, CBelString* errorText) {
    InstallMessageHandler();
    t_AlsaMessage.clear();
    snd_pcm_t* pcm = nullptr;
    const int err = snd_pcm_open(&pcm, name, StreamOf(direction), SND_PCM_NONBLOCK);
    if (err < 0) {
        CBelString what;
        what.Format("%s: cannot open for %s", name, SideName(direction));
        *error = KORWAVE_BADDEVICE;
        *errorText = AlsaText(what, err);
        return nullptr;
    }
    snd_pcm_uframes_t period = 0;
    if (Configure(pcm, name, direction, format, &period, errorText) < 0) {
        snd_pcm_close(pcm);
        *error = KORWAVE_BADFORMAT;
        return nullptr;
    }
    std::unique_ptr<CKorAlsaWaveDevice> device(
        new CKorAlsaWaveDevice(pcm, name, direction, format, callback, instance, period));
    device->m_WakeFd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (device->m_WakeFd < 0) {
        *error = KORWAVE_BADDEVICE;
        errorText->Format("%s: no wake-up descriptor", name);
        return nullptr;
    }
    device->m_Thread = std::thread([raw = device.get()] { raw->Run(); });
    return device;
}

bool CKorAlsaWaveDevice::IsFullDuplex(const char* name) {
    InstallMessageHandler();
    const WAVEFORMATEX probe{1, 1, 8000, 16000, 2, 16, 0};
    snd_pcm_t* in = nullptr;
    snd_pcm_t* out = nullptr;
    snd_pcm_uframes_t period = 0;
    CBelString ignored;
    bool both = snd_pcm_open(&in, name, SND_PCM_STREAM_CAPTURE, SND_PCM_NONBLOCK) >= 0 &&
                snd_pcm_open(&out, name, SND_PCM_STREAM_PLAYBACK, SND_PCM_NONBLOCK) >= 0;
    both = both && Configure(in, name, EKorWaveDirection::In, probe, &period, &ignored) >= 0 &&
           Configure(out, name, EKorWaveDirection::Out, probe, &period, &ignored) >= 0;
    if (in) {
        snd_pcm_close(in);
    }
    if (out) {
        snd_pcm_close(out);
    }
    t_AlsaMessage.clear();
    return both;
}

CKorAlsaWaveDevice::CKorAlsaWaveDevice(snd_pcm_t* pcm, const char* name,
                                       EKorWaveDirection direction, const WAVEFORMATEX& format,
                                       KorWaveCallback callback, void* instance,
                                       unsigned long periodFrames)
    : CKorWaveDevice(direction, format, callback, instance), m_pPcm(pcm), m_Name(name),
      m_FrameBytes(format.nBlockAlign),
      m_PeriodMs(std::max(1, static_cast<int>(periodFrames * 1000 / format.nSamplesPerSec))) {}

CKorAlsaWaveDevice::~CKorAlsaWaveDevice() {
    if (m_Thread.joinable()) {
        {
            std::lock_guard<std::mutex> lock(m_Mutex);
            m_Queue.clear(); // dropped without a callback
        }
        Command(ECommand::Quit);
        m_Thread.join();
    }
    if (m_WakeFd >= 0) {
        close(m_WakeFd);
    }
    if (m_pPcm) {
        snd_pcm_close(m_pPcm);
    }
}

int CKorAlsaWaveDevice::AddBuffer(WAVEHDR* header) {
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        if (const int error = Enqueue(header)) {
            return error;
        }
        m_Queue.push_back(SQueued{header});
    }
    Wake();
    return KORWAVE_OK;
}

int CKorAlsaWaveDevice::Start() {
    return Command(ECommand::Start);
}

int CKorAlsaWaveDevice::Stop() {
    return Command(ECommand::Stop);
}

int CKorAlsaWaveDevice::Reset() {
    return Command(ECommand::Reset);
}

int CKorAlsaWaveDevice::Close() {
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        if (!m_Queue.empty()) {
            return Fail(KORWAVE_STILLPLAYING, "buffers are still queued");
        }
    }
    if (m_Thread.joinable()) {
        Command(ECommand::Quit);
        m_Thread.join();
    }
    if (m_pPcm) {
        snd_pcm_close(m_pPcm);
        m_pPcm = nullptr;
    }
    return KORWAVE_OK;
}

int CKorAlsaWaveDevice::Command(ECommand command) {
    std::unique_lock<std::mutex> lock(m_Mutex);
    if (!m_Thread.joinable()) {
        return Fail(KORWAVE_FAILED, m_Name + ": the device is closed");
    }
    m_Command = command;
    m_CommandFinished = false;
    Wake();
    m_CommandDone.wait(lock, [this] { return m_CommandFinished; });
    return m_CommandResult;
}

void CKorAlsaWaveDevice::Wake() const {
    const std::uint64_t one = 1;
    (void)!write(m_WakeFd, &one, sizeof one);
}

void CKorAlsaWaveDevice::Wait(bool withPcm, int timeout) {
    pollfd fds[8];
    fds[0] = pollfd{m_WakeFd, POLLIN, 0};
    int pcmCount = 0;
    if (withPcm) {
        pcmCount = std::clamp(snd_pcm_poll_descriptors_count(m_pPcm), 0, 7);
        pcmCount = std::max(0, snd_pcm_poll_descriptors(m_pPcm, fds + 1, pcmCount));
    }
    if (poll(fds, static_cast<nfds_t>(pcmCount) + 1, timeout) <= 0) {
        return;
    }
    if (fds[0].revents & POLLIN) {
        std::uint64_t count = 0;
        (void)!read(m_WakeFd, &count, sizeof count);
    }
    if (pcmCount > 0) {
        // Lets the PCM acknowledge its wake-up (some plugins must, or poll never blocks again).
        unsigned short revents = 0;
        snd_pcm_poll_descriptors_revents(m_pPcm, fds + 1, static_cast<unsigned>(pcmCount),
                                         &revents);
    }
}

void CKorAlsaWaveDevice::Run() {
    CDone done;
    for (;;) {
        ECommand command = ECommand::None;
        bool streaming = false;
        {
            std::lock_guard<std::mutex> lock(m_Mutex);
            command = m_Command;
            streaming = m_Running && !m_Failed && !m_Queue.empty();
        }
        if (command != ECommand::None) {
            const int result = Execute(command, done);
            Deliver(done);
            {
                std::lock_guard<std::mutex> lock(m_Mutex);
                m_Command = ECommand::None;
                m_CommandResult = result;
                m_CommandFinished = true;
            }
            m_CommandDone.notify_all();
            if (command == ECommand::Quit) {
                return;
            }
            continue;
        }
        if (!streaming) {
            Wait(false, -1);
            continue;
        }
        if (GetDirection() == EKorWaveDirection::In) {
            StepCapture(done);
        } else {
            StepPlayback(done);
        }
        Deliver(done);
    }
}

int CKorAlsaWaveDevice::Execute(ECommand command, CDone& done) {
    int result = KORWAVE_OK;
    const bool capture = GetDirection() == EKorWaveDirection::In;
    std::lock_guard<std::mutex> lock(m_Mutex);
    switch (command) {
    case ECommand::Start: {
        if (m_Running) {
            break;
        }
        int err = 0;
        if (snd_pcm_state(m_pPcm) != SND_PCM_STATE_PREPARED) {
            err = snd_pcm_prepare(m_pPcm);
        }
        if (err >= 0 && capture) {
            err = snd_pcm_start(m_pPcm);
        }
        if (err < 0) {
            m_Failed = true;
            return Fail(KORWAVE_FAILED, AlsaText(m_Name + ": cannot start", err));
        }
        m_Failed = false;
        m_Running = true;
        break;
    }
    case ECommand::Stop:
    case ECommand::Reset:
        if (m_Running) {
            m_Running = false;
            snd_pcm_drop(m_pPcm);
            const int err = snd_pcm_prepare(m_pPcm);
            if (err < 0) {
                result = Fail(KORWAVE_FAILED, AlsaText(m_Name + ": cannot stop", err));
            }
            if (capture && !m_Queue.empty() && m_Queue.front().m_pHeader->dwBytesRecorded > 0) {
                MarkDone(m_Queue.front().m_pHeader);
                done.emplace_back(WIM_DATA, m_Queue.front().m_pHeader);
                m_Queue.pop_front();
            }
            // What the device dropped unplayed is played again after the next Start.
            for (SQueued& queued : m_Queue) {
                queued.m_Written = 0;
                queued.m_Complete = false;
            }
            m_Written = m_Played;
        }
        if (command == ECommand::Reset) {
            for (const SQueued& queued : m_Queue) {
                MarkDone(queued.m_pHeader);
                done.emplace_back(capture ? WIM_DATA : WOM_DONE, queued.m_pHeader);
            }
            m_Queue.clear();
        }
        break;
    case ECommand::Quit:
        if (m_Running) {
            m_Running = false;
            snd_pcm_drop(m_pPcm);
        }
        break;
    case ECommand::None:
        break;
    }
    return result;
}

void CKorAlsaWaveDevice::StepCapture(CDone& done) {
    WAVEHDR* head = nullptr;
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        head = m_Queue.front().m_pHeader;
    }
    const DWORD left = head->dwBufferLength - head->dwBytesRecorded;
    const snd_pcm_sframes_t n =
        snd_pcm_readi(m_pPcm, head->lpData + head->dwBytesRecorded, left / m_FrameBytes);
    if (n > 0) {
        head->dwBytesRecorded += static_cast<DWORD>(n) * m_FrameBytes;
        if (head->dwBufferLength - head->dwBytesRecorded < m_FrameBytes) {
            std::lock_guard<std::mutex> lock(m_Mutex);
            MarkDone(head);
            m_Queue.pop_front();
            done.emplace_back(WIM_DATA, head);
        }
        return;
    }
    if (n == 0 || n == -EAGAIN) {
        Wait(true, -1);
        return;
    }
    // An overrun or a suspend loses samples but not the stream.
    int err = snd_pcm_recover(m_pPcm, static_cast<int>(n), 1);
    if (err >= 0) {
        err = snd_pcm_start(m_pPcm);
    }
    if (err < 0) {
        Failed("capture stopped", err, done);
    }
}

void CKorAlsaWaveDevice::CollectPlayed(CDone& done) {
    snd_pcm_sframes_t delay = 0;
    const int err = snd_pcm_delay(m_pPcm, &delay);
    if (err == -EPIPE || snd_pcm_state(m_pPcm) == SND_PCM_STATE_XRUN) {
        // Ran dry: everything handed over has been played.
        m_Played = m_Written;
        snd_pcm_prepare(m_pPcm);
    } else if (err >= 0) {
        const unsigned long queued =
            static_cast<unsigned long>(std::max<snd_pcm_sframes_t>(delay, 0));
        m_Played = std::max(m_Played, m_Written - std::min(queued, m_Written));
    }
    std::lock_guard<std::mutex> lock(m_Mutex);
    while (!m_Queue.empty() && m_Queue.front().m_Complete && m_Queue.front().m_End <= m_Played) {
        MarkDone(m_Queue.front().m_pHeader);
        done.emplace_back(WOM_DONE, m_Queue.front().m_pHeader);
        m_Queue.pop_front();
    }
}

void CKorAlsaWaveDevice::StepPlayback(CDone& done) {
    CollectPlayed(done);
    SQueued* next = nullptr;
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        for (SQueued& queued : m_Queue) {
            if (!queued.m_Complete) {
                next = &queued;
                break;
            }
        }
    }
    if (!next) {
        // Everything is with the device: look again when it has played another period.
        Wait(false, m_PeriodMs);
        return;
    }
    const WAVEHDR* header = next->m_pHeader;
    const DWORD left = header->dwBufferLength - next->m_Written;
    const snd_pcm_sframes_t n =
        snd_pcm_writei(m_pPcm, header->lpData + next->m_Written, left / m_FrameBytes);
    if (n > 0) {
        next->m_Written += static_cast<DWORD>(n) * m_FrameBytes;
        m_Written += static_cast<unsigned long>(n);
    }
    if (n >= 0) {
        if (header->dwBufferLength - next->m_Written < m_FrameBytes) {
            std::lock_guard<std::mutex> lock(m_Mutex);
            next->m_Complete = true;
            next->m_End = m_Written;
        }
        return;
    }
    if (n == -EAGAIN) {
        Wait(true, m_PeriodMs);
        return;
    }
    if (n == -EPIPE) {
        m_Played = m_Written;
    }
    if (const int err = snd_pcm_recover(m_pPcm, static_cast<int>(n), 1); err < 0) {
        Failed("playback stopped", err, done);
    }
}

void CKorAlsaWaveDevice::Failed(const char* what, long error, CDone& done) {
    std::lock_guard<std::mutex> lock(m_Mutex);
    m_Failed = true;
    m_Running = false;
    Fail(KORWAVE_FAILED, AlsaText(m_Name + ": " + what, error));
    done.emplace_back(WAVE_FAILED, nullptr);
}

void CKorAlsaWaveDevice::Deliver(CDone& done) {
    for (const auto& [message, header] : done) {
        CallBack(message, header);
    }
    done.clear();
}
