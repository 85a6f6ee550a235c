#include "audio/Detector.h"

#include "audio/AudioAnalyzer2.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/PropertyMap.h"

CDetector::CDetector(CZorLevelSubject* subject, double detectionWindow, double baselineWindow)
    : CJokComponent("Detector"), CZorSoundDetector(detectionWindow, baselineWindow) {
    subject->Attach(this);
}

CDetector::~CDetector() {
    if (m_pIOnDetect) {
        m_pIOnDetect->Release();
    }
    // CBelObserver's destructor detaches the detector from its analyzer.
}

const CJokPropertyMap<CDetector>& CDetector::PropertyMap() {
    static const CJokPropertyMap<CDetector> map = [] {
        CJokPropertyMap<CDetector> m;
        m.AddDouble("debounce", &CDetector::m_Debounce, "&CDetector::m_Debounce")
            .AddDouble("detectSeparation", &CDetector::m_DetectSeparation,
                       "&CDetector::m_DetectSeparation")
            .AddNotifiedDouble("threshold", &CDetector::ThresholdHandler,
                               "&CDetector::ThresholdHandler")
            .AddNotifiedDouble("multiplierThreshold", &CDetector::MultiplierThresholdHandler,
                               "&CDetector::MultiplierThresholdHandler")
            .AddDouble("baselineSearchPeriod", &CDetector::m_BaselineSearchPeriod,
                       "&CDetector::m_BaselineSearchPeriod")
            .AddDouble("peakValue", &CDetector::m_PeakValue, "&CDetector::m_PeakValue")
            .AddNotifiedDouble("detectionValue", &CDetector::DetectionValueHandler,
                               "&CDetector::DetectionValueHandler", 1)
            .AddNotifiedDouble("baselineValue", &CDetector::BaselineValueHandler,
                               "&CDetector::BaselineValueHandler", 1)
            .AddInterface("onDetect", &CDetector::m_pIOnDetect, IID_IJokCommand, "IJokCommand",
                          "&CDetector::m_pIOnDetect");
        return m;
    }();
    return map;
}

CJokGenericData* CDetector::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CJokComponent::GetProperty(name, flags);
}

int CDetector::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CJokComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CDetector::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CJokComponent::GetPropertyEnumerator());
}

int CDetector::ThresholdHandler(double* value, int set) {
    if (set) {
        SetThreshold(*value);
        return 1;
    }
    return GetThreshold(value) ? 1 : 0;
}

int CDetector::MultiplierThresholdHandler(double* value, int set) {
    if (set) {
        SetMultiplierThreshold(*value);
        return 1;
    }
    return GetMultiplierThreshold(value) ? 1 : 0;
}

int CDetector::DetectionValueHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = DetectionValue();
    return 1;
}

int CDetector::BaselineValueHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = BaselineValue();
    return 1;
}

void CDetector::Update(CBelSubject* subject, int event) {
    if (event != CZorLevelSubject::kLevelEvent) {
        return;
    }
    // Detectors are only ever attached to level subjects (see the constructor).
    const SZorLevelSample& sample = static_cast<CZorLevelSubject*>(subject)->LastSample();
    const EEvent result = AddLevel(sample.m_Time, sample.m_Level);
    if (result != EVENT_NONE && m_pIOnDetect) {
        CallOnDetect(result == EVENT_START, sample.m_Time);
    }
}

void CDetector::CallOnDetect(bool detected, double time) {
    CJokCommandContext context;
    context.AddBooleanParam(nullptr, detected ? 1 : 0);
    context.AddParam(nullptr, time);
    CallScript(m_pIOnDetect, context); // the detector may be gone with the context
}
