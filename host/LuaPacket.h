// Packets in Lua: zor.packet{...} makes one from a table, and a packet userdata (holding one
// reference, released when collected) exposes the same fields for reading.
//
//     local p = zor.packet{ kind = "video", ts = 40, frameType = "I", stream = 1,
//                           attributes = { [1] = 12 }, data = "\0\1\2" }
//     print(p.kind, p.ts, p.tsValid, p.size, p.attributes[1], p.refcount)
//
// Fields: kind ("data", "audio", "text", "timebase", "video" or the numeric code; default
// "data"), ts (ms; tsValid defaults to whether ts is given), tsValid, rts (s), stream, frameType
// (0..5 or "I", "P", "PB", "B", "EI", "EP"), layer, attributes (number -> integer), data (a
// string of bytes), text and schema (text packets), time, scale and flags (time-base packets),
// format (audio: {tag, channels, rate, avgBytes, blockAlign, bits, seq, extra}; video: {width,
// height, compression, bits, seq}). Missing audio fields are derived (blockAlign from channels and
// bits, avgBytes from rate); identical formats share one format sequence number unless seq is
// given. Reading adds size, capacity, formatSeq and refcount. An unknown or wrongly typed field is
// a Lua error.
#pragma once

#include "framework/bel/WinTypes.h"

#include <string>

struct lua_State;
class CKorPacket;

// Pushes a new Lua packet holding its own reference to packet (borrowed).
void LuaPushPacket(lua_State* L, CKorPacket* packet);
// The packet behind the Lua value at index (borrowed), or nullptr (also for a packet value
// whose reference was released).
CKorPacket* LuaToPacket(lua_State* L, int index);
// Whether the value at index is a packet value, released or not.
bool LuaIsPacket(lua_State* L, int index);
// Reads an audio format table; false with *error set when a field is missing or wrong. The
// record's extra bytes (field "extra", a string) go to *extra and their count to cbSize; without
// extra the field is refused.
bool LuaReadAudioFormat(lua_State* L, int index, WAVEFORMATEX* format, std::string* error,
                        std::string* extra = nullptr);
void LuaRegisterPacketType(lua_State* L);
// zor.packet
int LuaNewPacket(lua_State* L);
