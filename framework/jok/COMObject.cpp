#include "framework/jok/COMObject.h"

#include "framework/bel/BelDiagnostics.h"

const _JOKCOM_IF_Entry CJokCOMObject::sm_InterfaceEntries[] = {
    {&IID_IUnknown, [](CJokCOMObject* o) -> void* { return o->GetIUnknown(); }},
    {&IID_JokCOMObjectIdentity, [](CJokCOMObject* o) -> void* { return o; }},
    {nullptr, nullptr}};

const _JOKCOM_IF_Map CJokCOMObject::sm_InterfaceMap = {nullptr, sm_InterfaceEntries};

CJokCOMObject::CJokCOMObject() = default;

CJokCOMObject::~CJokCOMObject() = default;

void CJokCOMObject::OnFinalRelease() {
    delete this;
}

const _JOKCOM_IF_Map* CJokCOMObject::GetInterfaceMap() const {
    return &sm_InterfaceMap;
}

int CJokCOMObject::OnCreateAggregates() {
    return 1;
}

void* CJokCOMObject::GetInterfaceHook(const IID&) {
    return nullptr;
}

unsigned long CJokCOMObject::AddRef() {
    return static_cast<unsigned long>(++m_RefCount);
}

unsigned long CJokCOMObject::Release() {
    long count = --m_RefCount;
    if (count < 0) {
        BelDisplayAssert("m_RefCount >= 0", __FILE__, __LINE__);
        return 0;
    }
    if (count == 0)
        OnFinalRelease();
    return static_cast<unsigned long>(count);
}

void* CJokCOMObject::GetInterface(const IID& iid) {
    std::call_once(m_AggregatesOnce, [this] { m_AggregatesOk = OnCreateAggregates(); });
    if (!m_AggregatesOk)
        return nullptr;
    if (void* hooked = GetInterfaceHook(iid))
        return hooked;
    for (const _JOKCOM_IF_Map* map = GetInterfaceMap(); map; map = map->m_pBaseMap) {
        for (const _JOKCOM_IF_Entry* entry = map->m_pEntries; entry->m_pIID; ++entry) {
            if (*entry->m_pIID == iid)
                return entry->m_pGetter(this);
        }
    }
    return nullptr;
}

HRESULT CJokCOMObject::ExternalQueryInterface(const IID& iid, void** object) {
    if (!object)
        return E_POINTER;
    *object = GetInterface(iid);
    if (!*object)
        return E_NOINTERFACE;
    ExternalAddRef();
    return S_OK;
}

CJokCOMObject* CJokCOMObject::FromIUnknown(IUnknown* unknown) {
    if (!unknown)
        return nullptr;
    void* object = nullptr;
    if (unknown->QueryInterface(IID_JokCOMObjectIdentity, &object) != S_OK || !object)
        return nullptr;
    CJokCOMObject* self = static_cast<CJokCOMObject*>(object);
    // The caller borrows; the object is kept alive by the reference behind `unknown`.
    self->Release();
    return self;
}

HRESULT CJokCOMObject::XUnknown::QueryInterface(const IID& iid, void** object) {
    return m_pOwner->ExternalQueryInterface(iid, object);
}

unsigned long CJokCOMObject::XUnknown::AddRef() {
    return m_pOwner->ExternalAddRef();
}

unsigned long CJokCOMObject::XUnknown::Release() {
    return m_pOwner->ExternalRelease();
}

CBelString JokFormatIID(const IID& iid) {
    CBelString text;
    text.Format("{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", iid.Data1, iid.Data2,
                iid.Data3, iid.Data4[0], iid.Data4[1], iid.Data4[2], iid.Data4[3], iid.Data4[4],
                iid.Data4[5], iid.Data4[6], iid.Data4[7]);
    return text;
}
