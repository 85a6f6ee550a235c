// Per-packet cost of compiled filter scripts, and the one-off cost of compiling a long one.
// The host binds fields by writing the context's number slots before each evaluation, as the
// packet filter does, so the inputs change on every call.

#include "expr/ExpressionEvalContext.h"
#include "expr/ExpressionEvalOp.h"
#include "expr/ExpressionParser.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <string>

namespace {

// DISCARD is an action: a host variable whose read the host answers (and would act on).
class FilterContext : public ExpressionEvalContext {
public:
    FilterContext() {
        m_Type = Lookup("TYPE", true);
        m_FrameType = Lookup("FRAMETYPE", true);
        m_Stream = Lookup("STREAM", true);
        SetNumber(Lookup("VIDEO", true), 9);
        SetNumber(Lookup("IFRAME", true), 0);
        m_Discard = RegisterHostVariable("DISCARD");
    }
    double ReadHostNumber(int) override {
        ++m_Discards;
        return 0.0;
    }
    int m_Type, m_FrameType, m_Stream, m_Discard;
    long m_Discards = 0;
};

// A recorder's mix: a GOP of one key frame and P/B frames, with audio packets in between.
struct Packet {
    double m_Type, m_FrameType, m_Stream;
};
constexpr Packet kPackets[16] = {
    {9, 0, 0}, {1, -1, 1}, {9, 1, 0}, {9, 3, 0}, {1, -1, 1},  {9, 1, 0}, {9, 3, 0}, {2, -1, 4},
    {9, 1, 0}, {1, -1, 1}, {9, 3, 0}, {9, 1, 0}, {1, -1, 13}, {9, 3, 0}, {9, 1, 0}, {1, -1, 1},
};

// The nodes of a tree as it prints: one head or leaf per node ("(set n (+ n 1))" is 4).
int CountNodes(const ExpressionEvalOp& tree) {
    std::string printed;
    tree.Print(printed, nullptr);
    int nodes = 0;
    bool inToken = false;
    for (char c : printed) {
        const bool separator = c == ' ' || c == '(' || c == ')';
        nodes += !separator && !inToken ? 1 : 0;
        inToken = !separator;
    }
    return nodes;
}

void Evaluate(benchmark::State& state, const char* script) {
    FilterContext context;
    auto tree = ExpressionParser::Parse(script, context);
    if (!tree) {
        state.SkipWithError("script does not compile");
        return;
    }
    state.SetLabel(std::to_string(CountNodes(*tree)) + " nodes");
    double* slots = context.NumberSlots();
    unsigned i = 0;
    for (auto _ : state) {
        const Packet& p = kPackets[i++ & 15];
        slots[context.m_Type] = p.m_Type;
        slots[context.m_FrameType] = p.m_FrameType;
        slots[context.m_Stream] = p.m_Stream;
        benchmark::DoNotOptimize(tree->Evaluate(context));
    }
    benchmark::DoNotOptimize(context.m_Discards);
}

// A key-frame test: drop every video frame but key frames.
void BM_EvaluateKeyFrameTest(benchmark::State& state) {
    Evaluate(state, "if (TYPE == VIDEO && FRAMETYPE != IFRAME) { DISCARD; }");
}
BENCHMARK(BM_EvaluateKeyFrameTest);

// A packet counter with fmod, a comparison and a stream mask.
void BM_EvaluateCounterFmodAndMask(benchmark::State& state) {
    Evaluate(state, "n = n + 1; if (fmod(n, 8) < 4 && STREAM & 12) { hits = n; }");
}
BENCHMARK(BM_EvaluateCounterFmodAndMask);

// A longer filter of the kind recorders run: per-stream counters, a key-frame gate and a rate
// limit over several statements.
void BM_EvaluateMultiStatementFilter(benchmark::State& state) {
    Evaluate(state, "n = n + 1;"
                    "if (TYPE == VIDEO) { v = v + 1; if (FRAMETYPE == IFRAME) { k = n; } }"
                    "else { a = a + (STREAM & 3); }"
                    "if (n - k > 25 && TYPE == VIDEO && FRAMETYPE != IFRAME) { DISCARD; }");
}
BENCHMARK(BM_EvaluateMultiStatementFilter);

std::string LongScript(int lines) {
    std::string script;
    for (int i = 1; i <= lines; ++i) {
        const std::string v = "v" + std::to_string(i), prev = "v" + std::to_string(i - 1);
        switch (i % 4) {
        case 0:
            script += v + " = (TYPE == VIDEO && FRAMETYPE != IFRAME) ? fmod(" + prev + " + " +
                      std::to_string(i) + ", 7) : " + std::to_string(i) + " * 2;\n";
            break;
        case 1:
            script += "if (" + prev + " > 3) { " + v + " = " + prev + " - 1; }\n";
            break;
        case 2:
            script += "$s" + v + " = 'line ' + $s" + prev + "; // text\n";
            break;
        default:
            script += v + " = (STREAM & 0xFF) << 2 | " + prev + ";\n";
            break;
        }
    }
    return script;
}

// Compiling a 1,000-line script, names entered into a fresh context each time.
void BM_Parse1000Lines(benchmark::State& state) {
    const std::string script = LongScript(1000);
    for (auto _ : state) {
        ExpressionEvalContext context;
        auto tree = ExpressionParser::Parse(script, context);
        if (!tree) {
            state.SkipWithError("script does not compile");
            return;
        }
        benchmark::DoNotOptimize(tree.get());
    }
    state.SetLabel(std::to_string(script.size()) + " bytes");
}
BENCHMARK(BM_Parse1000Lines)->Unit(benchmark::kMillisecond);

} // namespace
