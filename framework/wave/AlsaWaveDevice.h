// The ALSA backend of the sound devices: a PCM opened non-blocking and driven by a thread of
// the device's own. The thread waits on the PCM's poll descriptors and on a wake-up descriptor
// through which the owner's Start, Stop, Reset and Close reach it; every ALSA call on the open
// PCM is made on that thread, and the owner waits for each command to be done.
//
// Capture reads into the head buffer until it is full, then calls back. An overrun (the owner
// kept no buffer queued for longer than ALSA's ring holds) is recovered and the samples lost.
// Playback writes buffers in order and calls back once the device has played a buffer's last
// frame (frames written less the device's delay), so "nothing queued" means "all heard". An
// underrun is recovered and playing goes on with the next buffer. Any other error ends
// streaming: WAVE_FAILED with ALSA's words.
//
// ALSA's own diagnostic lines are not printed; the last one a thread saw is added to the error
// text of the operation that failed.
#pragma once

#include "framework/wave/WaveDevice.h"

#include <condition_variable>
#include <deque>
#include <thread>
#include <utility>
#include <vector>

struct _snd_pcm;

class CKorAlsaWaveDevice final : public CKorWaveDevice {
public:
    // Opens the PCM for the direction and format; answers nullptr with *error and *errorText
    // on failure.
    static std::unique_ptr<CKorWaveDevice> Open(const char* name, EKorWaveDirection direction,
                                                const WAVEFORMATEX& format,
                                                KorWaveCallback callback, void* instance,
                                                int* error, CBelString* errorText);
    static bool IsFullDuplex(const char* name);
    ~CKorAlsaWaveDevice() override;

    int AddBuffer(WAVEHDR* header) override;
    int Start() override;
    int Stop() override;
    int Reset() override;
    int Close() override;

private:
    enum class ECommand { None, Start, Stop, Reset, Quit };
    struct SQueued {
        WAVEHDR* m_pHeader;
        DWORD m_Written = 0;     // playback: bytes handed to ALSA
        bool m_Complete = false; // playback: every frame handed to ALSA
        unsigned long m_End = 0; // playback: the device frame count at the buffer's end
    };
    using CDone = std::vector<std::pair<unsigned, WAVEHDR*>>;

    CKorAlsaWaveDevice(_snd_pcm* pcm, const char* name, EKorWaveDirection direction,
                       const WAVEFORMATEX& format, KorWaveCallback callback, void* instance,
                       unsigned long periodFrames);
    // Hands the command to the device thread and waits until it is done; answers its result.
    int Command(ECommand command);
    void Run();
    int Execute(ECommand command, CDone& done);
    void StepCapture(CDone& done);
    void StepPlayback(CDone& done);
    // Playback: gives back the buffers the device has played.
    void CollectPlayed(CDone& done);
    // Ends streaming after an unrecoverable error of the named ALSA call.
    void Failed(const char* what, long error, CDone& done);
    void Deliver(CDone& done);
    // Waits for the wake-up descriptor and, with withPcm, the PCM's; timeout in ms, -1: none.
    void Wait(bool withPcm, int timeout);
    void Wake() const;

    _snd_pcm* m_pPcm;
    CBelString m_Name;
    const unsigned m_FrameBytes;
    const int m_PeriodMs;
    int m_WakeFd = -1;
    std::thread m_Thread;
    // Guarded by m_Mutex:
    std::condition_variable m_CommandDone;
    ECommand m_Command = ECommand::None;
    bool m_CommandFinished = false;
    int m_CommandResult = 0;
    std::deque<SQueued> m_Queue;
    bool m_Running = false;
    bool m_Failed = false;
    // Device thread only:
    unsigned long m_Written = 0; // playback frames handed to ALSA since opening
    unsigned long m_Played = 0;  // of which the device has played
};
