// Helpers shared by the routing tests: source and sink components that join data paths, a sink
// that records arrival order across several sinks, and a queue source.
#pragma once

#include "framework/jok/CommandContext.h"
#include "framework/jok/GenericData.h"
#include "framework/kor/PinComponent.h"
#include "tests/support/Harness.h"

#include <deque>
#include <utility>
#include <vector>

namespace routingtest {

// A component with one module of type TModule per data path, joined at construction.
template <class TBase, class TModule> class CPathCom : public TBase {
public:
    explicit CPathCom(const char* path) : TBase("Test") { this->ConnectPath(path); }
    CKorModule* CreateContext(const char* path) override {
        if (CKorModule* existing = this->_GetContext(path)) {
            return existing;
        }
        return this->RememberContext(path, new TModule);
    }
    TModule* Module(const char* path) { return static_cast<TModule*>(this->_GetContext(path)); }
};
using CSourceCom = CPathCom<CKorOutputPinComponent, zortest::CTestSource>;
using CSinkCom = CPathCom<CKorInputPinComponent, zortest::CTestSink>;

// Takes every packet and notes (tag, timestamp) in a log shared between recorders.
class CRecorder : public CKorModule {
public:
    CRecorder(std::vector<std::pair<int, long>>* log, int tag)
        : CKorModule("Recorder"), m_pLog(log), m_Tag(tag) {}
    int Receive(CKorPacket* packet) override {
        m_pLog->emplace_back(m_Tag, packet->GetTimeStamp());
        packet->Release();
        return 1;
    }

private:
    std::vector<std::pair<int, long>>* m_pLog;
    int m_Tag;
};

// Offers its queue downstream, in order, whenever polled.
class CQueueSource : public CKorModule {
public:
    CQueueSource() : CKorModule("QueueSource") {}
    ~CQueueSource() override {
        for (CKorPacket* packet : m_Queue) {
            packet->Release();
        }
    }
    void Add(CKorPacket* packet) { m_Queue.push_back(packet); } // takes the reference
    void Poll() override {
        while (!m_Queue.empty() && DownStreamModule()->Receive(m_Queue.front())) {
            m_Queue.pop_front();
        }
    }
    int Left() const { return static_cast<int>(m_Queue.size()); }

private:
    std::deque<CKorPacket*> m_Queue;
};

// Calls a creation function or method; answers what it returned with the caller holding the
// only reference (the context keeps none), or nullptr.
template <class T, class F> T* Call(F&& function, CJokCommandContext& context) {
    function(&context);
    CJokGenericData* value = context.DetachReturnValue();
    if (!value) {
        return nullptr;
    }
    T* made = nullptr;
    if (value->GetType() == JOKGD_OBJECT) {
        made = dynamic_cast<T*>(static_cast<CJokGdObject*>(value)->GetCOMObject());
    }
    if (made) {
        made->AddRef();
    }
    value->Release();
    return made;
}

} // namespace routingtest
