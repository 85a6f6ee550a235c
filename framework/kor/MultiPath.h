// CKor2PinMultiPath<TModule>: a two-pin component that owns one processing module of type TModule
// per data path, made from a "paths" value (a vector of path names) given at creation.
//
// The component keeps the path names in the order given and the modules in the order they were
// made, each beside the path it serves. The most derived class calls JoinPaths() at the end of
// its constructor (a base cannot reach the derived MakeModule before then); a path reached later
// by an explicit connection gets its module on first request as well.
#pragma once

#include "framework/jok/GenericData.h"
#include "framework/kor/PinComponent.h"

#include <utility>
#include <vector>

template <class TModule> class CKor2PinMultiPath : public CKor2PinComponent {
public:
    // Borrows paths (may be nullptr; the component adds its own reference). Elements that are not
    // strings are skipped.
    CKor2PinMultiPath(const char* componentName, CJokGdVector* paths, const char* moduleName)
        : CKor2PinComponent(componentName), m_pPaths(paths), m_ModuleName(moduleName) {
        if (!m_pPaths) {
            return;
        }
        m_pPaths->AddRef();
        for (int i = 0; i < m_pPaths->GetSize(); ++i) {
            const CJokGenericData* element = m_pPaths->GetElement(i);
            if (element && element->GetType() == JOKGD_STRING) {
                m_PathNames.push_back(static_cast<const CJokGdString*>(element)->GetString());
            }
        }
    }
    ~CKor2PinMultiPath() override {
        if (m_pPaths) {
            m_pPaths->Release();
        }
    }

    CKorModule* CreateContext(const char* path) override {
        if (CKorModule* existing = _GetContext(path)) {
            return existing;
        }
        TModule* module = MakeModule(path);
        m_Modules.emplace_back(CBelString(path), module);
        return RememberContext(path, module);
    }

    const std::vector<CBelString>& GetPathNames() const { return m_PathNames; }
    // Each module (borrowed; the bus owns it) beside the path it serves, in the order made.
    const std::vector<std::pair<CBelString, TModule*>>& GetModules() const { return m_Modules; }
    const CBelString& GetModuleName() const { return m_ModuleName; }

protected:
    // A new module for the path; the bus owns it from now on.
    virtual TModule* MakeModule(const char* path) = 0;

    void JoinPaths() {
        for (const CBelString& path : m_PathNames) {
            ConnectPath(path);
        }
    }

private:
    CJokGdVector* m_pPaths; // one reference, or nullptr
    CBelString m_ModuleName;
    std::vector<CBelString> m_PathNames;
    std::vector<std::pair<CBelString, TModule*>> m_Modules;
};
