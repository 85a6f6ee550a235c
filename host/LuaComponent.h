// Component objects in Lua: a userdata that holds one reference to a component, a function
// object or any other object value, released when the garbage collector finalises it.
//
//     local split = zor.CreateSplitter{ dataPath = "video" }
//     split.threshold = 2.0            -- SetProperty
//     print(split.threshold)           -- GetProperty
//     local port = split.CreatePort{ dataPath = "b1" }   -- a function property, called
//     vmd.onVMD = function(motion, self) ... end          -- a callback
//
// Reading or writing a name the object does not have, or writing a value it refuses, is a Lua
// error that lists what the object has. Calling an object calls its CallMethod: one table of
// named fields gives named parameters, any other arguments positional ones; a method may be
// called with ':' as well, as the owner is then left out. A call that reports a script error
// and returns nothing gives nil with the message in the diagnostics, except for the host's own
// components, whose faults are Lua errors.
#pragma once

#include "host/LuaValue.h"

struct lua_State;

// Pushes a new Lua object holding its own reference to object (borrowed).
void LuaPushObject(lua_State* L, IUnknown* object, const SLuaOrigin& origin = {});
// The object behind the Lua value at index (borrowed), or nullptr when it is none (also for an
// object value whose reference was released).
IUnknown* LuaToObject(lua_State* L, int index);
// Whether the value at index is an object value, released or not.
bool LuaIsObject(lua_State* L, int index);
// "ScriptSink", "CreatePort", ...: how messages name an object.
std::string LuaObjectName(IUnknown* object);
// The object's property names, ", "-separated ("" when it lists none).
std::string LuaPropertyNames(IUnknown* object);
void LuaRegisterObjectType(lua_State* L);
