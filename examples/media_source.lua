-- The bundled camera clip as a recorder's source delivers it: compressed video packets with their
-- timestamps, frame types and format, first at real time on the virtual clock, then as fast as
-- downstream takes them.
--
--     zor-run examples/media_source.lua [FILE-OR-URL]
local here = arg[0]:match("^(.*)/") or "."
local input = arg[1] or (here .. "/data/pedestrians.mp4")

local src = zor.CreatePacketSource{ url = input }
assert(src, "cannot open " .. input)
print(string.format("%s: %dx%d %s (%s), %.1f s at %g frames/s%s", input, src.width, src.height,
    src.compression, src.codec, src.duration, src.frameRate,
    src.hasAudio and (", audio " .. src.audioCodec) or ""))

local counts, bytes = { [0] = 0, [1] = 0, [3] = 0 }, 0
local sink = zor.sink{ path = "video" }
sink.onPacket = function(packet)
    counts[packet.frameType] = (counts[packet.frameType] or 0) + 1
    bytes = bytes + packet.size
    return true
end

zor.clock("virtual")
src.Start()            -- paced by the packets' timestamps, at real time
zor.advance(10000)     -- ten seconds of the camera, without waiting for them
local last = sink.packets()[sink.count()]
print(string.format("after 10 s of virtual time: %d packets, the last at %d ms", sink.count(),
    last.ts))

src.speed = 0          -- the rest as fast as downstream takes it
zor.run_until_idle()
assert(src.done and src.delivered == sink.count())
local first = sink.packets()[1]
print(string.format("all: %d packets (%d I, %d P, %d B), %.0f kbit/s; each with the format %dx%d "
    .. "and its %d bytes of set-up data", sink.count(), counts[0], counts[1], counts[3],
    bytes * 8 / src.duration / 1000, first.format.width, first.format.height,
    #(first.format.extra or "")))
