-- The stream filter from a script: made on a path, its identifier list and mask set and enabled
-- by path through named parameters (the scenarios and messages are the C++ tests').
local src = zor.source{ path = "sf" }
local sf = zor.CreateStreamFilter{ paths = { "sf" } }
local sink = zor.sink{ path = "sf" }

sf.SetStreamFilter{ filterIDs = { 2 }, mask = 0xFFFF }
sf.EnableStreamFilter{ path = "SF" }
src.push(zor.packet{ kind = "video", frameType = "I", stream = 65538 })
src.push(zor.packet{ kind = "video", frameType = "I", stream = 3 })
assert(sink.count() == 1 and sink.packets()[1].stream == 65538, "stream 2 under the mask only")
zor.capture()
assert(zor.CreateStreamFilter{ paths = 5 } == nil)
print("stream filter: ok")
