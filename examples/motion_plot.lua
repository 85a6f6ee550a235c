-- A timeline of motion levels, baseline, threshold band and motion intervals for a range of an
-- archive, from one command:
--
--     zor-run examples/motion_plot.lua [ARCHIVE [CAMERA [FROM_MS TO_MS [OUT.svg]]]]
--
-- Without an archive it records the bundled clip into a new one first (as the main job does).
local here = arg[0]:match("^(.*)/") or "."
local motion = dofile(here .. "/lib/motion.lua")

local archive, camera = arg[1], arg[2] or "camera"
local from, to = tonumber(arg[3]), tonumber(arg[4])
local out = arg[5]
if not archive then
    archive = os.tmpname()
    os.remove(archive)
    local run = motion.record{ clip = here .. "/data/pedestrians.mp4", archive = archive,
                               camera = camera }
    print(string.format("recorded %d frames of the bundled clip into %s", run.frames, archive))
    out = out or (archive .. ".svg")
end
local found = motion.search{ archive = archive, camera = camera, from = from, to = to }
print(string.format("%d rows from %s (camera \"%s\") at %g fps, motion %s, boxes in the mask %s",
    found.rows, archive, camera, found.fps or 0, motion.describe(found.intervals),
    motion.describe(found.collisions)))
local path = motion.plot{ file = out or "motion-timeline.svg", trace = found.trace,
    intervals = found.intervals, collisions = found.collisions,
    title = "Motion in " .. archive:match("[^/]*$") }
print("timeline plot: " .. path)
