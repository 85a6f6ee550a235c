#include "framework/kor/Module.h"

#include "framework/bel/BelClock.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/bel/BelMessageLoop.h"
#include "framework/kor/Packet.h"

HINSTANCE CKorModuleBase::sm_hInstance = nullptr;
int CKorModule::sm_PrintOffset = 0;
unsigned CKorModule::sm_LinkGeneration = 0;

namespace {
CKorNullModule::DropObserver s_pDropObserver = nullptr;
} // namespace

// Routes the loop's messages to the module's WindowProc.
class CKorModuleBase::CWindowTarget final : public IBelWindowTarget {
public:
    explicit CWindowTarget(CKorModuleBase& module) : m_Module(module) {}
    void OnWindowMessage(HWND window, unsigned message, unsigned wParam, long lParam) override {
        m_Module.WindowProc(window, message, wParam, lParam);
    }

private:
    CKorModuleBase& m_Module;
};

CKorModuleBase::CKorModuleBase() = default;

CKorModuleBase::~CKorModuleBase() {
    if (m_hWnd) {
        CBelMessageLoop::Current().DestroyWindow(m_hWnd);
    }
    delete m_pWindowTarget;
}

void CKorModuleBase::WindowProc(HWND, unsigned, unsigned, long) {}

HWND CKorModuleBase::MakeWindow() {
    if (!m_hWnd) {
        m_pWindowTarget = new CWindowTarget(*this);
        m_hWnd = CBelMessageLoop::Current().MakeWindow(m_pWindowTarget);
    }
    return m_hWnd;
}

bool CKorModuleBase::PostMessage(unsigned message, unsigned wParam, long lParam) {
    return m_hWnd && CBelMessageLoop::PostMessage(m_hWnd, message, wParam, lParam);
}

int CKorModuleBase::DispatchQueued(unsigned message) {
    return m_hWnd ? CBelMessageLoop::DispatchQueued(m_hWnd, message) : 0;
}

long CKorModuleBase::MessageCount() {
    return CBelMessageLoop::MessageCount();
}

CKorModule::CKorModule(const char* name)
    : m_Name(name), m_pUpStream(CKorNullModule::GetModule()),
      m_pDownStream(CKorNullModule::GetModule()), m_ClockAnchor(BelDoubleTime()) {
    m_TimeAnchor = m_ClockAnchor * 1000.0;
}

CKorModule::CKorModule(const char* name, SNullTag)
    : m_Name(name), m_pUpStream(this), m_pDownStream(this) {}

CKorModule::~CKorModule() {
    if (IsNull()) {
        return;
    }
    CKorModule* up = m_pUpStream;
    CKorModule* down = m_pDownStream;
    m_pUpStream = m_pDownStream = CKorNullModule::GetModule();
    up->UnlinkModule(this);
    down->UnlinkModule(this);
    if (m_pTimeBase) {
        m_pTimeBase->Release();
    }
}

void CKorModule::TimeOut(long) {}

void CKorModule::WindowProc(HWND, unsigned, unsigned, long) {}

bool CKorModule::IsNull() const {
    return this == CKorNullModule::GetModule();
}

void CKorModule::LinkModule(CKorModule* downstream) {
    if (!downstream) {
        downstream = CKorNullModule::GetModule();
    }
    if (downstream == m_pDownStream) {
        return;
    }
    ++sm_LinkGeneration;
    CKorModule* old = m_pDownStream;
    m_pDownStream = downstream;
    if (old->UpStreamModule() == this) {
        old->UnlinkModule(this);
    }
    downstream->_LinkUpStreamModule(this);
}

void CKorModule::UnlinkModule(CKorModule* module) {
    if (!module || module->IsNull()) {
        return;
    }
    ++sm_LinkGeneration;
    if (m_pDownStream == module) {
        m_pDownStream = CKorNullModule::GetModule();
    }
    if (m_pUpStream == module) {
        m_pUpStream = CKorNullModule::GetModule();
    }
}

void CKorModule::_LinkUpStreamModule(CKorModule* upstream) {
    if (!upstream) {
        upstream = CKorNullModule::GetModule();
    }
    ++sm_LinkGeneration;
    CKorModule* old = m_pUpStream;
    m_pUpStream = upstream;
    if (old != upstream && old->DownStreamModule() == this) {
        old->UnlinkModule(this);
    }
}

int CKorModule::Receive(CKorPacket* packet) {
    if (m_InRecv) {
        BelDisplayAssert("!m_InRecv", __FILE__, __LINE__);
        return 0;
    }
    m_InRecv = 1;
    const int taken = m_pDownStream->Receive(packet);
    m_InRecv = 0;
    return taken;
}

void CKorModule::Poll() {
    m_pUpStream->Poll();
}

void CKorModule::PrintIndent() {
    BelDump("%*s", sm_PrintOffset, "");
}

void CKorModule::DropAfterException(CKorPacket*& packet) noexcept {
    try {
        const CBelString where = m_Name + "::ProcessPacket";
        BelDumpCurrentException(where.c_str(), "the packet was dropped");
    } catch (...) {
        BelDumpCurrentException("CKorModule::ProcessPacket", "the packet was dropped");
    }
    if (packet) {
        packet->Release();
        packet = nullptr;
    }
}

void CKorModule::PrintChain() {
    BelDump("%s\n", m_Name.c_str());
    sm_PrintOffset += 4;
    if (!m_pDownStream->IsNull()) {
        PrintIndent();
        m_pDownStream->PrintChain();
    }
    sm_PrintOffset -= 4;
}

int CKorModule::ShowModule(HDC, int, int) {
    return 0;
}

void CKorModule::DrawModule(HDC, int, int) {}

void CKorModule::Flush() {
    m_pDownStream->Flush();
}

double CKorModule::GetPreciseTime() const {
    return m_TimeAnchor + (BelDoubleTime() - m_ClockAnchor) * 1000.0 * m_TimeScaleFactor;
}

long CKorModule::GetTime() const {
    return static_cast<long>(GetPreciseTime());
}

void CKorModule::SetTime(long milliseconds) {
    m_TimeAnchor = static_cast<double>(milliseconds);
    m_ClockAnchor = BelDoubleTime();
}

void CKorModule::SetTimeScaleFactor(double scaleFactor) {
    m_TimeAnchor = GetPreciseTime();
    m_ClockAnchor = BelDoubleTime();
    m_TimeScaleFactor = scaleFactor;
}

void CKorModule::SetTimeBase(CKorTimeBasePacket* timeBase) {
    if (timeBase) {
        timeBase->AddRef();
    }
    if (m_pTimeBase) {
        m_pTimeBase->Release();
    }
    m_pTimeBase = timeBase;
    if (timeBase) {
        SetTime(timeBase->Time());
        m_TimeScaleFactor = timeBase->GetScaleFactor();
    }
}

CKorModule& operator|(CKorModule& a, CKorModule& b) {
    a.LinkModule(&b);
    return b;
}

CKorNullModule* CKorNullModule::GetModule() {
    // Never destroyed: modules may unlink from it during static destruction.
    static CKorNullModule* module = new CKorNullModule;
    return module;
}

CKorNullModule::CKorNullModule() : CKorModule("NullModule", SNullTag{}) {}

void CKorNullModule::SetDropObserver(DropObserver observer) {
    s_pDropObserver = observer;
}

int CKorNullModule::Receive(CKorPacket* packet) {
    if (packet) {
        packet->Release();
        if (s_pDropObserver) {
            s_pDropObserver();
        }
    }
    return 1;
}

void CKorCallback::Notify(int, void*) {}
void CKorCallback::Notify(int, CKorPacket*) {}
void CKorCallback::Notify(int, long, long) {}
void CKorCallback::Notify(int, long) {}
