-- zor-run itself: usage, exit status, and how script errors are shown.
-- arg[1]: the zor-run program, arg[2]: a scratch directory.
local program, scratch = arg[1], arg[2]

local function run(arguments, script)
    local command = program .. " " .. arguments
    if script then
        local file = scratch .. "/cli_script.lua"
        local f = assert(io.open(file, "w"))
        f:write(script)
        f:close()
        command = program .. " " .. arguments:gsub("SCRIPT", file)
    end
    local pipe = io.popen(command .. " 2>&1; echo \"status=$?\"")
    local output = pipe:read("a")
    pipe:close()
    local status = tonumber(output:match("status=(%d+)%s*$"))
    return status, output
end

local status, output = run("--help")
assert(status == 0 and output:find("usage: zor-run", 1, true) and output:find("--module", 1, true))
status, output = run("--frobnicate x.lua")
assert(status == 2 and output:find("unknown option --frobnicate", 1, true), output)
status, output = run("")
assert(status == 2 and output:find("usage:", 1, true), output)
status, output = run("--module /no/such/libzor.so x.lua")
assert(status == 2 and output:find("cannot load the module", 1, true), output)

-- Arguments reach the script as `arg` and `...`.
status, output = run("SCRIPT one two", "print(arg[1], arg[2], select('#', ...), ...)")
assert(status == 0 and output:find("one\ttwo\t2\tone\ttwo", 1, true), output)

-- A run-time error: file and line, a traceback, status 1.
status, output = run("SCRIPT", "local x = 1\nlocal sink = zor.sink{}\nsink.refuze = true\n")
assert(status == 1, output)
assert(output:find("cli_script.lua:3: ScriptSink has no property 'refuze'", 1, true), output)
assert(output:find("stack traceback", 1, true), output)

-- A syntax error and a missing script.
status, output = run("SCRIPT", "local = 1\n")
assert(status == 1 and output:find("cli_script.lua:1:", 1, true), output)
status, output = run(scratch .. "/no_such_script.lua")
assert(status == 1 and output:find("cannot open", 1, true), output)

-- os.exit ends the script through the host with the status given.
status, output = run("SCRIPT", "local s = zor.sink{ path = 'x' }\nos.exit(3)\nprint('not here')")
assert(status == 3 and not output:find("not here", 1, true), output)
-- From a callback too, and a pcall in the script cannot hold it back.
status, output = run("SCRIPT", "local source = zor.source{ path = 'y' }\n" ..
    "local sink = zor.sink{ path = 'y' }\n" ..
    "sink.onPacket = function() os.exit(4) end\n" ..
    "pcall(source.push, zor.packet{})\nprint('not here')")
assert(status == 4 and not output:find("not here", 1, true) and not output:find("error", 1, true),
       output)
status, output = run("SCRIPT", "pcall(os.exit, 5)\nprint('not here')")
assert(status == 5 and not output:find("not here", 1, true), output)
status, output = run("SCRIPT", "os.exit(1e300)")
assert(status == 1 and output:find("exit status must be a whole number", 1, true), output)
status = run("SCRIPT", "os.exit(false)")
assert(status == 1)
status = run("SCRIPT", "os.exit(true)")
assert(status == 0)

-- Module faults are shown on stderr, with the script position, until the script captures them.
status, output = run("SCRIPT", "assert(zor.CreateSynch{ paths = 1 } == nil)\nprint('went on')")
assert(status == 0 and output:find("cli_script.lua:1: CreateSynch: paths must be a vector", 1, true), output)
assert(output:find("went on", 1, true))
status, output = run("SCRIPT", "zor.capture()\nzor.CreateSynch{ paths = 1 }")
assert(status == 0 and not output:find("CreateSynch", 1, true), output)
print("cli: ok")
