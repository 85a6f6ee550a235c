// CKorUnbufferedModule: the workhorse module that processes each packet on the caller's thread,
// inside Receive, and passes it on before returning.
//
// Contract (every component built on it relies on exactly this):
//  - It holds at most one current packet (m_pPacket, one reference) and at most one pending
//    packet (a processed packet that downstream refused).
//  - Receive(p):
//      1. Re-entry is a programming fault: assertion "!m_InRecv", and the packet is refused.
//      2. If a packet is pending, it is offered downstream first; if it is still refused, p is
//         refused (answer 0, p untouched).
//      3. While locked, p is refused (answer 0).
//      4. While processing is disabled, p is passed straight downstream and downstream's answer
//         is the answer (nothing is kept, ProcessPacket is not called).
//      5. Otherwise p becomes the current packet and ProcessPacket runs. ProcessPacket may leave
//         it, replace it, or release it and clear m_pPacket. If processing locked the module, the
//         current packet stays held (Unlock may send it on later). Otherwise what is still current
//         is offered downstream; a refusal makes it the pending packet. The answer is 1: the
//         module took p.
//  - Poll offers the pending packet (or a held current packet once unlocked) downstream; only when
//    nothing is left does the poll go on upstream.
//  - Flush releases the pending and current packets and flushes downstream.
//  - Lock/Unlock guard the current packet: Unlock(1) sends a held current packet on at once,
//    Unlock(0) leaves it for the next Poll.
#pragma once

#include "framework/kor/Module.h"

class CKorUnbufferedModule : public CKorModule {
public:
    explicit CKorUnbufferedModule(const char* name);
    ~CKorUnbufferedModule() override;

    int Receive(CKorPacket* packet) override;
    void Poll() override;
    void Flush() override;

    void Lock() { m_Locked = true; }
    void Unlock(int sendCurrent);
    bool IsLocked() const { return m_Locked; }
    // Non-zero switches processing off (packets pass through untouched), zero switches it on.
    void DisableProcessing(int disable) { m_Disabled = disable != 0; }
    bool IsDisabled() const { return m_Disabled; }

    // The packet under processing (borrowed), or nullptr.
    CKorPacket* CurrentPacket() const { return m_pPacket; }
    // A refused packet waiting for Poll (borrowed), or nullptr.
    CKorPacket* PendingPacket() const { return m_pPending; }

protected:
    // Works on m_pPacket: may modify it, replace it (releasing the old one) or release it and set
    // m_pPacket to nullptr.
    virtual void ProcessPacket() = 0;
    // Offers the current packet downstream now; a refusal makes it pending.
    void SendCurrent();
    // Offers a packet downstream, taking its reference; answers whether downstream took it. On a
    // refusal the packet becomes pending (replacing nothing: callers check PendingPacket first).
    bool SendOrKeep(CKorPacket* packet);

    CKorPacket* m_pPacket = nullptr;

private:
    bool DeliverPending();

    CKorPacket* m_pPending = nullptr;
    bool m_Locked = false;
    bool m_Disabled = false;
};
