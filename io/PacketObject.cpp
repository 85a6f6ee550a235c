#include "io/PacketObject.h"

#include "framework/jok/CommandContext.h"
#include "framework/jok/GenericData.h"
#include "framework/kor/Packet.h"

CHostPacketObject::CHostPacketObject(CKorPacket* packet) : m_pPacket(packet) {
    m_pPacket->AddRef();
}

CHostPacketObject::~CHostPacketObject() {
    m_pPacket->Release();
}

CJokGdObject* CHostPacketObject::NewValue(CKorPacket* packet) {
    auto* object = new CHostPacketObject(packet);
    CJokGdObject* value = CJokGdObject::Allocate(object);
    object->Release(); // the value holds the only reference now
    return value;
}

CKorPacket* CHostPacketObject::FromValue(const CJokGenericData* value) {
    if (!value || value->GetType() != JOKGD_OBJECT) {
        return nullptr;
    }
    auto* object =
        dynamic_cast<CHostPacketObject*>(static_cast<const CJokGdObject*>(value)->GetCOMObject());
    return object ? object->m_pPacket : nullptr;
}

CKorPacket* CHostPacketObject::FromParam(const CJokCommandContext* context, const char* name) {
    const CJokGenericData* value = context->FindParam(name);
    return FromValue(value ? value : context->GetPositional(0));
}
