// The people-counting filter: carries "PCD1" people-counting metadata between the counting
// analyser and scripts on the "video" path.
//
// Read mode: for every packet with a metadata handler, the first "PCD1" metadata in it (if any)
// takes one step of the filter's interval scan (see CKorPeopleCountingMD): its crossings are
// added to the open interval, and a packet that falls into a later interval first closes the open
// one, which "onIntervalChange" reports. Then "onCountChange" is called - for every packet with a
// handler, whether or not it held "PCD1" - with six numbers and the filter:
//   1. entries counted in the open interval (32-bit, unsigned);
//   2. 0;
//   3. exits counted in the open interval (16-bit: wraps at 65536);
//   4. 0;
//   5. the occupancy the analyser reports (16-bit);
//   6. 0.
// "onIntervalChange" is called with the closed interval's start and end (packet time, ms), its
// entries and exits, the occupancy at its end, and the filter.
// Write mode: every packet leaves with one fresh, empty "PCD1" object (a packet without a handler
// gets one tagged "ZKVA").
//
//   local pc = zor.CreatePeopleCountFilter{ dataPath = "video" }
//   pc.onCountChange = function(entries, _, exits, _, occupancy, _, self) ... end
//   pc.Interval = 60000            -- count per minute of packet time
//   pc.enabled = true
//
// Invariants: those of CZorMetadataFilter; the counters are those of the open interval, zero
// before the first packet at or after the start time; changing "StartTime" or "Interval" starts
// the scan afresh without reporting the interval that was open.
#pragma once

#include "analytics/counting/MetadataFilter.h"
#include "framework/kor/PeopleCountingMD.h"

class CJokPropertyEnum;
template <class T> class CJokPropertyMap;

class ZOR_EXPORT CZorPeopleCountFilter : public CZorMetadataFilter {
public:
    using IntervalHook = std::function<void(const SKorPeopleCountInterval& closed)>;

    CZorPeopleCountFilter();

    void SetIntervalHook(IntervalHook hook) { m_IntervalHook = std::move(hook); }
    // Entries and exits of the open interval, and the occupancy.
    void GetCounters(unsigned long* entries, unsigned long* exits, long* occupancy) const;
    void PrintTargetList(const char* caller) const override;

protected:
    void Read(const CKorPacket& packet, CKorMetadataHandler* handler) override;
    CKorMetadataHandler* FindOwn(CKorMetadataHandler* chain) const override;
    void ClearOwn(CKorMetadataHandler* own) const override;
    CKorMetadataHandler* MakeOwn() const override;
    void ScanChanged() override;

private:
    SKorPeopleCountScan m_Scan;
    CKorPeopleCountingMD m_Last;
    bool m_HasLast = false;
    IntervalHook m_IntervalHook;
};

class CZorPeopleCountFilterCom final : public CZorMetadataFilterCom {
public:
    // Joins dataPath when it is not empty.
    explicit CZorPeopleCountFilterCom(const char* dataPath);
    ~CZorPeopleCountFilterCom() override;

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;

    CZorPeopleCountFilter& Module() { return *m_pCounter; }

private:
    static const CJokPropertyMap<CZorPeopleCountFilterCom>& PropertyMap();

    CZorPeopleCountFilter* m_pCounter; // the base's module
    IJokCommand* m_pINotifyIntervalScan = nullptr;
};

// "CreatePeopleCountFilter" { dataPath = "..." }.
int CreatePeopleCountFilter(CJokCommandContext* context);
