// The semantic actions of the expression grammar: type checks and node building.
//
// Each grammar action is one call here. A builder takes ownership of the nodes it is given. When
// a check fails it reports the message, frees the operands and answers no node; a production
// given a missing operand (one already refused) answers no node silently, so one fault gives one
// message. Any refused production, syntax error or overflow marks the parse as failed.
#pragma once

#include <map>
#include <memory>
#include <string>

class ExpressionEvalCommaOp;
class ExpressionEvalContext;
class ExpressionEvalOp;
class ExpressionScanner;

// A statement list under construction: first and last sequence node. A plain structure because
// it lives on the parser's value stack.
struct ExpressionList {
    ExpressionEvalCommaOp* m_Head;
    ExpressionEvalCommaOp* m_Tail;
};

class ExpressionBuilder {
public:
    enum Binary {
        kAdd,
        kSub,
        kTimes,
        kDiv,
        kEquals,
        kNotEquals,
        kGreater,
        kLess,
        kGreaterEqual,
        kLessEqual,
        kBitAnd,
        kBitOr,
        kBitXOr,
        kShiftLeft,
        kShiftRight,
        kLogicalAnd,
        kLogicalOr,
    };
    // How a script uses a variable, for the command-line checker.
    enum Use : unsigned { kReadNumber = 1, kWriteNumber = 2, kReadString = 4, kWriteString = 8 };

    // Deepest tree accepted: the same bound as the parser's stack, so that evaluating and freeing
    // a tree cannot exhaust the machine stack either.
    static constexpr int kMaxDepth = 1000;

    ExpressionBuilder(ExpressionScanner& scanner, ExpressionEvalContext& context);
    ~ExpressionBuilder();

    ExpressionScanner& Scanner() { return m_Scanner; }

    ExpressionEvalOp* Number(double value);
    ExpressionEvalOp* String(std::string* text);
    ExpressionEvalOp* Variable(int index);
    ExpressionEvalOp* StringVariable(int index);
    ExpressionEvalOp* Assign(int index, ExpressionEvalOp* value);
    ExpressionEvalOp* StringAssign(int index, ExpressionEvalOp* value);
    ExpressionEvalOp* Not(ExpressionEvalOp* operand);
    ExpressionEvalOp* Negate(ExpressionEvalOp* operand);
    ExpressionEvalOp* Operator(Binary kind, ExpressionEvalOp* left, ExpressionEvalOp* right);
    ExpressionEvalOp* Choice(ExpressionEvalOp* condition, ExpressionEvalOp* a, ExpressionEvalOp* b);
    ExpressionEvalOp* If(ExpressionEvalOp* condition, ExpressionEvalOp* thenPart);
    ExpressionEvalOp* IfElse(ExpressionEvalOp* condition, ExpressionEvalOp* thenPart,
                             ExpressionEvalOp* elsePart);
    ExpressionEvalOp* While(ExpressionEvalOp* condition, ExpressionEvalOp* body);
    ExpressionEvalOp* Fmod(ExpressionEvalOp* a, ExpressionEvalOp* b);
    ExpressionEvalOp* Floor(ExpressionEvalOp* a);
    ExpressionEvalOp* Ceil(ExpressionEvalOp* a);
    ExpressionEvalOp* Print(int label, ExpressionEvalOp* value);
    ExpressionEvalOp* StrMatch(ExpressionEvalOp* text, ExpressionEvalOp* pattern,
                               ExpressionEvalOp* flag);
    ExpressionEvalOp* Sequence(ExpressionEvalOp* left, ExpressionEvalOp* right);

    ExpressionList StartList(ExpressionEvalOp* statement);
    ExpressionList AppendToList(ExpressionList list, ExpressionEvalOp* statement);
    ExpressionEvalOp* CloseList(ExpressionList list);
    static void DeleteList(ExpressionList list);

    void SetRoot(ExpressionEvalOp* root);
    // Called by the generated parser with its own message texts.
    void ParserError(const char* message);

    bool Failed() const { return m_Failed; }
    std::unique_ptr<ExpressionEvalOp> TakeRoot();
    const std::map<int, unsigned>& Uses() const { return m_Uses; }

private:
    ExpressionEvalOp* Refuse(const char* message, ExpressionEvalOp* a,
                             ExpressionEvalOp* b = nullptr, ExpressionEvalOp* c = nullptr);
    ExpressionEvalOp* Checked(ExpressionEvalOp* node);

    ExpressionScanner& m_Scanner;
    ExpressionEvalContext& m_Context;
    ExpressionEvalOp* m_Root = nullptr;
    bool m_Failed = false;
    std::map<int, unsigned> m_Uses;
};

// The generated parser (ExpressionGrammar.y): answers 0 when the input was accepted.
int ExpressionGrammarParse(ExpressionBuilder* builder);
