-- Back-pressure: a refused packet waits in its sender and goes on when the receiver polls.

local src = zor.source{ path = "rf.a" }
local sink = zor.sink{ path = "rf.a", refuse = true }

local first = zor.packet{ ts = 1 }
assert(src.push(first) == false, "refused")
assert(src.pending and sink.count() == 0 and sink.refused == 1)
assert(first.refcount == 2, "the source keeps the refused packet")
assert(src.push(zor.packet{ ts = 2 }) == false, "nothing overtakes the waiting packet")
assert(sink.refused == 1, "and it is not even offered")

sink.poll()
assert(sink.count() == 0 and sink.refused == 2, "still refusing: the packet keeps waiting")
sink.refuse = false
sink.poll()
assert(sink.count() == 1 and not src.pending and sink.packets()[1].ts == 1)
assert(src.push(zor.packet{ ts = 3 }) and sink.count() == 2)

-- flush() drops a waiting packet.
sink.refuse = true
local dropped = zor.packet{ ts = 4 }
assert(not src.push(dropped) and dropped.refcount == 2)
src.flush()
assert(not src.pending and dropped.refcount == 1)

-- A per-packet decision: the callback refuses odd timestamps until told otherwise.
sink.refuse = false
sink.clear()
local strict = true
sink.onPacket = function(packet) return not (strict and packet.ts % 2 == 1) end
assert(src.push(zor.packet{ ts = 10 }))
assert(not src.push(zor.packet{ ts = 11 }))
strict = false
sink.poll()
assert(sink.count() == 2 and sink.packets()[2].ts == 11)

-- A WAV source under refusal: run() stops at the first refusal, polls carry it on to the end.
local wav = zor.wav_source{ file = arg[1] .. "/examples/data/speech.wav", path = "rf.wav" }
local slow = zor.sink{ path = "rf.wav" }
local budget = 10
slow.onPacket = function() budget = budget - 1; return budget >= 0 end
assert(wav.run() == 10 and not wav.done and slow.count() == 10)
local polls = 0
while not wav.done do
    budget = 7
    slow.poll()
    polls = polls + 1
end
assert(slow.count() == 60 and wav.delivered == 60, slow.count())
assert(polls == 8, polls) -- 50 packets, 7 per poll
local last = 0
for i, packet in ipairs(slow.packets()) do
    assert(packet.ts >= last, "in order")
    last = packet.ts
end
print("refusal: ok")
