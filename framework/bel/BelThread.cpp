#include "framework/bel/BelThread.h"

#include <chrono>

CBelThread::~CBelThread() {
    Join(-1);
}

bool CBelThread::Start(int priority, int) {
    if (m_Active.load() || m_Thread.joinable()) {
        return false;
    }
    m_Priority = priority;
    m_Active.store(true);
    m_Thread = std::thread([this] {
        Run();
        std::lock_guard<std::mutex> lock(m_DoneMutex);
        m_Active.store(false);
        m_Done.notify_all();
    });
    return true;
}

bool CBelThread::Join(long milliseconds) {
    if (!m_Thread.joinable()) {
        return true;
    }
    if (milliseconds >= 0) {
        std::unique_lock<std::mutex> lock(m_DoneMutex);
        if (!m_Done.wait_for(lock, std::chrono::milliseconds(milliseconds),
                             [this] { return !m_Active.load(); })) {
            return false;
        }
    }
    m_Thread.join();
    return true;
}

void CBelEvent::Set() {
    {
        std::lock_guard<std::mutex> lock(m_Mutex);
        m_Set = true;
    }
    m_Signal.notify_one();
}

void CBelEvent::Reset() {
    std::lock_guard<std::mutex> lock(m_Mutex);
    m_Set = false;
}

int CBelEvent::Wait(long milliseconds) {
    std::unique_lock<std::mutex> lock(m_Mutex);
    const auto isSet = [this] { return m_Set; };
    if (milliseconds < 0) {
        m_Signal.wait(lock, isSet);
    } else if (!m_Signal.wait_for(lock, std::chrono::milliseconds(milliseconds), isSet)) {
        return 0;
    }
    m_Set = false;
    return 1;
}
