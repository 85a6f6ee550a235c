#include "framework/kor/PacketChainer.h"

#include "framework/kor/Module.h"
#include "framework/kor/Packet.h"

CKorPacketChainer::~CKorPacketChainer() {
    ReleaseAll();
}

void CKorPacketChainer::ChainPacket(CKorPacket* packet) {
    if (packet) {
        m_Packets.push_back(packet);
    }
}

CKorPacket* CKorPacketChainer::TakeFront() {
    if (m_Packets.empty()) {
        return nullptr;
    }
    CKorPacket* packet = m_Packets.front();
    m_Packets.pop_front();
    return packet;
}

void CKorPacketChainer::PutBack(CKorPacket* packet) {
    if (packet) {
        m_Packets.push_front(packet);
    }
}

bool CKorPacketChainer::DeliverTo(CKorModule* module) {
    while (CKorPacket* packet = TakeFront()) {
        if (!module->Receive(packet)) {
            PutBack(packet);
            return false;
        }
    }
    return true;
}

void CKorPacketChainer::ReleaseAll() {
    for (CKorPacket* packet : m_Packets) {
        packet->Release();
    }
    m_Packets.clear();
}
