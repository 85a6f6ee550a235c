-- Capture as a script sees it: the capture source's properties, the format strings, the
-- full-duplex query and a recording from a file device on the virtual clock. Run with the test
-- suite's ALSA configuration, whose default device has both sides. The capture's rules and
-- messages are the C++ tests' business.
local speech = "examples/data/speech.wav"
zor.capture() -- quiet from here on

-- Properties: their types and defaults; a refused value is a Lua error.
local mic = zor.CreateAudioSrc{}
assert(mic.sampleFrequency == 8000 and mic.samplesPerPacket == 512, "8 kHz, 512 samples")
assert(mic.channels == 1 and mic.bitsPerSample == 16, "16-bit mono")
assert(mic.recording == false and mic.silenceMode == false and mic.device == "", "idle")
assert(not pcall(function() mic.sampleFrequency = 16000 end), "16000 is refused")
assert(not pcall(function() mic.framesRecorded = 1 end), "framesRecorded is read-only")
zor.capture()

-- Format strings: the capture's own, and the codecs' at its rate, as the encoder reads them.
local formats = {
    PCM = "01000100401f0000803e0000020010000000",
    G711 = "07000100401f0000401f0000010008000000",
    G721 = "9a020100401f0000a00f00000400040002000800",
    G723_24 = "9a020100401f0000b80b00000c00030002002000",
    G723_16 = "9a020100401f0000d00700000400020002001000",
}
assert(mic.GetFormatString{} == formats.PCM, "the capture format")
for name, text in pairs(formats) do
    assert(mic.GetFormatString{ format = name } == text, name)
end
local encoder = zor.CreateAudioEncoder{}
assert(encoder.SetWaveFormatEx{ format = mic.GetFormatString{ format = "G723_24" } } == true
       and encoder.format == "24 kbps", "the encoder takes the G723_24 string")
assert(mic.GetFormatString{ format = "G729" } == nil, "an unknown name gives nothing")
assert(zor.capture()[1].text:find("AudioSrc.GetFormatString: unknown format \"G729\"", 1, true),
       "and says so")

-- Full duplex: the test configuration's default device has both sides (which devices do is the
-- wave device tests' business).
assert(zor.IsAudioFullDuplex{} == true and zor.IsAudioFullDuplex{ device = "zor_nosuch" } == false)

-- A recording from a file device on the virtual clock (its pacing and stamps are the C++
-- tests' business).
zor.clock("virtual")
mic.device = "file:" .. speech
local sink = zor.sink{}
zor.connect("audio", mic, sink)
mic.recording = true
assert(not pcall(function() mic.device = "other" end), "the device stays while recording")
zor.advance(1000)
assert(sink.count() == 15 and mic.framesRecorded == 15, "15 packets of 64 ms in a second")
mic.recording = false
zor.clock("real")
print("capture.lua: all checks passed")
