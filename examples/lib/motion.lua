-- Motion detection on a camera clip, live and from the archive the live run writes, and a
-- timeline plot of both.
--
--   local motion = dofile("examples/lib/motion.lua")
--   local run = motion.record{ clip = "examples/data/pedestrians.mp4", archive = "/tmp/cam.db" }
--   local found = motion.search{ archive = "/tmp/cam.db", fps = run.fps }
--   print(motion.plot{ file = "/tmp/cam.svg", trace = run.trace, intervals = run.intervals })
--
-- Times are ms from the clip's first frame, in the live run and in the archive alike.

local M = {}

-- The level filter's settings for the examples. The bundled clip is a busy footpath with people
-- in every frame, so its level (8 to 12) never falls quiet and never jumps: the examples look for
-- changes of more than 1 around the 10 s baseline instead of the default 3, and hold motion for
-- 3 s (longDelay counts the baseline window in) so that the 30 s clip shows motion ending too.
M.settings = { threshold = 1, longDelay = 13000 }

local function configure(filter)
    filter.threshold = M.settings.threshold
    filter.longDelay = M.settings.longDelay
    filter.record = true
end

-- The box detector's settings: a stretch of the footpath as the mask, at least 422 pixels of
-- boxes in it, collisions held for a second. Whole frames (100 ms at 10 fps) for the delays, so
-- that the archive's replay reports the same moments as the live run.
M.boxes = { mask = "M1:100,100,200,150", sensitivity = 0.995, shortDelay = 0, longDelay = 1000 }

local function configure_boxes(filter)
    filter.sPackedRects = M.boxes.mask
    filter.dSensitivity = M.boxes.sensitivity
    filter.shortDelay = M.boxes.shortDelay
    filter.longDelay = M.boxes.longDelay
end

-- Plays a clip as fast as the chain takes it through the motion-level stamper, the object
-- tracker (its boxes go on the pictures), the level filter, the box detector and the metadata
-- writer. onMotion(started, ms) and onCollision(started, ms) are called as they happen.
-- Answers { intervals = { {start, stop}, ... } (stop -1: still going at the end), collisions
-- (the same form), trace (see plot), frames (stored), fps, origin (the first frame's time) }.
function M.record(options)
    local src = assert(zor.CreatePacketSource{ url = options.clip, audioPath = "" },
        "cannot open " .. tostring(options.clip))
    src.quiet = true
    local stamper = zor.CreateVideoFilter{}
    local track = zor.CreateObjectTrackingModule{}
    track.enabled = true
    local vmd = zor.CreateVMDFilter{}
    configure(vmd)
    local gvmd = zor.CreateGVMDFilter{}
    configure_boxes(gvmd)
    local writer = assert(zor.CreateMetaDataWriter{ file = options.archive,
                                                    camera = options.camera or "camera" })
    local sink = zor.sink{}
    zor.connect("video", src, stamper, track, vmd, gvmd, writer, sink)

    -- The first packet passes the sink before motion can start (that takes two samples).
    local first
    local intervals = {}
    vmd.onVMD = function(motion, self)
        if motion == zor.null then return end -- the stream has no levels: nothing to report
        local ms = self.timeStamp - first
        if motion == 1 then
            intervals[#intervals + 1] = { ms, -1 }
        else
            intervals[#intervals][2] = ms
        end
        if options.onMotion then options.onMotion(motion == 1, ms) end
    end
    local collisions = {}
    gvmd.onCollision = function(realTime, collision, time)
        local ms = time - first
        if collision == 1 then
            collisions[#collisions + 1] = { ms, -1 }
        else
            collisions[#collisions][2] = ms
        end
        if options.onCollision then options.onCollision(collision == 1, ms) end
    end
    sink.onPacket = function(packet)
        first = first or packet.ts
        sink.clear() -- seen: the pictures need not stay
        return true
    end
    vmd.enabled = true
    gvmd.enabled = true
    src.speed = 0
    src.Start()
    zor.run_until_idle()
    assert(src.done, src.error)
    local frames = writer.written
    writer.Close{}
    local trace = vmd.GetTrace{ maxPoints = 0 }
    return { intervals = intervals, collisions = collisions, trace = trace, frames = frames,
             fps = src.frameRate, origin = first or 0 }
end

-- Searches an archive the way the live filters ran: levels replayed at fps (default: the stored
-- frames' own rate), box sets replayed row by row. Answers { intervals, collisions, trace, rows,
-- fps }.
function M.search(options)
    local reader = assert(zor.CreateMetaDataReader{ file = options.archive,
                                                    camera = options.camera or "camera",
                                                    from = options.from, to = options.to })
    local avmd = zor.CreateArchiveVMDFilter{}
    configure(avmd)
    avmd.source = reader
    -- Without a rate, the frames' own: their mean spacing over the stream.
    local fps = options.fps
    if not fps and reader.rows > 1 then
        fps = math.floor(1000 * (reader.rows - 1) / (reader.lastTime - reader.firstTime) + 0.5)
    end
    local intervals = {}
    for _, m in ipairs(avmd.FindMotionLevels{ fps = fps or 1 }) do
        intervals[#intervals + 1] = { m.startTime, m.endTime }
    end
    local agvmd = zor.CreateArchiveGVMDFilter{}
    configure_boxes(agvmd)
    agvmd.source = reader
    local collisions = {}
    for _, c in ipairs(agvmd.FindCollisions{}) do
        collisions[#collisions + 1] = { c.startTime, c.endTime }
    end
    return { intervals = intervals, collisions = collisions,
             trace = avmd.GetTrace{ maxPoints = 0 }, rows = reader.rows, fps = fps }
end

-- "1.2-14.8 s, 20.0 s-" for a list of intervals in ms.
function M.describe(intervals)
    local parts = {}
    for _, i in ipairs(intervals) do
        parts[#parts + 1] = i[2] < 0 and string.format("%.1f s-(end)", i[1] / 1000)
            or string.format("%.1f-%.1f s", i[1] / 1000, i[2] / 1000)
    end
    return #parts > 0 and table.concat(parts, ", ") or "none"
end

function M.same(a, b)
    if #a ~= #b then return false end
    for i = 1, #a do
        if a[i][1] ~= b[i][1] or a[i][2] ~= b[i][2] then return false end
    end
    return true
end

-- Writes a timeline of a trace ({ times, levels, baselines } in ms) with the threshold band
-- around the baseline, and the motion intervals and collisions shaded. Answers the file's path.
function M.plot(options)
    local times, levels, baselines = options.trace[1], options.trace[2], options.trace[3]
    local seconds, above, below = {}, {}, {}
    local origin = options.origin or 0
    local threshold = options.threshold or M.settings.threshold
    for i = 1, #times do
        seconds[i] = (times[i] - origin) / 1000
        above[i] = baselines[i] + threshold
        below[i] = baselines[i] - threshold
    end
    local function spans(name, list)
        local starts, ends = {}, {}
        for i, interval in ipairs(list or {}) do
            starts[i] = interval[1] / 1000
            ends[i] = interval[2] < 0 and -1 or interval[2] / 1000
        end
        return { name = name, starts = starts, ends = ends }
    end
    return zor.plot_timeline{
        file = options.file, title = options.title or "Motion level",
        timeLabel = "time (s)", valueLabel = "motion level",
        series = { { name = "level", t = seconds, v = levels },
                   { name = "baseline", t = seconds, v = baselines },
                   { name = "baseline + threshold", t = seconds, v = above },
                   { name = "baseline - threshold", t = seconds, v = below } },
        intervals = { spans("motion", options.intervals),
                      spans("boxes in mask", options.collisions) },
    }
end

-- The main job's part: live intervals printed as they happen, the same found again in the
-- archive the run wrote, and the plot's path; the archive and the plot are left in dir.
function M.main_job(clip, dir)
    local archive = dir .. "/footpath.db"
    local run = M.record{ clip = clip, archive = archive, camera = "footpath",
        onMotion = function(started, ms)
            print(string.format("motion   live: motion %s at %.1f s", started and "starts" or
                "stops", ms / 1000))
        end }
    print(string.format("motion   live: %d frames at %g fps stored in %s; motion %s; boxes in "
        .. "the mask %s", run.frames, run.fps, archive, M.describe(run.intervals),
        M.describe(run.collisions)))
    local found = M.search{ archive = archive, camera = "footpath", fps = run.fps }
    print(string.format("motion   archive: %d rows searched, levels at %g fps: motion %s (%s the "
        .. "live run)", found.rows, found.fps, M.describe(found.intervals),
        M.same(found.intervals, run.intervals) and "the same as" or "DIFFERENT from"))
    print(string.format("motion   archive: box sets: in the mask %s (%s the live run)",
        M.describe(found.collisions),
        M.same(found.collisions, run.collisions) and "the same as" or "DIFFERENT from"))
    local plot = M.plot{ file = dir .. "/footpath-motion.svg",
        title = "Motion on " .. clip:match("[^/]*$") .. " (live run)", trace = run.trace,
        intervals = run.intervals, collisions = run.collisions, origin = run.origin }
    print("motion   timeline plot: " .. plot)
    return run, found
end

return M
