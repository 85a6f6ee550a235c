-- The media source driven from a script: creation faults, properties, outputs, methods.
-- Arguments: the source tree and the directory of generated test media.
local root, media = arg[1], arg[2]
local clip = root .. "/examples/data/pedestrians.mp4"
zor.capture() -- messages are checked, not echoed

local function last_error()
    local notes = zor.capture()
    return notes[#notes] and notes[#notes].text or ""
end

-- Creation faults: nothing is made, and the message names the input and the reason (which
-- inputs the demuxer refuses is its own tests' business).
local faults = {
    { {}, "CreatePacketSource: give the input as url (a file name or a network address) or as file" },
    { { url = clip, file = clip }, "give the input as url" },
    { { url = media .. "/missing.mp4" }, "CreatePacketSource: " .. media .. "/missing.mp4: cannot open (No such file or directory)" },
    { { url = clip, timeout = 0 }, "CreatePacketSource: timeout must be a positive number of seconds" },
    { { url = clip, options = 5 }, "CreatePacketSource: options must be a table of names and values" },
    { { url = clip, options = { probesiz = 100000 } }, "option 'probesiz' is not known to this input" },
    { { url = clip, dataPath = "" }, "CreatePacketSource: dataPath must name the video path" },
}
for _, case in ipairs(faults) do
    assert(zor.CreatePacketSource(case[1]) == nil)
    local text = last_error()
    assert(text:find(case[2], 1, true), text)
end

-- What the input is, as read-only properties.
local src = zor.CreatePacketSource{ url = clip, dataPath = "ps.video" }
assert(src.width == 352 and src.height == 240 and src.compression == "H264" and src.codec == "h264")
assert(src.duration == 30 and src.frameRate == 10 and not src.live and not src.hasAudio)
assert(src.speed == 1 and not src.loop and not src.done and src.delivered == 0 and src.error == "")
assert(not pcall(function() src.width = 100 end))
assert(not pcall(function() src.speed = -1 end), "a negative speed is refused")
src.quiet = true

-- Run and Seek: the packets a run delivers, and the key frame a seek lands on.
local sink = zor.sink{ path = "ps.video" }
assert(src.Run{ packets = 5 } == 5 and sink.count() == 5 and src.position == 0.4)
assert(src.Seek{ seconds = 12.3 } == true)
src.Run{ packets = 1 }
local p = sink.packets()[6]
assert(p.ts == 12000 and p.frameType == 0 and p.kind == "video", p.ts)
assert(src.Seek{ seconds = -1 } == nil and last_error():find("seconds must be a time"))
src.Run()
assert(src.done and sink.count() == 5 + 180, sink.count())

-- Audio goes out on its own path (its packets are the source's C++ tests' business).
local av = zor.CreatePacketSource{ url = media .. "/h264_pcm.mkv", dataPath = "ps.v",
                                   audioPath = "ps.a" }
assert(av.hasAudio and av.audioCodec == "pcm_s16le" and av.audioTag == 1)
local audio = zor.sink{ path = "ps.a" }
assert(av.Run{ packets = 10 } == 10 and audio.count() > 0 and audio.packets()[1].kind == "audio")

-- Explicit wiring: only the paths the source serves can be connected.
local wired = zor.CreatePacketSource{ url = clip, dataPath = "cam1", audioPath = "" }
local wired_sink = zor.sink{}
zor.connect("cam1", wired, wired_sink)
assert(wired.Run{ packets = 2 } == 2 and wired_sink.count() == 2)
assert(not pcall(zor.connect, "cam2", wired, zor.sink{}))
assert(last_error():find("it has nothing for 'cam2'", 1, true))
print("packet_source: ok")
