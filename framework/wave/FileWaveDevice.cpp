#include "framework/wave/FileWaveDevice.h"

#include "framework/bel/BelClock.h"

#include <algorithm>
#include <cmath>

std::unique_ptr<CKorWaveDevice>
CKorFileWaveDevice::Open(const char* path, EKorWaveDirection direction, const WAVEFORMATEX& format,
                         KorWaveCallback callback, void* instance, int* error,
                         CBelString* errorText, const SKorWaveOptions& options) {
    std::unique_ptr<CKorFileWaveDevice> device(
        new CKorFileWaveDevice(path, direction, format, callback, instance, options));
    if (direction == EKorWaveDirection::Out) {
        if (!device->m_Writer.Open(path, format)) {
            *error = KORWAVE_BADDEVICE;
            *errorText = device->m_Writer.Error();
            return nullptr;
        }
        return device;
    }
    CWavReader& reader = device->m_Reader;
    if (!reader.Open(path)) {
        *error = KORWAVE_BADDEVICE;
        *errorText = reader.Error();
        return nullptr;
    }
    const WAVEFORMATEX& file = reader.Format();
    if (file.wFormatTag != format.wFormatTag || file.nChannels != format.nChannels ||
        file.nSamplesPerSec != format.nSamplesPerSec ||
        file.wBitsPerSample != format.wBitsPerSample) {
        *error = KORWAVE_BADFORMAT;
        errorText->Format("%s holds tag %u, %u Hz, %u channel(s), %u bits; asked for %u Hz, "
                          "%u channel(s), %u bits",
                          path, file.wFormatTag, file.nSamplesPerSec, file.nChannels,
                          file.wBitsPerSample, format.nSamplesPerSec, format.nChannels,
                          format.wBitsPerSample);
        return nullptr;
    }
    return device;
}

CKorFileWaveDevice::CKorFileWaveDevice(const char* path, EKorWaveDirection direction,
                                       const WAVEFORMATEX& format, KorWaveCallback callback,
                                       void* instance, const SKorWaveOptions& options)
    : CKorWaveDevice(direction, format, callback, instance), m_Path(path), m_Options(options) {}

CKorFileWaveDevice::~CKorFileWaveDevice() = default;

double CKorFileWaveDevice::BytesPerSecond() const {
    return static_cast<double>(GetFormat().nAvgBytesPerSec) * (1.0 + m_Options.m_RateError);
}

void CKorFileWaveDevice::BeginSegment() {
    m_SegmentStart = BelDoubleTime();
    m_SegmentBytes = 0.0;
}

void CKorFileWaveDevice::Schedule() {
    if (!m_Running || m_Queue.empty()) {
        KillAlarm();
        return;
    }
    const double bytes = m_SegmentBytes + m_Queue.front()->dwBufferLength;
    SetAlarmAt(m_SegmentStart + bytes / BytesPerSecond());
}

int CKorFileWaveDevice::AddBuffer(WAVEHDR* header) {
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        if (const int error = Enqueue(header)) {
            return error;
        }
    }
    const bool wasEmpty = m_Queue.empty();
    m_Queue.push_back(header);
    if (wasEmpty && m_Running) {
        // Playback that ran dry starts its clock again; capture's clock never stopped.
        if (GetDirection() == EKorWaveDirection::Out) {
            BeginSegment();
        }
        Schedule();
    }
    return KORWAVE_OK;
}

int CKorFileWaveDevice::Start() {
    if (m_Failed) {
        std::lock_guard<std::mutex> lock(m_Mutex);
        return Fail(m_InputEnded ? KORWAVE_ENDOFDATA : KORWAVE_FAILED,
                    m_Path + ": " + (m_InputEnded ? "end of input" : "the device has failed"));
    }
    if (!m_Running) {
        m_Running = true;
        BeginSegment();
        Schedule();
    }
    return KORWAVE_OK;
}

int CKorFileWaveDevice::Stop() {
    KillAlarm();
    if (!m_Running) {
        return KORWAVE_OK;
    }
    m_Running = false;
    if (GetDirection() == EKorWaveDirection::In && !m_Queue.empty()) {
        // What the device has taken in so far of the buffer being filled.
        WAVEHDR* head = m_Queue.front();
        const double due = (BelDoubleTime() - m_SegmentStart) * BytesPerSecond() - m_SegmentBytes;
        const DWORD align = GetFormat().nBlockAlign;
        auto bytes = static_cast<DWORD>(
            std::clamp(std::floor(due), 0.0, static_cast<double>(head->dwBufferLength)));
        bytes -= bytes % align;
        if (bytes > 0) {
            head->dwBytesRecorded = ReadInput(head->lpData, bytes);
            GiveBack(WIM_DATA);
        }
    }
    return KORWAVE_OK;
}

int CKorFileWaveDevice::Reset() {
    Stop();
    // Buffers that callbacks queue again stay queued.
    for (size_t n = m_Queue.size(); n > 0 && !m_Queue.empty(); --n) {
        GiveBack(GetDirection() == EKorWaveDirection::In ? WIM_DATA : WOM_DONE);
    }
    return KORWAVE_OK;
}

int CKorFileWaveDevice::Close() {
    std::lock_guard<std::mutex> lock(m_Mutex);
    if (!m_Queue.empty()) {
        return Fail(KORWAVE_STILLPLAYING, "buffers are still queued");
    }
    KillAlarm();
    m_Reader.Close();
    if (m_Writer.IsOpen() && !m_Writer.Close()) {
        return Fail(KORWAVE_FAILED, m_Path + ": " + m_Writer.Error());
    }
    return KORWAVE_OK;
}

DWORD CKorFileWaveDevice::ReadInput(BYTE* data, DWORD size) {
    DWORD got = 0;
    while (got < size) {
        const unsigned long n = m_Reader.Read(data + got, size - got);
        got += static_cast<DWORD>(n);
        if (n > 0 || got == size) {
            continue;
        }
        // The end of the data: start again, or end (an empty file cannot loop).
        if (!m_Options.m_Loop || m_Reader.DataSize() == 0 || !m_Reader.Open(m_Path)) {
            m_InputEnded = true;
            break;
        }
    }
    return got;
}

void CKorFileWaveDevice::GiveBack(unsigned message) {
    WAVEHDR* head = m_Queue.front();
    m_Queue.pop_front();
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        MarkDone(head);
    }
    CallBack(message, head);
}

void CKorFileWaveDevice::TimeOut(long) {
    if (!m_Running || m_Queue.empty()) {
        return;
    }
    WAVEHDR* head = m_Queue.front();
    m_SegmentBytes += head->dwBufferLength;
    if (GetDirection() == EKorWaveDirection::In) {
        head->dwBytesRecorded = ReadInput(head->lpData, head->dwBufferLength);
        GiveBack(WIM_DATA);
        if (m_InputEnded) {
            m_Running = false;
            m_Failed = true;
            {
                std::lock_guard<std::mutex> lock(m_Mutex);
                Fail(KORWAVE_ENDOFDATA, m_Path + ": end of input");
            }
            CallBack(WAVE_FAILED, nullptr);
            return;
        }
    } else {
        if (!m_Writer.Write(head->lpData, head->dwBufferLength)) {
            m_Running = false;
            m_Failed = true;
            {
                std::lock_guard<std::mutex> lock(m_Mutex);
                Fail(KORWAVE_FAILED, m_Path + ": " + m_Writer.Error());
            }
            CallBack(WAVE_FAILED, nullptr);
            return;
        }
        GiveBack(WOM_DONE);
    }
    Schedule();
}
