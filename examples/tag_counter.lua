-- Tags a video stream with a counter through a text schema: the filter's script counts video
-- frames; after every fourth frame the script host asks the filter for a text packet of schema 1,
-- whose fields "count" and "camera" are filled from the script's variables. The tags travel in the
-- stream as text packets ("count=4\ncamera=gate\n") that a later filter can read field by field.
--
--   zor-run examples/tag_counter.lua

local src = zor.source{ path = "tags" }
local tagger = zor.CreateAdvancedPacketFilter{ dataPath = "tags" }
local reader = zor.CreateAdvancedPacketFilter{ dataPath = "tags" }
local sink = zor.sink{ path = "tags" }

-- The same schema on both sides: the writer fills it, the reader exposes it to its script.
for _, f in ipairs{ tagger, reader } do
    f.CreateTextSchema{ schemaCode = 1 }
    f.AddTextSchemaField{ schemaCode = 1, variable = "count" }
    f.AddTextSchemaField{ schemaCode = 1, variable = "$camera" }
end
tagger.filter = "if (TYPE == VIDEO) { count = count + 1; }"
tagger.SetStringVar{ variable = "camera", value = "gate" }
reader.filter = "if (SCHEMA == 1) { tags = tags + 1; last = count; }"

for i = 1, 10 do
    src.push(zor.packet{ kind = "video", ts = i * 40, frameType = i % 5 == 1 and "I" or "P" })
    if tagger.GetVariable{ variable = "count" } % 4 == 0 then
        tagger.CreateTextPacket{ schemaCode = 1, timestamp = i * 40 }
    end
end
zor.run_until_idle()

for _, p in ipairs(sink.packets()) do
    if p.kind == "text" then
        print(("tag at %3d ms: %s"):format(p.ts, p.text:gsub("\n", " ")))
    end
end
print(("%d packets out; the reader saw %d tags, the last with count %d"):format(
    sink.count(), reader.GetVariable{ variable = "tags" }, reader.GetVariable{ variable = "last" }))
