-- Speech with pauses through the analyzer and a detector: one event per phrase, starting and
-- ending where the phrases do; the run's plot is written. Run from the project root.
--
--   zor-run tests/sound/speech_events.lua SPEECH.wav TRUTH.lua SCRATCH_DIR
local sound = dofile("examples/lib/sound.lua")
local input, truth_file, scratch = ...
local truth = dofile(truth_file)
local settings = sound.speech_settings

local run = sound.detect{ input = input }
for i, span in ipairs(run.spans) do
    local t = truth[i] or { start = -1, stop = -1 }
    print(string.format("event %d: %.2f .. %.2f s (phrase %.2f .. %.2f s)", i, span.start,
                        span.stop, t.start, t.stop))
end
local precision, recall, f1 = sound.score(run.spans, truth, 0.5)
print(string.format("precision %.2f, recall %.2f, F1 %.2f over %d phrases", precision, recall, f1,
                    #truth))

assert(#run.spans == #truth, "one event per phrase")
-- A start needs the detection average over the trigger for more than the debounce; an end needs
-- the separation after the last loud average, which trails the speech by up to the window.
local late_end = settings.detectSeparation + settings.detectionWindow + 0.4
for i, span in ipairs(run.spans) do
    local t = truth[i]
    assert(span.start >= t.start - 0.05 and span.start <= t.start + 0.5,
           string.format("event %d starts at %.2f s, the phrase at %.2f s", i, span.start, t.start))
    assert(span.stop >= t.stop and span.stop <= t.stop + late_end,
           string.format("event %d ends at %.2f s, the phrase at %.2f s", i, span.stop, t.stop))
end
for i = 2, #run.events do
    assert(run.events[i].detected ~= run.events[i - 1].detected, "starts and ends alternate")
end

local svg = sound.plot(run, scratch .. "/speech-events.svg", "Speech with pauses")
local text = assert(io.open(svg)):read("a")
assert(text:find("^<svg") and text:find("baseline") and text:find("trigger"), svg)
print("plot: " .. svg)
