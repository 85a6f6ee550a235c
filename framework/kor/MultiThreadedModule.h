// CKorMultiThreadedModule: a module that runs ProcessPacket on a thread of its own.
//
// Receive queues the packet for the module's thread (and refuses it while the input queue is
// full, so back-pressure reaches the sender as with any module). The thread makes each packet the
// current one and calls ProcessPacket; what is still current afterwards, and whatever the
// processing hands to Output, is queued for the owning thread and announced through the module's
// hidden window. On the owning thread the results go downstream in order; a refused result waits
// for Poll. While processing is disabled, Receive passes packets straight on, on the caller's
// thread.
#pragma once

#include "framework/bel/BelThread.h"
#include "framework/kor/Module.h"

#include <condition_variable>
#include <deque>
#include <mutex>

class CKorMultiThreadedModule : public CKorModule, private CBelThread {
public:
    // startNow: start the thread at once (else on the first Receive). highPriority: ask for a
    // raised thread priority (advisory). queueLimit: how many packets may wait for the thread
    // before Receive refuses.
    CKorMultiThreadedModule(const char* name, bool startNow, bool highPriority, int queueLimit = 8);
    // Stops the thread and releases every packet still queued.
    ~CKorMultiThreadedModule() override;

    void WindowProc(HWND window, unsigned message, unsigned wParam, long lParam) override;
    int Receive(CKorPacket* packet) override;
    void Poll() override;
    void Flush() override;

    // Waits until the thread has processed every queued packet, then sends the results on.
    void Synch();
    void DisableProcessing(int disable) { m_Disabled = disable != 0; }
    bool IsDisabled() const { return m_Disabled; }

protected:
    // Runs on the module's thread with m_pPacket set; may modify, replace or release it.
    virtual void ProcessPacket() = 0;
    // From ProcessPacket: queues an extra result (takes its reference).
    void Output(CKorPacket* packet);
    // Stops the thread; a derived class calls it first in its destructor so that ProcessPacket
    // never runs on a half-destroyed object.
    void StopThread();

    CKorPacket* m_pPacket = nullptr;

private:
    static constexpr unsigned kResultsReady = 0x0401;

    void Run() override;
    void DeliverResults();

    const int m_QueueLimit;
    bool m_Disabled = false;
    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    std::deque<CKorPacket*> m_Input;
    std::deque<CKorPacket*> m_Results;
    bool m_Busy = false;
    bool m_Stopping = false;
    bool m_ResultsAnnounced = false;
};
