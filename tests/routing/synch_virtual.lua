-- The synchroniser on the virtual clock: release at the timestamps, scale factor, pause and
-- resume, and the script faults it reports (the paths parameter's are the entry tests').
zor.clock("virtual")
local src = zor.source{ path = "sv.video" }
local synch = zor.CreateSynch{ paths = { "sv.video" } }
local sink = zor.sink{ path = "sv.video" }

local function expect(packet, wait)
    assert(src.push(packet))
    zor.advance(wait - 0.5)
    local before = sink.count()
    zor.advance(1)
    assert(sink.count() == before + 1, "released at its time")
end

src.push(zor.packet{ kind = "timebase", time = 1000, scale = 1.0 }) -- module time 1000 now
zor.run_until_idle()
expect(zor.packet{ ts = 1040 }, 40)
synch.scaleFactor = 2.0
synch.scaleFactor = -1.0 -- "not set": nothing in force changes
assert(synch.scaleFactor == 2.0)
local ok, err = pcall(function() synch.scaleFactor = 0 end)
assert(not ok and err:find("Synch.scaleFactor: the scale factor must be a positive finite number", 1, true), err)
expect(zor.packet{ ts = 1240 }, 100)

-- Paused, the packet is held however long; play resumes from its own timestamp.
synch.scaleFactor = 1.0
assert(src.push(zor.packet{ ts = 1500 }))
synch.paused = true
zor.advance(5000)
assert(sink.count() == 3 and synch.paused)
synch.paused = false
zor.run_until_idle()
assert(sink.count() == 4)
expect(zor.packet{ ts = 1540 }, 40)

zor.capture()
assert(synch.SetMode{ mode = "fast" } == false)
assert(synch.SetMode{ mode = "normal", path = "sv.nowhere" } == false)
assert(synch.SetMode{ mode = "HighSpeed", path = "SV.VIDEO" } == true)
local texts = {}
for _, d in ipairs(zor.capture()) do texts[#texts + 1] = d.text end
assert(table.concat(texts, "|") == "SynchSetMode: mode must be one of [disable, normal or highspeed]"
    .. "|SynchSetMode: the requested path does not exist", table.concat(texts, "|"))
