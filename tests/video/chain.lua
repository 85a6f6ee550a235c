-- The video chain from a script, end to end on the bundled clip: the main job's function, then
-- its files read back (the sheet's PNG header, the video through the media source).
local root = arg[1] or "."
local dir = arg[2] or os.tmpname()
os.execute("rm -rf '" .. dir .. "' && mkdir -p '" .. dir .. "'")
local video = dofile(root .. "/examples/lib/video.lua")
local result = video.main_job(root .. "/examples/data/pedestrians.mp4", dir)

assert(#result.levels == 300 and result.frames == 300, "every packet stamped, every frame decoded")
local moving = 0
for _, level in ipairs(result.levels) do
    moving = moving + (level >= video.threshold and 1 or 0)
end
assert(moving >= 290, "people walk through the whole clip: " .. moving)
assert(math.max(table.unpack(result.lawn)) == 0, "nobody walks on the lawn")
assert(result.snapshots == 3, "a snapshot each 10 s of 30 s")

-- The sheet: a PNG of 4 x 3 thumbnails 240 wide (the header's width and height).
local file = assert(io.open(result.sheet, "rb"))
local header = file:read(24)
file:close()
assert(header:sub(2, 4) == "PNG", "a PNG file")
local width, height = string.unpack(">I4I4", header, 17)
assert(width > 4 * 240 and width < 4 * 240 + 40 and height > 3 * 160, width .. "x" .. height)

-- The annotated video: the media source reads it back, frame for frame.
local back = zor.CreatePacketSource{ url = result.video, dataPath = "back", audioPath = "" }
back.quiet = true
back.speed = 0
local sink = zor.sink{ path = "back" }
back.Start()
zor.run_until_idle()
assert(sink.count() == 300 and back.width == 352 and back.height == 240,
    sink.count() .. " frames " .. back.width .. "x" .. back.height)
print("chain: levels, frames, sheet and video all there")
