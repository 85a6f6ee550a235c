// The global `zor` of a script: the module's creation functions by creation name, and the
// host's helpers in lower case (see docs/user-guide.md for the whole API with examples).
//
//     local src = zor.source{ path = "v" }
//     local sink = zor.sink{ path = "v" }
//     src.push(zor.packet{ kind = "video", ts = 0 })
//     zor.clock("virtual"); zor.advance(40); zor.run_until_idle()
//
// Reading a name zor does not have is an error, so a misspelt creation name is caught where it
// is written.
#pragma once

struct IJokModule;
struct lua_State;

// Registers the Lua types and sets the global `zor`; module (borrowed, may be nullptr) gives
// the creation functions.
void HostInstallApi(lua_State* L, IJokModule* module);
