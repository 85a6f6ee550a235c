// The framework's three failure channels, one entry each:
// - BelDisplayAssert: programming faults (expression, file, line); counted, execution continues;
// - BelReportScriptError: script faults (what CJokCommandContext::OutputErrorString writes);
// - BelDump: run-time complaints, one line each.
// All three go to one replaceable sink: stderr by default, a capture buffer on request.
#pragma once

#include "framework/bel/BelString.h"

#include <mutex>
#include <vector>

enum class EBelDiagnosticKind { Dump, ScriptError, Assertion };

struct SBelDiagnostic {
    EBelDiagnosticKind m_Kind = EBelDiagnosticKind::Dump;
    CBelString m_Text; // for assertions: the expression text
    CBelString m_File; // assertions only
    int m_Line = 0;    // assertions only
};

class IBelDiagnosticSink {
public:
    virtual void Write(const SBelDiagnostic& diagnostic) = 0;

protected:
    ~IBelDiagnosticSink() = default;
};

// Replaces the sink (nullptr restores stderr) and answers the previous one.
IBelDiagnosticSink* BelSetDiagnosticSink(IBelDiagnosticSink* sink);

void BelDump(const char* format, ...) __attribute__((format(printf, 1, 2)));
void BelDisplayAssert(const char* expression, const char* file, int line);
void BelReportScriptError(const char* text);

// For the framework's boundaries (packet processing, timers, messages, calls from scripts),
// inside a catch block: no exception crosses a module or component boundary. Answers what is
// being handled, "out of memory" for std::bad_alloc. Never throws.
CBelString BelDescribeCurrentException() noexcept;
// Writes "<where> -> <what>; <consequence>\n" as a run-time complaint. Never throws.
void BelDumpCurrentException(const char* where, const char* consequence) noexcept;

// Assertions since the process started, and the last one (kind Assertion, or empty).
long BelAssertCount();
SBelDiagnostic BelLastAssert();

// Collects everything written while it is installed; restores the previous sink when destroyed.
class CBelDiagnosticCapture : public IBelDiagnosticSink {
public:
    CBelDiagnosticCapture();
    ~CBelDiagnosticCapture();
    CBelDiagnosticCapture(const CBelDiagnosticCapture&) = delete;
    CBelDiagnosticCapture& operator=(const CBelDiagnosticCapture&) = delete;

    void Write(const SBelDiagnostic& diagnostic) override;
    // Answers what was written since the last Take and forgets it.
    std::vector<SBelDiagnostic> Take();
    // The texts of one kind written so far, concatenated (handy in tests).
    CBelString Text(EBelDiagnosticKind kind) const;

private:
    IBelDiagnosticSink* m_pPrevious;
    mutable std::mutex m_Mutex;
    std::vector<SBelDiagnostic> m_Items;
};

// Load-time initialisers: a library hands them over during static construction; the host runs
// them once with BelRunInitialisers after loading the library.
using BelInitialiser = void (*)();
void BelAddInitialiser(BelInitialiser initialiser);
void BelRunInitialisers();
