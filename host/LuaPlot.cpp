#include "host/LuaPlot.h"

#include "host/HostState.h"
#include "host/LuaFields.h"
#include "io/TimelinePlot.h"

#include <lua.hpp>

#include <string>
#include <vector>

namespace {

constexpr const char* kWhat = "zor.plot_timeline";

// The numbers of the array field `name` of the table at index; a missing field is empty.
bool NumberArray(lua_State* L, int index, const char* name, const std::string& where,
                 std::vector<double>* out, SLuaFault& fault) {
    const int type = lua_getfield(L, index, name);
    if (type == LUA_TNIL) {
        lua_pop(L, 1);
        return true;
    }
    if (type != LUA_TTABLE) {
        lua_pop(L, 1);
        fault.Set(std::string(kWhat) + ": " + where + "." + name + " must be an array of numbers");
        return false;
    }
    const lua_Integer count = luaL_len(L, -1);
    out->reserve(static_cast<size_t>(count));
    for (lua_Integer i = 1; i <= count; ++i) {
        if (lua_rawgeti(L, -1, i) != LUA_TNUMBER) {
            lua_pop(L, 2);
            fault.Set(std::string(kWhat) + ": " + where + "." + name + "[" + std::to_string(i) +
                      "] is not a number");
            return false;
        }
        out->push_back(lua_tonumber(L, -1));
        lua_pop(L, 1);
    }
    lua_pop(L, 1);
    return true;
}

std::string EntryName(lua_State* L, int index, const std::string& fallback) {
    std::string name = fallback;
    if (lua_getfield(L, index, "name") == LUA_TSTRING) {
        name = lua_tostring(L, -1);
    }
    lua_pop(L, 1);
    return name;
}

// Calls read(entryIndex, where) for every entry of the array field `list` of the table at 1.
template <typename F> bool ForEachEntry(lua_State* L, const char* list, SLuaFault& fault, F read) {
    const int type = lua_getfield(L, 1, list);
    if (type == LUA_TNIL) {
        lua_pop(L, 1);
        return true;
    }
    if (type != LUA_TTABLE) {
        lua_pop(L, 1);
        fault.Set(std::string(kWhat) + ": field '" + list + "' must be an array of tables");
        return false;
    }
    const lua_Integer count = luaL_len(L, -1);
    for (lua_Integer i = 1; i <= count; ++i) {
        const std::string where = std::string(list) + "[" + std::to_string(i) + "]";
        if (lua_rawgeti(L, -1, i) != LUA_TTABLE) {
            lua_pop(L, 2);
            fault.Set(std::string(kWhat) + ": " + where + " must be a table");
            return false;
        }
        const bool ok = read(lua_gettop(L), where);
        lua_pop(L, 1);
        if (!ok) {
            lua_pop(L, 1);
            return false;
        }
    }
    lua_pop(L, 1);
    return true;
}

bool ReadSeries(lua_State* L, CTimelinePlot& plot, SLuaFault& fault) {
    return ForEachEntry(L, "series", fault, [&](int entry, const std::string& where) {
        std::vector<double> times;
        std::vector<double> values;
        if (!NumberArray(L, entry, "t", where, &times, fault) ||
            !NumberArray(L, entry, "v", where, &values, fault)) {
            return false;
        }
        lua_getfield(L, entry, "step");
        const bool step = lua_toboolean(L, -1) != 0;
        lua_pop(L, 1);
        if (!plot.AddSeries(EntryName(L, entry, where), std::move(times), std::move(values),
                            step)) {
            fault.Set(std::string(kWhat) + ": " + where + ".t and .v differ in length");
            return false;
        }
        return true;
    });
}

bool ReadThresholds(lua_State* L, CTimelinePlot& plot, SLuaFault& fault) {
    return ForEachEntry(L, "thresholds", fault, [&](int entry, const std::string& where) {
        if (lua_getfield(L, entry, "value") != LUA_TNUMBER) {
            lua_pop(L, 1);
            fault.Set(std::string(kWhat) + ": " + where + ".value must be a number");
            return false;
        }
        const double value = lua_tonumber(L, -1);
        lua_pop(L, 1);
        plot.AddThreshold(EntryName(L, entry, where), value);
        return true;
    });
}

bool ReadIntervals(lua_State* L, CTimelinePlot& plot, SLuaFault& fault) {
    return ForEachEntry(L, "intervals", fault, [&](int entry, const std::string& where) {
        std::vector<double> starts;
        std::vector<double> ends;
        if (!NumberArray(L, entry, "starts", where, &starts, fault) ||
            !NumberArray(L, entry, "ends", where, &ends, fault)) {
            return false;
        }
        if (starts.size() != ends.size()) {
            fault.Set(std::string(kWhat) + ": " + where + ".starts and .ends differ in length");
            return false;
        }
        std::vector<CTimelinePlot::Span> spans;
        for (size_t i = 0; i < starts.size(); ++i) {
            spans.emplace_back(starts[i], ends[i]);
        }
        plot.AddIntervals(EntryName(L, entry, where), std::move(spans));
        return true;
    });
}

bool ReadEvents(lua_State* L, CTimelinePlot& plot, SLuaFault& fault) {
    return ForEachEntry(L, "events", fault, [&](int entry, const std::string& where) {
        std::vector<double> times;
        if (!NumberArray(L, entry, "t", where, &times, fault)) {
            return false;
        }
        plot.AddEvents(EntryName(L, entry, where), std::move(times));
        return true;
    });
}

} // namespace

int LuaPlotTimeline(lua_State* L, SLuaFault& fault) {
    CLuaFields fields(L, 1, kWhat);
    fields.Allow({"file", "title", "timeLabel", "valueLabel", "width", "height", "series",
                  "thresholds", "intervals", "events"});
    std::string file;
    std::string title;
    std::string timeLabel = "time (s)";
    std::string valueLabel;
    long long width = 1000;
    long long height = 420;
    if (!fields.String("file", &file) && fields.Ok()) {
        fields.Fail("field 'file' is required");
    }
    fields.String("title", &title);
    fields.String("timeLabel", &timeLabel);
    fields.String("valueLabel", &valueLabel);
    fields.Integer("width", &width);
    fields.Integer("height", &height);
    if (fields.Ok() && (width < 200 || width > 20000 || height < 120 || height > 20000)) {
        fields.Fail("width must be 200..20000 and height 120..20000 pixels");
    }
    if (!fields.Ok()) {
        return fault.Set(fields.Error());
    }
    CTimelinePlot plot;
    plot.SetTitle(title);
    plot.SetAxisLabels(timeLabel, valueLabel);
    plot.SetSize(static_cast<int>(width), static_cast<int>(height));
    if (!ReadSeries(L, plot, fault) || !ReadThresholds(L, plot, fault) ||
        !ReadIntervals(L, plot, fault) || !ReadEvents(L, plot, fault)) {
        return 0;
    }
    std::string error;
    if (!plot.Write(file, &error)) {
        return fault.Set(std::string(kWhat) + ": " + error);
    }
    lua_pushstring(L, file.c_str());
    return 1;
}
