// The sound detector: observes one audio analyzer (AudioAnalyzer2.h) and tells the script when a
// sound event starts and ends, against a baseline that adapts to the background. Made by the
// analyzer's "GetDetector"; several may observe one analyzer, each with its own windows and
// settings.
//
//   local detector = analyzer.GetDetector{ detectionWindow = 0.3, baselineWindow = 20 }
//   detector.multiplierThreshold = 4         -- 4 x the baseline above the baseline
//   detector.detectSeparation = 0.5          -- quiet this long ends an event
//   detector.onDetect = function(detected, time, self) print(detected, time) end
//
// Invariants:
//  - The decision is CZorSoundDetector's (audio/sound/SoundDetector.h); this class only binds
//    its settings to script properties and calls "onDetect".
//  - The detector is attached to the analyzer while both live: dropping the detector detaches
//    it, and a detector whose analyzer is gone simply hears nothing more. Neither keeps the
//    other alive.
//  - "onDetect" runs inside the analyzer's packet step, on the packet thread; it may drop the
//    detector (the detector outlives the call) or other detectors.
#pragma once

#include "audio/sound/SoundDetector.h"
#include "framework/bel/BelSubject.h"
#include "framework/jok/Component.h"

class CJokPropertyEnum;
class CZorLevelSubject;
struct IJokCommand;
template <class T> class CJokPropertyMap;

// The settings are the detector core's own members, bound to the properties by name.
class CDetector final : public CJokComponent, public CBelObserver, private CZorSoundDetector {
public:
    // Attaches itself to subject (borrowed). Window lengths in seconds.
    CDetector(CZorLevelSubject* subject, double detectionWindow, double baselineWindow);
    ~CDetector() override;

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;

    // A level sample from the analyzer.
    void Update(CBelSubject* subject, int event) override;

    int ThresholdHandler(double* value, int set);
    int MultiplierThresholdHandler(double* value, int set);
    int DetectionValueHandler(double* value, int set);
    int BaselineValueHandler(double* value, int set);

    const CZorSoundDetector& Core() const { return *this; }

private:
    static const CJokPropertyMap<CDetector>& PropertyMap();
    // Calls onDetect(detected, time, detector). May release the detector's last reference.
    void CallOnDetect(bool detected, double time);

    IJokCommand* m_pIOnDetect = nullptr; // one reference, or nullptr
};
