-- The counting components from a script: creation, properties, the target functions and write
-- mode feeding read mode. The refusals' texts are the C++ tests' business.
zor.capture() -- the refusals below are expected: keep them off the output
local src = zor.source{ path = "pc" }
local write = zor.CreatePeopleCountFilter{ dataPath = "pc" }
local read = zor.CreatePeopleCountFilter{ dataPath = "pc" }
local sink = zor.sink{ path = "pc" }

assert(write.mode == "read" and write.enabled == false, "read mode, disabled, when made")
write.mode = "write"
write.enabled = true
local calls = {}
read.onCountChange = function(a, b, c, d, e, f, self)
    calls[#calls + 1] = { a, b, c, d, e, f }
    assert(self == read, "the filter comes last")
end
src.push(zor.packet{ kind = "video", ts = 0 })
assert(#calls == 0, "a disabled reader says nothing")
read.enabled = true
read.StartTime = 1000
read.Interval = 500
for ts = 40, 200, 40 do
    src.push(zor.packet{ kind = "video", ts = ts })
end
-- Every packet got a fresh counting object from the writer, so the reader fires for each.
assert(#calls == 5, "one notification per packet with a handler: " .. #calls)
for _, values in ipairs(calls) do
    assert(table.concat(values, ",") == "0,0,0,0,0,0")
end
assert(sink.count() == 6)


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
