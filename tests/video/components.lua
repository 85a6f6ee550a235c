-- The video components from a script: made by name, their properties and refusals, faults
-- reported once, other packets passed on.
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

for i = 0, 4 do
    src.push(zor.packet{ kind = "video", ts = i * 40, frameType = "I", data = "\0\0\1\101abc",
                         format = { width = 64, height = 48, compression = "ZZ99" } })
end
src.push(zor.packet{ kind = "text", text = "goes on" })
assert(sink.count() == 1 and sink.packets()[1].kind == "text", "only the text packet came out")
assert(dec.errors == 5, "every undecodable packet is counted")

local dumps = {}
for _, note in ipairs(zor.capture()) do
    if note.kind == "dump" then dumps[#dumps + 1] = note.text end
end
assert(#dumps == 1, "one line for the stream, got " .. #dumps)
assert(dumps[1]:find("CZorVideoDecompressor::Decompress %-> unsupported compression 'ZZ99'"))
print("decompressor: faults reported once, other packets passed on")

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
