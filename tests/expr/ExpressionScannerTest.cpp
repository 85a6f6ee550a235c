// The scanner alone: number runs, two-character operators, keywords, positions.

#include "expr/ExpressionScanner.h"

#include "expr/ExpressionEvalContext.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

// Scans `source` and renders the tokens: numbers as their value, identifiers as "id:<name>",
// strings quoted, other tokens by kind code.
std::string Tokens(const std::string& source) {
    ExpressionEvalContext context;
    ExpressionScanner scanner(source, context, [](const std::string&) {});
    std::string out;
    ExpressionToken token;
    while (scanner.Next(token) != kExprTokenEnd) {
        if (!out.empty())
            out += ' ';
        switch (token.m_Kind) {
        case kExprTokenNumber: {
            char buffer[40];
            std::snprintf(buffer, sizeof buffer, "%.17g", token.m_Number);
            out += buffer;
            break;
        }
        case kExprTokenIdentifier:
            out += "id:" + context.NameOf(token.m_Integer);
            break;
        case kExprTokenString:
            out += "'" + token.m_Text + "'";
            break;
        default:
            if (token.m_Kind < 256)
                out += static_cast<char>(token.m_Kind);
            else
                out += "#" + std::to_string(token.m_Kind - 256);
        }
    }
    return out;
}

struct RunCase {
    const char* m_Source;
    const char* m_Tokens;
};

// The number run is greedy over "0123456789.abcdefABCDEFxeXE-+" and dropped silently when no
// conversion consumes all of it.
const RunCase kNumberRuns[] = {
    {"42", "42"},
    {"1.5e3", "1500"},
    {"1e-2", "0.01"},
    {"0x1F", "31"},
    {"0XfF", "255"},
    {"010", "10"}, // decimal conversion wins before base 0 is tried
    {"0x7FFFFFFF", "2147483647"},
    {"0xFFFFFFFF", "4294967295"}, // beyond long: retried unsigned
    {"0x1FFFFFFFF", "4294967295"},
    {"12-3", ""}, // one malformed run
    {"1+2", ""},
    {"12 -3", "12 - 3"},
    {"1e", ""},
    {"0x", ""},
    {"1.5.2", ""},
    {"3abc x", "id:x"},
    {"5;7", "5 ; 7"},
    {".5", "5"}, // "." alone is not a token
    {"1e400", "inf"},
};

TEST(ExpressionScanner, ConvertsOrDropsNumberRuns) {
    for (const RunCase& c : kNumberRuns)
        EXPECT_EQ(Tokens(c.m_Source), c.m_Tokens) << c.m_Source;
}

TEST(ExpressionScanner, SplitsOperatorsAndSkipsUnknownCharacters) {
    // Kinds above 256 print as #n in ExpressionTokenKind order after Number, String, Identifier.
    EXPECT_EQ(Tokens("!= ! == = && & || | <= << < >= >> >"),
              "#4 ! #3 = #5 & #6 | #7 #9 < #8 #10 >");
    EXPECT_EQ(Tokens("a_b @ # c1"), "id:a id:b id:c1");
    EXPECT_EQ(Tokens("x // comment = 1\ny"), "id:x id:y");
    EXPECT_EQ(Tokens("a / b"), "id:a / id:b");
    EXPECT_EQ(Tokens("'a\\tb\\q\\''"), "'a\tbq''");
    EXPECT_EQ(Tokens("If if"), "id:If #17");
}

TEST(ExpressionScanner, CountsLinesAndPositionsFromOne) {
    ExpressionEvalContext context;
    ExpressionScanner scanner("ab\n  cd", context, {});
    ExpressionToken token;
    EXPECT_EQ(scanner.Line(), 1);
    scanner.Next(token);
    EXPECT_EQ(scanner.Line(), 1);
    EXPECT_EQ(scanner.Position(), 2);
    scanner.Next(token);
    EXPECT_EQ(scanner.Line(), 2);
    EXPECT_EQ(scanner.Position(), 4);
}

TEST(ExpressionScanner, PrintCarriesItsPlaceOrTheLabelVariable) {
    ExpressionEvalContext context;
    ExpressionToken token;
    ExpressionScanner first("\n   print", context, {});
    ASSERT_EQ(first.Next(token), kExprTokenPrint);
    EXPECT_EQ(token.m_Integer, 2 * 100 + 4);

    context.Lookup("x", true);
    const int label = context.Lookup("PRINTLABEL", true);
    ExpressionScanner second("print", context, {});
    ASSERT_EQ(second.Next(token), kExprTokenPrint);
    EXPECT_EQ(token.m_Integer, ~label);
}

TEST(ExpressionScanner, UnterminatedStringEndsTheLiteral) {
    ExpressionEvalContext context;
    std::vector<std::string> lines;
    ExpressionScanner scanner("'ab\\", context, [&](const std::string& l) { lines.push_back(l); });
    ExpressionToken token;
    ASSERT_EQ(scanner.Next(token), kExprTokenString);
    EXPECT_EQ(token.m_Text, "ab");
    EXPECT_EQ(scanner.Next(token), kExprTokenEnd);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], "Unterminated string at line 1 (position 4)\n");
    EXPECT_EQ(scanner.ErrorCount(), 1);
}

} // namespace
