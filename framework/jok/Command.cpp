#include "framework/jok/Command.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/GenericData.h"
#include "framework/jok/Property.h"

HRESULT CJokSimpleCommandObject::QueryInterface(const IID& iid, void** object) {
    if (!object)
        return E_POINTER;
    if (iid == IID_IUnknown || iid == IID_IJokCommand) {
        *object = static_cast<IJokCommand*>(this);
        AddRef();
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

unsigned long CJokSimpleCommandObject::AddRef() {
    return static_cast<unsigned long>(++m_RefCount);
}

unsigned long CJokSimpleCommandObject::Release() {
    long count = --m_RefCount;
    if (count < 0) {
        BelDisplayAssert("m_RefCount >= 0", __FILE__, __LINE__);
        return 0;
    }
    if (count == 0)
        OnFinalRelease();
    return static_cast<unsigned long>(count);
}

void CJokSimpleCommandObject::OnFinalRelease() {
    delete this;
}

CJokGenericData* CJokSimpleCommandObject::GetProperty(const char*, int) {
    return nullptr;
}

int CJokSimpleCommandObject::SetProperty(const char*, CJokGenericData*) {
    return -1;
}

int CJokSimpleCommandObject::CallMethod(CJokCommandContext*) {
    return 0;
}

CJokPropertyEnum* CJokSimpleCommandObject::GetPropertyEnumerator() {
    return nullptr;
}

namespace {

// Made on first use: function objects are often static and built before anything else.
const CJokPropertyDescriptor* const* FunctionProperties() {
    static const CJokPropertyDescriptor name("name", CJokPropertyEnum::ReadOnly,
                                             CJokGetStringPropertyType());
    static const CJokPropertyDescriptor description("description", CJokPropertyEnum::ReadOnly,
                                                    CJokGetStringPropertyType());
    static const CJokPropertyDescriptor* const properties[] = {&name, &description};
    return properties;
}

} // namespace

CJokFunctionObj::CJokFunctionObj(const char* name, const char* description)
    : m_Name(name), m_Description(description) {}

CJokGenericData* CJokFunctionObj::GetProperty(const char* name, int flags) {
    if (flags != 0 || !name)
        return nullptr;
    if (CBelString(name) == "name")
        return CJokGdString::Allocate(m_Name);
    if (CBelString(name) == "description")
        return CJokGdString::Allocate(m_Description);
    return nullptr;
}

int CJokFunctionObj::SetProperty(const char* name, CJokGenericData*) {
    if (!name)
        return -1;
    CBelString property(name);
    return property == "name" || property == "description" ? 0 : -1;
}

CJokPropertyEnum* CJokFunctionObj::GetPropertyEnumerator() {
    return new CJokListPropertyEnum(FunctionProperties(), 2, nullptr);
}

CJokFreeFunctionObj::CJokFreeFunctionObj(const char* name, const char* description,
                                         JokFreeFunction function)
    : CJokFunctionObj(name, description), m_pFunction(function) {}

int CJokFreeFunctionObj::CallMethod(CJokCommandContext* context) {
    if (!m_pFunction)
        return 0;
    return JokGuardedCall(context, GetName().c_str(), [&] { return m_pFunction(context); });
}

void JokReportCallException(CJokCommandContext* context, const char* name) noexcept {
    try {
        const CBelString text = CBelString(name ? name : "") + ": " + BelDescribeCurrentException();
        if (context)
            context->OutputErrorString(text);
        else
            BelReportScriptError(text);
    } catch (...) {
        BelDumpCurrentException(name ? name : "", "the call was abandoned");
    }
}

void JokReportUnusedParams(CJokCommandContext* context, const char* name) {
    if (context)
        context->ReportUnusedParams(name);
}
