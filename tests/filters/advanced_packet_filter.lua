-- The advanced packet filter from a script: a refused script as a Lua error, DELAY on the
-- virtual clock, and callbacks (the examples run the key-frame filter and text schemas; the
-- C++ tests check every action).
zor.clock("virtual")
local src = zor.source{ path = "apf" }
local apf = zor.CreateAdvancedPacketFilter{ dataPath = "apf" }
local sink = zor.sink{ path = "apf" }

-- A script that does not compile is refused with its parse message as the Lua error, and leaves
-- no script behind.
local ok, err = pcall(function() apf.filter = "if (TS > ) { DISCARD; }" end)
assert(not ok and err:find("AdvancedPacketFilter.filter: Syntax error at line 1 (position 10)", 1,
                           true), err)
assert(apf.filter == "")

-- DELAY holds the input until the alarm; the packet upstream kept comes next.
apf.filter = "if (TS == 1) { DELAY = 0.1; } n = n + 1; STREAM = n"
src.push(zor.packet{ kind = "data", ts = 1 })
src.push(zor.packet{ kind = "data", ts = 2 })
zor.run_until_idle()
assert(sink.count() == 0 and apf.GetVariable{ variable = "LOCKED" } == 1)
zor.advance(100)
zor.run_until_idle()
assert(sink.count() == 2, "held packets resume after the delay")
assert(sink.packets()[2].stream == 2)
sink.clear()

-- The callback gets the component; with no script it runs for every packet.
apf.filter = ""
local calls = 0
apf.callback = function(self)
    calls = calls + 1
    assert(self.packetType == "DATA")
end
src.push(zor.packet{ kind = "data", ts = 5 })
zor.run_until_idle()
assert(calls == 1 and sink.count() == 1)
apf.callback = zor.null
sink.clear()

apf.Flush{}
print("advanced packet filter: ok")
