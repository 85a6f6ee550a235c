// The older audio meter: a normalised "level" of the 16-bit PCM on the "audio" path, from the
// high bytes of the samples, for displays that expect its 0..128 scale.
//
//   local meter = zor.CreateAudioAnalyzer{}
//   zor.connect("audio", source, meter, sink)
//   print(meter.level)
//
// Invariants:
//  - Every packet passes on unchanged; only audio with format tag 1 and 16 bits per sample is
//    measured, and packets of fewer than 2 bytes are not (the rest passes
//    silently: the meter only ever reports a level).
//  - The samples are cut into granules (64 samples unless set otherwise); each granule's level
//    (ZorGranuleLevel) goes to one rate monitor and a count of one to another; "level" is their
//    ratio over the monitors' recent span (250 ms of the framework clock), scaled up to a peak
//    of 80 for quiet streams (ZorMeterLevel). The peak follows the granule levels and decays by
//    1% per measured packet.
#pragma once

#include "entry/ZorExport.h"
#include "framework/kor/PinComponent.h"
#include "framework/kor/RateMonitor.h"
#include "framework/kor/UnbufferedModule.h"

class CJokPropertyEnum;
template <class T> class CJokPropertyMap;

class ZOR_EXPORT CZorAudioAnalyzer : public CKorUnbufferedModule {
public:
    static constexpr int kDefaultGranularity = 64;

    // An empty name gives the module the name "AudioAnalyzer".
    explicit CZorAudioAnalyzer(const char* name = "");

    // Samples per granule; a value below 1 is a programming fault and keeps the old one.
    void SetSampleGranularity(int samples);
    double Level() const;
    double Peak() const { return m_Peak; }

protected:
    void ProcessPacket() override;

private:
    int m_Granularity = kDefaultGranularity;
    double m_Peak = 0.0;
    CKorRateMonitor m_LevelMonitor{250, 0};   // sums the granule levels
    CKorRateMonitor m_GranuleMonitor{250, 0}; // counts the granules
};

class CAudioAnalyzerCom final : public CKor2PinComponent {
public:
    CAudioAnalyzerCom();

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;
    // The meter module for "audio" (made on first request); nullptr for any other path.
    CKorModule* CreateContext(const char* path) override;

    int LevelPropertyHandler(double* value, int set);

    // The meter module (borrowed; the component's bus owns it).
    CZorAudioAnalyzer* Module() { return m_pModule; }

private:
    static const CJokPropertyMap<CAudioAnalyzerCom>& PropertyMap();

    CZorAudioAnalyzer* m_pModule = nullptr;
};
