-- Two paths through one synchroniser component in high speed: the ring releases the earliest
-- timestamp held on either path first, as fast as downstream takes them, with no time passing.
zor.clock("virtual")

local video = zor.source{ path = "hs.video" }
local audio = zor.source{ path = "hs.audio" }
local synch = zor.CreateSynch{ paths = { "hs.video", "hs.audio" } }
local sink = zor.sink{ path = "hs.video" }
zor.connect("hs.audio", synch, sink) -- one sink sees both paths in release order

assert(synch.SetMode{ mode = "HighSpeed" } == true)
local start = zor.now()
-- Each round, every path gets one packet into its synchroniser and one waiting at its source;
-- the two paths' timestamps interleave differently from round to round.
for round = 0, 9 do
    local base = 100000 + 100 * round
    local offset = round % 2 == 0 and 5 or 45
    for _, ts in ipairs({ base, base + 50 }) do
        video.push(zor.packet{ ts = ts, stream = 1 })
    end
    for _, ts in ipairs({ base + offset, base + offset + 30 }) do
        audio.push(zor.packet{ ts = ts, stream = 2 })
    end
    zor.run_until_idle()
end
assert(zor.now() == start, "high speed never waits for the clock")
assert(sink.count() == 40, sink.count())

local last = -1
for _, p in ipairs(sink.packets()) do
    assert(p.ts > last, ("out of step: %d after %d"):format(p.ts, last))
    last = p.ts
end

-- Back to normal: the next packets wait for their time again.
assert(synch.SetMode{ mode = "normal" } == true)
synch.paused = true
synch.paused = false
video.push(zor.packet{ ts = 500000, stream = 1 })
video.push(zor.packet{ ts = 500040, stream = 1 })
zor.run_until_idle()
assert(sink.count() == 41)
zor.advance(39.5)
assert(sink.count() == 41)
zor.advance(1)
assert(sink.count() == 42)
print(("high speed: %d packets of two paths in timestamp order"):format(sink.count()))
