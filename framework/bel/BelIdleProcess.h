// CBelIdleProcess: work that runs on its thread's message loop whenever the loop has nothing else
// to deliver (background flushing, housekeeping). OnIdle answers true while it has more to do.
#pragma once

class CBelMessageLoop;

class CBelIdleProcess {
public:
    // Registers with the calling thread's loop.
    CBelIdleProcess();
    virtual ~CBelIdleProcess();
    CBelIdleProcess(const CBelIdleProcess&) = delete;
    CBelIdleProcess& operator=(const CBelIdleProcess&) = delete;

    virtual bool OnIdle() = 0;

private:
    CBelMessageLoop& m_Loop;
};
