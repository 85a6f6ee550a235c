-- The video chain on a clip, for the main job and the examples: a media source gives the
-- camera's compressed packets, the motion-level stamper stamps each with its level, the script
-- counts the levels and hands the packets on to the decompressor, and the frame writer keeps a
-- contact sheet, snapshots and an annotated video of the decoded frames.
--
--     local video = dofile("examples/lib/video.lua")
--     local result = video.main_job("examples/data/pedestrians.mp4", "/tmp/out")
local video = {}

-- The motion filter's default threshold: a level at or above it is motion.
video.threshold = 3

local function median(values)
    local sorted = { table.unpack(values) }
    table.sort(sorted)
    return sorted[(#sorted + 1) // 2] or 0
end

-- The levels of a clip as a stamper gives them, measured in a region ({} for all of it).
function video.levels(clip, region)
    local src = zor.CreatePacketSource{ url = clip, audioPath = "", dataPath = "video.levels" }
    src.quiet = true
    src.speed = 0
    local stamp = zor.CreateVideoFilter{}
    stamp.region = region or {}
    local sink = zor.sink{}
    zor.connect("video.levels", src, stamp, sink)
    src.Start()
    zor.run_until_idle()
    local levels = {}
    for i, packet in ipairs(sink.packets()) do
        levels[i] = packet.attributes[1]
    end
    return levels
end

-- Runs the chain over the clip, writes into dir, prints what it did and where the files are;
-- answers a summary.
function video.main_job(clip, dir)
    local src = zor.CreatePacketSource{ url = clip, audioPath = "" }
    assert(src, "cannot open " .. clip)
    src.quiet = true
    src.speed = 0 -- as fast as the chain takes the packets
    print(string.format("video    %s: %dx%d %s, %.1f s at %g frames/s", clip, src.width,
        src.height, src.codec, src.duration, src.frameRate))

    -- source -> stamper -> packets (the script sees each stamped packet and relays it) ->
    -- relay -> decompressor -> frame writer. The compressed packets are small: the sink keeps
    -- them for the level count; the frames end at the writer.
    local stamp = zor.CreateVideoFilter{}
    local packets = zor.sink{}
    zor.connect("video", src, stamp, packets)
    local relay = zor.source{ path = "video.frames" }
    local decode = zor.CreateVideoDecompressor{ dataPath = "video.frames" }
    local show = zor.CreateVideoDisplay{ dataPath = "video.frames" }
    packets.onPacket = function(packet) return relay.push(packet) end
    show.contactSheet = dir .. "/contact-sheet.png"
    show.sheetCount = 12
    show.sheetColumns = 4
    show.snapshots = dir .. "/snapshot-%02d.png"
    show.snapshotInterval = 10000
    show.video = dir .. "/levels.mp4"
    show.drawTime = true -- each picture's time and motion level, top left

    local started = os.clock()
    src.Start()
    zor.run_until_idle()
    local seconds = os.clock() - started
    assert(src.done, src.error)
    assert(show.Close(), show.error)

    local levels, moving = {}, 0
    for i, packet in ipairs(packets.packets()) do
        levels[i] = packet.attributes[1] or 0
        moving = moving + (levels[i] >= video.threshold and 1 or 0)
    end
    local lo, hi = math.min(table.unpack(levels)), math.max(table.unpack(levels))
    print(string.format("video    motion levels (VMDLEVEL) stamped on %d packets: %d to %d, median %d; "
        .. "%d at or above the motion threshold %d (people walk through the whole clip)",
        #levels, lo, hi, median(levels), moving, video.threshold))
    -- The lawn in the picture's lower part: the same camera noise and coding, nobody walking.
    local lawn = video.levels(clip, { 0, 176, src.width, src.height - 176 })
    print(string.format("video    the same clip measured on the lawn where nobody walks (y >= 176): "
        .. "highest level %d", math.max(table.unpack(lawn))))
    print(string.format("video    decoded %d frames %dx%d (%s) in %.2f s of processor time, "
        .. "with stamping and picture writing", decode.frames, decode.width, decode.height,
        decode.codec, seconds))
    print(string.format("video    wrote %s (%d thumbnails with their times), %d snapshots %s ..., "
        .. "and %s (%d frames with time and level)", show.contactSheet, show.sheetCount,
        show.snapshotsWritten, dir .. "/snapshot-01.png", show.video, show.videoFrames))
    print("video    look at them: the PNG files open in any image viewer or web browser "
        .. "(xdg-open " .. show.contactSheet .. "), the MP4 plays in any video player "
        .. "(ffplay, mpv, vlc)")
    return { levels = levels, lawn = lawn, frames = decode.frames, sheet = show.contactSheet,
             video = show.video, snapshots = show.snapshotsWritten }
end

return video
