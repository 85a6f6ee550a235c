-- The decompressor from a script: made by name, its properties, faults reported once, other
-- packets passed on.
zor.capture()
local src = zor.source{}
local dec = zor.CreateVideoDecompressor{}
local sink = zor.sink{}
zor.connect("video", src, dec, sink)

dec.threads = 2
assert(dec.threads == 2)
assert(not pcall(function() dec.threads = 1.5 end), "a thread count must be whole")
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
