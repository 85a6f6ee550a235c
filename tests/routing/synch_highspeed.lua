-- Two paths through one synchroniser component in high speed: the ring releases the earliest
-- timestamp held on either path first, as fast as downstream takes them, with no time passing.
zor.clock("virtual")
local video = zor.source{ path = "hs.video" }
local audio = zor.source{ path = "hs.audio" }
local synch = zor.CreateSynch{ paths = { "hs.video", "hs.audio" } }
local sink = zor.sink{ path = "hs.video" }
zor.connect("hs.audio", synch, sink) -- one sink sees both paths in release order
assert(synch.SetMode{ mode = "highspeed" })

-- Each round, each path gets one packet into its synchroniser and one waiting at its source;
-- the paths interleave differently from round to round.
local start = zor.now()
for round = 0, 9 do
    local base = 100000 + 100 * round
    local offset = round % 2 == 0 and 5 or 45
    video.push(zor.packet{ ts = base })
    video.push(zor.packet{ ts = base + 50 })
    audio.push(zor.packet{ ts = base + offset })
    audio.push(zor.packet{ ts = base + offset + 30 })
    zor.run_until_idle()
end
assert(zor.now() == start and sink.count() == 40)
local last = -1
for _, p in ipairs(sink.packets()) do
    assert(p.ts > last, ("out of step: %d after %d"):format(p.ts, last))
    last = p.ts
end
