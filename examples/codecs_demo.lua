-- The audio codecs at work on speech: encodes a speech sample at every rate the encoder offers,
-- decodes it back, and prints the sizes and the signal-to-noise ratio of each round trip.
--
--   zor-run examples/codecs_demo.lua [SPEECH.wav [OUT_DIR]]
--
-- Without SPEECH.wav it takes the first WAV file in examples/data/, else it synthesises speech
-- with espeak-ng (or, without it, a speech-like test signal). The coded and decoded files stay in
-- OUT_DIR when one is given, to be listened to; otherwise they go to a temporary folder that is
-- removed at the end.

local script_dir = (arg and arg[0] or ""):match("^(.*[/\\])") or "./"
local codecs = dofile(script_dir .. "lib/codecs.lua")

local keep = arg and arg[2]
local work = keep or os.tmpname()
if not keep then
    os.remove(work)
end
assert(os.execute("mkdir -p '" .. work .. "'"))

-- 16-bit mono at 8 kHz is what the codecs are made for; convert with sox when needed and
-- possible.
local function usable_input(file)
    local ok, wav = pcall(codecs.read_wav, file)
    if not ok or wav.tag ~= 1 then
        return nil
    end
    if wav.rate == 8000 and wav.bits == 16 and wav.channels == 1 then
        return file
    end
    local converted = work .. "/input-8k.wav"
    if os.execute(string.format("sox '%s' -r 8000 -c 1 -b 16 '%s' >/dev/null 2>&1", file,
                                converted)) then
        return converted
    end
    return nil
end

local input = arg and arg[1] and usable_input(arg[1])
local origin = input and arg[1]
if not input then
    local listing = io.popen("ls examples/data/*.wav 2>/dev/null")
    for file in listing:lines() do
        input = usable_input(file)
        if input then
            origin = file
            break
        end
    end
    listing:close()
end
if not input then
    input = work .. "/speech.wav"
    origin = codecs.make_test_signal(input) == "speech" and "speech synthesised with espeak-ng"
        or "a synthetic speech-like signal (espeak-ng or sox not installed)"
end

local original = codecs.read_wav(input)
print(string.format("Input: %s, %d samples at %d Hz (%.1f s), %d bytes of 16-bit PCM",
                    origin, #original.data // 2, original.rate,
                    #original.data / 2 / original.rate, #original.data))
print(string.format("%-8s %-13s %9s %6s %9s %13s %s", "rate", "codec", "bytes", "ratio",
                    "SNR (dB)", "segmental SNR", "decoded as"))
for _, rate in ipairs(codecs.rates) do
    local output = work .. "/" .. rate:gsub(" ", "") .. ".wav"
    local result = codecs.transcode(input, output, rate)
    local coded = codecs.read_wav(result.coded_file)
    local snr, segmental = codecs.snr(original, codecs.read_wav(output))
    print(string.format("%-8s %-13s %9d %5.1f:1 %9.2f %13.2f %s", rate, codecs.codec_name(rate),
                        #coded.data, #original.data / #coded.data, snr, segmental,
                        result.decoder_format))
end

-- Formats also travel as wave-format hex strings: the record's bytes in memory order.
local encoder = zor.CreateAudioEncoder{}
local hex = "9a020100401f0000b80b00000c00030002002000" -- G.726, 8 kHz, 3 bits, 12-byte blocks
encoder.SetWaveFormatEx{ format = hex }
print(string.format("SetWaveFormatEx{ format = \"%s\" } selects \"%s\"", hex, encoder.format))
if keep then
    print("Coded and decoded files are in " .. work)
else
    os.execute("rm -rf '" .. work .. "'")
end
