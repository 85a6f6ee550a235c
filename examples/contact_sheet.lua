-- A contact sheet of a video file or stream, in one command: thumbnails spread evenly over the
-- whole input, each with its time, in one PNG picture.
--
--     zor-run examples/contact_sheet.lua [INPUT [SHEET.png [COUNT [COLUMNS]]]]
--
-- INPUT is anything the media source opens (a file, rtsp://, udp://, http://); by default the
-- bundled camera clip. The writer decodes the compressed packets itself.
local here = arg[0]:match("^(.*)/") or "."
local input = arg[1] or (here .. "/data/pedestrians.mp4")
local sheet = arg[2]
if not sheet then
    sheet = os.tmpname()
    os.remove(sheet)
    sheet = sheet .. "-contact-sheet.png"
end
local count = tonumber(arg[3] or "12")
local columns = tonumber(arg[4] or "4")

local src = zor.CreatePacketSource{ url = input, audioPath = "" }
if not src then
    io.stderr:write("contact_sheet: cannot open " .. input .. "\n")
    os.exit(1)
end
src.speed = 0 -- as fast as the writer takes the packets
local show = zor.CreateVideoDisplay{ dataPath = "video" }
show.contactSheet = sheet
show.sheetCount = count
show.sheetColumns = columns
src.Start()
zor.run_until_idle()
if not show.Close() then
    io.stderr:write("contact_sheet: " .. show.error .. "\n")
    os.exit(1)
end
print(string.format("%s: %d frames, %dx%d; %d thumbnails in %s", input, show.frames, src.width,
    src.height, math.min(count, show.frames), sheet))
