#include "io/ScriptSink.h"

#include "framework/jok/CommandContext.h"
#include "framework/kor/Packet.h"
#include "io/PacketObject.h"

CScriptSinkModule::CScriptSinkModule(CScriptSinkCom* owner)
    : CKorModule("ScriptSink"), m_pOwner(owner) {}

int CScriptSinkModule::Receive(CKorPacket* packet) {
    return m_pOwner->Take(packet);
}

CScriptSinkCom::CScriptSinkCom(const char* path) : CKorInputPinComponent("ScriptSink") {
    ConnectPath(path);
}

CScriptSinkCom::~CScriptSinkCom() {
    Clear();
    if (m_pIOnPacket) {
        m_pIOnPacket->Release();
    }
}

CKorModule* CScriptSinkCom::CreateContext(const char* path) {
    if (CKorModule* existing = _GetContext(path)) {
        return existing;
    }
    auto* module = new CScriptSinkModule(this);
    m_Modules.push_back(module);
    return RememberContext(path, module);
}

int CScriptSinkCom::Take(CKorPacket* packet) {
    if (m_Refuse || !CallbackAccepts(packet)) {
        ++m_Refused;
        return 0;
    }
    m_Packets.push_back(packet);
    return 1;
}

bool CScriptSinkCom::CallbackAccepts(CKorPacket* packet) {
    if (!m_pIOnPacket) {
        return true;
    }
    CJokCommandContext context;
    context.AddParamNoRef(nullptr, CHostPacketObject::NewValue(packet));
    context.AddParam(nullptr, static_cast<CJokCOMObject*>(this));
    m_pIOnPacket->CallMethod(&context);
    const CJokGenericData* result = context.GetReturnValue();
    const bool refused = result && result->GetType() == JOKGD_BOOLEAN &&
                         !static_cast<const CJokGdBoolean*>(result)->GetValue();
    return !refused;
}

void CScriptSinkCom::Clear() {
    // Swap first: releasing a packet must not find the list half cleared.
    std::vector<CKorPacket*> packets;
    packets.swap(m_Packets);
    for (CKorPacket* packet : packets) {
        packet->Release();
    }
}

const CJokPropertyMap<CScriptSinkCom>& CScriptSinkCom::PropertyMap() {
    static const CJokPropertyMap<CScriptSinkCom> map = [] {
        CJokPropertyMap<CScriptSinkCom> m;
        m.AddBoolean("refuse", &CScriptSinkCom::m_Refuse, "&CScriptSinkCom::m_Refuse")
            .AddInterface("onPacket", &CScriptSinkCom::m_pIOnPacket, IID_IJokCommand, "IJokCommand",
                          "&CScriptSinkCom::m_pIOnPacket")
            .AddNotifiedDouble("refused", &CScriptSinkCom::RefusedHandler,
                               "&CScriptSinkCom::RefusedHandler", 1)
            .AddFunction("packets", &CScriptSinkCom::PacketsMethod,
                         "&CScriptSinkCom::PacketsMethod")
            .AddFunction("count", &CScriptSinkCom::CountMethod, "&CScriptSinkCom::CountMethod")
            .AddFunction("clear", &CScriptSinkCom::ClearMethod, "&CScriptSinkCom::ClearMethod")
            .AddFunction("poll", &CScriptSinkCom::PollMethod, "&CScriptSinkCom::PollMethod");
        return m;
    }();
    return map;
}

CJokGenericData* CScriptSinkCom::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKorInputPinComponent::GetProperty(name, flags);
}

int CScriptSinkCom::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKorInputPinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CScriptSinkCom::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKorInputPinComponent::GetPropertyEnumerator());
}

int CScriptSinkCom::PacketsMethod(CJokCommandContext* context) {
    CJokGdVector* list = CJokGdVector::Allocate(static_cast<int>(m_Packets.size()));
    for (size_t i = 0; i < m_Packets.size(); ++i) {
        CJokGdObject* value = CHostPacketObject::NewValue(m_Packets[i]);
        list->SetElement(static_cast<int>(i), value);
        value->Release();
    }
    context->SetReturnValueNoRef(list);
    return 1;
}

int CScriptSinkCom::CountMethod(CJokCommandContext* context) {
    context->SetReturnValueNoRef(CJokGdDouble::Allocate(static_cast<double>(m_Packets.size())));
    return 1;
}

int CScriptSinkCom::ClearMethod(CJokCommandContext*) {
    Clear();
    return 1;
}

int CScriptSinkCom::PollMethod(CJokCommandContext*) {
    // Polling may end in a callback that changes the module list: walk a copy.
    const std::vector<CScriptSinkModule*> modules = m_Modules;
    for (CScriptSinkModule* module : modules) {
        module->UpStreamModule()->Poll();
    }
    return 1;
}

int CScriptSinkCom::RefusedHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = static_cast<double>(m_Refused);
    return 1;
}
