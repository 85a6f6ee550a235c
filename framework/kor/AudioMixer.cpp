#include "framework/kor/AudioMixer.h"

#include <algorithm>

int CKorAudioMixer::Open(unsigned) {
    // No sound-device backend has registered a mixer yet.
    m_Open = false;
    return 0;
}

int CKorAudioMixer::SetVolume(double volume) {
    if (!m_Open) {
        return 0;
    }
    m_Volume = std::clamp(volume, 0.0, 1.0);
    return 1;
}

int CKorAudioMixer::Mute(int mute) {
    if (!m_Open) {
        return 0;
    }
    m_Muted = mute != 0;
    return 1;
}

void CKorAudioMixer::ReleaseRef() {
    if (--m_RefCount == 0) {
        delete this;
    }
}
