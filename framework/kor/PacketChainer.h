// CKorPacketChainer: collects packets, in arrival order, into one chain that a module can hand on
// or drop as a whole.
#pragma once

#include <deque>

class CKorModule;
class CKorPacket;

class CKorPacketChainer {
public:
    CKorPacketChainer() = default;
    // Releases every packet still chained.
    ~CKorPacketChainer();
    CKorPacketChainer(const CKorPacketChainer&) = delete;
    CKorPacketChainer& operator=(const CKorPacketChainer&) = delete;

    // Takes the packet's reference and appends it.
    void ChainPacket(CKorPacket* packet);
    int Count() const { return static_cast<int>(m_Packets.size()); }
    // The oldest packet (borrowed), or nullptr.
    CKorPacket* Front() const { return m_Packets.empty() ? nullptr : m_Packets.front(); }
    // Removes the oldest packet and returns its reference, or nullptr.
    CKorPacket* TakeFront();
    // Puts a packet back at the front (takes its reference): a refused packet keeps its place.
    void PutBack(CKorPacket* packet);
    // Offers the packets to the module, oldest first, until it refuses one, which keeps its
    // place; answers whether none is left.
    bool DeliverTo(CKorModule* module);
    void ReleaseAll();

private:
    std::deque<CKorPacket*> m_Packets;
};
