// CJokDLL: the module object of a component library - the one object a host reaches through
// the library's entry point - with the list of the library's callable functions, and the
// process-wide services that go with loading libraries: interface-id names and loading.
//
// A host finds functions through IJokModule:
//
//     IUnknown* unknown = ...;                    // from the library's entry point
//     IJokModule* module = nullptr;
//     unknown->QueryInterface(IID_IJokModule, reinterpret_cast<void**>(&module));
//     IJokCommand* create = module->FindFunction("CreateSplitter"); // borrowed
//     CJokCommandContext context;
//     context.SetCallName("CreateSplitter");
//     context.AddParam("dataPath", "video");
//     create->CallMethod(&context);
//     CJokGenericData* splitter = context.DetachReturnValue(); // new reference, or nullptr
//     module->Release();
#pragma once

#include "framework/jok/COMObject.h"

#include <vector>

struct IJokCommand;

// {B3F2E6A1-4C7D-4E8B-A5D0-2F9C61E4B7A3}
inline constexpr IID IID_IJokModule = {
    0xB3F2E6A1, 0x4C7D, 0x4E8B, {0xA5, 0xD0, 0x2F, 0x9C, 0x61, 0xE4, 0xB7, 0xA3}};

struct IJokModule : IUnknown {
    virtual int GetFunctionCount() = 0;
    // Borrowed (valid while the module lives); nullptr out of range.
    virtual IJokCommand* GetFunction(int index) = 0;
    // Borrowed; the first function whose "name" property is name, or nullptr.
    virtual IJokCommand* FindFunction(const char* name) = 0;

protected:
    ~IJokModule() = default;
};

// Lives as long as the library (a static object): reaching a count of zero does not delete it.
// Its destruction releases the functions it holds, so functions that are themselves static
// objects must still be alive then (construct the module object after them, for instance as a
// function-local static made on first use).
class CJokDLL : public CJokCOMObject {
public:
    CJokDLL();
    ~CJokDLL() override;

    void OnFinalRelease() override;
    const _JOKCOM_IF_Map* GetInterfaceMap() const override;

    // Takes the caller's reference to function. The function's name is read once, here.
    void AppendFunction(IJokCommand* function);
    int GetFunctionCount() const { return static_cast<int>(m_Functions.size()); }
    IJokCommand* GetFunction(int index) const;         // borrowed
    IJokCommand* FindFunction(const char* name) const; // borrowed

    IJokModule* GetModule() { return &m_xModule; } // borrowed

    static const _JOKCOM_IF_Map sm_InterfaceMap;

private:
    struct XModule : IJokModule {
        explicit XModule(CJokDLL* owner) : m_pOwner(owner) {}
        HRESULT QueryInterface(const IID& iid, void** object) override;
        unsigned long AddRef() override;
        unsigned long Release() override;
        int GetFunctionCount() override;
        IJokCommand* GetFunction(int index) override;
        IJokCommand* FindFunction(const char* name) override;
        CJokDLL* m_pOwner;
    };
    struct SFunction {
        CBelString m_Name;
        IJokCommand* m_pFunction; // one reference
    };

    static const _JOKCOM_IF_Entry sm_InterfaceEntries[];

    std::vector<SFunction> m_Functions;
    XModule m_xModule{this};
};

// Gives an interface identifier a name in the scripting system (the latest name wins). Both
// lookups answer 0 when nothing is registered.
void JokRegisterInterfaceIdName(const IID& iid, const char* name);
int JokGetInterfaceIdName(const IID& iid, CBelString* name);
int JokGetInterfaceIdFromName(const char* name, IID* iid);

// Loads a further library by file name; answers its handle, or nullptr after writing the
// loader's complaint to the diagnostic output.
void* JokLoadLibrary(const char* name);
// The address of an exported symbol of a loaded library, or nullptr.
void* JokGetLibrarySymbol(void* library, const char* symbol);
void JokFreeLibrary(void* library);
