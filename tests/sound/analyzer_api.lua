-- The analyzer and detector as a script sees them: names, read-only values, the
-- threshold modes, callback arguments and the messages. Run from the project root.
local analyzer = zor.CreateAudioAnalyzer2{}
local names = table.concat(zor.properties(analyzer), " ")
for _, name in ipairs{ "level", "maximizeTo", "suppressBelow", "GetDetector" } do
    assert(names:find(name, 1, true), name)
end
assert(analyzer.level == 0 and analyzer.maximizeTo == 0 and analyzer.suppressBelow == 0)
assert(not pcall(function() analyzer.level = 1 end), "level is read-only")
analyzer.maximizeTo = 20000
assert(analyzer.maximizeTo == 20000)

local detector = analyzer.GetDetector{ detectionWindow = 0, baselineWindow = 10 }
assert(detector.debounce == 0.1 and detector.detectSeparation == 10)
assert(detector.baselineSearchPeriod == 2 and detector.peakValue == 0)
assert(detector.threshold == 0 and detector.multiplierThreshold == nil, "absolute mode first")
detector.multiplierThreshold = 3
assert(detector.threshold == nil and detector.multiplierThreshold == 3, "one value, two modes")
assert(not pcall(function() detector.detectionValue = 1 end), "detectionValue is read-only")
assert(not pcall(function() detector.baselineValue = 1 end), "baselineValue is read-only")

-- GetDetector without its windows makes nothing, with the parameter message.
zor.capture()
assert(analyzer.GetDetector{ detectionWindow = 1 } == nil)
assert(analyzer.GetDetector{ detectionWindow = -1, baselineWindow = 1 } == nil)
local notes = zor.capture()
assert(#notes == 2 and notes[1].text:find("baselineWindow"), notes[1] and notes[1].text)
assert(notes[2].text:find("must be seconds, 0 or more", 1, true))

-- onDetect(detected, time, detector), inside the packet's step.
analyzer.maximizeTo = 0
detector.threshold = 50
detector.debounce = 0
local calls = {}
detector.onDetect = function(detected, time, self)
    calls[#calls + 1] = { detected, time, self == detector }
end
local src, sink = zor.source{}, zor.sink{}
zor.connect("audio", src, analyzer, sink)
local function push(rts, value)
    assert(src.push(zor.packet{ kind = "audio", rts = rts, format = { rate = 8000 },
                                data = string.rep(string.pack("<i2", value), 720) }))
end
push(1.0, 100)
push(1.09, 8000)
push(1.18, 8000)
assert(#calls == 1 and calls[1][1] == true and calls[1][2] == 1.18 and calls[1][3],
       "started at the packet's real time, with the detector last")
assert(detector.peakValue == 8000 * 8000 / 65536)
detector.peakValue = 0 -- scripts may reset it
assert(detector.peakValue == 0)
detector = nil
collectgarbage()
push(1.27, 8000) -- the dropped detector hears nothing and costs nothing
assert(#calls == 1)

print("analyzer api: ok")
