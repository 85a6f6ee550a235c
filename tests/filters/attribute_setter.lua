-- The attribute setter from a script: its methods by named parameters and packets stamped with
-- the shared list (the list's rules are the C++ tests').
local src = zor.source{ path = "attr" }
local attr = zor.CreateAttributeSetter{ paths = { "attr" } }
local sink = zor.sink{ path = "attr" }

attr.AlterAttribute{ type = 1, value = 2.9 }
attr.AlterAttribute{ type = 4, value = -2.9 }
attr.AlterAttribute{ type = 1, value = 40 }
src.push(zor.packet{ kind = "video", ts = 2, attributes = { [4] = 7 } })
local a = sink.packets()[1].attributes
assert(a[1] == 40 and a[4] == -2, "stamped values")
attr.ReleaseAll{}
src.push(zor.packet{ kind = "data", ts = 3 })
assert(next(sink.packets()[2].attributes) == nil)
print("attribute setter: ok")
