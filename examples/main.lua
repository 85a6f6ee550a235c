-- The main job: a WAV file goes through a graph of components and out to a new WAV file, which
-- is then read back and compared.
--
--     zor-run examples/main.lua [IN.wav [OUT.wav]]
--
-- Then the same input goes through a filter script, through fan-out, pacing and merging, through
-- the audio codecs at every rate, through sound detection with a chime mixed in, and through
-- capture and playback with WAV files standing in for the sound card. Last, the bundled camera
-- clip goes through object tracking and through the video chain: motion levels, decoding, pictures.
--
-- Graph: wav_source -> sink (the script sees every packet) -> source -> wav_sink. The sink's
-- callback hands each packet straight on, so a refusal at the end would travel back to the file
-- reader; the components in the middle are where module components (filters, codecs, level
-- analysis) go.
local here = arg[0]:match("^(.*)/") or "."
local input = arg[1] or (here .. "/data/speech.wav")
local output = arg[2] or os.tmpname()

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
print(string.format("Zor main job on %s: %.2f s of %d Hz, %d-bit, %d-channel sound\n", input,
    reader.duration, reader.rate, reader.bits, reader.channels))
print("1. WAV round trip: file reader -> script -> file writer, then read back")
describe("read", seen.packets())
print(string.format("   %-10s a copy, %d packets and %d bytes of samples, to %s", "wrote",
    writer.packets, writer.bytes, arg[2] and output
        or "a temporary file (removed at the end; give IN.wav OUT.wav to keep one)"))

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

-- 6. Sound detection on the same speech: the events as they happen, a chime mixed in at the
-- first one, and a plot of the run; the WAV file and the plot stay in a folder of their own.
local sound_dir = os.tmpname()
os.remove(sound_dir)
assert(os.execute("mkdir -p '" .. sound_dir .. "'"))
dofile(here .. "/lib/sound.lua").main_job(input, sound_dir)

-- 7. Capture and playback, with a WAV file standing in for the sound card.
dofile(here .. "/lib/capture.lua").run(input)

if not arg[2] then
    os.remove(output)
end

-- 8. Object tracking on the bundled camera clip: boxes on the people walking, their collisions
-- with a stretch of the footpath, an annotated contact sheet, and the sector grid's change levels.
local tracking_dir = os.tmpname()
os.remove(tracking_dir)
assert(os.execute("mkdir -p '" .. tracking_dir .. "'"))
dofile(here .. "/lib/tracking.lua").main_job(here .. "/data/pedestrians.mp4", tracking_dir)

-- 9. Video on the bundled camera clip: motion levels stamped on the compressed packets as a
-- camera's encoder does, the frames decoded, and a contact sheet, snapshots and an annotated
-- video written into a folder of their own.
local video_dir = os.tmpname()
os.remove(video_dir)
assert(os.execute("mkdir -p '" .. video_dir .. "'"))
dofile(here .. "/lib/video.lua").main_job(here .. "/data/pedestrians.mp4", video_dir)

-- 10. Motion detection on the same clip: intervals printed as they happen, the same found again
-- in the archive the run wrote, and a timeline plot; the archive and the plot stay in a folder
-- of their own.
local motion_dir = os.tmpname()
os.remove(motion_dir)
assert(os.execute("mkdir -p '" .. motion_dir .. "'"))
dofile(here .. "/lib/motion.lua").main_job(here .. "/data/pedestrians.mp4", motion_dir)

-- 11. People counting on the same clip: walkers counted in each direction across a line over the
-- footpath, left-object alerts, and snapshots with the line and the tracks drawn in.
local counting_dir = os.tmpname()
os.remove(counting_dir)
assert(os.execute("mkdir -p '" .. counting_dir .. "'"))
dofile(here .. "/lib/counting.lua").main_job(here .. "/data/pedestrians.mp4", counting_dir)
