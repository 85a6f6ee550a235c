// Video motion detection on the motion level a camera's encoder stamps on each video packet
// (attribute 1). Two windowed means of the level - the current level over "averagingWindow" and
// the baseline over "baselineWindow" - feed the onset/release rule of CVmdStateMachine, and each
// start and stop is reported to the script. The filter only observes: packets pass unchanged.
//
//   local vmd = zor.CreateVMDFilter{}
//   vmd.onVMD = function(motion, self) print(motion, self.timeStamp) end  -- 1 start, 0 stop
//   vmd.enabled = true                           -- a new filter does nothing until enabled
//   zor.connect("video", source, vmd, sink)
//
// The archive filter replays stored (time, level) rows through the same detector at a chosen
// frame rate and answers the motion intervals:
//
//   local avmd = zor.CreateArchiveVMDFilter{}
//   avmd.source = zor.CreateMetaDataReader{ file = "cam.db", camera = "cam1" }
//   for _, m in ipairs(avmd.FindMotionLevels{ fps = 25, EndTime = 60000 }) do
//       print(m.startTime, m.endTime)            -- endTime -1: still moving at the range's end
//   end
//
// Invariants:
//  - Negative levels (no level) never reach the monitors. Six of them in a row after the level
//    became unavailable give one notification with a null first argument, once per filter.
//  - "longDelay" reads hold time + baseline window; writing it sets the hold time from the
//    baseline window in force then, so changing the window later moves what it reads, not the
//    hold time.
//  - Windows read back as whole 20 ms buckets; bad values (negative, NaN, above one hour) are
//    refused with a message and change nothing.
//  - Times are 32-bit ms; differences wrap.
#pragma once

#include "analytics/motion/ArchiveIntervals.h"
#include "analytics/motion/VmdStateMachine.h"
#include "entry/ZorExport.h"
#include "framework/bel/BelProbed.h"
#include "framework/kor/PinComponent.h"
#include "framework/kor/RateMonitor.h"
#include "framework/kor/UnbufferedModule.h"

#include <cstdint>
#include <vector>

class CJokCommandContext;
class CJokGdVector;
class CJokPropertyEnum;
struct IJokArchiveAttributeSource;
template <class T> class CJokPropertyMap;

// One motion interval of an archive search, in ms since the start of the call's range.
class CVMDMotionInfoCom final : public CJokComponent {
public:
    CVMDMotionInfoCom(double start, double end);
    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;

    double m_dStartingTime;
    double m_dEndTime; // -1: the motion went on past the range's end

private:
    static const CJokPropertyMap<CVMDMotionInfoCom>& PropertyMap();
};

// A diagnostic that shows a monitor's current value ("%.1lf"), or "Un-available" without one.
class CVMDProbe : public CBelProbedVariable {
public:
    CVMDProbe(const char* name, const CKorEffectiveRateMonitor* monitor)
        : CBelProbedVariable(name, "\\VMDFilter"), m_pMonitor(monitor) {}
    double GetAsDouble() const override { return m_pMonitor ? m_pMonitor->Mean() : 0.0; }
    void SetFromDouble(double) override {}
    CBelString Text() const;

private:
    const CKorEffectiveRateMonitor* m_pMonitor;
};

// The samples a filter fed its detector while "record" was on, for plots.
struct SVMDTraceSample {
    std::int32_t m_Time;
    float m_Level;
    float m_Baseline;
};

class ZOR_EXPORT CVMDFilter : public CKor2PinComponent, public CKorUnbufferedModule {
public:
    // Samples a trace keeps at most (a day at 100 frames a second).
    static constexpr std::size_t kMaxTraceSamples = 8640000;

    CVMDFilter();
    ~CVMDFilter() override;

    // The filter is its own module on the "video" path (borrowed: it owns itself).
    CKorModule* CreateContext(const char* path) override;

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;

    // One valid level through the monitors and the detector.
    void ProcessVMDLevel(long time, long level);
    // A start (true) or stop (false) for the script.
    virtual void SignalMotion(long time, bool motion);
    double CalcLevel() const { return m_LevelMonitor.Mean(); }
    double CalcBaseline() const { return m_BaselineMonitor.Mean(); }
    // Empties both monitors and returns to Idle.
    void ResetDetection();

    zormotion::CVmdStateMachine::EState GetState() const { return m_Detector.GetState(); }
    bool IsLevelUnavailable() const { return m_LevelUnavailable; }
    const std::vector<SVMDTraceSample>& Trace() const { return m_Trace; }

    int ThresholdHandler(double* value, int set);
    int LongDelayHandler(double* value, int set);
    int BaselineWindowHandler(double* value, int set);
    int AveragingWindowHandler(double* value, int set);
    int ShortDelayHandler(double* value, int set);
    int LevelHandler(double* value, int set);
    int BaselineHandler(double* value, int set);
    int EnabledHandler(int* value, int set);
    int TimeStampHandler(double* value, int set);
    int RecordHandler(int* value, int set);
    // "GetTrace" { maxPoints = 4000 }: the recorded samples, at most maxPoints (0: all) by
    // keeping each stretch's first time, highest level and mean baseline; answers a vector
    // { times, levels, baselines }.
    int GetTrace(CJokCommandContext* context);
    // "ClearTrace" {}.
    int ClearTrace(CJokCommandContext* context);

protected:
    void ProcessPacket() override;
    // Moves both monitors' clocks and the last time on by gap ms (a skipped stretch).
    void SkipTime(std::int32_t gap);
    std::int32_t GetLastTime() const { return m_LastTime; }
    long BaselineWindowMs() const { return m_BaselineMonitor.GetWindow(); }
    void SetLevelUnavailable(bool unavailable) { m_LevelUnavailable = unavailable; }
    // Refuses a millisecond setting that is NaN, negative or beyond limit, with a message.
    bool CheckMs(const char* property, double value, double limit) const;

    IJokCommand* m_pIVMD = nullptr; // the "onVMD" callback, one reference

private:
    static const CJokPropertyMap<CVMDFilter>& PropertyMap();

    zormotion::CVmdStateMachine m_Detector;
    bool m_LevelUnavailable = true;
    std::int32_t m_NegativeLevelCount = 0;
    std::int32_t m_LastTime = 0;
    long m_FormatIdentity = 0;
    double m_dShortDelay = 50.0;
    std::int32_t m_UnavailableNotifications = 0;
    double m_dHoldTime = 10000.0;
    CKorEffectiveRateMonitor m_LevelMonitor{1000, 1};
    CKorEffectiveRateMonitor m_BaselineMonitor{10000, 1};
    CVMDProbe m_LevelProbe{"VMDLevel", &m_LevelMonitor};
    CVMDProbe m_BaselineProbe{"baselineVMDLevel", &m_BaselineMonitor};
    bool m_Record = false;
    std::vector<SVMDTraceSample> m_Trace;
};

class ZOR_EXPORT CArchiveVMDFilter final : public CVMDFilter {
public:
    CArchiveVMDFilter();
    ~CArchiveVMDFilter() override;

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;

    // Collects an interval instead of calling the script.
    void SignalMotion(long time, bool motion) override;

    // "FindMotionLevels" { fps, StartTime, EndTime, ContinuedFromPrevious, LowState }.
    int FindMotionLevels(CJokCommandContext* context);
    int SourceHandler(IUnknown** value, int set);

    // Reads the source's rows of [start, end) into the level and time arrays.
    bool RetrieveLevels(std::int32_t start, std::int32_t end);
    // Replays the arrays through the detector at fps samples a second.
    void FeedLevels(int fps);

    // The arrays the last RetrieveLevels made (for tests).
    const std::vector<std::int32_t>& Times() const { return m_Times; }
    const std::vector<std::int32_t>& Levels() const { return m_Levels; }
    std::int32_t GetTimeOffset() const { return m_TimeOffset; }

private:
    static const CJokPropertyMap<CArchiveVMDFilter>& PropertyMap();
    bool ReadRow(std::int32_t* time, std::int32_t* level);

    std::int32_t m_TimeOffset = 0;
    std::int32_t m_CarriedLevel = 0;
    std::vector<std::int32_t> m_Levels;
    std::vector<std::int32_t> m_Times;
    std::size_t m_EntryCount = 0;
    zormotion::CArchiveIntervals m_Intervals;
    IJokArchiveAttributeSource* m_pSource = nullptr; // one reference
};
