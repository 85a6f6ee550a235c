-- Sound detection on a recording: the audio analyzer and a detector over a WAV file, the events
-- with their times, a chime mixed in at the first event, a timeline plot of levels, baseline and
-- events, and a score against known speech intervals. Shared by the main job, the examples and
-- the tests.
--
--   local sound = dofile("examples/lib/sound.lua")
--   local run = sound.detect{ input = "speech.wav", output = "chimed.wav", chime = true }
--   for _, e in ipairs(run.events) do print(e.detected, e.time) end
--   sound.plot(run, "speech.svg")

local M = {}

-- Detector settings that suit speech in 90 ms packets: a short detection average; a baseline from
-- the quietest moment of every 3 s (longer than most phrases, so each period holds a pause) over
-- the last 20 s; events that start after 0.1 s above the trigger and end after half a second
-- below it.
M.speech_settings = {
    detectionWindow = 0.3,
    baselineWindow = 20,
    baselineSearchPeriod = 3.0,
    debounce = 0.1,
    detectSeparation = 0.5,
    multiplierThreshold = 8,
}

-- A chime: two bell partials (C6 and G6) with a soft attack and an exponential decay, as 16-bit
-- little-endian samples in a string (what the mixer's AddSound takes).
function M.chime(rate, seconds, amplitude)
    rate, seconds, amplitude = rate or 8000, seconds or 0.4, amplitude or 6000
    local n = math.floor(rate * seconds)
    local samples = {}
    for i = 1, n do
        local t = (i - 1) / rate
        local envelope = math.min(1, t / 0.005) * math.exp(-t * 9)
        local v = 0.7 * math.sin(2 * math.pi * 1046.5 * t) + 0.3 * math.sin(2 * math.pi * 1568 * t)
        samples[i] = math.floor(amplitude * envelope * v + 0.5)
    end
    local parts = {}
    for i = 1, n, 256 do
        local last = math.min(i + 255, n)
        parts[#parts + 1] = string.pack("<" .. string.rep("i2", last - i + 1),
                                        table.unpack(samples, i, last))
    end
    return table.concat(parts), n
end

-- Mean square / 65536 of a packet's 16-bit samples: the analyzer's measure, for the plot.
local function packet_level(data)
    local n = #data // 2
    if n == 0 then
        return 0
    end
    local sum, block = 0, 64
    local i = 1
    while i + 2 * block - 1 <= #data do
        local values = table.pack(string.unpack("<" .. string.rep("i2", block), data, i))
        for k = 1, block do
            sum = sum + values[k] * values[k]
        end
        i = i + 2 * block
    end
    while i + 1 <= #data do
        local v = string.unpack("<i2", data, i)
        sum = sum + v * v
        i = i + 2
    end
    return sum / n / 65536
end

-- Runs a 16-bit mono PCM WAV file through the analyzer and a detector, and answers
--   { events = { { detected = true|false, time = s }, ... }, spans = { { start, stop }, ... },
--     samples = { t = {...}, level = {...}, detection = {...}, baseline = {...},
--                 trigger = {...} }, duration = s, chime_at = s or nil, settings = {...} }
-- options: input (file), settings (detector settings, default speech_settings; "threshold"
-- instead of "multiplierThreshold" selects absolute mode), output (a WAV file for the stream
-- after the mixer), chime (true: a chime is mixed in at the first event), on_event (a function
-- called with (detected, time) as each event happens).
function M.detect(options)
    local settings = options.settings or M.speech_settings
    local wav = zor.wav_source{ file = options.input }
    assert(wav.tag == 1 and wav.bits == 16 and wav.channels == 1,
           options.input .. ": the analyzer measures 16-bit mono PCM")
    local analyzer = zor.CreateAudioAnalyzer2{}
    local detector = analyzer.GetDetector{ detectionWindow = settings.detectionWindow,
                                           baselineWindow = settings.baselineWindow }
    for _, name in ipairs{ "debounce", "detectSeparation", "baselineSearchPeriod", "threshold",
                           "multiplierThreshold" } do
        if settings[name] then
            detector[name] = settings[name]
        end
    end
    local mixer = zor.CreateAudioSampleMixer{}
    if options.chime then
        mixer.AddSound{ identifier = "chime", audioData = M.chime(wav.rate) }
    end

    local run = { events = {}, spans = {}, duration = wav.duration, settings = settings,
                  samples = { t = {}, level = {}, detection = {}, baseline = {}, trigger = {} } }
    detector.onDetect = function(detected, time)
        run.events[#run.events + 1] = { detected = detected, time = time }
        if detected then
            run.spans[#run.spans + 1] = { start = time, stop = -1 }
            if options.chime and not run.chime_at then
                run.chime_at = time
                mixer.Mix{ identifier = "chime" }
            end
        else
            run.spans[#run.spans].stop = time
        end
        if options.on_event then
            options.on_event(detected, time)
        end
    end

    -- Every packet, once measured, is seen here with the detector's values after it.
    local s = run.samples
    local tap = zor.sink{}
    local relay = zor.source{}
    tap.onPacket = function(packet)
        local n = #s.t + 1
        local baseline = detector.baselineValue
        local limit = settings.threshold or baseline * settings.multiplierThreshold
        s.t[n], s.level[n] = packet.rts, packet_level(packet.data)
        s.detection[n], s.baseline[n], s.trigger[n] = detector.detectionValue, baseline,
            baseline + limit
        return relay.push(packet)
    end
    local out = options.output and zor.wav_sink{ file = options.output }
    zor.connect("audio", wav, analyzer, tap)
    if out then
        zor.connect("audio", relay, mixer, out)
    else
        zor.connect("audio", relay, mixer, zor.sink{})
    end
    wav.run()
    assert(wav.done, options.input .. ": not every packet went through")
    if out then
        assert(out.close(), options.output .. ": could not be written")
    end
    return run
end

-- dB below full scale of a level (mean square / 65536), floored at -90 so silence shows.
local function dbfs(level)
    return math.max(-90, 10 * math.log(level * 65536 / (32768 * 32768), 10))
end

-- Writes the run's timeline (levels in dBFS, detected spans, event marks) as SVG; answers the
-- path.
function M.plot(run, file, title)
    local s, series = run.samples, {}
    for _, name in ipairs{ "level", "detection", "baseline", "trigger" } do
        local values = {}
        for i, v in ipairs(s[name]) do
            values[i] = dbfs(v)
        end
        series[#series + 1] = { name = name, t = s.t, v = values,
                                step = name == "baseline" or name == "trigger" }
    end
    local starts, ends, marks_on, marks_off = {}, {}, {}, {}
    for i, span in ipairs(run.spans) do
        starts[i], ends[i] = span.start, span.stop
    end
    for _, e in ipairs(run.events) do
        local marks = e.detected and marks_on or marks_off
        marks[#marks + 1] = e.time
    end
    local events = { { name = "start", t = marks_on }, { name = "end", t = marks_off } }
    if run.chime_at then
        events[#events + 1] = { name = "chime", t = { run.chime_at } }
    end
    return zor.plot_timeline{
        file = file, title = title or "Sound detection", valueLabel = "dBFS",
        series = series,
        intervals = { { name = "sound", starts = starts, ends = ends } },
        events = events,
    }
end

-- Scores detected spans against true ones: a detection is right when it starts within
-- tolerance seconds of a true start not matched before. Answers precision, recall, F1.
function M.score(spans, truth, tolerance)
    local used, matched = {}, 0
    for _, span in ipairs(spans) do
        for k, true_span in ipairs(truth) do
            if not used[k] and math.abs(span.start - true_span.start) <= tolerance then
                used[k], matched = true, matched + 1
                break
            end
        end
    end
    local precision = #spans > 0 and matched / #spans or 1
    local recall = #truth > 0 and matched / #truth or 1
    local f1 = precision + recall > 0 and 2 * precision * recall / (precision + recall) or 0
    return precision, recall, f1
end

-- Settings for a recording that starts with speech, such as the bundled one: a multiplier
-- threshold would take the first, loud, moments as the background, so the threshold is absolute
-- (a detection average 20 above the baseline, about -35 dBFS), and pauses of a quarter second
-- end an event.
M.recording_settings = {
    detectionWindow = 0.2,
    baselineWindow = 20,
    baselineSearchPeriod = 1.0,
    debounce = 0.1,
    detectSeparation = 0.25,
    threshold = 20,
}

-- The main job's part: the bundled speech (two sentences and a short pause) through the
-- analyzer and a detector, events printed as they happen, a chime mixed in at the first event
-- into a WAV file, and the plot. Answers the run.
function M.main_job(input, workdir)
    local settings = M.recording_settings
    local chimed = workdir .. "/speech-chimed.wav"
    print(string.format("sound    %s through the analyzer and a detector (threshold %g, "
        .. "separation %g s)", input:match("[^/]*$"), settings.threshold, settings.detectSeparation))
    local run = M.detect{ input = input, settings = settings, output = chimed, chime = true,
        on_event = function(detected, time)
            print(string.format("sound    %.2f s  sound %s", time, detected and "starts" or "ends"))
        end }
    print(string.format("sound    %d sound events in %.2f s of audio; a chime was mixed in at "
        .. "%.2f s: %s", #run.spans, run.duration, run.chime_at or -1, chimed))
    print("sound    plot of levels, baseline and events: " ..
        M.plot(run, workdir .. "/speech-sound.svg", "Sound detection on the bundled speech"))
    return run
end

return M
