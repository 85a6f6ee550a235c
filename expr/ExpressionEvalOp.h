// The operation tree of the expression language.
//
// A parse builds one tree of these nodes; the tree is immutable afterwards and is evaluated any
// number of times against the context it was parsed with. Every node owns its children. Numbers
// are doubles throughout; strings are a second value type fixed per node when the tree is built.
//
// Evaluation of a numeric tree allocates nothing and takes no lock. Where the language converts a
// number to an integer (bit operations, shifts, truth of && || and if) it keeps the conversion of
// the language's home platform: truncate to 64 bits and keep the low 32 (see TruncateToWord).
//
// The fifth virtual operation, Print, writes the tree as an s-expression; the parser's golden
// tests and the command-line checker use it.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>

class ExpressionEvalContext;

// The longest string value: literals hold at most 255 characters, and a concatenation is cut
// here ("string overflow"), so a script that doubles a string on every packet levels off
// instead of exhausting memory. Room for a packet's data read through $DATA.
inline constexpr std::size_t kMaxStringLength = std::size_t{1} << 22;

// Converts a double the way the language's home platform does for integer work: truncation toward
// zero to 64 bits, then the low 32 bits. NaN and magnitudes of 2^63 or more give the "indefinite"
// integer 0x8000000000000000, whose low word is 0.
inline std::uint32_t TruncateToWord(double value) {
    if (!(value > -9223372036854775808.0 && value < 9223372036854775808.0))
        return 0;
    return static_cast<std::uint32_t>(static_cast<std::int64_t>(value));
}

// std::fmod, with a fast path for the common integral case (a packet counter modulo a period):
// the C library's fmod slows down in proportion to the quotient's size. The remainder of two
// doubles is always exact, so both paths give the same bits.
inline double ExpressionFmod(double x, double y) {
    constexpr double kLimit = 9223372036854775808.0; // 2^63
    if (x > -kLimit && x < kLimit && y > -kLimit && y < kLimit) {
        const auto xi = static_cast<std::int64_t>(x), yi = static_cast<std::int64_t>(y);
        if (yi != 0 && static_cast<double>(xi) == x && static_cast<double>(yi) == y) {
            const double r = static_cast<double>(xi % yi);
            return r == 0.0 ? std::copysign(0.0, x) : r;
        }
    }
    return std::fmod(x, y);
}

class ExpressionEvalOp {
public:
    enum Type { kNoValue = 0, kNumber = 1, kString = 2 };

    ExpressionEvalOp() = default;
    ExpressionEvalOp(const ExpressionEvalOp&) = delete;
    ExpressionEvalOp& operator=(const ExpressionEvalOp&) = delete;
    virtual ~ExpressionEvalOp();
    // A string node evaluated for its number is evaluated for its side effects and yields 0.
    virtual double Evaluate(ExpressionEvalContext& context) const;
    virtual void EvaluateString(ExpressionEvalContext& context, std::string& out) const;
    virtual int GetType() const { return kNumber; }
    // Appends the s-expression of the tree; variables print by name when `names` is given.
    virtual void Print(std::string& out, const ExpressionEvalContext* names) const = 0;

    // Nesting depth of the tree below and including this node; the parser bounds it so that
    // evaluation and destruction cannot exhaust the machine stack.
    int Depth() const { return m_Depth; }

protected:
    int m_Depth = 1;
};

// ---------------------------------------------------------------------------------------------
// Leaves

class ExpressionEvalNumberOp : public ExpressionEvalOp {
public:
    explicit ExpressionEvalNumberOp(double value) : m_Value(value) {}
    double Evaluate(ExpressionEvalContext&) const override { return m_Value; }
    void Print(std::string& out, const ExpressionEvalContext* names) const override;
    double Value() const { return m_Value; }

private:
    double m_Value;
};

class ExpressionEvalVarOp : public ExpressionEvalOp {
public:
    ExpressionEvalVarOp(int index, bool host) : m_Index(index), m_Host(host) {}
    double Evaluate(ExpressionEvalContext& context) const override;
    void Print(std::string& out, const ExpressionEvalContext* names) const override;
    int Index() const { return m_Index; }
    bool IsHost() const { return m_Host; }

private:
    int m_Index;
    bool m_Host;
};

class ExpressionEvalStringOp : public ExpressionEvalOp {
public:
    explicit ExpressionEvalStringOp(std::string value) : m_Value(std::move(value)) {}
    void EvaluateString(ExpressionEvalContext& context, std::string& out) const override;
    int GetType() const override { return kString; }
    void Print(std::string& out, const ExpressionEvalContext* names) const override;

private:
    std::string m_Value;
};

class ExpressionEvalStringVarOp : public ExpressionEvalOp {
public:
    explicit ExpressionEvalStringVarOp(int index) : m_Index(index) {}
    void EvaluateString(ExpressionEvalContext& context, std::string& out) const override;
    int GetType() const override { return kString; }
    void Print(std::string& out, const ExpressionEvalContext* names) const override;

private:
    int m_Index;
};

// ---------------------------------------------------------------------------------------------
// One operand

class ExpressionEvalUnaryOp : public ExpressionEvalOp {
public:
    explicit ExpressionEvalUnaryOp(ExpressionEvalOp* operand);
    ~ExpressionEvalUnaryOp() override;
    // Writes "(symbol operand)".
    void Print(std::string& out, const ExpressionEvalContext* names) const override;

protected:
    virtual void PrintHead(std::string& out, const ExpressionEvalContext* names) const = 0;
    ExpressionEvalOp* m_Operand;
};

class ExpressionEvalNotOp : public ExpressionEvalUnaryOp {
public:
    using ExpressionEvalUnaryOp::ExpressionEvalUnaryOp;
    double Evaluate(ExpressionEvalContext& context) const override;

protected:
    void PrintHead(std::string& out, const ExpressionEvalContext*) const override;
};

class ExpressionEvalFLOOROp : public ExpressionEvalUnaryOp {
public:
    using ExpressionEvalUnaryOp::ExpressionEvalUnaryOp;
    double Evaluate(ExpressionEvalContext& context) const override;

protected:
    void PrintHead(std::string& out, const ExpressionEvalContext*) const override;
};

class ExpressionEvalCEILOp : public ExpressionEvalUnaryOp {
public:
    using ExpressionEvalUnaryOp::ExpressionEvalUnaryOp;
    double Evaluate(ExpressionEvalContext& context) const override;

protected:
    void PrintHead(std::string& out, const ExpressionEvalContext*) const override;
};

class ExpressionEvalSETOp : public ExpressionEvalUnaryOp {
public:
    ExpressionEvalSETOp(int index, bool host, ExpressionEvalOp* operand)
        : ExpressionEvalUnaryOp(operand), m_Index(index), m_Host(host) {}
    double Evaluate(ExpressionEvalContext& context) const override;

protected:
    void PrintHead(std::string& out, const ExpressionEvalContext* names) const override;

private:
    int m_Index;
    bool m_Host;
};

class ExpressionEvalStringSETOp : public ExpressionEvalUnaryOp {
public:
    ExpressionEvalStringSETOp(int index, ExpressionEvalOp* operand)
        : ExpressionEvalUnaryOp(operand), m_Index(index) {}
    void EvaluateString(ExpressionEvalContext& context, std::string& out) const override;
    int GetType() const override { return kString; }

protected:
    void PrintHead(std::string& out, const ExpressionEvalContext* names) const override;

private:
    int m_Index;
};

// Label: line and position of the print keyword, or, when the script named a "PRINTLABEL"
// variable, the complement of its index in m_Line (and 0 in m_Position).
class ExpressionEvalPRINTOp : public ExpressionEvalUnaryOp {
public:
    ExpressionEvalPRINTOp(std::int32_t line, std::int32_t position, ExpressionEvalOp* operand)
        : ExpressionEvalUnaryOp(operand), m_Line(line), m_Position(position) {}
    double Evaluate(ExpressionEvalContext& context) const override;
    int GetType() const override { return kNoValue; }

protected:
    void PrintHead(std::string& out, const ExpressionEvalContext*) const override;

private:
    std::int32_t m_Line;
    std::int32_t m_Position;
};

class ExpressionEvalStringPRINTOp : public ExpressionEvalUnaryOp {
public:
    ExpressionEvalStringPRINTOp(std::int32_t line, std::int32_t position, ExpressionEvalOp* operand)
        : ExpressionEvalUnaryOp(operand), m_Line(line), m_Position(position) {}
    double Evaluate(ExpressionEvalContext& context) const override;
    int GetType() const override { return kNoValue; }

protected:
    void PrintHead(std::string& out, const ExpressionEvalContext*) const override;

private:
    std::int32_t m_Line;
    std::int32_t m_Position;
};

// ---------------------------------------------------------------------------------------------
// Two operands. Each numeric operator has a static Apply(left, right) so that the specialised
// nodes the parser builds for leaf operands (ExpressionEvalOpFactory) share its arithmetic.

class ExpressionEvalBinaryOp : public ExpressionEvalOp {
public:
    ExpressionEvalBinaryOp(ExpressionEvalOp* left, ExpressionEvalOp* right);
    ~ExpressionEvalBinaryOp() override;
    // Writes "(symbol left right)", or "(symbol left)" when the right part is absent.
    void Print(std::string& out, const ExpressionEvalContext* names) const override;
    const ExpressionEvalOp* Left() const { return m_Left; }
    const ExpressionEvalOp* Right() const { return m_Right; }

protected:
    virtual const char* Symbol() const = 0;
    ExpressionEvalOp* m_Left;
    ExpressionEvalOp* m_Right;
};

// Declares an operator evaluated left then right through Apply.
#define ZOR_EXPR_NUMERIC_BINARY(Class, symbol, ...)                                                \
    class Class : public ExpressionEvalBinaryOp {                                                  \
    public:                                                                                        \
        using ExpressionEvalBinaryOp::ExpressionEvalBinaryOp;                                      \
        static constexpr bool kRightFirst = false;                                                 \
        static double Apply(double l, double r) { __VA_ARGS__ }                                    \
        double Evaluate(ExpressionEvalContext& context) const override;                            \
                                                                                                   \
    protected:                                                                                     \
        const char* Symbol() const override { return symbol; }                                     \
    };

ZOR_EXPR_NUMERIC_BINARY(ExpressionEvalAddOp, "+", return l + r;)
ZOR_EXPR_NUMERIC_BINARY(ExpressionEvalTimesOp, "*", return l * r;)
ZOR_EXPR_NUMERIC_BINARY(ExpressionEvalDivOp, "/", return l / r;)
// Exact comparisons; every comparison with NaN is false, "!=" included.
ZOR_EXPR_NUMERIC_BINARY(ExpressionEvalEqualsOp, "==", return l == r ? 1.0 : 0.0;)
ZOR_EXPR_NUMERIC_BINARY(ExpressionEvalNEOp, "!=", return (l < r || l > r) ? 1.0 : 0.0;)
ZOR_EXPR_NUMERIC_BINARY(ExpressionEvalGTOp, ">", return l > r ? 1.0 : 0.0;)
ZOR_EXPR_NUMERIC_BINARY(ExpressionEvalLTOp, "<", return l < r ? 1.0 : 0.0;)
ZOR_EXPR_NUMERIC_BINARY(ExpressionEvalGEOp, ">=", return l >= r ? 1.0 : 0.0;)
ZOR_EXPR_NUMERIC_BINARY(ExpressionEvalLEOp, "<=", return l <= r ? 1.0 : 0.0;)
ZOR_EXPR_NUMERIC_BINARY(ExpressionEvalFMODOp, "fmod", return ExpressionFmod(l, r);)

// Bit operators and shifts evaluate the right operand first; the order is observable when both
// sides assign, and existing scripts rely on it. Results are unsigned 32-bit words.
#define ZOR_EXPR_WORD_BINARY(Class, symbol, ...)                                                   \
    class Class : public ExpressionEvalBinaryOp {                                                  \
    public:                                                                                        \
        using ExpressionEvalBinaryOp::ExpressionEvalBinaryOp;                                      \
        static constexpr bool kRightFirst = true;                                                  \
        static double Apply(double l, double r) {                                                  \
            const std::uint32_t a = TruncateToWord(l), b = TruncateToWord(r);                      \
            __VA_ARGS__                                                                            \
        }                                                                                          \
        double Evaluate(ExpressionEvalContext& context) const override;                            \
                                                                                                   \
    protected:                                                                                     \
        const char* Symbol() const override { return symbol; }                                     \
    };

ZOR_EXPR_WORD_BINARY(ExpressionEvalBitAndOp, "&", return static_cast<double>(a & b);)
ZOR_EXPR_WORD_BINARY(ExpressionEvalBitOrOp, "|", return static_cast<double>(a | b);)
ZOR_EXPR_WORD_BINARY(ExpressionEvalBitXOrOp, "^", return static_cast<double>(a ^ b);)
ZOR_EXPR_WORD_BINARY(ExpressionEvalLShiftOp, "<<", return static_cast<double>(a << (b & 31u));)
ZOR_EXPR_WORD_BINARY(ExpressionEvalRShiftOp, ">>", return static_cast<double>(a >> (b & 31u));)

#undef ZOR_EXPR_NUMERIC_BINARY
#undef ZOR_EXPR_WORD_BINARY

// Unary minus is a Sub without a left part.
class ExpressionEvalSubOp : public ExpressionEvalBinaryOp {
public:
    using ExpressionEvalBinaryOp::ExpressionEvalBinaryOp;
    static constexpr bool kRightFirst = false;
    static double Apply(double l, double r) { return l - r; }
    double Evaluate(ExpressionEvalContext& context) const override;
    void Print(std::string& out, const ExpressionEvalContext* names) const override;

protected:
    const char* Symbol() const override { return "-"; }
};

// Truth is the truncated word being non-zero, so 0.5 is false here while "!" treats it as true;
// scripts depend on both readings.
class ExpressionEvalLogicalAndOp : public ExpressionEvalBinaryOp {
public:
    using ExpressionEvalBinaryOp::ExpressionEvalBinaryOp;
    double Evaluate(ExpressionEvalContext& context) const override;

protected:
    const char* Symbol() const override { return "&&"; }
};

class ExpressionEvalLogicalOrOp : public ExpressionEvalBinaryOp {
public:
    using ExpressionEvalBinaryOp::ExpressionEvalBinaryOp;
    double Evaluate(ExpressionEvalContext& context) const override;

protected:
    const char* Symbol() const override { return "||"; }
};

class ExpressionEvalStringEqualsOp : public ExpressionEvalBinaryOp {
public:
    using ExpressionEvalBinaryOp::ExpressionEvalBinaryOp;
    double Evaluate(ExpressionEvalContext& context) const override;

protected:
    const char* Symbol() const override { return "str=="; }
};

class ExpressionEvalStringNEOp : public ExpressionEvalBinaryOp {
public:
    using ExpressionEvalBinaryOp::ExpressionEvalBinaryOp;
    double Evaluate(ExpressionEvalContext& context) const override;

protected:
    const char* Symbol() const override { return "str!="; }
};

class ExpressionEvalStringConcatOp : public ExpressionEvalBinaryOp {
public:
    using ExpressionEvalBinaryOp::ExpressionEvalBinaryOp;
    void EvaluateString(ExpressionEvalContext& context, std::string& out) const override;
    int GetType() const override { return kString; }

protected:
    const char* Symbol() const override { return "concat"; }
};

// The sequence of statements (and the "," operator). Statement lists are built leaning right,
// each list node's right part being the next list node, and are walked and destroyed in a loop,
// so a long script costs no machine stack.
class ExpressionEvalCommaOp : public ExpressionEvalBinaryOp {
public:
    ExpressionEvalCommaOp(ExpressionEvalOp* left, ExpressionEvalOp* right);
    ~ExpressionEvalCommaOp() override;
    double Evaluate(ExpressionEvalContext& context) const override;
    int GetType() const override { return kNoValue; }
    // Walks the list in a loop: a flat script of any length prints in constant stack.
    void Print(std::string& out, const ExpressionEvalContext* names) const override;
    // Appends `next` as the right part of this (so far single) sequence node.
    void Chain(ExpressionEvalCommaOp* next);
    // Makes the depth of a list's first node cover a statement appended further down the list
    // (the list itself is walked in a loop and adds no depth).
    void CoverDepth(int depth) { m_Depth = depth > m_Depth ? depth : m_Depth; }

protected:
    const char* Symbol() const override { return "seq"; }

private:
    ExpressionEvalCommaOp* m_Next = nullptr; // m_Right when it is itself a sequence node
};

// No iteration limit: a condition that never becomes exactly 0.0 (NaN included) loops forever.
class ExpressionEvalWhileOp : public ExpressionEvalBinaryOp {
public:
    using ExpressionEvalBinaryOp::ExpressionEvalBinaryOp;
    double Evaluate(ExpressionEvalContext& context) const override;
    int GetType() const override { return kNoValue; }

protected:
    const char* Symbol() const override { return "while"; }
};

// ---------------------------------------------------------------------------------------------
// Three operands

class ExpressionEvalConditionalOp : public ExpressionEvalOp {
public:
    ExpressionEvalConditionalOp(ExpressionEvalOp* condition, ExpressionEvalOp* thenPart,
                                ExpressionEvalOp* elsePart);
    ~ExpressionEvalConditionalOp() override;
    double Evaluate(ExpressionEvalContext& context) const override;
    void Print(std::string& out, const ExpressionEvalContext* names) const override;

protected:
    ExpressionEvalOp* m_Condition;
    ExpressionEvalOp* m_Then;
    ExpressionEvalOp* m_Else; // may be absent
};

class ExpressionEvalStringMATCHOp : public ExpressionEvalOp {
public:
    ExpressionEvalStringMATCHOp(ExpressionEvalOp* text, ExpressionEvalOp* pattern,
                                ExpressionEvalOp* ignoreCase);
    ~ExpressionEvalStringMATCHOp() override;
    double Evaluate(ExpressionEvalContext& context) const override;
    void Print(std::string& out, const ExpressionEvalContext* names) const override;

    // "*" matches any run (empty included), "?" one character, anything else itself; no classes,
    // no escapes; the whole text must be matched by the whole pattern.
    static bool Match(const std::string& text, const std::string& pattern, bool ignoreCase);

private:
    ExpressionEvalOp* m_Text;
    ExpressionEvalOp* m_Pattern;
    ExpressionEvalOp* m_IgnoreCase;
};
