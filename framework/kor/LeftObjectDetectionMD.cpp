#include "framework/kor/LeftObjectDetectionMD.h"

#include "framework/bel/BelDiagnostics.h"

CKorLeftObjectDetectionMD* CKorLeftObjectDetectionMD::Find(CKorMetadataHandler* chain) {
    for (CKorMetadataHandler* h = chain; h; h = h->Next()) {
        if (h->GetType() != kMetadataLeftObject) {
            continue;
        }
        if (auto* found = dynamic_cast<CKorLeftObjectDetectionMD*>(h)) {
            return found;
        }
    }
    return nullptr;
}

std::uint16_t CKorLeftObjectDetectionMD::StillTimeFromMs(long milliseconds) {
    if (milliseconds <= 0) {
        return 0;
    }
    const long tenths = milliseconds / 100;
    return tenths > 65535 ? 65535 : static_cast<std::uint16_t>(tenths);
}

void CKorLeftObjectDetectionMD::CopyFrom(const CKorLeftObjectDetectionMD& other) {
    if (&other != this) {
        m_Targets = other.m_Targets;
    }
}

unsigned long CKorLeftObjectDetectionMD::Update(SKorLeftObjectQuery& query, long time, bool valid,
                                                SKorLeftObjectCounters* counters) const {
    SKorLeftObjectCounters found;
    for (const STarget& t : m_Targets) {
        if ((query.m_Type != TYPE_ANY && t.m_Type != query.m_Type) ||
            (query.m_Id != 0 && t.m_Id != query.m_Id)) {
            continue;
        }
        ++found.m_Targets;
        const long still = 100L * t.m_StillTime;
        if (query.m_Duration > 0 && still <= query.m_Duration) {
            continue;
        }
        ++found.m_Entries;
        const unsigned long seconds = static_cast<unsigned long>(still / 1000);
        if (found.m_Entries == 1 || seconds > found.m_LongestStill) {
            found.m_LongestStill = seconds;
            found.m_LongestId = t.m_Id;
        }
    }

    bool scan = false;
    if (valid && time >= query.m_StartTime) {
        const long interval = query.m_Interval;
        if (interval <= 0) {
            scan = true;
        } else if (!query.m_Scanned || time >= query.m_NextScan || time < query.m_LastTime) {
            scan = true;
            query.m_NextScan =
                query.m_StartTime + ((time - query.m_StartTime) / interval + 1) * interval;
        }
        query.m_Scanned = query.m_Scanned || scan;
        query.m_LastTime = time;
    } else if (valid) {
        query.m_Scanned = false; // before the start again: the next scan comes at the start
    }

    const unsigned long needed =
        query.m_Number < 1 ? 1UL : static_cast<unsigned long>(query.m_Number);
    if (!scan || found.m_Entries < needed) {
        found.m_Entries = 0;
    }
    if (counters) {
        *counters = found;
    }
    return found.m_Entries;
}

void CKorLeftObjectDetectionMD::PrintTargetList(const char* caller, long duration) const {
    static const char* const kTypes[] = {"any", "object", "stopped"};
    BelDump("%s -> %d target(s), duration %ld ms\n", caller, GetBoxCount(), duration);
    for (const STarget& t : m_Targets) {
        const char* type = t.m_Type < 3 ? kTypes[t.m_Type] : "unknown";
        const long still = 100L * t.m_StillTime;
        BelDump("%s -> target %lu: %s, box (%u,%u)-(%u,%u), still %ld.%ld s%s\n", caller, t.m_Id,
                type, t.m_Left, t.m_Top, t.m_Right, t.m_Bottom, still / 1000, still / 100 % 10,
                duration <= 0 || still > duration ? ", entry" : "");
    }
}

CKorMetadataHandler* CKorLeftObjectDetectionMD::CloneOne() const {
    auto* copy = new CKorLeftObjectDetectionMD;
    copy->CopyFrom(*this);
    return copy;
}
