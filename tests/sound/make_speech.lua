-- Makes the sound tests' input: three spoken phrases with pauses of known length between them,
-- over a faint noise floor, at 8 kHz 16-bit mono; and beside it the truth, the phrases' start and
-- end times. Speech comes from espeak-ng; silences, trimming and mixing from sox. Run from the
-- project root.
--
--   zor-run tests/sound/make_speech.lua OUT.wav      -- also writes OUT.truth.lua
local codecs = dofile("examples/lib/codecs.lua")
local file = assert(..., "usage: make_speech.lua OUT.wav")
local truth_file = file:gsub("%.wav$", "") .. ".truth.lua"
local rate = 8000

-- Layout: silence, phrase, silence, ... The third phrase is 10 dB quieter than the others.
local lead, pauses, tail = 1.5, { 2.0, 3.0 }, 1.5
local phrases = {
    { text = "The quick brown fox jumps over the lazy dog.", volume = 1.0 },
    { text = "Please call Stella and ask her to bring these things.", volume = 1.0 },
    { text = "Six spoons of fresh snow peas.", volume = 0.316 },
}
local noise_volume = 0.004 -- white noise at about -54 dBFS RMS

local quiet = " >/dev/null 2>&1"
local function run(command)
    return os.execute(command .. quiet)
end

local function have_tools()
    return run("command -v espeak-ng") and run("command -v sox")
end

-- Phrase i as a trimmed 8 kHz file; answers its sample count, or nil when a tool failed.
local function speak(i, phrase)
    local raw, trimmed = string.format("%s.p%d.raw.wav", file, i), string.format("%s.p%d.wav", file, i)
    local ok = run(string.format("espeak-ng -w '%s' '%s'", raw, phrase.text)) and
        run(string.format("sox '%s' -r %d -c 1 -b 16 '%s' vol %g silence 1 0.01 0.1%% reverse "
                          .. "silence 1 0.01 0.1%% reverse", raw, rate, trimmed, phrase.volume))
    os.remove(raw)
    if not ok then
        return nil
    end
    return #codecs.read_wav(trimmed).data // 2, trimmed
end

local function make_with_tools()
    local parts, spans, t = {}, {}, lead
    local silences = { lead, pauses[1], pauses[2], tail }
    local function silence(k)
        local name = string.format("%s.s%d.wav", file, k)
        assert(run(string.format("sox -n -r %d -c 1 -b 16 '%s' trim 0 %g", rate, name,
                                 silences[k])))
        return name
    end
    parts[#parts + 1] = silence(1)
    for i, phrase in ipairs(phrases) do
        local n, name = speak(i, phrase)
        if not n then
            return nil
        end
        parts[#parts + 1] = name
        spans[i] = { start = t, stop = t + n / rate }
        t = spans[i].stop + silences[i + 1]
        parts[#parts + 1] = silence(i + 1)
    end
    local speech, noise = file .. ".speech.wav", file .. ".noise.wav"
    local quoted = "'" .. table.concat(parts, "' '") .. "'"
    local ok = run(string.format("sox %s '%s'", quoted, speech)) and
        run(string.format("sox -n -r %d -c 1 -b 16 '%s' synth %g whitenoise vol %g", rate, noise,
                          t, noise_volume)) and
        run(string.format("sox -m -v 1 '%s' -v 1 '%s' '%s'", speech, noise, file))
    for _, name in ipairs(parts) do
        os.remove(name)
    end
    os.remove(speech)
    os.remove(noise)
    return ok and spans
end

assert(have_tools(), "the sound tests' speech needs espeak-ng and sox (scripts/install-deps.sh)")
local spans = assert(make_with_tools(), "espeak-ng or sox failed")
local out = assert(io.open(truth_file, "w"))
out:write("-- phrase start and end times in seconds\nreturn {\n")
for _, span in ipairs(spans) do
    out:write(string.format("    { start = %.4f, stop = %.4f },\n", span.start, span.stop))
end
out:write("}\n")
out:close()
print(string.format("%s: %d phrases; truth in %s", file, #spans, truth_file))
