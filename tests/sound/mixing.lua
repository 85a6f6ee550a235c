-- Clips mixed into a stream and into a generated carrier, written to WAV and read back: the
-- output is the input plus the clip where the clip plays, and the input elsewhere. Run from the
-- project root.
--
--   zor-run tests/sound/mixing.lua SPEECH.wav SCRATCH_DIR
local sound = dofile("examples/lib/sound.lua")
local codecs = dofile("examples/lib/codecs.lua")
local input, scratch = ...

-- 1. A chime into speech at the first detected event.
local chimed = scratch .. "/chimed.wav"
local run = sound.detect{ input = input, output = chimed, chime = true }
assert(run.chime_at, "an event started the chime")
local before = codecs.samples(codecs.read_wav(input))
local after = codecs.samples(codecs.read_wav(chimed))
local chime_data = sound.chime()
local chime = { string.unpack("<" .. string.rep("i2", #chime_data // 2), chime_data) }
chime[#chime] = nil -- string.unpack's next position
assert(#after == #before, "same length")
local first = math.floor(run.chime_at * 8000 + 0.5) -- the event's packet starts here
local changed = 0
for i = 1, #before do
    local k = i - first
    local want = before[i]
    if k >= 1 and k <= #chime then
        want = math.max(-32768, math.min(32767, before[i] + chime[k]))
    end
    assert(after[i] == want, string.format("sample %d: %d, expected %d", i, after[i], want))
    changed = changed + (after[i] ~= before[i] and 1 or 0)
end
assert(changed > #chime * 0.9, "the chime is there")
print(string.format("chime: %d samples mixed in at %.2f s, %d changed", #chime, run.chime_at,
                    changed))

-- 2. The chime on a generated carrier, paced on the virtual clock, ends with its callback.
zor.clock("virtual")
local mixer = zor.CreateAudioSampleMixer{ dataPath = "tone" }
local tone_file = scratch .. "/carrier.wav"
local out = zor.wav_sink{ file = tone_file, path = "tone" }
local done = {}
mixer.mixingDoneCallback = function(identifier, self)
    done[#done + 1] = { identifier = identifier, at = zor.now(), mixer = self }
end
mixer.AddSound{ identifier = "chime", audioData = sound.chime() }
mixer.Mix{ identifier = "chime", frequency = 8000, samples = 160 }
local start = zor.now()
zor.advance(1000)
assert(out.close())
assert(#done == 1 and done[1].identifier == "chime", "one callback, with the identifier")
assert(math.abs(done[1].at - start - 380) < 2, "the 20th packet of 20 ms ends the clip")
local tone = codecs.samples(codecs.read_wav(tone_file))
assert(#tone == #chime, "whole packets of 160 samples: exactly the clip")
for i = 1, #chime do
    assert(tone[i] == chime[i], "sample " .. i)
end
print(string.format("carrier: %d packets carried the chime, done after %.0f ms", out.packets,
                    done[1].at - start))
