#include "io/ScriptSource.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/CommandContext.h"
#include "framework/kor/Packet.h"
#include "io/PacketObject.h"

CScriptSourceModule::CScriptSourceModule() : CKorModule("ScriptSource") {}

CScriptSourceModule::~CScriptSourceModule() {
    if (m_pPending) {
        m_pPending->Release();
    }
}

bool CScriptSourceModule::Push(CKorPacket* packet) {
    if (m_pPending) {
        return false; // the waiting packet goes first
    }
    packet->AddRef();
    if (DownStreamModule()->Receive(packet)) {
        ++m_Delivered;
        return true;
    }
    m_pPending = packet;
    return false;
}

void CScriptSourceModule::Poll() {
    if (m_pPending && DownStreamModule()->Receive(m_pPending)) {
        m_pPending = nullptr;
        ++m_Delivered;
    }
}

void CScriptSourceModule::Flush() {
    if (m_pPending) {
        m_pPending->Release();
        m_pPending = nullptr;
    }
    DownStreamModule()->Flush();
}

CScriptSourceCom::CScriptSourceCom(const char* path)
    : CKorOutputPinComponent("ScriptSource"), m_Path(path) {
    ConnectPath(path);
}

CKorModule* CScriptSourceCom::CreateContext(const char* path) {
    if (CKorModule* existing = _GetContext(path)) {
        return existing;
    }
    if (m_pModule) {
        BelDump("CScriptSourceCom::CreateContext -> a source gives packets out on one path; it "
                "cannot join '%s'.\n",
                path);
        return nullptr;
    }
    m_pModule = new CScriptSourceModule;
    return RememberContext(path, m_pModule);
}

const CJokPropertyMap<CScriptSourceCom>& CScriptSourceCom::PropertyMap() {
    static const CJokPropertyMap<CScriptSourceCom> map = [] {
        CJokPropertyMap<CScriptSourceCom> m;
        m.AddFunction("push", &CScriptSourceCom::Push, "&CScriptSourceCom::Push")
            .AddFunction("flush", &CScriptSourceCom::Flush, "&CScriptSourceCom::Flush")
            .AddNotifiedBoolean("pending", &CScriptSourceCom::PendingHandler,
                                "&CScriptSourceCom::PendingHandler", 1)
            .AddNotifiedDouble("delivered", &CScriptSourceCom::DeliveredHandler,
                               "&CScriptSourceCom::DeliveredHandler", 1);
        return m;
    }();
    return map;
}

CJokGenericData* CScriptSourceCom::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKorOutputPinComponent::GetProperty(name, flags);
}

int CScriptSourceCom::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKorOutputPinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CScriptSourceCom::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKorOutputPinComponent::GetPropertyEnumerator());
}

int CScriptSourceCom::Push(CJokCommandContext* context) {
    CKorPacket* packet = CHostPacketObject::FromParam(context, "packet");
    if (!packet) {
        context->OutputErrorString("source.push: expected a packet");
        return 1;
    }
    if (!m_pModule) {
        context->OutputErrorString("source.push: the source is on no data path (give it a path or "
                                   "connect it)");
        return 1;
    }
    context->SetReturnValueNoRef(CJokGdBoolean::Allocate(m_pModule->Push(packet)));
    return 1;
}

int CScriptSourceCom::Flush(CJokCommandContext*) {
    if (m_pModule) {
        m_pModule->Flush();
    }
    return 1;
}

int CScriptSourceCom::PendingHandler(int* value, int set) {
    if (set) {
        return 0;
    }
    *value = m_pModule && m_pModule->Pending();
    return 1;
}

int CScriptSourceCom::DeliveredHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = m_pModule ? static_cast<double>(m_pModule->Delivered()) : 0.0;
    return 1;
}
