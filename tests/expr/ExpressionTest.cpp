// The expression language end to end: script text in, value, messages or printed tree out.

#include "expr/ExpressionEvalContext.h"
#include "expr/ExpressionEvalOp.h"
#include "expr/ExpressionParser.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>

namespace {

// A context that keeps what print writes.
class CapturingContext : public ExpressionEvalContext {
public:
    void DebugOutput(std::string_view line) override { m_Output += line; }
    std::string m_Output;
};

struct Compiled {
    CapturingContext m_Context;
    std::unique_ptr<ExpressionEvalOp> m_Tree;
    std::vector<std::string> m_Messages;
};

std::unique_ptr<Compiled> Compile(const std::string& source) {
    auto c = std::make_unique<Compiled>();
    c->m_Tree = ExpressionParser::Parse(
        source, c->m_Context, [&](const std::string& line) { c->m_Messages.push_back(line); });
    return c;
}

double Value(const std::string& source) {
    auto c = Compile(source);
    EXPECT_TRUE(c->m_Tree) << source << ": " << (c->m_Messages.empty() ? "" : c->m_Messages[0]);
    return c->m_Tree ? c->m_Tree->Evaluate(c->m_Context) : -12345.0;
}

const double kInf = std::numeric_limits<double>::infinity();

// ---------------------------------------------------------------------------------------------
// Table 1: source -> value

struct ValueCase {
    const char* m_Source;
    double m_Value;
};

const ValueCase kValues[] = {
    // Arithmetic, precedence and associativity.
    {"1 + 2 * 3", 7},
    {"(1 + 2) * 3", 9},
    {"10 - 4 - 3", 3},
    {"2 * -3", -6},
    {"--2", 2},
    {"1 / 0", kInf},
    {"-1 / 0", -kInf},
    {"fmod(7, 3) + fmod(-7, 3) * 10", -9},
    {"floor(-1.5) * 10 + ceil(1.2)", -18},
    // Comparisons are exact and false on NaN, "!=" included.
    {"0 / 0 == 0 / 0", 0},
    {"x = 0 / 0; x != x", 0},
    {"x = 0 / 0; (x < 1) + (x >= 1) + (x <= 1) + (x > 1)", 0},
    {"0.1 + 0.2 == 0.3", 0},
    {"3 >= 3 && 2 <= 2 && 1 != 2", 1},
    // Truth: "!" compares with 0.0; && || and if truncate to a word first.
    {"!0.5", 0},
    {"!0", 1},
    {"!(0 / 0)", 0},
    {"0.5 && 1", 0},
    {"0.5 || 0", 0},
    {"-1.5 && 1", 1},
    {"4294967296 && 1", 0}, // low word of 2^32 is zero
    {"if (0.5) { 1; } else { 2; }", 2},
    {"if (0) { 5; }", 0},
    {"0.5 ? 1 : 2", 2},
    {"x = 0; 1 || (x = 1); 0 && (x = 2); x", 0},
    // Unsigned 32-bit words.
    {"-1 & 255", 255},
    {"1 << 31", 2147483648.0},
    {"-1 | 0", 4294967295.0},
    {"-1 >> 28", 15},
    {"1 << 33", 2},
    {"6 ^ 3", 5},
    {"4294967301 & 7", 5},       // beyond 32 bits: the low bits
    {"1e300 * 1e300 | 0", 0},    // no integer value: the indefinite integer's low word
    {"(x = 1) & (x = 2); x", 1}, // right operand first
    {"(x = 1) + (x = 2); x", 2}, // left operand first
    // Literals.
    {"0x10 + 1", 17},
    {"0xFFFFFFFF", 4294967295.0},
    {"0x80000000", 2147483648.0},
    {"0x100000000", 4294967295.0},
    {"1.5e1", 15},
    {"010", 10},
    {"12 - 3", 9},
    // Strings.
    {"'a' + 'b' == 'ab'", 1},
    {"'a' != 'A'", 1},
    {"$s = 'x'; $s + 'y' == 'xy'", 1},
    {"$s = 'it\\'s\\\\'; $s == 'it' + '\\'' + 's\\\\'", 1},
    {"strmatch('Camera7', 'cam*', 1)", 1},
    {"strmatch('Camera7', 'cam*', 0)", 0},
    {"strmatch('ab', 'a?', 0)", 1},
    {"strmatch('a', 'a?', 0)", 0},
    {"strmatch('abcbd', 'a*bd', 0)", 1},
    {"strmatch('abcbx', 'a*bd', 0)", 0},
    {"strmatch('ab', 'ab**', 0)", 1},
    {"strmatch('', '*', 0)", 1},
    {"strmatch('a*c', 'a\\\\*c', 0)", 0}, // no escapes: the backslash is literal
    // Statements, assignment, sequences, loops.
    {"a = b = 3; a + b", 6},
    {"set x = 4; x", 4},
    {"1, 2, 3;", 3},
    {"{ 1; 2; } 3", 3},
    {"n = 0; while (n < 5) { n = n + 1; }", 5},
    {"n = 7; while (0) { n = 1; } n", 7},
    {"while (0) { 1; }", 0},
    {"i = 0; s = 0; while (i < 4) { i = i + 1; if (fmod(i, 2)) { s = s + i; } } s", 4},
    {"1 ? 2 : 0 ? 3 : 4", 2},
};

TEST(Expression, EvaluatesToValue) {
    for (const ValueCase& c : kValues) {
        const double value = Value(c.m_Source);
        if (std::isinf(c.m_Value))
            EXPECT_EQ(value, c.m_Value) << c.m_Source;
        else
            EXPECT_DOUBLE_EQ(value, c.m_Value) << c.m_Source;
    }
}

TEST(Expression, ZeroDividedByZeroIsNaN) {
    EXPECT_TRUE(std::isnan(Value("0 / 0")));
}

// ---------------------------------------------------------------------------------------------
// Table 2: source -> first message, its line and position, and how many messages in all

struct MessageCase {
    std::string m_Source;
    const char* m_Message;
    int m_Line;
    int m_Position;
    size_t m_Count;
};

const MessageCase kMessages[] = {
    {"1 +;", "Syntax error", 1, 4, 1},
    {"x = 1;\n\n   y = ;\nz = 2;", "Syntax error", 3, 8, 1},
    {"a = ; b = ;", "Syntax error", 1, 5, 2},
    {"a = ; b ;", "Syntax error", 1, 5, 1}, // quiet until three tokens are shifted again
    {"if (1) x = 1;", "Syntax error", 1, 8, 1},
    {"", "Syntax error", 1, 0, 1},
    {"x = 'a';", "ExpressionEval: type mismatch", 1, 8, 1},
    {"$s = 1;", "ExpressionEval: type mismatch", 1, 7, 1},
    {"1 + 'a';", "ExpressionEval: type mismatch", 1, 8, 1},
    {"'a' < 'b';", "ExpressionEval: type mismatch", 1, 10, 1},
    {"-'a';", "ExpressionEval: type mismatch", 1, 4, 1},
    {"x = (1, 2);", "Syntax error", 1, 7, 1},
    {"1 + 'a' + 2 + 3;", "ExpressionEval: type mismatch", 1, 9, 1}, // one fault, one message
    {"fmod('a', 1);", "ExpressionEval: improper argument type", 1, 12, 1},
    {"floor('a');", "ExpressionEval: improper argument type", 1, 10, 1},
    {"strmatch('a', 1, 0);", "ExpressionEval: improper argument type", 1, 19, 1},
    {"print(print(1));", "ExpressionEval: improper argument type", 1, 15, 1},
    {"while ('a') { 1; }", "ExpressionEval: improper argument type", 1, 18, 1},
    {std::string(1100, '(') + "1", "Parser stack overflow", 1, 999, 1},
    {"x" +
         [] {
             std::string s;
             for (int i = 0; i < 1100; ++i)
                 s += "+x";
             return s;
         }(),
     "Parser stack overflow", 1, 2002, 1},
};

TEST(Expression, ReportsMessageAtLineAndPosition) {
    for (const MessageCase& c : kMessages) {
        auto compiled = Compile(c.m_Source);
        const std::string where = c.m_Source.substr(0, 40);
        EXPECT_FALSE(compiled->m_Tree) << where;
        ASSERT_FALSE(compiled->m_Messages.empty()) << where;
        const std::string expected = std::string(c.m_Message) + " at line " +
                                     std::to_string(c.m_Line) + " (position " +
                                     std::to_string(c.m_Position) + ")\n";
        EXPECT_EQ(compiled->m_Messages[0], expected) << where;
        EXPECT_EQ(compiled->m_Messages.size(), c.m_Count) << where;
    }
}

TEST(Expression, ParseResultCountsMessages) {
    ExpressionEvalContext context;
    std::vector<std::string> lines;
    auto result = ExpressionParser::ParseScript("a = ; b = ;", context,
                                                [&](const std::string& l) { lines.push_back(l); });
    EXPECT_FALSE(result.m_Root);
    EXPECT_EQ(result.m_ErrorCount, 2);
}

TEST(Expression, StringLiteralKeeps255CharactersAndReportsOverflowOnce) {
    for (size_t length : {255u, 256u, 300u}) {
        auto c = Compile("$s = '" + std::string(length, 'a') + "'; 7");
        ASSERT_TRUE(c->m_Tree) << "the literal is truncated, not refused";
        EXPECT_EQ(c->m_Tree->Evaluate(c->m_Context), 7.0);
        EXPECT_EQ(c->m_Context.GetString(c->m_Context.Lookup("s", false)), std::string(255, 'a'));
        if (length == 255) {
            EXPECT_TRUE(c->m_Messages.empty());
        } else {
            ASSERT_EQ(c->m_Messages.size(), 1u) << length;
            EXPECT_EQ(c->m_Messages[0], "string overflow at line 1 (position 262)\n");
        }
    }
}

TEST(Expression, UnterminatedStringIsReportedAndKept) {
    auto c = Compile("$s = 'abc");
    ASSERT_TRUE(c->m_Tree);
    ASSERT_EQ(c->m_Messages.size(), 1u);
    EXPECT_EQ(c->m_Messages[0], "Unterminated string at line 1 (position 9)\n");
    c->m_Tree->Evaluate(c->m_Context);
    EXPECT_EQ(c->m_Context.GetString(c->m_Context.Lookup("s", false)), "abc");
}

TEST(Expression, DefaultSinkWritesToStderr) {
    ExpressionEvalContext context;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(ExpressionParser::Parse("1 +;", context));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Syntax error at line 1 (position 4)\n");
}

// ---------------------------------------------------------------------------------------------
// Table 3: source -> printed tree

struct TreeCase {
    const char* m_Source;
    const char* m_Tree;
};

const TreeCase kTrees[] = {
    {"1 + 2 * 3", "(seq (+ 1 (* 2 3)))"},
    {"-x - y", "(seq (- (neg x) y))"},
    {"a = b = 1.5", "(seq (set a (set b 1.5)))"},
    {"x; y; z", "(seq x (seq y (seq z)))"},
    {"a, b, c;", "(seq (seq (seq a b) c))"},
    {"if (a) { b; } else { c; d; }", "(seq (if a (seq b) (seq c (seq d))))"},
    {"while (i < 3) { i = i + 1; }", "(seq (while (< i 3) (seq (set i (+ i 1)))))"},
    {"$s = 'a' + $t", "(seq (set $s (concat 'a' $t)))"},
    {"'a\\n' == $t || 'b' != $t", "(seq (|| (str== 'a\\n' $t) (str!= 'b' $t)))"},
    {"a ? b : c", "(seq (if a b c))"},
    {"1 | 2 ^ 3 & 4", "(seq (| 1 (^ 2 (& 3 4))))"},
    {"a || b && !c", "(seq (|| a (&& b (! c))))"},
    {"1 < 2 == 1", "(seq (== (< 1 2) 1))"},
    {"1 << 2 + 3", "(seq (<< 1 (+ 2 3)))"},
    {"fmod(floor(x), ceil(y))", "(seq (fmod (floor x) (ceil y)))"},
    {"strmatch($a, 'x*', 1)", "(seq (strmatch $a 'x*' 1))"},
    {"x = 1;\n  print(x)", "(seq (set x 1) (seq (print@2/3 x)))"},
    {"print('t')", "(seq (print@1/1 't'))"},
    {"$PRINTLABEL = 'n'; print(x)", "(seq (set $PRINTLABEL 'n') (seq (print@-1/0 x)))"},
    {"set $s = 'q'", "(seq (set $s 'q'))"},
    {"0x10 + 1e3 // a comment\n", "(seq (+ 16 1000))"},
};

TEST(Expression, PrintsTree) {
    for (const TreeCase& c : kTrees) {
        auto compiled = Compile(c.m_Source);
        ASSERT_TRUE(compiled->m_Tree) << c.m_Source;
        std::string tree;
        compiled->m_Tree->Print(tree, &compiled->m_Context);
        EXPECT_EQ(tree, c.m_Tree) << c.m_Source;
    }
}

// ---------------------------------------------------------------------------------------------
// Print, variables and the host

TEST(Expression, PrintWritesLabelAndValue) {
    auto c = Compile("x = 3;\n  print(x); print('ab' + 'c'); print(0.5)");
    ASSERT_TRUE(c->m_Tree);
    EXPECT_EQ(c->m_Tree->Evaluate(c->m_Context), 0.5);
    EXPECT_EQ(c->m_Context.m_Output, "2/3 = 3.000000\n2/13 = abc\n2/32 = 0.500000\n");
}

TEST(Expression, PrintLabelVariableNamesThePrintAtRunTime) {
    // PRINTLABEL must exist when print is scanned; its text is read when print runs.
    auto c = Compile("$PRINTLABEL = 'first'; print(1); $PRINTLABEL = 'second'; print(2);");
    ASSERT_TRUE(c->m_Tree);
    c->m_Tree->Evaluate(c->m_Context);
    EXPECT_EQ(c->m_Context.m_Output, "first 1.000000\nsecond 2.000000\n");

    auto late = Compile("print(1); $PRINTLABEL = 'late';");
    late->m_Tree->Evaluate(late->m_Context);
    EXPECT_EQ(late->m_Context.m_Output, "1/1 = 1.000000\n");
}

TEST(Expression, VariablesPersistBetweenEvaluations) {
    auto c = Compile("n = n + 1");
    ASSERT_TRUE(c->m_Tree);
    for (int i = 0; i < 3; ++i)
        c->m_Tree->Evaluate(c->m_Context);
    EXPECT_EQ(c->m_Context.GetNumber(c->m_Context.Lookup("n", false)), 3.0);
}

TEST(Expression, ContextAssignsDenseIndicesAndCreatesOnlyOnRequest) {
    ExpressionEvalContext context;
    EXPECT_EQ(context.Lookup("TYPE", true), 0);
    EXPECT_EQ(context.RegisterHostVariable("DISCARD"), 1);
    EXPECT_EQ(context.Lookup("missing", false), -1);
    auto tree = ExpressionParser::Parse("zeta = TYPE; alpha = 1", context);
    ASSERT_TRUE(tree);
    EXPECT_EQ(context.Lookup("zeta", false), 2);
    EXPECT_EQ(context.Lookup("alpha", false), 3);
    EXPECT_EQ(context.Size(), 4);
    EXPECT_EQ(context.NameOf(3), "alpha");
    EXPECT_EQ(context.Names().begin()->first, "DISCARD"); // names iterate in name order
}

// A host that binds fields: reads of DISCARD act, writes of TS go to "the packet".
class HostContext : public CapturingContext {
public:
    HostContext() {
        m_Type = Lookup("TYPE", true);
        Lookup("VIDEO", true);
        SetNumber(Lookup("VIDEO", false), 9);
        m_Discard = RegisterHostVariable("DISCARD");
        m_Ts = RegisterHostVariable("TS");
        m_Text = RegisterHostVariable("TEXTSTR");
    }
    double ReadHostNumber(int index) override {
        if (index == m_Discard)
            ++m_Discards;
        return index == m_Ts ? m_PacketTs : 0.0;
    }
    void WriteHostNumber(int index, double value) override {
        if (index == m_Ts)
            m_PacketTs = value;
    }
    void ReadHostString(int, std::string& out) override { out = m_PacketText; }
    void WriteHostString(int, const std::string& value) override { m_PacketText = value; }

    int m_Type, m_Discard, m_Ts, m_Text;
    int m_Discards = 0;
    double m_PacketTs = 40;
    std::string m_PacketText = "hello";
};

TEST(Expression, HostVariablesGoThroughHooks) {
    HostContext host;
    auto tree = ExpressionParser::Parse(
        "if (TYPE == VIDEO) { DISCARD; } TS = TS + 1; $TEXTSTR = $TEXTSTR + '!'", host);
    ASSERT_TRUE(tree);
    host.SetNumber(host.m_Type, 1);
    tree->Evaluate(host);
    EXPECT_EQ(host.m_Discards, 0);
    host.SetNumber(host.m_Type, 9);
    tree->Evaluate(host);
    EXPECT_EQ(host.m_Discards, 1);
    EXPECT_EQ(host.m_PacketTs, 42.0);
    EXPECT_EQ(host.m_PacketText, "hello!!");
    EXPECT_EQ(host.GetNumber(host.m_Ts), 0.0) << "a host variable's slot is not used";
}

TEST(Expression, CheckReportsVariablesOrMessages) {
    HostContext host;
    auto ok = ExpressionParser::Check("if (TYPE == VIDEO) { DISCARD; } n = n + 1; $l = 'x'", host);
    EXPECT_TRUE(ok.m_Ok);
    EXPECT_EQ(ok.Format(), "variables:\n"
                           "  DISCARD (host): read\n"
                           "  TYPE: read\n"
                           "  VIDEO: read\n"
                           "  l: set-string\n"
                           "  n: read set\n"
                           "tree: (seq (if (== TYPE VIDEO) (seq DISCARD)) (seq (set n (+ n 1)) "
                           "(seq (set $l 'x'))))\n");

    auto bad = ExpressionParser::Check("x = ;\ny = 'a' + 1;");
    EXPECT_FALSE(bad.m_Ok);
    EXPECT_EQ(bad.Format(), "Syntax error at line 1 (position 5)\n"
                            "ExpressionEval: type mismatch at line 2 (position 12)\n"
                            "failed\n");
}

// Operators over plain variables and constants are built as specialised nodes; over host
// variables they are not. Both must give the same bits for every operator and operand shape.
TEST(Expression, SpecialisedNodesMatchGenericOnes) {
    const char* operators[] = {"+",  "-", "*", "/", "==", "!=", ">",  "<", ">=",
                               "<=", "&", "|", "^", "<<", ">>", "&&", "||"};
    const double values[] = {
        0.0, -0.0, 0.5, -1.5, 3, 31, 4294967301.0, std::numeric_limits<double>::quiet_NaN(), kInf};
    std::vector<std::string> scripts;
    for (const char* op : operators) {
        for (const char* shape : {"x %s y", "x %s 3", "(x + 0) %s y", "(x + 0) %s 3", "3 %s y"}) {
            char script[64];
            std::snprintf(script, sizeof script, shape, op);
            scripts.push_back(script);
        }
    }
    scripts.push_back("fmod(x, y) + fmod(x, 3) * 1000");
    scripts.push_back("if (x == 3 && y != 0.5) { 1; } else { 2; }");
    scripts.push_back("if (x < y || y >= 31) { 1; }");
    scripts.push_back("x <= 0 ? 7 : 8");

    for (const std::string& script : scripts) {
        ExpressionEvalContext plain, hosted;
        const int px = plain.Lookup("x", true), py = plain.Lookup("y", true);
        const int hx = hosted.RegisterHostVariable("x"), hy = hosted.RegisterHostVariable("y");
        auto fast = ExpressionParser::Parse(script, plain);
        auto generic = ExpressionParser::Parse(script, hosted);
        ASSERT_TRUE(fast && generic) << script;
        for (double x : values) {
            for (double y : values) {
                plain.SetNumber(px, x);
                plain.SetNumber(py, y);
                hosted.SetNumber(hx, x);
                hosted.SetNumber(hy, y);
                const double a = fast->Evaluate(plain), b = generic->Evaluate(hosted);
                EXPECT_TRUE(std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b)))
                    << script << " x=" << x << " y=" << y << ": " << a << " vs " << b;
            }
        }
    }
}

// The integral fast path of fmod must give the C library's bits, signed zeros included.
TEST(Expression, FmodMatchesTheCLibrary) {
    const double values[] = {0.0, -0.0, 1, -1, 7, -7, 8, -8, 2.5, 1e18, -1e18, 9.3e18, 1e300, -3};
    for (double x : values) {
        for (double y : values) {
            const double a = ExpressionFmod(x, y), b = std::fmod(x, y);
            EXPECT_TRUE(std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b)))
                << x << " fmod " << y << ": " << a << " vs " << b;
        }
    }
}

// Every input the fuzzer ever broke the parser with stays here and must parse without harm.
// A flat script of any length compiles, prints, runs and frees without deep recursion: each of
// these walks once overflowed the stack at about 110,000 statements.
TEST(Expression, LongFlatScriptNeedsNoDeepStack) {
    std::string script;
    for (int i = 0; i < 150000; ++i)
        script += "n = n + 1;";
    ExpressionEvalContext context;
    ExpressionCheckResult check = ExpressionParser::Check(script, context);
    ASSERT_TRUE(check.m_Ok);
    EXPECT_EQ(check.m_Tree.compare(0, 16, "(seq (set n (+ n"), 0) << check.m_Tree.substr(0, 40);
    EXPECT_EQ(check.m_Tree.back(), ')');
    auto tree = ExpressionParser::Parse(script, context);
    ASSERT_TRUE(tree);
    tree->Evaluate(context);
    EXPECT_EQ(context.GetNumber(context.Lookup("n", false)), 150000.0);
}

// A string that doubles on every evaluation levels off at the limit, with one message.
TEST(Expression, StringGrowthStopsAtTheLimitWithOneOverflowMessage) {
    auto c = Compile("$s = $s + $s + 'ab'");
    ASSERT_TRUE(c->m_Tree);
    for (int i = 0; i < 30; ++i)
        c->m_Tree->Evaluate(c->m_Context);
    EXPECT_EQ(c->m_Context.GetString(c->m_Context.Lookup("s", false)).size(), kMaxStringLength);
    EXPECT_EQ(c->m_Context.m_Output, "string overflow (a string holds at most 4194304 "
                                     "characters; the rest was cut)\n");
}

TEST(Expression, ReplaysFuzzRegressions) {
    namespace fs = std::filesystem;
    int files = 0;
    for (const auto& entry : fs::directory_iterator(ZOR_EXPR_REGRESSIONS)) {
        std::ifstream in(entry.path(), std::ios::binary);
        std::stringstream text;
        text << in.rdbuf();
        ExpressionEvalContext context;
        auto tree = ExpressionParser::Parse(text.str(), context, [](const std::string&) {});
        if (tree) {
            std::string printed;
            tree->Print(printed, &context);
        }
        ++files;
    }
    EXPECT_GT(files, 0);
}

} // namespace
