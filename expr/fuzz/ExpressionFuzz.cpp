// Feeds arbitrary bytes to the scanner and parser, then prints and (when it cannot loop)
// evaluates whatever tree comes out. Any crash, leak or undefined behaviour is a finding; a
// finding's input goes to tests/data/expr-regressions/, which the unit tests replay.

#include "expr/ExpressionEvalContext.h"
#include "expr/ExpressionEvalOp.h"
#include "expr/ExpressionParser.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace {

class QuietContext : public ExpressionEvalContext {
public:
    void DebugOutput(std::string_view) override {}
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    QuietContext context;
    // A host vocabulary, so host-bound nodes are exercised as well.
    context.RegisterHostVariable("DISCARD");
    context.RegisterHostVariable("TS");
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    auto tree = ExpressionParser::Parse(text, context, [](const std::string&) {});
    if (!tree)
        return 0;
    std::string printed;
    tree->Print(printed, &context);
    // A while loop may never end; everything else terminates.
    if (printed.find("(while") == std::string::npos) {
        tree->Evaluate(context);
        std::string out;
        tree->EvaluateString(context, out);
    }
    return 0;
}
