// The scanner of the expression language, and the one routine that reports parse messages.
//
// All scanner state lives in one ExpressionScanner object made per parse: the input, the read
// offset, one character of push-back, the line and position counters and the error count.
// Identifiers are entered into the context as they are scanned, so variable indices are fixed
// before the parser builds any node.
//
// Position counting: lines and positions start at 1; the position is that of the last character
// read, so a message raised at a token points at the token's last character (or at the character
// just after it, when the scanner had to look one further). Messages are written as
// "<message> at line <line> (position <position>)\n".
#pragma once

#include <functional>
#include <string>
#include <string_view>

class ExpressionEvalContext;

// Receives each formatted message line (ending in a line break).
using ExpressionMessageSink = std::function<void(const std::string& line)>;

// Token kinds above the character range; one-character tokens are their character code, and 0
// ends the input.
enum ExpressionTokenKind {
    kExprTokenEnd = 0,
    kExprTokenNumber = 256,
    kExprTokenString,
    kExprTokenIdentifier,
    kExprTokenEqual,        // ==
    kExprTokenNotEqual,     // !=
    kExprTokenAnd,          // &&
    kExprTokenOr,           // ||
    kExprTokenLessEqual,    // <=
    kExprTokenGreaterEqual, // >=
    kExprTokenShiftLeft,    // <<
    kExprTokenShiftRight,   // >>
    kExprTokenFloor,
    kExprTokenCeil,
    kExprTokenPrint,
    kExprTokenFmod,
    kExprTokenSet,
    kExprTokenStrmatch,
    kExprTokenIf,
    kExprTokenElse,
    kExprTokenWhile,
};

struct ExpressionToken {
    int m_Kind = kExprTokenEnd;
    double m_Number = 0.0; // number literal
    std::string m_Text;    // string literal, at most ExpressionScanner::kMaxStringLength bytes
    int m_Integer = 0;     // identifier: variable index; print: its label
};

class ExpressionScanner {
public:
    static constexpr size_t kMaxStringLength = 255;

    // `sink` may be empty: messages then go to stderr.
    ExpressionScanner(std::string_view text, ExpressionEvalContext& context,
                      ExpressionMessageSink sink);

    // Scans the next token into `token` and answers its kind.
    int Next(ExpressionToken& token);

    // The reporting routine: formats the message at the current line and position, hands it to
    // the sink and counts it.
    void Report(const char* message);

    int ErrorCount() const { return m_ErrorCount; }
    int Line() const { return m_Line; }
    int Position() const { return m_Position; }

private:
    int Get();
    void Unget(int c);
    void ScanNumber(int first, ExpressionToken& token, bool& dropped);
    void ScanString(ExpressionToken& token);
    int ScanWord(int first, ExpressionToken& token);

    std::string_view m_Text;
    size_t m_Offset = 0;
    int m_Line = 1;
    int m_Position = 0;         // of the last character read; 0 before a line's first character
    int m_PreviousPosition = 0; // restores m_Position when a line break is pushed back
    int m_ErrorCount = 0;
    ExpressionEvalContext& m_Context;
    ExpressionMessageSink m_Sink;
};
