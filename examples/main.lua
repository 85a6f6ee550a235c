-- The main job: a WAV file goes through a graph of components and out to a new WAV file, which
-- is then read back and compared.
--
--     zor-run examples/main.lua [IN.wav [OUT.wav]]
--
-- Then the same input goes through a filter script, through fan-out, pacing and merging, through
-- the audio codecs at every rate, and through sound detection with a chime mixed in. Last, the
-- bundled camera clip goes through the video chain: motion levels, decoding, pictures.
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

local function describe(label, packets, wav)
    local peak, rms, samples = levels(packets)
    print(string.format("%-8s %3d packets, %6d samples, %.2f s at %d Hz, %d-bit, %d channel(s); "
        .. "peak %.1f dBFS, RMS %.1f dBFS", label, #packets, samples, wav.duration, wav.rate,
        wav.bits, wav.channels, peak, rms))
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
describe("input", seen.packets(), reader)
print(string.format("wrote    %s: %d packets, %d bytes of data", output, writer.packets, writer.bytes))

-- 2. Read the output back and compare it with what went in.
local check = zor.wav_source{ file = output, path = "check" }
local back = zor.sink{ path = "check" }
check.run()
describe("output", back.packets(), check)
local a, b = seen.packets(), back.packets()
assert(#a == #b, "same number of packets")
for i = 1, #a do
    assert(a[i].data == b[i].data and a[i].ts == b[i].ts, "packet " .. i .. " differs")
end
print(string.format("round trip: %d packets identical, last timestamp %d ms", #a, b[#b].ts))

-- 3. A filter script at work on the same input: keep the first second, count what it saw.
local clip = zor.wav_source{ file = input, path = "filtered" }
local trim = zor.CreateAdvancedPacketFilter{ dataPath = "filtered" }
trim.filter = "seen = seen + 1; bytes = bytes + SIZE; if (TS >= 1000) { DISCARD; }"
local kept = zor.sink{ path = "filtered" }
clip.run()
print(string.format("filter   saw %d packets (%d bytes), kept %d up to 1 s (last at %d ms)",
    trim.GetVariable{ variable = "seen" }, trim.GetVariable{ variable = "bytes" }, kept.count(),
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
print(string.format("fan-out  %d packets to 2 branches and merged again: %d out, every packet "
    .. "twice as one object: %s", seen.count(), merged.count(), tostring(shared == seen.count())))
print(string.format("pacing   %.2f s of sound played in %.2f s (%.1f times real time, scale %.1f)",
    reader.duration, elapsed, reader.duration / elapsed, scale))

-- 5. The audio codecs on the same speech: encode at every rate the encoder offers, decode back,
-- and measure what the round trip kept.
local codecs = dofile(here .. "/lib/codecs.lua")
local original = codecs.read_wav(input)
for _, rate in ipairs(codecs.rates) do
    local decoded = os.tmpname()
    local result = codecs.transcode(input, decoded, rate)
    local coded = codecs.read_wav(result.coded_file)
    local snr = codecs.snr(original, codecs.read_wav(decoded))
    print(string.format("codec    %-8s %-13s %6d bytes (%4.1f:1), decoded SNR %5.1f dB", rate,
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

if not arg[2] then
    os.remove(output)
end

-- 6. Capture and playback, with a WAV file standing in for the sound card.
dofile(here .. "/lib/capture.lua").run(input)

-- 8. Video on the bundled camera clip: motion levels stamped on the compressed packets as a
-- camera's encoder does, the frames decoded, and a contact sheet, snapshots and an annotated
-- video written into a folder of their own.
local video_dir = os.tmpname()
os.remove(video_dir)
assert(os.execute("mkdir -p '" .. video_dir .. "'"))
dofile(here .. "/lib/video.lua").main_job(here .. "/data/pedestrians.mp4", video_dir)
