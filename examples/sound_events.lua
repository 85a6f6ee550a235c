-- Sound events in a recording: the audio analyzer and a detector over a 16-bit mono PCM WAV
-- file, each event printed as it happens, and a timeline plot of the levels, the baseline, the
-- trigger and the events.
--
--   zor-run examples/sound_events.lua [IN.wav [PLOT.svg [THRESHOLD]]]
--
-- THRESHOLD is a level above the baseline (20 by default, about -35 dBFS), or "x" and a factor
-- ("x8") for a threshold that is that many times the baseline, which suits recordings that start
-- with a moment of background. Without IN.wav the bundled speech is used.
local here = arg[0]:match("^(.*)/") or "."
local sound = dofile(here .. "/lib/sound.lua")
local input = arg[1] or (here .. "/data/speech.wav")
local plot = arg[2]
if not plot then
    plot = os.tmpname()
    os.remove(plot)
    plot = plot .. ".svg"
end
local settings = {}
for name, value in pairs(arg[3] and arg[3]:match("^x") and sound.speech_settings
                         or sound.recording_settings) do
    settings[name] = value
end
if arg[3] then
    local factor = arg[3]:match("^x(.+)$")
    settings.threshold, settings.multiplierThreshold = nil, nil
    if factor then
        settings.multiplierThreshold = assert(tonumber(factor), "THRESHOLD: x and a number")
    else
        settings.threshold = assert(tonumber(arg[3]), "THRESHOLD: a number, or x and a number")
    end
end

local run = sound.detect{ input = input, settings = settings,
    on_event = function(detected, time)
        print(string.format("%8.2f s  sound %s", time, detected and "starts" or "ends"))
    end }
print(string.format("%d sound events in %.2f s of audio", #run.spans, run.duration))
print("plot: " .. sound.plot(run, plot, "Sound events in " .. input:match("[^/]*$")))
