#include "host/ScriptHost.h"

#include "host/HostApi.h"
#include "host/HostDiagnostics.h"
#include "host/HostState.h"

#include <cstdio>
#include <lua.hpp>
#include <memory>

namespace {

// Its address marks the error by which os.exit unwinds the script.
const char s_ExitMarker = 0;
const char s_ExitStatusKey = 0;

// os.exit([status]): unwinds the script so that the host can release everything first.
int Exit(lua_State* L) {
    int status = 0;
    if (lua_isboolean(L, 1)) {
        status = lua_toboolean(L, 1) ? 0 : 1;
    } else if (!lua_isnoneornil(L, 1)) {
        status = static_cast<int>(luaL_checkinteger(L, 1));
    }
    lua_pushinteger(L, status);
    lua_rawsetp(L, LUA_REGISTRYINDEX, &s_ExitStatusKey);
    lua_pushlightuserdata(L, const_cast<char*>(&s_ExitMarker));
    return lua_error(L);
}

// Message handler: the error with a stack traceback (the exit marker passes untouched).
int Traceback(lua_State* L) {
    if (lua_touserdata(L, 1) == &s_ExitMarker) {
        return 1;
    }
    const char* message = lua_tostring(L, 1);
    if (!message) {
        if (luaL_callmeta(L, 1, "__tostring") && lua_type(L, -1) == LUA_TSTRING) {
            message = lua_tostring(L, -1);
        } else {
            message = lua_pushfstring(L, "(error object is a %s value)", luaL_typename(L, 1));
        }
    }
    luaL_traceback(L, L, message, 1);
    return 1;
}

void SetArguments(lua_State* L, const std::string& script, const std::vector<std::string>& args,
                  const std::string& program) {
    lua_createtable(L, static_cast<int>(args.size()), 2);
    lua_pushstring(L, program.c_str());
    lua_rawseti(L, -2, -1);
    lua_pushstring(L, script.c_str());
    lua_rawseti(L, -2, 0);
    for (size_t i = 0; i < args.size(); ++i) {
        lua_pushstring(L, args[i].c_str());
        lua_rawseti(L, -2, static_cast<lua_Integer>(i) + 1);
    }
    lua_setglobal(L, "arg");
}

void ReplaceExit(lua_State* L) {
    lua_getglobal(L, "os");
    lua_pushcfunction(L, &Exit);
    lua_setfield(L, -2, "exit");
    lua_pop(L, 1);
}

// Loads and runs the script; answers the exit status.
int RunScript(lua_State* L, const std::string& script, const std::vector<std::string>& args,
              const std::string& program) {
    lua_pushcfunction(L, &Traceback);
    const int handler = lua_gettop(L);
    if (luaL_loadfile(L, script.c_str()) != LUA_OK) {
        std::fprintf(stderr, "%s: %s\n", program.c_str(), lua_tostring(L, -1));
        lua_settop(L, handler - 1);
        return 1;
    }
    for (const std::string& value : args) {
        lua_pushstring(L, value.c_str());
    }
    int status = 0;
    if (lua_pcall(L, static_cast<int>(args.size()), 0, handler) != LUA_OK) {
        if (lua_touserdata(L, -1) == &s_ExitMarker) {
            lua_rawgetp(L, LUA_REGISTRYINDEX, &s_ExitStatusKey);
            status = static_cast<int>(lua_tointeger(L, -1));
            lua_pop(L, 1);
        } else {
            const char* message = lua_tostring(L, -1);
            std::fprintf(stderr, "%s: %s\n", program.c_str(), message ? message : "error");
            status = 1;
        }
    }
    lua_settop(L, handler - 1);
    return status;
}

} // namespace

int CScriptHost::Run(const std::string& script, const std::vector<std::string>& args,
                     const std::string& program) {
    CHostDiagnostics diagnostics;
    lua_State* L = luaL_newstate();
    if (!L) {
        std::fprintf(stderr, "%s: cannot create the Lua state\n", program.c_str());
        return 1;
    }
    auto state = std::make_shared<CHostState>(L, diagnostics);
    CHostState::Install(L, state);
    luaL_openlibs(L);
    ReplaceExit(L);
    HostInstallApi(L, m_pModule);
    SetArguments(L, script, args, program);
    const int status = RunScript(L, script, args, program);
    state->ReleaseHeld();
    state->SetClosing();
    lua_close(L);
    state->ReleaseDeferred();
    diagnostics.SetLocator(nullptr, nullptr);
    return status;
}
