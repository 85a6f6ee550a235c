#include "filters/AttributeSetter.h"

#include "entry/Registry.h"
#include "expr/ExpressionEvalOp.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/PropertyMap.h"
#include "framework/kor/Packet.h"

#include <algorithm>

CZorAttrModule::CZorAttrModule(CAttrCom* owner) : CKorUnbufferedModule(""), m_pOwner(owner) {}

void CZorAttrModule::ProcessPacket() {
    for (const CAttrCom::SAttribute& attribute : m_pOwner->Attributes()) {
        if (!m_pPacket->SetAttribute(attribute.m_Type, attribute.m_Value) && !m_ReportedFull) {
            // Once per module: a stream of such packets would otherwise flood the output.
            BelDump("CZorAttrModule::ProcessPacket -> no room on the packet for attribute %d.\n",
                    attribute.m_Type);
            m_ReportedFull = true;
        }
    }
}

// ---------------------------------------------------------------------------------------------

CAttrCom::CAttrCom(CJokGdVector* paths) : CKor2PinMultiPath("AttributeSetter", paths, "") {
    JoinPaths();
}

CZorAttrModule* CAttrCom::MakeModule(const char*) {
    return new CZorAttrModule(this);
}

const CJokPropertyMap<CAttrCom>& CAttrCom::PropertyMap() {
    static const CJokPropertyMap<CAttrCom> map = [] {
        CJokPropertyMap<CAttrCom> m;
        m.AddFunction("AlterAttribute", &CAttrCom::AlterAttribute, "&CAttrCom::AlterAttribute")
            .AddFunction("ReleaseAttribute", &CAttrCom::ReleaseAttribute,
                         "&CAttrCom::ReleaseAttribute")
            .AddFunction("ReleaseAll", &CAttrCom::ReleaseAll, "&CAttrCom::ReleaseAll");
        return m;
    }();
    return map;
}

CJokGenericData* CAttrCom::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKor2PinComponent::GetProperty(name, flags);
}

int CAttrCom::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKor2PinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CAttrCom::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKor2PinComponent::GetPropertyEnumerator());
}

int CAttrCom::AlterAttribute(CJokCommandContext* context) {
    double type = 0;
    double value = 0;
    context->GetParam("type", &type, 0);
    context->GetParam("value", &value, 0);
    if (!context->CanProceed(0)) {
        return 1;
    }
    const auto number = static_cast<std::int32_t>(TruncateToWord(type));
    const auto setting = static_cast<std::int32_t>(TruncateToWord(value));
    for (SAttribute& attribute : m_Attributes) {
        if (attribute.m_Type == number) {
            attribute.m_Value = setting; // keeps its place in the order
            return 1;
        }
    }
    m_Attributes.push_back(SAttribute{number, setting});
    return 1;
}

int CAttrCom::ReleaseAttribute(CJokCommandContext* context) {
    double type = 0;
    context->GetParam("type", &type, 0);
    if (!context->CanProceed(0)) {
        return 1;
    }
    const auto number = static_cast<std::int32_t>(TruncateToWord(type));
    auto found = std::find_if(m_Attributes.begin(), m_Attributes.end(),
                              [number](const SAttribute& a) { return a.m_Type == number; });
    if (found != m_Attributes.end()) {
        m_Attributes.erase(found);
    }
    return 1;
}

int CAttrCom::ReleaseAll(CJokCommandContext* context) {
    if (!context->CanProceed(0)) {
        return 1;
    }
    m_Attributes.clear();
    return 1;
}

int CreateAttributeSetter(CJokCommandContext* context) {
    return ZorCreateWithPaths<CAttrCom>(context, "CreateAttributeSetter");
}
