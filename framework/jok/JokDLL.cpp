#include "framework/jok/JokDLL.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/Command.h"
#include "framework/jok/GenericData.h"

#include <dlfcn.h>
#include <map>
#include <mutex>
#include <string>

const _JOKCOM_IF_Entry CJokDLL::sm_InterfaceEntries[] = {
    {&IID_IJokModule,
     [](CJokCOMObject* o) -> void* {
         return static_cast<IJokModule*>(static_cast<CJokDLL*>(o)->GetModule());
     }},
    {nullptr, nullptr}};

const _JOKCOM_IF_Map CJokDLL::sm_InterfaceMap = {&CJokCOMObject::sm_InterfaceMap,
                                                 sm_InterfaceEntries};

CJokDLL::CJokDLL() = default;

CJokDLL::~CJokDLL() {
    for (SFunction& function : m_Functions)
        function.m_pFunction->Release();
}

void CJokDLL::OnFinalRelease() {
    // Static lifetime: hosts releasing their last reference must not end the object.
}

const _JOKCOM_IF_Map* CJokDLL::GetInterfaceMap() const {
    return &sm_InterfaceMap;
}

void CJokDLL::AppendFunction(IJokCommand* function) {
    if (!function) {
        BelDisplayAssert("function", __FILE__, __LINE__);
        return;
    }
    CBelString name;
    if (CJokGenericData* value = function->GetProperty("name", 0)) {
        if (value->GetType() == JOKGD_STRING)
            name = static_cast<CJokGdString*>(value)->GetString();
        value->Release();
    }
    m_Functions.push_back({name, function});
}

IJokCommand* CJokDLL::GetFunction(int index) const {
    if (index < 0 || index >= GetFunctionCount())
        return nullptr;
    return m_Functions[static_cast<size_t>(index)].m_pFunction;
}

IJokCommand* CJokDLL::FindFunction(const char* name) const {
    if (!name)
        return nullptr;
    for (const SFunction& function : m_Functions) {
        if (function.m_Name == name)
            return function.m_pFunction;
    }
    return nullptr;
}

HRESULT CJokDLL::XModule::QueryInterface(const IID& iid, void** object) {
    return m_pOwner->ExternalQueryInterface(iid, object);
}

unsigned long CJokDLL::XModule::AddRef() {
    return m_pOwner->ExternalAddRef();
}

unsigned long CJokDLL::XModule::Release() {
    return m_pOwner->ExternalRelease();
}

int CJokDLL::XModule::GetFunctionCount() {
    return m_pOwner->GetFunctionCount();
}

IJokCommand* CJokDLL::XModule::GetFunction(int index) {
    return m_pOwner->GetFunction(index);
}

IJokCommand* CJokDLL::XModule::FindFunction(const char* name) {
    return m_pOwner->FindFunction(name);
}

namespace {

struct SInterfaceNames {
    std::mutex m_Mutex;
    std::map<std::string, IID> m_ByName;
};

SInterfaceNames& InterfaceNames() {
    static SInterfaceNames names;
    return names;
}

} // namespace

void JokRegisterInterfaceIdName(const IID& iid, const char* name) {
    if (!name)
        return;
    SInterfaceNames& names = InterfaceNames();
    std::lock_guard<std::mutex> lock(names.m_Mutex);
    // One name per identifier: a new name replaces the old one.
    std::erase_if(names.m_ByName, [&](const auto& entry) { return entry.second == iid; });
    names.m_ByName.insert_or_assign(name, iid);
}

int JokGetInterfaceIdName(const IID& iid, CBelString* name) {
    SInterfaceNames& names = InterfaceNames();
    std::lock_guard<std::mutex> lock(names.m_Mutex);
    for (const auto& [registered, id] : names.m_ByName) {
        if (id == iid) {
            *name = CBelString(registered);
            return 1;
        }
    }
    return 0;
}

int JokGetInterfaceIdFromName(const char* name, IID* iid) {
    if (!name)
        return 0;
    SInterfaceNames& names = InterfaceNames();
    std::lock_guard<std::mutex> lock(names.m_Mutex);
    auto found = names.m_ByName.find(name);
    if (found == names.m_ByName.end())
        return 0;
    *iid = found->second;
    return 1;
}

void* JokLoadLibrary(const char* name) {
    void* library = dlopen(name, RTLD_NOW | RTLD_LOCAL);
    if (!library) {
        const char* why = dlerror();
        BelDump("JokLoadLibrary -> %s\n", why ? why : "cannot load library");
    }
    return library;
}

void* JokGetLibrarySymbol(void* library, const char* symbol) {
    if (!library || !symbol)
        return nullptr;
    return dlsym(library, symbol);
}

void JokFreeLibrary(void* library) {
    if (library)
        dlclose(library);
}
