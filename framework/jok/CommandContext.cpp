#include "framework/jok/CommandContext.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/COMObject.h"
#include "framework/jok/Command.h"
#include "framework/jok/GenericData.h"

#include <algorithm>
#include <cmath>

CJokCommandContext::~CJokCommandContext() {
    for (SNamed& named : m_Named)
        named.m_pValue->Release();
    for (CJokGenericData* value : m_Positional)
        value->Release();
    if (m_pReturnValue)
        m_pReturnValue->Release();
}

void CJokCommandContext::Fault(const CBelString& message) {
    m_CanProceed = 0;
    if (!m_PendingFaults.IsEmpty())
        m_PendingFaults += "; ";
    m_PendingFaults += message;
}

void CJokCommandContext::WrongType(const char* name, const char* expected,
                                   const CJokGenericData* got) {
    CBelString message;
    message.Format("%s: expected %s, got %s", name, expected, JokGdTypeDescription(got->GetType()));
    Fault(message);
}

CJokGenericData* CJokCommandContext::FindParam(const char* name) const {
    if (!name)
        return nullptr;
    if (std::find(m_Asked.begin(), m_Asked.end(), name) == m_Asked.end())
        m_Asked.emplace_back(name);
    for (const SNamed& named : m_Named) {
        if (named.m_Name == name) {
            named.m_Read = true;
            return named.m_pValue;
        }
    }
    return nullptr;
}

CJokGenericData* CJokCommandContext::Lookup(const char* name, int optional) {
    CJokGenericData* value = FindParam(name);
    if (value && value->GetType() == JOKGD_NONE)
        value = nullptr;
    if (!value && !optional) {
        CBelString message;
        message.Format("missing parameter '%s'", name ? name : "");
        Fault(message);
    }
    return value;
}

int CJokCommandContext::GetParam(const char* name, CJokGenericData** out, int optional) {
    CJokGenericData* value = Lookup(name, optional);
    if (!value)
        return 0;
    value->AddRef();
    *out = value;
    return 1;
}

int CJokCommandContext::GetParam(const char* name, CBelString* out, int optional) {
    CJokGenericData* value = Lookup(name, optional);
    if (!value)
        return 0;
    if (value->GetType() != JOKGD_STRING) {
        WrongType(name, "a string", value);
        return 0;
    }
    *out = static_cast<CJokGdString*>(value)->GetString();
    return 1;
}

int CJokCommandContext::GetParam(const char* name, double* out, int optional) {
    CJokGenericData* value = Lookup(name, optional);
    if (!value)
        return 0;
    if (value->GetType() != JOKGD_DOUBLE) {
        WrongType(name, "a number", value);
        return 0;
    }
    *out = static_cast<CJokGdDouble*>(value)->GetValue();
    return 1;
}

int CJokCommandContext::GetParam(const char* name, int* out, int optional) {
    CJokGenericData* value = Lookup(name, optional);
    if (!value)
        return 0;
    switch (value->GetType()) {
    case JOKGD_DOUBLE: {
        double number = static_cast<CJokGdDouble*>(value)->GetValue();
        // Beyond the int range (or NaN) the conversion would be undefined.
        if (!(std::fabs(number) < 2147483648.0)) {
            CBelString message;
            message.Format("%s: expected an integer, got %g", name, number);
            Fault(message);
            return 0;
        }
        *out = static_cast<int>(number);
        return 1;
    }
    case JOKGD_BOOLEAN:
        *out = static_cast<CJokGdBoolean*>(value)->GetValue();
        return 1;
    }
    WrongType(name, "a number", value);
    return 0;
}

int CJokCommandContext::GetParam(const char* name, const IID& iid, void** out, int optional,
                                 const char* interfaceName) {
    CBelString expected;
    expected.Format("an object with interface %s",
                    interfaceName ? interfaceName : JokFormatIID(iid).c_str());
    return GetInterfaceParam(name, iid, out, optional, expected);
}

int CJokCommandContext::GetInterfaceParam(const char* name, const IID& iid, void** out,
                                          int optional, const CBelString& expected) {
    CJokGenericData* value = Lookup(name, optional);
    if (!value)
        return 0;
    if (value->GetType() == JOKGD_NULL) {
        *out = nullptr;
        return 1;
    }
    if (value->GetType() != JOKGD_OBJECT) {
        WrongType(name, expected, value);
        return 0;
    }
    void* found = nullptr;
    if (!static_cast<CJokGdObject*>(value)->GetInterface(iid, &found, expected)) {
        CBelString message;
        message.Format("%s: expected %s, got another kind of object", name, expected.c_str());
        Fault(message);
        return 0;
    }
    *out = found;
    return 1;
}

int CJokCommandContext::GetParam(const char* name, IJokCommand** out, int optional) {
    void* found = nullptr;
    if (!GetInterfaceParam(name, IID_IJokCommand, &found, optional, "a function"))
        return 0;
    *out = static_cast<IJokCommand*>(found);
    return 1;
}

int CJokCommandContext::GetParam(const char* name, IUnknown** out, int optional) {
    void* found = nullptr;
    if (!GetInterfaceParam(name, IID_IUnknown, &found, optional, "an object"))
        return 0;
    *out = static_cast<IUnknown*>(found);
    return 1;
}

int CJokCommandContext::CanProceed(int quiet) {
    if (!quiet && !m_PendingFaults.IsEmpty()) {
        CBelString text =
            m_CallName.IsEmpty() ? m_PendingFaults : m_CallName + ": " + m_PendingFaults;
        m_PendingFaults = CBelString();
        OutputErrorString(text);
    }
    return m_CanProceed;
}

CJokGenericData* CJokCommandContext::GetPositional(int index) const {
    if (index < 0 || index >= GetPositionalCount())
        return nullptr;
    m_PositionalRead[static_cast<size_t>(index)] = true;
    return m_Positional[static_cast<size_t>(index)];
}

void CJokCommandContext::AddParamNoRef(const char* name, CJokGenericData* value) {
    if (!value) {
        BelDisplayAssert("value", __FILE__, __LINE__);
        return;
    }
    if (!name || !*name) {
        m_Positional.push_back(value);
        m_PositionalRead.push_back(false);
        return;
    }
    for (SNamed& named : m_Named) {
        if (named.m_Name == name) {
            named.m_pValue->Release();
            named.m_pValue = value;
            named.m_Read = false;
            return;
        }
    }
    m_Named.push_back({name, value});
}

void CJokCommandContext::AddParam(const char* name, CJokGenericData* value) {
    if (value)
        value->AddRef();
    AddParamNoRef(name, value);
}

void CJokCommandContext::AddParam(const char* name, CJokCOMObject* value) {
    AddParamNoRef(name, value ? static_cast<CJokGenericData*>(CJokGdObject::Allocate(value))
                              : CJokGdNull::Allocate());
}

void CJokCommandContext::AddParam(const char* name, IUnknown* value) {
    AddParamNoRef(name, value ? static_cast<CJokGenericData*>(CJokGdObject::Allocate(value, 1))
                              : CJokGdNull::Allocate());
}

void CJokCommandContext::AddParam(const char* name, const CBelString& value) {
    AddParamNoRef(name, CJokGdString::Allocate(value));
}

void CJokCommandContext::AddParam(const char* name, const char* value) {
    AddParamNoRef(name, CJokGdString::Allocate(value));
}

void CJokCommandContext::AddParam(const char* name, double value) {
    AddParamNoRef(name, CJokGdDouble::Allocate(value));
}

void CJokCommandContext::AddParam(const char* name, int value) {
    AddParamNoRef(name, CJokGdDouble::Allocate(value));
}

void CJokCommandContext::AddBooleanParam(const char* name, int value) {
    AddParamNoRef(name, CJokGdBoolean::Allocate(value));
}

void CJokCommandContext::SetReturnValueNoRef(CJokGenericData* value) {
    if (m_pReturnValue)
        m_pReturnValue->Release();
    m_pReturnValue = value;
}

void CJokCommandContext::SetReturnValue(CJokGenericData* value) {
    if (value)
        value->AddRef();
    SetReturnValueNoRef(value);
}

CJokGenericData* CJokCommandContext::DetachReturnValue() {
    CJokGenericData* value = m_pReturnValue;
    m_pReturnValue = nullptr;
    return value;
}

void CJokCommandContext::OutputErrorString(const char* text) {
    BelReportScriptError(text ? text : "");
}

CBelString CJokCommandContext::DescribeUnusedParams() const {
    // "parameters 'a', 'b'" and "argument 2", joined; what was read goes in brackets.
    auto join = [](CBelString& list, const CBelString& item) {
        list += list.IsEmpty() ? item : ", " + item;
    };
    CBelString named, positional, read;
    int namedCount = 0, positionalCount = 0;
    for (const CBelString& asked : m_Asked)
        join(read, asked);
    for (const SNamed& entry : m_Named) {
        if (!entry.m_Read) {
            join(named, "'" + entry.m_Name + "'");
            ++namedCount;
        }
    }
    for (size_t i = 0; i < m_PositionalRead.size(); ++i) {
        CBelString number;
        number.Format("%d", static_cast<int>(i) + 1);
        if (m_PositionalRead[i]) {
            join(read, "argument " + number);
        } else {
            join(positional, number);
            ++positionalCount;
        }
    }
    if (namedCount == 0 && positionalCount == 0)
        return CBelString();
    CBelString text = "unused ";
    if (namedCount > 0)
        text += (namedCount == 1 ? "parameter " : "parameters ") + named;
    if (positionalCount > 0) {
        text += namedCount > 0 ? " and " : "";
        text += (positionalCount == 1 ? "argument " : "arguments ") + positional;
    }
    text += read.IsEmpty() ? " (it reads none)" : " (it reads: " + read + ")";
    return text;
}

void CJokCommandContext::ReportUnusedParams(const char* fallbackName) {
    if (m_UnusedReported)
        return;
    const CBelString unused = DescribeUnusedParams();
    if (unused.IsEmpty())
        return;
    m_UnusedReported = true;
    const CBelString name =
        m_CallName.IsEmpty() ? CBelString(fallbackName ? fallbackName : "") : m_CallName;
    OutputErrorString(name.IsEmpty() ? unused : name + ": " + unused);
}
