#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/GenericData.h"
#include "host/HostApi.h"
#include "host/HostDiagnostics.h"
#include "host/HostState.h"
#include "host/LuaComponent.h"
#include "host/LuaValue.h"
#include "io/ScriptSink.h"

#include <gtest/gtest.h>

#include <lua.hpp>
#include <memory>
#include <string>
#include <thread>

namespace {

// A Lua state with the host's API but no module.
class LuaBinding : public ::testing::Test {
protected:
    LuaBinding() : m_pLua(luaL_newstate()) {
        m_pState = std::make_shared<CHostState>(m_pLua, m_Diagnostics);
        CHostState::Install(m_pLua, m_pState);
        luaL_openlibs(m_pLua);
        HostInstallApi(m_pLua, nullptr);
        m_Diagnostics.Take(); // quiet from here on
    }
    ~LuaBinding() override {
        m_pState->ReleaseHeld();
        m_pState->SetClosing();
        lua_close(m_pLua);
        m_pState->ReleaseDeferred();
    }
    // Runs code; answers "" or the error message.
    std::string Run(const char* code) {
        if (luaL_dostring(m_pLua, code) == LUA_OK) {
            return {};
        }
        std::string message = lua_tostring(m_pLua, -1);
        lua_pop(m_pLua, 1);
        return message;
    }
    // The script value of a Lua expression (one reference), or nullptr.
    CJokGenericData* ValueOf(const char* expression, std::string* error) {
        luaL_dostring(m_pLua, (std::string("return ") + expression).c_str());
        CJokGenericData* value = LuaToValue(m_pLua, -1, error);
        lua_pop(m_pLua, 1);
        return value;
    }

    CHostDiagnostics m_Diagnostics;
    lua_State* m_pLua;
    std::shared_ptr<CHostState> m_pState;
};

TEST_F(LuaBinding, ValuesConvertBothWays) {
    // Lua -> script value -> Lua gives an equal value; the second column is how it comes back.
    const struct {
        const char* m_Lua;
        int m_Type;
        const char* m_Back;
    } cases[] = {
        {"true", JOKGD_BOOLEAN, "true"},
        {"2.5", JOKGD_DOUBLE, "2.5"},
        {"3", JOKGD_DOUBLE, "3"}, // integral doubles come back as integers
        {"'a\\0b'", JOKGD_STRING, "'a\\0b'"},
        {"zor.null", JOKGD_NULL, "zor.null"},
        {"nil", JOKGD_NULL, "zor.null"},
        {"{}", JOKGD_VECTOR, "{}"},
        {"{1, {2, 'x'}}", JOKGD_VECTOR, "{1, {2, 'x'}}"},
        {"{b = 2, a = 1}", JOKGD_VECTOR, "{'a', 1, 'b', 2}"}, // a record, by name order
    };
    for (const auto& c : cases) {
        std::string error;
        CJokGenericData* value = ValueOf(c.m_Lua, &error);
        ASSERT_NE(value, nullptr) << c.m_Lua << ": " << error;
        EXPECT_EQ(value->GetType(), c.m_Type) << c.m_Lua;
        LuaPushValue(m_pLua, value);
        lua_setglobal(m_pLua, "got");
        value->Release();
        const std::string check =
            std::string(
                "local function same(a, b)\n"
                "  if type(a) ~= 'table' then return a == b and math.type(a) == math.type(b) end\n"
                "  if #a ~= #b then return false end\n"
                "  for i = 1, #a do if not same(a[i], b[i]) then return false end end\n"
                "  return true end\n"
                "assert(same(got, ") +
            c.m_Back + "))";
        EXPECT_EQ(Run(check.c_str()), "") << c.m_Lua;
    }
}

TEST_F(LuaBinding, UnconvertibleValuesSayWhy) {
    const struct {
        const char* m_Lua;
        const char* m_Reason;
    } cases[] = {
        {"coroutine.create(print)", "a thread"},
        {"{1, 2, x = 3}", "mixes array items and named fields"},
        {"{[1] = 1, [3] = 3}", "keys other than 1..n"},
        {"(function() local t = {} t[1] = t return t end)()", "nested too deeply"},
        {"io.stdout", "no zor value"},
    };
    for (const auto& c : cases) {
        std::string error;
        EXPECT_EQ(ValueOf(c.m_Lua, &error), nullptr) << c.m_Lua;
        EXPECT_NE(error.find(c.m_Reason), std::string::npos) << c.m_Lua << ": " << error;
    }
}

TEST_F(LuaBinding, FunctionBecomesCallbackCalledWithPositionalParameters) {
    ASSERT_EQ(Run("seen = {} function f(a, b) seen = {a, b} return a + b end"), "");
    std::string error;
    CJokGenericData* value = ValueOf("f", &error);
    ASSERT_NE(value, nullptr);
    void* raw = nullptr;
    ASSERT_TRUE(
        static_cast<CJokGdObject*>(value)->GetInterface(IID_IJokCommand, &raw, "IJokCommand"));
    auto* callback = static_cast<IJokCommand*>(raw);
    CJokCommandContext context;
    context.AddParam(nullptr, 2.0);
    context.AddParam(nullptr, 5.0);
    EXPECT_EQ(callback->CallMethod(&context), 1);
    ASSERT_NE(context.GetReturnValue(), nullptr);
    EXPECT_EQ(static_cast<CJokGdDouble*>(context.GetReturnValue())->GetValue(), 7.0);
    EXPECT_EQ(Run("assert(seen[1] == 2 and seen[2] == 5)"), "");
    // Back in Lua it is the same function, not a wrapper.
    LuaPushValue(m_pLua, value);
    lua_setglobal(m_pLua, "back");
    EXPECT_EQ(Run("assert(back == f)"), "");
    callback->Release();
    value->Release();
}

TEST_F(LuaBinding, CallbackErrorWaitsAsPendingErrorAndOtherThreadsAreRefused) {
    ASSERT_EQ(Run("calls = 0 function bad() calls = calls + 1 error('broken') end"), "");
    std::string error;
    CJokGenericData* value = ValueOf("bad", &error);
    void* raw = nullptr;
    static_cast<CJokGdObject*>(value)->GetInterface(IID_IJokCommand, &raw, "IJokCommand");
    auto* callback = static_cast<IJokCommand*>(raw);
    CJokCommandContext context;
    EXPECT_EQ(callback->CallMethod(&context), 1) << "a Lua error never unwinds the caller";
    std::string pending;
    ASSERT_TRUE(m_pState->TakePendingError(&pending));
    EXPECT_NE(pending.find("broken"), std::string::npos) << pending;

    std::thread other([&] {
        CJokCommandContext elsewhere;
        callback->CallMethod(&elsewhere);
    });
    other.join();
    EXPECT_EQ(Run("assert(calls == 1)"), "") << "not run on the other thread";
    const auto notes = m_Diagnostics.Take();
    ASSERT_EQ(notes.size(), 1u);
    EXPECT_NE(notes[0].m_Text.find("another thread"), std::string::npos);
    callback->Release();
    value->Release();
}

TEST_F(LuaBinding, CollectedObjectIsReleasedOnlyAfterTheOutermostCall) {
    auto* sink = new CScriptSinkCom("");
    sink->AddRef(); // the test's own reference
    LuaPushObject(m_pLua, sink->GetIUnknown());
    sink->Release(); // the construction reference: Lua and the test hold it now
    const long held = sink->GetRefCount();
    lua_pop(m_pLua, 1);
    {
        CCallScope outer(m_pLua);
        {
            CCallScope inner(m_pLua);
            lua_gc(m_pLua, LUA_GCCOLLECT);
        }
        EXPECT_EQ(sink->GetRefCount(), held) << "deferred while a call runs";
    }
    EXPECT_EQ(sink->GetRefCount(), 1);
    sink->Release();
}

// The debug library could reach a finaliser; the C API does so here. A value released by hand
// must never be used: every entry point refuses it with a Lua error.
TEST_F(LuaBinding, ReleasedValuesAreRefusedAtEveryEntryPoint) {
    ASSERT_EQ(Run("p = zor.packet{ ts = 1 } s = zor.sink{} src = zor.source{}"), "");
    for (const char* name : {"p", "s"}) {
        lua_getglobal(m_pLua, name);
        ASSERT_TRUE(lua_getmetatable(m_pLua, -1));
        lua_getfield(m_pLua, -1, "__gc");
        lua_pushvalue(m_pLua, -3);
        ASSERT_EQ(lua_pcall(m_pLua, 1, 0, 0), LUA_OK);
        lua_pop(m_pLua, 2);
    }
    const struct {
        const char* m_Code;
        const char* m_Error;
    } cases[] = {
        {"return p.ts", "the packet was released"},
        {"return s.refuse", "the component was released"},
        {"s.refuse = true", "the component was released"},
        {"s()", "the component was released"},
        {"src.push(p)", "a released packet"},
        {"zor.connect('x', src, s)", "argument 3 is not a component"},
    };
    for (const auto& c : cases) {
        EXPECT_NE(Run(c.m_Code).find(c.m_Error), std::string::npos) << c.m_Code;
    }
    EXPECT_EQ(Run("assert(tostring(p) == 'packet (released)')"), "");
    EXPECT_EQ(Run("assert(tostring(s) == 'component (released)')"), "");
    // A second finalisation (the collector's own, at close) finds nothing left to release.
}

TEST_F(LuaBinding, DiagnosticsCarryTheScriptPositionAndDivertScriptErrors) {
    ASSERT_EQ(Run("zor.capture()\nzor.sink{}.clear()\nlocal s = zor.sink{}\ns.refuse = false"), "");
    lua_pushcfunction(m_pLua, [](lua_State*) -> int {
        BelDump("Test::Dump -> complaint\n");
        BelReportScriptError("fault");
        return 0;
    });
    lua_setglobal(m_pLua, "complain");
    ASSERT_EQ(Run("\n\ncomplain()"), "");
    auto notes = m_Diagnostics.Take();
    ASSERT_EQ(notes.size(), 2u);
    EXPECT_EQ(notes[0].m_Kind, EBelDiagnosticKind::Dump);
    EXPECT_EQ(notes[0].m_Text, "Test::Dump -> complaint") << "one line, no line break";
    EXPECT_EQ(notes[1].m_Line, 3);
    EXPECT_FALSE(m_Diagnostics.IsEchoing());

    m_Diagnostics.BeginDivert();
    BelReportScriptError("first");
    BelDump("kept\n");
    BelReportScriptError("second");
    EXPECT_EQ(m_Diagnostics.EndDivert(), "first; second");
    notes = m_Diagnostics.Take();
    ASSERT_EQ(notes.size(), 1u) << "only script errors are diverted";
    EXPECT_EQ(notes[0].m_Text, "kept");
}

} // namespace
