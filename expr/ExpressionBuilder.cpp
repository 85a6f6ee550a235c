#include "expr/ExpressionBuilder.h"

#include "expr/ExpressionEvalContext.h"
#include "expr/ExpressionEvalFusedOp.h"
#include "expr/ExpressionEvalOp.h"
#include "expr/ExpressionScanner.h"

#include <cstring>

namespace {

constexpr const char* kTypeMismatch = "ExpressionEval: type mismatch";
constexpr const char* kImproperArgument = "ExpressionEval: improper argument type";
constexpr const char* kStackOverflow = "Parser stack overflow";

bool IsNumber(const ExpressionEvalOp* op) {
    return op->GetType() == ExpressionEvalOp::kNumber;
}
bool IsString(const ExpressionEvalOp* op) {
    return op->GetType() == ExpressionEvalOp::kString;
}

} // namespace

ExpressionBuilder::ExpressionBuilder(ExpressionScanner& scanner, ExpressionEvalContext& context)
    : m_Scanner(scanner), m_Context(context) {}

ExpressionBuilder::~ExpressionBuilder() {
    delete m_Root;
}

ExpressionEvalOp* ExpressionBuilder::Refuse(const char* message, ExpressionEvalOp* a,
                                            ExpressionEvalOp* b, ExpressionEvalOp* c) {
    // A missing operand was refused, and reported, already: no message then.
    if (message)
        m_Scanner.Report(message);
    m_Failed = true;
    delete a;
    delete b;
    delete c;
    return nullptr;
}

ExpressionEvalOp* ExpressionBuilder::Checked(ExpressionEvalOp* node) {
    if (node->Depth() <= kMaxDepth)
        return node;
    m_Scanner.Report(kStackOverflow);
    m_Failed = true;
    delete node;
    return nullptr;
}

ExpressionEvalOp* ExpressionBuilder::Number(double value) {
    return new ExpressionEvalNumberOp(value);
}

ExpressionEvalOp* ExpressionBuilder::String(std::string* text) {
    std::unique_ptr<std::string> owned(text);
    return new ExpressionEvalStringOp(std::move(*owned));
}

ExpressionEvalOp* ExpressionBuilder::Variable(int index) {
    m_Uses[index] |= kReadNumber;
    return new ExpressionEvalVarOp(index, m_Context.IsHostVariable(index));
}

ExpressionEvalOp* ExpressionBuilder::StringVariable(int index) {
    m_Uses[index] |= kReadString;
    return new ExpressionEvalStringVarOp(index);
}

ExpressionEvalOp* ExpressionBuilder::Assign(int index, ExpressionEvalOp* value) {
    if (!value)
        return Refuse(nullptr, value);
    if (!IsNumber(value))
        return Refuse(kTypeMismatch, value);
    m_Uses[index] |= kWriteNumber;
    return Checked(new ExpressionEvalSETOp(index, m_Context.IsHostVariable(index), value));
}

ExpressionEvalOp* ExpressionBuilder::StringAssign(int index, ExpressionEvalOp* value) {
    if (!value)
        return Refuse(nullptr, value);
    if (!IsString(value))
        return Refuse(kTypeMismatch, value);
    m_Uses[index] |= kWriteString;
    return Checked(new ExpressionEvalStringSETOp(index, value));
}

ExpressionEvalOp* ExpressionBuilder::Not(ExpressionEvalOp* operand) {
    if (!operand)
        return Refuse(nullptr, operand);
    if (!IsNumber(operand))
        return Refuse(kTypeMismatch, operand);
    return Checked(new ExpressionEvalNotOp(operand));
}

ExpressionEvalOp* ExpressionBuilder::Negate(ExpressionEvalOp* operand) {
    if (!operand)
        return Refuse(nullptr, operand);
    if (!IsNumber(operand))
        return Refuse(kTypeMismatch, operand);
    return Checked(new ExpressionEvalSubOp(nullptr, operand));
}

ExpressionEvalOp* ExpressionBuilder::Operator(Binary kind, ExpressionEvalOp* l,
                                              ExpressionEvalOp* r) {
    if (!l || !r)
        return Refuse(nullptr, l, r);
    const bool numbers = IsNumber(l) && IsNumber(r);
    const bool strings = IsString(l) && IsString(r);
    // "+", "==" and "!=" also work on two strings; everything else wants two numbers.
    if (strings && kind == kAdd)
        return Checked(new ExpressionEvalStringConcatOp(l, r));
    if (strings && kind == kEquals)
        return Checked(new ExpressionEvalStringEqualsOp(l, r));
    if (strings && kind == kNotEquals)
        return Checked(new ExpressionEvalStringNEOp(l, r));
    if (!numbers)
        return Refuse(kTypeMismatch, l, r);

    ExpressionEvalOp* node = nullptr;
    switch (kind) {
    case kAdd:
        node = MakeBinaryOp<ExpressionEvalAddOp>(l, r);
        break;
    case kSub:
        node = MakeBinaryOp<ExpressionEvalSubOp>(l, r);
        break;
    case kTimes:
        node = MakeBinaryOp<ExpressionEvalTimesOp>(l, r);
        break;
    case kDiv:
        node = MakeBinaryOp<ExpressionEvalDivOp>(l, r);
        break;
    case kEquals:
        node = MakeBinaryOp<ExpressionEvalEqualsOp>(l, r);
        break;
    case kNotEquals:
        node = MakeBinaryOp<ExpressionEvalNEOp>(l, r);
        break;
    case kGreater:
        node = MakeBinaryOp<ExpressionEvalGTOp>(l, r);
        break;
    case kLess:
        node = MakeBinaryOp<ExpressionEvalLTOp>(l, r);
        break;
    case kGreaterEqual:
        node = MakeBinaryOp<ExpressionEvalGEOp>(l, r);
        break;
    case kLessEqual:
        node = MakeBinaryOp<ExpressionEvalLEOp>(l, r);
        break;
    case kBitAnd:
        node = MakeBinaryOp<ExpressionEvalBitAndOp>(l, r);
        break;
    case kBitOr:
        node = MakeBinaryOp<ExpressionEvalBitOrOp>(l, r);
        break;
    case kBitXOr:
        node = MakeBinaryOp<ExpressionEvalBitXOrOp>(l, r);
        break;
    case kShiftLeft:
        node = MakeBinaryOp<ExpressionEvalLShiftOp>(l, r);
        break;
    case kShiftRight:
        node = MakeBinaryOp<ExpressionEvalRShiftOp>(l, r);
        break;
    case kLogicalAnd:
        node = MakeLogicalOp<ExpressionEvalLogicalAndOp>(l, r);
        break;
    case kLogicalOr:
        node = MakeLogicalOp<ExpressionEvalLogicalOrOp>(l, r);
        break;
    }
    return Checked(node);
}

ExpressionEvalOp* ExpressionBuilder::Choice(ExpressionEvalOp* condition, ExpressionEvalOp* a,
                                            ExpressionEvalOp* b) {
    if (!condition || !a || !b)
        return Refuse(nullptr, condition, a, b);
    if (!IsNumber(condition) || !IsNumber(a) || !IsNumber(b))
        return Refuse(kTypeMismatch, condition, a, b);
    return Checked(MakeConditionalOp(condition, a, b));
}

ExpressionEvalOp* ExpressionBuilder::If(ExpressionEvalOp* condition, ExpressionEvalOp* thenPart) {
    if (!condition || !thenPart)
        return Refuse(nullptr, condition, thenPart);
    return Checked(MakeConditionalOp(condition, thenPart, nullptr));
}

ExpressionEvalOp* ExpressionBuilder::IfElse(ExpressionEvalOp* condition, ExpressionEvalOp* thenPart,
                                            ExpressionEvalOp* elsePart) {
    if (!condition || !thenPart || !elsePart)
        return Refuse(nullptr, condition, thenPart, elsePart);
    return Checked(MakeConditionalOp(condition, thenPart, elsePart));
}

ExpressionEvalOp* ExpressionBuilder::While(ExpressionEvalOp* condition, ExpressionEvalOp* body) {
    if (!condition || !body)
        return Refuse(nullptr, condition, body);
    if (!IsNumber(condition))
        return Refuse(kImproperArgument, condition, body);
    return Checked(new ExpressionEvalWhileOp(condition, body));
}

ExpressionEvalOp* ExpressionBuilder::Fmod(ExpressionEvalOp* a, ExpressionEvalOp* b) {
    if (!a || !b)
        return Refuse(nullptr, a, b);
    if (!IsNumber(a) || !IsNumber(b))
        return Refuse(kImproperArgument, a, b);
    return Checked(MakeBinaryOp<ExpressionEvalFMODOp>(a, b));
}

ExpressionEvalOp* ExpressionBuilder::Floor(ExpressionEvalOp* a) {
    if (!a)
        return Refuse(nullptr, a);
    if (!IsNumber(a))
        return Refuse(kImproperArgument, a);
    return Checked(new ExpressionEvalFLOOROp(a));
}

ExpressionEvalOp* ExpressionBuilder::Ceil(ExpressionEvalOp* a) {
    if (!a)
        return Refuse(nullptr, a);
    if (!IsNumber(a))
        return Refuse(kImproperArgument, a);
    return Checked(new ExpressionEvalCEILOp(a));
}

ExpressionEvalOp* ExpressionBuilder::Print(int label, ExpressionEvalOp* value) {
    if (!value)
        return Refuse(nullptr, value);
    if ((!IsNumber(value) && !IsString(value)))
        return Refuse(kImproperArgument, value);
    // A label of line * 100 + position splits back into its parts; a complemented PRINTLABEL
    // index stays whole, with position 0.
    const int line = label >= 0 ? label / 100 : label;
    const int position = label >= 0 ? label % 100 : 0;
    if (IsString(value))
        return Checked(new ExpressionEvalStringPRINTOp(line, position, value));
    return Checked(new ExpressionEvalPRINTOp(line, position, value));
}

ExpressionEvalOp* ExpressionBuilder::StrMatch(ExpressionEvalOp* text, ExpressionEvalOp* pattern,
                                              ExpressionEvalOp* flag) {
    if (!text || !pattern || !flag)
        return Refuse(nullptr, text, pattern, flag);
    if (!IsString(text) || !IsString(pattern) || !IsNumber(flag))
        return Refuse(kImproperArgument, text, pattern, flag);
    return Checked(new ExpressionEvalStringMATCHOp(text, pattern, flag));
}

ExpressionEvalOp* ExpressionBuilder::Sequence(ExpressionEvalOp* left, ExpressionEvalOp* right) {
    if (!left || !right)
        return Refuse(nullptr, left, right);
    return Checked(new ExpressionEvalCommaOp(left, right));
}

ExpressionList ExpressionBuilder::StartList(ExpressionEvalOp* statement) {
    if (!statement)
        return {nullptr, nullptr};
    auto* node = new ExpressionEvalCommaOp(statement, nullptr);
    return {node, node};
}

ExpressionList ExpressionBuilder::AppendToList(ExpressionList list, ExpressionEvalOp* statement) {
    if (!statement)
        return list;
    if (!list.m_Head)
        return StartList(statement);
    auto* node = new ExpressionEvalCommaOp(statement, nullptr);
    list.m_Tail->Chain(node);
    list.m_Head->CoverDepth(node->Depth());
    return {list.m_Head, node};
}

ExpressionEvalOp* ExpressionBuilder::CloseList(ExpressionList list) {
    if (!list.m_Head)
        return nullptr;
    return Checked(list.m_Head);
}

void ExpressionBuilder::DeleteList(ExpressionList list) {
    delete list.m_Head;
}

void ExpressionBuilder::SetRoot(ExpressionEvalOp* root) {
    delete m_Root;
    m_Root = root;
}

void ExpressionBuilder::ParserError(const char* message) {
    // The generated parser's texts are translated to the language's own.
    if (std::strcmp(message, "memory exhausted") == 0)
        m_Scanner.Report(kStackOverflow);
    else if (std::strcmp(message, "syntax error") == 0)
        m_Scanner.Report("Syntax error");
    else
        m_Scanner.Report(message);
    m_Failed = true;
}

std::unique_ptr<ExpressionEvalOp> ExpressionBuilder::TakeRoot() {
    std::unique_ptr<ExpressionEvalOp> root(m_Root);
    m_Root = nullptr;
    return root;
}
