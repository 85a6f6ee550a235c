// CModuleLoader: loads the Zor module (libzor.so) at run time and reaches its module object.
//
// Loading follows the module's entry contract: dlopen, run the load-time initialisers once, call
// zor_GetInterface, and ask the answered IUnknown for IJokModule. The library stays loaded for
// the rest of the process: packets and formats the module made may outlive the script.
#pragma once

#include <string>

struct IJokModule;

class CModuleLoader {
public:
    CModuleLoader() = default;
    // Releases the module interface.
    ~CModuleLoader();
    CModuleLoader(const CModuleLoader&) = delete;
    CModuleLoader& operator=(const CModuleLoader&) = delete;

    // Answers false with Error() saying why in one line.
    bool Load(const std::string& path);
    IJokModule* Module() const { return m_pModule; } // borrowed
    const std::string& Error() const { return m_Error; }

private:
    IJokModule* m_pModule = nullptr; // one reference
    std::string m_Error;
};
