-- The audio decoder and encoder as a script sees them: properties, the hex-string method, and
-- packets cut and stamped on the way through. Which names and records are accepted, and the
-- messages, are the C++ tests' business.
zor.capture()

-- Encoder: "format" takes a name with an encoder and refuses the rest.
local enc = zor.CreateAudioEncoder{}
assert(enc.format == "64 kbps", "the encoder starts at 64 kbps")
enc.format = "32 kbps"
assert(enc.format == "32 kbps")
assert(not pcall(function() enc.format = "40 kbps" end), "40 kbps has no encoder")
assert(enc.format == "32 kbps", "a refused name keeps the old one")
assert(enc.SetWaveFormatEx{ format = "9a020100401f0000b80b00000c00030002002000" } == true
       and enc.format == "24 kbps", "a G.726-24 record selects 24 kbps")
assert(enc.SetWaveFormatEx{ format = "06000100401F0000401F0000010008000000" } == false,
       "A-law refused")

-- Decoder: "format" is read-only and empty until the first decodable packet.
local dec = zor.CreateAudioDecoder{}
assert(dec.format == "", "no format before the first packet")
assert(not pcall(function() dec.format = "64 kbps" end), "format is read-only")

-- Packets decoded on the way through (how they are cut and stamped is the C++ tests' business).
local src = zor.source{}
local sink = zor.sink{}
zor.connect("audio", src, dec, sink)
local muLaw = { tag = 7, channels = 1, rate = 8000, avgBytes = 8000, blockAlign = 1, bits = 8 }
assert(src.push(zor.packet{ kind = "audio", ts = 1000, format = muLaw,
                            data = string.rep("\x55\xd5", 500) }), "decoder takes the packet")
assert(sink.count() == 2 and sink.packets()[1].format.tag == 1, "16-bit PCM comes out")
assert(dec.format == "64 kbps", "the decoder names its format")

print("audio components: ok")
