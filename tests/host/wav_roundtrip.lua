-- WAV files: a generated signal written by wav_sink reads back identically through wav_source;
-- G.711 files carry the standard tags; broken files give errors a script can catch.
-- arg[1]: the source tree, arg[2]: a scratch directory.
local scratch = arg[2]
zor.capture() -- the diagnostics are checked here, not echoed

local function tone(samples, rate)
    local parts = {}
    for i = 0, samples - 1 do
        parts[#parts + 1] = string.pack("<i2", math.floor(12000 * math.sin(2 * math.pi * 440 * i / rate)))
    end
    return table.concat(parts)
end

-- Writes data as 20 ms audio packets of the format and answers the file name.
local function write(name, format, data, bytesPerPacket)
    local file = scratch .. "/" .. name
    local src = zor.source{ path = "wav." .. name }
    local out = zor.wav_sink{ file = file, path = "wav." .. name }
    for i = 1, #data, bytesPerPacket do
        assert(src.push(zor.packet{ kind = "audio", data = data:sub(i, i + bytesPerPacket - 1),
                                    format = format }))
    end
    assert(out.close())
    assert(out.bytes == #data and out.dropped == 0)
    return file
end

local function read(file)
    local wav = zor.wav_source{ file = file, path = "read." .. file }
    local sink = zor.sink{ path = "read." .. file }
    wav.run()
    assert(wav.done)
    local parts = {}
    for _, packet in ipairs(sink.packets()) do parts[#parts + 1] = packet.data end
    return wav, sink.packets(), table.concat(parts)
end

-- PCM: 1 s at 8 kHz, written in 320-byte packets, read back in whole 1440-byte packets.
local pcm = tone(8000, 8000)
local wav, packets, data = read(write("tone.wav", { rate = 8000 }, pcm, 320))
assert(data == pcm, "same samples")
assert(wav.tag == 1 and wav.rate == 8000 and wav.bits == 16 and wav.channels == 1)
assert(wav.duration == 1.0 and #packets == math.ceil(16000 / 1440))
for i, packet in ipairs(packets) do
    local first = (i - 1) * 720 -- samples before this packet
    assert(packet.kind == "audio" and packet.capacity == 1440 and packet.size <= 1440)
    assert(packet.ts == first * 1000 // 8000 and packet.tsValid)
    assert(math.abs(packet.rts - first / 8000) < 1e-9)
    assert(packet.formatSeq == packets[1].formatSeq and packet.format.blockAlign == 2)
end
assert(packets[#packets].size == 16000 - 11 * 1440)

-- Stereo 16 kHz: packets hold whole 4-byte blocks.
local stereo = tone(2000, 16000):gsub("(..)", "%1%1")
wav, packets, data = read(write("stereo.wav", { rate = 16000, channels = 2 }, stereo, 640))
assert(data == stereo and wav.channels == 2 and wav.blockAlign == 4)
assert(packets[1].size == 1440 and packets[2].ts == 360 * 1000 // 16000)

-- G.711 A-law (tag 6) and mu-law (tag 7): one byte per sample, a fact chunk, readable by sox.
local bytes = {}
for i = 1, 4000 do bytes[i] = string.char((i * 37) % 256) end
local g711 = table.concat(bytes)
for tag, encoding in pairs({ [6] = "A-law", [7] = "u-law" }) do
    local file = write("g711_" .. tag .. ".wav", { tag = tag, rate = 8000 }, g711, 160)
    wav, packets, data = read(file)
    assert(data == g711 and wav.tag == tag and wav.bits == 8 and wav.duration == 0.5)
    local sox = io.popen("command -v sox >/dev/null && sox --i " .. file .. " 2>&1")
    local info = sox:read("a")
    sox:close()
    if info ~= "" then
        assert(info:find(encoding, 1, true) and info:find("8000", 1, true), info)
    end
end

-- Packets of another format are dropped, not mixed into the file.
do
    local src = zor.source{ path = "wav.mixed" }
    local out = zor.wav_sink{ file = scratch .. "/mixed.wav", path = "wav.mixed" }
    src.push(zor.packet{ kind = "audio", data = "\1\0\2\0", format = { rate = 8000 } })
    src.push(zor.packet{ kind = "audio", data = "\1\0\2\0", format = { rate = 16000 } })
    src.push(zor.packet{ kind = "video" })
    assert(out.close() and out.packets == 1 and out.dropped == 1 and out.ignored == 1)
    local notes = zor.capture()
    assert(#notes == 1 and notes[1].kind == "dump" and notes[1].text:find("format changed"))
end

-- Broken files: clear Lua errors, caught with pcall.
local function broken(name, bytes)
    local file = scratch .. "/" .. name
    local f = assert(io.open(file, "wb"))
    f:write(bytes)
    f:close()
    return file
end
-- (Which files are refused, and why, is the reader's C++ tests' business.)
local ok, message = pcall(function()
    return zor.wav_source{ file = broken("text.wav", "hello, world, this is not audio"), path = "broken" }
end)
assert(not ok and message:find("wav_source: ", 1, true) and message:find("not a RIFF/WAVE file", 1, true),
       tostring(message))
assert(message:find("wav_roundtrip.lua:%d+:"), "the error names the script line: " .. message)

-- G.726 from the encoder: the record's extra bytes (the samples-per-block word) reach packets and
-- the file, and come back, so the file reads as it was written.
local encoder = zor.CreateAudioEncoder{}
encoder.format = "24 kbps"
local pcm_source = zor.source{}
local coded_file = scratch .. "/g726_24.wav"
local coded_sink = zor.wav_sink{ file = coded_file }
zor.connect("audio", pcm_source, encoder, coded_sink)
for i = 1, #pcm, 1440 do
    assert(pcm_source.push(zor.packet{ kind = "audio", data = pcm:sub(i, i + 1439),
                                       format = { rate = 8000 } }))
end
assert(coded_sink.close())
wav, packets, data = read(coded_file)
assert(wav.tag == 666 and wav.bits == 3 and wav.blockAlign == 12)
assert(packets[1].format.extra == string.pack("<I2", 32), "samples per block kept")
assert(#data == 3000, "1 s at 24 kbit/s")
-- Scripts can make and read such records too.
local made = zor.packet{ kind = "audio", format = { tag = 666, rate = 8000, bits = 4, blockAlign = 4,
                                                    avgBytes = 4000, extra = "\8\0" } }
assert(made.format.extra == "\8\0" and zor.packet{ kind = "audio", format = { rate = 8000 } }.format.extra == nil)

-- A file cut short in its data is read as far as it goes and says so.
wav, packets, data = read(broken("cut.wav", io.open(scratch .. "/tone.wav", "rb"):read(44 + 1001)))
assert(wav.truncated and #data == 1000)

ok, message = pcall(zor.wav_sink, { file = scratch .. "/no/such/dir/x.wav" })
assert(not ok and message:find("cannot create", 1, true), message)
ok, message = pcall(zor.wav_source, { path = "x" })
assert(not ok and message:find("field 'file' is required", 1, true), message)
print("wav_roundtrip: ok")
