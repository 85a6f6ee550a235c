-- The video components from a script: made by name, their properties and refusals, faults
-- counted, other packets passed on.
zor.capture()
local src = zor.source{}
local dec = zor.CreateVideoDecompressor{}
local sink = zor.sink{}
zor.connect("video", src, dec, sink)

dec.threads = 2
assert(dec.threads == 2)
for _, bad in ipairs({ 1.5, -1, 65 }) do
    assert(not pcall(function() dec.threads = bad end), "threads are whole, 0 to 64: " .. bad)
end
dec.grey = true
assert(dec.grey == true and dec.codec == "" and dec.frames == 0)

-- An undecodable stream is counted and other packets go on (the one line it is reported with is
-- the decoder tests' business).
for i = 0, 4 do
    src.push(zor.packet{ kind = "video", ts = i * 40, frameType = "I", data = "\0\0\1\101abc",
                         format = { width = 64, height = 48, compression = "ZZ99" } })
end
src.push(zor.packet{ kind = "text", text = "goes on" })
assert(sink.count() == 1 and sink.packets()[1].kind == "text", "only the text packet came out")
assert(dec.errors == 5, "every undecodable packet is counted")
zor.capture()

-- The stamper's and the writer's settings refuse what they cannot use.
local levels = zor.CreateVideoFilter{}
levels.region = { 0, 176, 352, 64 }
assert(#levels.region == 4 and levels.region[2] == 176)
for _, bad in ipairs({ { 0, 0, 0, 10 }, { -1, 0, 10, 10 }, { 1, 2, 3 }, { 0.5, 0, 8, 8 } }) do
    assert(not pcall(function() levels.region = bad end), "a region needs x, y >= 0, size > 0")
end
levels.region = {}
assert(#levels.region == 0, "the whole picture")
assert(not pcall(function() levels.noiseFloor = 256 end))

local show = zor.CreateVideoDisplay{}
assert(not pcall(function() show.snapshots = "snap.png" end), "no snapshot pattern")
show.snapshots = "/tmp/snap-%03d.png"
assert(not pcall(function() show.sheetColumns = 0 end))
assert(show.Snapshot{ file = "/tmp/none.png" } == false, "no frame yet")
print("stamper and writer settings: refusals hold")
