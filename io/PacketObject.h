// CHostPacketObject: a packet as a script value.
//
// Packets are not script values of their own; wrapping one in an object lets it travel through
// command contexts like any other value: a method's parameter (source.push(p)), its return value
// (sink.packets()) or a callback's argument (sink.onPacket). The object holds one reference to
// the packet for as long as it lives.
#pragma once

#include "framework/jok/COMObject.h"

class CJokCommandContext;
class CJokGdObject;
class CJokGenericData;
class CKorPacket;

class CHostPacketObject : public CJokCOMObject {
public:
    // A new object value (one reference for the caller) holding its own reference to packet,
    // which is borrowed.
    static CJokGdObject* NewValue(CKorPacket* packet);
    // The packet behind a value (borrowed), or nullptr when the value holds no packet.
    static CKorPacket* FromValue(const CJokGenericData* value);
    // The packet a method was given (borrowed): the named parameter, else the first positional
    // one; nullptr when neither holds a packet.
    static CKorPacket* FromParam(const CJokCommandContext* context, const char* name);

    CKorPacket* GetPacket() const { return m_pPacket; } // borrowed

private:
    explicit CHostPacketObject(CKorPacket* packet);
    ~CHostPacketObject() override;

    CKorPacket* m_pPacket; // one reference
};
