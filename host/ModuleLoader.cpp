#include "host/ModuleLoader.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/JokDLL.h"

#include <dlfcn.h>

CModuleLoader::~CModuleLoader() {
    if (m_pModule) {
        m_pModule->Release();
    }
}

bool CModuleLoader::Load(const std::string& path) {
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) {
        const char* why = dlerror();
        m_Error = "cannot load the module: " + std::string(why ? why : path);
        return false;
    }
    using GetInterface = unsigned long (*)(void**);
    auto getInterface = reinterpret_cast<GetInterface>(dlsym(library, "zor_GetInterface"));
    if (!getInterface) {
        m_Error = path + ": no zor_GetInterface (not a Zor module)";
        return false;
    }
    BelRunInitialisers();
    void* raw = nullptr;
    if (getInterface(&raw) != 0 || !raw) {
        m_Error = path + ": zor_GetInterface failed";
        return false;
    }
    auto* unknown = static_cast<IUnknown*>(raw);
    void* module = nullptr;
    const HRESULT found = unknown->QueryInterface(IID_IJokModule, &module);
    unknown->Release();
    if (found != S_OK || !module) {
        m_Error = path + ": the module object has no IJokModule";
        return false;
    }
    m_pModule = static_cast<IJokModule*>(module);
    return true;
}
