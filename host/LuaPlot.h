// zor.plot_timeline{...}: a timeline chart of a run (levels, thresholds, intervals, events)
// written as an SVG file. See docs/user-guide.md.
#pragma once

struct lua_State;
struct SLuaFault;

int LuaPlotTimeline(lua_State* L, SLuaFault& fault);
