// The exit-blocking filter: carries "LOD1" left-object metadata between the left-object analyser
// and scripts on the "video" path, and raises the alarm when something has stood in the watched
// area for too long.
//
// Read mode: for every packet whose handler holds "LOD1" metadata, the metadata is asked the
// filter's question (see CKorLeftObjectDetectionMD): which targets of the chosen type and
// identifier have stood for longer than the target duration, at the scan instants that
// "StartTime" and "Interval" set, and only when at least "number of targets" of them stand. When
// it answers at least one such entry, "onCountChange" is called with six numbers and the filter:
//   1. the entries (32-bit, unsigned);
//   2. 0;
//   3. the targets of the chosen type and identifier on the packet, entries or not (16-bit);
//   4. 0;
//   5. the longest still time of an entry, in whole seconds (16-bit);
//   6. 0.
// Its four counters are those three and the identifier of the longest-standing entry (which
// "PrintTargetList" shows with the list).
// Write mode: every packet leaves with one fresh, empty "LOD1" object (a packet without a handler
// gets one tagged "LOD1"), and the four counters are zeroed.
//
// The target functions, each reading its value from the parameter of its own name (or, in a call
// with no named parameters, the first positional one; default 0) and answering true:
//   SetTargetDuration   ms a target must stand to be an entry; 0 or less: any target at once
//   SetNumberOfTargets  entries needed before any is reported; below 1 counts as 1
//   SetTargetType       0 any, 1 objects that appeared and stayed, 2 things that stopped
//   SetTargetID         0 any, else only the target of that identifier
// and the four Get... functions answering the stored values.
//
//   local eb = zor.CreateExitBlockingFilter{ dataPath = "video" }
//   eb.SetTargetDuration{ SetTargetDuration = 10000 }   -- 10 s
//   eb.onCountChange = function(entries, _, targets, _, seconds, _, self) ... end
//   eb.enabled = true
//
// Invariants: those of CZorMetadataFilter; a notification always carries at least one entry.
#pragma once

#include "analytics/counting/MetadataFilter.h"
#include "framework/kor/LeftObjectDetectionMD.h"

class CJokPropertyEnum;
template <class T> class CJokPropertyMap;

class ZOR_EXPORT CZorExitBlockingFilter : public CZorMetadataFilter {
public:
    CZorExitBlockingFilter();

    // The question's settings; the scan's start time and interval come from SetScan.
    SKorLeftObjectQuery& Query() { return m_Query; }
    const SKorLeftObjectCounters& Counters() const { return m_Counters; }
    void PrintTargetList(const char* caller) const override;

protected:
    void Read(const CKorPacket& packet, CKorMetadataHandler* handler) override;
    CKorMetadataHandler* FindOwn(CKorMetadataHandler* chain) const override;
    void ClearOwn(CKorMetadataHandler* own) const override;
    CKorMetadataHandler* MakeOwn() const override;
    void Written() override { m_Counters = SKorLeftObjectCounters{}; }
    void ScanChanged() override;

private:
    SKorLeftObjectQuery m_Query;
    SKorLeftObjectCounters m_Counters;
    CKorLeftObjectDetectionMD m_Last;
    bool m_HasLast = false;
};

class CZorExitBlockingFilterCom final : public CZorMetadataFilterCom {
public:
    // Joins dataPath when it is not empty.
    explicit CZorExitBlockingFilterCom(const char* dataPath);

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;

    int SetTargetDuration(CJokCommandContext* context);
    int GetTargetDuration(CJokCommandContext* context);
    int SetNumberOfTargets(CJokCommandContext* context);
    int GetNumberOfTargets(CJokCommandContext* context);
    int SetTargetType(CJokCommandContext* context);
    int GetTargetType(CJokCommandContext* context);
    int SetTargetID(CJokCommandContext* context);
    int GetTargetID(CJokCommandContext* context);

    CZorExitBlockingFilter& Module() { return *m_pBlocker; }

private:
    static const CJokPropertyMap<CZorExitBlockingFilterCom>& PropertyMap();
    // Reads the value of a Set... function; answers false when the call cannot go on.
    static bool ReadSetting(CJokCommandContext* context, const char* name, double* value);

    CZorExitBlockingFilter* m_pBlocker; // the base's module; holds the target duration
};

// "CreateExitBlockingFilter" { dataPath = "..." }.
int CreateExitBlockingFilter(CJokCommandContext* context);
