// The variable store shared by a compiled expression and the component that hosts it.
//
// Names are case-sensitive and map to dense indices in the order they are first seen (or
// registered). Each index has a number slot and a string slot. The number slots are one
// contiguous array so that a host can bind fields by index before an evaluation and read results
// back after it, at the cost of an array store.
//
// A host whose variables need side effects (a read that performs an action, a write that changes
// a packet) registers them with RegisterHostVariable before parsing: the tree then routes every
// access to those indices through the virtual Read/Write hooks below. All other indices are plain
// slots and are read directly by the tree.
//
// Invariant: a tree is evaluated only against the context it was parsed with, so every index it
// holds has slots.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

class ExpressionEvalContext {
public:
    ExpressionEvalContext();
    virtual ~ExpressionEvalContext();
    ExpressionEvalContext(const ExpressionEvalContext&) = delete;
    ExpressionEvalContext& operator=(const ExpressionEvalContext&) = delete;

    // Answers the index of `name`; creates it when absent and `create` is set, else answers -1.
    int Lookup(std::string_view name, bool create);
    // Creates (or finds) `name` and makes its accesses go through the host hooks.
    int RegisterHostVariable(std::string_view name);
    bool IsHostVariable(int index) const { return m_HostFlags[static_cast<size_t>(index)] != 0; }

    int Size() const { return static_cast<int>(m_Numbers.size()); }
    const std::string& NameOf(int index) const { return *m_IndexNames[static_cast<size_t>(index)]; }
    // Names in name order (the map's order), with their indices.
    const std::map<std::string, int, std::less<>>& Names() const { return m_Names; }

    // Plain slot access; no hooks are involved.
    double GetNumber(int index) const { return m_Numbers[static_cast<size_t>(index)]; }
    void SetNumber(int index, double value) { m_Numbers[static_cast<size_t>(index)] = value; }
    double* NumberSlots() { return m_Numbers.data(); }
    const std::string& GetString(int index) const { return m_Strings[static_cast<size_t>(index)]; }
    void SetString(int index, std::string_view value);

    // Accesses as a compiled tree makes them: host variables go to the hooks, others to slots.
    double ReadNumber(int index) {
        return IsHostVariable(index) ? ReadHostNumber(index) : GetNumber(index);
    }
    void WriteNumber(int index, double value);
    void ReadString(int index, std::string& out);
    void WriteString(int index, const std::string& value);

    // Host hooks, called only for host variables. The defaults use the slots.
    virtual double ReadHostNumber(int index);
    virtual void WriteHostNumber(int index, double value);
    virtual void ReadHostString(int index, std::string& out);
    virtual void WriteHostString(int index, const std::string& value);

    // Receives each line written by print (the text ends with a line break). The default writes
    // to stderr; a host routes it to its diagnostic output.
    virtual void DebugOutput(std::string_view line);

    // A string result was cut at kMaxStringLength. Reported once (until ResetReports) through
    // RuntimeMessage, with the language's own "string overflow"; evaluation goes on.
    void ReportStringOverflow();
    void ResetReports() { m_OverflowReported = false; }
    // Receives the evaluation's complaints (one line, no line break). The default writes it to
    // DebugOutput; a host routes it to its diagnostic output.
    virtual void RuntimeMessage(std::string_view text);

private:
    int Create(std::string_view name);

    std::map<std::string, int, std::less<>> m_Names;
    std::vector<const std::string*> m_IndexNames; // keys of m_Names, which never move
    std::vector<double> m_Numbers;
    std::vector<std::string> m_Strings;
    std::vector<unsigned char> m_HostFlags;
    bool m_OverflowReported = false;
};
