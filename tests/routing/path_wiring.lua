-- Wiring by path name as a script sees it: a source may join last, open ends and refused links
-- say where and why, a splitter port can be removed, and a path's chain can be printed.
zor.capture()

-- Members chain in joining order, but the source may come last and still heads the chain.
local late_filter = zor.CreateAdvancedPacketFilter{ dataPath = "pw.late" }
local late_sink = zor.sink{ path = "pw.late" }
local late_source = zor.source{ path = "pw.late" }
assert(late_source.push(zor.packet{ ts = 5 }) and late_sink.count() == 1)
assert(zor.chain("pw.late") == "ScriptSource\n    AdvancedPacketFilter\n        ScriptSink\n")

-- Packets that fall off an open end are reported once per path, naming the last member.
local open_source = zor.source{ path = "pw.open" }
local open_filter = zor.CreateAdvancedPacketFilter{ dataPath = "pw.open" }
open_source.push(zor.packet{})
open_source.push(zor.packet{})
local portless_source = zor.source{ path = "pw.portless" }
local portless = zor.CreateSplitter{ dataPath = "pw.portless" }
portless_source.push(zor.packet{})
portless_source.push(zor.packet{})
local notes = zor.capture()
assert(#notes == 2, #notes)
assert(notes[1].text == "CKorNullModule::Receive -> data path 'pw.open' is not linked after " ..
       "AdvancedPacketFilter: its packets are dropped there", notes[1].text)
assert(notes[2].text == "CZorSplitter::Receive -> the splitter on 'pw.portless' has no ports: " ..
       "its packets are dropped (make one with CreatePort)", notes[2].text)

-- A removed port takes no more packets, and the others go on.
local fan_source = zor.source{ path = "pw.fan" }
local split = zor.CreateSplitter{ dataPath = "pw.fan" }
split.CreatePort{ dataPath = "pw.fan.1" }
local kept = zor.sink{ path = "pw.fan.1" }
local port = split.CreatePort{ dataPath = "pw.fan.2" }
local gone = zor.sink{ path = "pw.fan.2" }
fan_source.push(zor.packet{ ts = 1 })
assert(split.RemovePort{ port = port } == true)
assert(split.RemovePort{ port = port } == false, "once only")
assert(zor.capture()[1].text == "RemovePort: port is not a port of this splitter")
fan_source.push(zor.packet{ ts = 2 })
assert(kept.count() == 2 and gone.count() == 1)
assert(not zor.chain("pw.fan"):find("ScriptSink\n.*ScriptSink"), "one consumer left on the fan")
assert(#zor.capture() == 0, "a port on its splitter's own path is not an open end")

-- A refused link says which paths the component serves.
local ok, err = pcall(zor.connect, "pw.x", zor.source{}, zor.CreateAudioDecoder{})
assert(not ok and err:find("zor.connect: cannot link ScriptSource to AudioDecoder on 'pw.x': " ..
       "AudioDecoder has no module for 'pw.x' (it serves 'audio')", 1, true), err)
print("path wiring: ok")
