-- One source fans out through a splitter into three branches with different chains: straight to
-- a sink, through a key-frame filter, and through a synchroniser. Every branch sees the same
-- packet objects, and the slowest branch sets the pace.
zor.clock("virtual")
local src = zor.source{ path = "sb.video" }
local split = zor.CreateSplitter{ dataPath = "sb.video" }
split.CreatePort{ dataPath = "sb.all" }
local all = zor.sink{ path = "sb.all" }
split.CreatePort{ dataPath = "sb.keys" }
local keys = zor.CreateAdvancedPacketFilter{ dataPath = "sb.keys" }
keys.filter = "if (FRAMETYPE != IFRAME) { DISCARD; }"
local keySink = zor.sink{ path = "sb.keys" }
split.CreatePort{ dataPath = "sb.paced" }
local synch = zor.CreateSynch{ paths = { "sb.paced" } }
local paced = zor.sink{ path = "sb.paced" }
synch.paused = true
synch.paused = false -- the clock starts at the first packet's timestamp

local gop = { "I", "P", "P", "B" }
for i = 0, 7 do
    while src.pending do zor.advance(10) end
    src.push(zor.packet{ kind = "video", ts = i * 40, frameType = gop[i % #gop + 1] })
end
zor.advance(400)
assert(all.count() == 8 and keySink.count() == 2 and paced.count() == 8)
for i, p in ipairs(paced.packets()) do
    assert(p.ts == (i - 1) * 40 and p == all.packets()[i], "one object on every branch")
end

-- A refusing branch stops everything behind it; when it takes again, nothing was lost.
all.refuse = true
assert(src.push(zor.packet{ ts = 320 }))     -- waits in the refusing branch's port
assert(src.push(zor.packet{ ts = 360 }))     -- waits in the splitter
assert(not src.push(zor.packet{ ts = 400 })) -- waits in the source
zor.advance(200)
assert(paced.count() == 9)
all.refuse = false
all.poll()
zor.advance(200)
assert(all.count() == 11 and paced.count() == 11 and not src.pending)
