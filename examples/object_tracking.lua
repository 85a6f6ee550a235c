-- Object tracking on the bundled camera clip: boxes on the people walking, collisions of the
-- boxes with a stretch of the footpath, an annotated contact sheet and snapshots; then the sector
-- grid telling a switched light and a covered camera from people walking.
--
--     zor-run examples/object_tracking.lua [CLIP [DIR]]
local here = arg[0]:match("^(.*)/") or "."
local clip = arg[1] or (here .. "/data/pedestrians.mp4")
local dir = arg[2]
if not dir then
    dir = os.tmpname()
    os.remove(dir)
end
assert(os.execute("mkdir -p '" .. dir .. "'"))

local tracking = dofile(here .. "/lib/tracking.lua")
local result = tracking.main_job(clip, dir)

-- People walk through the whole clip: after the first second nearly every picture has boxes.
assert(result.with_boxes >= result.frames - 10, "boxes in nearly every picture")
assert(result.collisions >= 1, "people cross the footpath mask")
-- The switched light and the covered camera are global changes, at the moments they happen.
local global = {}
for _, c in ipairs(result.scene_changes) do
    if c.scope == "global" then
        global[#global + 1] = c.time
    end
end
assert(#global == 2 and global[1] == 4000 and global[2] == 7000,
    "two global changes: the light at 4 s, the cover at 7 s")
