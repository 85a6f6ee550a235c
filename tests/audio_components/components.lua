-- The audio decoder and encoder as a script sees them: properties, the hex-string method and its
-- messages, and packets cut and stamped on the way through.

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
    return table.concat(lines)
end

-- Encoder: "format" takes the four names with an encoder and refuses the rest.
local enc = zor.CreateAudioEncoder{}
check(enc.format == "64 kbps", "the encoder starts at 64 kbps")
for _, name in ipairs{ "32 kbps", "24 kbps", "16 kbps", "64 kbps" } do
    enc.format = name
    check(enc.format == name, name)
end
for _, name in ipairs{ "40 kbps", "32 kbps (MS IMA ADPCM)", "8 kbps" } do
    check(not pcall(function() enc.format = name end), name .. " has no encoder")
end
check(enc.format == "64 kbps", "a refused name keeps the old one")

-- SetWaveFormatEx: G.726 with 3 bits selects 24 kbps; A-law is refused with its message.
zor.capture()
check(enc.SetWaveFormatEx{ format = "9a020100401f0000b80b00000c00030002002000" } == true,
      "G.726-24 record accepted")
check(enc.format == "24 kbps", "tag 666 with 3 bits selects 24 kbps")
check(enc.SetWaveFormatEx{ format = "06000100401F0000401F0000010008000000" } == false,
      "A-law refused")
check(dumps() == "CAudioEncoderCom::SetWaveFormatEx -> Invalid audio format.", "the message")
check(enc.format == "24 kbps", "a refused record changes nothing")

-- Decoder: "format" is read-only and empty until the first decodable packet.
local dec = zor.CreateAudioDecoder{}
check(dec.format == "", "no format before the first packet")
check(not pcall(function() dec.format = "64 kbps" end), "format is read-only")

-- 1000 mu-law bytes become 700 + 300 PCM samples, the second 87 ms later.
local src = zor.source{}
local sink = zor.sink{}
zor.connect("audio", src, dec, sink)
local muLaw = { tag = 7, channels = 1, rate = 8000, avgBytes = 8000, blockAlign = 1, bits = 8 }
check(src.push(zor.packet{ kind = "audio", ts = 1000, format = muLaw,
                           data = string.rep("\x55\xd5", 500) }), "decoder takes the packet")
local out = sink.packets()
check(#out == 2, "two packets")
check(out[1].size == 1400 and out[2].size == 600, "700 and 300 samples")
check(out[1].ts == 1000 and out[2].ts == 1087, "87.5 ms truncated")
check(math.abs(out[2].rts - out[1].rts - 0.0875) < 1e-9, "real timestamps 0.0875 s apart")
check(out[1].format.tag == 1 and out[1].format.rate == 8000, "16-bit PCM at the input's rate")
check(dec.format == "64 kbps", "the decoder names its format")

print("audio components: ok")
