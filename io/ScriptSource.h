// zor.source: a component whose packets come from the script.
//
//     local src = zor.source{ path = "video" }
//     local sink = zor.sink{ path = "video" }
//     assert(src.push(zor.packet{ kind = "video", ts = 40 }))
//
// push(packet) offers the packet downstream at once and answers whether it was taken. A refused
// packet waits inside the source (it keeps its own reference) and is offered again when
// downstream polls upstream; while one waits, push refuses further packets without offering
// them, so packets never overtake each other.
//
// A source gives packets out on one data path: the one it joins when made, or the first one it
// is connected on.
#pragma once

#include "framework/jok/PropertyMap.h"
#include "framework/kor/Module.h"
#include "framework/kor/PinComponent.h"

class CScriptSourceModule : public CKorModule {
public:
    CScriptSourceModule();
    ~CScriptSourceModule() override;

    // Borrows packet. Answers whether downstream took it; a refused packet is kept (with a new
    // reference) when nothing waits yet.
    bool Push(CKorPacket* packet);
    // Offers the waiting packet again.
    void Poll() override;
    // Drops the waiting packet and flushes downstream.
    void Flush() override;

    CKorPacket* Pending() const { return m_pPending; } // borrowed
    long Delivered() const { return m_Delivered; }

private:
    CKorPacket* m_pPending = nullptr; // one reference
    long m_Delivered = 0;
};

class CScriptSourceCom : public CKorOutputPinComponent {
public:
    // Joins path unless it is empty.
    explicit CScriptSourceCom(const char* path);

    CKorModule* CreateContext(const char* path) override;
    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;

    CScriptSourceModule* Module() const { return m_pModule; } // borrowed; nullptr until joined

private:
    static const CJokPropertyMap<CScriptSourceCom>& PropertyMap();
    int Push(CJokCommandContext* context);
    int Flush(CJokCommandContext* context);
    int PendingHandler(int* value, int set);
    int DeliveredHandler(double* value, int set);

    CBelString m_Path;
    CScriptSourceModule* m_pModule = nullptr; // owned by the bus
};
