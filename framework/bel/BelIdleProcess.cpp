#include "framework/bel/BelIdleProcess.h"

#include "framework/bel/BelMessageLoop.h"

CBelIdleProcess::CBelIdleProcess() : m_Loop(CBelMessageLoop::Current()) {
    m_Loop.AddIdleProcess(this);
}

CBelIdleProcess::~CBelIdleProcess() {
    m_Loop.RemoveIdleProcess(this);
}
