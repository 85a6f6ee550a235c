// Compiling scripts of the expression language.
//
//   ExpressionEvalContext context;            // or the host's subclass, its names registered
//   std::unique_ptr<ExpressionEvalOp> tree =
//       ExpressionParser::Parse("if (TYPE == VIDEO) { n = n + 1; }", context);
//   if (tree) { context.SetNumber(...); tree->Evaluate(context); }
//
// Parsing enters every identifier into the context (indices are fixed from then on) and reports
// each message through the sink as one line "<message> at line <l> (position <p>)\n". A parse
// that reports a syntax error, a type error or a stack overflow yields no tree; the scanner's
// complaints about string literals ("string overflow", "Unterminated string") are reported and
// counted but the literal is kept (truncated or ended) and the parse may still succeed.
//
// Parses are serialised by one process-wide lock, so hosts may parse from any thread; evaluation
// takes no lock and belongs to the thread that owns the tree and its context.
#pragma once

#include "expr/ExpressionScanner.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

class ExpressionEvalContext;
class ExpressionEvalOp;

struct ExpressionParseResult {
    std::unique_ptr<ExpressionEvalOp> m_Root; // absent when the parse failed
    int m_ErrorCount = 0;                     // messages reported
};

// What the command-line checker reports of a script.
struct ExpressionCheckResult {
    struct Variable {
        std::string m_Name;
        bool m_Host = false;       // registered by the host before parsing
        bool m_ReadNumber = false; // as a number
        bool m_WriteNumber = false;
        bool m_ReadString = false; // as a "$" string
        bool m_WriteString = false;
    };
    bool m_Ok = false;
    std::vector<std::string> m_Messages; // the formatted lines, in order
    std::vector<Variable> m_Variables;   // by name, those the tree uses
    std::string m_Tree;                  // s-expression of the tree when the parse succeeded

    // The report for a terminal: the messages of a failed parse, or the variables and the tree.
    std::string Format() const;
};

class ExpressionParser {
public:
    // `sink` empty: messages go to stderr.
    static ExpressionParseResult ParseScript(std::string_view text, ExpressionEvalContext& context,
                                             const ExpressionMessageSink& sink = {});
    // Shorthand that answers only the tree.
    static std::unique_ptr<ExpressionEvalOp> Parse(std::string_view text,
                                                   ExpressionEvalContext& context,
                                                   const ExpressionMessageSink& sink = {});
    // Parses `text` for checking, without evaluating it. `context` lets a host register its
    // vocabulary first; the messages are collected rather than written. Without `printTree`
    // the result's m_Tree stays empty (a host compiling a script needs only the uses).
    static ExpressionCheckResult Check(std::string_view text, ExpressionEvalContext& context,
                                       bool printTree = true);
    static ExpressionCheckResult Check(std::string_view text);
};
