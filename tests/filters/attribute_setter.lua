-- The attribute setter from a script: the shared list, its rules, and packets stamped in order.
local src = zor.source{ path = "attr" }
local attr = zor.CreateAttributeSetter{ paths = { "attr" } }
local sink = zor.sink{ path = "attr" }

src.push(zor.packet{ kind = "data", ts = 1 })
assert(next(sink.packets()[1].attributes) == nil, "an empty list stamps nothing")

attr.AlterAttribute{ type = 1, value = 2.9 }
attr.AlterAttribute{ type = 4, value = -2.9 }
attr.AlterAttribute{ type = 1, value = 40 }
attr.ReleaseAttribute{ type = 99 }
src.push(zor.packet{ kind = "video", ts = 2, attributes = { [4] = 7 } })
local a = sink.packets()[2].attributes
assert(a[1] == 40 and a[4] == -2, "stamped values")

attr.ReleaseAll{}
src.push(zor.packet{ kind = "data", ts = 3 })
assert(next(sink.packets()[3].attributes) == nil)
zor.capture()
assert(zor.CreateAttributeSetter{ paths = { 1 } } == nil)
local said = zor.capture()
assert(#said == 1 and said[1].text:find("CreateAttributeSetter: paths must be a vector of strings", 1, true))
print("attribute setter: ok")
