#include "host/LuaFields.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <lua.hpp>

namespace {

std::string Show(double value) {
    if (std::isnan(value)) {
        return "nan"; // whatever its sign bit
    }
    char text[32];
    std::snprintf(text, sizeof text, "%.15g", value);
    return text;
}

} // namespace

CLuaFields::CLuaFields(lua_State* L, int index, std::string what)
    : m_pLua(L), m_What(std::move(what)) {
    const int type = lua_type(L, index);
    if (type == LUA_TTABLE) {
        m_Index = lua_absindex(L, index);
    } else if (type != LUA_TNIL && type != LUA_TNONE) {
        Fail("expects a table of named fields, not " + std::string(luaL_typename(L, index)));
    }
}

void CLuaFields::Fail(const std::string& message) {
    if (m_Error.empty()) {
        m_Error = m_What + ": " + message;
    }
}

int CLuaFields::Push(const char* name) {
    if (!m_Index || !Ok()) {
        lua_pushnil(m_pLua);
        return LUA_TNIL;
    }
    lua_pushstring(m_pLua, name);
    return lua_rawget(m_pLua, m_Index);
}

bool CLuaFields::WrongType(const char* name, const char* expected) {
    Fail(std::string("field '") + name + "' must be " + expected + ", not " +
         luaL_typename(m_pLua, -1));
    lua_pop(m_pLua, 1);
    return false;
}

bool CLuaFields::Has(const char* name) {
    const bool present = Push(name) != LUA_TNIL;
    lua_pop(m_pLua, 1);
    return present;
}

int CLuaFields::Type(const char* name) {
    const int type = Push(name);
    lua_pop(m_pLua, 1);
    return type;
}

bool CLuaFields::Number(const char* name, double* out) {
    const int type = Push(name);
    if (type == LUA_TNIL) {
        lua_pop(m_pLua, 1);
        return false;
    }
    if (type != LUA_TNUMBER) {
        return WrongType(name, "a number");
    }
    *out = lua_tonumber(m_pLua, -1);
    lua_pop(m_pLua, 1);
    return true;
}

bool CLuaFields::Finite(const char* name, double* out) {
    double value = 0;
    if (!Number(name, &value)) {
        return false;
    }
    if (!std::isfinite(value)) {
        Fail(std::string("field '") + name + "' must be a finite number, not " + Show(value));
        return false;
    }
    *out = value;
    return true;
}

bool CLuaFields::Integer(const char* name, long long* out, long long min, long long max) {
    double value = 0;
    if (!Number(name, &value)) {
        return false;
    }
    // Compared as doubles before any conversion: converting NaN or an out-of-range value to an
    // integer is undefined.
    if (!(std::floor(value) == value && value >= static_cast<double>(min) &&
          value <= static_cast<double>(max))) {
        Fail(std::string("field '") + name + "' must be a whole number from " +
             std::to_string(min) + " to " + std::to_string(max) + ", not " + Show(value));
        return false;
    }
    *out = static_cast<long long>(value);
    return true;
}

bool CLuaFields::Integer(const char* name, long long* out) {
    constexpr long long kExact = 9007199254740992LL; // 2^53
    return Integer(name, out, -kExact, kExact);
}

bool CLuaFields::String(const char* name, std::string* out) {
    const int type = Push(name);
    if (type == LUA_TNIL) {
        lua_pop(m_pLua, 1);
        return false;
    }
    if (type != LUA_TSTRING) {
        return WrongType(name, "a string");
    }
    size_t size = 0;
    const char* text = lua_tolstring(m_pLua, -1, &size);
    out->assign(text, size);
    lua_pop(m_pLua, 1);
    return true;
}

bool CLuaFields::Boolean(const char* name, bool* out) {
    const int type = Push(name);
    if (type == LUA_TNIL) {
        lua_pop(m_pLua, 1);
        return false;
    }
    if (type != LUA_TBOOLEAN) {
        return WrongType(name, "a boolean");
    }
    *out = lua_toboolean(m_pLua, -1);
    lua_pop(m_pLua, 1);
    return true;
}

bool CLuaFields::Table(const char* name) {
    const int type = Push(name);
    if (type == LUA_TTABLE) {
        return true;
    }
    if (type != LUA_TNIL) {
        return WrongType(name, "a table");
    }
    lua_pop(m_pLua, 1);
    return false;
}

void CLuaFields::Allow(std::initializer_list<const char*> names) {
    if (!m_Index || !Ok()) {
        return;
    }
    lua_pushnil(m_pLua);
    while (lua_next(m_pLua, m_Index)) {
        lua_pop(m_pLua, 1);
        bool known = false;
        if (lua_type(m_pLua, -1) == LUA_TSTRING) {
            const char* key = lua_tostring(m_pLua, -1);
            for (const char* name : names) {
                known = known || std::strcmp(key, name) == 0;
            }
        }
        if (!known) {
            const char* key = luaL_tolstring(m_pLua, -1, nullptr);
            Fail(std::string("unknown field '") + key + "'");
            lua_pop(m_pLua, 2);
            return;
        }
    }
}
