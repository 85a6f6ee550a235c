#include "analytics/motion/ArchiveIntervals.h"

#include "analytics/motion/MotionTime.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/CommandContext.h"
#include "framework/kor/AttributeSource.h"

#include <cmath>

namespace zormotion {

bool ReadArchiveRange(CJokCommandContext* context, const char* method, SArchiveRange* range) {
    context->GetParam("StartTime", &range->m_Start, 1);
    context->GetParam("EndTime", &range->m_End, 1);
    context->GetParam("ContinuedFromPrevious", &range->m_Continued, 1);
    context->GetParam("LowState", &range->m_LowState, 1);
    if (!context->CanProceed(0)) {
        return false;
    }
    if (std::isnan(range->m_Start) || std::isnan(range->m_End)) {
        CBelString text;
        text.Format("%s: StartTime and EndTime must be numbers (ms)", method);
        context->OutputErrorString(text.c_str());
        context->SetReturnValueNoRef(CJokGdVector::Allocate(0));
        return false;
    }
    return true;
}

int ArchiveSourceHandler(IJokArchiveAttributeSource** slot, IUnknown** value, int set) {
    if (!set) {
        if (*slot) {
            (*slot)->AddRef();
        }
        *value = *slot;
        return 1;
    }
    auto* source = static_cast<IJokArchiveAttributeSource*>(*value);
    if (source) {
        source->AddRef();
    }
    if (*slot) {
        (*slot)->Release();
    }
    *slot = source;
    return 1;
}

void DumpReadFailure(IJokArchiveAttributeSource* source, const char* where) {
    const char* reason = source->GetLastError();
    BelDump("%s -> Error retrieving attribute values%s%s\n", where, reason && *reason ? ": " : "",
            reason ? reason : "");
}

void CArchiveIntervals::Begin() {
    m_Results.clear();
    m_Collecting = true;
    m_Open = false;
    m_Start = 0;
}

void CArchiveIntervals::Signal(long time, bool open, std::int32_t offset) {
    if (open == m_Open) {
        return;
    }
    const auto at = static_cast<std::int32_t>(time);
    if (!open && m_Collecting) {
        m_Results.emplace_back(Elapsed(offset, m_Start), at == -1 ? -1.0 : Elapsed(offset, at));
    }
    m_Open = open;
    m_Start = at;
}

} // namespace zormotion
