// zor-run: runs a Lua script against the Zor module.
//
//     zor-run [--module PATH] SCRIPT.lua [ARGS...]
//
// The module is the libzor.so installed beside it, or else the one this build made, unless
// ZOR_MODULE or --module names another.
#include "filters/FilterCheck.h"
#include "host/ModuleLoader.h"
#include "host/ScriptHost.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#ifndef ZOR_DEFAULT_MODULE
#define ZOR_DEFAULT_MODULE "libzor.so"
#endif
#ifndef ZOR_INSTALL_LIBDIR
#define ZOR_INSTALL_LIBDIR "lib"
#endif

namespace {

// The module next to an installed zor-run (<prefix>/bin/zor-run, <prefix>/<libdir>/libzor.so),
// else the one of the build that made it.
std::string DefaultModule() {
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error) {
        const std::filesystem::path installed =
            self.parent_path().parent_path() / ZOR_INSTALL_LIBDIR / "libzor.so";
        if (std::filesystem::exists(installed, error)) {
            return installed.string();
        }
    }
    return ZOR_DEFAULT_MODULE;
}

void PrintUsage(const char* program, std::FILE* out) {
    std::fprintf(out,
                 "usage: %s [--module PATH] SCRIPT.lua [ARGS...]\n"
                 "       %s --check-filter FILE\n"
                 "\n"
                 "Runs a Lua 5.4 script with the global `zor`: the module's creation functions\n"
                 "by name (zor.CreateSplitter{ dataPath = \"video\" }) and the host's helpers\n"
                 "(zor.packet, zor.source, zor.sink, zor.connect, zor.run, zor.capture, ...).\n"
                 "The script's arguments are in `arg` and `...`. See docs/user-guide.md.\n"
                 "\n"
                 "options:\n"
                 "  --check-filter FILE  check an advanced packet filter script: its parse\n"
                 "                 messages, or the variables it uses and its tree\n"
                 "  --module PATH  the Zor module to load (default: $ZOR_MODULE, else\n"
                 "                 %s)\n"
                 "  --help         this text\n"
                 "\n"
                 "exit status: 0, 1 after a script error, 2 for a usage or loading fault, or\n"
                 "what the script passed to os.exit.\n",
                 program, program, DefaultModule().c_str());
}

} // namespace

int main(int argc, char** argv) {
    const char* program = "zor-run";
    const char* fromEnvironment = std::getenv("ZOR_MODULE");
    std::string module = fromEnvironment && *fromEnvironment ? fromEnvironment : DefaultModule();
    int i = 1;
    for (; i < argc && argv[i][0] == '-' && argv[i][1] == '-'; ++i) {
        if (std::strcmp(argv[i], "--help") == 0) {
            PrintUsage(program, stdout);
            return 0;
        }
        if (std::strcmp(argv[i], "--") == 0) {
            ++i;
            break;
        }
        if (std::strcmp(argv[i], "--check-filter") == 0 && i + 1 < argc) {
            return ZorCheckFilterFile(program, argv[i + 1]);
        }
        if (std::strcmp(argv[i], "--module") == 0 && i + 1 < argc) {
            module = argv[++i];
            continue;
        }
        std::fprintf(stderr, "%s: unknown option %s\n", program, argv[i]);
        PrintUsage(program, stderr);
        return 2;
    }
    if (i >= argc) {
        PrintUsage(program, stderr);
        return 2;
    }
    const std::string script = argv[i];
    const std::vector<std::string> args(argv + i + 1, argv + argc);

    CModuleLoader loader;
    if (!loader.Load(module)) {
        std::fprintf(stderr, "%s: %s\n", program, loader.Error().c_str());
        return 2;
    }
    return CScriptHost(loader.Module()).Run(script, args, program);
}
