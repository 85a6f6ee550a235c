-- The synchroniser on the virtual clock: release at the timestamps, scale factor, pause and
-- resume, and the script faults it reports.
zor.clock("virtual")

local src = zor.source{ path = "sv.video" }
local synch = zor.CreateSynch{ paths = { "sv.video" } }
local sink = zor.sink{ path = "sv.video" }

-- A time base sets the clock: module time 1000 now.
assert(src.push(zor.packet{ kind = "timebase", time = 1000, scale = 1.0 }))
zor.run_until_idle()
assert(sink.count() == 1)

assert(src.push(zor.packet{ ts = 1040 }))
zor.advance(39.5)
assert(sink.count() == 1, "not before its time")
zor.advance(1)
assert(sink.count() == 2, "at its time")

-- Twice as fast: a lead of 100 ms takes 50 ms.
synch.scaleFactor = 2.0
assert(synch.scaleFactor == 2.0)
assert(src.push(zor.packet{ ts = 1140 }))
zor.advance(49)
assert(sink.count() == 2)
zor.advance(1)
assert(sink.count() == 3)
synch.scaleFactor = -1.0 -- "not set": nothing in force changes
assert(synch.scaleFactor == 2.0)
synch.scaleFactor = 1.0

-- Paused: the packet is held however long the pause; play resumes from its own timestamp.
assert(src.push(zor.packet{ ts = 1500 }))
synch.paused = true
assert(synch.paused == true)
zor.advance(5000)
assert(sink.count() == 3)
synch.paused = false
zor.run_until_idle()
assert(sink.count() == 4, "due at once after the resume")
assert(src.push(zor.packet{ ts = 1540 }))
zor.advance(39.5)
assert(sink.count() == 4)
zor.advance(1)
assert(sink.count() == 5)

-- Disabled: no waiting at all.
assert(synch.SetMode{ mode = "Disable" } == true)
assert(src.push(zor.packet{ ts = 99999 }))
assert(sink.count() == 6)

-- Faults: the stated messages, and a false result.
zor.capture()
assert(synch.SetMode{ mode = "fast" } == false)
assert(synch.SetMode{ mode = "normal", path = "sv.nowhere" } == false)
assert(synch.SetMode{ mode = "normal", path = "SV.VIDEO" } == true)
local texts = {}
for _, d in ipairs(zor.capture()) do
    if d.kind == "error" then texts[#texts + 1] = d.text end
end
-- (the host shows each message as one line, without its line break)
assert(texts[1] == "SynchSetMode: mode must be one of [disable, normal or highspeed]", texts[1])
assert(texts[2] == "SynchSetMode: the requested path does not exist", texts[2])

for _, bad in ipairs({ 3, "video", { 1, 2 } }) do
    assert(zor.CreateSynch{ paths = bad } == nil)
end
local made = zor.CreateSynch{ paths = zor.null }
assert(made ~= nil, "null paths make a component without paths")
for _, d in ipairs(zor.capture()) do
    assert(d.text == "CreateSynch: paths must be a vector of strings (or null)", d.text)
end
print("synchroniser on the virtual clock: ok")
