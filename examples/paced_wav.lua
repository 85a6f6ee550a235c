-- A WAV file played at its own pace on the virtual clock: nothing sleeps, the script moves time.
--
--     zor-run examples/paced_wav.lua
local here = arg[0]:match("^(.*)/") or "."
zor.clock("virtual")
local wav = zor.wav_source{ file = here .. "/data/speech.wav", path = "audio" }
local sink = zor.sink{ path = "audio" }
wav.start()
local elapsed = 0
for _, ms in ipairs({ 0, 500, 1000, 5400 }) do
    zor.advance(ms - elapsed)
    elapsed = ms
    local last = sink.packets()[sink.count()]
    print(string.format("after %4d ms of virtual time: %2d packets, last at %4d ms", ms,
        sink.count(), last.ts))
end
assert(wav.done and sink.count() == wav.delivered)
print(string.format("%.2f s of %d Hz audio in %d packets of at most 1440 bytes", wav.duration,
    wav.rate, sink.count()))
