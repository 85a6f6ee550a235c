// CHostState: what the bindings of one script run share - the Lua state, the diagnostics, the
// references the host keeps, and the rules for calling from Lua into components.
//
// Calls into components (CCallScope): components run packets, timers and callbacks inside such
// a call, so an object whose Lua value the garbage collector finalises meanwhile is released
// only when the outermost call has returned; a module must never vanish under its own Receive.
// A callback's Lua error cannot unwind through component code either: it is kept as the pending
// error and raised in the script once the outermost call has returned.
//
// Raising (LuaProtected): a Lua error longjmps, which would skip the destructors of C++ locals.
// Bindings therefore report script faults through SLuaFault and return; the wrapper raises the
// error after every C++ local of the binding is gone. No C++ exception may cross into Lua either:
// the wrapper turns one into the binding's fault.
//
// Ending the script (os.exit): the request is recorded here and raised as the exit marker, an
// error no message handler rewrites. From a callback it is raised once the outermost call has
// returned, like a callback's error; callbacks do not run any more once it is recorded.
#pragma once

#include <memory>
#include <string>
#include <thread>
#include <vector>

struct IUnknown;
struct lua_State;
class CHostDiagnostics;

class CHostState : public std::enable_shared_from_this<CHostState> {
public:
    CHostState(lua_State* main, CHostDiagnostics& diagnostics);
    ~CHostState();
    CHostState(const CHostState&) = delete;
    CHostState& operator=(const CHostState&) = delete;

    // Makes state reachable from L (and its coroutines) through Of. L does not own it: the
    // caller keeps it alive until after lua_close.
    static void Install(lua_State* L, const std::shared_ptr<CHostState>& state);
    static CHostState& Of(lua_State* L);
    static std::shared_ptr<CHostState> SharedOf(lua_State* L);

    lua_State* Main() const { return m_pMain; }
    // The Lua thread of the innermost call into components (the main state outside calls).
    lua_State* Current() const { return m_pCurrent ? m_pCurrent : m_pMain; }
    bool IsHostThread() const { return std::this_thread::get_id() == m_Thread; }
    CHostDiagnostics& Diagnostics() const { return m_Diagnostics; }

    // From now on nothing may run Lua code or touch the Lua state (it is being closed).
    void SetClosing() { m_Closing = true; }
    bool IsClosing() const { return m_Closing; }

    bool InCall() const { return m_CallDepth > 0; }
    // Releases object (one reference) now, or after the outermost call when one is running.
    void Release(IUnknown* object);
    // Keeps one new reference to object until ReleaseHeld.
    void Hold(IUnknown* object);
    void ReleaseHeld();
    // Releases what was deferred (used at the end of the run, when no call is running).
    void ReleaseDeferred();

    // Keeps the first error of a callback until the script can be told.
    void SetPendingError(const std::string& message);
    bool TakePendingError(std::string* message);

    // os.exit: the first request's status wins.
    void RequestExit(int status);
    bool ExitRequested(int* status = nullptr) const;
    // The error value by which an exit unwinds the script.
    static void* ExitMarker();

    // One format sequence number per distinct format record, so that packets the script makes
    // with the same format look like one stream to receivers.
    long FormatSeqNumber(const void* record, unsigned size);

private:
    friend class CCallScope;
    static bool Locate(void* context, std::string* file, int* line);

    lua_State* m_pMain;
    lua_State* m_pCurrent = nullptr;
    CHostDiagnostics& m_Diagnostics;
    const std::thread::id m_Thread;
    bool m_Closing = false;
    int m_CallDepth = 0;
    std::vector<IUnknown*> m_Deferred;
    std::vector<IUnknown*> m_Held;
    bool m_HasPendingError = false;
    std::string m_PendingError;
    bool m_ExitRequested = false;
    int m_ExitStatus = 0;
    std::vector<std::pair<std::string, long>> m_FormatSeqNumbers;
};

// Marks a call from the Lua thread L into components for its duration.
class CCallScope {
public:
    explicit CCallScope(lua_State* L);
    ~CCallScope();
    CCallScope(const CCallScope&) = delete;
    CCallScope& operator=(const CCallScope&) = delete;

private:
    CHostState& m_State;
    lua_State* m_pPrevious;
};

// A script fault found by a binding: the binding sets it and returns.
struct SLuaFault {
    std::string m_Message;
    bool m_Located = true; // prefix the script position of the call
    bool IsSet() const { return !m_Message.empty(); }
    // Answers 0, so that a binding can `return fault.Set(...)`.
    int Set(std::string message, bool located = true);
};

using LuaBinding = int (*)(lua_State* L, SLuaFault& fault);

// Runs binding; answers false with the error message on the stack when it must be raised.
bool LuaRunBinding(lua_State* L, LuaBinding binding, int* results);

// lua_error, out of line so that this header needs no Lua include.
int LuaRaiseTop(lua_State* L);

// The lua_CFunction for a binding.
template <LuaBinding F> int LuaProtected(lua_State* L) {
    int results = 0;
    if (!LuaRunBinding(L, F, &results)) {
        return LuaRaiseTop(L);
    }
    return results;
}
