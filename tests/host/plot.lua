-- zor.plot_timeline writes an SVG file and refuses malformed input with a message naming it.
local dir = arg[2]
local file = dir .. "/timeline.svg"
local path = zor.plot_timeline{ file = file, title = "level", valueLabel = "dB",
    series = { { name = "level", t = { 0, 1, 2 }, v = { 1, 5, 2 } } },
    thresholds = { { name = "threshold", value = 3 } },
    intervals = { { name = "loud", starts = { 0.5 }, ends = { 1.5 } } },
    events = { { name = "start", t = { 0.5 } } } }
assert(path == file)
local text = assert(io.open(file)):read("a")
assert(text:find("^<svg") and text:find("</svg>\n$") and text:find("threshold"))

local function fails(fields, message)
    local ok, err = pcall(zor.plot_timeline, fields)
    assert(not ok and err:find(message, 1, true), err)
end
fails({}, "field 'file' is required")
fails({ file = file, series = { { t = { 1 }, v = { "x" } } } }, "series[1].v[1] is not a number")
fails({ file = file, thresholds = { {} } }, "thresholds[1].value must be a number")
fails({ file = file, intervals = { { starts = { 1 }, ends = {} } } }, "differ in length")
fails({ file = file, width = 10 }, "width must be")
fails({ file = dir .. "/no/such/dir/x.svg" }, "cannot open")
