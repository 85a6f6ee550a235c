#include "framework/kor/PinComponent.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/kor/Module.h"

#include <algorithm>
#include <set>

using dataPathRegister::CDataPathRegistry;

CKorBus::CKorBus(EPinRole role) : m_Role(role) {
    m_Pins[0] = KorBusPin{0, role != PINS_OUTPUT, this};
    m_Pins[1] = KorBusPin{1, false, this};
    CDataPathRegistry::AddBus(this);
}

CKorBus::~CKorBus() {
    CDataPathRegistry::RemoveBus(this);
    // Modules unlink themselves from their neighbours as they go.
    m_Contexts.clear();
}

int CKorBus::MakeConnections(int, IUnknown* other, const char* path) {
    CKorBus* to = FromUnknown(other);
    return to ? CDataPathRegistry::Connect(path, this, to) : 0;
}

CKorConnector* CKorBus::GetConnector(int pin, const char* path) {
    CKorModule* module = CreateContext(path);
    return module ? new CKorModuleConnector(pin, module, path) : nullptr;
}

int CKorBus::Disconnect(int, const char* path) {
    CKorModule* module = _GetContext(path);
    if (!module) {
        return 0;
    }
    module->UpStreamModule()->UnlinkModule(module);
    module->DownStreamModule()->UnlinkModule(module);
    module->UnlinkModule(module->UpStreamModule());
    module->UnlinkModule(module->DownStreamModule());
    return 1;
}

CKorConnector* CKorBus::_GetConnector(const char* path) {
    CKorModule* module = _GetContext(path);
    return module ? new CKorModuleConnector(0, module, path) : nullptr;
}

CKorModule* CKorBus::CreateContext(const char*) {
    return nullptr;
}

void CKorBus::DataPathCreated(const char*) {}

int CKorBus::GetPin(KorBusPin** pin) {
    *pin = &m_Pins[0];
    return 1;
}

void CKorBus::ReleaseConnector(CKorConnector* connector, void*, const char*) {
    delete connector;
}

CKorModule* CKorBus::_GetContext(const char* path) const {
    const auto found = m_Contexts.find(CBelString(path));
    return found == m_Contexts.end() ? nullptr : found->second.get();
}

CKorModule* CKorBus::RememberContext(const char* path, CKorModule* module) {
    m_Contexts[CBelString(path)].reset(module);
    CKorModule::NoteGraphChange();
    return module;
}

void CKorBus::DeleteContexts() {
    m_Contexts.clear();
    CKorModule::NoteGraphChange();
}

std::vector<CBelString> CKorBus::ContextPaths() const {
    std::vector<CBelString> paths;
    for (const auto& [path, module] : m_Contexts) {
        paths.push_back(path);
    }
    return paths;
}

bool CKorBus::MayEndOpen(const char*) const {
    return false;
}

CBelString CKorBus::DescribeBus() const {
    if (const auto* component = dynamic_cast<const CJokComponent*>(this)) {
        return component->GetComponentName();
    }
    return "a component";
}

void CKorBus::ConnectPath(const char* path) {
    if (!path || !*path) {
        return;
    }
    CDataPathRegistry::Join(path, this);
    if (std::find(m_JoinedPaths.begin(), m_JoinedPaths.end(), CBelString(path)) ==
        m_JoinedPaths.end()) {
        m_JoinedPaths.emplace_back(path);
    }
}

CKorBus* CKorBus::FromUnknown(IUnknown* unknown) {
    CJokCOMObject* object = CJokCOMObject::FromIUnknown(unknown);
    return object ? dynamic_cast<CKorBus*>(object) : nullptr;
}

namespace dataPathRegister {

int CDataPathRegistry::s_numPaths = 0;
std::vector<CBelString> CDataPathRegistry::s_dataPaths;

std::map<CBelString, CDataPathRegistry::SPath>& CDataPathRegistry::Paths() {
    static auto* paths = new std::map<CBelString, SPath>; // outlives every bus
    return *paths;
}

std::vector<CKorBus*>& CDataPathRegistry::Buses() {
    static auto* buses = new std::vector<CKorBus*>; // outlives every bus
    return *buses;
}

void CDataPathRegistry::Create(const char* path) {
    Paths()[CBelString(path)] = SPath{};
    s_dataPaths.emplace_back(path);
    s_numPaths = static_cast<int>(s_dataPaths.size());
    // A bus told of the path may join it (and so make further paths): walk a copy.
    const std::vector<CKorBus*> buses = Buses();
    for (CKorBus* bus : buses) {
        if (std::find(Buses().begin(), Buses().end(), bus) != Buses().end()) {
            bus->DataPathCreated(path);
        }
    }
}

void CDataPathRegistry::Join(const char* path, CKorBus* bus) {
    if (!IsKnown(path)) {
        Create(path);
    }
    CKorModule* module = bus->CreateContext(path);
    if (!module) {
        return;
    }
    CKorModule::NoteGraphChange();
    SPath& entry = Paths()[CBelString(path)];
    if (bus->GetPinRole() != CKorBus::PINS_OUTPUT) {
        if (entry.m_pTail && entry.m_pTail != bus) {
            if (CKorModule* tail = entry.m_pTail->CreateContext(path)) {
                *tail | *module;
            }
        } else if (!entry.m_pTail && !entry.m_pHead && module->UpStreamModule()->IsNull()) {
            entry.m_pHead = bus; // waits for a source
        }
    } else if (entry.m_pHead && entry.m_pHead != bus && module->UpStreamModule()->IsNull()) {
        // A source that comes after the members it feeds goes above the first of them; the
        // chain keeps its tail (none, when it ended in a consumer).
        CKorModule* head = entry.m_pHead->CreateContext(path);
        entry.m_pHead = nullptr;
        if (head && head->UpStreamModule()->IsNull()) {
            *module | *head;
            return;
        }
    }
    entry.m_pTail = bus->GetPinRole() == CKorBus::PINS_INPUT ? nullptr : bus;
}

int CDataPathRegistry::Connect(const char* path, CKorBus* from, CKorBus* to, CBelString* reason) {
    if (!path || !*path || !from || !to) {
        return 0;
    }
    if (!IsKnown(path)) {
        Create(path);
    }
    CKorModule* a = from->CreateContext(path);
    CKorModule* b = to->CreateContext(path);
    if (!a || !b) {
        if (reason) {
            const CKorBus* refusing = a ? to : from;
            CBelString served;
            for (const CBelString& other : refusing->ContextPaths()) {
                served += served.IsEmpty() ? "'" + other + "'" : ", '" + other + "'";
            }
            reason->Format("%s has no module for '%s' (%s)", refusing->DescribeBus().c_str(), path,
                           served.IsEmpty() ? "it serves no path yet"
                                            : ("it serves " + served).c_str());
        }
        return 0;
    }
    *a | *b;
    return 1;
}

int CDataPathRegistry::PrintChain(const char* path) {
    // A chain starts at a member whose upstream is not a member of the path.
    std::vector<CKorModule*> members;
    for (CKorBus* bus : Buses()) {
        if (CKorModule* module = bus->_GetContext(path)) {
            if (std::find(members.begin(), members.end(), module) == members.end()) {
                members.push_back(module);
            }
        }
    }
    int chains = 0;
    for (CKorModule* module : members) {
        CKorModule* up = module->UpStreamModule();
        if (std::find(members.begin(), members.end(), up) == members.end()) {
            module->PrintChain();
            ++chains;
        }
    }
    return chains;
}

void CDataPathRegistry::ReportOpenEnds() {
    static unsigned checkedAt = ~0u;
    if (CKorModule::LinkGeneration() == checkedAt) {
        return; // nothing changed since the graph was last looked at
    }
    checkedAt = CKorModule::LinkGeneration();
    static auto* reported = new std::set<CBelString>; // once per path, for the process
    for (const auto& [path, entry] : Paths()) {
        if (reported->count(path) != 0) {
            continue;
        }
        CBelString end;
        CBelString unlinked;
        for (CKorBus* bus : Buses()) {
            CKorModule* module = bus->_GetContext(path);
            if (!module) {
                continue;
            }
            const bool source = bus->GetPinRole() == CKorBus::PINS_OUTPUT;
            const bool fed = source || !module->UpStreamModule()->IsNull();
            if (bus->GetPinRole() != CKorBus::PINS_INPUT && fed &&
                module->DownStreamModule()->IsNull() && end.IsEmpty() &&
                !bus->MayEndOpen(path.c_str())) {
                end = bus->DescribeBus();
            } else if (!fed && unlinked.IsEmpty()) {
                unlinked = bus->DescribeBus();
            }
        }
        if (end.IsEmpty()) {
            continue;
        }
        reported->insert(path);
        CBelString also;
        if (!unlinked.IsEmpty()) {
            also.Format("; %s on it has nothing upstream (it joined before the component "
                        "that feeds it: join it later or connect it explicitly)",
                        unlinked.c_str());
        }
        BelDump("CKorNullModule::Receive -> data path '%s' is not linked after %s: its packets "
                "are dropped there%s\n",
                path.c_str(), end.c_str(), also.c_str());
    }
}
bool CDataPathRegistry::IsKnown(const char* path) {
    return Paths().count(CBelString(path)) != 0;
}

void CDataPathRegistry::AddBus(CKorBus* bus) {
    static const bool observing = [] {
        CKorNullModule::SetDropObserver(&CDataPathRegistry::ReportOpenEnds);
        return true;
    }();
    (void)observing;
    Buses().push_back(bus);
    CKorModule::NoteGraphChange();
}

void CDataPathRegistry::RemoveBus(CKorBus* bus) {
    std::vector<CKorBus*>& buses = Buses();
    buses.erase(std::remove(buses.begin(), buses.end(), bus), buses.end());
    for (auto& [name, entry] : Paths()) {
        if (entry.m_pTail == bus) {
            entry.m_pTail = nullptr;
        }
        if (entry.m_pHead == bus) {
            entry.m_pHead = nullptr;
        }
    }
    CKorModule::NoteGraphChange();
}

} // namespace dataPathRegister

CKor1PinComponent::CKor1PinComponent(const char* name, EPinRole role)
    : CKorBus(role), CJokComponent(name) {}

CKor2PinComponent::CKor2PinComponent(const char* name) : CJokComponent(name), CKorBus(PINS_BOTH) {}

int CKor2PinComponent::GetPins(KorBusPin** in, KorBusPin** out) {
    if (in) {
        *in = PinAt(0);
    }
    if (out) {
        *out = PinAt(1);
    }
    return 1;
}

void CKor2PinComponent::ReleaseConnectors(CKorConnector* in, CKorConnector* out, const char*) {
    delete in;
    delete out;
}
