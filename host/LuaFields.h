// CLuaFields: reads the named fields of a parameter table (zor.packet{...}, zor.sink{...})
// without raising. The first fault is kept and words the message; later reads answer false.
//
//     CLuaFields fields(L, 1, "zor.sink");
//     fields.Allow({"path"});
//     std::string path;
//     fields.String("path", &path);
//     if (!fields.Ok()) return fault.Set(fields.Error());
#pragma once

#include <initializer_list>
#include <string>

struct lua_State;

class CLuaFields {
public:
    // A nil at index reads as an empty table; any other non-table is a fault.
    CLuaFields(lua_State* L, int index, std::string what);

    // Each answers true and sets *out when the field is present and of the right type; a missing
    // field answers false and leaves *out; a wrong type records a fault.
    bool Number(const char* name, double* out);
    // A finite number (not NaN, not an infinity).
    bool Finite(const char* name, double* out);
    // A whole number from min to max; NaN, infinities, fractions and values out of range are
    // faults that name the field and the range, never converted. Without a range: +-2^53, the
    // whole numbers a Lua number holds exactly.
    bool Integer(const char* name, long long* out, long long min, long long max);
    bool Integer(const char* name, long long* out);
    bool String(const char* name, std::string* out);
    bool Boolean(const char* name, bool* out);
    // Pushes the field and answers true when it is a table; the caller pops it.
    bool Table(const char* name);
    bool Has(const char* name);
    // The Lua type of the field (LUA_TNIL when absent).
    int Type(const char* name);

    // Records a fault for a field whose name is not among names.
    void Allow(std::initializer_list<const char*> names);
    void Fail(const std::string& message);
    bool Ok() const { return m_Error.empty(); }
    const std::string& Error() const { return m_Error; }

private:
    // Pushes the field (nil when absent or after a fault).
    int Push(const char* name);
    bool WrongType(const char* name, const char* expected);

    lua_State* m_pLua;
    int m_Index = 0; // 0 when there is no table
    std::string m_What;
    std::string m_Error;
};
