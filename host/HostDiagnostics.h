// CHostDiagnostics: where zor-run sends the framework's three failure channels (BelDump lines,
// script errors, assertion failures) for the life of a script.
//
// Every entry is kept for zor.capture(), which hands over what came since its last call. Until
// the script first calls zor.capture, entries are also echoed to stderr, so a plain script shows
// its complaints while a test that checks them stays quiet. Script errors and dump lines carry
// the script position that led to them (file and line), assertions their own.
//
// A call that turns script errors into a Lua error diverts them: while a divert is open, script
// errors written on the host thread go to it instead (the caller raises them).
#pragma once

#include "framework/bel/BelDiagnostics.h"

#include <mutex>
#include <string>
#include <thread>
#include <vector>

class CHostDiagnostics : public IBelDiagnosticSink {
public:
    struct SEntry {
        EBelDiagnosticKind m_Kind;
        std::string m_Text; // without a trailing line break
        std::string m_File; // "" when unknown
        int m_Line = 0;
    };
    // Answers the script position of the running call; false when there is none.
    using Locator = bool (*)(void* context, std::string* file, int* line);

    // Installs itself as the diagnostic sink of the process; the destructor restores the last.
    CHostDiagnostics();
    ~CHostDiagnostics();
    CHostDiagnostics(const CHostDiagnostics&) = delete;
    CHostDiagnostics& operator=(const CHostDiagnostics&) = delete;

    void Write(const SBelDiagnostic& diagnostic) override;
    void SetLocator(Locator locator, void* context);
    // Entries since the last Take; the first Take also ends the echo to stderr.
    std::vector<SEntry> Take();
    bool IsEchoing() const;

    void BeginDivert();
    // Script errors diverted since the matching BeginDivert, joined with "; ".
    std::string EndDivert();

private:
    void Echo(const SEntry& entry) const;

    IBelDiagnosticSink* m_pPrevious;
    const std::thread::id m_HostThread;
    mutable std::mutex m_Mutex;
    std::vector<SEntry> m_Entries;
    std::vector<std::string> m_Diverts; // one per open divert, innermost last
    bool m_Echo = true;
    Locator m_pLocator = nullptr;
    void* m_pLocatorContext = nullptr;
};
