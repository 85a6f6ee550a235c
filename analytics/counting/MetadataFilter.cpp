#include "analytics/counting/MetadataFilter.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/Command.h"
#include "framework/jok/CommandContext.h"
#include "framework/kor/Metadata.h"
#include "framework/kor/Packet.h"

#include <algorithm>
#include <cmath>

namespace {

// Packet times are 32-bit milliseconds; anything a script can write beyond this is nonsense.
constexpr double kTimeLimit = 4.0e12;

long ToMilliseconds(double value) {
    return static_cast<long>(std::trunc(std::clamp(value, -kTimeLimit, kTimeLimit)));
}

} // namespace

CZorMetadataFilter::CZorMetadataFilter(const char* name, DWORD handlerTag)
    : CKorUnbufferedModule(name), m_HandlerTag(handlerTag) {
    DisableProcessing(1);
}

void CZorMetadataFilter::SetScan(long startTime, long interval) {
    m_StartTime = startTime;
    m_Interval = interval;
    ScanChanged();
}

void CZorMetadataFilter::ProcessPacket() {
    CKorMetadataHandler* handler = m_pPacket->GetMetadataHandler();
    if (m_Mode == MODE_READ) {
        if (handler) {
            Read(*m_pPacket, handler);
        }
        return;
    }
    if (!handler) {
        handler = new CKorMetadataHandler(m_HandlerTag);
        m_pPacket->SetMetadataHandler(handler, true);
    }
    if (CKorMetadataHandler* own = FindOwn(handler)) {
        ClearOwn(own);
    } else {
        handler->Append(MakeOwn());
    }
    Written();
}

// ---------------------------------------------------------------------------------------------

CZorMetadataFilterCom::CZorMetadataFilterCom(const char* componentName, const char* className,
                                             const char* dataPath, CZorMetadataFilter* module)
    : CKor2PinComponent(componentName), m_pModule(module), m_ClassName(className),
      m_pOwned(module) {
    ConnectPath(dataPath);
}

CZorMetadataFilterCom::~CZorMetadataFilterCom() {
    m_pModule->SetCountHook({});
    if (m_pINotifyCount) {
        m_pINotifyCount->Release();
    }
}

CKorModule* CZorMetadataFilterCom::CreateContext(const char* path) {
    return SingleContext(path, m_pOwned);
}

int CZorMetadataFilterCom::ModeHandler(CBelString* value, int set) {
    if (!set) {
        *value = m_pModule->GetMode() == CZorMetadataFilter::MODE_WRITE ? "write" : "read";
        return 1;
    }
    if (value->CompareNoCase("read") == 0) {
        m_pModule->SetMode(CZorMetadataFilter::MODE_READ);
        return 1;
    }
    if (value->CompareNoCase("write") == 0) {
        m_pModule->SetMode(CZorMetadataFilter::MODE_WRITE);
        return 1;
    }
    BelDump("%s::ModeHandler -> mode is \"read\" or \"write\", not \"%s\".\n", m_ClassName,
            value->c_str());
    return 0;
}

int CZorMetadataFilterCom::StartTimeHandler(double* value, int set) {
    if (!set) {
        *value = m_StartTime;
        return 1;
    }
    if (!std::isfinite(*value)) {
        return 0;
    }
    m_StartTime = *value;
    m_pModule->SetScan(ToMilliseconds(m_StartTime), ToMilliseconds(m_Interval));
    return 1;
}

int CZorMetadataFilterCom::IntervalHandler(double* value, int set) {
    if (!set) {
        *value = m_Interval;
        return 1;
    }
    if (!std::isfinite(*value)) {
        return 0;
    }
    m_Interval = *value;
    m_pModule->SetScan(ToMilliseconds(m_StartTime), ToMilliseconds(m_Interval));
    return 1;
}

int CZorMetadataFilterCom::EnabledHandler(int* value, int set) {
    if (!set) {
        *value = m_pModule->IsDisabled() ? 0 : 1;
        return 1;
    }
    m_pModule->DisableProcessing(*value ? 0 : 1);
    return 1;
}

int CZorMetadataFilterCom::PrintTargetList(CJokCommandContext* context) {
    if (!context->CanProceed(0)) {
        return 1;
    }
    CBelString caller;
    caller.Format("%s::PrintTargetList", m_ClassName);
    m_pModule->PrintTargetList(caller.c_str());
    return 1;
}

void CZorMetadataFilterCom::Call(IJokCommand* callback, const double* values, int count) {
    if (!callback) {
        return;
    }
    CJokCommandContext context;
    for (int i = 0; i < count; ++i) {
        context.AddParam(nullptr, values[i]);
    }
    CallScript(callback, context);
}
