-- Plays a WAV file on the sound output.
--
--     zor-run examples/play_audio.lua [IN.wav [DEVICE]]
--
-- IN.wav defaults to the bundled speech; PCM, G.711 and G.726 files (what the recorder stores)
-- play through the audio decoder. DEVICE is the system's default playback device unless given:
-- an ALSA name, or "file:OUT.wav" to write what would be heard. The device sets the pace: the
-- player takes packets only while it has room, and asks the file for more as it plays.
local here = arg[0]:match("^(.*)/") or "."
local input = arg[1] or (here .. "/data/speech.wav")
local device = arg[2] or ""
local name = device == "" and "the default device" or device

local wav = zor.wav_source{ file = input }
local decoder = zor.CreateAudioDecoder{}
local player = zor.CreateAudioPlayer{}
player.device = device
zor.connect("audio", wav, decoder, player)

local started = zor.now()
wav.run()
local deadline = started + (wav.duration + 10) * 1000
while (not wav.done or player.queued > 0) and player.dropped == 0 and zor.now() < deadline do
    zor.run{ seconds = 0.05 }
end
print(string.format("played %.2f s of %s on %s in %.2f s: %d packets, %d dropped", wav.duration,
    input, name, (zor.now() - started) / 1000, player.played, player.dropped))
assert(wav.done and player.queued == 0 and player.dropped == 0, "everything was played")
