#include "framework/wave/WaveDevice.h"

#include "framework/bel/BelClock.h"
#include "framework/wave/WavFile.h"
#include "tests/support/AlsaTestConfig.h"
#include "tests/support/Harness.h"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <gtest/gtest.h>
#include <mutex>
#include <vector>

using namespace zortest;

namespace {

const WAVEFORMATEX kSpeechFormat{1, 1, 8000, 16000, 2, 16, 0};

struct SEvent {
    unsigned m_Message;
    WAVEHDR* m_pHeader;
    DWORD m_Bytes;
    double m_Time;
    std::vector<BYTE> m_Data;
};

// Records callbacks from any thread; can give each buffer straight back to the device.
class CCallbackLog {
public:
    static void Callback(CKorWaveDevice* device, unsigned message, void* instance,
                         WAVEHDR* header) {
        auto* log = static_cast<CCallbackLog*>(instance);
        SEvent event{message, header, header ? header->dwBytesRecorded : 0, BelDoubleTime(), {}};
        if (header && message == WIM_DATA) {
            event.m_Data.assign(header->lpData, header->lpData + header->dwBytesRecorded);
        }
        {
            std::lock_guard<std::mutex> lock(log->m_Mutex);
            log->m_Events.push_back(std::move(event));
        }
        if (header && log->m_Requeue) {
            device->AddBuffer(header);
        }
        log->m_Changed.notify_all();
    }
    // Waits up to seconds of real time for count events.
    bool WaitFor(size_t count, double seconds) {
        std::unique_lock<std::mutex> lock(m_Mutex);
        return m_Changed.wait_for(lock, std::chrono::duration<double>(seconds),
                                  [&] { return m_Events.size() >= count; });
    }
    std::vector<SEvent> Events() {
        std::lock_guard<std::mutex> lock(m_Mutex);
        return m_Events;
    }
    std::vector<BYTE> Captured() {
        std::vector<BYTE> all;
        for (const SEvent& event : Events()) {
            all.insert(all.end(), event.m_Data.begin(), event.m_Data.end());
        }
        return all;
    }
    bool m_Requeue = false;

private:
    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    std::vector<SEvent> m_Events;
};

// Buffers owned by a test, prepared and queued on a device.
struct SBuffers {
    SBuffers(int count, DWORD bytes) : m_Data(count, std::vector<BYTE>(bytes)), m_Headers(count) {
        for (int i = 0; i < count; ++i) {
            m_Headers[i].lpData = m_Data[i].data();
            m_Headers[i].dwBufferLength = bytes;
            m_Headers[i].dwUser = static_cast<std::uintptr_t>(i);
        }
    }
    void Queue(CKorWaveDevice& device) {
        for (WAVEHDR& header : m_Headers) {
            ASSERT_EQ(device.Prepare(&header), KORWAVE_OK);
            ASSERT_EQ(device.AddBuffer(&header), KORWAVE_OK);
        }
    }
    std::vector<std::vector<BYTE>> m_Data;
    std::vector<WAVEHDR> m_Headers;
};

std::unique_ptr<CKorWaveDevice> OpenDevice(const std::string& name, EKorWaveDirection direction,
                                           CCallbackLog& log, const SKorWaveOptions& options = {},
                                           const WAVEFORMATEX& format = kSpeechFormat) {
    int error = 0;
    CBelString text;
    auto device = CKorWaveDevice::Open(name.c_str(), direction, format, &CCallbackLog::Callback,
                                       &log, &error, &text, options);
    EXPECT_TRUE(device) << text.c_str();
    return device;
}

std::string SpeechDevice() {
    return "file:" + CAlsaTestConfig::Install().SpeechWav();
}

// --- File devices, on the virtual clock ------------------------------------------------------

// Buffer k is done when its last byte has had its time on the device's clock, which runs
// (1 + rate error) times the framework clock; the bytes are the file's, in order.
TEST(FileWaveDevice, BuffersAreDoneAtTheDeviceClocksTimes) {
    CVirtualClockScope clock;
    const double rateError = 0.005;
    CCallbackLog log;
    log.m_Requeue = true;
    auto device = OpenDevice(SpeechDevice(), EKorWaveDirection::In, log, {rateError, false});
    SBuffers buffers(3, 1024);
    buffers.Queue(*device);
    const double start = BelDoubleTime();
    ASSERT_EQ(device->Start(), KORWAVE_OK);
    clock.Advance(1000);
    const std::vector<SEvent> events = log.Events();
    const double perBuffer = 1024.0 / (16000.0 * (1.0 + rateError));
    ASSERT_EQ(events.size(), static_cast<size_t>(1.0 / perBuffer));
    for (size_t k = 0; k < events.size(); ++k) {
        EXPECT_EQ(events[k].m_Bytes, 1024u);
        EXPECT_NEAR(events[k].m_Time - start, static_cast<double>(k + 1) * perBuffer, 1e-6) << k;
    }
    const std::vector<BYTE> captured = log.Captured();
    EXPECT_TRUE(std::equal(captured.begin(), captured.end(),
                           CAlsaTestConfig::Install().SpeechData().begin()));
    log.m_Requeue = false;
    device->Reset();
}

// The last buffer holds what was left; then the device fails once with "end of input" and will
// not start again. Looping starts the file over instead.
TEST(FileWaveDevice, CaptureEndsWithTheRestThenFailsUnlessLooping) {
    CVirtualClockScope clock;
    const size_t size = CAlsaTestConfig::Install().SpeechData().size();
    for (const bool loop : {false, true}) {
        CCallbackLog log;
        log.m_Requeue = true;
        auto device = OpenDevice(SpeechDevice(), EKorWaveDirection::In, log, {0.0, loop});
        SBuffers buffers(2, 1024);
        buffers.Queue(*device);
        device->Start();
        clock.Advance(8000); // 5.4 s of speech
        const std::vector<SEvent> events = log.Events();
        if (!loop) {
            ASSERT_GE(events.size(), 2u);
            EXPECT_EQ(events[events.size() - 2].m_Bytes, size % 1024);
            EXPECT_EQ(events.back().m_Message, WAVE_FAILED);
            EXPECT_EQ(events.back().m_pHeader, nullptr);
            EXPECT_NE(std::string(device->GetErrorText()).find("end of input"), std::string::npos);
            EXPECT_EQ(device->Start(), KORWAVE_ENDOFDATA);
        } else {
            EXPECT_EQ(events.size(), static_cast<size_t>(8.0 * 16000 / 1024));
            for (const SEvent& event : events) {
                EXPECT_EQ(event.m_Bytes, 1024u);
            }
            const std::vector<BYTE> captured = log.Captured();
            const std::vector<BYTE>& speech = CAlsaTestConfig::Install().SpeechData();
            EXPECT_TRUE(std::equal(speech.begin(), speech.begin() + 1000, captured.begin() + size));
        }
        log.m_Requeue = false;
        device->Reset();
        EXPECT_EQ(device->Close(), KORWAVE_OK);
    }
}

// Stop gives back the buffer being filled with what the device has taken in; Reset gives back
// every buffer; the header rules hold while buffers are queued.
TEST(FileWaveDevice, StopResetAndTheHeaderRules) {
    CVirtualClockScope clock;
    CCallbackLog log;
    auto device = OpenDevice(SpeechDevice(), EKorWaveDirection::In, log);
    SBuffers buffers(3, 800); // 50 ms each
    WAVEHDR loose{};
    std::vector<BYTE> tiny(1);
    loose.lpData = tiny.data();
    loose.dwBufferLength = 1;
    EXPECT_EQ(device->AddBuffer(&loose), KORWAVE_UNPREPARED);
    device->Prepare(&loose);
    EXPECT_EQ(device->AddBuffer(&loose), KORWAVE_INVALPARAM);
    buffers.Queue(*device);
    EXPECT_EQ(device->AddBuffer(&buffers.m_Headers[0]), KORWAVE_STILLPLAYING);
    EXPECT_EQ(device->Unprepare(&buffers.m_Headers[0]), KORWAVE_STILLPLAYING);
    EXPECT_EQ(device->Close(), KORWAVE_STILLPLAYING);

    device->Start();
    clock.Advance(70); // one buffer and 20 ms of the next
    ASSERT_EQ(device->Stop(), KORWAVE_OK);
    std::vector<SEvent> events = log.Events();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[1].m_Bytes, 320u) << "20 ms at 16000 bytes/s";
    EXPECT_TRUE(events[1].m_pHeader->dwFlags & WHDR_DONE);
    clock.Advance(500);
    EXPECT_EQ(log.Events().size(), 2u) << "nothing while stopped";

    ASSERT_EQ(device->Reset(), KORWAVE_OK);
    events = log.Events();
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[2].m_pHeader, &buffers.m_Headers[2]);
    EXPECT_EQ(events[2].m_Bytes, 0u);
    for (WAVEHDR& header : buffers.m_Headers) {
        EXPECT_FALSE(header.dwFlags & WHDR_INQUEUE);
        EXPECT_EQ(device->Unprepare(&header), KORWAVE_OK);
    }
    EXPECT_EQ(device->Close(), KORWAVE_OK);
}

TEST(FileWaveDevice, OpenFailuresSayWhy) {
    const std::string speech = SpeechDevice();
    struct SCase {
        std::string m_Name;
        EKorWaveDirection m_Direction;
        WAVEFORMATEX m_Format;
        int m_Error;
        const char* m_Words;
    } cases[] = {
        {"file:/nonexistent/x.wav", EKorWaveDirection::In, kSpeechFormat, KORWAVE_BADDEVICE,
         "cannot open"},
        {"file:/nonexistent/x.wav", EKorWaveDirection::Out, kSpeechFormat, KORWAVE_BADDEVICE,
         "cannot create"},
        {speech,
         EKorWaveDirection::In,
         {1, 1, 16000, 32000, 2, 16, 0},
         KORWAVE_BADFORMAT,
         "asked for 16000 Hz"},
        {speech,
         EKorWaveDirection::In,
         {7, 1, 8000, 8000, 1, 8, 0},
         KORWAVE_BADFORMAT,
         "only 8- or 16-bit linear PCM"},
        {speech,
         EKorWaveDirection::In,
         {1, 1, 8000, 24000, 3, 24, 0},
         KORWAVE_BADFORMAT,
         "only 8- or 16-bit linear PCM"},
    };
    for (const SCase& c : cases) {
        int error = 0;
        CBelString text;
        auto device = CKorWaveDevice::Open(c.m_Name.c_str(), c.m_Direction, c.m_Format, nullptr,
                                           nullptr, &error, &text);
        EXPECT_FALSE(device) << c.m_Name;
        EXPECT_EQ(error, c.m_Error) << c.m_Name;
        EXPECT_NE(std::string(text).find(c.m_Words), std::string::npos) << text.c_str();
    }
}

// Playback writes each buffer when its time is up; after running dry the clock starts again
// from the next buffer, and the file holds exactly what was played.
TEST(FileWaveDevice, PlaybackKeepsThePaceAndRestartsAfterRunningDry) {
    CVirtualClockScope clock;
    const std::string path = ::testing::TempDir() + "zor-played.wav";
    CCallbackLog log;
    auto device = OpenDevice("file:" + path, EKorWaveDirection::Out, log, {0.01, false});
    SBuffers buffers(3, 1600);
    for (int i = 0; i < 3; ++i) {
        std::fill(buffers.m_Data[i].begin(), buffers.m_Data[i].end(), static_cast<BYTE>(i + 1));
    }
    device->Start();
    const double start = BelDoubleTime();
    device->Prepare(&buffers.m_Headers[0]);
    device->AddBuffer(&buffers.m_Headers[0]);
    device->Prepare(&buffers.m_Headers[1]);
    device->AddBuffer(&buffers.m_Headers[1]);
    clock.Advance(300); // dry after 2 x 50 ms / 1.01
    device->Prepare(&buffers.m_Headers[2]);
    device->AddBuffer(&buffers.m_Headers[2]);
    clock.Advance(300);
    const std::vector<SEvent> events = log.Events();
    ASSERT_EQ(events.size(), 3u);
    const double buffer = 0.1 / 1.01;
    EXPECT_NEAR(events[0].m_Time - start, buffer, 1e-6);
    EXPECT_NEAR(events[1].m_Time - start, 2 * buffer, 1e-6);
    EXPECT_NEAR(events[2].m_Time - start, 0.3 + buffer, 1e-6);
    for (const SEvent& event : events) {
        EXPECT_EQ(event.m_Message, WOM_DONE);
    }
    ASSERT_EQ(device->Close(), KORWAVE_OK);
    CWavReader reader;
    ASSERT_TRUE(reader.Open(path));
    std::vector<BYTE> written(reader.DataSize());
    written.resize(reader.Read(written.data(), reader.DataSize()));
    ASSERT_EQ(written.size(), 4800u);
    EXPECT_EQ(written[0], 1);
    EXPECT_EQ(written[1600], 2);
    EXPECT_EQ(written[4799], 3);
    std::remove(path.c_str());
}

// --- ALSA, through the test configuration ----------------------------------------------------

TEST(AlsaWaveDevice, OpenFailuresCarryAlsasWords) {
    CAlsaTestConfig::Install();
    struct SCase {
        const char* m_Name;
        WAVEFORMATEX m_Format;
        int m_Error;
        const char* m_Words;
    } cases[] = {
        {"zor_nosuch", kSpeechFormat, KORWAVE_BADDEVICE, "Unknown PCM zor_nosuch"},
        {"zor_speech",
         {1, 3, 8000, 48000, 6, 16, 0},
         KORWAVE_BADFORMAT,
         "3 channel(s) are not available"},
        {"zor_speech",
         {1, 1, 96000, 192000, 2, 16, 0},
         KORWAVE_BADFORMAT,
         "96000 Hz is not available"},
    };
    for (const SCase& c : cases) {
        int error = 0;
        CBelString text;
        auto device = CKorWaveDevice::Open(c.m_Name, EKorWaveDirection::In, c.m_Format, nullptr,
                                           nullptr, &error, &text);
        EXPECT_FALSE(device);
        EXPECT_EQ(error, c.m_Error) << c.m_Name;
        EXPECT_NE(std::string(text).find(c.m_Words), std::string::npos) << text.c_str();
    }
}

// alsa-lib's own file plugin stands in for the card: the bytes come through ALSA unchanged.
TEST(AlsaWaveDevice, CaptureCarriesTheBytesThroughAlsa) {
    const CAlsaTestConfig& config = CAlsaTestConfig::Install();
    CCallbackLog log;
    log.m_Requeue = true;
    auto capture = OpenDevice("zor_file_in", EKorWaveDirection::In, log);
    SBuffers buffers(4, 1000);
    buffers.Queue(*capture);
    ASSERT_EQ(capture->Start(), KORWAVE_OK);
    ASSERT_TRUE(log.WaitFor(20, 10.0));
    log.m_Requeue = false;
    capture->Reset();
    const std::vector<BYTE> captured = log.Captured();
    ASSERT_GE(captured.size(), 20000u);
    EXPECT_TRUE(
        std::equal(captured.begin(), captured.begin() + 20000, config.SpeechData().begin()));
    EXPECT_EQ(capture->Close(), KORWAVE_OK);
}

// A card that goes away fails once with ALSA's words, gives every buffer back on Reset and
// closes; it cannot be started again.
TEST(AlsaWaveDevice, AVanishingCardFailsCleanly) {
    CAlsaTestConfig::Install();
    CCallbackLog log;
    auto vanishing = OpenDevice("zor_vanishing", EKorWaveDirection::In, log);
    SBuffers held(2, 16000); // one second each: still queued when the card goes
    held.Queue(*vanishing);
    vanishing->Start();
    ASSERT_TRUE(log.WaitFor(1, 10.0));
    EXPECT_EQ(log.Events()[0].m_Message, WAVE_FAILED);
    EXPECT_NE(std::string(vanishing->GetErrorText()).find("capture stopped"), std::string::npos)
        << vanishing->GetErrorText().c_str();
    EXPECT_EQ(vanishing->Close(), KORWAVE_STILLPLAYING);
    EXPECT_EQ(vanishing->Reset(), KORWAVE_OK);
    EXPECT_EQ(log.Events().size(), 3u);
    EXPECT_EQ(vanishing->Start(), KORWAVE_FAILED);
    EXPECT_EQ(vanishing->Close(), KORWAVE_OK);
}

TEST(WaveDevice, FullDuplexNeedsBothSidesOfOneDevice) {
    CAlsaTestConfig::Install();
    EXPECT_TRUE(CKorWaveDevice::IsFullDuplex(""));
    EXPECT_TRUE(CKorWaveDevice::IsFullDuplex("zor_speech"));
    EXPECT_FALSE(CKorWaveDevice::IsFullDuplex("zor_nosuch"));
    EXPECT_FALSE(CKorWaveDevice::IsFullDuplex(SpeechDevice().c_str()));
}

} // namespace
