-- Helpers shared by the codec examples: WAV files in plain Lua, a synthetic test signal, the
-- encode/decode round trip through the Zor components, and the signal-to-noise ratio.
--
--   local codecs = dofile("examples/lib/codecs.lua")
--   local result = codecs.transcode("in.wav", "out.wav", "24 kbps")
--   print(codecs.snr(codecs.read_wav("in.wav"), codecs.read_wav("out.wav")))

local M = {}

-- The encoder's format names, and the short forms the examples accept.
M.rates = { "64 kbps", "32 kbps", "24 kbps", "16 kbps" }
local kCodecNames = {
    ["64 kbps"] = "G.711 mu-law",
    ["32 kbps"] = "G.726-32",
    ["24 kbps"] = "G.726-24",
    ["16 kbps"] = "G.726-16",
}

-- "24", "24k", "24 kbps" -> "24 kbps"; nil for a rate without an encoder.
function M.rate_name(text)
    local number = tostring(text):match("^%s*(%d+)")
    local name = number and (number .. " kbps")
    return kCodecNames[name] and name or nil
end

function M.codec_name(rate)
    return kCodecNames[rate]
end

-- Reads a WAV file: { tag, channels, rate, bits, data = the data chunk's bytes }.
function M.read_wav(file)
    local f = assert(io.open(file, "rb"))
    local bytes = f:read("a")
    f:close()
    assert(bytes:sub(1, 4) == "RIFF" and bytes:sub(9, 12) == "WAVE", file .. ": not a WAV file")
    local wav, pos = {}, 13
    while pos + 7 <= #bytes do
        local id, size = bytes:sub(pos, pos + 3), string.unpack("<I4", bytes, pos + 4)
        if id == "fmt " then
            wav.tag, wav.channels, wav.rate, wav.avgBytes, wav.blockAlign, wav.bits =
                string.unpack("<I2I2I4I4I2I2", bytes, pos + 8)
        elseif id == "data" then
            wav.data = bytes:sub(pos + 8, pos + 7 + size)
        end
        pos = pos + 8 + size + size % 2
    end
    assert(wav.tag and wav.data, file .. ": no format or no data chunk")
    return wav
end

-- The 16-bit samples of a PCM WAV, as an array.
function M.samples(wav)
    local data, out, n = wav.data, {}, #wav.data // 2
    local block = 256
    local format = "<" .. string.rep("i2", block)
    local i = 0
    while i + block <= n do
        local values = table.pack(string.unpack(format, data, 2 * i + 1))
        table.move(values, 1, block, i + 1, out)
        i = i + block
    end
    for k = i + 1, n do
        out[k] = string.unpack("<i2", data, 2 * k - 1)
    end
    return out
end

-- Writes 16-bit mono PCM.
function M.write_wav(file, samples, rate)
    local parts = {}
    for i = 1, #samples, 1024 do
        local last = math.min(i + 1023, #samples)
        parts[#parts + 1] = string.pack("<" .. string.rep("i2", last - i + 1),
                                        table.unpack(samples, i, last))
    end
    local data = table.concat(parts)
    local f = assert(io.open(file, "wb"))
    f:write("RIFF", string.pack("<I4", 36 + #data), "WAVE",
            "fmt ", string.pack("<I4I2I2I4I4I2I2", 16, 1, 1, rate, rate * 2, 2, 16),
            "data", string.pack("<I4", #data), data)
    f:close()
end

-- A speech-like test signal at 8 kHz: four partials whose level rises and falls a few times a
-- second like syllables, plus a little white noise. Deterministic (fixed seed).
function M.synthetic_signal(seconds)
    local rate = 8000
    local partials = { { 220, 0.45 }, { 660, 0.25 }, { 1250, 0.15 }, { 2400, 0.08 } }
    local seed, samples = 12345, {}
    for i = 1, math.floor(seconds * rate) do
        local t = (i - 1) / rate
        local envelope = 0.15 + 0.85 * math.abs(math.sin(math.pi * 3.3 * t)) ^ 2
        local v = 0
        for _, p in ipairs(partials) do
            v = v + p[2] * math.sin(2 * math.pi * p[1] * t * (1 + 0.02 * math.sin(2 * t)))
        end
        seed = (seed * 1103515245 + 12345) % 2147483648
        local noise = seed / 2147483648 - 0.5
        samples[i] = math.floor(20000 * envelope * v + 300 * noise + 0.5)
    end
    return samples, rate
end

-- Makes a speech test file: speech synthesised with espeak-ng and resampled to 8 kHz by sox when
-- both are installed, else the synthetic signal. Answers "speech" or "synthetic".
function M.make_test_signal(file, text)
    text = text or "The quick brown fox jumps over the lazy dog. " ..
        "Please call Stella and ask her to bring these things with her from the store."
    local raw = file .. ".espeak.wav"
    local quiet = " >/dev/null 2>&1"
    if os.execute("command -v espeak-ng" .. quiet) and os.execute("command -v sox" .. quiet) and
        os.execute(string.format("espeak-ng -w '%s' '%s'%s", raw, text, quiet)) and
        os.execute(string.format("sox '%s' -r 8000 -c 1 -b 16 '%s'%s", raw, file, quiet)) then
        os.remove(raw)
        return "speech"
    end
    os.remove(raw)
    M.write_wav(file, M.synthetic_signal(5))
    return "synthetic"
end

-- Offers a WAV source's packets until it has given them all.
local function drain(source)
    for _ = 1, 1000000 do
        if source.done then
            return
        end
        source.run()
        zor.run_until_idle()
    end
    error("the WAV source did not finish")
end

-- PCM file -> encoder -> coded WAV file -> decoder -> PCM file. Answers what it did.
function M.transcode(input, output, rate)
    local coded_file = output:gsub("%.wav$", "") .. ".coded.wav"

    local source = zor.wav_source{ file = input }
    assert(source.tag == 1 and source.bits == 16 and source.channels == 1,
           input .. ": the encoder takes 16-bit mono PCM")
    local encoder = zor.CreateAudioEncoder{}
    encoder.format = rate
    local coded = zor.wav_sink{ file = coded_file }
    zor.connect("audio", source, encoder, coded)
    drain(source)
    assert(coded.close(), coded_file .. ": could not be written")

    local coded_source = zor.wav_source{ file = coded_file }
    local decoder = zor.CreateAudioDecoder{}
    local decoded = zor.wav_sink{ file = output }
    zor.connect("audio", coded_source, decoder, decoded)
    drain(coded_source)
    assert(decoded.close(), output .. ": could not be written")

    return {
        rate = rate,
        coded_file = coded_file,
        coded_tag = coded_source.tag,
        coded_bits = coded_source.bits,
        decoder_format = decoder.format,
    }
end

-- Signal-to-noise ratio of a decoded file against its original, over their common length, in
-- dB; and the segmental SNR (mean over 20 ms frames that are not near silence), which follows
-- what a listener hears on speech more closely.
function M.snr(original, decoded)
    local a, b = M.samples(original), M.samples(decoded)
    local n = math.min(#a, #b)
    local signal, noise = 0, 0
    local frame, frame_signal, frame_noise = 160, 0, 0
    local seg_sum, seg_count = 0, 0
    for i = 1, n do
        local s, e = a[i], a[i] - b[i]
        signal, noise = signal + s * s, noise + e * e
        frame_signal, frame_noise = frame_signal + s * s, frame_noise + e * e
        if i % frame == 0 then
            if frame_signal / frame > 1e4 then -- louder than about -50 dB of full scale
                seg_sum = seg_sum + 10 * math.log((frame_signal + 1) / (frame_noise + 1), 10)
                seg_count = seg_count + 1
            end
            frame_signal, frame_noise = 0, 0
        end
    end
    local overall = noise > 0 and 10 * math.log(signal / noise, 10) or math.huge
    return overall, seg_count > 0 and seg_sum / seg_count or overall, n
end

return M
