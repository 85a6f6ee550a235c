// Splitter: gives every packet of one stream to any number of ports, each feeding its own
// downstream chain. A packet is shared by reference (n ports hold n references of one object,
// never a copy), and the splitter moves at the pace of its slowest port: it takes a new packet
// in only when every port has delivered the previous one.
//
//     local split = zor.CreateSplitter{ dataPath = "video" }
//     local a = split.CreatePort{ dataPath = "a" }   -- branch "a" starts at this port
//     local b = split.CreatePort{ dataPath = "b" }
//
// Invariants:
//  - The splitter holds at most one packet that not every port has taken; each port holds at
//    most one packet its downstream refused. The splitter offers a packet to the ports only when
//    every port is empty, so a port always accepts.
//  - The port table only grows, 5 slots at a time; a removed port leaves an empty slot that the
//    next CreatePort reuses. A splitter with no ports discards its input.
//  - Delivery survives ports being added or removed by a downstream call: slots are re-read on
//    every step, a port removed before its turn is skipped without its reference, and a port
//    added during a delivery starts with the next packet.
#pragma once

#include "entry/ZorExport.h"
#include "framework/jok/PropertyMap.h"
#include "framework/kor/Module.h"
#include "framework/kor/PinComponent.h"

#include <vector>

class CKorPacket;
class CZorSplitterPort;
class CSplitterPortCom;

class ZOR_EXPORT CZorSplitter : public CKorModule {
public:
    explicit CZorSplitter(const char* name = "Splitter");
    // Releases the pending packet; ports still in the table outlive the splitter, orphaned.
    ~CZorSplitter() override;

    // A new port (owned by the caller) in the first empty slot, linked below the splitter.
    CZorSplitterPort* CreatePort();

    // Takes packet's reference on non-zero; answers 0 while a slow port still holds the packet
    // taken before.
    int Receive(CKorPacket* packet) override;
    void Poll() override;
    void Flush() override;
    void UnlinkModule(CKorModule* module) override;
    void PrintChain() override;

    // The data path the splitter serves, for its messages.
    void SetPathLabel(const char* path) { m_PathLabel = path; }

    int GetPortTableLength() const { return m_nPorts; }
    CZorSplitterPort* GetPort(int slot) const { return m_ppPorts[slot]; } // borrowed, or nullptr
    CKorPacket* GetPendingPacket() const { return m_pPacket; }            // borrowed, or nullptr

private:
    friend class CZorSplitterPort;
    // Clears the port's slot (the port is going away) and lets a waiting packet move on.
    void RemovePort(CZorSplitterPort* port);
    void Push();

    CZorSplitterPort** m_ppPorts = nullptr;
    int m_nPorts = 0;
    CKorPacket* m_pPacket = nullptr; // one reference, or nullptr
    // Delivery bookkeeping, so that the port table may change under a delivery.
    bool m_Delivering = false;
    int m_DeliverSlot = -1;   // slot being served
    int m_PortsToServe = 0;   // present ports not yet served
    unsigned m_PushCount = 0; // deliveries so far; ports made during one skip it
    unsigned m_TableChanges = 0;
    CBelString m_PathLabel;
    bool m_ToldNoPorts = false; // a splitter without ports says so once
};

class ZOR_EXPORT CZorSplitterPort final : public CKorModule {
public:
    explicit CZorSplitterPort(const char* name = "CZorSplitterPort");
    // Releases the pending packet and leaves the parent's table.
    ~CZorSplitterPort() override;

    // Takes packet's reference; always answers 1.
    int Receive(CKorPacket* packet) override;
    // Offers the pending packet first; only an empty port passes the poll up to the splitter.
    void Poll() override;
    void Flush() override;
    void UnlinkModule(CKorModule* module) override;

    // Offers the pending packet downstream; answers true when the port is empty afterwards.
    bool Push();
    CKorPacket* GetPendingPacket() const { return m_Packet; } // borrowed, or nullptr
    // With the flag set, a port unlinked at both ends deletes itself. Only for ports whose owner
    // is their connection code, never for ports a component's bus owns.
    void SetSelfDelete(bool selfDelete) { m_SelfDelete = selfDelete; }

private:
    friend class CZorSplitter;
    CKorPacket* m_Packet = nullptr; // one reference, or nullptr
    bool m_SelfDelete = false;
    unsigned m_BornInPush = 0; // the splitter's delivery count when made during a delivery
};

// "CreateSplitter": one CZorSplitter per data path; its ports are CSplitterPortCom components.
class CSplitterCom : public CKorInputPinComponent {
public:
    // Joins dataPath at once when it is not empty.
    explicit CSplitterCom(const char* dataPath);
    ~CSplitterCom() override;

    // The splitter module of the path (borrowed; the bus owns it), made on first request.
    CKorModule* CreateContext(const char* path) override;
    void DataPathCreated(const char* path) override;

    // The splitter a port serving path hangs on: the splitter of that path when this component
    // serves it, else the splitter of this component's own path.
    CZorSplitter* SplitterFor(const char* path);

    // "CreatePort" { dataPath = "..." }: a new port component, joined to its own path and to every
    // path this component joined.
    int CreatePort(CJokCommandContext* context);
    // "RemovePort" { port = p }: the port leaves the splitter at once (its modules are deleted,
    // so a packet that waited only for it moves on); a script value still holding it holds a
    // component on no path. Answers whether p was a port of this splitter.
    int RemovePort(CJokCommandContext* context);

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;

    const CBelString& GetDataPath() const { return m_DataPath; }
    const std::vector<CSplitterPortCom*>& GetPorts() const { return m_Ports; }

private:
    friend class CSplitterPortCom;
    static const CJokPropertyMap<CSplitterCom>& PropertyMap();

    CBelString m_DataPath;
    std::vector<CSplitterPortCom*> m_Ports; // one reference each
    CBelString m_LastPath;
    CZorSplitter* m_pLastSplitter = nullptr;
    std::vector<CZorSplitter*> m_Splitters; // borrowed from the bus, one per path
};

class CSplitterPortCom : public CKorOutputPinComponent {
public:
    // Borrows splitter (the splitter holds this port, not the other way round). Joins dataPath at
    // once when it is not empty.
    CSplitterPortCom(const char* dataPath, CSplitterCom* splitter);

    // The port module of the path (borrowed; the bus owns it), made on first request; nullptr
    // once the splitter component is gone or has removed the port.
    CKorModule* CreateContext(const char* path) override;
    // Leaves the splitter: no more modules, the existing ones deleted.
    void Detach();
    // On its splitter's own paths a port is only the current end until a member joins after it;
    // packets that fall off there are copies the other ports deliver.
    bool MayEndOpen(const char* path) const override;

    const CBelString& GetDataPath() const { return m_DataPath; }

private:
    friend class CSplitterCom;
    CBelString m_DataPath;
    CSplitterCom* m_pSplitter;
};

// The creation function registered as "CreateSplitter".
int CreateSplitter(CJokCommandContext* context);
