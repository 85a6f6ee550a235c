// Conversions between Lua values and script values (CJokGenericData), and Lua functions as
// callbacks.
//
//   Lua                              script value
//   nil                              none (a missing parameter); null where a value is needed
//   boolean / number / string        boolean / double / string
//   zor.null                         null
//   array table {a, b, ...}          vector, recursively
//   table with named fields          record: vector {"name1", v1, "name2", v2, ...} by name order
//   component or function object     object
//   packet                           object holding the packet (CHostPacketObject)
//   function                         object: a callback (IJokCommand) that calls the function
// Back to Lua: none gives nil, vectors give array tables (records too), objects give component
// objects, packets or the original Lua function.
#pragma once

#include "framework/jok/Command.h"

#include <memory>
#include <string>

struct lua_State;
class CHostState;
class CJokGenericData;

// Where an object value came from, so that the Lua object can tell its own methods' calls.
struct SLuaOrigin {
    IUnknown* m_pOwner = nullptr; // borrowed identity of the component the value was read from
    bool m_Raise = false;         // its calls raise their script errors as Lua errors
};

// Pushes the Lua value for value (borrowed; nullptr pushes nil).
void LuaPushValue(lua_State* L, const CJokGenericData* value, const SLuaOrigin& origin = {});
// A new script value (one reference) for the Lua value at index; nullptr with *error set when it
// cannot be converted. nil converts to the null value.
CJokGenericData* LuaToValue(lua_State* L, int index, std::string* error);

// The script null's Lua value.
void LuaPushNull(lua_State* L);
bool LuaIsNull(lua_State* L, int index);
void LuaRegisterNull(lua_State* L);

// {4E1B7A52-0C3D-4F6A-9B81-2D5E7C9A0F13}: answered by callbacks made from Lua functions.
inline constexpr IID IID_ZorLuaCallback = {
    0x4E1B7A52, 0x0C3D, 0x4F6A, {0x9B, 0x81, 0x2D, 0x5E, 0x7C, 0x9A, 0x0F, 0x13}};

// A Lua function as a callback. CallMethod calls it with the context's positional parameters in
// order and makes its first result the return value. Its errors become the host's pending error.
// Calls from other threads, or after the Lua state began to close, do nothing.
class CLuaCallback : public CJokSimpleCommandObject {
public:
    // Takes the function on top of L's stack (pops it).
    CLuaCallback(lua_State* L, std::shared_ptr<CHostState> state);
    ~CLuaCallback() override;

    HRESULT QueryInterface(const IID& iid, void** object) override;
    int CallMethod(CJokCommandContext* context) override;

    // The callback behind an interface (borrowed), or nullptr.
    static CLuaCallback* FromUnknown(IUnknown* unknown);
    void PushFunction(lua_State* L) const;

private:
    static int Trampoline(lua_State* L);
    static int Locate(lua_State* L);
    static bool SetResult(lua_State* L, CJokCommandContext* context);

    std::shared_ptr<CHostState> m_pState;
    int m_Ref;
};
