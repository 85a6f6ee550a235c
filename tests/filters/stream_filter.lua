-- The stream filter from a script: paths, the identifier list and mask, resynchronisation on key
-- frames, and its messages.
local src = zor.source{ path = "sf" }
local sf = zor.CreateStreamFilter{ paths = { "sf" } }
local sink = zor.sink{ path = "sf" }

-- Switched off, it passes everything.
src.push(zor.packet{ kind = "video", frameType = "P", stream = 9 })
assert(sink.count() == 1)
sink.clear()

sf.SetStreamFilter{ filterIDs = { 2 }, mask = 0xFFFF }
sf.EnableStreamFilter{ path = "SF" }
local steps = {
    { 65538, "P", false }, -- waits for a key frame
    { 65538, "I", true },
    { 2, "P", true },
    { 3, "I", false },     -- another stream: dropped, and the filter waits again
    { 2, "P", false },
    { 2, "I", true },
}
for i, s in ipairs(steps) do
    local before = sink.count()
    src.push(zor.packet{ kind = "video", frameType = s[2], stream = s[1] })
    assert((sink.count() > before) == s[3], "step " .. i)
end

zor.capture()
sf.SetStreamFilter{ path = "nowhere", filterIDs = zor.null }
sf.SetStreamFilter{ filterIDs = 3 }
sf.EnableStreamFilter{ path = "nowhere" }
local text = ""
for _, d in ipairs(zor.capture()) do text = text .. d.text .. "|" end
assert(text:find("StreamFilter: the requested path nowhere does not exist.", 1, true), text)
assert(text:find("SetFilterStream: sourceIDs must be a vector of integers (or null)", 1, true), text)
assert(text:find("EnableStreamFilter: the requested path nowhere does not exist.", 1, true), text)
assert(zor.CreateStreamFilter{ paths = 5 } == nil)
print("stream filter: ok")
