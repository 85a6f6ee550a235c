-- Records from the sound input into a WAV file.
--
--     zor-run examples/record_audio.lua [SECONDS [OUT.wav [DEVICE]]]
--
-- SECONDS defaults to 3 and OUT.wav to a temporary file. DEVICE is the system's default
-- capture device unless given: an ALSA name ("hw:1,0", "plughw:1"), or "file:IN.wav" to take
-- a WAV file as if it came from a microphone. The capture runs at the device's pace on the
-- real clock (8 kHz, 16-bit mono, 64 ms a packet: the capture source's defaults), and the
-- packets' timestamps are corrected against the system clock as they come.
local seconds = tonumber(arg[1]) or 3
local output = arg[2] or (os.tmpname() .. ".wav")
local device = arg[3] or ""
local name = device == "" and "the default device" or device

local mic = zor.CreateAudioSrc{}
mic.device = device
local tap = zor.sink{}
local relay = zor.source{}
local wav = zor.wav_sink{ file = output }
zor.connect("audio", mic, tap)
zor.connect("audio", relay, wav)
-- Each packet goes on to the file; the recording stops once it has enough, and the first and
-- last timestamps tell the time it took by the corrected clock.
local wanted = seconds * mic.sampleFrequency * 2
local taken, first, last = 0, nil, nil
tap.onPacket = function(packet)
    first = first or packet.ts
    last = packet.ts
    taken = taken + packet.size
    if taken >= wanted then
        mic.recording = false
    end
    return relay.push(packet)
end

mic.recording = true
if not mic.recording then
    error("cannot record from " .. name .. " (the reason is in the message above)")
end
local deadline = zor.now() + (seconds + 10) * 1000
while mic.recording and zor.now() < deadline do
    zor.run{ seconds = 0.05 }
end
mic.recording = false
assert(wav.close())
print(string.format("recorded %.2f s from %s into %s: %d packets, timestamps %d to %d ms",
    wav.bytes / (mic.sampleFrequency * 2), name, output, wav.packets, first or 0, last or 0))
assert(taken >= wanted, "the device stopped before the recording was complete")
if not arg[2] then
    os.remove(output)
end
