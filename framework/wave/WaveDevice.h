// Sound devices: one interface for capture (wave input) and playback (wave output), whatever
// stands behind it. Every device goes through the same life cycle:
//
//     Open -> Prepare(header)... -> AddBuffer(header)... -> Start
//          -> buffer-done callbacks (WIM_DATA: a capture buffer is full; WOM_DONE: a playback
//             buffer has been played), on the device's thread
//          -> Stop / Reset -> Unprepare(header)... -> Close
//
// Device names:
//   "" or "default"  the system's default ALSA device
//   "file:PATH"      a WAV file that stands in for a device, at the framework clock's pace (real
//                    or virtual): capture gives the file's samples, playback writes the file
//   anything else    an ALSA PCM ("hw:1,0", "plughw:1", a name from the ALSA configuration)
//
// Buffers: the caller owns each WAVEHDR and its memory. AddBuffer queues a prepared header;
// the device owns it (WHDR_INQUEUE) until it gives it back done (WHDR_DONE) through the
// callback, after which the caller may use the data, queue the header again or unprepare it.
// Capture fills buffers completely, in order (dwBytesRecorded); playback plays them in order.
// Only Start..Stop streams: Stop gives back the capture buffer being filled (with what it holds)
// and keeps the rest queued; Reset stops and gives back every queued buffer.
//
// Failures: operations answer 0 or an EKorWaveError code, and GetErrorText() says why in words
// (for ALSA, its own message and detail). A device that fails while streaming (unplugged, or the
// end of a file device's input) calls back WAVE_FAILED once, with no header, and then takes no
// more buffers until it is started again; Reset still gives the queued ones back. Close answers
// KORWAVE_STILLPLAYING while buffers are queued. Destroying a device closes it at once: queued
// buffers are dropped without a callback.
//
// Threads: operations may be called from any one thread (the owner's). ALSA devices call back
// on a thread of their own; file devices on the owner's message loop, from timers (so they
// follow the virtual clock), and only while the owner's loop runs. A callback may queue a
// buffer again, but must not start, stop, reset or close its device.
#pragma once

#include "framework/bel/BelString.h"
#include "framework/bel/WinTypes.h"

#include <cstdint>
#include <memory>
#include <mutex>

// One buffer handed to a device, laid out as on the module's original platform.
struct WAVEHDR {
    BYTE* lpData = nullptr;
    DWORD dwBufferLength = 0;
    DWORD dwBytesRecorded = 0;
    std::uintptr_t dwUser = 0; // the caller's
    DWORD dwFlags = 0;
};

constexpr DWORD WHDR_DONE = 0x01;
constexpr DWORD WHDR_PREPARED = 0x02;
constexpr DWORD WHDR_INQUEUE = 0x10;

// Callback messages.
constexpr unsigned WOM_DONE = 0x3BD;    // a playback buffer has been played
constexpr unsigned WIM_DATA = 0x3C0;    // a capture buffer is full (or given back by Stop/Reset)
constexpr unsigned WAVE_FAILED = 0x3C8; // the device failed or its input ended (no header)

enum EKorWaveError : int {
    KORWAVE_OK = 0,
    KORWAVE_BADDEVICE = 1,    // no such device, or it cannot be opened
    KORWAVE_BADFORMAT = 2,    // the device does not take the format
    KORWAVE_STILLPLAYING = 3, // buffers are still queued
    KORWAVE_UNPREPARED = 4,   // the header was not prepared
    KORWAVE_INVALPARAM = 5,   // a header without room for one sample frame
    KORWAVE_FAILED = 6,       // the device failed while streaming
    KORWAVE_ENDOFDATA = 7,    // a file device's input has ended
};

enum class EKorWaveDirection { In, Out };

// Options for file devices, so tests and benchmarks can make one run fast or slow.
struct SKorWaveOptions {
    // The device's clock runs this much faster than the framework clock (0.005: 0.5% fast).
    double m_RateError = 0.0;
    // Capture starts the file again at its end instead of ending.
    bool m_Loop = false;
};

class CKorWaveDevice;
// instance is what the opener gave; header is the buffer done (nullptr for WAVE_FAILED).
using KorWaveCallback = void (*)(CKorWaveDevice* device, unsigned message, void* instance,
                                 WAVEHDR* header);

class CKorWaveDevice {
public:
    // Opens the named device for the direction and a PCM format (tag 1, 8 or 16 bits). On
    // failure answers nullptr and sets *error and *errorText.
    static std::unique_ptr<CKorWaveDevice> Open(const char* name, EKorWaveDirection direction,
                                                const WAVEFORMATEX& format,
                                                KorWaveCallback callback, void* instance,
                                                int* error, CBelString* errorText,
                                                const SKorWaveOptions& options = {});
    // Whether the named device (default: the system's) can capture and play at the same time:
    // both sides open together for 8 kHz 16-bit mono. A file device answers false without
    // touching its file.
    static bool IsFullDuplex(const char* name);

    virtual ~CKorWaveDevice();
    CKorWaveDevice(const CKorWaveDevice&) = delete;
    CKorWaveDevice& operator=(const CKorWaveDevice&) = delete;

    int Prepare(WAVEHDR* header);
    int Unprepare(WAVEHDR* header);
    virtual int AddBuffer(WAVEHDR* header) = 0;
    virtual int Start() = 0;
    virtual int Stop() = 0;
    virtual int Reset() = 0;
    virtual int Close() = 0;

    // The last failure in words.
    CBelString GetErrorText() const;
    EKorWaveDirection GetDirection() const { return m_Direction; }
    const WAVEFORMATEX& GetFormat() const { return m_Format; }

protected:
    CKorWaveDevice(EKorWaveDirection direction, const WAVEFORMATEX& format,
                   KorWaveCallback callback, void* instance);
    // Records a failure; answers code. Call with m_Mutex held.
    int Fail(int code, const CBelString& text);
    // Checks a header for AddBuffer (prepared, not queued, room for a frame) and marks it
    // queued. Call with m_Mutex held.
    int Enqueue(WAVEHDR* header);
    // Marks a header done. Call with m_Mutex held.
    static void MarkDone(WAVEHDR* header);
    void CallBack(unsigned message, WAVEHDR* header);

    // Guards the headers' flags and each backend's queue.
    mutable std::mutex m_Mutex;

private:
    const EKorWaveDirection m_Direction;
    const WAVEFORMATEX m_Format;
    const KorWaveCallback m_Callback;
    void* const m_pInstance;
    CBelString m_ErrorText;
};
