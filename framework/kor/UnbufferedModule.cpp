#include "framework/kor/UnbufferedModule.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/kor/Packet.h"

CKorUnbufferedModule::CKorUnbufferedModule(const char* name) : CKorModule(name) {}

CKorUnbufferedModule::~CKorUnbufferedModule() {
    if (m_pPacket) {
        m_pPacket->Release();
    }
    if (m_pPending) {
        m_pPending->Release();
    }
}

bool CKorUnbufferedModule::DeliverPending() {
    if (m_pPending && DownStreamModule()->Receive(m_pPending)) {
        m_pPending = nullptr;
    }
    return m_pPending == nullptr;
}

bool CKorUnbufferedModule::SendOrKeep(CKorPacket* packet) {
    if (DownStreamModule()->Receive(packet)) {
        return true;
    }
    if (m_pPending) {
        // Only one packet can wait; a second refusal means the caller broke the contract.
        BelDisplayAssert("m_pPending == 0", __FILE__, __LINE__);
        m_pPending->Release();
    }
    m_pPending = packet;
    return false;
}

void CKorUnbufferedModule::SendCurrent() {
    CKorPacket* packet = m_pPacket;
    m_pPacket = nullptr;
    if (packet) {
        SendOrKeep(packet);
    }
}

int CKorUnbufferedModule::Receive(CKorPacket* packet) {
    if (m_InRecv) {
        BelDisplayAssert("!m_InRecv", __FILE__, __LINE__);
        return 0;
    }
    if ((m_pPending && !DeliverPending()) || m_Locked) {
        return 0;
    }
    if (m_Disabled) {
        return DownStreamModule()->Receive(packet);
    }
    m_InRecv = 1;
    m_pPacket = packet;
    try {
        ProcessPacket();
    } catch (...) {
        // The boundary every unbuffered component inherits: the packet is dropped, the module
        // stays usable.
        DropAfterException(m_pPacket);
    }
    if (!m_Locked && m_pPacket) {
        SendCurrent();
    }
    m_InRecv = 0;
    return 1;
}

void CKorUnbufferedModule::Poll() {
    if (!DeliverPending()) {
        return;
    }
    if (m_pPacket) {
        if (m_Locked) {
            return;
        }
        SendCurrent();
        if (m_pPending) {
            return;
        }
    }
    CKorModule::Poll();
}

void CKorUnbufferedModule::Flush() {
    if (m_pPending) {
        m_pPending->Release();
        m_pPending = nullptr;
    }
    if (m_pPacket) {
        m_pPacket->Release();
        m_pPacket = nullptr;
    }
    CKorModule::Flush();
}

void CKorUnbufferedModule::Unlock(int sendCurrent) {
    m_Locked = false;
    if (sendCurrent && m_pPacket && DeliverPending()) {
        SendCurrent();
    }
}
