-- Object tracking and the sector grid on a clip, for the main job and the examples.
--
-- The chain: media source -> decompressor -> sector grid -> object tracker -> generic motion
-- detector -> frame writer -> the script. The tracker boxes the moving foreground in 4 x 4
-- blocks and hands on the picture with its boxes; the motion detector reports when boxes
-- enter a mask; the frame writer draws the boxes into snapshots and a contact sheet; the grid
-- grades each picture in 4 x 4 sectors. Then the grid alone on generated pictures in which the
-- light is switched on and the camera covered: the global changes it is there to tell apart from
-- people walking.
--
--     local tracking = dofile("examples/lib/tracking.lua")
--     local result = tracking.main_job("examples/data/pedestrians.mp4", "/tmp/out")
local tracking = {}

-- A stretch of the footpath in the 352 x 240 picture, as a motion-detection mask.
tracking.mask = "M1:100,100,200,150"

local function level_map(levels, columns)
    local rows = {}
    for i = 1, #levels, columns do
        rows[#rows + 1] = table.concat({ table.unpack(levels, i, i + columns - 1) }, " ")
    end
    return table.concat(rows, " | ")
end

-- Runs the chain over the clip, writes pictures into dir, prints what it found; answers a
-- summary.
function tracking.run_clip(clip, dir)
    local src = zor.CreatePacketSource{ url = clip, audioPath = "" }
    assert(src, "cannot open " .. clip)
    src.quiet = true
    src.speed = 0 -- as fast as the chain takes the packets
    local decode = zor.CreateVideoDecompressor{ dataPath = "video" }
    local grid = zor.CreateGenericVideoProcessingModule{}
    local track = zor.CreateObjectTrackingModule{}
    local gvmd = zor.CreateGVMDFilter{}
    local show = zor.CreateVideoDisplay{ dataPath = "video" }
    local sink = zor.sink{}
    zor.connect("video", src, decode, grid, track, gvmd, show, sink)

    local local_changes = {}
    grid.onChange = function(time, changed, scope, levels)
        local_changes[#local_changes + 1] = { time = time, changed = changed, scope = scope }
    end
    grid.enabled = true
    track.picture = true -- the boxes on the picture itself, for the frame writer to draw
    track.enabled = true
    gvmd.sPackedRects = tracking.mask
    gvmd.dSensitivity = 0.995 -- at least 422 pixels of the boxes inside the mask
    gvmd.longDelay = 1000
    local collisions = {}
    gvmd.onCollision = function(realTime, collision, time)
        collisions[#collisions + 1] = { collision = collision == 1, time = time }
    end
    gvmd.enabled = true
    show.drawBoxes = true
    show.drawTime = true
    show.snapshots = dir .. "/tracking-%02d.png"
    show.snapshotInterval = 10000
    show.contactSheet = dir .. "/tracking-sheet.png"

    local boxes, most, with_boxes, frames = 0, 0, 0, 0
    local map_at = {}
    sink.onPacket = function(packet)
        local n = packet.boxes and #packet.boxes or 0
        frames = frames + 1
        boxes = boxes + n
        most = math.max(most, n)
        with_boxes = with_boxes + (n > 0 and 1 or 0)
        if frames == 150 then
            map_at = grid.levels
        end
        return true
    end

    local started = os.clock()
    src.Start()
    zor.run_until_idle()
    local seconds = os.clock() - started
    assert(src.done, src.error)
    assert(show.Close(), show.error)
    sink.clear()

    print(string.format("tracking %d pictures: %d with foreground boxes, %.0f boxes a picture on "
        .. "average (4 x 4 blocks), at most %d; %.2f s of processor time for the whole chain",
        frames, with_boxes, boxes / math.max(frames, 1), most, seconds))
    local spans, starts = {}, 0
    for _, c in ipairs(collisions) do
        if c.collision then
            starts = starts + 1
            spans[#spans + 1] = string.format("%.1f", c.time / 1000)
        else
            spans[#spans] = spans[#spans] .. string.format("-%.1f", c.time / 1000)
        end
    end
    print(string.format("tracking the boxes against a footpath mask %s: %d collisions (s: %s; "
        .. "each ends 1 s after the last box left the mask)", tracking.mask, starts,
        table.concat(spans, ", ")))
    local local_count, global_count = 0, 0
    for _, c in ipairs(local_changes) do
        if c.scope == "global" then global_count = global_count + 1 else local_count = local_count + 1 end
    end
    print(string.format("tracking sector grid on the clip: %d pictures with a sudden local change, "
        .. "%d global; levels at 15 s (rows of 4 sectors; 2 calm, 3 someone there): %s",
        local_count, global_count, level_map(map_at, 4)))
    print(string.format("tracking wrote %s and %d snapshots %s ... with the boxes drawn",
        show.contactSheet, show.snapshotsWritten, dir .. "/tracking-01.png"))
    return { frames = frames, with_boxes = with_boxes, boxes = boxes, collisions = starts,
             local_changes = local_count, global_changes = global_count,
             sheet = show.contactSheet }
end

-- A generated grey picture of width x height: soft shapes, a few edges and a noise pattern
-- numbered variant; brightness scales it (the light), 0 covers the camera.
local function picture(width, height, variant, brightness)
    local bytes = {}
    local seed = variant * 7919
    for y = 0, height - 1 do
        for x = 0, width - 1 do
            seed = (seed * 1103515245 + 12345) % 2147483648
            local base = 90 + 40 * math.sin(x / 17) * math.cos(y / 13) + ((x // 44 + y // 30) % 2) * 30
            local value = (base + (seed % 7) - 3) * brightness
            bytes[#bytes + 1] = math.max(0, math.min(255, math.floor(value + 0.5)))
        end
    end
    return string.char(table.unpack(bytes, 1, #bytes // 2)) ..
           string.char(table.unpack(bytes, #bytes // 2 + 1))
end

-- The grid alone on generated pictures: 40 in the normal light, 30 with the light switched on
-- (30% brighter), 20 with the camera covered. Answers the changes it reported.
function tracking.scene_changes()
    local width, height = 176, 120
    local pictures = {}
    for variant = 1, 4 do
        pictures[variant] = { normal = picture(width, height, variant, 1.0),
                              lit = picture(width, height, variant, 1.3) }
    end
    local covered = string.rep("\16", width * height)
    local src = zor.source{}
    local grid = zor.CreateGenericVideoProcessingModule{}
    local sink = zor.sink{}
    zor.connect("video", src, grid, sink)
    grid.enabled = true
    local changes = {}
    grid.onChange = function(time, changed, scope, levels)
        changes[#changes + 1] = { time = time, changed = changed, scope = scope,
                                  map = level_map(levels, 4) }
    end
    for n = 0, 89 do
        local data = n < 40 and pictures[n % 4 + 1].normal
                     or n < 70 and pictures[n % 4 + 1].lit or covered
        src.push(zor.packet{ kind = "video", ts = n * 100, data = data,
                             format = { width = width, height = -height, compression = "Y800" } })
    end
    sink.clear()
    local what = { [4000] = "the light switched on", [7000] = "the camera covered" }
    print("grid     the grid on a generated scene: 4 s normal light, 3 s 30% brighter, then the "
        .. "camera covered")
    for _, c in ipairs(changes) do
        print(string.format("grid     %5.1f s: %s change in %d of 16 sectors (%s), levels %s",
            c.time / 1000, c.scope, c.changed, what[c.time] or "?", c.map))
    end
    return changes
end

function tracking.main_job(clip, dir)
    local result = tracking.run_clip(clip, dir)
    result.scene_changes = tracking.scene_changes()
    return result
end

return tracking
