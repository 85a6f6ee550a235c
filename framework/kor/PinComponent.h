// Pin components: the framework side of scriptable components, and data paths.
//
// A data path is a named processing chain ("video", "audio" ...). A component that takes part in
// a path supplies, for that path, its processing module: its context, made on first request by
// CreateContext and kept by the component's bus for the component's life.
//
// Joining a path by name (ConnectPath) appends the component's context to the path's chain: it
// is linked below the module of the last member that gives packets out, and, when the component
// gives packets out itself (a source, a splitter port, any two-pin component), it becomes that
// last member. An input-only component (a sink, a splitter) ends the chain. The one exception
// to joining order: a source (an output-only member with nothing upstream) that joins a path
// whose first members are still waiting for input is linked above the first of them, so a
// script may make the source last. Besides joining by name, CDataPathRegistry::Connect links one
// component's context to another's on a named path explicitly; the two ways can be mixed to
// build any graph.
//
// Open ends: a packet that falls off a chain (into the null module) makes the registry look at
// the graph (only when it changed since it last looked) and report, once per path, the member
// after which packets fall off ("data path 'a' is not linked after AudioDecoder: ..."), and
// members left with nothing upstream. A refused link says why: which paths the component serves.
#pragma once

#include "framework/bel/BelString.h"
#include "framework/jok/Component.h"

#include <cstring>
#include <map>
#include <memory>
#include <vector>

class CKorModule;
class CKorBus;

// One pin of a bus: its index and direction.
struct KorBusPin {
    int m_Index = 0;
    bool m_IsInput = false;
    CKorBus* m_pBus = nullptr;
};

// Binds a pin, within one data path, to the module that serves it.
class CKorConnector {
public:
    CKorConnector(int pinIndex, CKorModule* module) : m_PinIndex(pinIndex), m_pModule(module) {}
    virtual ~CKorConnector() = default;
    int GetPinIndex() const { return m_PinIndex; }
    CKorModule* GetModule() const { return m_pModule; } // borrowed

private:
    int m_PinIndex;
    CKorModule* m_pModule;
};

class CKorModuleConnector : public CKorConnector {
public:
    CKorModuleConnector(int pinIndex, CKorModule* module) : CKorConnector(pinIndex, module) {}
    CKorModuleConnector(int pinIndex, CKorModule* module, const char* path)
        : CKorConnector(pinIndex, module), m_Path(path) {}
    const CBelString& GetPath() const { return m_Path; }

private:
    CBelString m_Path;
};

// The framework side of a component: its pins and its contexts, one per data path.
class CKorBus {
public:
    enum EPinRole { PINS_INPUT = 1, PINS_OUTPUT = 2, PINS_BOTH = 3 };

    explicit CKorBus(EPinRole role);
    // Leaves every data path and deletes the contexts.
    virtual ~CKorBus();
    CKorBus(const CKorBus&) = delete;
    CKorBus& operator=(const CKorBus&) = delete;

    // Links this bus's output on the path to the input of the bus behind other (a component).
    virtual int MakeConnections(int pin, IUnknown* other, const char* path);
    // A new connector for the pin on the path (the caller releases it with ReleaseConnector).
    virtual CKorConnector* GetConnector(int pin, const char* path);
    // Unlinks the context of the path from both its neighbours.
    virtual int Disconnect(int pin, const char* path);
    virtual CKorConnector* _GetConnector(const char* path);
    // The processing module of the path (borrowed), made when there is none. The base makes
    // none and answers nullptr: every component overrides it.
    virtual CKorModule* CreateContext(const char* path);
    // Called on every live bus when a new data path comes into being.
    virtual void DataPathCreated(const char* path);
    virtual int GetPin(KorBusPin** pin);
    virtual void ReleaseConnector(CKorConnector* connector, void* reserved, const char* path);

    // The context already made for the path (borrowed), or nullptr.
    CKorModule* _GetContext(const char* path) const;
    // Joins the data path of that name (see the top of this file).
    void ConnectPath(const char* path);
    EPinRole GetPinRole() const { return m_Role; }
    // The paths this bus has joined by name, in joining order.
    const std::vector<CBelString>& JoinedPaths() const { return m_JoinedPaths; }
    // The paths it has a context for, in name order.
    std::vector<CBelString> ContextPaths() const;
    // How messages name the component ("AudioDecoder"): its component name when it is one.
    CBelString DescribeBus() const;
    // Whether packets may fall off after this member on the path by design, so that the open-end
    // report leaves it out. No by default.
    virtual bool MayEndOpen(const char* path) const;

    // The bus behind a component's IUnknown, or nullptr when it is not a pin component.
    static CKorBus* FromUnknown(IUnknown* unknown);

protected:
    KorBusPin* PinAt(int index) { return &m_Pins[index]; }
    // Keeps a new context for the path; the bus owns it from now on. Answers it.
    CKorModule* RememberContext(const char* path, CKorModule* module);
    // For a component that serves one named path: the module of that path, made by make() on
    // first request (the bus owns it from then on); nullptr for any other path.
    template <class Make>
    CKorModule* OnePathContext(const char* path, const char* only, Make make) {
        if (!path || std::strcmp(path, only) != 0) {
            return nullptr;
        }
        if (CKorModule* existing = _GetContext(path)) {
            return existing;
        }
        return RememberContext(path, make());
    }
    // For a component with a single module: the first path that asks takes it over (the bus
    // owns it from then on); any other path gets nullptr.
    template <class M> CKorModule* SingleContext(const char* path, std::unique_ptr<M>& owned) {
        if (CKorModule* existing = _GetContext(path)) {
            return existing;
        }
        return owned ? RememberContext(path, owned.release()) : nullptr;
    }
    // Deletes every context now (each unlinks itself from its neighbours): the component leaves
    // the graph while script values may still hold it.
    void DeleteContexts();

private:
    EPinRole m_Role;
    KorBusPin m_Pins[2];
    std::map<CBelString, std::unique_ptr<CKorModule>> m_Contexts;
    std::vector<CBelString> m_JoinedPaths;
};

namespace dataPathRegister {

// The known data paths and the chain tail of each.
class CDataPathRegistry {
public:
    // Appends the bus's context to the path's chain (made if new).
    static void Join(const char* path, CKorBus* bus);
    // Links from's context on the path to to's context on the path (to's input below from's
    // output). Answers 0 when either has no context to give for the path, with *reason (when
    // given) saying which paths it serves.
    static int Connect(const char* path, CKorBus* from, CKorBus* to, CBelString* reason = nullptr);
    // Writes the chains of the path through BelDump (PrintChain of each module that starts one);
    // answers how many chains it printed.
    static int PrintChain(const char* path);
    static bool IsKnown(const char* path);
    // Called by every bus when it is made and destroyed.
    static void AddBus(CKorBus* bus);
    static void RemoveBus(CKorBus* bus);

    static int s_numPaths;
    static std::vector<CBelString> s_dataPaths;

private:
    struct SPath {
        CKorBus* m_pTail = nullptr; // the last member that gives packets out, or nullptr
        CKorBus* m_pHead = nullptr; // the first member joined with no source above it yet
    };
    static std::map<CBelString, SPath>& Paths();
    static std::vector<CKorBus*>& Buses();
    static void Create(const char* path);
    // The null module's drop observer: reports the open ends of the graph.
    static void ReportOpenEnds();
};

} // namespace dataPathRegister

// A scriptable component with one pin.
class CKor1PinComponent : public CKorBus, public CJokComponent {
public:
    CKor1PinComponent(const char* name, EPinRole role);
};

// A component whose one pin takes packets in (ends a chain).
class CKorInputPinComponent : public CKor1PinComponent {
public:
    explicit CKorInputPinComponent(const char* name) : CKor1PinComponent(name, PINS_INPUT) {}
};

// A component whose one pin gives packets out (starts a chain).
class CKorOutputPinComponent : public CKor1PinComponent {
public:
    explicit CKorOutputPinComponent(const char* name) : CKor1PinComponent(name, PINS_OUTPUT) {}
};

// A component with an input and an output pin: it sits inside a chain.
class CKor2PinComponent : public CJokComponent, public CKorBus {
public:
    explicit CKor2PinComponent(const char* name);
    int GetPins(KorBusPin** in, KorBusPin** out);
    void ReleaseConnectors(CKorConnector* in, CKorConnector* out, const char* path);
};
