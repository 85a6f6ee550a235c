// zor.sink: a component that collects the packets it receives, for scripts to check.
//
//     local sink = zor.sink{ path = "video" }
//     sink.refuse = true          -- refuse everything from now on
//     sink.onPacket = function(packet, self) return packet.ts < 1000 end
//     ...
//     sink.refuse = false
//     sink.poll()                 -- ask upstream to offer what it holds back
//     print(sink.count(), sink.packets()[1].ts)
//
// It keeps one reference to every packet it takes, until clear() or its end. While "refuse" is
// set it answers every Receive with 0, which leaves the packet with the sender (the packet road's
// back-pressure); onPacket, when set, is called with (packet, sink) before a packet is taken,
// and a false result refuses that packet. The sink joins any number of paths; all feed one list.
#pragma once

#include "framework/jok/PropertyMap.h"
#include "framework/kor/Module.h"
#include "framework/kor/PinComponent.h"

#include <vector>

class CScriptSinkCom;

class CScriptSinkModule : public CKorModule {
public:
    explicit CScriptSinkModule(CScriptSinkCom* owner);
    // Takes the packet (answer 1) unless the owner refuses it (answer 0, packet untouched).
    int Receive(CKorPacket* packet) override;

private:
    CScriptSinkCom* m_pOwner; // owns this module through its bus
};

class CScriptSinkCom : public CKorInputPinComponent {
public:
    // Joins path unless it is empty.
    explicit CScriptSinkCom(const char* path);
    ~CScriptSinkCom() override;

    CKorModule* CreateContext(const char* path) override;
    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;

    // Takes packet's reference and answers 1, or answers 0 when refusing it.
    int Take(CKorPacket* packet);
    const std::vector<CKorPacket*>& Packets() const { return m_Packets; } // borrowed

private:
    static const CJokPropertyMap<CScriptSinkCom>& PropertyMap();
    // Asks the callback; answers false when it returned false.
    bool CallbackAccepts(CKorPacket* packet);
    void Clear();
    int PacketsMethod(CJokCommandContext* context);
    int CountMethod(CJokCommandContext* context);
    int ClearMethod(CJokCommandContext* context);
    int PollMethod(CJokCommandContext* context);
    int RefusedHandler(double* value, int set);

    int m_Refuse = 0;
    IJokCommand* m_pIOnPacket = nullptr; // one reference, or nullptr
    long m_Refused = 0;
    std::vector<CKorPacket*> m_Packets;        // one reference each
    std::vector<CScriptSinkModule*> m_Modules; // owned by the bus
};
