#include "framework/kor/MultiThreadedModule.h"

#include "framework/bel/BelDiagnostics.h"

#include "framework/kor/Packet.h"

CKorMultiThreadedModule::CKorMultiThreadedModule(const char* name, bool startNow, bool highPriority,
                                                 int queueLimit)
    : CKorModule(name), m_QueueLimit(queueLimit > 0 ? queueLimit : 1) {
    MakeWindow();
    SetPriority(highPriority ? 1 : 0);
    if (startNow) {
        Start();
    }
}

CKorMultiThreadedModule::~CKorMultiThreadedModule() {
    StopThread();
    for (CKorPacket* packet : m_Input) {
        packet->Release();
    }
    for (CKorPacket* packet : m_Results) {
        packet->Release();
    }
}

void CKorMultiThreadedModule::StopThread() {
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        m_Stopping = true;
    }
    m_Changed.notify_all();
    Join(-1);
}

int CKorMultiThreadedModule::Receive(CKorPacket* packet) {
    if (m_Disabled) {
        return DownStreamModule()->Receive(packet);
    }
    if (!IsActive()) {
        Start();
    }
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        if (m_Stopping || static_cast<int>(m_Input.size()) >= m_QueueLimit) {
            return 0;
        }
        m_Input.push_back(packet);
    }
    m_Changed.notify_all();
    return 1;
}

void CKorMultiThreadedModule::Run() {
    std::unique_lock<std::mutex> lock(m_Mutex);
    for (;;) {
        m_Changed.wait(lock, [this] { return m_Stopping || !m_Input.empty(); });
        if (m_Stopping) {
            return;
        }
        m_pPacket = m_Input.front();
        m_Input.pop_front();
        m_Busy = true;
        lock.unlock();
        try {
            ProcessPacket();
        } catch (...) {
            DropAfterException(m_pPacket);
        }
        lock.lock();
        if (m_pPacket) {
            m_Results.push_back(m_pPacket);
            m_pPacket = nullptr;
        }
        m_Busy = false;
        const bool announce = !m_Results.empty() && !m_ResultsAnnounced;
        m_ResultsAnnounced = m_ResultsAnnounced || announce;
        m_Changed.notify_all();
        if (announce) {
            lock.unlock();
            PostMessage(kResultsReady, 0, 0);
            lock.lock();
        }
    }
}

void CKorMultiThreadedModule::Output(CKorPacket* packet) {
    std::lock_guard<std::mutex> lock(m_Mutex);
    m_Results.push_back(packet);
}

void CKorMultiThreadedModule::DeliverResults() {
    for (;;) {
        CKorPacket* packet = nullptr;
        {
            std::lock_guard<std::mutex> lock(m_Mutex);
            m_ResultsAnnounced = false;
            if (m_Results.empty()) {
                break;
            }
            packet = m_Results.front();
            m_Results.pop_front();
        }
        if (!DownStreamModule()->Receive(packet)) {
            std::lock_guard<std::mutex> lock(m_Mutex);
            m_Results.push_front(packet);
            break;
        }
    }
    m_Changed.notify_all();
}

void CKorMultiThreadedModule::WindowProc(HWND, unsigned message, unsigned, long) {
    if (message == kResultsReady) {
        DeliverResults();
    }
}

void CKorMultiThreadedModule::Poll() {
    DeliverResults();
    bool idle = false;
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        idle = m_Results.empty() && static_cast<int>(m_Input.size()) < m_QueueLimit;
    }
    if (idle) {
        CKorModule::Poll();
    }
}

void CKorMultiThreadedModule::Flush() {
    std::deque<CKorPacket*> dropped;
    {
        std::unique_lock<std::mutex> lock(m_Mutex);
        dropped.swap(m_Input);
        m_Changed.wait(lock, [this] { return !m_Busy; });
        dropped.insert(dropped.end(), m_Results.begin(), m_Results.end());
        m_Results.clear();
    }
    for (CKorPacket* packet : dropped) {
        packet->Release();
    }
    CKorModule::Flush();
}

void CKorMultiThreadedModule::Synch() {
    {
        std::unique_lock<std::mutex> lock(m_Mutex);
        m_Changed.wait(lock, [this] { return m_Stopping || (m_Input.empty() && !m_Busy); });
    }
    DeliverResults();
}
