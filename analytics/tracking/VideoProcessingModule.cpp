#include "analytics/tracking/VideoProcessingModule.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/Command.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/GenericData.h"
#include "framework/jok/PropertyMap.h"
#include "framework/kor/Packet.h"
#include "video/VideoFrame.h"

#include <cmath>
#include <vector>

namespace {

constexpr const char* kPath = "video";
constexpr const char* kScopes[] = {"none", "local", "global"};

// The sectors' change levels as a new vector value.
CJokGdVector* LevelsVector(const CZorSectorGrid& grid) {
    std::vector<double> levels(static_cast<size_t>(grid.SectorCount()));
    for (int i = 0; i < grid.SectorCount(); ++i) {
        levels[static_cast<size_t>(i)] = grid.Level(i);
    }
    return CJokGdVector::AllocateNumbers(levels.data(), grid.SectorCount());
}

} // namespace

CZorVideoProcessingModule::CZorVideoProcessingModule(const char* name)
    : CKorUnbufferedModule(name) {}

void CZorVideoProcessingModule::ProcessPacket() {
    if (m_pPacket->GetKind() != CKorPacket::KIND_VIDEO) {
        return;
    }
    auto* frame = static_cast<CKorVideoPacket*>(m_pPacket);
    SBeluiBitmap luma;
    if (!CZorVideoFrame::GetPlanes(frame, &luma, nullptr) || !m_Grid.Process(luma)) {
        return;
    }
    frame->SetAttribute(kChangedAttribute, m_Grid.ChangedCount());
    frame->SetAttribute(kHighestAttribute, m_Grid.HighestLevel());
    frame->SetAttribute(kScopeAttribute, m_Grid.Scope());
    if (m_Grid.ChangedCount() > 0 && m_OnChange) {
        // The packet stays current while the script runs; the script sees it unchanged after.
        m_OnChange(frame->GetTimeStamp());
    }
}

// ---------------------------------------------------------------------------------------------

CZorVideoProcessingModuleCom::CZorVideoProcessingModuleCom()
    : CKor2PinComponent("GenericVideoProcessingModule") {
    m_pModule = static_cast<CZorVideoProcessingModule*>(CreateContext(kPath));
    m_pModule->DisableProcessing(1);
    m_pModule->m_OnChange = [this](long time) { SignalChange(time); };
}

CZorVideoProcessingModuleCom::~CZorVideoProcessingModuleCom() {
    m_pModule->m_OnChange = nullptr;
    if (m_pIOnChange) {
        m_pIOnChange->Release();
    }
}

CKorModule* CZorVideoProcessingModuleCom::CreateContext(const char* path) {
    return OnePathContext(path, kPath, [] { return new CZorVideoProcessingModule; });
}

void CZorVideoProcessingModuleCom::SignalChange(long time) {
    if (!m_pIOnChange) {
        return;
    }
    const CZorSectorGrid& grid = m_pModule->Grid();
    CJokCommandContext context;
    context.AddParam(nullptr, static_cast<double>(time));
    context.AddParam(nullptr, static_cast<double>(grid.ChangedCount()));
    context.AddParam(nullptr, kScopes[grid.Scope()]);
    context.AddParamNoRef(nullptr, LevelsVector(grid));
    CallScript(m_pIOnChange, context);
}

template <class T>
int CZorVideoProcessingModuleCom::Setting(const char* name, T SZorSectorSettings::*field,
                                          double* value, int set) {
    CZorSectorGrid& grid = m_pModule->Grid();
    if (!set) {
        *value = static_cast<double>(grid.Settings().*field);
        return 1;
    }
    SZorSectorSettings settings = grid.Settings();
    const bool whole = std::floor(*value) == *value;
    if (!std::isfinite(*value) || (std::is_integral_v<T> && !whole) || std::fabs(*value) > 1e9) {
        CBelString text;
        text.Format("GenericVideoProcessingModule.%s: %s", name,
                    std::is_integral_v<T> ? "a whole number" : "a finite number");
        BelReportScriptError(text);
        return 0;
    }
    settings.*field = static_cast<T>(*value);
    if (!grid.Configure(settings)) {
        CBelString text;
        text.Format("GenericVideoProcessingModule.%s: %s", name, settings.Problem());
        BelReportScriptError(text);
        return 0;
    }
    return 1;
}

int CZorVideoProcessingModuleCom::ColumnsHandler(double* v, int set) {
    return Setting("columns", &SZorSectorSettings::m_Columns, v, set);
}
int CZorVideoProcessingModuleCom::RowsHandler(double* v, int set) {
    return Setting("rows", &SZorSectorSettings::m_Rows, v, set);
}
int CZorVideoProcessingModuleCom::StepHandler(double* v, int set) {
    return Setting("step", &SZorSectorSettings::m_Step, v, set);
}
int CZorVideoProcessingModuleCom::PixelThresholdHandler(double* v, int set) {
    return Setting("pixelThreshold", &SZorSectorSettings::m_PixelThreshold, v, set);
}
int CZorVideoProcessingModuleCom::ShortChangeThresholdHandler(double* v, int set) {
    return Setting("shortChangeThreshold", &SZorSectorSettings::m_ShortChangeThreshold, v, set);
}
int CZorVideoProcessingModuleCom::MinGroupLengthHandler(double* v, int set) {
    return Setting("minGroupLength", &SZorSectorSettings::m_MinGroupLength, v, set);
}
int CZorVideoProcessingModuleCom::LowerCutThresholdHandler(double* v, int set) {
    return Setting("lowerCutThreshold", &SZorSectorSettings::m_LowerCutThreshold, v, set);
}
int CZorVideoProcessingModuleCom::HigherCutThresholdHandler(double* v, int set) {
    return Setting("higherCutThreshold", &SZorSectorSettings::m_HigherCutThreshold, v, set);
}
int CZorVideoProcessingModuleCom::WarmUpHandler(double* v, int set) {
    return Setting("warmUp", &SZorSectorSettings::m_WarmUp, v, set);
}
int CZorVideoProcessingModuleCom::ReferenceFramesHandler(double* v, int set) {
    return Setting("referenceFrames", &SZorSectorSettings::m_ReferenceFrames, v, set);
}
int CZorVideoProcessingModuleCom::GlobalShareHandler(double* v, int set) {
    return Setting("globalShare", &SZorSectorSettings::m_GlobalShare, v, set);
}

int CZorVideoProcessingModuleCom::EnabledHandler(int* value, int set) {
    if (!set) {
        *value = m_pModule->IsDisabled() ? 0 : 1;
        return 1;
    }
    m_pModule->DisableProcessing(*value ? 0 : 1);
    return 1;
}

int CZorVideoProcessingModuleCom::LevelsHandler(CJokGenericData** value, int set) {
    if (set) {
        return 0;
    }
    *value = LevelsVector(m_pModule->Grid());
    return 1;
}

int CZorVideoProcessingModuleCom::ChangedHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = m_pModule->Grid().ChangedCount();
    return 1;
}

int CZorVideoProcessingModuleCom::ScopeHandler(CBelString* value, int set) {
    if (set) {
        return 0;
    }
    *value = kScopes[m_pModule->Grid().Scope()];
    return 1;
}

int CZorVideoProcessingModuleCom::FramesHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = static_cast<double>(m_pModule->Grid().FramesProcessed());
    return 1;
}

int CZorVideoProcessingModuleCom::SectorsHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = m_pModule->Grid().SectorCount();
    return 1;
}

const CJokPropertyMap<CZorVideoProcessingModuleCom>& CZorVideoProcessingModuleCom::PropertyMap() {
    using C = CZorVideoProcessingModuleCom;
    static const CJokPropertyMap<C> map = [] {
        CJokPropertyMap<C> m;
        m.AddNotifiedDouble("columns", &C::ColumnsHandler,
                            "&CZorVideoProcessingModuleCom::ColumnsHandler")
            .AddNotifiedDouble("rows", &C::RowsHandler,
                               "&CZorVideoProcessingModuleCom::RowsHandler")
            .AddNotifiedDouble("step", &C::StepHandler,
                               "&CZorVideoProcessingModuleCom::StepHandler")
            .AddNotifiedDouble("pixelThreshold", &C::PixelThresholdHandler,
                               "&CZorVideoProcessingModuleCom::PixelThresholdHandler")
            .AddNotifiedDouble("shortChangeThreshold", &C::ShortChangeThresholdHandler,
                               "&CZorVideoProcessingModuleCom::ShortChangeThresholdHandler")
            .AddNotifiedDouble("minGroupLength", &C::MinGroupLengthHandler,
                               "&CZorVideoProcessingModuleCom::MinGroupLengthHandler")
            .AddNotifiedDouble("lowerCutThreshold", &C::LowerCutThresholdHandler,
                               "&CZorVideoProcessingModuleCom::LowerCutThresholdHandler")
            .AddNotifiedDouble("higherCutThreshold", &C::HigherCutThresholdHandler,
                               "&CZorVideoProcessingModuleCom::HigherCutThresholdHandler")
            .AddNotifiedDouble("warmUp", &C::WarmUpHandler,
                               "&CZorVideoProcessingModuleCom::WarmUpHandler")
            .AddNotifiedDouble("referenceFrames", &C::ReferenceFramesHandler,
                               "&CZorVideoProcessingModuleCom::ReferenceFramesHandler")
            .AddNotifiedDouble("globalShare", &C::GlobalShareHandler,
                               "&CZorVideoProcessingModuleCom::GlobalShareHandler")
            .AddNotifiedBoolean("enabled", &C::EnabledHandler,
                                "&CZorVideoProcessingModuleCom::EnabledHandler")
            .AddInterface("onChange", &C::m_pIOnChange, IID_IJokCommand, "IJokCommand",
                          "&CZorVideoProcessingModuleCom::m_pIOnChange")
            .AddNotifiedGenericData("levels", &C::LevelsHandler,
                                    "&CZorVideoProcessingModuleCom::LevelsHandler", 1)
            .AddNotifiedDouble("changed", &C::ChangedHandler,
                               "&CZorVideoProcessingModuleCom::ChangedHandler", 1)
            .AddNotifiedString("scope", &C::ScopeHandler,
                               "&CZorVideoProcessingModuleCom::ScopeHandler", 1)
            .AddNotifiedDouble("frames", &C::FramesHandler,
                               "&CZorVideoProcessingModuleCom::FramesHandler", 1)
            .AddNotifiedDouble("sectors", &C::SectorsHandler,
                               "&CZorVideoProcessingModuleCom::SectorsHandler", 1);
        return m;
    }();
    return map;
}

CJokGenericData* CZorVideoProcessingModuleCom::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKor2PinComponent::GetProperty(name, flags);
}

int CZorVideoProcessingModuleCom::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKor2PinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CZorVideoProcessingModuleCom::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKor2PinComponent::GetPropertyEnumerator());
}
