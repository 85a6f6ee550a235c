-- Encodes a 16-bit mono PCM WAV file with one of the encoder's formats, decodes it back, and
-- prints the signal-to-noise ratio of the round trip.
--
--   zor-run examples/transcode.lua IN.wav OUT.wav RATE [MIN_SNR_DB]
--
-- RATE is "64 kbps" (G.711 mu-law), "32 kbps", "24 kbps" or "16 kbps" (G.726); 64, 32, 24 and
-- 16 do too. OUT.wav gets the decoded PCM and OUT.coded.wav the coded stream in between. With
-- MIN_SNR_DB the script fails (exit status 1) when the SNR falls below it; the test suite uses
-- that to hold each rate to what the codec achieves. Without arguments it prints its usage.
--
-- The input should be sampled at 8 kHz, the rate these codecs are made for: G.726 keeps any
-- other rate, while mu-law output is always labelled 8 kHz (no resampling is done).

local script_dir = (arg and arg[0] or ""):match("^(.*[/\\])") or "./"
local codecs = dofile(script_dir .. "lib/codecs.lua")

local usage = "usage: zor-run examples/transcode.lua IN.wav OUT.wav RATE [MIN_SNR_DB]\n" ..
    "RATE: 64 kbps, 32 kbps, 24 kbps or 16 kbps\n"
local input, output, rate_text, min_snr = ...
if not input then
    io.write(usage) -- asked for nothing: say how to use it
    return
end
local rate = rate_text and codecs.rate_name(rate_text)
if not (output and rate) then
    io.stderr:write(usage)
    os.exit(2)
end

local result = codecs.transcode(input, output, rate)
local original, decoded = codecs.read_wav(input), codecs.read_wav(output)
local snr, segmental, samples = codecs.snr(original, decoded)

print(string.format("%s (%s): %d samples, %d bytes of PCM -> %d bytes coded; decoded as \"%s\"",
                    rate, codecs.codec_name(rate), samples, #original.data,
                    #codecs.read_wav(result.coded_file).data, result.decoder_format))
print(string.format("SNR %.2f dB, segmental SNR %.2f dB", snr, segmental))

if min_snr and snr < tonumber(min_snr) then
    io.stderr:write(string.format("SNR %.2f dB is below %s dB\n", snr, min_snr))
    os.exit(1)
end
