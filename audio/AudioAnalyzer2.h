// The audio analyzer: measures the level of every 16-bit PCM packet on the "audio" path, keeps
// the average of the last half second ("level"), can raise quiet audio towards a target peak
// ("maximizeTo", "suppressBelow"), and publishes each measurement to its observers: the sound
// detectors that "GetDetector" makes (Detector.h).
//
//   local analyzer = zor.CreateAudioAnalyzer2{}
//   local detector = analyzer.GetDetector{ detectionWindow = 0.3, baselineWindow = 20 }
//   detector.multiplierThreshold = 4
//   detector.onDetect = function(detected, time) print(detected, time) end
//   zor.connect("audio", source, analyzer, sink)
//
// Invariants:
//  - Every packet passes on; only 16-bit PCM (format tag 1) is measured, and only raising changes
//    samples. Other audio passes untouched with one diagnostic line per format; other kinds pass
//    silently. An empty packet measures nothing and notifies nobody.
//  - A level sample is stamped with the packet's real time stamp, or with the clock's time when
//    that is 0 or less; observers are told synchronously, inside the packet step, before the
//    packet goes on.
//  - The level and gain arithmetic is CZorLevelAnalyzer's (audio/sound/LevelAnalyzer.h).
#pragma once

#include "audio/sound/LevelAnalyzer.h"
#include "entry/ZorExport.h"
#include "framework/bel/BelSubject.h"
#include "framework/kor/PinComponent.h"
#include "framework/kor/UnbufferedModule.h"

class CJokCommandContext;
class CJokPropertyEnum;
template <class T> class CJokPropertyMap;

// A subject of level samples: observers read the sample being published from it.
class ZOR_EXPORT CZorLevelSubject : public CBelSubject {
public:
    static constexpr int kLevelEvent = 1;

    // Tells every observer, which reads the sample through LastSample.
    void Publish(const SZorLevelSample& sample);
    const SZorLevelSample& LastSample() const { return m_LastSample; }

private:
    SZorLevelSample m_LastSample{0.0, 0.0};
};

class ZOR_EXPORT CZorAudioAnalyzer2 : public CKorUnbufferedModule {
public:
    // Borrows subject, which outlives the module (the component is both).
    explicit CZorAudioAnalyzer2(CZorLevelSubject* subject);

    CZorLevelAnalyzer& Analyzer() { return m_Analyzer; }
    const CZorLevelAnalyzer& Analyzer() const { return m_Analyzer; }

protected:
    void ProcessPacket() override;

private:
    CZorLevelSubject* m_pSubject;
    CZorLevelAnalyzer m_Analyzer;
    long m_ReportedFormat = -1; // format sequence number last reported as not measurable
};

class CAudioAnalyzer2Com final : public CKor2PinComponent, public CZorLevelSubject {
public:
    CAudioAnalyzer2Com();

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;
    // The analyzer module for "audio" (made on first request); nullptr for any other path.
    CKorModule* CreateContext(const char* path) override;

    int LevelPropertyHandler(double* value, int set);
    int MaximizeToHandler(double* value, int set);
    int SuppressBelowHandler(double* value, int set);
    int GetDetector(CJokCommandContext* context);

    // The analyzer module (borrowed; the component's bus owns it).
    CZorAudioAnalyzer2* Module() { return m_pModule; }

private:
    static const CJokPropertyMap<CAudioAnalyzer2Com>& PropertyMap();

    CZorAudioAnalyzer2* m_pModule = nullptr;
};
