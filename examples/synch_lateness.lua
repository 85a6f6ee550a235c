-- Plays a stream of timestamped packets through a synchroniser on the real clock, at scale 1.0
-- and at 4.0, and prints how late each packet was released: the time between the instant the
-- synchroniser's clock read the packet's timestamp and the release.
--
--   zor-run examples/synch_lateness.lua
--
-- Each run takes about a second. Lateness is in wall-clock milliseconds; on an idle machine it
-- stays near the operating system's wake-up floor (about 0.05 ms).

local function play(scale, packets, interval)
    local path = ("lateness.x%g"):format(scale)
    local src = zor.source{ path = path }
    local synch = zor.CreateSynch{ paths = { path } }
    local sink = zor.sink{ path = path }
    synch.scaleFactor = scale

    -- A time base sets the synchroniser's clock to 0 now, at the scale set above.
    local lateness = {}
    local start
    sink.onPacket = function(packet)
        if packet.kind ~= "timebase" then
            local due = start + packet.ts / scale
            lateness[#lateness + 1] = zor.now() - due
        end
        return true
    end
    start = zor.now()
    src.push(zor.packet{ kind = "timebase", time = 0, scale = scale })

    -- The source holds one packet back while the synchroniser holds another: feed it as it
    -- takes them, and let the loop run in between.
    for i = 0, packets - 1 do
        while src.pending do
            zor.run{ seconds = 0.005 }
        end
        src.push(zor.packet{ ts = i * interval })
    end
    zor.run{ seconds = interval / scale / 1000 + 0.05 }

    print(("scale %.1f: %d packets, one every %d ms of stream time"):format(scale, #lateness,
                                                                             interval))
    local sorted = {}
    for i, late in ipairs(lateness) do
        print(("  packet %2d  ts %5d ms  released %+.3f ms from due"):format(i, (i - 1) * interval,
                                                                           late))
        sorted[i] = math.abs(late)
    end
    table.sort(sorted)
    print(("  median |lateness| %.3f ms, worst %.3f ms"):format(sorted[(#sorted + 1) // 2],
                                                              sorted[#sorted]))
end

play(1.0, 25, 40)  -- one second of a 25 frames/s stream in real time
play(4.0, 100, 40) -- four seconds of it, four times as fast
