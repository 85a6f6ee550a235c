#include "host/HostApi.h"

#include "framework/bel/BelClock.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/bel/BelMessageLoop.h"
#include "framework/jok/Command.h"
#include "framework/jok/GenericData.h"
#include "framework/jok/JokDLL.h"
#include "framework/kor/PinComponent.h"
#include "host/HostDiagnostics.h"
#include "host/HostState.h"
#include "host/LuaComponent.h"
#include "host/LuaFields.h"
#include "host/LuaPacket.h"
#include "host/LuaPlot.h"
#include "host/LuaValue.h"
#include "io/ScriptSink.h"
#include "io/ScriptSource.h"
#include "io/WavSink.h"
#include "io/WavSource.h"

#include <cmath>
#include <lua.hpp>

namespace {

// Pushes a component the host made and drops the construction reference: the Lua object holds
// the only one. The host's components raise their script errors as Lua errors.
void PushNewComponent(lua_State* L, CJokComponent* component) {
    LuaPushObject(L, component->GetIUnknown(), SLuaOrigin{nullptr, true});
    component->Release();
}

int Source(lua_State* L, SLuaFault& fault) {
    CLuaFields fields(L, 1, "zor.source");
    fields.Allow({"path"});
    std::string path;
    fields.String("path", &path);
    if (!fields.Ok()) {
        return fault.Set(fields.Error());
    }
    CCallScope scope(L);
    PushNewComponent(L, new CScriptSourceCom(path.c_str()));
    return 1;
}

int Sink(lua_State* L, SLuaFault& fault) {
    CLuaFields fields(L, 1, "zor.sink");
    fields.Allow({"path", "refuse"});
    std::string path;
    bool refuse = false;
    fields.String("path", &path);
    fields.Boolean("refuse", &refuse);
    if (!fields.Ok()) {
        return fault.Set(fields.Error());
    }
    CCallScope scope(L);
    auto* sink = new CScriptSinkCom(path.c_str());
    CJokGdBoolean* value = CJokGdBoolean::Allocate(refuse);
    sink->SetProperty("refuse", value);
    value->Release();
    PushNewComponent(L, sink);
    return 1;
}

int WavSource(lua_State* L, SLuaFault& fault) {
    CLuaFields fields(L, 1, "zor.wav_source");
    fields.Allow({"file", "path"});
    std::string file;
    std::string path;
    if (!fields.String("file", &file) && fields.Ok()) {
        fields.Fail("field 'file' is required");
    }
    fields.String("path", &path);
    if (!fields.Ok()) {
        return fault.Set(fields.Error());
    }
    CCallScope scope(L);
    auto* source = new CWavSourceCom(file.c_str(), path.c_str());
    if (!source->IsOpen()) {
        fault.Set("zor.wav_source: " + source->Error());
        source->Release();
        return 0;
    }
    PushNewComponent(L, source);
    return 1;
}

int WavSink(lua_State* L, SLuaFault& fault) {
    CLuaFields fields(L, 1, "zor.wav_sink");
    fields.Allow({"file", "path", "format"});
    std::string file;
    std::string path;
    if (!fields.String("file", &file) && fields.Ok()) {
        fields.Fail("field 'file' is required");
    }
    fields.String("path", &path);
    std::string record; // the format with its extra bytes behind it
    if (fields.Table("format")) {
        std::string error;
        std::string extra;
        WAVEFORMATEX format{};
        if (LuaReadAudioFormat(L, -1, &format, &error, &extra)) {
            record.assign(reinterpret_cast<const char*>(&format), sizeof(format));
            record += extra;
        } else {
            fields.Fail(error);
        }
        lua_pop(L, 1);
    }
    if (!fields.Ok()) {
        return fault.Set(fields.Error());
    }
    CCallScope scope(L);
    auto* sink = new CWavSinkCom(
        file.c_str(), path.c_str(),
        record.empty() ? nullptr : reinterpret_cast<const WAVEFORMATEX*>(record.data()));
    if (!sink->IsUsable()) {
        fault.Set("zor.wav_sink: " + sink->Error());
        sink->Release();
        return 0;
    }
    PushNewComponent(L, sink);
    return 1;
}

// The pin side of a component argument, or nullptr with a fault.
CKorBus* BusArgument(lua_State* L, int index, SLuaFault& fault) {
    IUnknown* object = LuaToObject(L, index);
    CKorBus* bus = object ? CKorBus::FromUnknown(object) : nullptr;
    if (!bus) {
        fault.Set("zor.connect: argument " + std::to_string(index) +
                  " is not a component with pins");
    }
    return bus;
}

int Connect(lua_State* L, SLuaFault& fault) {
    if (lua_type(L, 1) != LUA_TSTRING || lua_rawlen(L, 1) == 0) {
        return fault.Set("zor.connect: the first argument must be a data path name");
    }
    const std::string path = lua_tostring(L, 1);
    const int count = lua_gettop(L);
    if (count < 3) {
        return fault.Set("zor.connect: give the path and at least two components");
    }
    for (int i = 2; i <= count; ++i) {
        if (!BusArgument(L, i, fault)) {
            return 0;
        }
    }
    CHostState& state = CHostState::Of(L);
    CCallScope scope(L);
    for (int i = 2; i < count; ++i) {
        CKorBus* from = CKorBus::FromUnknown(LuaToObject(L, i));
        CKorBus* to = CKorBus::FromUnknown(LuaToObject(L, i + 1));
        const std::string names = LuaObjectName(LuaToObject(L, i)) + " to " +
                                  LuaObjectName(LuaToObject(L, i + 1)) + " on '" + path + "'";
        if (from->GetPinRole() == CKorBus::PINS_INPUT || to->GetPinRole() == CKorBus::PINS_OUTPUT) {
            return fault.Set("zor.connect: cannot link " + names +
                             ": packets go from an output pin to an input pin");
        }
        CBelString reason;
        if (!dataPathRegister::CDataPathRegistry::Connect(path.c_str(), from, to, &reason)) {
            return fault.Set("zor.connect: cannot link " + names + ": " + reason.str());
        }
    }
    // A linked graph lives as long as the script, whatever the script keeps in variables.
    for (int i = 2; i <= count; ++i) {
        state.Hold(LuaToObject(L, i));
    }
    return 0;
}

// zor.chain(path): the path's chains as PrintChain writes them, one module a line.
int Chain(lua_State* L, SLuaFault& fault) {
    if (lua_type(L, 1) != LUA_TSTRING) {
        return fault.Set("zor.chain: expects a data path name");
    }
    const std::string path = lua_tostring(L, 1);
    if (!dataPathRegister::CDataPathRegistry::IsKnown(path.c_str())) {
        return fault.Set("zor.chain: no data path '" + path + "'");
    }
    CBelString text;
    {
        CBelDiagnosticCapture capture; // the chain is written as dump lines; keep them here
        CCallScope scope(L);
        dataPathRegister::CDataPathRegistry::PrintChain(path.c_str());
        text = capture.Text(EBelDiagnosticKind::Dump);
    }
    lua_pushlstring(L, text.c_str(), static_cast<size_t>(text.GetLength()));
    return 1;
}

int Run(lua_State* L, SLuaFault& fault) {
    CLuaFields fields(L, 1, "zor.run");
    fields.Allow({"seconds"});
    double seconds = 0;
    if (!fields.Finite("seconds", &seconds) && fields.Ok()) {
        fields.Fail("field 'seconds' is required");
    }
    if (fields.Ok() && seconds < 0) {
        fields.Fail("seconds must not be negative");
    }
    if (!fields.Ok()) {
        return fault.Set(fields.Error());
    }
    int deliveries = 0;
    {
        CCallScope scope(L);
        deliveries = CBelMessageLoop::Current().RunFor(seconds);
    }
    lua_pushinteger(L, deliveries);
    return 1;
}

int RunUntilIdle(lua_State* L, SLuaFault&) {
    int deliveries = 0;
    {
        CCallScope scope(L);
        deliveries = CBelMessageLoop::Current().RunUntilIdle();
    }
    lua_pushinteger(L, deliveries);
    return 1;
}

int Clock(lua_State* L, SLuaFault& fault) {
    lua_pushstring(L, BelIsVirtualClock() ? "virtual" : "real");
    if (lua_isnoneornil(L, 1)) {
        return 1;
    }
    const char* mode = lua_type(L, 1) == LUA_TSTRING ? lua_tostring(L, 1) : "";
    if (std::string(mode) != "virtual" && std::string(mode) != "real") {
        return fault.Set("zor.clock: expects \"virtual\" or \"real\"");
    }
    BelUseVirtualClock(std::string(mode) == "virtual");
    return 1;
}

int Advance(lua_State* L, SLuaFault& fault) {
    if (lua_type(L, 1) != LUA_TNUMBER || !(lua_tonumber(L, 1) >= 0) ||
        !std::isfinite(lua_tonumber(L, 1))) {
        return fault.Set("zor.advance: expects a finite number of milliseconds (not negative)");
    }
    if (!BelIsVirtualClock()) {
        return fault.Set("zor.advance: the clock is real; call zor.clock(\"virtual\") first");
    }
    const double milliseconds = lua_tonumber(L, 1);
    int deliveries = 0;
    {
        CCallScope scope(L);
        deliveries = CBelMessageLoop::Current().Advance(milliseconds);
    }
    lua_pushinteger(L, deliveries);
    return 1;
}

int Now(lua_State* L) {
    lua_pushnumber(L, BelDoubleTime() * 1000.0);
    return 1;
}

const char* KindName(EBelDiagnosticKind kind) {
    switch (kind) {
    case EBelDiagnosticKind::Dump:
        return "dump";
    case EBelDiagnosticKind::ScriptError:
        return "error";
    case EBelDiagnosticKind::Assertion:
        return "assert";
    }
    return "?";
}

int Capture(lua_State* L, SLuaFault&) {
    const std::vector<CHostDiagnostics::SEntry> entries = CHostState::Of(L).Diagnostics().Take();
    lua_createtable(L, static_cast<int>(entries.size()), 0);
    for (size_t i = 0; i < entries.size(); ++i) {
        const CHostDiagnostics::SEntry& entry = entries[i];
        lua_createtable(L, 0, 4);
        lua_pushstring(L, KindName(entry.m_Kind));
        lua_setfield(L, -2, "kind");
        lua_pushlstring(L, entry.m_Text.data(), entry.m_Text.size());
        lua_setfield(L, -2, "text");
        if (!entry.m_File.empty()) {
            lua_pushstring(L, entry.m_File.c_str());
            lua_setfield(L, -2, "file");
            lua_pushinteger(L, entry.m_Line);
            lua_setfield(L, -2, "line");
        }
        lua_rawseti(L, -2, static_cast<lua_Integer>(i) + 1);
    }
    return 1;
}

int Properties(lua_State* L, SLuaFault& fault) {
    IUnknown* object = LuaToObject(L, 1);
    if (!object) {
        return fault.Set("zor.properties: expects a component or function object");
    }
    void* command = nullptr;
    lua_newtable(L);
    if (object->QueryInterface(IID_IJokCommand, &command) != S_OK) {
        return 1;
    }
    CJokPropertyEnum* properties = static_cast<IJokCommand*>(command)->GetPropertyEnumerator();
    static_cast<IJokCommand*>(command)->Release();
    lua_Integer n = 0;
    while (const CJokPropertyDescriptor* descriptor = properties ? properties->Next() : nullptr) {
        lua_pushstring(L, descriptor->GetName().c_str());
        lua_rawseti(L, -2, ++n);
    }
    delete properties;
    return 1;
}

int UnknownName(lua_State* L, SLuaFault& fault) {
    const char* name = lua_type(L, 2) == LUA_TSTRING ? lua_tostring(L, 2) : "?";
    return fault.Set(std::string("zor.") + name + ": no such creation function or helper");
}

void AddModuleFunctions(lua_State* L, IJokModule* module) {
    const int count = module ? module->GetFunctionCount() : 0;
    for (int i = 0; i < count; ++i) {
        IJokCommand* function = module->GetFunction(i);
        if (!function) {
            continue;
        }
        const std::string name = LuaObjectName(function);
        LuaPushObject(L, function);
        lua_setfield(L, -2, name.c_str());
    }
}

} // namespace

void HostInstallApi(lua_State* L, IJokModule* module) {
    LuaRegisterNull(L);
    LuaRegisterObjectType(L);
    LuaRegisterPacketType(L);
    lua_newtable(L);
    AddModuleFunctions(L, module);
    const luaL_Reg helpers[] = {{"packet", &LuaNewPacket},
                                {"source", &LuaProtected<Source>},
                                {"sink", &LuaProtected<Sink>},
                                {"wav_source", &LuaProtected<WavSource>},
                                {"wav_sink", &LuaProtected<WavSink>},
                                {"connect", &LuaProtected<Connect>},
                                {"chain", &LuaProtected<Chain>},
                                {"run", &LuaProtected<Run>},
                                {"run_until_idle", &LuaProtected<RunUntilIdle>},
                                {"clock", &LuaProtected<Clock>},
                                {"advance", &LuaProtected<Advance>},
                                {"now", &Now},
                                {"capture", &LuaProtected<Capture>},
                                {"properties", &LuaProtected<Properties>},
                                {"plot_timeline", &LuaProtected<LuaPlotTimeline>},
                                {nullptr, nullptr}};
    luaL_setfuncs(L, helpers, 0);
    LuaPushNull(L);
    lua_setfield(L, -2, "null");
    lua_newtable(L);
    lua_pushcfunction(L, &LuaProtected<UnknownName>);
    lua_setfield(L, -2, "__index");
    lua_setmetatable(L, -2);
    lua_setglobal(L, "zor");
}
