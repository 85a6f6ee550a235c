-- Two sources merge through one joiner into one sink: arrival order, the lock, flushing
-- mid-stream, and a port on the joiner's own path.
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

-- Two paced WAV sources into the joiner, and a consumer that refuses every third offer and asks
-- for more every 200 ms: slower than the sources, but neither stream may stall.
local speech = (arg[0]:match("^(.*)/") or ".") .. "/../../examples/data/speech.wav"
zor.clock("virtual")
local a = zor.wav_source{ file = speech, path = "jm.wa" }
local b = zor.wav_source{ file = speech, path = "jm.wb" }
local merge = zor.CreateJoiner{ dataPath = "jm.wmerged" }
merge.CreatePort{ dataPath = "jm.wa" }
merge.CreatePort{ dataPath = "jm.wb" }
local fussy = zor.sink{ path = "jm.wmerged" }
local offers = 0
fussy.onPacket = function() offers = offers + 1; return offers % 3 ~= 0 end
a.start()
b.start()
for step = 1, 5000 do
    zor.advance(20)
    if step % 10 == 0 then
        fussy.poll()
    end
    if a.done and b.done and fussy.count() == a.delivered + b.delivered then
        break
    end
end
assert(a.done and b.done, "both sources played out")
assert(fussy.count() == a.delivered + b.delivered and a.delivered == b.delivered,
       fussy.count() .. " of " .. a.delivered .. " + " .. b.delivered)
zor.clock("real")
