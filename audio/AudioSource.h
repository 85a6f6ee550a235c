// The audio capture source: records PCM from a sound device (the system's default capture
// device, an ALSA device by name, or a WAV file standing in for one) and gives it out on the
// "audio" path as packets with a steady, drift-corrected time base. It can splice fixed bytes in
// at the start (prologue) and end (epilogue) of a recording, and emit packets of silence on a
// timer while nothing records.
//
//   local mic = zor.CreateAudioSrc{}
//   mic.sampleFrequency = 8000              -- 8000, 11025, 22050 or 44100
//   mic.samplesPerPacket = 512              -- 64 ms a packet at 8 kHz
//   local wav = zor.wav_sink{ file = "take.wav" }
//   zor.connect("audio", mic, wav)
//   mic.recording = true
//   zor.run{ seconds = 5 }
//   mic.recording = false
//
// Invariants:
//  - Twelve capture buffers stay queued at the device while recording. The device's thread
//    only stamps a buffer and posts it to this module's window; packets are made, spliced and
//    handed on on the module's own thread.
//  - Stamps come from the capture clock (audio/capture/AudioClock.h): consecutive packets are
//    exactly one buffer's duration apart, slewed by at most 1 ms a packet, except for the jump
//    (with "##### Correct Audio time by %ld ######") when the clock falls more than 200 ms
//    behind the system clock. Silence packets use the same time base.
//  - Stopping drains the messages still queued for the window before the capture buffers are
//    freed, so no message outlives its buffer; a message of an earlier recording is ignored.
//  - Output waits in a ring of 12; Poll offers it downstream oldest first. A packet that finds
//    the ring full is released and counted as dropped: nothing leaks.
//  - A device that cannot be opened or fails while recording is reported through BelDump with
//    the operation's name ("waveInOpen" ...) and the device's words; recording stops and the
//    module stays usable.
#pragma once

#include "audio/capture/AudioClock.h"
#include "entry/ZorExport.h"
#include "framework/bel/BelProbed.h"
#include "framework/kor/Module.h"
#include "framework/kor/PinComponent.h"
#include "framework/wave/WaveDevice.h"

#include <array>
#include <atomic>
#include <memory>

class CKorAudioPacket;
class CJokPropertyEnum;
template <class T> class CJokPropertyMap;

class ZOR_EXPORT CZorAudioSource : public CKorModule, public CKorCallback {
public:
    static constexpr int kBuffers = 12;
    static constexpr int kRingSize = 12;
    static constexpr unsigned kMaxSamplesPerPacket = 1440;
    // The audio packet source's standard packet; larger only when a packet's samples need more.
    static constexpr unsigned long kPacketCapacity = 1440;
    // Notify codes.
    static constexpr int kStartRecording = 0;
    static constexpr int kStopRecording = 1;

    CZorAudioSource();
    // Stops recording and releases every packet it holds.
    ~CZorAudioSource() override;

    // The PCM format of the next recording (refused, with a message, while recording).
    void SetPCMFormat(int channels, int bits, unsigned sampleFrequency);
    const WAVEFORMATEX& GetPCMFormat() const { return m_Format; }
    long GetFormatSeqNumber() const { return m_FormatSeqNumber; }
    // 8000, 11025, 22050 or 44100; answers non-zero when accepted.
    int SetSampleFrequency(unsigned frequency);
    unsigned GetSampleFrequency() const { return m_Format.nSamplesPerSec; }
    // From the block alignment to 1440; answers non-zero when accepted.
    int SetSamplesPerPacket(unsigned samples);
    unsigned GetSamplesPerPacket() const { return m_SamplesPerPacket; }
    void SilenceMode(int on);
    int IsSilenceMode() const { return m_SilenceMode; }
    void SetPrologueData(const CBelString& data) { m_Prologue = data; }
    const CBelString& GetPrologueData() const { return m_Prologue; }
    void SetEpilogueData(const CBelString& data) { m_Epilogue = data; }
    const CBelString& GetEpilogueData() const { return m_Epilogue; }
    // The capture device's name (see framework/wave/WaveDevice.h) for the next recording;
    // options apply to file devices.
    void SetDevice(const CBelString& name, const SKorWaveOptions& options = {});
    const CBelString& GetDevice() const { return m_Device; }

    // Offers the ring downstream, oldest first, until a packet is refused.
    void Poll() override;
    // Releases the ring, then flushes downstream.
    void Flush() override;
    // kStartRecording starts; kStopRecording stops, or with epilogue data first sends it.
    using CKorCallback::Notify;
    void Notify(int code, long value) override;
    void WindowProc(HWND window, unsigned message, unsigned wParam, long lParam) override;
    void TimeOut(long now) override;
    // The capture device's callback (on the device's thread).
    static void WaveInFunc(CKorWaveDevice* device, unsigned message, void* instance,
                           WAVEHDR* header);

    bool IsRecording() const { return m_Recording; }
    bool IsStartDelayed() const { return m_StartDelayed; }
    bool IsEpilogueMode() const { return m_EpilogueMode; }
    long GetFrameCount() const { return m_Frames; }
    long GetDroppedCount() const { return m_Dropped; }
    int GetRingCount() const { return m_RingCount; }

    // Module-wide switches and readings, under the probe folder "AudioSource".
    static CBelProbedLong sm_TimeOffset;    // "AudioTimeOffset": ms added to every stamp
    static CBelProbedLong sm_NoCorrection;  // "NoAudioTimeCorrection": stamps follow the clock
    static CBelProbedLong sm_DebugTime;     // "DebugAudioTime": a line per buffer
    static CBelProbedDouble sm_SilenceRate; // "SilenceAudioRate": samples/s of silence emitted

private:
    void StartRecording();
    void StopRecording();
    // Bytes of one packet: bits x samples per packet / 8, in whole sample frames.
    unsigned long PacketBytes() const;
    // A new packet of the format with room for PacketBytes (one reference).
    CKorAudioPacket* NewPacket() const;
    void OnBufferDone(WAVEHDR* header);
    void OnBufferPosted(unsigned index);
    void OnDeviceFailed();
    void EmitSilence();
    // Puts the packet (its reference) in the ring, or drops it when the ring stays full.
    void AddToRing(CKorPacket* packet);
    void ReleaseRing();
    void Report(const char* operation, const CBelString& text) const;
    bool Busy() const;

    WAVEFORMATEX m_Format{};
    long m_FormatSeqNumber = 0;
    double m_MsPerByte = 0.0;
    unsigned m_SamplesPerPacket = 512;
    CBelString m_Device;
    SKorWaveOptions m_DeviceOptions;

    std::unique_ptr<CKorWaveDevice> m_pDevice;
    std::array<CKorAudioPacket*, kBuffers> m_pCapture{};
    std::array<WAVEHDR, kBuffers> m_Headers{};
    // A recording's number: posts carry it, so one from an earlier recording is ignored.
    std::atomic<long> m_Session{0};

    std::array<CKorPacket*, kRingSize> m_Ring{};
    int m_RingHead = 0;
    int m_RingCount = 0;
    bool m_InPoll = false;
    bool m_Dropping = false;
    long m_Dropped = 0;

    // The device thread touches only the clock while recording.
    CZorAudioClock m_Clock;

    bool m_Recording = false;
    bool m_EpilogueMode = false;
    int m_SilenceMode = 0;
    bool m_StartDelayed = false;
    double m_SilenceClock = 0.0; // seconds, framework clock
    double m_SilenceStart = 0.0;
    double m_SilenceSamples = 0.0;
    CBelString m_Prologue;
    CBelString m_Epilogue;
    int m_ProloguePos = 0;
    int m_EpiloguePos = 0;
    long m_Frames = 0;
};

class CAudioSrcCom final : public CKorOutputPinComponent {
public:
    CAudioSrcCom();

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;
    // The capture module for "audio" (made on first request); nullptr for any other path.
    CKorModule* CreateContext(const char* path) override;

    int SamplesPerPacketHandler(double* value, int set);
    int SampleFrequencyHandler(double* value, int set);
    int SilenceModeHandler(int* value, int set);
    int EpilogueHandler(CBelString* value, int set);
    int PrologueHandler(CBelString* value, int set);
    int RecordingPropertyHandler(int* value, int set);
    int DeviceHandler(CBelString* value, int set);
    int ChannelsHandler(double* value, int set);
    int BitsPerSampleHandler(double* value, int set);
    int FramesHandler(double* value, int set);
    int DroppedHandler(double* value, int set);
    // The wave-format hex string of the capture format, or of a codec's format at the capture
    // rate: optional "format" = "PCM" (default), "G711", "G721", "G723_24" or "G723_16".
    int GetFormatString(CJokCommandContext* context);

private:
    static const CJokPropertyMap<CAudioSrcCom>& PropertyMap();

    CZorAudioSource* m_pModule = nullptr; // owned by the bus
};

// "IsAudioFullDuplex": answers whether the sound device (optional "device", default the
// system's) can capture and play at once.
int IsAudioFullDuplexHandler(CJokCommandContext* context);
