-- A script that attacks the host gets a Lua error, never a crash: the host's metatables are out
-- of reach, unverified binary chunks cannot be loaded, and the debug library only inspects.
zor.capture()

local packet, sink = zor.packet{ ts = 1 }, zor.sink{ path = "hostile" }
assert(getmetatable(packet) == "zor.packet" and getmetatable(sink) == "zor.object")
assert(getmetatable(zor.null) == "zor.null")
assert(not pcall(setmetatable, packet, {}), "a userdata's metatable is not the script's")
for _, name in ipairs({ "getmetatable", "setmetatable", "getregistry", "setupvalue", "setlocal",
                        "setuservalue", "upvaluejoin", "sethook" }) do
    assert(debug[name] == nil, "debug." .. name .. " is not offered")
end
assert(type(debug.traceback) == "function" and debug.getinfo(1, "l").currentline > 0)

-- Only text chunks load, by every route.
local dumped = string.dump(function() return 1 end)
local chunk, message = load(dumped)
assert(chunk == nil and message:find("binary", 1, true), message)
assert(load("return 41 + 1")() == 42, "text chunks still load")
local env = { x = 5 }
assert(load("return x", "chunk", "t", env)() == 5, "an environment is still honoured")

-- A callback that yields names its own line, like any other callback error.
local source = zor.source{ path = "yield" }
local receiver = zor.sink{ path = "yield" }
receiver.onPacket = function() coroutine.yield() end -- line 26
local ok, err = pcall(coroutine.wrap(function() source.push(zor.packet{}) end))
assert(not ok and err:find("hostile.lua:26: attempt to yield across a C-call boundary (a callback cannot yield)", 1, true), err)
print("hostile: ok")
