#include "analytics/counting/ExitBlockingFilter.h"

#include "entry/Registry.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/Command.h"
#include "framework/jok/GenericData.h"
#include "framework/jok/PropertyMap.h"
#include "framework/kor/Packet.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

CZorExitBlockingFilter::CZorExitBlockingFilter()
    : CZorMetadataFilter("ExitBlockingFilter", kMetadataLeftObject) {}

void CZorExitBlockingFilter::ScanChanged() {
    m_Query.m_StartTime = GetStartTime();
    m_Query.m_Interval = GetInterval();
    m_Query.m_Scanned = false;
}

void CZorExitBlockingFilter::Read(const CKorPacket& packet, CKorMetadataHandler* handler) {
    CKorLeftObjectDetectionMD* found = CKorLeftObjectDetectionMD::Find(handler);
    if (!found) {
        return;
    }
    const unsigned long entries =
        found->Update(m_Query, packet.GetTimeStamp(), packet.IsTimeStampValid(), &m_Counters);
    m_Last.CopyFrom(*found);
    m_HasLast = true;
    if (entries == 0) {
        return;
    }
    // Two 32-bit values, then four 16-bit ones; the counters go in the first, third and fifth.
    const unsigned long values[6] = {static_cast<std::uint32_t>(m_Counters.m_Entries),      0,
                                     static_cast<std::uint16_t>(m_Counters.m_Targets),      0,
                                     static_cast<std::uint16_t>(m_Counters.m_LongestStill), 0};
    NotifyCount(values);
}

CKorMetadataHandler* CZorExitBlockingFilter::FindOwn(CKorMetadataHandler* chain) const {
    return CKorLeftObjectDetectionMD::Find(chain);
}

void CZorExitBlockingFilter::ClearOwn(CKorMetadataHandler* own) const {
    static_cast<CKorLeftObjectDetectionMD*>(own)->Clear();
}

CKorMetadataHandler* CZorExitBlockingFilter::MakeOwn() const {
    return new CKorLeftObjectDetectionMD;
}

void CZorExitBlockingFilter::PrintTargetList(const char* caller) const {
    if (!m_HasLast) {
        BelDump("%s -> no left-object metadata seen yet.\n", caller);
        return;
    }
    BelDump("%s -> entries %lu, targets %lu, longest %lu s (target %lu)\n", caller,
            m_Counters.m_Entries, m_Counters.m_Targets, m_Counters.m_LongestStill,
            m_Counters.m_LongestId);
    m_Last.PrintTargetList(caller, m_Query.m_Duration);
}

// ---------------------------------------------------------------------------------------------

CZorExitBlockingFilterCom::CZorExitBlockingFilterCom(const char* dataPath)
    : CZorMetadataFilterCom("ExitBlockingFilter", "CZorExitBlockingFilterCom", dataPath,
                            new CZorExitBlockingFilter),
      m_pBlocker(static_cast<CZorExitBlockingFilter*>(m_pModule)) {
    m_pBlocker->SetCountHook([this](const unsigned long(&values)[6]) {
        double numbers[6];
        for (int i = 0; i < 6; ++i) {
            numbers[i] = static_cast<double>(values[i]);
        }
        Call(m_pINotifyCount, numbers, 6);
    });
}

const CJokPropertyMap<CZorExitBlockingFilterCom>& CZorExitBlockingFilterCom::PropertyMap() {
    using C = CZorExitBlockingFilterCom;
    static const CJokPropertyMap<C> map = [] {
        CJokPropertyMap<C> m;
        m.AddNotifiedString("mode", &C::ModeHandler, "&CZorExitBlockingFilterCom::ModeHandler")
            .AddNotifiedDouble("StartTime", &C::StartTimeHandler,
                               "&CZorExitBlockingFilterCom::StartTimeHandler")
            .AddNotifiedDouble("Interval", &C::IntervalHandler,
                               "&CZorExitBlockingFilterCom::IntervalHandler")
            .AddNotifiedBoolean("enabled", &C::EnabledHandler,
                                "&CZorExitBlockingFilterCom::EnabledHandler")
            .AddInterface<IJokCommand>("onCountChange", &C::m_pINotifyCount, IID_IJokCommand,
                                       "IJokCommand", "&CZorExitBlockingFilterCom::m_pINotifyCount")
            .AddFunction("PrintTargetList", &C::PrintTargetList,
                         "&CZorExitBlockingFilterCom::PrintTargetList")
            .AddFunction("SetTargetDuration", &C::SetTargetDuration,
                         "&CZorExitBlockingFilterCom::SetTargetDuration")
            .AddFunction("GetTargetDuration", &C::GetTargetDuration,
                         "&CZorExitBlockingFilterCom::GetTargetDuration")
            .AddFunction("SetNumberOfTargets", &C::SetNumberOfTargets,
                         "&CZorExitBlockingFilterCom::SetNumberOfTargets")
            .AddFunction("GetNumberOfTargets", &C::GetNumberOfTargets,
                         "&CZorExitBlockingFilterCom::GetNumberOfTargets")
            .AddFunction("SetTargetType", &C::SetTargetType,
                         "&CZorExitBlockingFilterCom::SetTargetType")
            .AddFunction("GetTargetType", &C::GetTargetType,
                         "&CZorExitBlockingFilterCom::GetTargetType")
            .AddFunction("SetTargetID", &C::SetTargetID, "&CZorExitBlockingFilterCom::SetTargetID")
            .AddFunction("GetTargetID", &C::GetTargetID, "&CZorExitBlockingFilterCom::GetTargetID");
        return m;
    }();
    return map;
}

CJokGenericData* CZorExitBlockingFilterCom::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKor2PinComponent::GetProperty(name, flags);
}

int CZorExitBlockingFilterCom::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKor2PinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CZorExitBlockingFilterCom::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKor2PinComponent::GetPropertyEnumerator());
}

namespace {

void ReturnTrue(CJokCommandContext* context) {
    CJokGdBoolean* value = CJokGdBoolean::Allocate(1);
    context->SetReturnValueNoRef(value);
}

void ReturnNumber(CJokCommandContext* context, double number) {
    context->SetReturnValueNoRef(CJokGdDouble::Allocate(number));
}

// Script numbers become the integers the settings are; beyond the range they saturate.
long ToLong(double value) {
    return static_cast<long>(std::trunc(std::clamp(value, -2147483648.0, 2147483647.0)));
}

} // namespace

bool CZorExitBlockingFilterCom::ReadSetting(CJokCommandContext* context, const char* name,
                                            double* value) {
    *value = 0;
    const bool named = context->GetParam(name, value, 1) != 0;
    if (!context->CanProceed(0)) {
        return false;
    }
    if (!named && context->FindParam(name) == nullptr) {
        if (const CJokGenericData* first = context->GetPositional(0)) {
            if (first->GetType() != JOKGD_DOUBLE) {
                CBelString message;
                message.Format("%s: expected a number", name);
                context->OutputErrorString(message.c_str());
                return false;
            }
            *value = static_cast<const CJokGdDouble*>(first)->GetValue();
        }
    }
    if (!std::isfinite(*value)) {
        CBelString message;
        message.Format("%s: expected a finite number", name);
        context->OutputErrorString(message.c_str());
        return false;
    }
    return true;
}

int CZorExitBlockingFilterCom::SetTargetDuration(CJokCommandContext* context) {
    double value = 0;
    if (!ReadSetting(context, "SetTargetDuration", &value)) {
        return 1;
    }
    m_pBlocker->Query().m_Duration = ToLong(value);
    if (value < 0) {
        BelDump("CZorExitBlockingFilterCom::SetTargetDuration -> a duration below 0 (%ld ms) "
                "counts as 0: every still target is an entry.\n",
                m_pBlocker->Query().m_Duration);
    }
    ReturnTrue(context);
    return 1;
}

int CZorExitBlockingFilterCom::GetTargetDuration(CJokCommandContext* context) {
    if (context->CanProceed(0)) {
        ReturnNumber(context, static_cast<double>(m_pBlocker->Query().m_Duration));
    }
    return 1;
}

int CZorExitBlockingFilterCom::SetNumberOfTargets(CJokCommandContext* context) {
    double value = 0;
    if (!ReadSetting(context, "SetNumberOfTargets", &value)) {
        return 1;
    }
    m_pBlocker->Query().m_Number = static_cast<int>(ToLong(value));
    ReturnTrue(context);
    return 1;
}

int CZorExitBlockingFilterCom::GetNumberOfTargets(CJokCommandContext* context) {
    if (context->CanProceed(0)) {
        ReturnNumber(context, m_pBlocker->Query().m_Number);
    }
    return 1;
}

int CZorExitBlockingFilterCom::SetTargetType(CJokCommandContext* context) {
    double value = 0;
    if (!ReadSetting(context, "SetTargetType", &value)) {
        return 1;
    }
    m_pBlocker->Query().m_Type = static_cast<int>(ToLong(value));
    ReturnTrue(context);
    return 1;
}

int CZorExitBlockingFilterCom::GetTargetType(CJokCommandContext* context) {
    if (context->CanProceed(0)) {
        ReturnNumber(context, m_pBlocker->Query().m_Type);
    }
    return 1;
}

int CZorExitBlockingFilterCom::SetTargetID(CJokCommandContext* context) {
    double value = 0;
    if (!ReadSetting(context, "SetTargetID", &value)) {
        return 1;
    }
    if (value < 0) {
        context->OutputErrorString("SetTargetID: identifiers are 0 (any) or above");
        return 1;
    }
    m_pBlocker->Query().m_Id = static_cast<unsigned long>(std::min(value, 4294967295.0));
    ReturnTrue(context);
    return 1;
}

int CZorExitBlockingFilterCom::GetTargetID(CJokCommandContext* context) {
    if (context->CanProceed(0)) {
        ReturnNumber(context, static_cast<double>(m_pBlocker->Query().m_Id));
    }
    return 1;
}

int CreateExitBlockingFilter(CJokCommandContext* context) {
    return ZorCreateWithDataPath<CZorExitBlockingFilterCom>(context);
}
