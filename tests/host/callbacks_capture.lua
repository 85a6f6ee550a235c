-- Lua functions as callbacks, and zor.capture().
local src = zor.source{ path = "cb.a" }
local sink = zor.sink{ path = "cb.a" }

-- Positional parameters in order: the packet, then the calling component.
local calls = {}
local function onPacket(packet, self, extra)
    calls[#calls + 1] = { ts = packet.ts, self = self, extra = extra }
end
sink.onPacket = onPacket
assert(sink.onPacket == onPacket, "a callback reads back as the same function")
src.push(zor.packet{ ts = 7 })
assert(#calls == 1 and calls[1].ts == 7 and calls[1].self == sink and calls[1].extra == nil)
sink.onPacket = nil
assert(sink.onPacket == zor.null, "nil clears a callback")
src.push(zor.packet{ ts = 8 })
assert(#calls == 1)

-- An error in a callback stops the script's call that led to it, naming the callback's line.
sink.onPacket = function(packet) if packet.ts == 13 then error("unlucky") end end
assert(src.push(zor.packet{ ts = 12 }))
local ok, message = pcall(src.push, zor.packet{ ts = 13 })
assert(not ok and message:find("callbacks_capture.lua:%d+: unlucky"), message)
sink.onPacket = function() return coroutine.create(print) end
ok, message = pcall(src.push, zor.packet{ ts = 14 })
assert(not ok and message:find("callback result", 1, true), message)
sink.onPacket = nil

-- A component's own methods called with ':' as well as '.'.
assert(sink:count() == sink.count())

-- capture(): entries since the last call, kind, text and the script position.
zor.capture()
zor.CreateSynch{ paths = "x" }; local line = debug.getinfo(1, "l").currentline
local notes = zor.capture()
assert(#notes == 1 and notes[1].kind == "error" and notes[1].line == line)
assert(notes[1].text == "CreateSynch: paths must be a vector of strings (or null)")
assert(#zor.capture() == 0, "each entry is handed over once")
print("callbacks_capture: ok")
