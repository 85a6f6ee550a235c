#include "host/HostState.h"

#include "framework/bel/WinTypes.h"
#include "framework/kor/Packet.h"
#include "host/HostDiagnostics.h"

#include <cstring>
#include <exception>
#include <lua.hpp>
#include <new>

namespace {

// The registry key of the state: the address of this variable.
const char s_StateKey = 0;

} // namespace

CHostState::CHostState(lua_State* main, CHostDiagnostics& diagnostics)
    : m_pMain(main), m_Diagnostics(diagnostics), m_Thread(std::this_thread::get_id()) {
    m_Diagnostics.SetLocator(&CHostState::Locate, this);
}

CHostState::~CHostState() {
    m_Diagnostics.SetLocator(nullptr, nullptr);
    ReleaseHeld();
    ReleaseDeferred();
}

void CHostState::Install(lua_State* L, const std::shared_ptr<CHostState>& state) {
    // A light userdata: nothing a script can reach finalises or replaces the state.
    lua_pushlightuserdata(L, state.get());
    lua_rawsetp(L, LUA_REGISTRYINDEX, &s_StateKey);
}

std::shared_ptr<CHostState> CHostState::SharedOf(lua_State* L) {
    return Of(L).shared_from_this();
}

CHostState& CHostState::Of(lua_State* L) {
    lua_rawgetp(L, LUA_REGISTRYINDEX, &s_StateKey);
    auto* state = static_cast<CHostState*>(lua_touserdata(L, -1));
    lua_pop(L, 1);
    return *state;
}

bool CHostState::Locate(void* context, std::string* file, int* line) {
    auto* self = static_cast<CHostState*>(context);
    if (self->m_Closing) {
        return false;
    }
    lua_State* L = self->Current();
    lua_Debug ar;
    for (int level = 0; lua_getstack(L, level, &ar); ++level) {
        if (lua_getinfo(L, "Sl", &ar) && ar.currentline > 0) {
            *file = ar.short_src;
            *line = ar.currentline;
            return true;
        }
    }
    return false;
}

void CHostState::Release(IUnknown* object) {
    if (!object) {
        return;
    }
    if (m_CallDepth > 0) {
        m_Deferred.push_back(object);
        return;
    }
    object->Release();
}

void CHostState::Hold(IUnknown* object) {
    object->AddRef();
    m_Held.push_back(object);
}

void CHostState::ReleaseHeld() {
    // A release may run code that holds or releases more: take the list first.
    while (!m_Held.empty()) {
        std::vector<IUnknown*> held;
        held.swap(m_Held);
        for (IUnknown* object : held) {
            object->Release();
        }
    }
}

void CHostState::ReleaseDeferred() {
    while (!m_Deferred.empty()) {
        std::vector<IUnknown*> deferred;
        deferred.swap(m_Deferred);
        for (IUnknown* object : deferred) {
            object->Release();
        }
    }
}

void CHostState::SetPendingError(const std::string& message) {
    if (!m_HasPendingError) {
        m_HasPendingError = true;
        m_PendingError = message;
    }
}

bool CHostState::TakePendingError(std::string* message) {
    if (!m_HasPendingError) {
        return false;
    }
    m_HasPendingError = false;
    *message = std::move(m_PendingError);
    m_PendingError.clear();
    return true;
}

void CHostState::RequestExit(int status) {
    if (!m_ExitRequested) {
        m_ExitRequested = true;
        m_ExitStatus = status;
    }
}

bool CHostState::ExitRequested(int* status) const {
    if (status && m_ExitRequested) {
        *status = m_ExitStatus;
    }
    return m_ExitRequested;
}

void* CHostState::ExitMarker() {
    static const char marker = 0;
    return const_cast<char*>(&marker);
}

long CHostState::FormatSeqNumber(const void* record, unsigned size) {
    std::string key(static_cast<const char*>(record), size);
    for (const auto& [known, number] : m_FormatSeqNumbers) {
        if (known == key) {
            return number;
        }
    }
    const long number = CKorPacket::GetNewFormatSeqNumber();
    m_FormatSeqNumbers.emplace_back(std::move(key), number);
    return number;
}

CCallScope::CCallScope(lua_State* L) : m_State(CHostState::Of(L)), m_pPrevious(m_State.m_pCurrent) {
    m_State.m_pCurrent = L;
    ++m_State.m_CallDepth;
}

CCallScope::~CCallScope() {
    m_State.m_pCurrent = m_pPrevious;
    if (--m_State.m_CallDepth == 0) {
        m_State.ReleaseDeferred();
    }
}

int SLuaFault::Set(std::string message, bool located) {
    m_Message = std::move(message);
    m_Located = located;
    return 0;
}

bool LuaRunBinding(lua_State* L, LuaBinding binding, int* results) {
    SLuaFault fault;
    CHostState& state = CHostState::Of(L);
    const int top = lua_gettop(L);
    try {
        *results = binding(L, fault);
    } catch (const std::bad_alloc&) {
        lua_settop(L, top);
        fault.Set("out of memory");
    } catch (const std::exception& e) {
        lua_settop(L, top);
        fault.Set(std::string("internal error: ") + e.what());
    } catch (...) {
        lua_settop(L, top);
        fault.Set("internal error");
    }
    if (!state.InCall() && state.ExitRequested()) {
        // An exit from a callback during this call: unwind the script now.
        lua_pushlightuserdata(L, CHostState::ExitMarker());
        return false;
    }
    if (!fault.IsSet() && !state.InCall()) {
        std::string pending;
        if (state.TakePendingError(&pending)) {
            fault.Set(std::move(pending), false);
        }
    }
    if (!fault.IsSet()) {
        return true;
    }
    if (fault.m_Located) {
        luaL_where(L, 1);
    } else {
        lua_pushliteral(L, "");
    }
    lua_pushlstring(L, fault.m_Message.data(), fault.m_Message.size());
    lua_concat(L, 2);
    return false;
}

int LuaRaiseTop(lua_State* L) {
    return lua_error(L);
}
