-- Two sources merge through one joiner into one sink: arrival order, the lock, flushing
-- mid-stream, and a port on the joiner's own path (streams that never stall under refusals are
-- the C++ tests' business).
local cam1 = zor.source{ path = "jm.cam1" }
local cam2 = zor.source{ path = "jm.cam2" }
local join = zor.CreateJoiner{ dataPath = "jm.merged" }
join.CreatePort{ dataPath = "jm.cam1" }
local port2 = join.CreatePort{ dataPath = "jm.cam2" }
local sink = zor.sink{ path = "jm.merged" }
local function stamps()
    local out = {}
    for _, p in ipairs(sink.packets()) do out[#out + 1] = p.ts end
    sink.clear()
    return table.concat(out, ",")
end

cam1.push(zor.packet{ ts = 1 })
cam2.push(zor.packet{ ts = 2 })
cam1.push(zor.packet{ ts = 3 })
assert(stamps() == "1,2,3")

join.Lock{ lock = true } -- each port takes one packet, then refuses
assert(cam2.push(zor.packet{ ts = 10 }) and cam1.push(zor.packet{ ts = 11 }))
assert(not cam2.push(zor.packet{ ts = 12 }))
join.Lock{ lock = false }
assert(stamps() == "10,11,12")

sink.refuse = true -- one packet waits at the joiner, one at port 2; flushing port 2 drops both
cam1.push(zor.packet{ ts = 20 })
cam2.push(zor.packet{ ts = 21 })
port2.Flush{}
sink.refuse = false
sink.poll()
cam1.push(zor.packet{ ts = 22 })
assert(stamps() == "22")

zor.capture()
assert(join.CreatePort{ dataPath = "jm.merged" } == nil)
assert(zor.capture()[1].text == 'Joiner: a port cannot join the joiner\'s own data path "jm.merged"')

