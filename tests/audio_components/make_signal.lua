-- Makes the test suite's speech file: espeak-ng speech at 8 kHz when espeak-ng and sox are
-- installed, else a synthetic speech-like signal. Run from the project root.
--
--   zor-run tests/audio_components/make_signal.lua OUT.wav
local codecs = dofile("examples/lib/codecs.lua")
local file = assert(..., "usage: make_signal.lua OUT.wav")
print(file .. ": " .. codecs.make_test_signal(file))
