-- The main job: the bundled recordings through the module's building blocks, one step at a time,
-- each step saying what it measured. Everything it writes goes into one folder.
--
--     zor-run examples/main.lua [OUTDIR]          (default: out/main-job)
--
-- On the bundled speech (examples/data/speech.wav): a WAV round trip through script components,
-- a filter script, fan-out, pacing and merging, the audio codecs at every rate, sound detection
-- with a chime mixed in, capture and playback with WAV files standing in for the sound card.
-- On the bundled camera clip (examples/data/pedestrians.mp4): motion levels, decoding and
-- pictures, motion detection live and again from the archive it wrote, object tracking with its
-- boxes against a mask and the sector grid, and people counted across a line.
local here = arg[0]:match("^(.*)/") or "."
local input = here .. "/data/speech.wav"
local camera = here .. "/data/pedestrians.mp4"
local outdir = arg[1] or "out/main-job"
assert(os.execute("mkdir -p '" .. outdir .. "'"), "cannot make the folder " .. outdir)
for _, name in ipairs({ "footpath.db", "footpath.db-wal", "footpath.db-shm" }) do
    os.remove(outdir .. "/" .. name) -- the archive is written afresh on every run
end
local output = outdir .. "/speech-copy.wav"

-- Runs one step of the main job under a numbered heading. The step's own lines are indented
-- under it, without the label they carry when a script runs them alone.
local function step(number, title, label, run)
    print(string.format("\n%d. %s", number, title))
    local plain = print
    print = function(text)
        text = tostring(text)
        plain("   " .. (text:gsub("^" .. label .. "%s+", "", 1)))
    end
    local ok, err = pcall(run)
    print = plain
    if not ok then
        error(err, 0)
    end
end

-- Peak and RMS of 16-bit PCM, in dB below full scale.
local function levels(packets)
    local peak, sum, count = 0, 0, 0
    for _, packet in ipairs(packets) do
        local data = packet.data
        for i = 1, #data - 1, 2 do
            local sample = string.unpack("<i2", data, i)
            peak = math.max(peak, math.abs(sample))
            sum = sum + sample * sample
            count = count + 1
        end
    end
    local function db(value) return value > 0 and 20 * math.log(value / 32768, 10) or -math.huge end
    return db(peak), db(math.sqrt(sum / math.max(count, 1))), count
end

local function describe(label, packets)
    local peak, rms, samples = levels(packets)
    print(string.format("   %-10s %d packets, %d samples; peak %.1f dBFS, RMS %.1f dBFS", label,
        #packets, samples, peak, rms))
end

-- 1. Read the input and pass it through the script to the output file.
local reader = zor.wav_source{ file = input, path = "in" }
assert(reader.tag == 1 and reader.bits == 16, "this example reads 16-bit PCM")
local seen = zor.sink{ path = "in" }
local relay = zor.source{ path = "out" }
local writer = zor.wav_sink{ file = output, path = "out" }
seen.onPacket = function(packet) return relay.push(packet) end
local sent = reader.run()
assert(reader.done and sent == seen.count(), "every packet went through")
assert(writer.close())
print(string.format("Zor main job: the bundled speech (%s, %.2f s) and camera clip (%s); "
    .. "files go to %s/\n", input, reader.duration, camera, outdir))
print("1. WAV round trip: file reader -> script -> file writer, then read back")
describe("read", seen.packets())
print(string.format("   %-10s a copy, %d packets and %d bytes of samples, to %s", "wrote",
    writer.packets, writer.bytes, output))

-- 2. Read the output back and compare it with what went in.
local check = zor.wav_source{ file = output, path = "check" }
local back = zor.sink{ path = "check" }
check.run()
describe("read back", back.packets())
local a, b = seen.packets(), back.packets()
assert(#a == #b, "same number of packets")
for i = 1, #a do
    assert(a[i].data == b[i].data and a[i].ts == b[i].ts, "packet " .. i .. " differs")
end
print(string.format("   %-10s all %d packets identical to the originals, samples and timestamps "
    .. "(the last at %d ms)", "compared", #a, b[#b].ts))

-- 3. A filter script at work on the same input: keep the first second, count what it saw.
local clip = zor.wav_source{ file = input, path = "filtered" }
local trim = zor.CreateAdvancedPacketFilter{ dataPath = "filtered" }
trim.filter = "seen = seen + 1; bytes = bytes + SIZE; if (TS >= 1000) { DISCARD; }"
local kept = zor.sink{ path = "filtered" }
clip.run()
print("\n2. Filter script: " .. trim.filter)
print(string.format("   it counted %d packets (%d bytes) and let %d through, those of the first "
    .. "second (the last at %d ms)", trim.GetVariable{ variable = "seen" },
    trim.GetVariable{ variable = "bytes" }, kept.count(),
    kept.count() > 0 and kept.packets()[kept.count()].ts or -1))

-- 4. Fan-out, pacing and merging on the same input: a splitter gives every packet to two
-- branches, one paced by a synchroniser at eight times real time, one straight through; a joiner
-- merges the branches again. The splitter moves at its slowest branch's pace, so the whole graph
-- plays at the synchroniser's speed.
local scale = 8.0
local fan = zor.wav_source{ file = input, path = "fan" }
local split = zor.CreateSplitter{ dataPath = "fan" }
split.CreatePort{ dataPath = "fan.paced" }
local synch = zor.CreateSynch{ paths = { "fan.paced" } }
split.CreatePort{ dataPath = "fan.direct" }
local join = zor.CreateJoiner{ dataPath = "fan.merged" }
join.CreatePort{ dataPath = "fan.paced" }
join.CreatePort{ dataPath = "fan.direct" }
local merged = zor.sink{ path = "fan.merged" }
-- Changing the scale or resuming asks upstream for packets, and the file reader answers at once:
-- so these come last, once the graph is whole. The first packet's timestamp becomes the
-- synchroniser's "now".
local started = zor.now()
synch.scaleFactor = scale
synch.paused = true
synch.paused = false
fan.run()
while merged.count() < 2 * seen.count() and zor.now() - started < 10000 do
    zor.run{ seconds = 0.01 }
end
local elapsed = (zor.now() - started) / 1000
-- Each input packet arrives twice, once per branch, as the same object (shared, not copied).
local first, shared = {}, 0
for _, packet in ipairs(merged.packets()) do
    local twin = first[packet.ts]
    if twin then
        shared = shared + (twin == packet and 1 or 0)
    else
        first[packet.ts] = packet
    end
end
print("\n3. Fan-out, pacing, merge: splitter -> (synchroniser at " .. scale .. "x | direct) -> joiner")
print(string.format("   %d packets in, %d out: each packet reached both branches and came out "
    .. "twice, %s", seen.count(), merged.count(), shared == seen.count()
        and "both times the same object (shared by reference, never copied)"
        or "but not as one object: " .. (seen.count() - shared) .. " were copies"))
print(string.format("   the paced branch played %.2f s of sound in %.2f s: %.1f times real time "
    .. "(scale %.1f)", reader.duration, elapsed, reader.duration / elapsed, scale))

-- 5. The audio codecs on the same speech: encode at every rate the encoder offers, decode back,
-- and measure what the round trip kept.
local codecs = dofile(here .. "/lib/codecs.lua")
local original = codecs.read_wav(input)
print("\n4. Audio codecs: encode, decode, compare with the original (signal-to-noise ratio, "
    .. "higher is closer)")
for _, rate in ipairs(codecs.rates) do
    local decoded = os.tmpname()
    local result = codecs.transcode(input, decoded, rate)
    local coded = codecs.read_wav(result.coded_file)
    local snr = codecs.snr(original, codecs.read_wav(decoded))
    print(string.format("   %-8s %-13s %6d bytes, %4.1f times smaller, SNR %5.1f dB", rate,
        codecs.codec_name(rate), #coded.data, #original.data / #coded.data, snr))
    os.remove(decoded)
    os.remove(result.coded_file)
end

step(5, "Sound detection: level analyzer and detector on the speech, a chime mixed in at the "
    .. "first event", "sound", function()
    dofile(here .. "/lib/sound.lua").main_job(input, outdir)
end)

step(6, "Capture and playback: WAV files stand in for the microphone and the loudspeaker",
    "%a+", function()
    zor.capture() -- the end of the recorded file is reported as a diagnostic: keep it quiet
    dofile(here .. "/lib/capture.lua").run(input)
end)

step(7, "Video: media source -> motion-level stamper -> decoder -> display (pictures)", "video",
    function()
    dofile(here .. "/lib/video.lua").main_job(camera, outdir)
end)

step(8, "Motion detection on the stamped levels and on boxes, live and again from the archive",
    "motion", function()
    dofile(here .. "/lib/motion.lua").main_job(camera, outdir)
end)

step(9, "Object tracking: foreground blocks as boxes, collisions with a mask, the sector grid",
    "%a+", function()
    dofile(here .. "/lib/tracking.lua").main_job(camera, outdir)
end)

step(10, "People counting across a line over the footpath, and left objects", "counting",
    function()
    dofile(here .. "/lib/counting.lua").main_job(camera, outdir)
end)

print("\nEverything above was written to " .. outdir .. "/: open the .png and .svg files in a "
    .. "web browser or image viewer, play the .mp4 and .wav files in any player.")
