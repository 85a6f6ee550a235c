#include "routing/Joiner.h"

#include "entry/Registry.h"
#include "framework/bel/BelClock.h"
#include "framework/jok/CommandContext.h"
#include "framework/kor/Packet.h"

#include <algorithm>

// ---------------------------------------------------------------------------------------------
// CJoinerComp

CJoinerComp::CJoinerComp(const char* dataPath)
    : CKorModule("Joiner"), CKorOutputPinComponent("Multiplexer") {
    ConnectPath(dataPath);
}

CJoinerComp::~CJoinerComp() {
    if (m_pPacket) {
        m_pPacket->Release();
        m_pPacket = nullptr;
    }
    m_Waiting.clear();
    for (CJoinerPortComp* port : m_Ports) {
        port->m_pJoiner = nullptr;
        port->Release();
    }
    m_Ports.clear();
}

CKorModule* CJoinerComp::CreateContext(const char*) {
    return this;
}

void CJoinerComp::HandOver(CKorPacket* packet) {
    m_InHandOver = true;
    if (!DownStreamModule()->Receive(packet)) {
        m_pPacket = packet;
    }
    m_InHandOver = false;
}

bool CJoinerComp::Offer(CJoinerPortComp* port, CKorPacket* packet) {
    if (!m_pPacket && m_LockCount < 1 && !m_InHandOver) {
        HandOver(packet);
        return true;
    }
    m_Waiting.push_back(port);
    return false;
}

void CJoinerComp::Poll() {
    if (m_LockCount > 0 || m_InHandOver) {
        return;
    }
    if (m_pPacket) {
        CKorPacket* packet = m_pPacket;
        m_pPacket = nullptr;
        HandOver(packet);
        if (m_pPacket) {
            return;
        }
    }
    // Every port emptied by the walk owes its upstream a poll, also when the walk stops at a
    // refusal: a port emptied and then skipped would never ask for the packet its upstream holds
    // back, and that stream would stall for good.
    std::vector<CJoinerPortComp*> emptied;
    while (!m_Waiting.empty()) {
        CJoinerPortComp* port = m_Waiting.front();
        m_Waiting.pop_front();
        CKorPacket* packet = port->Take();
        if (!packet) {
            continue;
        }
        HandOver(packet);
        emptied.push_back(port);
        if (m_pPacket) {
            break;
        }
    }
    if (!m_pPacket) {
        const std::deque<CJoinerPortComp*> waiting = m_Waiting;
        for (CJoinerPortComp* port : waiting) {
            port->Poll();
        }
    }
    // In the order they were emptied; while a packet is pending here their new packets queue
    // behind the others, so nothing overtakes.
    for (CJoinerPortComp* port : emptied) {
        port->Poll();
    }
}

void CJoinerComp::Flush() {
    if (m_pPacket) {
        m_pPacket->Release();
        m_pPacket = nullptr;
    }
    CKorModule::Flush();
}

void CJoinerComp::Lock(bool lock) {
    if (lock) {
        ++m_LockCount;
        return;
    }
    // Every unlock counts, also below zero: a lock taken later then only brings the count back
    // to zero, and packets flow while it is below 1.
    if (--m_LockCount < 1) {
        Poll();
    }
}

const CJokPropertyMap<CJoinerComp>& CJoinerComp::PropertyMap() {
    static const CJokPropertyMap<CJoinerComp> map = [] {
        CJokPropertyMap<CJoinerComp> m;
        m.AddFunction("CreatePort", &CJoinerComp::CreatePort, "&CJoinerComp::CreatePort")
            .AddFunction("Flush", &CJoinerComp::FlushHandler, "&CJoinerComp::FlushHandler")
            .AddFunction("Lock", &CJoinerComp::LockHandler, "&CJoinerComp::LockHandler");
        return m;
    }();
    return map;
}

CJokGenericData* CJoinerComp::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKorOutputPinComponent::GetProperty(name, flags);
}

int CJoinerComp::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKorOutputPinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CJoinerComp::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKorOutputPinComponent::GetPropertyEnumerator());
}

int CJoinerComp::CreatePort(CJokCommandContext* context) {
    CBelString path;
    context->GetParam("dataPath", &path, 1);
    if (!context->CanProceed(0)) {
        return 1;
    }
    const std::vector<CBelString>& own = JoinedPaths();
    if (std::find(own.begin(), own.end(), path) != own.end()) {
        CBelString message;
        message.Format("Joiner: a port cannot join the joiner's own data path \"%s\"",
                       path.c_str());
        context->OutputErrorString(message);
        return 1;
    }
    auto* port = new CJoinerPortComp(path, this);
    m_Ports.push_back(port); // keeps the construction reference
    context->SetReturnValueNoRef(CJokGdObject::Allocate(port));
    return 1;
}

int CJoinerComp::FlushHandler(CJokCommandContext* context) {
    if (!context->CanProceed(0)) {
        return 1;
    }
    Flush();
    return 1;
}

int CJoinerComp::LockHandler(CJokCommandContext* context) {
    int lock = 0;
    context->GetParam("lock", &lock, 0);
    if (!context->CanProceed(0)) {
        return 1;
    }
    Lock(lock != 0);
    return 1;
}

// ---------------------------------------------------------------------------------------------
// CJoinerPortComp

CJoinerPortComp::CJoinerPortComp(const char* dataPath, CJoinerComp* joiner)
    : CKorModule("JoinerPort"), CKorInputPinComponent("JoinerPort"), m_pJoiner(joiner) {
    ConnectPath(dataPath);
}

CJoinerPortComp::~CJoinerPortComp() {
    if (m_pPacket) {
        m_pPacket->Release();
        m_pPacket = nullptr;
    }
    if (m_pJoiner) {
        auto& waiting = m_pJoiner->m_Waiting;
        waiting.erase(std::remove(waiting.begin(), waiting.end(), this), waiting.end());
    }
}

CKorModule* CJoinerPortComp::CreateContext(const char*) {
    return this;
}

CKorPacket* CJoinerPortComp::Take() {
    CKorPacket* packet = m_pPacket;
    m_pPacket = nullptr;
    return packet;
}

int CJoinerPortComp::Receive(CKorPacket* packet) {
    if (m_pPacket) {
        return 0;
    }
    m_InRecv = 1;
    if (!m_pJoiner) {
        packet->Release(); // the joiner is gone: nothing downstream any more
    } else if (!m_pJoiner->Offer(this, packet)) {
        m_pPacket = packet;
        // Only a packet that waits needs its arrival noted: reading the clock for every packet
        // passed straight through would cost as much as the whole hand-over.
        m_ArrivalTime = BelDoubleTime();
    }
    m_InRecv = 0;
    return 1;
}

void CJoinerPortComp::Poll() {
    if (!m_InRecv && !m_pPacket) {
        UpStreamModule()->Poll();
    }
}

void CJoinerPortComp::Flush() {
    if (m_pPacket) {
        m_pPacket->Release();
        m_pPacket = nullptr;
    }
    if (m_pJoiner) {
        // Off the waiting list too, so that its next packet queues in its own arrival order.
        auto& waiting = m_pJoiner->m_Waiting;
        waiting.erase(std::remove(waiting.begin(), waiting.end(), this), waiting.end());
    }
    CKorModule::Flush();
    if (m_pJoiner) {
        m_pJoiner->Flush();
    }
}

int CJoinerPortComp::FlushHandler(CJokCommandContext* context) {
    if (!context->CanProceed(0)) {
        return 1;
    }
    Flush();
    return 1;
}

const CJokPropertyMap<CJoinerPortComp>& CJoinerPortComp::PropertyMap() {
    static const CJokPropertyMap<CJoinerPortComp> map = [] {
        CJokPropertyMap<CJoinerPortComp> m;
        m.AddFunction("Flush", &CJoinerPortComp::FlushHandler, "&CJoinerPortComp::FlushHandler");
        return m;
    }();
    return map;
}

CJokGenericData* CJoinerPortComp::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKorInputPinComponent::GetProperty(name, flags);
}

int CJoinerPortComp::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKorInputPinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CJoinerPortComp::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKorInputPinComponent::GetPropertyEnumerator());
}

int CreateJoiner(CJokCommandContext* context) {
    return ZorCreateWithDataPath<CJoinerComp>(context);
}
