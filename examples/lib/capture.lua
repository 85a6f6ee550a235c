-- The main job's capture and playback part: a WAV file stands in for the microphone and for the
-- loudspeaker, on the virtual clock, so it runs at once and gives the same result everywhere.
local M = {}

-- Records the speech file through the capture source, as a sound card would deliver it, then
-- plays the recording back into another WAV file; prints what each side did.
function M.run(speech)
    local before = zor.clock("virtual")
    local mic = zor.CreateAudioSrc{}
    mic.device = "file:" .. speech
    local tap = zor.sink{}
    zor.connect("audio", mic, tap)
    mic.recording = true
    while mic.recording do
        zor.advance(1000) -- the device gives the file at 8 kHz; at its end recording stops
    end
    local packets = tap.packets()
    local steady = true
    for i = 2, #packets - 1 do
        steady = steady and packets[i].ts - packets[i - 1].ts == 64
    end
    print(string.format("capture  %d packets of 64 ms from the file device, timestamps %s apart "
        .. "(%d to %d ms)", #packets, steady and "exactly 64 ms" or "NOT 64 ms",
        packets[1].ts, packets[#packets].ts))

    local played = os.tmpname()
    local relay = zor.source{}
    local player = zor.CreateAudioPlayer{}
    player.device = "file:" .. played
    zor.connect("audio", relay, player)
    local started = zor.now()
    for _, packet in ipairs(packets) do
        -- A refused packet waits in the relay; the player takes it once the device has played
        -- one of the packets it holds.
        while relay.pending do
            zor.advance(10)
        end
        relay.push(packet)
    end
    while player.queued > 0 do
        zor.advance(10)
    end
    local elapsed = (zor.now() - started) / 1000
    player.device = "" -- closes the file
    local function bytes(list)
        local parts = {}
        for i, packet in ipairs(list) do
            parts[i] = packet.data
        end
        return table.concat(parts)
    end
    local check = zor.wav_source{ file = played }
    local back = zor.sink{}
    zor.connect("audio", check, back)
    check.run()
    local same = bytes(back.packets()) == bytes(packets)
    print(string.format("playback %d packets played into a WAV file in %.2f s of device time, "
        .. "the same bytes as recorded: %s", player.played, elapsed, tostring(same)))
    os.remove(played)
    zor.clock(before)
end

return M
