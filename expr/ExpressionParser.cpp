#include "expr/ExpressionParser.h"

#include "expr/ExpressionBuilder.h"
#include "expr/ExpressionEvalContext.h"
#include "expr/ExpressionEvalOp.h"

#include <mutex>

namespace {

// Parses are serialised: hosts share one name table between filters and have always been able
// to rely on one parse at a time. Made on first use, so nothing runs at load time.
std::mutex& ParseLock() {
    static std::mutex lock;
    return lock;
}

struct Parsed {
    ExpressionParseResult m_Result;
    std::map<int, unsigned> m_Uses;
};

Parsed Run(std::string_view text, ExpressionEvalContext& context,
           const ExpressionMessageSink& sink) {
    std::lock_guard<std::mutex> guard(ParseLock());
    ExpressionScanner scanner(text, context, sink);
    ExpressionBuilder builder(scanner, context);
    const int status = ExpressionGrammarParse(&builder);
    Parsed parsed;
    if (status == 0 && !builder.Failed())
        parsed.m_Result.m_Root = builder.TakeRoot();
    parsed.m_Result.m_ErrorCount = scanner.ErrorCount();
    parsed.m_Uses = builder.Uses();
    return parsed;
}

} // namespace

ExpressionParseResult ExpressionParser::ParseScript(std::string_view text,
                                                    ExpressionEvalContext& context,
                                                    const ExpressionMessageSink& sink) {
    return std::move(Run(text, context, sink).m_Result);
}

std::unique_ptr<ExpressionEvalOp> ExpressionParser::Parse(std::string_view text,
                                                          ExpressionEvalContext& context,
                                                          const ExpressionMessageSink& sink) {
    return std::move(Run(text, context, sink).m_Result.m_Root);
}

ExpressionCheckResult ExpressionParser::Check(std::string_view text, ExpressionEvalContext& context,
                                              bool printTree) {
    ExpressionCheckResult check;
    Parsed parsed =
        Run(text, context, [&check](const std::string& line) { check.m_Messages.push_back(line); });
    check.m_Ok = parsed.m_Result.m_Root != nullptr;
    if (check.m_Ok && printTree)
        parsed.m_Result.m_Root->Print(check.m_Tree, &context);
    for (const auto& [name, index] : context.Names()) {
        auto use = parsed.m_Uses.find(index);
        if (use == parsed.m_Uses.end())
            continue;
        ExpressionCheckResult::Variable variable;
        variable.m_Name = name;
        variable.m_Host = context.IsHostVariable(index);
        variable.m_ReadNumber = use->second & ExpressionBuilder::kReadNumber;
        variable.m_WriteNumber = use->second & ExpressionBuilder::kWriteNumber;
        variable.m_ReadString = use->second & ExpressionBuilder::kReadString;
        variable.m_WriteString = use->second & ExpressionBuilder::kWriteString;
        check.m_Variables.push_back(std::move(variable));
    }
    return check;
}

ExpressionCheckResult ExpressionParser::Check(std::string_view text) {
    ExpressionEvalContext context;
    return Check(text, context);
}

std::string ExpressionCheckResult::Format() const {
    std::string out;
    for (const std::string& message : m_Messages)
        out += message;
    if (!m_Ok) {
        out += "failed\n";
        return out;
    }
    out += "variables:\n";
    for (const Variable& v : m_Variables) {
        out += "  " + v.m_Name + (v.m_Host ? " (host)" : "") + ":";
        if (v.m_ReadNumber)
            out += " read";
        if (v.m_WriteNumber)
            out += " set";
        if (v.m_ReadString)
            out += " read-string";
        if (v.m_WriteString)
            out += " set-string";
        out += '\n';
    }
    out += "tree: " + m_Tree + "\n";
    return out;
}
