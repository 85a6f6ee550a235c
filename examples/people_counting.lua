-- People counting and exit blocking on boxes a script makes: two walkers cross a counting line,
-- one each way, and a bag is put down and left. The boxes stand in for an object tracker's.
--
--     zor-run examples/people_counting.lua
local src = zor.source{ path = "video" }
local write = zor.CreatePeopleCountFilter{ dataPath = "video" }   -- a fresh "PCD1" on each frame
local pca = zor.CreatePCAFilter{}                                  -- the counting analyser
local lodWrite = zor.CreateExitBlockingFilter{}                    -- a fresh "LOD1" on each frame
local lod = zor.CreateLODFilter{}                                  -- the left-object analyser
local read = zor.CreatePeopleCountFilter{}
local blocking = zor.CreateExitBlockingFilter{}
local sink = zor.sink{}
zor.connect("video", write, pca, lodWrite, lod, read, blocking, sink)

write.mode = "write"
lodWrite.mode = "write"
pca.line = { 0, 120, 352, 120 } -- drawn left to right: walking down the picture is an entry
lod.warmUp = 0                  -- the boxes are clean from the first frame on
blocking.SetTargetDuration{ SetTargetDuration = 5000 }

local counts = {}
read.onCountChange = function(entries, _, exits, _, occupancy, _, self)
    counts = { entries = entries, exits = exits, occupancy = occupancy }
end
local alerts = {}
blocking.onCountChange = function(entries, _, targets, _, seconds, _, self)
    alerts[#alerts + 1] = { time = zor.now(), entries = entries, seconds = seconds }
end
for _, filter in ipairs({ write, pca, lodWrite, lod, read, blocking }) do
    filter.enabled = true
end

-- 25 frames a second for 16 s: walker A goes down the left of the picture from 0 s, walker B up
-- the right from 6 s; walker C carries a bag along the bottom, puts it down at 3 s and walks on.
local function box(x, y, w, h)
    return { math.floor(x - w / 2), math.floor(y - h / 2), math.floor(x + w / 2),
             math.floor(y + h / 2) }
end
local bagAt, firstAlert = nil, nil
for frame = 0, 399 do
    local t = frame * 40
    local boxes = {}
    if t < 5000 then boxes[#boxes + 1] = box(80, -20 + t * 0.06, 16, 40) end
    if t >= 6000 and t < 11000 then boxes[#boxes + 1] = box(270, 260 - (t - 6000) * 0.06, 16, 40) end
    local cx = t < 3000 and 10 + t * 0.05 or (t < 3500 and 160 or 160 + (t - 3500) * 0.06)
    if cx < 340 then boxes[#boxes + 1] = box(cx, 200, 16, 40) end
    if t >= 3000 then
        bagAt = bagAt or t
        local bag = box(170, 214, 12, 10)
        -- The bag touches the walker until he has moved off: one blob, as a tracker sees it.
        local walker = boxes[#boxes]
        if cx < 190 and walker then
            walker[1] = math.min(walker[1], bag[1]); walker[2] = math.min(walker[2], bag[2])
            walker[3] = math.max(walker[3], bag[3]); walker[4] = math.max(walker[4], bag[4])
        else
            boxes[#boxes + 1] = bag
        end
    end
    for _, b in ipairs(boxes) do
        for i = 1, 4 do b[i] = math.max(0, b[i]) end
    end
    src.push(zor.packet{ kind = "video", ts = t, boxes = boxes,
                         format = { width = 352, height = 240 } })
    if not firstAlert and #alerts > 0 then firstAlert = t end
end

print(string.format("people counting: %d entries (walking down), %d exits (walking up), "
    .. "occupancy %d", counts.entries, counts.exits, counts.occupancy))
print(string.format("exit blocking: the bag went down at %.1f s; first alert at %.1f s "
    .. "(duration %.1f s), %d alerts in all", bagAt / 1000, firstAlert / 1000, 5, #alerts))
assert(counts.entries == 1 and counts.exits == 1, "one walker each way")
assert(firstAlert and firstAlert <= bagAt + 5000 + 1000, "the bag is reported in time")
assert(sink.count() == 400, "every frame passed on")
