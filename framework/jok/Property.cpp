#include "framework/jok/Property.h"

#include "framework/jok/COMObject.h"
#include "framework/jok/Command.h"
#include "framework/jok/GenericData.h"

#include <cmath>

CBelString JokListPropertyNames(CJokPropertyEnum* enumerator) {
    CBelString names;
    if (!enumerator)
        return names;
    enumerator->Reset();
    while (const CJokPropertyDescriptor* descriptor = enumerator->Next()) {
        if (!names.IsEmpty())
            names += ", ";
        names += descriptor->GetName();
    }
    return names;
}

CBelString CJokGetDoublePropertyType() {
    return "double";
}

CBelString CJokGetStringPropertyType() {
    return "string";
}

CBelString CJokGetBooleanPropertyType() {
    return "boolean";
}

CBelString CJokGetFunctionPropertyType() {
    return "function";
}

CBelString CJokGetGeneralPropertyType() {
    return "general";
}

CBelString CJokGetInterfacePropertyType(const IID& iid, const char* interfaceName) {
    return CBelString("interface ") + (interfaceName ? interfaceName : "") + " " +
           JokFormatIID(iid);
}

CJokPropertyDescriptor::CJokPropertyDescriptor(const char* name, int readOnlyStatus,
                                               CBelString type)
    : m_Name(name), m_Type(std::move(type)),
      m_ReadOnly(readOnlyStatus ? CJokPropertyEnum::ReadOnly : CJokPropertyEnum::ReadWrite) {}

void CJokPropertyDescriptor::DescribeProperty(CBelString* name, CBelString* type,
                                              CJokPropertyEnum::ReadOnlyStatus* status) const {
    if (name)
        *name = m_Name;
    if (type)
        *type = m_Type;
    if (status)
        *status = m_ReadOnly;
}

CJokListPropertyEnum::CJokListPropertyEnum(const CJokPropertyDescriptor* const* descriptors,
                                           int count, CJokPropertyEnum* base)
    : m_pDescriptors(descriptors), m_Count(count), m_pBase(base) {}

CJokListPropertyEnum::~CJokListPropertyEnum() {
    delete m_pBase;
}

void CJokListPropertyEnum::Reset() {
    m_Position = 0;
    if (m_pBase)
        m_pBase->Reset();
}

const CJokPropertyDescriptor* CJokListPropertyEnum::Next() {
    if (m_Position < m_Count)
        return m_pDescriptors[m_Position++];
    return m_pBase ? m_pBase->Next() : nullptr;
}

CJokGenericData* CJokDoublePropertyGet(double value, int) {
    return CJokGdDouble::Allocate(value);
}

CJokGenericData* CJokStringPropertyGet(const CBelString& value, int) {
    return CJokGdString::Allocate(value);
}

CJokGenericData* CJokBooleanPropertyGet(int value, int) {
    return CJokGdBoolean::Allocate(value);
}

CJokGenericData* CJokInterfacePropertyGet(IUnknown* value, int) {
    if (!value)
        return CJokGdNull::Allocate();
    return CJokGdObject::Allocate(value, 1);
}

int CJokDoublePropertySet(const CJokGenericData* value, double* out, int) {
    if (!value || value->GetType() != JOKGD_DOUBLE)
        return 0;
    *out = static_cast<const CJokGdDouble*>(value)->GetValue();
    return 1;
}

int CJokStringPropertySet(const CJokGenericData* value, CBelString* out, int) {
    if (!value || value->GetType() != JOKGD_STRING)
        return 0;
    *out = static_cast<const CJokGdString*>(value)->GetString();
    return 1;
}

int CJokBooleanPropertySet(const CJokGenericData* value, int* out, int) {
    if (!value)
        return 0;
    switch (value->GetType()) {
    case JOKGD_BOOLEAN:
        *out = static_cast<const CJokGdBoolean*>(value)->GetValue();
        return 1;
    case JOKGD_DOUBLE:
        *out = static_cast<const CJokGdDouble*>(value)->GetValue() != 0.0;
        return 1;
    }
    return 0;
}

int CJokInterfacePropertySet(const CJokGenericData* value, const IID& iid,
                             const char* interfaceName, IUnknown** out, int) {
    if (!value)
        return 0;
    IUnknown* found = nullptr;
    if (value->GetType() == JOKGD_OBJECT) {
        void* raw = nullptr;
        if (!static_cast<const CJokGdObject*>(value)->GetInterface(iid, &raw, interfaceName))
            return 0;
        found = static_cast<IUnknown*>(raw);
    } else if (value->GetType() != JOKGD_NULL) {
        return 0;
    }
    if (*out)
        (*out)->Release();
    *out = found;
    return 1;
}

namespace {

CBelString& Refusal() {
    thread_local CBelString reason;
    return reason;
}

} // namespace

int JokRefuseProperty(const char* reason) {
    Refusal() = reason ? reason : "";
    return 0;
}

int JokRefusePropertyType(const char* expected, const CJokGenericData* given) {
    CBelString reason;
    reason.Format("%s is expected, not %s", expected,
                  JokGdTypeDescription(given ? given->GetType() : JOKGD_NONE));
    return JokRefuseProperty(reason);
}

int JokRefusePropertyInterface(const IID& iid, const char* interfaceName,
                               const CJokGenericData* given) {
    CBelString expected = "a function";
    if (!(iid == IID_IJokCommand)) {
        expected.Format("an object with interface %s", interfaceName ? interfaceName : "");
    }
    if (given && given->GetType() == JOKGD_OBJECT) {
        return JokRefuseProperty(expected + " is expected, not an object without that interface");
    }
    return JokRefusePropertyType(expected.c_str(), given);
}

CBelString JokTakePropertyRefusal() {
    CBelString reason = Refusal();
    Refusal() = CBelString();
    return reason;
}

CJokPropertyAccessor::CJokPropertyAccessor(IJokCommand* command) : m_pCommand(command) {
    if (m_pCommand)
        m_pCommand->AddRef();
}

CJokPropertyAccessor::~CJokPropertyAccessor() {
    if (m_pCommand)
        m_pCommand->Release();
}

int CJokPropertyAccessor::GetDouble(const char* name, double& out, const int& flags) {
    if (!m_pCommand)
        return 0;
    CJokGenericData* value = m_pCommand->GetProperty(name, flags);
    if (!value)
        return 0;
    int ok = CJokDoublePropertySet(value, &out, 0);
    value->Release();
    return ok;
}

int CJokPropertyAccessor::GetLong(const char* name, long& out, const int& flags) {
    double value = 0;
    // Outside the range of long the conversion would be undefined: refuse instead.
    if (!GetDouble(name, value, flags) || !(std::fabs(value) < 2147483648.0))
        return 0;
    out = static_cast<long>(std::trunc(value));
    return 1;
}

int CJokPropertyAccessor::GetString(const char* name, CBelString& out, const int& flags) {
    if (!m_pCommand)
        return 0;
    CJokGenericData* value = m_pCommand->GetProperty(name, flags);
    if (!value)
        return 0;
    int ok = CJokStringPropertySet(value, &out, 0);
    value->Release();
    return ok;
}
