-- Keeps only the key frames of a video stream: an advanced packet filter deletes every video
-- frame that is not an I-frame and lets everything else (here: audio) through.
--
--   zor-run examples/keyframes.lua

local src = zor.source{ path = "keyframes" }
local filter = zor.CreateAdvancedPacketFilter{ dataPath = "keyframes" }
filter.filter = "if (TYPE == VIDEO && FRAMETYPE != IFRAME) { DISCARD; }"
local sink = zor.sink{ path = "keyframes" }

-- Three groups of pictures at 25 frames per second, with an audio packet after every frame.
local gop = { "I", "P", "B", "P", "B", "P" }
local sent = 0
for i = 0, 3 * #gop - 1 do
    src.push(zor.packet{ kind = "video", ts = i * 40, frameType = gop[i % #gop + 1] })
    src.push(zor.packet{ kind = "audio", ts = i * 40, data = string.rep("\0", 320),
                         format = { tag = 1, channels = 1, rate = 8000, bits = 16 } })
    sent = sent + 1
end
zor.run_until_idle()

local keys, audio = 0, 0
for _, p in ipairs(sink.packets()) do
    if p.kind == "video" then
        keys = keys + 1
        print(("key frame at %4d ms"):format(p.ts))
    else
        audio = audio + 1
    end
end
print(("%d video frames in, %d key frames out; %d audio packets passed"):format(sent, keys, audio))
