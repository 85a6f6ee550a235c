#include "analytics/counting/PeopleCountFilter.h"

#include "entry/Registry.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/Command.h"
#include "framework/jok/PropertyMap.h"
#include "framework/kor/Packet.h"

#include <cstdint>

namespace {

constexpr DWORD kHandlerTag = MakeFourCC('Z', 'K', 'V', 'A');

} // namespace

CZorPeopleCountFilter::CZorPeopleCountFilter()
    : CZorMetadataFilter("PeopleCountFilter", kHandlerTag) {}

void CZorPeopleCountFilter::GetCounters(unsigned long* entries, unsigned long* exits,
                                        long* occupancy) const {
    *entries = m_Scan.m_Open ? m_Scan.m_Entries : 0;
    *exits = m_Scan.m_Open ? m_Scan.m_Exits : 0;
    *occupancy = m_Scan.m_Occupancy;
}

void CZorPeopleCountFilter::ScanChanged() {
    m_Scan = SKorPeopleCountScan{};
    m_Scan.m_StartTime = GetStartTime();
    m_Scan.m_Interval = GetInterval();
}

void CZorPeopleCountFilter::Read(const CKorPacket& packet, CKorMetadataHandler* handler) {
    if (CKorPeopleCountingMD* found = CKorPeopleCountingMD::Find(handler)) {
        SKorPeopleCountInterval closed{};
        if (found->Update(m_Scan, packet.GetTimeStamp(), packet.IsTimeStampValid(), &closed) &&
            m_IntervalHook) {
            m_IntervalHook(closed);
        }
        m_Last.CopyFrom(*found);
        m_HasLast = true;
    }
    unsigned long entries = 0;
    unsigned long exits = 0;
    long occupancy = 0;
    GetCounters(&entries, &exits, &occupancy);
    // Two 32-bit values, then four 16-bit ones; the counters go in the first, third and fifth.
    const unsigned long values[6] = {static_cast<std::uint32_t>(entries),   0,
                                     static_cast<std::uint16_t>(exits),     0,
                                     static_cast<std::uint16_t>(occupancy), 0};
    NotifyCount(values);
}

CKorMetadataHandler* CZorPeopleCountFilter::FindOwn(CKorMetadataHandler* chain) const {
    return CKorPeopleCountingMD::Find(chain);
}

void CZorPeopleCountFilter::ClearOwn(CKorMetadataHandler* own) const {
    static_cast<CKorPeopleCountingMD*>(own)->Clear();
}

CKorMetadataHandler* CZorPeopleCountFilter::MakeOwn() const {
    return new CKorPeopleCountingMD;
}

void CZorPeopleCountFilter::PrintTargetList(const char* caller) const {
    if (!m_HasLast) {
        BelDump("%s -> no people-counting metadata seen yet.\n", caller);
        return;
    }
    m_Last.PrintTargetList(caller);
}

// ---------------------------------------------------------------------------------------------

CZorPeopleCountFilterCom::CZorPeopleCountFilterCom(const char* dataPath)
    : CZorMetadataFilterCom("PeopleCountFilter", "CZorPeopleCountFilterCom", dataPath,
                            new CZorPeopleCountFilter),
      m_pCounter(static_cast<CZorPeopleCountFilter*>(m_pModule)) {
    m_pCounter->SetCountHook([this](const unsigned long(&values)[6]) {
        double numbers[6];
        for (int i = 0; i < 6; ++i) {
            numbers[i] = static_cast<double>(values[i]);
        }
        Call(m_pINotifyCount, numbers, 6);
    });
    m_pCounter->SetIntervalHook([this](const SKorPeopleCountInterval& closed) {
        const double numbers[5] = {
            static_cast<double>(closed.m_Start), static_cast<double>(closed.m_End),
            static_cast<double>(closed.m_Entries), static_cast<double>(closed.m_Exits),
            static_cast<double>(closed.m_Occupancy)};
        Call(m_pINotifyIntervalScan, numbers, 5);
    });
}

CZorPeopleCountFilterCom::~CZorPeopleCountFilterCom() {
    m_pCounter->SetIntervalHook({});
    if (m_pINotifyIntervalScan) {
        m_pINotifyIntervalScan->Release();
    }
}

const CJokPropertyMap<CZorPeopleCountFilterCom>& CZorPeopleCountFilterCom::PropertyMap() {
    using C = CZorPeopleCountFilterCom;
    static const CJokPropertyMap<C> map = [] {
        CJokPropertyMap<C> m;
        m.AddNotifiedString("mode", &C::ModeHandler, "&CZorPeopleCountFilterCom::ModeHandler")
            .AddNotifiedDouble("StartTime", &C::StartTimeHandler,
                               "&CZorPeopleCountFilterCom::StartTimeHandler")
            .AddNotifiedDouble("Interval", &C::IntervalHandler,
                               "&CZorPeopleCountFilterCom::IntervalHandler")
            .AddNotifiedBoolean("enabled", &C::EnabledHandler,
                                "&CZorPeopleCountFilterCom::EnabledHandler")
            .AddInterface<IJokCommand>("onCountChange", &C::m_pINotifyCount, IID_IJokCommand,
                                       "IJokCommand", "&CZorPeopleCountFilterCom::m_pINotifyCount")
            .AddInterface<IJokCommand>("onIntervalChange", &C::m_pINotifyIntervalScan,
                                       IID_IJokCommand, "IJokCommand",
                                       "&CZorPeopleCountFilterCom::m_pINotifyIntervalScan")
            .AddFunction("PrintTargetList", &C::PrintTargetList,
                         "&CZorPeopleCountFilterCom::PrintTargetList");
        return m;
    }();
    return map;
}

CJokGenericData* CZorPeopleCountFilterCom::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKor2PinComponent::GetProperty(name, flags);
}

int CZorPeopleCountFilterCom::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKor2PinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CZorPeopleCountFilterCom::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKor2PinComponent::GetPropertyEnumerator());
}

int CreatePeopleCountFilter(CJokCommandContext* context) {
    return ZorCreateWithDataPath<CZorPeopleCountFilterCom>(context);
}
