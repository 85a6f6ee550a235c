#include "expr/ExpressionEvalContext.h"

#include "expr/ExpressionEvalOp.h"

#include <cstdio>
#include <string>

ExpressionEvalContext::ExpressionEvalContext() = default;
ExpressionEvalContext::~ExpressionEvalContext() = default;

int ExpressionEvalContext::Lookup(std::string_view name, bool create) {
    auto it = m_Names.find(name);
    if (it != m_Names.end())
        return it->second;
    return create ? Create(name) : -1;
}

int ExpressionEvalContext::Create(std::string_view name) {
    const int index = static_cast<int>(m_Numbers.size());
    auto [it, inserted] = m_Names.emplace(std::string(name), index);
    m_IndexNames.push_back(&it->first);
    m_Numbers.push_back(0.0);
    m_Strings.emplace_back();
    m_HostFlags.push_back(0);
    return index;
}

int ExpressionEvalContext::RegisterHostVariable(std::string_view name) {
    const int index = Lookup(name, true);
    m_HostFlags[static_cast<size_t>(index)] = 1;
    return index;
}

void ExpressionEvalContext::SetString(int index, std::string_view value) {
    m_Strings[static_cast<size_t>(index)].assign(value);
}

void ExpressionEvalContext::WriteNumber(int index, double value) {
    if (IsHostVariable(index))
        WriteHostNumber(index, value);
    else
        SetNumber(index, value);
}

void ExpressionEvalContext::ReadString(int index, std::string& out) {
    if (IsHostVariable(index))
        ReadHostString(index, out);
    else
        out = GetString(index);
}

void ExpressionEvalContext::WriteString(int index, const std::string& value) {
    if (IsHostVariable(index))
        WriteHostString(index, value);
    else
        SetString(index, value);
}

double ExpressionEvalContext::ReadHostNumber(int index) {
    return GetNumber(index);
}

void ExpressionEvalContext::WriteHostNumber(int index, double value) {
    SetNumber(index, value);
}

void ExpressionEvalContext::ReadHostString(int index, std::string& out) {
    out = GetString(index);
}

void ExpressionEvalContext::WriteHostString(int index, const std::string& value) {
    SetString(index, value);
}

void ExpressionEvalContext::DebugOutput(std::string_view line) {
    std::fwrite(line.data(), 1, line.size(), stderr);
}

void ExpressionEvalContext::ReportStringOverflow() {
    if (m_OverflowReported)
        return;
    m_OverflowReported = true;
    RuntimeMessage("string overflow (a string holds at most " + std::to_string(kMaxStringLength) +
                   " characters; the rest was cut)");
}

void ExpressionEvalContext::RuntimeMessage(std::string_view text) {
    DebugOutput(std::string(text) + "\n");
}
