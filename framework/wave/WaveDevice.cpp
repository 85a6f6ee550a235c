#include "framework/wave/WaveDevice.h"

#include "framework/wave/AlsaWaveDevice.h"
#include "framework/wave/FileWaveDevice.h"

#include <cstring>

namespace {

constexpr const char* kFilePrefix = "file:";
constexpr WORD kPcmTag = 1;

// The formats every backend takes: linear PCM of 8 or 16 bits, with consistent sizes.
bool CheckFormat(const WAVEFORMATEX& format, CBelString* text) {
    if (format.wFormatTag != kPcmTag ||
        (format.wBitsPerSample != 8 && format.wBitsPerSample != 16) || format.nChannels == 0 ||
        format.nSamplesPerSec == 0 ||
        format.nBlockAlign != format.nChannels * format.wBitsPerSample / 8) {
        text->Format("tag %u, %u channel(s), %u bits, %u Hz: only 8- or 16-bit linear PCM is "
                     "supported",
                     format.wFormatTag, format.nChannels, format.wBitsPerSample,
                     format.nSamplesPerSec);
        return false;
    }
    return true;
}

} // namespace

std::unique_ptr<CKorWaveDevice> CKorWaveDevice::Open(const char* name, EKorWaveDirection direction,
                                                     const WAVEFORMATEX& format,
                                                     KorWaveCallback callback, void* instance,
                                                     int* error, CBelString* errorText,
                                                     const SKorWaveOptions& options) {
    if (!CheckFormat(format, errorText)) {
        *error = KORWAVE_BADFORMAT;
        return nullptr;
    }
    const char* device = name && *name ? name : "default";
    if (std::strncmp(device, kFilePrefix, std::strlen(kFilePrefix)) == 0) {
        return CKorFileWaveDevice::Open(device + std::strlen(kFilePrefix), direction, format,
                                        callback, instance, error, errorText, options);
    }
    return CKorAlsaWaveDevice::Open(device, direction, format, callback, instance, error,
                                    errorText);
}

bool CKorWaveDevice::IsFullDuplex(const char* name) {
    const char* device = name && *name ? name : "default";
    if (std::strncmp(device, kFilePrefix, std::strlen(kFilePrefix)) == 0) {
        return false;
    }
    return CKorAlsaWaveDevice::IsFullDuplex(device);
}

CKorWaveDevice::CKorWaveDevice(EKorWaveDirection direction, const WAVEFORMATEX& format,
                               KorWaveCallback callback, void* instance)
    : m_Direction(direction), m_Format(format), m_Callback(callback), m_pInstance(instance) {}

CKorWaveDevice::~CKorWaveDevice() = default;

int CKorWaveDevice::Prepare(WAVEHDR* header) {
    std::lock_guard<std::mutex> lock(m_Mutex);
    if (header->dwFlags & WHDR_INQUEUE) {
        return Fail(KORWAVE_STILLPLAYING, "the buffer is still queued");
    }
    header->dwFlags = WHDR_PREPARED;
    return KORWAVE_OK;
}

int CKorWaveDevice::Unprepare(WAVEHDR* header) {
    std::lock_guard<std::mutex> lock(m_Mutex);
    if (header->dwFlags & WHDR_INQUEUE) {
        return Fail(KORWAVE_STILLPLAYING, "the buffer is still queued");
    }
    header->dwFlags &= ~WHDR_PREPARED;
    return KORWAVE_OK;
}

CBelString CKorWaveDevice::GetErrorText() const {
    std::lock_guard<std::mutex> lock(m_Mutex);
    return m_ErrorText;
}

int CKorWaveDevice::Fail(int code, const CBelString& text) {
    m_ErrorText = text;
    return code;
}

int CKorWaveDevice::Enqueue(WAVEHDR* header) {
    if (!(header->dwFlags & WHDR_PREPARED)) {
        return Fail(KORWAVE_UNPREPARED, "the buffer is not prepared");
    }
    if (header->dwFlags & WHDR_INQUEUE) {
        return Fail(KORWAVE_STILLPLAYING, "the buffer is already queued");
    }
    if (!header->lpData || header->dwBufferLength < m_Format.nBlockAlign) {
        return Fail(KORWAVE_INVALPARAM, "the buffer has no room for one sample frame");
    }
    header->dwFlags = (header->dwFlags & ~WHDR_DONE) | WHDR_INQUEUE;
    header->dwBytesRecorded = 0;
    return KORWAVE_OK;
}

void CKorWaveDevice::MarkDone(WAVEHDR* header) {
    header->dwFlags = (header->dwFlags & ~WHDR_INQUEUE) | WHDR_DONE;
}

void CKorWaveDevice::CallBack(unsigned message, WAVEHDR* header) {
    if (m_Callback) {
        m_Callback(this, message, m_pInstance, header);
    }
}
