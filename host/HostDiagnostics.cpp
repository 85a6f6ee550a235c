#include "host/HostDiagnostics.h"

#include <cstdio>

CHostDiagnostics::CHostDiagnostics()
    : m_pPrevious(BelSetDiagnosticSink(this)), m_HostThread(std::this_thread::get_id()) {}

CHostDiagnostics::~CHostDiagnostics() {
    BelSetDiagnosticSink(m_pPrevious);
}

void CHostDiagnostics::SetLocator(Locator locator, void* context) {
    std::lock_guard<std::mutex> lock(m_Mutex);
    m_pLocator = locator;
    m_pLocatorContext = context;
}

void CHostDiagnostics::Write(const SBelDiagnostic& diagnostic) {
    SEntry entry{diagnostic.m_Kind, diagnostic.m_Text.str(), diagnostic.m_File.str(),
                 diagnostic.m_Line};
    if (!entry.m_Text.empty() && entry.m_Text.back() == '\n') {
        entry.m_Text.pop_back();
    }
    const bool onHostThread = std::this_thread::get_id() == m_HostThread;
    std::lock_guard<std::mutex> lock(m_Mutex);
    if (entry.m_Kind == EBelDiagnosticKind::ScriptError && onHostThread && !m_Diverts.empty()) {
        std::string& divert = m_Diverts.back();
        divert += divert.empty() ? "" : "; ";
        divert += entry.m_Text;
        return;
    }
    // The script's position is only known on its own thread.
    if (entry.m_Kind != EBelDiagnosticKind::Assertion && onHostThread && m_pLocator) {
        m_pLocator(m_pLocatorContext, &entry.m_File, &entry.m_Line);
    }
    if (m_Echo) {
        Echo(entry);
    }
    m_Entries.push_back(std::move(entry));
}

void CHostDiagnostics::Echo(const SEntry& entry) const {
    switch (entry.m_Kind) {
    case EBelDiagnosticKind::Dump:
        std::fprintf(stderr, "%s\n", entry.m_Text.c_str());
        break;
    case EBelDiagnosticKind::ScriptError:
        if (entry.m_File.empty()) {
            std::fprintf(stderr, "%s\n", entry.m_Text.c_str());
        } else {
            std::fprintf(stderr, "%s:%d: %s\n", entry.m_File.c_str(), entry.m_Line,
                         entry.m_Text.c_str());
        }
        break;
    case EBelDiagnosticKind::Assertion:
        std::fprintf(stderr, "Assertion failed: %s, file %s, line %d\n", entry.m_Text.c_str(),
                     entry.m_File.c_str(), entry.m_Line);
        break;
    }
}

std::vector<CHostDiagnostics::SEntry> CHostDiagnostics::Take() {
    std::lock_guard<std::mutex> lock(m_Mutex);
    m_Echo = false;
    std::vector<SEntry> entries;
    entries.swap(m_Entries);
    return entries;
}

bool CHostDiagnostics::IsEchoing() const {
    std::lock_guard<std::mutex> lock(m_Mutex);
    return m_Echo;
}

void CHostDiagnostics::BeginDivert() {
    std::lock_guard<std::mutex> lock(m_Mutex);
    m_Diverts.emplace_back();
}

std::string CHostDiagnostics::EndDivert() {
    std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_Diverts.empty()) {
        return {};
    }
    std::string text = std::move(m_Diverts.back());
    m_Diverts.pop_back();
    return text;
}
