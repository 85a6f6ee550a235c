-- People counting and left objects on a clip, for the main job and the examples.
--
-- The chain: media source -> object tracker -> people-counting filter (write) -> counting
-- analyser -> exit-blocking filter (write) -> left-object analyser -> people-counting filter
-- (read) -> exit-blocking filter (read) -> frame writer. The writers hang a fresh "PCD1" and
-- "LOD1" object on every picture, the analysers fill them from the tracker's boxes, and the
-- readers turn them into counts per minute and left-object alerts for the script; the frame
-- writer draws the counting line, the tracks and the counts on snapshots and a contact sheet.
--
--     local counting = dofile("examples/lib/counting.lua")
--     local result = counting.main_job("examples/data/pedestrians.mp4", "/tmp/out")
local counting = {}

-- Across the footpath of the bundled clip, by the lamp post, drawn from top to bottom: walking
-- towards the left of the picture is an entry, towards the right an exit.
counting.line = { 176, 40, 176, 150 }
-- Something standing still for longer than this (ms) raises a left-object alert.
counting.duration = 5000

-- Runs the chain over the clip, writes pictures into dir, prints what it counted; answers a
-- summary.
function counting.main_job(clip, dir)
    local src = zor.CreatePacketSource{ url = clip, audioPath = "" }
    assert(src, "cannot open " .. clip)
    src.quiet = true
    src.speed = 0 -- as fast as the chain takes the packets
    local track = zor.CreateObjectTrackingModule{}
    track.picture = true -- the camera's picture goes on, for the snapshots
    track.enabled = true
    local write = zor.CreatePeopleCountFilter{}
    write.mode = "write"
    local pca = zor.CreatePCAFilter{}
    pca.line = counting.line
    local lodWrite = zor.CreateExitBlockingFilter{}
    lodWrite.mode = "write"
    local lod = zor.CreateLODFilter{}
    local read = zor.CreatePeopleCountFilter{}
    read.Interval = 10000 -- counts per 10 s of the clip
    local blocking = zor.CreateExitBlockingFilter{}
    blocking.SetTargetDuration{ SetTargetDuration = counting.duration }
    local show = zor.CreateVideoDisplay{}
    show.drawCounting = true
    show.drawTime = true
    show.width = 704
    show.snapshots = dir .. "/counting-%02d.png"
    show.snapshotInterval = 7000
    show.contactSheet = dir .. "/counting-sheet.png"
    local sink = zor.sink{}
    zor.connect("video", src, track, write, pca, lodWrite, lod, read, blocking, show, sink)
    sink.onPacket = function() return true end -- the frames end here; nothing is kept

    local intervals, crossings, alerts = {}, {}, {}
    local last = { 0, 0 }
    read.onIntervalChange = function(start, stop, entries, exits)
        intervals[#intervals + 1] = { start = start, stop = stop, entries = entries, exits = exits }
    end
    read.onCountChange = function(entries, _, exits)
        if entries ~= last[1] or exits ~= last[2] then
            crossings[#crossings + 1] = { entries = entries, exits = exits }
        end
        last = { entries, exits }
    end
    blocking.onCountChange = function(entries, _, targets, _, seconds)
        alerts[#alerts + 1] = { entries = entries, targets = targets, seconds = seconds }
    end
    for _, filter in ipairs({ write, pca, lodWrite, lod, read, blocking }) do
        filter.enabled = true
    end

    src.Start()
    zor.run_until_idle()
    assert(src.done, src.error)
    assert(show.Close(), show.error)

    print(string.format("counting line from (%d,%d) to (%d,%d) across the footpath: %d people "
        .. "walked left across it, %d walked right", counting.line[1], counting.line[2],
        counting.line[3], counting.line[4], pca.entries, pca.exits))
    for _, i in ipairs(intervals) do
        print(string.format("counting %4.1f s to %4.1f s: %d left, %d right", i.start / 1000,
            i.stop / 1000, i.entries, i.exits))
    end
    print(string.format("counting %4.1f s to the end: %d left, %d right (occupancy %d)",
        (intervals[#intervals] and intervals[#intervals].stop or 0) / 1000, last[1], last[2],
        pca.occupancy))
    if #alerts == 0 then
        print(string.format("counting left objects: none stood for longer than %d s",
            counting.duration // 1000))
    else
        print(string.format("counting left objects: %d alerts, the first with %d thing(s) "
            .. "standing for %d s", #alerts, alerts[1].entries, alerts[1].seconds))
    end
    print(string.format("counting wrote %s and %d snapshots %s ... (the line in yellow, each "
        .. "track with its id and trail, the counts top left)", show.contactSheet,
        show.snapshotsWritten, dir .. "/counting-01.png"))
    return { entries = pca.entries, exits = pca.exits, alerts = #alerts, intervals = intervals,
             sheet = show.contactSheet, snapshots = show.snapshotsWritten }
end

return counting
