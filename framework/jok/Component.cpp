#include "framework/jok/Component.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/Property.h"

const _JOKCOM_IF_Entry CJokComponent::sm_InterfaceEntries[] = {
    {&IID_IJokCommand,
     [](CJokCOMObject* o) -> void* {
         return static_cast<IJokCommand*>(static_cast<CJokComponent*>(o)->GetCommand());
     }},
    {nullptr, nullptr}};

const _JOKCOM_IF_Map CJokComponent::sm_InterfaceMap = {&CJokCOMObject::sm_InterfaceMap,
                                                       sm_InterfaceEntries};

CJokComponent::CJokComponent(const char* name) : m_ComponentName(name) {}

CJokComponent::~CJokComponent() = default;

void CJokComponent::OnFinalRelease() {
    CJokCOMObject::OnFinalRelease();
}

const _JOKCOM_IF_Map* CJokComponent::GetInterfaceMap() const {
    return &sm_InterfaceMap;
}

int CJokComponent::OnCreateAggregates() {
    return CJokCOMObject::OnCreateAggregates();
}

void* CJokComponent::GetInterfaceHook(const IID& iid) {
    return CJokCOMObject::GetInterfaceHook(iid);
}

int CJokComponent::OnWriteData(const char*, IJokDataStore*) {
    return 0;
}

int CJokComponent::OnReadData(const char*, IJokDataStore*) {
    return 0;
}

int CJokComponent::CallMethod(CJokCommandContext*) {
    return 0;
}

int CJokComponent::OnSerialise(CJokGdSerialiser*) {
    return 0;
}

int CJokComponent::OnDeserialise(CJokGdSerialiser*, CJokGenericData**) {
    return 0;
}

CBelString CJokComponent::OnGetCreationName() {
    return "Create" + m_ComponentName;
}

CJokGenericData* CJokComponent::GetProperty(const char*, int) {
    return nullptr;
}

int CJokComponent::SetProperty(const char*, CJokGenericData*) {
    return -1;
}

CJokPropertyEnum* CJokComponent::GetPropertyEnumerator() {
    return nullptr;
}

int CJokComponent::AsteriskDerived(IUnknown**, int) {
    return 0;
}

int CJokComponent::AsteriskWatch(int*, int) {
    return 0;
}

HRESULT CJokComponent::XCommand::QueryInterface(const IID& iid, void** object) {
    return m_pOwner->ExternalQueryInterface(iid, object);
}

unsigned long CJokComponent::XCommand::AddRef() {
    return m_pOwner->ExternalAddRef();
}

unsigned long CJokComponent::XCommand::Release() {
    return m_pOwner->ExternalRelease();
}

// The component boundary every host crosses: no exception leaves a component. A failed read
// reports and gives nothing; a failed write is a refusal with the reason.
CJokGenericData* CJokComponent::XCommand::GetProperty(const char* name, int flags) {
    try {
        return m_pOwner->GetProperty(name, flags);
    } catch (...) {
        const CBelString where = m_pOwner->GetComponentName() + "::GetProperty";
        BelDumpCurrentException(where.c_str(), "the property gives nothing");
        return nullptr;
    }
}

int CJokComponent::XCommand::SetProperty(const char* name, CJokGenericData* value) {
    try {
        return m_pOwner->SetProperty(name, value);
    } catch (...) {
        return JokRefuseProperty(BelDescribeCurrentException().c_str());
    }
}

int CJokComponent::XCommand::CallMethod(CJokCommandContext* context) {
    return JokGuardedCall(context, m_pOwner->GetComponentName().c_str(),
                          [&] { return m_pOwner->CallMethod(context); });
}

CJokPropertyEnum* CJokComponent::XCommand::GetPropertyEnumerator() {
    try {
        return m_pOwner->GetPropertyEnumerator();
    } catch (...) {
        const CBelString where = m_pOwner->GetComponentName() + "::GetPropertyEnumerator";
        BelDumpCurrentException(where.c_str(), "no properties are listed");
        return nullptr;
    }
}

void CJokComponent::CallScript(IJokCommand* callback, CJokCommandContext& context) {
    callback->AddRef();
    ExternalAddRef();
    context.AddParam(nullptr, static_cast<CJokCOMObject*>(this));
    callback->CallMethod(&context);
    callback->Release();
    ExternalRelease();
}
