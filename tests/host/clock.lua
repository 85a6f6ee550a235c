-- The virtual clock: time stands still until the script advances it, and timers fire on the way.
assert(zor.clock("virtual") == "real", "answers the previous mode")
assert(zor.clock() == "virtual")
local t0 = zor.now()
assert(zor.now() == t0, "virtual time stands still")
zor.advance(250)
assert(math.abs(zor.now() - t0 - 250) < 1e-6)

-- A paced WAV source gives out packets as their timestamps fall due.
local wav = zor.wav_source{ file = arg[1] .. "/examples/data/speech.wav", path = "ck.audio" }
local sink = zor.sink{ path = "ck.audio" }
wav.start()
assert(sink.count() == 1, "the packet at 0 ms goes out at once")
zor.advance(89)
assert(sink.count() == 1, "the next one is due at 90 ms")
zor.advance(1)
assert(sink.count() == 2)
zor.advance(900)
assert(sink.count() == 12 and sink.packets()[12].ts == 990)
wav.stop()
zor.advance(1000)
assert(sink.count() == 12, "stopped")

-- Refusal holds the pacing back; the poll catches up with what fell due meanwhile.
wav.start()
sink.refuse = true
zor.advance(500)
local held = sink.count()
sink.refuse = false
sink.poll()
assert(sink.count() > held)
zor.advance(10000)
assert(wav.done and sink.count() == 60)
assert(zor.run_until_idle() >= 0)
zor.clock("real")
print("clock: ok")
