#include "audio/AudioAnalyzer.h"

#include "audio/sound/LevelAnalyzer.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/PropertyMap.h"
#include "framework/kor/Packet.h"

#include <algorithm>

namespace {

constexpr const char* kPath = "audio";
constexpr WORD kPcmTag = 1;
constexpr double kPeakDecay = 0.99; // per measured packet

} // namespace

CZorAudioAnalyzer::CZorAudioAnalyzer(const char* name)
    : CKorUnbufferedModule(name && *name ? name : "AudioAnalyzer") {
    m_LevelMonitor.Start();
    m_GranuleMonitor.Start();
}

void CZorAudioAnalyzer::SetSampleGranularity(int samples) {
    if (samples < 1) {
        BelDisplayAssert("samples >= 1", __FILE__, __LINE__);
        return;
    }
    m_Granularity = samples;
}

double CZorAudioAnalyzer::Level() const {
    return ZorMeterLevel(m_LevelMonitor.Rate(), m_GranuleMonitor.Rate(), m_Peak);
}

void CZorAudioAnalyzer::ProcessPacket() {
    if (m_pPacket->GetKind() != CKorPacket::KIND_AUDIO) {
        return;
    }
    const auto* audio = static_cast<const CKorAudioPacket*>(m_pPacket);
    const WAVEFORMATEX* format = audio->GetAudioFormat();
    if (!format || format->wFormatTag != kPcmTag) {
        return;
    }
    m_Peak *= kPeakDecay;
    const std::size_t n = audio->GetDataSize() / 2;
    if (format->wBitsPerSample != 16 || n == 0) {
        return;
    }
    const auto granule = static_cast<std::size_t>(m_Granularity);
    for (std::size_t first = 0; first < n; first += granule) {
        const int level =
            ZorGranuleLevel(audio->GetData() + 2 * first, std::min(granule, n - first));
        m_Peak = std::max(m_Peak, static_cast<double>(level));
        m_LevelMonitor.AddSample(level);
        m_GranuleMonitor.AddSample(1);
    }
}

// ---------------------------------------------------------------------------------------------

CAudioAnalyzerCom::CAudioAnalyzerCom() : CKor2PinComponent("AudioAnalyzer") {
    m_pModule = static_cast<CZorAudioAnalyzer*>(CreateContext(kPath));
}

CKorModule* CAudioAnalyzerCom::CreateContext(const char* path) {
    return OnePathContext(path, kPath, [] { return new CZorAudioAnalyzer; });
}

const CJokPropertyMap<CAudioAnalyzerCom>& CAudioAnalyzerCom::PropertyMap() {
    static const CJokPropertyMap<CAudioAnalyzerCom> map = [] {
        CJokPropertyMap<CAudioAnalyzerCom> m;
        m.AddNotifiedDouble("level", &CAudioAnalyzerCom::LevelPropertyHandler,
                            "&CAudioAnalyzerCom::LevelPropertyHandler", 1);
        return m;
    }();
    return map;
}

CJokGenericData* CAudioAnalyzerCom::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKor2PinComponent::GetProperty(name, flags);
}

int CAudioAnalyzerCom::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKor2PinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CAudioAnalyzerCom::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKor2PinComponent::GetPropertyEnumerator());
}

int CAudioAnalyzerCom::LevelPropertyHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = m_pModule->Level();
    return 1;
}
