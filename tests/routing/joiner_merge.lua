-- Two sources merge through one joiner into one sink: arrival order, back-pressure, the lock
-- and flushing mid-stream.
local cam1 = zor.source{ path = "jm.cam1" }
local cam2 = zor.source{ path = "jm.cam2" }
local join = zor.CreateJoiner{ dataPath = "jm.merged" }
local port1 = join.CreatePort{ dataPath = "jm.cam1" }
local port2 = join.CreatePort{ dataPath = "jm.cam2" }
local sink = zor.sink{ path = "jm.merged" }

local function stamps()
    local out = {}
    for _, p in ipairs(sink.packets()) do out[#out + 1] = p.ts end
    return table.concat(out, ",")
end

assert(cam1.push(zor.packet{ ts = 1 }))
assert(cam2.push(zor.packet{ ts = 2 }))
assert(cam1.push(zor.packet{ ts = 3 }))
assert(stamps() == "1,2,3", stamps())

-- Locked: each port takes one packet, then refuses; unlocking sends them in arrival order.
sink.clear()
join.Lock{ lock = true }
join.Lock{ lock = true }
assert(cam2.push(zor.packet{ ts = 10 }))
assert(cam1.push(zor.packet{ ts = 11 }))
assert(not cam2.push(zor.packet{ ts = 12 }), "the port already holds one")
join.Lock{ lock = false }
assert(sink.count() == 0, "locked twice needs two unlocks")
join.Lock{ lock = false }
assert(stamps() == "10,11,12", stamps())

-- Downstream refuses: one packet waits at the joiner, one at the other port. Flushing that port
-- mid-stream drops its packet and the joiner's; the stream goes on cleanly afterwards.
sink.clear()
sink.refuse = true
assert(cam1.push(zor.packet{ ts = 20 }))
assert(cam2.push(zor.packet{ ts = 21 }))
port2.Flush{}
sink.refuse = false
sink.poll()
assert(sink.count() == 0, stamps())
assert(cam1.push(zor.packet{ ts = 22 }))
assert(stamps() == "22", stamps())

-- A port cannot take its input from the joiner's own output path.
zor.capture()
assert(join.CreatePort{ dataPath = "jm.merged" } == nil)
local d = zor.capture()[1]
assert(d and d.text == 'Joiner: a port cannot join the joiner\'s own data path "jm.merged"')
print("joiner: ok")
