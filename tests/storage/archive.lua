-- The archive from a script: the metadata writer on a chain of scripted video packets, the
-- reader and an archive filter over what it wrote, and what scripts are told about unusable
-- files.
--
--     zor-run tests/storage/archive.lua SOURCE_DIR SCRATCH_DIR
local scratch = arg[2] or "/tmp"
local file = scratch .. "/archive-" .. math.random(1 << 30) .. ".db"
zor.capture() -- quiet: messages are checked below

-- A scene at 25 frames a second: a quiet level with noise and two bursts of motion, and boxes
-- that move now and then (so the stored box sets change).
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
local writer = zor.CreateMetaDataWriter{ file = file, camera = "door" }
local sink = zor.sink{}
zor.connect("video", src, writer, sink)
assert(writer.file == file and writer.camera == "door")

zor.clock("virtual")
for i = 0, frames - 1 do
    local t = i * 1000 // fps
    assert(src.push(zor.packet{ kind = "video", ts = t, rts = 1000 + t / 1000,
                                attributes = { [1] = level(t, i) }, boxes = box(t, i) }))
end
assert(sink.count() == frames and writer.written == frames)
zor.advance(1000) -- the open batch is committed by the writer's timer

-- A second connection reads what the writer committed while the writer is still open, and an
-- archive filter replays it (that live and archive agree is the clip agreement script's).
local reader = zor.CreateMetaDataReader{ file = file, camera = "door" }
assert(reader.rows == frames and reader.firstTime == 0 and reader.lastTime == (frames - 1) * 40)
local avmd = zor.CreateArchiveVMDFilter{}
avmd.longDelay = 13000
avmd.source = reader
local found = avmd.FindMotionLevels{ fps = fps }
assert(#found == 2 and found[1].startTime > 15000 and found[1].startTime < 15500, #found)

-- A part of the range: times read from the range's start.
reader.from = 50000
reader.to = 70000
assert(reader.rows == 500)
local part = avmd.FindMotionLevels{ fps = fps }
assert(#part == 1 and part[1].startTime == found[2].startTime - 50000, "the burst at 60 s, from 50 s")
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
print("archive: written, read back and replayed")
