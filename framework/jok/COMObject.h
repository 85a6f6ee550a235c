// CJokCOMObject: the reference-counted base of every scriptable object, with a table-driven
// interface map.
//
// An object starts with one reference, owned by whoever constructed it. When the count reaches
// zero OnFinalRelease runs; by default it deletes the object, and objects with static lifetime
// (the module object) override it to do nothing.
//
// Interfaces are found through GetInterfaceHook first, then through the interface maps of the
// class and its bases (each map points at its base's map). A class adds interfaces by defining
// a static entry table and a static map, and answering that map from GetInterfaceMap:
//
//     const _JOKCOM_IF_Entry CMyCom::sm_InterfaceEntries[] = {
//         {&IID_IMyThing, [](CJokCOMObject* o) -> void* {
//              return static_cast<IMyThing*>(&static_cast<CMyCom*>(o)->m_xMyThing); }},
//         {nullptr, nullptr}};
//     const _JOKCOM_IF_Map CMyCom::sm_InterfaceMap = {&CJokComponent::sm_InterfaceMap,
//                                                     sm_InterfaceEntries};
//
// The object's own IUnknown is a member (m_xUnknown) rather than a base class so that the
// object's own virtual slots come first, in the order its users depend on.
#pragma once

#include "framework/bel/BelString.h"
#include "framework/bel/WinTypes.h"

#include <atomic>
#include <mutex>

class CJokCOMObject;

// One interface of a class: its identifier and how to reach the interface from the object
// (answers a borrowed pointer; the caller adds the reference).
struct _JOKCOM_IF_Entry {
    const IID* m_pIID;
    void* (*m_pGetter)(CJokCOMObject* object);
};

// A class's interface table, ended by a {nullptr, nullptr} entry, and its base class's table.
struct _JOKCOM_IF_Map {
    const _JOKCOM_IF_Map* m_pBaseMap;
    const _JOKCOM_IF_Entry* m_pEntries;
};

// Asking an IUnknown for this identifier answers the CJokCOMObject behind it (with one
// reference), so that a value holding only an IUnknown can reach its object again. Objects of
// other origins answer E_NOINTERFACE.
// {6A3D2C10-5B7E-4C1F-9E2A-1F0B7D4C8E01}
inline constexpr IID IID_JokCOMObjectIdentity = {
    0x6A3D2C10, 0x5B7E, 0x4C1F, {0x9E, 0x2A, 0x1F, 0x0B, 0x7D, 0x4C, 0x8E, 0x01}};

class CJokCOMObject {
public:
    CJokCOMObject();
    CJokCOMObject(const CJokCOMObject&) = delete;
    CJokCOMObject& operator=(const CJokCOMObject&) = delete;

    // Virtual slots, in this order: destructor, OnFinalRelease, GetInterfaceMap,
    // OnCreateAggregates, GetInterfaceHook.
    virtual ~CJokCOMObject();
    // Runs when the last reference goes; deletes the object unless overridden.
    virtual void OnFinalRelease();
    virtual const _JOKCOM_IF_Map* GetInterfaceMap() const;
    // Runs once, before the first interface lookup; answer 0 to make lookups fail.
    virtual int OnCreateAggregates();
    // Answers a borrowed interface pointer for iid, or nullptr to continue with the maps.
    virtual void* GetInterfaceHook(const IID& iid);

    // Objects are never aggregated here, so the external and internal counts are one count.
    unsigned long AddRef();
    unsigned long Release();
    unsigned long ExternalAddRef() { return AddRef(); }
    unsigned long ExternalRelease() { return Release(); }
    // On S_OK *object holds the interface with one reference for the caller; otherwise nullptr.
    HRESULT ExternalQueryInterface(const IID& iid, void** object);
    // Answers a borrowed interface pointer (no reference added), or nullptr.
    void* GetInterface(const IID& iid);

    // The object's IUnknown, borrowed. Its AddRef/Release/QueryInterface act on this object.
    IUnknown* GetIUnknown() { return &m_xUnknown; }
    // The object behind an IUnknown of this framework (borrowed), or nullptr for foreign ones.
    static CJokCOMObject* FromIUnknown(IUnknown* unknown);

    long GetRefCount() const { return m_RefCount.load(); }

    static const _JOKCOM_IF_Map sm_InterfaceMap;

private:
    struct XUnknown : IUnknown {
        explicit XUnknown(CJokCOMObject* owner) : m_pOwner(owner) {}
        HRESULT QueryInterface(const IID& iid, void** object) override;
        unsigned long AddRef() override;
        unsigned long Release() override;
        CJokCOMObject* m_pOwner;
    };

    static const _JOKCOM_IF_Entry sm_InterfaceEntries[];

    std::atomic<long> m_RefCount{1};
    std::once_flag m_AggregatesOnce;
    int m_AggregatesOk = 1;
    XUnknown m_xUnknown{this};
};

// "{067F572E-8416-11D0-BDFD-0020AF6FA161}" form, for messages and type names.
CBelString JokFormatIID(const IID& iid);
