// Generic motion detection components: the live filter on the "video" path, which tests each
// video packet's "BBX1" boxes against its mask and calls the script when a collision starts and
// ends, and the archive filter, which replays stored box sets and answers the collision
// intervals.
//
//   local gvmd = zor.CreateGVMDFilter{}
//   gvmd.sPackedRects = "M1:0,0,176,240"          -- the left half of a 352 x 240 frame
//   gvmd.dSensitivity = 0.99                       -- at least 844 pixels of overlap
//   gvmd.longDelay = 2000
//   gvmd.onCollision = function(realTime, collision, time, self) print(collision, time) end
//   gvmd.enabled = true
//   zor.connect("video", source, gvmd, sink)
//
//   local archive = zor.CreateArchiveGVMDFilter{}
//   archive.vMaskRects = { { 0, 176, 0, 240 } }    -- {x1, x2, y1, y2}
//   archive.source = zor.CreateMetaDataReader{ file = "cam.db", camera = "cam1" }
//   for _, c in ipairs(archive.FindCollisions{}) do print(c.startTime, c.endTime) end
//
// Invariants:
//  - A collision's end is reported at its last colliding frame + the long delay, with the real
//    time moved back to that moment; the callback gets (realTime, 1|0, time, filter).
//  - The mask changes only when a whole new value is accepted; a refused value says why.
//  - Delays are whole ms from 0 up; negative or NaN delays and sensitivities are refused.
//  - Disabling the live filter returns the detector to idle.
//  - The archive filter owns the metadata it reads and deletes it when the key changes.
#pragma once

#include "analytics/motion/ArchiveIntervals.h"
#include "analytics/motion/GVMDSettings.h"
#include "entry/ZorExport.h"
#include "framework/kor/PinComponent.h"
#include "framework/kor/UnbufferedModule.h"

#include <cstdint>

class CJokCommandContext;
class CJokPropertyEnum;
struct IJokArchiveAttributeSource;
template <class T> class CJokPropertyMap;

// One collision interval of an archive search.
class CGVMDCollisionInfoCom final : public CJokComponent {
public:
    CGVMDCollisionInfoCom(double start, double end);
    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;

    double m_dStartingTime;
    double m_dEndTime; // -1: still colliding at the range's end

private:
    static const CJokPropertyMap<CGVMDCollisionInfoCom>& PropertyMap();
};

class ZOR_EXPORT CZorGVMDFilter final : public CKor2PinComponent,
                                        public CKorUnbufferedModule,
                                        public CZorGVMDSettings {
public:
    CZorGVMDFilter();
    ~CZorGVMDFilter() override;

    // The filter is its own module on the "video" path (borrowed: it owns itself).
    CKorModule* CreateContext(const char* path) override;

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;

    void SignalCollision(long time, bool collision, double realTime) override;

    int SensitivityProperty(double* value, int set);
    int ShortDelayProperty(double* value, int set);
    int LongDelayProperty(double* value, int set);
    int PackedRectsProperty(CBelString* value, int set);
    int MaskRectsProperty(CJokGenericData** value, int set);
    int TimeStampProperty(double* value, int set);
    int EnabledProperty(int* value, int set);

protected:
    void ProcessPacket() override;

private:
    static const CJokPropertyMap<CZorGVMDFilter>& PropertyMap();

    IJokCommand* m_pIGVMD = nullptr; // the "onCollision" callback, one reference
    std::int32_t m_LastTimeStamp = 0;
};

class ZOR_EXPORT CZorArchiveGVMDFilter final : public CJokComponent, public CZorGVMDSettings {
public:
    CZorArchiveGVMDFilter();
    ~CZorArchiveGVMDFilter() override;

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;

    // Collects an interval instead of calling the script.
    void SignalCollision(long time, bool collision, double realTime) override;

    // "FindCollisions" { StartTime, EndTime, ContinuedFromPrevious, LowState }.
    int FindCollisions(CJokCommandContext* context);
    // Replays the source's rows of [start, end) (end negative: to the last row).
    void Replay(std::int32_t start, std::int32_t end);

    int SourceProperty(IUnknown** value, int set);
    int SensitivityProperty(double* value, int set);
    int ShortDelayProperty(double* value, int set);
    int LongDelayProperty(double* value, int set);
    int PackedRectsProperty(CBelString* value, int set);
    int MaskRectsProperty(CJokGenericData** value, int set);

    std::int32_t GetTimeOffset() const { return m_TimeOffset; }
    // Rows the last replay read (for figures).
    long GetRowsRead() const { return m_RowsRead; }

private:
    static const CJokPropertyMap<CZorArchiveGVMDFilter>& PropertyMap();
    // The timer checks of a replay: a pending onset or a running long delay that ran out before
    // time (internal ms) is stepped with the held metadata at the moment it ran out.
    void CatchUp(std::int32_t time, const CKorMetadataHandler* held);
    void ReadFailed();

    zormotion::CArchiveIntervals m_Intervals;
    std::int32_t m_TimeOffset = 0;
    IJokArchiveAttributeSource* m_pSource = nullptr; // one reference
    long m_RowsRead = 0;
};
