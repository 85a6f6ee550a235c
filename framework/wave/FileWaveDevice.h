// A WAV file standing in for a sound device ("file:PATH"), for tests and offline runs.
//
// Capture gives the file's sample data, from its start each time the device is opened; the
// file's format must be the one asked for. Playback writes a new WAV file of the format. Either
// way the device keeps its own clock: a buffer is done once its bytes have had their time on
// the framework clock, scaled by (1 + rate error), counted from Start. The clock is driven by a
// timer on the opening thread's message loop, so on the virtual clock each buffer is done at
// exactly its time.
//
// Capture keeps running while no buffer is queued (as a card fills its own ring): a buffer
// queued late is filled at once. Playback that runs out of buffers stops its clock, and the
// next buffer plays from when it is queued; nothing is written for the gap.
//
// At the end of the input, capture gives back the last buffer with what was left and fails
// with KORWAVE_ENDOFDATA (WAVE_FAILED), unless SKorWaveOptions::m_Loop starts the file again.
#pragma once

#include "framework/bel/BelTimer.h"
#include "framework/wave/WavFile.h"
#include "framework/wave/WaveDevice.h"

#include <deque>
#include <string>

class CKorFileWaveDevice final : public CKorWaveDevice, private CBelTimer {
public:
    // Opens path for the direction; answers nullptr with *error and *errorText on failure.
    static std::unique_ptr<CKorWaveDevice> Open(const char* path, EKorWaveDirection direction,
                                                const WAVEFORMATEX& format,
                                                KorWaveCallback callback, void* instance,
                                                int* error, CBelString* errorText,
                                                const SKorWaveOptions& options);
    ~CKorFileWaveDevice() override;

    int AddBuffer(WAVEHDR* header) override;
    int Start() override;
    int Stop() override;
    int Reset() override;
    int Close() override;

private:
    CKorFileWaveDevice(const char* path, EKorWaveDirection direction, const WAVEFORMATEX& format,
                       KorWaveCallback callback, void* instance, const SKorWaveOptions& options);
    void TimeOut(long now) override;
    // Arms the timer for the head buffer's time, if streaming.
    void Schedule();
    // A new stretch of the device clock, from now.
    void BeginSegment();
    double BytesPerSecond() const;
    // Reads up to size bytes of input (whole frames); answers how many. Sets m_InputEnded at
    // the end of the file unless looping.
    DWORD ReadInput(BYTE* data, DWORD size);
    // Takes the head buffer off the queue, done, and calls back with message.
    void GiveBack(unsigned message);

    std::string m_Path;
    SKorWaveOptions m_Options;
    CWavReader m_Reader;
    CWavWriter m_Writer;
    std::deque<WAVEHDR*> m_Queue;
    bool m_Running = false;
    bool m_Failed = false;
    bool m_InputEnded = false;
    double m_SegmentStart = 0.0; // framework clock (s) at which the current stretch began
    double m_SegmentBytes = 0.0; // bytes done in the current stretch
};
