// The audio player: plays the PCM packets that reach it on a sound device (the system's default
// playback device, an ALSA device by name, or a WAV file standing in for one), at the device's
// pace, so that a capture, a mix or a decoded stream can be heard.
//
//   local wav = zor.wav_source{ file = "speech.wav" }
//   local player = zor.CreateAudioPlayer{}       -- device "" is the system's default
//   zor.connect("audio", wav, zor.CreateAudioDecoder{}, player)
//   wav.run()
//   while not wav.done or player.queued > 0 do zor.run{ seconds = 0.05 } end
//
// Invariants:
//  - At most 12 packets are at the device. With 12 there Receive refuses, and each packet the
//    device has played polls upstream for the next: the device sets the pace.
//  - A packet is played from its own memory: the player holds its reference until the device
//    has played it, then releases it.
//  - The device opens with the first packet's format, and again when the layout (tag, rate,
//    channels, bits) changes, once what it holds has played.
//  - What cannot be played is taken and released: packets of other kinds (silently); audio
//    that is not 8- or 16-bit PCM, and everything after the device failed to open or stopped
//    working, until "device" is set again (counted in "dropped", one line per cause).
#pragma once

#include "entry/ZorExport.h"
#include "framework/kor/Module.h"
#include "framework/kor/PinComponent.h"
#include "framework/wave/WaveDevice.h"

#include <array>
#include <atomic>
#include <memory>

class CJokPropertyEnum;
template <class T> class CJokPropertyMap;

class ZOR_EXPORT CZorAudioPlayer : public CKorModule {
public:
    static constexpr int kBuffers = 12;

    CZorAudioPlayer();
    // Stops playing: what waits at the device is dropped.
    ~CZorAudioPlayer() override;

    // Takes the packet (non-zero) unless the device is full or must first finish the old
    // format; see the file comment.
    int Receive(CKorPacket* packet) override;
    // Asks upstream for more while the device has room.
    void Poll() override;
    // Drops what waits at the device, then flushes downstream.
    void Flush() override;
    void WindowProc(HWND window, unsigned message, unsigned wParam, long lParam) override;
    // The playback device's callback (on the device's thread).
    static void WaveOutFunc(CKorWaveDevice* device, unsigned message, void* instance,
                            WAVEHDR* header);

    // The playback device (see framework/wave/WaveDevice.h); the current one is closed, what
    // it holds dropped, and a failure forgotten. options apply to file devices.
    void SetDevice(const CBelString& name, const SKorWaveOptions& options = {});
    const CBelString& GetDevice() const { return m_Device; }
    int GetQueuedCount() const { return m_Queued; }
    long GetPlayedCount() const { return m_Played; }
    long GetDroppedCount() const { return m_Dropped; }

private:
    int Play(CKorPacket* packet);
    bool OpenFor(const WAVEFORMATEX& format);
    // Stops the device, takes back everything it holds (released) and closes it.
    void CloseDevice();
    void Drop(CKorPacket* packet);
    void Report(const char* operation) const;
    void OnPlayed(unsigned index);

    CBelString m_Device;
    SKorWaveOptions m_DeviceOptions;
    std::unique_ptr<CKorWaveDevice> m_pDevice;
    WAVEFORMATEX m_DeviceFormat{};
    std::array<CKorPacket*, kBuffers> m_pPlaying{};
    std::array<WAVEHDR, kBuffers> m_Headers{};
    int m_Queued = 0;
    // The open device's number: posts carry it, so one from a closed device is ignored.
    std::atomic<long> m_Session{0};
    bool m_Closing = false;
    bool m_Failed = false;
    long m_RejectedSeq = 0; // the format sequence number last complained about
    long m_Played = 0;
    long m_Dropped = 0;
};

class CAudioPlayerCom final : public CKorInputPinComponent {
public:
    CAudioPlayerCom();

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;
    // The player module for "audio" (made on first request); nullptr for any other path.
    CKorModule* CreateContext(const char* path) override;

    int DeviceHandler(CBelString* value, int set);
    int QueuedHandler(double* value, int set);
    int PlayedHandler(double* value, int set);
    int DroppedHandler(double* value, int set);

private:
    static const CJokPropertyMap<CAudioPlayerCom>& PropertyMap();

    CZorAudioPlayer* m_pModule = nullptr; // owned by the bus
};
