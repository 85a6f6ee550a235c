#include "host/LuaValue.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/GenericData.h"
#include "host/HostState.h"
#include "host/LuaComponent.h"
#include "host/LuaPacket.h"
#include "io/PacketObject.h"

#include <algorithm>
#include <cmath>
#include <lua.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr const char* kNullType = "zor.null";
// Deeper nesting is taken for a table that contains itself.
constexpr int kMaxDepth = 32;
// Integral numbers up to 2^53 come back to Lua as integers, so that counts print as counts.
constexpr double kMaxExactInteger = 9007199254740992.0;

void PushNumber(lua_State* L, double value) {
    if (std::floor(value) == value && std::fabs(value) <= kMaxExactInteger) {
        lua_pushinteger(L, static_cast<lua_Integer>(value));
    } else {
        lua_pushnumber(L, value);
    }
}

void PushVector(lua_State* L, const CJokGdVector* vector, const SLuaOrigin& origin) {
    const int size = vector->GetSize();
    lua_createtable(L, size, 0);
    for (int i = 0; i < size; ++i) {
        if (const CJokGenericData* element = vector->GetElement(i)) {
            LuaPushValue(L, element, origin);
            lua_rawseti(L, -2, i + 1);
        }
    }
}

void PushObject(lua_State* L, const CJokGdObject* object, const SLuaOrigin& origin) {
    if (CKorPacket* packet = CHostPacketObject::FromValue(object)) {
        LuaPushPacket(L, packet);
    } else if (CLuaCallback* callback = CLuaCallback::FromUnknown(object->GetObject())) {
        callback->PushFunction(L);
    } else {
        LuaPushObject(L, object->GetObject(), origin);
    }
}

CJokGenericData* ToValue(lua_State* L, int index, int depth, std::string* error);

// Array tables (keys 1..n) give vectors; tables of named fields give records.
CJokGenericData* TableToValue(lua_State* L, int index, int depth, std::string* error) {
    if (depth > kMaxDepth) {
        *error = "a table nested too deeply (or containing itself)";
        return nullptr;
    }
    const lua_Integer length = static_cast<lua_Integer>(lua_rawlen(L, index));
    lua_Integer count = 0;
    bool named = false;
    lua_pushnil(L);
    while (lua_next(L, index)) {
        lua_pop(L, 1);
        ++count;
        named = named || lua_type(L, -1) == LUA_TSTRING;
    }
    if (!named) {
        if (count != length) {
            *error = "a table with keys other than 1..n or names";
            return nullptr;
        }
        CJokGdVector* vector = CJokGdVector::Allocate(static_cast<int>(length));
        for (lua_Integer i = 1; i <= length; ++i) {
            lua_rawgeti(L, index, i);
            CJokGenericData* element = ToValue(L, lua_gettop(L), depth + 1, error);
            lua_pop(L, 1);
            if (!element) {
                vector->Release();
                return nullptr;
            }
            vector->SetElement(static_cast<int>(i - 1), element);
            element->Release();
        }
        return vector;
    }
    if (length != 0) {
        *error = "a table that mixes array items and named fields";
        return nullptr;
    }
    std::vector<std::string> names;
    lua_pushnil(L);
    while (lua_next(L, index)) {
        lua_pop(L, 1);
        if (lua_type(L, -1) != LUA_TSTRING) {
            *error = "a table that mixes array items and named fields";
            return nullptr;
        }
        names.emplace_back(lua_tostring(L, -1));
    }
    std::sort(names.begin(), names.end());
    CJokGdVector* record = CJokGdVector::Allocate(static_cast<int>(names.size() * 2));
    for (size_t i = 0; i < names.size(); ++i) {
        CJokGdString* name = CJokGdString::Allocate(names[i].c_str());
        record->SetElement(static_cast<int>(2 * i), name);
        name->Release();
        lua_pushstring(L, names[i].c_str());
        lua_rawget(L, index);
        CJokGenericData* value = ToValue(L, lua_gettop(L), depth + 1, error);
        lua_pop(L, 1);
        if (!value) {
            record->Release();
            return nullptr;
        }
        record->SetElement(static_cast<int>(2 * i + 1), value);
        value->Release();
    }
    return record;
}

CJokGenericData* UserdataToValue(lua_State* L, int index, std::string* error) {
    if (LuaIsNull(L, index)) {
        return CJokGdNull::Allocate();
    }
    if (IUnknown* object = LuaToObject(L, index)) {
        return CJokGdObject::Allocate(object, 1);
    }
    if (CKorPacket* packet = LuaToPacket(L, index)) {
        return CHostPacketObject::NewValue(packet);
    }
    if (LuaIsPacket(L, index) || LuaIsObject(L, index)) {
        *error = LuaIsPacket(L, index) ? "a released packet" : "a released component";
        return nullptr;
    }
    *error = std::string("a ") + luaL_typename(L, index) + " that is no zor value";
    return nullptr;
}

CJokGenericData* ToValue(lua_State* L, int index, int depth, std::string* error) {
    switch (lua_type(L, index)) {
    case LUA_TNIL:
        return CJokGdNull::Allocate();
    case LUA_TBOOLEAN:
        return CJokGdBoolean::Allocate(lua_toboolean(L, index));
    case LUA_TNUMBER:
        return CJokGdDouble::Allocate(lua_tonumber(L, index));
    case LUA_TSTRING: {
        size_t size = 0;
        const char* text = lua_tolstring(L, index, &size);
        return CJokGdString::Allocate(CBelString(std::string_view(text, size)));
    }
    case LUA_TTABLE:
        return TableToValue(L, index, depth, error);
    case LUA_TUSERDATA:
        return UserdataToValue(L, index, error);
    case LUA_TFUNCTION: {
        lua_pushvalue(L, index);
        auto* callback = new CLuaCallback(L, CHostState::SharedOf(L));
        return CJokGdObject::Allocate(callback, 0);
    }
    default:
        *error = std::string("a ") + luaL_typename(L, index);
        return nullptr;
    }
}

} // namespace

void LuaPushValue(lua_State* L, const CJokGenericData* value, const SLuaOrigin& origin) {
    if (!value) {
        lua_pushnil(L);
        return;
    }
    switch (value->GetType()) {
    case JOKGD_NULL:
        LuaPushNull(L);
        break;
    case JOKGD_BOOLEAN:
        lua_pushboolean(L, static_cast<const CJokGdBoolean*>(value)->GetValue());
        break;
    case JOKGD_DOUBLE:
        PushNumber(L, static_cast<const CJokGdDouble*>(value)->GetValue());
        break;
    case JOKGD_STRING: {
        const CBelString& text = static_cast<const CJokGdString*>(value)->GetString();
        lua_pushlstring(L, text.c_str(), static_cast<size_t>(text.GetLength()));
        break;
    }
    case JOKGD_VECTOR:
        PushVector(L, static_cast<const CJokGdVector*>(value), origin);
        break;
    case JOKGD_OBJECT:
        PushObject(L, static_cast<const CJokGdObject*>(value), origin);
        break;
    default:
        lua_pushnil(L);
        break;
    }
}

CJokGenericData* LuaToValue(lua_State* L, int index, std::string* error) {
    return ToValue(L, lua_absindex(L, index), 0, error);
}

void LuaRegisterNull(lua_State* L) {
    luaL_newmetatable(L, kNullType);
    lua_pushcfunction(L, [](lua_State* L) -> int {
        lua_pushliteral(L, "zor.null");
        return 1;
    });
    lua_setfield(L, -2, "__tostring");
    lua_pushstring(L, kNullType);
    lua_setfield(L, -2, "__metatable");
    lua_pop(L, 1);
    // The one null object, kept in the registry under the type name's neighbour.
    lua_newuserdatauv(L, 0, 0);
    luaL_setmetatable(L, kNullType);
    lua_setfield(L, LUA_REGISTRYINDEX, "zor.null.value");
}

void LuaPushNull(lua_State* L) {
    lua_getfield(L, LUA_REGISTRYINDEX, "zor.null.value");
}

bool LuaIsNull(lua_State* L, int index) {
    return luaL_testudata(L, index, kNullType) != nullptr;
}

CLuaCallback::CLuaCallback(lua_State* L, std::shared_ptr<CHostState> state)
    : m_pState(std::move(state)), m_Ref(luaL_ref(L, LUA_REGISTRYINDEX)) {}

CLuaCallback::~CLuaCallback() {
    if (!m_pState->IsClosing() && m_pState->IsHostThread()) {
        luaL_unref(m_pState->Main(), LUA_REGISTRYINDEX, m_Ref);
    }
}

HRESULT CLuaCallback::QueryInterface(const IID& iid, void** object) {
    if (iid == IID_ZorLuaCallback) {
        AddRef();
        *object = this;
        return S_OK;
    }
    return CJokSimpleCommandObject::QueryInterface(iid, object);
}

CLuaCallback* CLuaCallback::FromUnknown(IUnknown* unknown) {
    void* object = nullptr;
    if (!unknown || unknown->QueryInterface(IID_ZorLuaCallback, &object) != S_OK) {
        return nullptr;
    }
    auto* callback = static_cast<CLuaCallback*>(object);
    callback->Release(); // borrowed: the caller's reference keeps it alive
    return callback;
}

void CLuaCallback::PushFunction(lua_State* L) const {
    lua_rawgeti(L, LUA_REGISTRYINDEX, m_Ref);
}

// Makes the value on top the call's return value; on failure pushes a message instead. Kept out
// of Trampoline so that no C++ local is alive when it raises.
bool CLuaCallback::SetResult(lua_State* L, CJokCommandContext* context) {
    // Runs inside lua_pcall: a C++ exception must not unwind through Lua's frames.
    std::string error;
    CJokGenericData* result = nullptr;
    try {
        result = LuaToValue(L, -1, &error);
    } catch (...) {
        error = BelDescribeCurrentException().str();
    }
    if (!result) {
        lua_pushfstring(L, "callback result: cannot use %s", error.c_str());
        return false;
    }
    context->SetReturnValueNoRef(result);
    return true;
}

// Runs under lua_pcall, so that no Lua error can unwind through component code.
int CLuaCallback::Trampoline(lua_State* L) {
    auto* self = static_cast<CLuaCallback*>(lua_touserdata(L, 1));
    auto* context = static_cast<CJokCommandContext*>(lua_touserdata(L, 2));
    const int count = context->GetPositionalCount();
    luaL_checkstack(L, count + 1, "callback arguments");
    self->PushFunction(L);
    for (int i = 0; i < count; ++i) {
        LuaPushValue(L, context->GetPositional(i));
    }
    lua_call(L, count, 1);
    if (lua_isnil(L, -1)) {
        return 0;
    }
    if (!SetResult(L, context)) {
        return lua_error(L);
    }
    return 0;
}

namespace {

// Whether a message starts with a "source:line:" position, as Lua's own errors do.
bool HasPosition(std::string_view message) {
    const size_t colon = message.find(':');
    if (colon == std::string_view::npos || colon == 0) {
        return false;
    }
    size_t digits = colon + 1;
    while (digits < message.size() && message[digits] >= '0' && message[digits] <= '9') {
        ++digits;
    }
    return digits > colon + 1 && digits < message.size() && message[digits] == ':';
}

} // namespace

// Message handler of a callback's call: runs where the error happened, so it can name the
// callback's own line when the error itself does not (a yield, an error object that is not a
// string, error(message, 0)). The exit marker passes untouched.
int CLuaCallback::Locate(lua_State* L) {
    if (lua_touserdata(L, 1) == CHostState::ExitMarker()) {
        return 1;
    }
    const char* message = lua_tostring(L, 1);
    if (!message) {
        message = lua_pushfstring(L, "(error object is a %s value)", luaL_typename(L, 1));
    } else if (std::string_view(message) == "attempt to yield across a C-call boundary") {
        message = lua_pushfstring(L, "%s (a callback cannot yield)", message);
    }
    lua_Debug ar;
    for (int level = 1; !HasPosition(message) && lua_getstack(L, level, &ar); ++level) {
        if (lua_getinfo(L, "Sl", &ar) && ar.currentline > 0) {
            lua_pushfstring(L, "%s:%d: %s", ar.short_src, ar.currentline, message);
            return 1;
        }
    }
    lua_pushstring(L, message);
    return 1;
}

int CLuaCallback::CallMethod(CJokCommandContext* context) {
    CHostState& state = *m_pState;
    if (state.IsClosing() || state.ExitRequested()) {
        return 1; // the script is ending: no more Lua code runs
    }
    if (!state.IsHostThread()) {
        BelDump("CLuaCallback::CallMethod -> a script callback cannot run on another thread; "
                "call ignored.\n");
        return 1;
    }
    lua_State* L = state.Current();
    if (!lua_checkstack(L, 5)) {
        return 1;
    }
    AddRef(); // the function may drop the last other reference to this callback
    lua_pushcfunction(L, &CLuaCallback::Locate);
    const int handler = lua_gettop(L);
    lua_pushcfunction(L, &CLuaCallback::Trampoline);
    lua_pushlightuserdata(L, this);
    lua_pushlightuserdata(L, context);
    if (lua_pcall(L, 2, 0, handler) != LUA_OK) {
        // An exit is already recorded; it unwinds the script when the outermost call returns.
        if (lua_touserdata(L, -1) != CHostState::ExitMarker()) {
            const char* message = lua_tostring(L, -1);
            state.SetPendingError(message ? message : "(error object is not a string)");
        }
        lua_pop(L, 1);
    }
    lua_pop(L, 1); // the handler
    Release();
    return 1;
}
