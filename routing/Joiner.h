// Joiner: merges the streams arriving at any number of input ports into one output stream, in
// the order in which packets reached the ports, one packet at a time. A script can lock the
// merge; input then waits at the ports (one packet each) until the last lock is taken away.
//
//     local join = zor.CreateJoiner{ dataPath = "merged" }
//     local a = join.CreatePort{ dataPath = "cam1" }   -- ends path "cam1"
//     local b = join.CreatePort{ dataPath = "cam2" }
//     join.Lock{ lock = true }  ...  join.Lock{ lock = false }
//
// The joiner component is itself the merge module (its context on every path) and each port
// component is its own input module, so one joiner serves whatever paths its ports join.
//
// Invariants:
//  - The joiner holds at most one packet that downstream refused; each port at most one packet
//    the joiner could not take yet. A port holding a packet is on the waiting list exactly once,
//    and the list is served first refused, first served, so arrival order is kept.
//  - While locked, or while a packet is pending at the joiner, nothing overtakes the waiting list.
//  - Ports are inputs: a port never joins the joiner's own output path (that would feed the
//    joiner's output back into it).
#pragma once

#include "framework/jok/PropertyMap.h"
#include "framework/kor/Module.h"
#include "framework/kor/PinComponent.h"

#include <deque>
#include <vector>

class CKorPacket;
class CJoinerPortComp;

// The output pin component carries the multiplexer's name on purpose: scripts and connection
// code written for the multiplexer find the joiner under the same pin name.
class CJoinerComp : public CKorModule, public CKorOutputPinComponent {
public:
    // Joins dataPath at once when it is not empty.
    explicit CJoinerComp(const char* dataPath);
    ~CJoinerComp() override;

    // The joiner is its own context on every path (borrowed: the component owns itself).
    CKorModule* CreateContext(const char* path) override;

    // Offered a packet by a port: answers true when the joiner took packet's reference.
    bool Offer(CJoinerPortComp* port, CKorPacket* packet);
    void Poll() override;
    void Flush() override;

    // Adds (true) or takes away (false) one lock, whatever the count: false at 0 makes it -1,
    // and a true after that leaves the joiner open. Packets flow while the count is below 1; an
    // unlock that leaves it there lets the waiting packets go.
    void Lock(bool lock);

    // "CreatePort" { dataPath = "..." }, "Flush" {}, "Lock" { lock = true | false }.
    int CreatePort(CJokCommandContext* context);
    int FlushHandler(CJokCommandContext* context);
    int LockHandler(CJokCommandContext* context);

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;

    int GetLockCount() const { return m_LockCount; }
    CKorPacket* GetPendingPacket() const { return m_pPacket; } // borrowed, or nullptr
    const std::deque<CJoinerPortComp*>& GetWaitingList() const { return m_Waiting; }
    const std::vector<CJoinerPortComp*>& GetPorts() const { return m_Ports; }

private:
    friend class CJoinerPortComp;
    static const CJokPropertyMap<CJoinerComp>& PropertyMap();
    // Hands packet (its reference) downstream; a refusal makes it the pending packet.
    void HandOver(CKorPacket* packet);

    CKorPacket* m_pPacket = nullptr; // one reference, or nullptr
    int m_LockCount = 0;
    bool m_InHandOver = false;
    std::deque<CJoinerPortComp*> m_Waiting; // borrowed; m_Ports holds them
    std::vector<CJoinerPortComp*> m_Ports;  // one reference each
};

class CJoinerPortComp : public CKorModule, public CKorInputPinComponent {
public:
    // Borrows joiner (the joiner holds its ports, not the other way round). Joins dataPath at once
    // when it is not empty.
    CJoinerPortComp(const char* dataPath, CJoinerComp* joiner);
    ~CJoinerPortComp() override;

    // The port is its own context on every path it joins.
    CKorModule* CreateContext(const char* path) override;

    // Takes packet's reference on non-zero; answers 0 while the port still holds a packet.
    int Receive(CKorPacket* packet) override;
    void Poll() override;
    void Flush() override;
    // "Flush" {}.
    int FlushHandler(CJokCommandContext* context);

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;

    CKorPacket* GetPendingPacket() const { return m_pPacket; } // borrowed, or nullptr
    double GetArrivalTime() const { return m_ArrivalTime; }

private:
    friend class CJoinerComp;
    static const CJokPropertyMap<CJoinerPortComp>& PropertyMap();
    // Gives up the pending packet (its reference) to the caller.
    CKorPacket* Take();

    CKorPacket* m_pPacket = nullptr; // one reference, or nullptr
    double m_ArrivalTime = 0.0;      // BelDoubleTime() seconds at which the waiting packet came
    CJoinerComp* m_pJoiner;
};

// The creation function registered as "CreateJoiner".
int CreateJoiner(CJokCommandContext* context);
