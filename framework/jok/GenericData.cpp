#include "framework/jok/GenericData.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/COMObject.h"

const char* JokGdTypeDescription(int type) {
    switch (type) {
    case JOKGD_NONE:
        return "nothing";
    case JOKGD_NULL:
        return "null";
    case JOKGD_BOOLEAN:
        return "a boolean";
    case JOKGD_DOUBLE:
        return "a number";
    case JOKGD_STRING:
        return "a string";
    case JOKGD_VECTOR:
        return "a vector";
    case JOKGD_OBJECT:
        return "an object";
    }
    return "an unknown value";
}

unsigned long CJokGenericData::AddRef() const {
    return static_cast<unsigned long>(++m_RefCount);
}

unsigned long CJokGenericData::Release() const {
    long count = --m_RefCount;
    if (count < 0) {
        BelDisplayAssert("m_RefCount >= 0", __FILE__, __LINE__);
        return 0;
    }
    if (count == 0)
        delete this;
    return static_cast<unsigned long>(count);
}

CJokGdNone* CJokGdNone::Allocate() {
    return new CJokGdNone;
}

int CJokGdNone::IsEqual(const CJokGenericData* other) const {
    return other && other->GetType() == JOKGD_NONE;
}

CJokGdNull* CJokGdNull::Allocate() {
    return new CJokGdNull;
}

int CJokGdNull::IsEqual(const CJokGenericData* other) const {
    return other && other->GetType() == JOKGD_NULL;
}

CJokGdBoolean* CJokGdBoolean::Allocate(int value) {
    return new CJokGdBoolean(value);
}

int CJokGdBoolean::IsEqual(const CJokGenericData* other) const {
    return other && other->GetType() == JOKGD_BOOLEAN &&
           static_cast<const CJokGdBoolean*>(other)->m_Value == m_Value;
}

CJokGdDouble* CJokGdDouble::Allocate(double value) {
    return new CJokGdDouble(value);
}

int CJokGdDouble::IsEqual(const CJokGenericData* other) const {
    return other && other->GetType() == JOKGD_DOUBLE &&
           static_cast<const CJokGdDouble*>(other)->m_Value == m_Value;
}

CJokGdString* CJokGdString::Allocate(const char* text) {
    return new CJokGdString(CBelString(text));
}

CJokGdString* CJokGdString::Allocate(const CBelString& text) {
    return new CJokGdString(text);
}

int CJokGdString::IsEqual(const CJokGenericData* other) const {
    return other && other->GetType() == JOKGD_STRING &&
           static_cast<const CJokGdString*>(other)->m_Text == m_Text;
}

CJokGdVector* CJokGdVector::Allocate(int size) {
    return new CJokGdVector(size < 0 ? 0 : size);
}

CJokGdVector* CJokGdVector::AllocateNumbers(const double* values, int count) {
    CJokGdVector* vector = Allocate(count);
    for (int i = 0; i < count; ++i) {
        CJokGdDouble* number = CJokGdDouble::Allocate(values[i]);
        vector->SetElement(i, number);
        number->Release();
    }
    return vector;
}

CJokGdVector::~CJokGdVector() {
    for (CJokGenericData* element : m_Elements) {
        if (element)
            element->Release();
    }
}

CJokGenericData* CJokGdVector::GetElement(int index) const {
    if (index < 0 || index >= GetSize())
        return nullptr;
    return m_Elements[static_cast<size_t>(index)];
}

int CJokGdVector::SetElement(int index, CJokGenericData* value) {
    if (index < 0 || index >= GetSize())
        return 0;
    if (value)
        value->AddRef();
    CJokGenericData*& slot = m_Elements[static_cast<size_t>(index)];
    if (slot)
        slot->Release();
    slot = value;
    return 1;
}

int CJokGdVector::IsEqual(const CJokGenericData* other) const {
    if (!other || other->GetType() != JOKGD_VECTOR)
        return 0;
    const CJokGdVector* that = static_cast<const CJokGdVector*>(other);
    if (that->GetSize() != GetSize())
        return 0;
    for (int i = 0; i < GetSize(); ++i) {
        const CJokGenericData* a = GetElement(i);
        const CJokGenericData* b = that->GetElement(i);
        if (a == b)
            continue;
        if (!a || !b || !a->IsEqual(b))
            return 0;
    }
    return 1;
}

CJokGdObject* CJokGdObject::Allocate(CJokCOMObject* object) {
    if (!object) {
        BelDisplayAssert("object", __FILE__, __LINE__);
        return nullptr;
    }
    object->ExternalAddRef();
    return new CJokGdObject(object->GetIUnknown());
}

CJokGdObject* CJokGdObject::Allocate(IUnknown* unknown, int addRef) {
    if (!unknown) {
        BelDisplayAssert("unknown", __FILE__, __LINE__);
        return nullptr;
    }
    if (addRef)
        unknown->AddRef();
    return new CJokGdObject(unknown);
}

CJokGdObject::~CJokGdObject() {
    m_pUnknown->Release();
}

CJokCOMObject* CJokGdObject::GetCOMObject() const {
    return CJokCOMObject::FromIUnknown(m_pUnknown);
}

int CJokGdObject::GetInterface(const IID& iid, void** out, const char*) const {
    if (!out)
        return 0;
    *out = nullptr;
    return m_pUnknown->QueryInterface(iid, out) == S_OK && *out;
}

namespace {

// The canonical IUnknown, compared for object identity; answers a borrowed pointer.
IUnknown* Identity(IUnknown* unknown) {
    void* canonical = nullptr;
    if (unknown->QueryInterface(IID_IUnknown, &canonical) != S_OK || !canonical)
        return unknown;
    static_cast<IUnknown*>(canonical)->Release();
    return static_cast<IUnknown*>(canonical);
}

} // namespace

int CJokGdObject::IsEqual(const CJokGenericData* other) const {
    if (!other || other->GetType() != JOKGD_OBJECT)
        return 0;
    IUnknown* that = static_cast<const CJokGdObject*>(other)->m_pUnknown;
    return that == m_pUnknown || Identity(that) == Identity(m_pUnknown);
}

JokAssocArray::JokAssocArray(const CJokGenericData* data) {
    if (!data || data->GetType() != JOKGD_VECTOR)
        return;
    const CJokGdVector* vector = static_cast<const CJokGdVector*>(data);
    if (vector->GetSize() % 2 != 0)
        return;
    for (int i = 0; i < vector->GetSize(); i += 2) {
        const CJokGenericData* name = vector->GetElement(i);
        if (!name || name->GetType() != JOKGD_STRING) {
            for (SItem& item : m_Items) {
                if (item.m_pValue)
                    item.m_pValue->Release();
            }
            m_Items.clear();
            return;
        }
        CJokGenericData* value = vector->GetElement(i + 1);
        if (value)
            value->AddRef();
        m_Items.push_back({static_cast<const CJokGdString*>(name)->GetString(), value});
    }
    m_Valid = 1;
}

JokAssocArray::~JokAssocArray() {
    for (SItem& item : m_Items) {
        if (item.m_pValue)
            item.m_pValue->Release();
    }
}

CJokGenericData* JokAssocArray::Lookup(const char* name) const {
    for (const SItem& item : m_Items) {
        if (item.m_Name == name)
            return item.m_pValue;
    }
    return nullptr;
}

CJokGenericDataContainer::~CJokGenericDataContainer() {
    for (CJokGenericData* field : m_Fields) {
        if (field)
            field->Release();
    }
}

void CJokGenericDataContainer::AddProperty(const char* name, CJokGenericData* value) {
    m_Fields.push_back(CJokGdString::Allocate(name));
    if (value)
        value->AddRef();
    m_Fields.push_back(value);
}

void CJokGenericDataContainer::AddProperty(const char* name, double value) {
    CJokGenericData* data = CJokGdDouble::Allocate(value);
    AddProperty(name, data);
    data->Release();
}

void CJokGenericDataContainer::AddProperty(const char* name, const CBelString& value) {
    CJokGenericData* data = CJokGdString::Allocate(value);
    AddProperty(name, data);
    data->Release();
}

CJokGdVector* CJokGenericDataContainer::GetData() const {
    CJokGdVector* record = CJokGdVector::Allocate(static_cast<int>(m_Fields.size()));
    for (size_t i = 0; i < m_Fields.size(); ++i)
        record->SetElement(static_cast<int>(i), m_Fields[i]);
    return record;
}
