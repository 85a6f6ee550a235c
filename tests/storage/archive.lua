-- The archive end to end: live filters and the metadata writer on one chain of scripted video
-- packets, then the same intervals found again by the archive filters through the reader; and
-- what scripts are told about unusable files (the filters' own refusals are their tests').
--
--     zor-run tests/storage/archive.lua SOURCE_DIR SCRATCH_DIR
local scratch = arg[2] or "/tmp"
local file = scratch .. "/archive-" .. math.random(1 << 30) .. ".db"
zor.capture() -- quiet: messages are checked below

-- A scene at 25 frames a second: a quiet level with noise and two bursts of motion; a box that
-- crosses the mask's left half twice (moving, so its set changes every frame).
local fps, frames = 25, 2500
local function level(t, i)
    local noise = (i * 7919) % 3
    if (t >= 15000 and t < 19000) or (t >= 60000 and t < 61500) then return 40 + noise end
    return 10 + noise
end
local function box(t, i)
    if t >= 30000 and t < 36000 then return { { 20 + i % 100, 50, 60 + i % 100, 90, 7 } } end
    if t >= 80000 and t < 80400 then return { { 10 + i % 3, 10, 30, 30, 8 } } end
    return { { 300, 200 + i % 10, 340, 230, 9 } } -- outside the mask
end

local src = zor.source{}
local vmd = zor.CreateVMDFilter{}
local gvmd = zor.CreateGVMDFilter{}
local writer = zor.CreateMetaDataWriter{ file = file, camera = "door" }
local sink = zor.sink{}
zor.connect("video", src, vmd, gvmd, writer, sink)
assert(writer.file == file and writer.camera == "door")

vmd.longDelay = 13000 -- hold 3000 ms against the 10 s baseline
local live = {}
vmd.onVMD = function(motion, self)
    if motion == 1 then live[#live + 1] = { self.timeStamp, -1 }
    else live[#live][2] = self.timeStamp end
end
vmd.enabled = true
gvmd.vMaskRects = { { 0, 176, 0, 240 } }
gvmd.longDelay = 2000
gvmd.shortDelay = 200
local collisions = {}
gvmd.onCollision = function(realTime, collision, time, self)
    assert(self == gvmd)
    if collision == 1 then collisions[#collisions + 1] = { time, -1, realTime }
    else collisions[#collisions][2] = time end
end
gvmd.enabled = true

zor.clock("virtual")
for i = 0, frames - 1 do
    local t = i * 1000 // fps
    assert(src.push(zor.packet{ kind = "video", ts = t, rts = 1000 + t / 1000,
                                attributes = { [1] = level(t, i) }, boxes = box(t, i) }))
end
assert(sink.count() == frames and writer.written == frames)
zor.advance(1000) -- the open batch is committed by the writer's timer
assert(#live == 2 and #collisions == 2, #live .. " motions, " .. #collisions .. " collisions")
assert(collisions[1][3] == 1000 + collisions[1][1] / 1000, "real time of the start")

-- A second connection reads what the writer committed while the writer is still open.
local reader = zor.CreateMetaDataReader{ file = file, camera = "door" }
assert(reader.rows == frames and reader.firstTime == 0 and reader.lastTime == (frames - 1) * 40)

local avmd = zor.CreateArchiveVMDFilter{}
avmd.longDelay = 13000
avmd.source = reader
local found = avmd.FindMotionLevels{ fps = fps }
assert(#found == #live)
for i, m in ipairs(found) do
    assert(m.startTime == live[i][1] and m.endTime == live[i][2],
        string.format("motion %d: archive %d-%d, live %d-%d", i, m.startTime, m.endTime,
            live[i][1], live[i][2]))
end

local agvmd = zor.CreateArchiveGVMDFilter{}
agvmd.sPackedRects = gvmd.sPackedRects
agvmd.longDelay, agvmd.shortDelay = 2000, 200
agvmd.source = reader
local hits = agvmd.FindCollisions{}
assert(#hits == #collisions)
for i, c in ipairs(hits) do
    assert(c.startTime == collisions[i][1] and c.endTime == collisions[i][2],
        string.format("collision %d: archive %d-%d, live %d-%d", i, c.startTime, c.endTime,
            collisions[i][1], collisions[i][2]))
end

-- A part of the range: times read from the range's start.
reader.from = 50000
reader.to = 70000
assert(reader.rows == 500)
local part = avmd.FindMotionLevels{ fps = fps }
assert(#part == 1 and part[1].startTime == live[2][1] - 50000, "the burst at 60 s, from 50 s")
assert(#avmd.FindMotionLevels{ fps = fps, StartTime = 0, EndTime = 5000 } == 0)

-- Bad arguments and unusable files: a clear message, no object, no crash (which files the
-- database refuses is its own tests' business).
local function fails(make, text)
    local object = make()
    local notes = zor.capture()
    assert(object == nil, "no object for " .. text)
    for _, note in ipairs(notes) do
        if note.text:find(text, 1, true) then return end
    end
    error("no message with '" .. text .. "' (got: " .. (notes[1] and notes[1].text or "none") .. ")")
end
fails(function() return zor.CreateMetaDataReader{ file = scratch .. "/nothing.db" } end,
    "CreateMetaDataReader: " .. scratch .. "/nothing.db: no such file")
fails(function() return zor.CreateMetaDataReader{ file = file, camera = "gate" } end,
    "no stream 0 of camera \"gate\" (the archive holds \"door\"/0)")
fails(function() return zor.CreateMetaDataReader{ file = file, camera = "door", from = 10, to = 5 } end,
    "holds no time")
fails(function() return zor.CreateMetaDataWriter{ camera = "x" } end, "missing parameter 'file'")

writer.Close{}
os.remove(file); os.remove(file .. "-wal"); os.remove(file .. "-shm")
print("archive: live and archive agree on " .. #live .. " motions and " .. #collisions ..
    " collisions")
