#include "framework/bel/BelDiagnostics.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <exception>
#include <new>

namespace {

class CStderrSink : public IBelDiagnosticSink {
public:
    void Write(const SBelDiagnostic& d) override {
        switch (d.m_Kind) {
        case EBelDiagnosticKind::Dump:
            std::fputs(d.m_Text, stderr);
            break;
        case EBelDiagnosticKind::ScriptError:
            std::fprintf(stderr, "%s\n", d.m_Text.c_str());
            break;
        case EBelDiagnosticKind::Assertion:
            std::fprintf(stderr, "Assertion failed: %s, file %s, line %d\n", d.m_Text.c_str(),
                         d.m_File.c_str(), d.m_Line);
            break;
        }
    }
};

struct SDiagnosticsState {
    std::mutex m_Mutex;
    CStderrSink m_Stderr;
    IBelDiagnosticSink* m_pSink = nullptr;
    std::atomic<long> m_AssertCount{0};
    SBelDiagnostic m_LastAssert;
    std::vector<BelInitialiser> m_Initialisers;
};

SDiagnosticsState& State() {
    static SDiagnosticsState state;
    return state;
}

void Emit(const SBelDiagnostic& diagnostic) {
    SDiagnosticsState& s = State();
    IBelDiagnosticSink* sink = nullptr;
    {
        std::lock_guard<std::mutex> lock(s.m_Mutex);
        sink = s.m_pSink ? s.m_pSink : &s.m_Stderr;
    }
    sink->Write(diagnostic);
}

} // namespace

IBelDiagnosticSink* BelSetDiagnosticSink(IBelDiagnosticSink* sink) {
    SDiagnosticsState& s = State();
    std::lock_guard<std::mutex> lock(s.m_Mutex);
    IBelDiagnosticSink* previous = s.m_pSink;
    s.m_pSink = sink;
    return previous;
}

void BelDump(const char* format, ...) {
    SBelDiagnostic d;
    va_list args;
    va_start(args, format);
    d.m_Text.FormatV(format, args);
    va_end(args);
    Emit(d);
}

void BelDisplayAssert(const char* expression, const char* file, int line) {
    SBelDiagnostic d{EBelDiagnosticKind::Assertion, expression, file, line};
    SDiagnosticsState& s = State();
    {
        std::lock_guard<std::mutex> lock(s.m_Mutex);
        s.m_LastAssert = d;
    }
    ++s.m_AssertCount;
    Emit(d);
}

void BelReportScriptError(const char* text) {
    Emit(SBelDiagnostic{EBelDiagnosticKind::ScriptError, text, {}, 0});
}

long BelAssertCount() {
    return State().m_AssertCount.load();
}

SBelDiagnostic BelLastAssert() {
    SDiagnosticsState& s = State();
    std::lock_guard<std::mutex> lock(s.m_Mutex);
    return s.m_LastAssert;
}

CBelDiagnosticCapture::CBelDiagnosticCapture() : m_pPrevious(BelSetDiagnosticSink(this)) {}

CBelDiagnosticCapture::~CBelDiagnosticCapture() {
    BelSetDiagnosticSink(m_pPrevious);
}

void CBelDiagnosticCapture::Write(const SBelDiagnostic& diagnostic) {
    std::lock_guard<std::mutex> lock(m_Mutex);
    m_Items.push_back(diagnostic);
}

std::vector<SBelDiagnostic> CBelDiagnosticCapture::Take() {
    std::lock_guard<std::mutex> lock(m_Mutex);
    std::vector<SBelDiagnostic> items;
    items.swap(m_Items);
    return items;
}

CBelString CBelDiagnosticCapture::Text(EBelDiagnosticKind kind) const {
    std::lock_guard<std::mutex> lock(m_Mutex);
    CBelString text;
    for (const SBelDiagnostic& d : m_Items) {
        if (d.m_Kind == kind) {
            text += d.m_Text;
        }
    }
    return text;
}

void BelAddInitialiser(BelInitialiser initialiser) {
    SDiagnosticsState& s = State();
    std::lock_guard<std::mutex> lock(s.m_Mutex);
    s.m_Initialisers.push_back(initialiser);
}

void BelRunInitialisers() {
    std::vector<BelInitialiser> pending;
    {
        SDiagnosticsState& s = State();
        std::lock_guard<std::mutex> lock(s.m_Mutex);
        pending.swap(s.m_Initialisers);
    }
    for (BelInitialiser initialiser : pending) {
        initialiser();
    }
}

CBelString BelDescribeCurrentException() noexcept {
    try {
        try {
            throw;
        } catch (const std::bad_alloc&) {
            return "out of memory";
        } catch (const std::exception& e) {
            return e.what();
        } catch (...) {
            return "an unknown exception";
        }
    } catch (...) {
        return CBelString(); // not even the text could be made
    }
}

void BelDumpCurrentException(const char* where, const char* consequence) noexcept {
    try {
        BelDump("%s -> %s; %s\n", where, BelDescribeCurrentException().c_str(), consequence);
    } catch (...) {
        std::fputs("a diagnostic could not be written (out of memory)\n", stderr);
    }
}
