#include "routing/Splitter.h"

#include "entry/Registry.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/CommandContext.h"
#include "framework/kor/Packet.h"

#include <algorithm>
#include <cstring>

namespace {

// Ports grow the table in steps of this many slots.
constexpr int kPortTableStep = 5;

// The module that stands for m in a link: its parent when it is part of a fan-out module.
CKorModule* Outer(CKorModule* module) {
    return module->Parent() ? module->Parent() : module;
}

bool Contains(const std::vector<CBelString>& names, const char* name) {
    return std::find(names.begin(), names.end(), CBelString(name)) != names.end();
}

} // namespace

// ---------------------------------------------------------------------------------------------
// CZorSplitter

CZorSplitter::CZorSplitter(const char* name) : CKorModule(name) {}

CZorSplitter::~CZorSplitter() {
    if (m_pPacket) {
        m_pPacket->Release();
        m_pPacket = nullptr;
    }
    for (int i = 0; i < m_nPorts; ++i) {
        CZorSplitterPort* port = m_ppPorts[i];
        if (!port) {
            continue;
        }
        m_ppPorts[i] = nullptr;
        port->SetParent(nullptr);
        port->UnlinkModule(this); // may delete a self-deleting port
    }
    delete[] m_ppPorts;
    m_ppPorts = nullptr;
    m_nPorts = 0;
}

CZorSplitterPort* CZorSplitter::CreatePort() {
    int slot = 0;
    while (slot < m_nPorts && m_ppPorts[slot]) {
        ++slot;
    }
    if (slot == m_nPorts) {
        auto** table = new CZorSplitterPort*[m_nPorts + kPortTableStep];
        std::copy(m_ppPorts, m_ppPorts + m_nPorts, table);
        std::fill(table + m_nPorts, table + m_nPorts + kPortTableStep, nullptr);
        delete[] m_ppPorts;
        m_ppPorts = table;
        m_nPorts += kPortTableStep;
    }
    auto* port = new CZorSplitterPort;
    if (m_Delivering) {
        port->m_BornInPush = m_PushCount;
    }
    m_ppPorts[slot] = port;
    ++m_TableChanges;
    port->SetParent(this);
    port->_LinkUpStreamModule(this);
    return port;
}

void CZorSplitter::RemovePort(CZorSplitterPort* port) {
    for (int i = 0; i < m_nPorts; ++i) {
        if (m_ppPorts[i] != port) {
            continue;
        }
        m_ppPorts[i] = nullptr;
        ++m_TableChanges;
        // A port that leaves before its turn in a delivery gets no reference.
        if (m_Delivering && i > m_DeliverSlot && port->m_BornInPush != m_PushCount) {
            --m_PortsToServe;
        }
        break;
    }
    // A packet may have been waiting for this port alone.
    Poll();
}

void CZorSplitter::Push() {
    // A delivery already under way (a port's downstream polled back up to us) finishes first;
    // it runs again for a packet taken meanwhile.
    if (m_Delivering) {
        return;
    }
    const unsigned tableBefore = m_TableChanges;
    int ActivePorts = 0;
    for (int i = 0; i < m_nPorts; ++i) {
        CZorSplitterPort* port = m_ppPorts[i];
        if (!port) {
            continue;
        }
        ++ActivePorts;
        if (!port->Push()) {
            return; // the slowest port holds everything back
        }
    }
    if (!m_pPacket) {
        return;
    }
    CKorPacket* packet = m_pPacket;
    m_pPacket = nullptr;
    if (ActivePorts == 0) {
        packet->Release(); // no ports: the input is discarded
        if (!m_ToldNoPorts) {
            m_ToldNoPorts = true;
            BelDump("CZorSplitter::Receive -> the splitter on '%s' has no ports: its packets are "
                    "dropped (make one with CreatePort)\n",
                    m_PathLabel.IsEmpty() ? "?" : m_PathLabel.c_str());
        }
        return;
    }
    if (m_TableChanges != tableBefore) {
        // A downstream call during the walk added or removed ports.
        ActivePorts = static_cast<int>(
            std::count_if(m_ppPorts, m_ppPorts + m_nPorts, [](auto* p) { return p != nullptr; }));
    }
    m_Delivering = true;
    ++m_PushCount;
    m_PortsToServe = ActivePorts;
    for (int i = 0; i < m_nPorts && m_PortsToServe > 0; ++i) {
        CZorSplitterPort* port = m_ppPorts[i]; // re-read: the table may grow under us
        if (!port || port->m_BornInPush == m_PushCount) {
            continue;
        }
        m_DeliverSlot = i;
        // Every port but the last one served gets a reference of its own; the last one gets ours.
        if (--m_PortsToServe > 0) {
            packet->AddRef();
        }
        port->Receive(packet);
    }
    ActivePorts = m_PortsToServe;
    m_Delivering = false;
    m_DeliverSlot = -1;
    if (ActivePorts != 0) {
        BelDisplayAssert("ActivePorts == 0", "Splitter", 177);
        packet->Release(); // the last reference was never handed over
    }
    if (m_pPacket) {
        Push(); // taken while the delivery ran
    }
}

int CZorSplitter::Receive(CKorPacket* packet) {
    if (m_InRecv) {
        BelDisplayAssert("!m_InRecv", "Splitter", 189);
    }
    m_InRecv = 1;
    if (m_pPacket) {
        Push();
        if (m_pPacket) {
            m_InRecv = 0;
            return 0;
        }
    }
    m_pPacket = packet;
    Push();
    m_InRecv = 0;
    return 1;
}

void CZorSplitter::Poll() {
    if (m_pPacket) {
        Push();
        if (m_pPacket) {
            return;
        }
    }
    UpStreamModule()->Poll();
}

void CZorSplitter::Flush() {
    if (m_pPacket) {
        m_pPacket->Release();
        m_pPacket = nullptr;
    }
    for (int i = 0; i < m_nPorts; ++i) {
        if (CZorSplitterPort* port = m_ppPorts[i]) {
            port->Flush();
        }
    }
}

void CZorSplitter::UnlinkModule(CKorModule* module) {
    if (!module || module->IsNull()) {
        return;
    }
    CKorModule* target = Outer(module);
    for (int i = 0; i < m_nPorts; ++i) {
        if (CZorSplitterPort* port = m_ppPorts[i]) {
            port->UnlinkModule(target);
        }
    }
    CKorModule* upstream = UpStreamModule();
    if (!upstream->IsNull() && target == Outer(upstream)) {
        CKorModule::UnlinkModule(upstream);
        target->UnlinkModule(this);
    }
}

void CZorSplitter::PrintChain() {
    BelDump("%s\n", GetName().c_str());
    sm_PrintOffset += 4;
    for (int i = 0; i < m_nPorts; ++i) {
        PrintIndent();
        BelDump("%d - ", i);
        if (CZorSplitterPort* port = m_ppPorts[i]) {
            port->PrintChain();
        } else {
            BelDump("\n");
        }
    }
    sm_PrintOffset -= 4;
}

// ---------------------------------------------------------------------------------------------
// CZorSplitterPort

CZorSplitterPort::CZorSplitterPort(const char* name) : CKorModule(name) {
    *CKorNullModule::GetModule() | *this;
}

CZorSplitterPort::~CZorSplitterPort() {
    m_SelfDelete = false;
    if (m_Packet) {
        m_Packet->Release();
        m_Packet = nullptr;
    }
    if (auto* parent = static_cast<CZorSplitter*>(Parent())) {
        SetParent(nullptr);
        CKorModule::UnlinkModule(parent);
        parent->RemovePort(this);
    }
}

bool CZorSplitterPort::Push() {
    if (m_Packet && DownStreamModule()->Receive(m_Packet)) {
        m_Packet = nullptr;
    }
    return m_Packet == nullptr;
}

int CZorSplitterPort::Receive(CKorPacket* packet) {
    if (m_InRecv) {
        BelDisplayAssert("!m_InRecv", "Splitter", 311);
    }
    m_InRecv = 1;
    if (m_Packet != nullptr) {
        BelDisplayAssert("m_Packet == 0", "Splitter", 314);
        m_Packet->Release(); // keep the newer packet rather than leak the older one
    }
    m_Packet = packet;
    Push();
    m_InRecv = 0;
    return 1;
}

void CZorSplitterPort::Poll() {
    // Without this a packet a port's downstream refused would wait until the splitter's next
    // delivery, which may never come while the splitter's own upstream waits for a poll.
    if (Push()) {
        CKorModule::Poll();
    }
}

void CZorSplitterPort::Flush() {
    if (m_Packet) {
        m_Packet->Release();
        m_Packet = nullptr;
    }
    CKorModule::Flush();
}

void CZorSplitterPort::UnlinkModule(CKorModule* module) {
    CKorModule::UnlinkModule(module);
    if (m_SelfDelete && UpStreamModule()->IsNull() && DownStreamModule()->IsNull()) {
        delete this; // leaves the parent's table on the way
    }
}

// ---------------------------------------------------------------------------------------------
// CSplitterCom

CSplitterCom::CSplitterCom(const char* dataPath)
    : CKorInputPinComponent("Splitter"), m_DataPath(dataPath) {
    ConnectPath(m_DataPath);
}

CSplitterCom::~CSplitterCom() {
    for (CSplitterPortCom* port : m_Ports) {
        port->m_pSplitter = nullptr;
        port->Release();
    }
    m_Ports.clear();
}

const CJokPropertyMap<CSplitterCom>& CSplitterCom::PropertyMap() {
    static const CJokPropertyMap<CSplitterCom> map = [] {
        CJokPropertyMap<CSplitterCom> m;
        m.AddFunction("CreatePort", &CSplitterCom::CreatePort, "&CSplitterCom::CreatePort")
            .AddFunction("RemovePort", &CSplitterCom::RemovePort, "&CSplitterCom::RemovePort");
        return m;
    }();
    return map;
}

CJokGenericData* CSplitterCom::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKorInputPinComponent::GetProperty(name, flags);
}

int CSplitterCom::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKorInputPinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CSplitterCom::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKorInputPinComponent::GetPropertyEnumerator());
}

CKorModule* CSplitterCom::CreateContext(const char* path) {
    if (m_pLastSplitter && m_LastPath == path) {
        return m_pLastSplitter;
    }
    auto* splitter = static_cast<CZorSplitter*>(_GetContext(path));
    if (!splitter) {
        splitter = new CZorSplitter;
        splitter->SetPathLabel(path);
        RememberContext(path, splitter);
        m_Splitters.push_back(splitter);
    }
    m_LastPath = path;
    m_pLastSplitter = splitter;
    return splitter;
}

CZorSplitter* CSplitterCom::SplitterFor(const char* path) {
    const bool servesPath =
        m_DataPath.IsEmpty() || _GetContext(path) || Contains(JoinedPaths(), path);
    return static_cast<CZorSplitter*>(CreateContext(servesPath ? path : m_DataPath.c_str()));
}

void CSplitterCom::DataPathCreated(const char* path) {
    if (!m_DataPath.IsEmpty()) {
        return;
    }
    const std::vector<CSplitterPortCom*> ports = m_Ports; // joining may announce further paths
    for (CSplitterPortCom* port : ports) {
        port->ConnectPath(path);
    }
}

int CSplitterCom::CreatePort(CJokCommandContext* context) {
    CBelString path = m_DataPath;
    context->GetParam("dataPath", &path, 1);
    if (!context->CanProceed(0)) {
        return 1;
    }
    auto* port = new CSplitterPortCom(path, this);
    m_Ports.push_back(port); // keeps the construction reference
    const std::vector<CBelString> joined = JoinedPaths();
    for (const CBelString& other : joined) {
        if (!Contains(port->JoinedPaths(), other)) {
            port->ConnectPath(other);
        }
    }
    context->SetReturnValueNoRef(CJokGdObject::Allocate(port));
    return 1;
}

// ---------------------------------------------------------------------------------------------
// CSplitterPortCom

CSplitterPortCom::CSplitterPortCom(const char* dataPath, CSplitterCom* splitter)
    : CKorOutputPinComponent("SplitterPort"), m_DataPath(dataPath), m_pSplitter(splitter) {
    ConnectPath(m_DataPath);
}

int CSplitterCom::RemovePort(CJokCommandContext* context) {
    IUnknown* object = nullptr;
    context->GetParam("port", &object, 0);
    if (!context->CanProceed(0)) {
        return 1;
    }
    CJokCOMObject* given = object ? CJokCOMObject::FromIUnknown(object) : nullptr;
    const auto found = std::find_if(m_Ports.begin(), m_Ports.end(),
                                    [given](CSplitterPortCom* port) { return port == given; });
    if (object) {
        object->Release();
    }
    if (found == m_Ports.end()) {
        context->OutputErrorString("RemovePort: port is not a port of this splitter");
        context->SetReturnValueNoRef(CJokGdBoolean::Allocate(0));
        return 1;
    }
    CSplitterPortCom* port = *found;
    m_Ports.erase(found);
    port->Detach();
    port->Release();
    context->SetReturnValueNoRef(CJokGdBoolean::Allocate(1));
    return 1;
}

bool CSplitterPortCom::MayEndOpen(const char* path) const {
    return m_DataPath != path;
}

void CSplitterPortCom::Detach() {
    m_pSplitter = nullptr;
    DeleteContexts(); // each port module leaves its splitter's table as it goes
}

CKorModule* CSplitterPortCom::CreateContext(const char* path) {
    if (CKorModule* existing = _GetContext(path)) {
        return existing;
    }
    if (!m_pSplitter) {
        return nullptr;
    }
    return RememberContext(path, m_pSplitter->SplitterFor(path)->CreatePort());
}

int CreateSplitter(CJokCommandContext* context) {
    return ZorCreateWithDataPath<CSplitterCom>(context);
}
