-- Capture as a script sees it: the capture source's properties, the format strings, the
-- full-duplex query and a recording from a file device on the virtual clock. Run with the test
-- suite's ALSA configuration, whose default device has both sides.
local speech = "examples/data/speech.wav"

local function check(condition, message)
    if not condition then
        error(message, 2)
    end
end

local function dumps()
    local lines = {}
    for _, entry in ipairs(zor.capture()) do
        if entry.kind == "dump" then
            lines[#lines + 1] = entry.text
        end
    end
    return table.concat(lines, "\n")
end

zor.capture() -- quiet from here on

-- Properties: their types and defaults; a refused value is a Lua error, with the message.
local mic = zor.CreateAudioSrc{}
check(mic.sampleFrequency == 8000 and mic.samplesPerPacket == 512, "8 kHz, 512 samples")
check(mic.channels == 1 and mic.bitsPerSample == 16, "16-bit mono")
check(mic.recording == false and mic.silenceMode == false and mic.device == "", "idle")
check(not pcall(function() mic.sampleFrequency = 16000 end), "16000 is refused")
check(dumps() == "AudioSource -> 16000 is an invalid frequency.", "its message")
check(not pcall(function() mic.samplesPerPacket = -3 end), "a negative count is refused")
check(not pcall(function() mic.framesRecorded = 1 end), "framesRecorded is read-only")
zor.capture()

-- Format strings: the capture's own, and the codecs' at its rate, as the encoder reads them.
local formats = {
    PCM = "01000100401f0000803e0000020010000000",
    G711 = "07000100401f0000401f0000010008000000",
    G721 = "9a020100401f0000a00f00000400040002000800",
    G723_24 = "9a020100401f0000b80b00000c00030002002000",
    G723_16 = "9a020100401f0000d00700000400020002001000",
}
check(mic.GetFormatString{} == formats.PCM, "the capture format")
for name, text in pairs(formats) do
    check(mic.GetFormatString{ format = name } == text, name)
end
local encoder = zor.CreateAudioEncoder{}
check(encoder.SetWaveFormatEx{ format = mic.GetFormatString{ format = "G723_24" } } == true
      and encoder.format == "24 kbps", "the encoder takes the G723_24 string")
check(mic.GetFormatString{ format = "G729" } == nil, "an unknown name gives nothing")
check(zor.capture()[1].text:find("AudioSrc.GetFormatString: unknown format \"G729\"", 1, true),
      "and says so")

-- Full duplex: the test configuration's default device has both sides; a file does not count.
check(zor.IsAudioFullDuplex{} == true, "the default device")
check(zor.IsAudioFullDuplex{ device = "zor_nosuch" } == false, "no such device")
check(zor.IsAudioFullDuplex{ device = "file:" .. speech } == false, "a file device")

-- A device that does not open: the message names the operation; the module stays usable.
mic.device = "zor_nosuch"
mic.recording = true
check(mic.recording == false, "nothing records")
check(dumps():find("AudioSource -> waveInOpen: zor_nosuch: cannot open for capture", 1, true),
      "the open failure is reported")

-- A recording from a file device on the virtual clock: 64 ms packets of the file's bytes, each
-- stamped 64 ms after the one before, until the file ends.
zor.clock("virtual")
mic.device = "file:" .. speech
local sink = zor.sink{}
zor.connect("audio", mic, sink)
mic.recording = true
check(mic.recording, "recording")
check(not pcall(function() mic.device = "other" end), "the device stays while recording")
zor.advance(1000)
check(sink.count() == 15 and mic.framesRecorded == 15, "15 packets in a second")
local packets = sink.packets()
for i = 2, #packets do
    check(packets[i].ts - packets[i - 1].ts == 64, "64 ms apart")
    check(packets[i].size == 1024 and packets[i].format.rate == 8000, "1024 bytes at 8 kHz")
end
zor.advance(5000)
check(mic.recording == false, "the end of the file stops the recording")
check(dumps():find("recording stopped: " .. speech .. ": end of input", 1, true), "and says why")
check(sink.count() == 85, "5.4 s of speech")

zor.clock("real")
print("capture.lua: all checks passed")
