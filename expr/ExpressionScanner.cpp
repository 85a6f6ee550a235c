#include "expr/ExpressionScanner.h"

#include "expr/ExpressionEvalContext.h"

#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int kEndOfInput = -1;

bool IsNumberRunChar(int c) {
    return c != kEndOfInput && c != '\0' && std::strchr("0123456789.abcdefABCDEFxeXE-+", c);
}

// Converts a whole number run, or answers false so that the run is dropped. The conversions
// follow the language's home C library, where strtod reads decimal only and long is 32 bits:
// hexadecimal and octal runs reach strtol, and values beyond the signed 32-bit range are retried
// with strtoul and read as an unsigned 32-bit word (saturating like a 32-bit strtoul).
bool ConvertNumberRun(const std::string& run, double& value) {
    const char* begin = run.c_str();
    const char* whole = begin + run.size();
    char* end = nullptr;
    const bool hex = run.size() > 1 && run[0] == '0' && (run[1] == 'x' || run[1] == 'X');
    if (!hex) {
        value = std::strtod(begin, &end);
        if (end == whole)
            return true;
    }
    errno = 0;
    const long asLong = std::strtol(begin, &end, 0);
    if (errno != ERANGE && asLong <= INT32_MAX) {
        value = static_cast<double>(asLong);
        return end == whole;
    }
    errno = 0;
    unsigned long asUnsigned = std::strtoul(begin, &end, 0);
    if (errno == ERANGE || asUnsigned > UINT32_MAX)
        asUnsigned = UINT32_MAX;
    value = static_cast<double>(static_cast<std::uint32_t>(asUnsigned));
    return end == whole;
}

struct Keyword {
    const char* m_Name;
    int m_Kind;
};

constexpr Keyword kKeywords[] = {
    {"floor", kExprTokenFloor}, {"ceil", kExprTokenCeil}, {"print", kExprTokenPrint},
    {"fmod", kExprTokenFmod},   {"set", kExprTokenSet},   {"strmatch", kExprTokenStrmatch},
    {"if", kExprTokenIf},       {"else", kExprTokenElse}, {"while", kExprTokenWhile},
};

} // namespace

ExpressionScanner::ExpressionScanner(std::string_view text, ExpressionEvalContext& context,
                                     ExpressionMessageSink sink)
    : m_Text(text), m_Context(context), m_Sink(std::move(sink)) {}

void ExpressionScanner::Report(const char* message) {
    char line[160];
    std::snprintf(line, sizeof line, "%s at line %d (position %d)\n", message, m_Line, m_Position);
    ++m_ErrorCount;
    if (m_Sink)
        m_Sink(line);
    else
        std::fputs(line, stderr);
}

int ExpressionScanner::Get() {
    if (m_Offset >= m_Text.size())
        return kEndOfInput;
    const int c = static_cast<unsigned char>(m_Text[m_Offset++]);
    if (c == '\n') {
        ++m_Line;
        m_PreviousPosition = m_Position;
        m_Position = 0;
    } else {
        ++m_Position;
    }
    return c;
}

void ExpressionScanner::Unget(int c) {
    if (c == kEndOfInput)
        return;
    --m_Offset;
    if (c == '\n') {
        --m_Line;
        m_Position = m_PreviousPosition;
    } else {
        --m_Position;
    }
}

int ExpressionScanner::Next(ExpressionToken& token) {
    for (;;) {
        int c = Get();
        while (c != kEndOfInput && std::isspace(c))
            c = Get();
        if (c == kEndOfInput)
            return token.m_Kind = kExprTokenEnd;

        // Two-character operators share their first character with a one-character token.
        auto pair = [&](int second, int both, int single) {
            const int d = Get();
            if (d == second)
                return both;
            Unget(d);
            return single;
        };

        if (std::strchr(",()+-*^?:{};$", c) && c != '\0')
            return token.m_Kind = c;
        switch (c) {
        case '!':
            return token.m_Kind = pair('=', kExprTokenNotEqual, '!');
        case '&':
            return token.m_Kind = pair('&', kExprTokenAnd, '&');
        case '|':
            return token.m_Kind = pair('|', kExprTokenOr, '|');
        case '=':
            return token.m_Kind = pair('=', kExprTokenEqual, '=');
        case '<': {
            const int d = Get();
            if (d == '=')
                return token.m_Kind = kExprTokenLessEqual;
            if (d == '<')
                return token.m_Kind = kExprTokenShiftLeft;
            Unget(d);
            return token.m_Kind = '<';
        }
        case '>': {
            const int d = Get();
            if (d == '=')
                return token.m_Kind = kExprTokenGreaterEqual;
            if (d == '>')
                return token.m_Kind = kExprTokenShiftRight;
            Unget(d);
            return token.m_Kind = '>';
        }
        case '/': {
            const int d = Get();
            if (d != '/') {
                Unget(d);
                return token.m_Kind = '/';
            }
            while (c != kEndOfInput && c != '\n')
                c = Get();
            continue;
        }
        case '\'':
            ScanString(token);
            return token.m_Kind = kExprTokenString;
        default:
            break;
        }

        if (std::isdigit(c)) {
            bool dropped = false;
            ScanNumber(c, token, dropped);
            if (dropped)
                continue; // deliberately lenient: a malformed run vanishes without a message
            return token.m_Kind = kExprTokenNumber;
        }
        if (std::isalpha(c))
            return token.m_Kind = ScanWord(c, token);
        // Any other character is skipped silently.
    }
}

void ExpressionScanner::ScanNumber(int first, ExpressionToken& token, bool& dropped) {
    std::string run(1, static_cast<char>(first));
    int c = Get();
    while (IsNumberRunChar(c)) {
        run += static_cast<char>(c);
        c = Get();
    }
    Unget(c);
    dropped = !ConvertNumberRun(run, token.m_Number);
}

void ExpressionScanner::ScanString(ExpressionToken& token) {
    token.m_Text.clear();
    bool overflowed = false;
    for (;;) {
        int c = Get();
        if (c == kEndOfInput) {
            Report("Unterminated string");
            return;
        }
        if (c == '\'')
            return;
        if (c == '\\') {
            c = Get();
            if (c == kEndOfInput) {
                Report("Unterminated string");
                return;
            }
            switch (c) {
            case 'n':
                c = '\n';
                break;
            case 'r':
                c = '\r';
                break;
            case 't':
                c = '\t';
                break;
            case 'f':
                c = '\f';
                break;
            default:
                break; // the character itself: \' and \\ among others
            }
        }
        if (token.m_Text.size() < kMaxStringLength) {
            token.m_Text += static_cast<char>(c);
        } else if (!overflowed) {
            // Keep reading to the closing quote, so the rest of the literal is not taken for code.
            overflowed = true;
            Report("string overflow");
        }
    }
}

int ExpressionScanner::ScanWord(int first, ExpressionToken& token) {
    const int startLine = m_Line;
    const int startPosition = m_Position;
    std::string word(1, static_cast<char>(first));
    int c = Get();
    while (c != kEndOfInput && std::isalnum(c)) {
        word += static_cast<char>(c);
        c = Get();
    }
    Unget(c);

    for (const Keyword& keyword : kKeywords) {
        if (word != keyword.m_Name)
            continue;
        if (keyword.m_Kind == kExprTokenPrint) {
            // The label says where the print is; a "PRINTLABEL" variable, when the script has
            // one, replaces it by a text chosen at run time (kept as its complemented index).
            const int label = m_Context.Lookup("PRINTLABEL", false);
            token.m_Integer = label >= 0 ? ~label : startLine * 100 + startPosition;
        }
        return keyword.m_Kind;
    }
    token.m_Integer = m_Context.Lookup(word, true);
    return kExprTokenIdentifier;
}
