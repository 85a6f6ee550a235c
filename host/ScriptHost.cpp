#include "host/ScriptHost.h"

#include "host/HostApi.h"
#include "host/HostDiagnostics.h"
#include "host/HostState.h"

#include <cstdio>
#include <lua.hpp>
#include <memory>

namespace {

void ExitHook(lua_State* L, lua_Debug*) {
    lua_pushlightuserdata(L, CHostState::ExitMarker());
    lua_error(L);
}

// os.exit([status]): unwinds the script so that the host can release everything first.
int Exit(lua_State* L) {
    int status = 0;
    if (lua_isboolean(L, 1)) {
        status = lua_toboolean(L, 1) ? 0 : 1;
    } else if (!lua_isnoneornil(L, 1)) {
        const lua_Number number = luaL_checknumber(L, 1);
        // An exit status is a byte; anything else is the script's fault, not undefined behaviour.
        luaL_argcheck(L, number >= 0 && number <= 255 && number == static_cast<int>(number), 1,
                      "exit status must be a whole number from 0 to 255");
        status = static_cast<int>(number);
    }
    CHostState& state = CHostState::Of(L);
    state.RequestExit(status);
    // A pcall in the script may catch the marker; the hook raises it again at once, so nothing
    // of the script runs after os.exit.
    lua_sethook(L, &ExitHook, LUA_MASKCOUNT, 1);
    lua_sethook(state.Main(), &ExitHook, LUA_MASKCOUNT, 1);
    lua_pushlightuserdata(L, CHostState::ExitMarker());
    return lua_error(L);
}

// Message handler: the error with a stack traceback (the exit marker passes untouched).
int Traceback(lua_State* L) {
    if (lua_touserdata(L, 1) == CHostState::ExitMarker()) {
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

// The script's library, made safe for a host: os.exit goes through the host; binary chunks,
// which Lua does not verify, cannot be loaded; the debug library keeps only what inspects
// (a function that changes metatables, locals or the registry could break the host's objects).
void RestrictLibraries(lua_State* L) {
    lua_getglobal(L, "os");
    lua_pushcfunction(L, &Exit);
    lua_setfield(L, -2, "exit");
    lua_pop(L, 1);

    static const char kTextOnly[] =
        "local load, loadfile, select = load, loadfile, select\n"
        "_G.load = function(...)\n"
        "  local chunk, name, _, env = ...\n"
        "  if select('#', ...) >= 4 then return load(chunk, name, 't', env) end\n"
        "  return load(chunk, name, 't')\n"
        "end\n"
        "_G.loadfile = function(...)\n"
        "  local file, _, env = ...\n"
        "  if select('#', ...) >= 3 then return loadfile(file, 't', env) end\n"
        "  return loadfile(file, 't')\n"
        "end\n"
        "_G.dofile = function(file)\n"
        "  local f = assert(loadfile(file, 't'))\n"
        "  return f()\n"
        "end\n";
    if (luaL_loadbuffer(L, kTextOnly, sizeof kTextOnly - 1, "=(zor-run)") != LUA_OK ||
        lua_pcall(L, 0, 0, 0) != LUA_OK) {
        lua_pop(L, 1);
    }

    lua_getglobal(L, "debug");
    lua_createtable(L, 0, 2);
    for (const char* name : {"traceback", "getinfo"}) {
        lua_getfield(L, -2, name);
        lua_setfield(L, -2, name);
    }
    lua_setglobal(L, "debug");
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
        if (lua_touserdata(L, -1) == CHostState::ExitMarker()) {
            // The status is read below.
        } else {
            const char* message = lua_tostring(L, -1);
            std::fprintf(stderr, "%s: %s\n", program.c_str(), message ? message : "error");
            status = 1;
        }
    }
    lua_settop(L, handler - 1);
    lua_sethook(L, nullptr, 0, 0); // finalisers run at lua_close
    // An exit wins however the script ended (a pcall in the script may have caught it).
    CHostState::Of(L).ExitRequested(&status);
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
    RestrictLibraries(L);
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
