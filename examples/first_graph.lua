-- A first graph: packets made by the script go from a source to a collecting sink, which then
-- refuses for a while to show back-pressure.
--
--     zor-run examples/first_graph.lua
local src = zor.source{ path = "video" }
local sink = zor.sink{ path = "video" }

for i = 0, 4 do
    local frame = zor.packet{ kind = "video", ts = 40 * i, frameType = i == 0 and "I" or "P",
                              data = string.rep("\0", 100) }
    assert(src.push(frame))
end
print(string.format("sink holds %d packets; the first is a %s packet at %d ms, frame type %d",
    sink.count(), sink.packets()[1].kind, sink.packets()[1].ts, sink.packets()[1].frameType))

-- Back-pressure: a refused packet waits in the source until the sink polls for it.
sink.refuse = true
print("pushed while refusing:", src.push(zor.packet{ kind = "video", ts = 200 }),
      "waiting:", src.pending)
sink.refuse = false
sink.poll()
print("after poll: sink holds", sink.count(), "packets, waiting:", src.pending)

-- A callback sees each packet before the sink takes it; false refuses it.
sink.onPacket = function(packet, self) return packet.ts % 80 == 0 end
print("ts 240 taken:", src.push(zor.packet{ ts = 240 }), "ts 280 taken:", src.push(zor.packet{ ts = 280 }))
src.flush() -- drop the refused one
