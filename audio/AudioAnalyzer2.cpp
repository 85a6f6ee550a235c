#include "audio/AudioAnalyzer2.h"

#include "audio/Detector.h"
#include "framework/bel/BelClock.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/PropertyMap.h"
#include "framework/kor/Packet.h"

#include <cmath>

namespace {

constexpr const char* kPath = "audio";
constexpr WORD kPcmTag = 1;

} // namespace

void CZorLevelSubject::Publish(const SZorLevelSample& sample) {
    m_LastSample = sample;
    Notify(kLevelEvent);
}

CZorAudioAnalyzer2::CZorAudioAnalyzer2(CZorLevelSubject* subject)
    : CKorUnbufferedModule("AudioAnalyzer2"), m_pSubject(subject) {}

void CZorAudioAnalyzer2::ProcessPacket() {
    if (m_pPacket->GetKind() != CKorPacket::KIND_AUDIO) {
        return;
    }
    auto* audio = static_cast<CKorAudioPacket*>(m_pPacket);
    const WAVEFORMATEX* format = audio->GetAudioFormat();
    if (!format || format->wFormatTag != kPcmTag || format->wBitsPerSample != 16 ||
        format->nSamplesPerSec == 0) {
        if (audio->GetFormatSeqNumber() != m_ReportedFormat) {
            m_ReportedFormat = audio->GetFormatSeqNumber();
            BelDump("CZorAudioAnalyzer2::ProcessPacket -> format tag %d, %d bits, %lu Hz is not "
                    "measured: only 16-bit PCM is.\n",
                    format ? format->wFormatTag : 0, format ? format->wBitsPerSample : 0,
                    static_cast<unsigned long>(format ? format->nSamplesPerSec : 0));
        }
        return;
    }
    double t = audio->GetRealTimeStamp();
    if (t <= 0) {
        t = BelDoubleTime();
    }
    SZorLevelSample sample{};
    if (!m_Analyzer.Process(audio->GetData(), audio->GetDataSize() / 2,
                            static_cast<double>(format->nSamplesPerSec), t, &sample)) {
        return;
    }
    m_pSubject->Publish(sample);
}

// ---------------------------------------------------------------------------------------------

CAudioAnalyzer2Com::CAudioAnalyzer2Com() : CKor2PinComponent("AudioAnalyzer2") {
    m_pModule = static_cast<CZorAudioAnalyzer2*>(CreateContext(kPath));
}

CKorModule* CAudioAnalyzer2Com::CreateContext(const char* path) {
    return OnePathContext(path, kPath, [this] { return new CZorAudioAnalyzer2(this); });
}

const CJokPropertyMap<CAudioAnalyzer2Com>& CAudioAnalyzer2Com::PropertyMap() {
    static const CJokPropertyMap<CAudioAnalyzer2Com> map = [] {
        CJokPropertyMap<CAudioAnalyzer2Com> m;
        m.AddNotifiedDouble("level", &CAudioAnalyzer2Com::LevelPropertyHandler,
                            "&CAudioAnalyzer2Com::LevelPropertyHandler", 1)
            .AddNotifiedDouble("maximizeTo", &CAudioAnalyzer2Com::MaximizeToHandler,
                               "&CAudioAnalyzer2Com::m_MaximizeTo")
            .AddNotifiedDouble("suppressBelow", &CAudioAnalyzer2Com::SuppressBelowHandler,
                               "&CAudioAnalyzer2Com::m_SuppressBelow")
            .AddFunction("GetDetector", &CAudioAnalyzer2Com::GetDetector,
                         "&CAudioAnalyzer2Com::GetDetector");
        return m;
    }();
    return map;
}

CJokGenericData* CAudioAnalyzer2Com::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKor2PinComponent::GetProperty(name, flags);
}

int CAudioAnalyzer2Com::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKor2PinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CAudioAnalyzer2Com::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKor2PinComponent::GetPropertyEnumerator());
}

int CAudioAnalyzer2Com::LevelPropertyHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = m_pModule->Analyzer().Level();
    return 1;
}

// The settings live in the module's analyzer, which reads them at every packet.
int CAudioAnalyzer2Com::MaximizeToHandler(double* value, int set) {
    double& member = m_pModule->Analyzer().m_MaximizeTo;
    if (set) {
        member = *value;
    } else {
        *value = member;
    }
    return 1;
}

int CAudioAnalyzer2Com::SuppressBelowHandler(double* value, int set) {
    double& member = m_pModule->Analyzer().m_SuppressBelow;
    if (set) {
        member = *value;
    } else {
        *value = member;
    }
    return 1;
}

int CAudioAnalyzer2Com::GetDetector(CJokCommandContext* context) {
    double detectionWindow = 0.0;
    double baselineWindow = 0.0;
    context->GetParam("detectionWindow", &detectionWindow, 0);
    context->GetParam("baselineWindow", &baselineWindow, 0);
    if (!context->CanProceed(0)) {
        return 1;
    }
    // A window that is negative or not a number would never let an entry go.
    if (!(std::isfinite(detectionWindow) && detectionWindow >= 0 && std::isfinite(baselineWindow) &&
          baselineWindow >= 0)) {
        context->OutputErrorString("AudioAnalyzer2: GetDetector: detectionWindow and "
                                   "baselineWindow must be seconds, 0 or more");
        return 1;
    }
    auto* detector = new CDetector(this, detectionWindow, baselineWindow);
    context->SetReturnValueNoRef(CJokGdObject::Allocate(detector));
    detector->ExternalRelease();
    return 1;
}
