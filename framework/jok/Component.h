// CJokComponent: the base of every scriptable component.
//
// A component is a CJokCOMObject with a name ("Splitter"), properties and methods. Hosts reach
// it through its IJokCommand interface (answered by its interface map), whose GetProperty,
// SetProperty and GetPropertyEnumerator call the component's own virtual operations; a script
// object value holds the component's IUnknown.
//
// Property results follow one convention at every level: GetProperty answers a new reference
// or nullptr (nothing here); SetProperty answers 1 (set), 0 (refused) or -1 (no such name
// here), so that a derived class can pass unknown names on to its base. Components built on a
// property map answer through it (see PropertyMap.h) and fall back to their base.
#pragma once

#include "framework/jok/COMObject.h"
#include "framework/jok/Command.h"

class CJokCommandContext;
class CJokGdSerialiser;
class CJokGenericData;
class CJokPropertyEnum;
struct IJokDataStore;

class CJokComponent : public CJokCOMObject {
public:
    explicit CJokComponent(const char* name);

    // Virtual slots, continuing CJokCOMObject's (destructor, OnFinalRelease, GetInterfaceMap,
    // OnCreateAggregates, GetInterfaceHook) in this order.
    ~CJokComponent() override;
    void OnFinalRelease() override;
    const _JOKCOM_IF_Map* GetInterfaceMap() const override;
    int OnCreateAggregates() override;
    void* GetInterfaceHook(const IID& iid) override;
    // Persistence hooks; the base stores nothing and answers 0.
    virtual int OnWriteData(const char* name, IJokDataStore* store);
    virtual int OnReadData(const char* name, IJokDataStore* store);
    // Calling the component itself; the base is not callable and answers 0.
    virtual int CallMethod(CJokCommandContext* context);
    virtual int OnSerialise(CJokGdSerialiser* serialiser);
    // Returns a new reference in *value when it answers non-zero.
    virtual int OnDeserialise(CJokGdSerialiser* serialiser, CJokGenericData** value);
    // The creation function's name: "Create" followed by the component name.
    virtual CBelString OnGetCreationName();
    // Returns a new reference, or nullptr: the base has no properties.
    virtual CJokGenericData* GetProperty(const char* name, int flags);
    // Borrows value. The base has no properties and answers -1.
    virtual int SetProperty(const char* name, CJokGenericData* value);
    // Returns a new enumerator that the caller deletes; the base has none (nullptr).
    virtual CJokPropertyEnum* GetPropertyEnumerator();
    // Derived-object and watch hooks of the scripting system; unused here, answer 0.
    virtual int AsteriskDerived(IUnknown** derived, int flags);
    virtual int AsteriskWatch(int* watch, int flags);

    const CBelString& GetComponentName() const { return m_ComponentName; }
    // The component's IJokCommand, borrowed.
    IJokCommand* GetCommand() { return &m_xCommand; }

    static const _JOKCOM_IF_Map sm_InterfaceMap;

protected:
    // Calls a script callback with the context's arguments and this component last. The callback
    // and the component stay alive through the call, as the script may drop either from inside;
    // once the context goes, the component may be gone too.
    void CallScript(IJokCommand* callback, CJokCommandContext& context);

private:
    // The IJokCommand face of the component; its reference count is the component's.
    struct XCommand : IJokCommand {
        explicit XCommand(CJokComponent* owner) : m_pOwner(owner) {}
        HRESULT QueryInterface(const IID& iid, void** object) override;
        unsigned long AddRef() override;
        unsigned long Release() override;
        CJokGenericData* GetProperty(const char* name, int flags) override;
        int SetProperty(const char* name, CJokGenericData* value) override;
        int CallMethod(CJokCommandContext* context) override;
        CJokPropertyEnum* GetPropertyEnumerator() override;
        CJokComponent* m_pOwner;
    };

    static const _JOKCOM_IF_Entry sm_InterfaceEntries[];

    CBelString m_ComponentName;
    XCommand m_xCommand{this};
};
