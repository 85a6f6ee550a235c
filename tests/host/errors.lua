-- Faults a script author makes get one clear message each, at the line that made them.
zor.capture() -- from here on, messages are checked, not echoed

local function fails(pattern, f, ...)
    local ok, message = pcall(f, ...)
    assert(not ok, "expected an error matching " .. pattern)
    assert(message:find(pattern, 1, true), message)
    assert(message:find("^[^:]*errors%.lua:%d+: "), "names the script line: " .. message)
end

local sink = zor.sink{ path = "er.a" }
local messages = {
    -- unknown names
    { "zor.CreateSplitterr: no such creation function or helper", function() return zor.CreateSplitterr end },
    { "ScriptSink has no property 'refuze' (it has: refuse, onPacket", function() return sink.refuze end },
    { "ScriptSink has no property 'colour'", function() sink.colour = 1 end },
    -- wrong types and read-only properties
    { "ScriptSink.refuse: a boolean is expected, not a string", function() sink.refuse = "yes" end },
    { "ScriptSink.refused is read-only", function() sink.refused = 3 end },
    { "ScriptSink.onPacket: a function is expected, not a number", function() sink.onPacket = 5 end },
    { "ScriptSink.refuse: cannot take a thread", function() sink.refuse = coroutine.create(print) end },
    { "a table that mixes array items and named fields", function() sink.refuse = { 1, x = 2 } end },
    { "nested too deeply", function() local t = {}; t[1] = t; sink.refuse = t end },
    -- helper parameters
    { "zor.packet: unknown field 'tss'", function() zor.packet{ tss = 1 } end },
    { "zor.packet: field 'ts' must be a number, not string", function() zor.packet{ ts = "1" } end },
    { "zor.packet: unknown kind 'vidoe'", function() zor.packet{ kind = "vidoe" } end },
    { "zor.packet: field 'frameType' is for video packets", function() zor.packet{ frameType = 1 } end },
    { "zor.packet: unknown frameType 'X'", function() zor.packet{ kind = "video", frameType = "X" } end },
    { "audio format: rate is required", function() zor.packet{ kind = "audio", format = {} } end },
    { "zor.sink: expects a table of named fields, not number", function() zor.sink(3) end },
    { "zor.advance: the clock is real", function() zor.advance(10) end },
    { "zor.clock: expects \"virtual\" or \"real\"", function() zor.clock("fast") end },
    { "zor.run: field 'seconds' is required", function() zor.run{} end },
    -- numbers bound for integer fields are checked, never converted out of range
    { "field 'ts' must be a whole number from -2147483648 to 4294967295, not nan", function() zor.packet{ ts = 0/0 } end },
    { "field 'ts' must be a whole number from -2147483648 to 4294967295, not 1e+300", function() zor.packet{ ts = 1e300 } end },
    { "field 'ts' must be a whole number from -2147483648 to 4294967295, not 1.5", function() zor.packet{ ts = 1.5 } end },
    { "field 'time' must be a whole number from -2147483648 to 2147483647, not nan", function() zor.packet{ kind = "timebase", time = 0/0 } end },
    { "field 'stream' must be a whole number from -2147483648 to 2147483647, not 2147483648", function() zor.packet{ stream = 2^31 } end },
    { "field 'rts' must be a finite number, not inf", function() zor.packet{ rts = 1/0 } end },
    { "attributes map whole numbers to whole numbers (32-bit)", function() zor.packet{ attributes = { [1] = 2^40 } } end },
    { "field 'seconds' must be a finite number, not nan", function() zor.run{ seconds = 0/0 } end },
    { "zor.advance: expects a finite number of milliseconds", function() zor.advance(0/0) end },
    { "a packet has no field 'tz'", function() return zor.packet{}.tz end },
    { "cannot be called", function() sink() end },
}
for _, case in ipairs(messages) do
    fails(case[1], case[2])
end
assert(#zor.capture() == 0, "Lua errors are not reported twice")

-- The module's own faults: the call gives nil and the message goes to the diagnostics, with the
-- position of the call.
local function module_fault(pattern, f)
    assert(f() == nil)
    local notes = zor.capture()
    assert(#notes == 1 and notes[1].kind == "error", #notes)
    assert(notes[1].text:find(pattern, 1, true), notes[1].text)
    assert(notes[1].file:find("errors.lua", 1, true) and notes[1].line > 0)
end
module_fault("CreateSynch: paths must be a vector of strings (or null)",
             function() return zor.CreateSynch{ paths = 3 } end)

-- A parameter the creation function or method never reads is named, with what it reads; the
-- call itself goes on.
local function unused(pattern, f)
    assert(f() ~= nil)
    local notes = zor.capture()
    assert(#notes == 1 and notes[1].text == pattern, notes[1] and notes[1].text)
end
unused("CreateSplitter: unused parameter 'dataPat' (it reads: dataPath)",
       function() return zor.CreateSplitter{ dataPat = "er.b" } end)
unused("CreateSplitter: unused argument 1 (it reads: dataPath)",
       function() return zor.CreateSplitter("er.b") end)
unused("CreateAudioEncoder: unused parameter 'format' (it reads none)",
       function() return zor.CreateAudioEncoder{ format = "32 kbps" } end)
unused("CreatePort: unused parameter 'path' (it reads: dataPath)",
       function() return zor.CreateSplitter{}.CreatePort{ path = "er.c" } end)
assert(zor.CreateVideoDisplay.name == "CreateVideoDisplay")
assert(zor.CreateVideoDisplayDX.description == "&CreateVideoDisplay")
print("errors: ok")
