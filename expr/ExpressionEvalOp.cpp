#include "expr/ExpressionEvalOp.h"

#include "expr/ExpressionEvalContext.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>

namespace {

// Formats with a printf format into a string; print output is debug text, so allocating is fine.
template <class... Args> std::string Format(const char* format, Args... args) {
    const int size = std::snprintf(nullptr, 0, format, args...);
    std::string text(static_cast<size_t>(size), '\0');
    std::snprintf(text.data(), text.size() + 1, format, args...);
    return text;
}

void PrintChild(std::string& out, const ExpressionEvalOp* child,
                const ExpressionEvalContext* names) {
    out += ' ';
    child->Print(out, names);
}

void PrintVariable(std::string& out, const char* prefix, int index,
                   const ExpressionEvalContext* names) {
    out += prefix;
    if (names && index >= 0 && index < names->Size())
        out += names->NameOf(index);
    else
        out += '#' + std::to_string(index);
}

bool IsTrue(double value) {
    return TruncateToWord(value) != 0;
}

} // namespace

ExpressionEvalOp::~ExpressionEvalOp() = default;

double ExpressionEvalOp::Evaluate(ExpressionEvalContext& context) const {
    if (GetType() == kString) {
        std::string discarded;
        EvaluateString(context, discarded);
    }
    return 0.0;
}

void ExpressionEvalOp::EvaluateString(ExpressionEvalContext&, std::string& out) const {
    out.clear();
}

// ---------------------------------------------------------------------------------------------
// Leaves

void ExpressionEvalNumberOp::Print(std::string& out, const ExpressionEvalContext*) const {
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, m_Value);
    out.append(buffer, result.ptr);
}

double ExpressionEvalVarOp::Evaluate(ExpressionEvalContext& context) const {
    return m_Host ? context.ReadHostNumber(m_Index) : context.GetNumber(m_Index);
}

void ExpressionEvalVarOp::Print(std::string& out, const ExpressionEvalContext* names) const {
    PrintVariable(out, "", m_Index, names);
}

void ExpressionEvalStringOp::EvaluateString(ExpressionEvalContext&, std::string& out) const {
    out = m_Value;
}

void ExpressionEvalStringOp::Print(std::string& out, const ExpressionEvalContext*) const {
    out += '\'';
    for (char c : m_Value) {
        switch (c) {
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        case '\f':
            out += "\\f";
            break;
        case '\'':
            out += "\\'";
            break;
        case '\\':
            out += "\\\\";
            break;
        default:
            out += c;
        }
    }
    out += '\'';
}

void ExpressionEvalStringVarOp::EvaluateString(ExpressionEvalContext& context,
                                               std::string& out) const {
    context.ReadString(m_Index, out);
}

void ExpressionEvalStringVarOp::Print(std::string& out, const ExpressionEvalContext* names) const {
    PrintVariable(out, "$", m_Index, names);
}

// ---------------------------------------------------------------------------------------------
// One operand

ExpressionEvalUnaryOp::ExpressionEvalUnaryOp(ExpressionEvalOp* operand) : m_Operand(operand) {
    m_Depth = operand->Depth() + 1;
}

ExpressionEvalUnaryOp::~ExpressionEvalUnaryOp() {
    delete m_Operand;
}

void ExpressionEvalUnaryOp::Print(std::string& out, const ExpressionEvalContext* names) const {
    out += '(';
    PrintHead(out, names);
    PrintChild(out, m_Operand, names);
    out += ')';
}

double ExpressionEvalNotOp::Evaluate(ExpressionEvalContext& context) const {
    return m_Operand->Evaluate(context) == 0.0 ? 1.0 : 0.0;
}

void ExpressionEvalNotOp::PrintHead(std::string& out, const ExpressionEvalContext*) const {
    out += '!';
}

double ExpressionEvalFLOOROp::Evaluate(ExpressionEvalContext& context) const {
    return std::floor(m_Operand->Evaluate(context));
}

void ExpressionEvalFLOOROp::PrintHead(std::string& out, const ExpressionEvalContext*) const {
    out += "floor";
}

double ExpressionEvalCEILOp::Evaluate(ExpressionEvalContext& context) const {
    return std::ceil(m_Operand->Evaluate(context));
}

void ExpressionEvalCEILOp::PrintHead(std::string& out, const ExpressionEvalContext*) const {
    out += "ceil";
}

double ExpressionEvalSETOp::Evaluate(ExpressionEvalContext& context) const {
    const double value = m_Operand->Evaluate(context);
    if (m_Host)
        context.WriteHostNumber(m_Index, value);
    else
        context.SetNumber(m_Index, value);
    return value;
}

void ExpressionEvalSETOp::PrintHead(std::string& out, const ExpressionEvalContext* names) const {
    PrintVariable(out, "set ", m_Index, names);
}

void ExpressionEvalStringSETOp::EvaluateString(ExpressionEvalContext& context,
                                               std::string& out) const {
    m_Operand->EvaluateString(context, out);
    context.WriteString(m_Index, out);
}

void ExpressionEvalStringSETOp::PrintHead(std::string& out,
                                          const ExpressionEvalContext* names) const {
    PrintVariable(out, "set $", m_Index, names);
}

double ExpressionEvalPRINTOp::Evaluate(ExpressionEvalContext& context) const {
    const double value = m_Operand->Evaluate(context);
    if (m_Line < 0) {
        std::string label;
        context.ReadString(~m_Line, label);
        context.DebugOutput(Format("%s %lf\n", label.c_str(), value));
    } else {
        context.DebugOutput(Format("%d/%d = %lf\n", m_Line, m_Position, value));
    }
    return value;
}

void ExpressionEvalPRINTOp::PrintHead(std::string& out, const ExpressionEvalContext*) const {
    out += Format("print@%d/%d", m_Line, m_Position);
}

double ExpressionEvalStringPRINTOp::Evaluate(ExpressionEvalContext& context) const {
    std::string text;
    m_Operand->EvaluateString(context, text);
    context.DebugOutput(Format("%d/%d = %s\n", m_Line, m_Position, text.c_str()));
    return 0.0;
}

void ExpressionEvalStringPRINTOp::PrintHead(std::string& out, const ExpressionEvalContext*) const {
    out += Format("print@%d/%d", m_Line, m_Position);
}

// ---------------------------------------------------------------------------------------------
// Two operands

ExpressionEvalBinaryOp::ExpressionEvalBinaryOp(ExpressionEvalOp* left, ExpressionEvalOp* right)
    : m_Left(left), m_Right(right) {
    m_Depth = std::max(left ? left->Depth() : 0, right ? right->Depth() : 0) + 1;
}

ExpressionEvalBinaryOp::~ExpressionEvalBinaryOp() {
    delete m_Left;
    delete m_Right;
}

void ExpressionEvalBinaryOp::Print(std::string& out, const ExpressionEvalContext* names) const {
    out += '(';
    out += Symbol();
    if (m_Left)
        PrintChild(out, m_Left, names);
    if (m_Right)
        PrintChild(out, m_Right, names);
    out += ')';
}

#define ZOR_EXPR_LEFT_FIRST(Class)                                                                 \
    double Class::Evaluate(ExpressionEvalContext& context) const {                                 \
        const double l = m_Left->Evaluate(context);                                                \
        return Apply(l, m_Right->Evaluate(context));                                               \
    }
#define ZOR_EXPR_RIGHT_FIRST(Class)                                                                \
    double Class::Evaluate(ExpressionEvalContext& context) const {                                 \
        const double r = m_Right->Evaluate(context);                                               \
        return Apply(m_Left->Evaluate(context), r);                                                \
    }

ZOR_EXPR_LEFT_FIRST(ExpressionEvalAddOp)
ZOR_EXPR_LEFT_FIRST(ExpressionEvalTimesOp)
ZOR_EXPR_LEFT_FIRST(ExpressionEvalDivOp)
ZOR_EXPR_LEFT_FIRST(ExpressionEvalEqualsOp)
ZOR_EXPR_LEFT_FIRST(ExpressionEvalNEOp)
ZOR_EXPR_LEFT_FIRST(ExpressionEvalGTOp)
ZOR_EXPR_LEFT_FIRST(ExpressionEvalLTOp)
ZOR_EXPR_LEFT_FIRST(ExpressionEvalGEOp)
ZOR_EXPR_LEFT_FIRST(ExpressionEvalLEOp)
ZOR_EXPR_LEFT_FIRST(ExpressionEvalFMODOp)
ZOR_EXPR_RIGHT_FIRST(ExpressionEvalBitAndOp)
ZOR_EXPR_RIGHT_FIRST(ExpressionEvalBitOrOp)
ZOR_EXPR_RIGHT_FIRST(ExpressionEvalBitXOrOp)
ZOR_EXPR_RIGHT_FIRST(ExpressionEvalLShiftOp)
ZOR_EXPR_RIGHT_FIRST(ExpressionEvalRShiftOp)

#undef ZOR_EXPR_LEFT_FIRST
#undef ZOR_EXPR_RIGHT_FIRST

double ExpressionEvalSubOp::Evaluate(ExpressionEvalContext& context) const {
    const double l = m_Left ? m_Left->Evaluate(context) : 0.0;
    return l - m_Right->Evaluate(context);
}

void ExpressionEvalSubOp::Print(std::string& out, const ExpressionEvalContext* names) const {
    if (m_Left) {
        ExpressionEvalBinaryOp::Print(out, names);
        return;
    }
    out += "(neg";
    PrintChild(out, m_Right, names);
    out += ')';
}

double ExpressionEvalLogicalAndOp::Evaluate(ExpressionEvalContext& context) const {
    if (!IsTrue(m_Left->Evaluate(context)))
        return 0.0;
    return IsTrue(m_Right->Evaluate(context)) ? 1.0 : 0.0;
}

double ExpressionEvalLogicalOrOp::Evaluate(ExpressionEvalContext& context) const {
    if (IsTrue(m_Left->Evaluate(context)))
        return 1.0;
    return IsTrue(m_Right->Evaluate(context)) ? 1.0 : 0.0;
}

double ExpressionEvalStringEqualsOp::Evaluate(ExpressionEvalContext& context) const {
    std::string l, r;
    m_Left->EvaluateString(context, l);
    m_Right->EvaluateString(context, r);
    return l == r ? 1.0 : 0.0;
}

double ExpressionEvalStringNEOp::Evaluate(ExpressionEvalContext& context) const {
    std::string l, r;
    m_Left->EvaluateString(context, l);
    m_Right->EvaluateString(context, r);
    return l != r ? 1.0 : 0.0;
}

void ExpressionEvalStringConcatOp::EvaluateString(ExpressionEvalContext& context,
                                                  std::string& out) const {
    std::string right;
    m_Left->EvaluateString(context, out);
    m_Right->EvaluateString(context, right);
    if (out.size() + right.size() <= kMaxStringLength) {
        out += right;
        return;
    }
    out.resize(std::min(out.size(), kMaxStringLength));
    out.append(right, 0, kMaxStringLength - out.size());
    context.ReportStringOverflow();
}

ExpressionEvalCommaOp::ExpressionEvalCommaOp(ExpressionEvalOp* left, ExpressionEvalOp* right)
    : ExpressionEvalBinaryOp(left, right) {}

ExpressionEvalCommaOp::~ExpressionEvalCommaOp() {
    // Unlink the chain of list nodes and free it iteratively; each node then owns only its
    // statement.
    ExpressionEvalCommaOp* next = m_Next;
    if (next)
        m_Right = nullptr; // owned through the chain below
    while (next) {
        ExpressionEvalCommaOp* after = next->m_Next;
        next->m_Right = nullptr;
        next->m_Next = nullptr;
        delete next;
        next = after;
    }
}

void ExpressionEvalCommaOp::Print(std::string& out, const ExpressionEvalContext* names) const {
    // The same text as the nested form "(seq s1 (seq s2 ...))", without the nesting.
    const ExpressionEvalCommaOp* node = this;
    int open = 0;
    while (node->m_Next) {
        out += "(seq";
        PrintChild(out, node->m_Left, names);
        out += ' ';
        ++open;
        node = node->m_Next;
    }
    node->ExpressionEvalBinaryOp::Print(out, names);
    out.append(static_cast<size_t>(open), ')');
}

void ExpressionEvalCommaOp::Chain(ExpressionEvalCommaOp* next) {
    m_Right = next;
    m_Next = next;
}

double ExpressionEvalCommaOp::Evaluate(ExpressionEvalContext& context) const {
    const ExpressionEvalCommaOp* node = this;
    while (node->m_Next) {
        node->m_Left->Evaluate(context);
        node = node->m_Next;
    }
    const double value = node->m_Left->Evaluate(context);
    return node->m_Right ? node->m_Right->Evaluate(context) : value;
}

double ExpressionEvalWhileOp::Evaluate(ExpressionEvalContext& context) const {
    double value = 0.0;
    while (m_Left->Evaluate(context) != 0.0)
        value = m_Right->Evaluate(context);
    return value;
}

// ---------------------------------------------------------------------------------------------
// Three operands

ExpressionEvalConditionalOp::ExpressionEvalConditionalOp(ExpressionEvalOp* condition,
                                                         ExpressionEvalOp* thenPart,
                                                         ExpressionEvalOp* elsePart)
    : m_Condition(condition), m_Then(thenPart), m_Else(elsePart) {
    m_Depth =
        std::max({condition->Depth(), thenPart->Depth(), elsePart ? elsePart->Depth() : 0}) + 1;
}

ExpressionEvalConditionalOp::~ExpressionEvalConditionalOp() {
    delete m_Condition;
    delete m_Then;
    delete m_Else;
}

double ExpressionEvalConditionalOp::Evaluate(ExpressionEvalContext& context) const {
    if (IsTrue(m_Condition->Evaluate(context)))
        return m_Then->Evaluate(context);
    return m_Else ? m_Else->Evaluate(context) : 0.0;
}

void ExpressionEvalConditionalOp::Print(std::string& out,
                                        const ExpressionEvalContext* names) const {
    out += "(if";
    PrintChild(out, m_Condition, names);
    PrintChild(out, m_Then, names);
    if (m_Else)
        PrintChild(out, m_Else, names);
    out += ')';
}

ExpressionEvalStringMATCHOp::ExpressionEvalStringMATCHOp(ExpressionEvalOp* text,
                                                         ExpressionEvalOp* pattern,
                                                         ExpressionEvalOp* ignoreCase)
    : m_Text(text), m_Pattern(pattern), m_IgnoreCase(ignoreCase) {
    m_Depth = std::max({text->Depth(), pattern->Depth(), ignoreCase->Depth()}) + 1;
}

ExpressionEvalStringMATCHOp::~ExpressionEvalStringMATCHOp() {
    delete m_Text;
    delete m_Pattern;
    delete m_IgnoreCase;
}

double ExpressionEvalStringMATCHOp::Evaluate(ExpressionEvalContext& context) const {
    std::string text, pattern;
    m_Text->EvaluateString(context, text);
    m_Pattern->EvaluateString(context, pattern);
    const bool ignoreCase = m_IgnoreCase->Evaluate(context) != 0.0;
    return Match(text, pattern, ignoreCase) ? 1.0 : 0.0;
}

void ExpressionEvalStringMATCHOp::Print(std::string& out,
                                        const ExpressionEvalContext* names) const {
    out += "(strmatch";
    PrintChild(out, m_Text, names);
    PrintChild(out, m_Pattern, names);
    PrintChild(out, m_IgnoreCase, names);
    out += ')';
}

bool ExpressionEvalStringMATCHOp::Match(const std::string& text, const std::string& pattern,
                                        bool ignoreCase) {
    auto same = [ignoreCase](char a, char b) {
        if (!ignoreCase)
            return a == b;
        return std::tolower(static_cast<unsigned char>(a)) ==
               std::tolower(static_cast<unsigned char>(b));
    };
    const size_t noStar = std::string::npos;
    size_t t = 0, p = 0;
    size_t afterStar = noStar, starText = 0; // pattern index after the last "*", text index there
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            if (p + 1 == pattern.size())
                return true;
            afterStar = ++p;
            starText = t;
        } else if (p < pattern.size() && (pattern[p] == '?' || same(pattern[p], text[t]))) {
            ++p;
            ++t;
        } else if (afterStar != noStar) {
            p = afterStar;
            t = ++starText;
        } else {
            return false;
        }
    }
    // Stars left over match the empty rest of the text.
    while (p < pattern.size() && pattern[p] == '*')
        ++p;
    return p == pattern.size();
}
