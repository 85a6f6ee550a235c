#include "host/LuaComponent.h"

#include "framework/jok/CommandContext.h"
#include "framework/jok/Component.h"
#include "framework/jok/GenericData.h"
#include "framework/jok/Property.h"
#include "host/HostDiagnostics.h"
#include "host/HostState.h"

#include <lua.hpp>
#include <memory>

namespace {

constexpr const char* kObjectType = "zor.object";

struct SLuaObject {
    IUnknown* m_pUnknown;    // one reference
    IJokCommand* m_pCommand; // one reference, or nullptr when the object has no IJokCommand
    IUnknown* m_pIdentity;   // borrowed: the object's IUnknown identity
    SLuaOrigin m_Origin;
};

SLuaObject* ToObject(lua_State* L, int index) {
    return static_cast<SLuaObject*>(luaL_testudata(L, index, kObjectType));
}

IUnknown* IdentityOf(IUnknown* object) {
    void* identity = nullptr;
    if (object->QueryInterface(IID_IUnknown, &identity) != S_OK || !identity) {
        return object;
    }
    static_cast<IUnknown*>(identity)->Release(); // an identity only, kept alive by the holder
    return static_cast<IUnknown*>(identity);
}

// The property's descriptor type ("double", "interface IJokCommand {...}") and whether it is
// read-only; false when the object does not list it.
bool DescribeProperty(IJokCommand* command, const char* name, std::string* type, bool* readOnly) {
    std::unique_ptr<CJokPropertyEnum> properties(command->GetPropertyEnumerator());
    if (!properties) {
        return false;
    }
    while (const CJokPropertyDescriptor* descriptor = properties->Next()) {
        if (descriptor->GetName() == name) {
            *type = descriptor->GetType().str();
            *readOnly = descriptor->IsReadOnly();
            return true;
        }
    }
    return false;
}

std::string NoSuchProperty(IUnknown* object, const char* name) {
    std::string message = LuaObjectName(object) + " has no property '" + name + "'";
    const std::string names = LuaPropertyNames(object);
    return names.empty() ? message : message + " (it has: " + names + ")";
}

// The object of a Lua value whose reference is still held; nullptr with a fault once released.
SLuaObject* Live(lua_State* L, int index, SLuaFault& fault) {
    SLuaObject* self = ToObject(L, index);
    if (!self || !self->m_pUnknown) {
        fault.Set("the component was released");
        return nullptr;
    }
    return self;
}

int Index(lua_State* L, SLuaFault& fault) {
    SLuaObject* self = Live(L, 1, fault);
    if (!self) {
        return 0;
    }
    if (lua_type(L, 2) != LUA_TSTRING) {
        return fault.Set("component properties are named by strings");
    }
    const char* name = lua_tostring(L, 2);
    if (!self->m_pCommand) {
        return fault.Set(NoSuchProperty(self->m_pUnknown, name));
    }
    CJokGenericData* value = nullptr;
    {
        CCallScope scope(L);
        value = self->m_pCommand->GetProperty(name, 0);
    }
    if (!value) {
        return fault.Set(NoSuchProperty(self->m_pUnknown, name));
    }
    LuaPushValue(L, value, SLuaOrigin{self->m_pIdentity, self->m_Origin.m_Raise});
    value->Release();
    return 1;
}

int NewIndex(lua_State* L, SLuaFault& fault) {
    SLuaObject* self = Live(L, 1, fault);
    if (!self) {
        return 0;
    }
    if (lua_type(L, 2) != LUA_TSTRING) {
        return fault.Set("component properties are named by strings");
    }
    const char* name = lua_tostring(L, 2);
    const std::string where = LuaObjectName(self->m_pUnknown) + "." + name;
    if (!self->m_pCommand) {
        return fault.Set(NoSuchProperty(self->m_pUnknown, name));
    }
    std::string error;
    CJokGenericData* value = LuaToValue(L, 3, &error);
    if (!value) {
        return fault.Set(where + ": cannot take " + error);
    }
    int result = 0;
    JokTakePropertyRefusal(); // a stale reason must not explain this write
    {
        CCallScope scope(L);
        result = self->m_pCommand->SetProperty(name, value);
    }
    const std::string reason = JokTakePropertyRefusal().str();
    const char* given = JokGdTypeDescription(value->GetType());
    value->Release();
    if (result == -1) {
        return fault.Set(NoSuchProperty(self->m_pUnknown, name));
    }
    if (result == 0) {
        std::string type;
        bool readOnly = false;
        if (DescribeProperty(self->m_pCommand, name, &type, &readOnly) && readOnly) {
            return fault.Set(where + " is read-only");
        }
        // The component's own reason when it gave one, else what can be said from outside.
        if (!reason.empty()) {
            return fault.Set(where + ": " + reason);
        }
        return fault.Set(where + ": refused " + given +
                         (type.empty() ? std::string() : " (the property is " + type + ")"));
    }
    return 0;
}

// Named parameters from one table of named fields, or positional parameters from the arguments.
bool AddParameters(lua_State* L, int first, CJokCommandContext& context, std::string* error) {
    const int last = lua_gettop(L);
    if (last == first && lua_type(L, first) == LUA_TTABLE && lua_rawlen(L, first) == 0 &&
        !lua_getmetatable(L, first)) {
        lua_pushnil(L);
        while (lua_next(L, first)) {
            if (lua_type(L, -2) != LUA_TSTRING) {
                lua_pop(L, 2);
                *error = "named parameters must have string names";
                return false;
            }
            CJokGenericData* value = LuaToValue(L, -1, error);
            if (!value) {
                *error =
                    std::string("parameter '") + lua_tostring(L, -2) + "': cannot take " + *error;
                lua_pop(L, 2);
                return false;
            }
            context.AddParamNoRef(lua_tostring(L, -2), value);
            lua_pop(L, 1);
        }
        return true;
    }
    for (int i = first; i <= last; ++i) {
        CJokGenericData* value = LuaToValue(L, i, error);
        if (!value) {
            *error = "argument " + std::to_string(i - first + 1) + ": cannot take " + *error;
            return false;
        }
        context.AddParamNoRef(nullptr, value);
    }
    return true;
}

int Call(lua_State* L, SLuaFault& fault) {
    SLuaObject* self = Live(L, 1, fault);
    if (!self) {
        return 0;
    }
    const std::string name = LuaObjectName(self->m_pUnknown);
    if (!self->m_pCommand) {
        return fault.Set(name + " cannot be called");
    }
    // obj:Method(...) passes the owner first; it is not a parameter.
    int first = 2;
    if (SLuaObject* owner = ToObject(L, 2);
        owner && self->m_Origin.m_pOwner && owner->m_pIdentity == self->m_Origin.m_pOwner) {
        first = 3;
    }
    CJokCommandContext context;
    context.SetCallName(name.c_str());
    std::string error;
    if (!AddParameters(L, first, context, &error)) {
        return fault.Set(name + ": " + error);
    }
    CHostDiagnostics& diagnostics = CHostState::Of(L).Diagnostics();
    const bool raise = self->m_Origin.m_Raise;
    int called = 0;
    std::string diverted;
    {
        CCallScope scope(L);
        if (raise) {
            diagnostics.BeginDivert();
        }
        called = self->m_pCommand->CallMethod(&context);
        if (raise) {
            diverted = diagnostics.EndDivert();
        }
    }
    if (!called) {
        return fault.Set(name + " cannot be called");
    }
    if (!diverted.empty()) {
        return fault.Set(diverted);
    }
    CJokGenericData* result = context.DetachReturnValue();
    LuaPushValue(L, result, SLuaOrigin{nullptr, raise});
    if (result) {
        result->Release();
    }
    return 1;
}

int ToString(lua_State* L, SLuaFault&) {
    SLuaObject* self = ToObject(L, 1);
    if (!self->m_pUnknown) {
        lua_pushliteral(L, "component (released)");
        return 1;
    }
    const std::string name = LuaObjectName(self->m_pUnknown);
    lua_pushfstring(L, "%s: %p", name.c_str(), static_cast<void*>(self->m_pIdentity));
    return 1;
}

int Equal(lua_State* L) {
    SLuaObject* a = ToObject(L, 1);
    SLuaObject* b = ToObject(L, 2);
    lua_pushboolean(L,
                    a && b && a->m_pUnknown && b->m_pUnknown && a->m_pIdentity == b->m_pIdentity);
    return 1;
}

int Collect(lua_State* L) {
    SLuaObject* self = ToObject(L, 1);
    if (!self || !self->m_pUnknown) {
        return 0;
    }
    CHostState& state = CHostState::Of(L);
    state.Release(self->m_pCommand);
    state.Release(self->m_pUnknown);
    self->m_pCommand = nullptr;
    self->m_pUnknown = nullptr;
    self->m_pIdentity = nullptr;
    return 0;
}

} // namespace

void LuaPushObject(lua_State* L, IUnknown* object, const SLuaOrigin& origin) {
    if (!object) {
        lua_pushnil(L);
        return;
    }
    auto* self = static_cast<SLuaObject*>(lua_newuserdatauv(L, sizeof(SLuaObject), 0));
    *self = SLuaObject{object, nullptr, IdentityOf(object), origin};
    object->AddRef();
    void* command = nullptr;
    if (object->QueryInterface(IID_IJokCommand, &command) == S_OK) {
        self->m_pCommand = static_cast<IJokCommand*>(command);
    }
    luaL_setmetatable(L, kObjectType);
}

IUnknown* LuaToObject(lua_State* L, int index) {
    SLuaObject* self = ToObject(L, index);
    return self ? self->m_pUnknown : nullptr;
}

std::string LuaObjectName(IUnknown* object) {
    if (auto* component = dynamic_cast<CJokComponent*>(CJokCOMObject::FromIUnknown(object))) {
        return component->GetComponentName().str();
    }
    void* command = nullptr;
    if (object->QueryInterface(IID_IJokCommand, &command) != S_OK) {
        return "object";
    }
    std::string name = "function";
    if (CJokGenericData* value = static_cast<IJokCommand*>(command)->GetProperty("name", 0)) {
        if (value->GetType() == JOKGD_STRING) {
            name = static_cast<CJokGdString*>(value)->GetString().str();
        }
        value->Release();
    }
    static_cast<IJokCommand*>(command)->Release();
    return name;
}

std::string LuaPropertyNames(IUnknown* object) {
    void* command = nullptr;
    if (object->QueryInterface(IID_IJokCommand, &command) != S_OK) {
        return {};
    }
    CJokPropertyEnum* properties = static_cast<IJokCommand*>(command)->GetPropertyEnumerator();
    std::string names = JokListPropertyNames(properties).str();
    delete properties;
    static_cast<IJokCommand*>(command)->Release();
    return names;
}

bool LuaIsObject(lua_State* L, int index) {
    return ToObject(L, index) != nullptr;
}

void LuaRegisterObjectType(lua_State* L) {
    luaL_newmetatable(L, kObjectType);
    // getmetatable answers the type name, so a script cannot reach the finaliser.
    lua_pushstring(L, kObjectType);
    lua_setfield(L, -2, "__metatable");
    const luaL_Reg methods[] = {{"__index", &LuaProtected<Index>},
                                {"__newindex", &LuaProtected<NewIndex>},
                                {"__call", &LuaProtected<Call>},
                                {"__tostring", &LuaProtected<ToString>},
                                {"__eq", &Equal},
                                {"__gc", &Collect},
                                {nullptr, nullptr}};
    luaL_setfuncs(L, methods, 0);
    lua_pop(L, 1);
}
