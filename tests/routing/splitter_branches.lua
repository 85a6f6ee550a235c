-- A source fans out through one splitter into three branches with different downstream chains:
-- straight to a sink, through a key-frame filter, and through a synchroniser on the virtual
-- clock. Every branch sees the same packet objects; a slow branch holds all of them back.
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

-- The synchroniser's clock starts at the first packet's timestamp.
synch.paused = true
synch.paused = false

local gop = { "I", "P", "P", "B" }
local function frame(i)
    return zor.packet{ kind = "video", ts = i * 40, frameType = gop[i % #gop + 1] }
end

-- Each push goes only when every branch has taken the previous packet: the paced branch lets one
-- through per 40 ms, so the whole splitter moves at that pace.
for i = 0, 7 do
    while src.pending do
        zor.advance(10)
    end
    src.push(frame(i)) -- taken, or kept by the source until the splitter takes it
end
zor.advance(400)

assert(all.count() == 8, "all: " .. all.count())
assert(keySink.count() == 2, "keys: " .. keySink.count())
assert(paced.count() == 8, "paced: " .. paced.count())
for i, p in ipairs(paced.packets()) do
    assert(p.ts == (i - 1) * 40)
    assert(p == all.packets()[i], "one object on every branch, no copy")
end

-- A refusing branch stops everything behind it; when it takes again, nothing was lost.
all.clear(); keySink.clear(); paced.clear()
all.refuse = true
local t = 320
assert(src.push(zor.packet{ ts = t }))            -- taken: waits in the refusing branch's port
assert(src.push(zor.packet{ ts = t + 40 }))       -- taken: waits in the splitter
assert(not src.push(zor.packet{ ts = t + 80 }))   -- refused: waits in the source
zor.advance(200)
assert(paced.count() == 1, "the other branches got only the first packet")
all.refuse = false
all.poll()
zor.advance(200)
assert(all.count() == 3 and paced.count() == 3, all.count() .. " " .. paced.count())
assert(not src.pending)
print("splitter branches: ok")
