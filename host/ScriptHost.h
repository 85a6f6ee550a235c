// CScriptHost: runs one Lua script with the global `zor`, and takes everything down afterwards.
//
// The script sees its arguments as the standalone Lua interpreter gives them: arg[0] is the
// script, arg[1..n] the arguments, and the chunk's `...` the same arguments. os.exit ends the
// script through the host, so that every component and packet is released before the process
// ends. Teardown order: the graph the host holds, then the Lua state (whose finalisers release
// the script's objects; callbacks no longer run), then what was deferred, then the diagnostics.
#pragma once

#include <string>
#include <vector>

struct IJokModule;

class CScriptHost {
public:
    // Borrows module (may be nullptr: no creation functions).
    explicit CScriptHost(IJokModule* module) : m_pModule(module) {}

    // Answers the exit status: 0, 1 after a script error, or what the script gave os.exit.
    int Run(const std::string& script, const std::vector<std::string>& args,
            const std::string& program);

private:
    IJokModule* m_pModule;
};
