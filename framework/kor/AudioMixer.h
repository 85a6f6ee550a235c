// CKorAudioMixer: the volume control of a sound device (the capture and playback components use
// it). Open binds a device by index; volumes are 0.0 to 1.0. Reference-counted: ReleaseRef drops
// the caller's reference. The device binding is completed by the sound-device backend; until a
// device is opened every call answers failure and changes nothing.
#pragma once

class CKorAudioMixer {
public:
    CKorAudioMixer() = default;
    // Answers non-zero when the device's mixer could be opened.
    int Open(unsigned deviceIndex);
    int SetVolume(double volume);
    double GetVolume() const { return m_Volume; }
    int Mute(int mute);
    bool IsMuted() const { return m_Muted; }
    void AddRef() { ++m_RefCount; }
    void ReleaseRef();

private:
    ~CKorAudioMixer() = default;
    int m_RefCount = 1;
    bool m_Open = false;
    bool m_Muted = false;
    double m_Volume = 1.0;
};
