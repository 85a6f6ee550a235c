-- The counting components from a script: creation, properties, the target functions and write
-- mode feeding read mode. The refusals' texts are the C++ tests' business.
zor.capture() -- the refusals below are expected: keep them off the output
-- A writer feeding a reader: the reader's callback gets six counts, then the filter (when it
-- fires, and with what, is the C++ tests' business).
local src = zor.source{ path = "pc" }
local write = zor.CreatePeopleCountFilter{ dataPath = "pc" }
local read = zor.CreatePeopleCountFilter{ dataPath = "pc" }
local sink = zor.sink{ path = "pc" }
assert(write.mode == "read" and write.enabled == false, "read mode, disabled, when made")
write.mode, write.enabled, read.enabled = "write", true, true
local calls = {}
read.onCountChange = function(...) calls[#calls + 1] = table.pack(...) end
src.push(zor.packet{ kind = "video", ts = 40 })
assert(#calls == 1 and calls[1].n == 7 and calls[1][1] == 0 and calls[1][7] == read)
assert(sink.count() == 1)

-- The analyser: lines and zones are four numbers.
local pca = zor.CreatePCAFilter{}
assert(pca.line == zor.null and pca.zone == zor.null and pca.enabled == false)
pca.line = { 0, 120, 352, 120 }
assert(pca.line[3] == 352)
assert(not pcall(function() pca.line = { 5, 5, 5, 5 } end), "a line of one point")
assert(pca.line[2] == 120, "the line stays")
pca.zone = { 10, 10, 100, 100 }
assert(pca.line == zor.null, "a zone replaces the line")
assert(not pcall(function() pca.entries = 3 end), "counts are read-only")
zor.capture()

-- Exit blocking: the target functions read a parameter of their own name, or the first
-- positional one, and answer true.
local eb = zor.CreateExitBlockingFilter{ dataPath = "eb" }
assert(eb.SetTargetDuration{ SetTargetDuration = 4500.9 } == true)
assert(eb.GetTargetDuration() == 4500)
assert(eb.SetTargetType(1) == true and eb.GetTargetType() == 1)
assert(eb.SetNumberOfTargets{ SetNumberOfTargets = 2 } and eb.GetNumberOfTargets() == 2)
assert(eb.SetTargetID{} == true and eb.GetTargetID() == 0, "the default is 0")
assert(eb.SetTargetDuration{ SetTargetDuration = "long" } == nil, "unusable: nothing stored")
assert(eb.SetTargetID{ SetTargetID = -3 } == nil and eb.GetTargetID() == 0, "no negative IDs")
assert(eb.GetTargetDuration() == 4500)
assert(eb.SetTargetDuration{ SetTargetDuration = -10 } == true, "taken, as 0")
eb.PrintTargetList()
local notes = zor.capture()
local text = ""
for _, n in ipairs(notes) do text = text .. n.text end
assert(text:find("SetTargetDuration", 1, true), "the bad parameter is named")
assert(text:find("counts as 0", 1, true), "a negative duration is said to count as 0")
assert(text:find("CZorExitBlockingFilterCom::PrintTargetList -> no left-object metadata seen yet",
    1, true))

local lod = zor.CreateLODFilter{}
assert(lod.minStill == 1000 and lod.holdTime == 600000 and lod.targets == 0)
assert(not pcall(function() lod.minStill = -1 end))
print("counting components: ok")
