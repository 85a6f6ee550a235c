-- Packets made from tables reach a sink with every field intact, shared rather than copied.

local src = zor.source{ path = "ss.video" }
local sink = zor.sink{ path = "ss.video" }

local p = zor.packet{ kind = "video", ts = 40, rts = 1.5, stream = 2, frameType = "B", layer = 1,
                      attributes = { [1] = 12, [5] = -3, [70000] = 9 }, data = "\0\1\2\3",
                      format = { width = 352, height = 288, compression = "H264", bits = 12 } }
assert(p.kind == "video" and p.ts == 40 and p.tsValid and p.rts == 1.5 and p.stream == 2)
assert(p.frameType == 3 and p.layer == 1 and p.attributes[1] == 12 and p.attributes[5] == -3
       and p.attributes[70000] == 9)
assert(p.size == 4 and p.data == "\0\1\2\3")
assert(p.format.width == 352 and p.format.height == 288 and p.format.compression == 0x34363248)
assert(p.refcount == 1)
assert(p.format.extra == nil, "no set-up data given, none carried")

-- Codec set-up data travels in the format record; the same bytes share one sequence number.
local sps = "\0\0\0\1\x67\x42\0\0"
local fmt = { width = 352, height = 288, compression = "H264", extra = sps }
local a, b = zor.packet{ kind = "video", format = fmt }, zor.packet{ kind = "video", format = fmt }
assert(a.format.extra == sps and a.format.seq == b.format.seq and a.format.seq ~= p.format.seq)

assert(src.push(p) == true)
assert(sink.count() == 1 and src.delivered == 1)
assert(p.refcount == 2, "the sink holds the same packet, one more reference")
local got = sink.packets()[1]
assert(got == p and got.data == p.data)
got = nil
sink.clear()
collectgarbage()
assert(p.refcount == 1, "clear() gives the sink's reference back")

-- Every kind a script can make, and the fields only some kinds have.
local text = zor.packet{ kind = "text", text = "hello", schema = 3 }
assert(text.kind == "text" and text.text == "hello" and text.schema == 3)
assert(not text.tsValid, "no ts given: the timestamp is not valid")
assert(text.frameType == nil and text.format == nil)
local tb = zor.packet{ kind = "timebase", time = 1000, scale = 2.0, flags = 1 }
assert(tb.kind == "timebase" and tb.time == 1000 and tb.scale == 2.0 and tb.flags == 1)
assert(zor.packet{}.kind == "data" and zor.packet{ kind = 9 }.kind == "video")
local stale = zor.packet{ ts = 5, tsValid = false }
assert(stale.ts == 5 and not stale.tsValid)

-- Audio: missing format fields are derived; identical formats share one sequence number.
local a1 = zor.packet{ kind = "audio", ts = 0, data = string.rep("\0", 320),
                       format = { rate = 8000, channels = 1 } }
local a2 = zor.packet{ kind = "audio", ts = 20, format = { rate = 8000, channels = 1 } }
local a3 = zor.packet{ kind = "audio", format = { tag = 7, rate = 8000 } }
local f = a1.format
assert(f.tag == 1 and f.bits == 16 and f.blockAlign == 2 and f.avgBytes == 16000)
assert(a1.capacity == 1440 and a1.size == 320)
assert(a1.formatSeq ~= 0 and a1.formatSeq == a2.formatSeq and a3.formatSeq ~= a1.formatSeq)
assert(a3.format.bits == 8 and a3.format.blockAlign == 1)
assert(zor.packet{ kind = "audio", format = { rate = 8000, seq = 77 } }.formatSeq == 77)

-- Explicit links: a sink on two paths collects from both sources, in arrival order.
local left, right = zor.source{}, zor.source{}
local both = zor.sink{}
zor.connect("ss.left", left, both)
zor.connect("ss.right", right, both)
assert(left.push(zor.packet{ ts = 1 }) and right.push(zor.packet{ ts = 2 }))
local list = both.packets()
assert(#list == 2 and list[1].ts == 1 and list[2].ts == 2)

-- Links go from an output pin to an input pin only.
local ok, message = pcall(zor.connect, "ss.bad", both, left)
assert(not ok and message:find("packets go from an output pin to an input pin", 1, true), message)
ok, message = pcall(zor.connect, "ss.bad", left)
assert(not ok and message:find("at least two components", 1, true), message)

-- A source with no path cannot push.
ok, message = pcall(zor.source{}.push, zor.packet{})
assert(not ok and message:find("on no data path", 1, true), message)
print("source_sink: ok")
