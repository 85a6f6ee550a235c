-- Live and archive agree on the bundled camera clip: the level filter over the stamper's levels
-- and the box detector over the object tracker's boxes, while the writer stores every frame;
-- then both archive searches over what was stored.
--
--     zor-run tests/storage/clip_agreement.lua SOURCE_DIR SCRATCH_DIR
local tree, scratch = arg[1] or ".", arg[2] or "/tmp"
local motion = dofile(tree .. "/examples/lib/motion.lua")
local archive = scratch .. "/clip-agreement.db"
for _, suffix in ipairs{ "", "-wal", "-shm" } do os.remove(archive .. suffix) end

local run = motion.record{ clip = tree .. "/examples/data/pedestrians.mp4", archive = archive,
                           camera = "footpath" }
assert(run.frames == 300 and run.fps == 10)
assert(#run.intervals >= 2 and #run.collisions >= 2, "the clip has motion and collisions")
local found = motion.search{ archive = archive, camera = "footpath", fps = run.fps }
assert(found.rows == 300)
assert(motion.same(found.intervals, run.intervals), "levels: archive " ..
    motion.describe(found.intervals) .. ", live " .. motion.describe(run.intervals))
assert(motion.same(found.collisions, run.collisions), "boxes: archive " ..
    motion.describe(found.collisions) .. ", live " .. motion.describe(run.collisions))

-- The same search over the second half only: times from 15 s, intervals cut at the range.
local half = motion.search{ archive = archive, camera = "footpath", fps = run.fps, from = 15000 }
assert(half.rows == 150)
for _, suffix in ipairs{ "", "-wal", "-shm" } do os.remove(archive .. suffix) end
print(string.format("clip: live and archive agree: motion %s; boxes in the mask %s",
    motion.describe(run.intervals), motion.describe(run.collisions)))
