#include "analytics/motion/VMDFilter.h"

#include "analytics/motion/ArchiveIntervals.h"
#include "analytics/motion/MotionTime.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/PropertyMap.h"
#include "framework/kor/AttributeSource.h"
#include "framework/kor/Packet.h"

#include <algorithm>
#include <cmath>
#include <cstring>

using zormotion::CVmdStateMachine;
using zormotion::Elapsed;
using zormotion::Later;
using zormotion::TruncateMs;

namespace {

constexpr const char* kPath = "video";
constexpr int kVmdLevelAttribute = 1;
// A sixth negative level in a row tells the script that the stream has no levels.
constexpr std::int32_t kNegativeLevelsBeforeNotice = 5;
// Delays and the hold time are whole ms within the 32-bit range.
constexpr double kMaxDelayMs = 2147483647.0;
// The replay's step is 1000 / fps ms and must stay at least 1 ms.
constexpr int kMaxArchiveFps = 1000;

} // namespace

// ---------------------------------------------------------------------------------------------
// CVMDMotionInfoCom

CVMDMotionInfoCom::CVMDMotionInfoCom(double start, double end)
    : CJokComponent("VMDMotionInformation"), m_dStartingTime(start), m_dEndTime(end) {}

const CJokPropertyMap<CVMDMotionInfoCom>& CVMDMotionInfoCom::PropertyMap() {
    static const CJokPropertyMap<CVMDMotionInfoCom> map = [] {
        CJokPropertyMap<CVMDMotionInfoCom> m;
        m.AddDouble("startTime", &CVMDMotionInfoCom::m_dStartingTime,
                    "&CVMDMotionInfoCom::m_dStartingTime", 1)
            .AddDouble("endTime", &CVMDMotionInfoCom::m_dEndTime, "&CVMDMotionInfoCom::m_dEndTime",
                       1);
        return m;
    }();
    return map;
}

CJokGenericData* CVMDMotionInfoCom::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CJokComponent::GetProperty(name, flags);
}

int CVMDMotionInfoCom::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    return result == -1 ? CJokComponent::SetProperty(name, value) : result != 0;
}

CJokPropertyEnum* CVMDMotionInfoCom::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CJokComponent::GetPropertyEnumerator());
}

CBelString CVMDProbe::Text() const {
    if (!m_pMonitor) {
        return "Un-available";
    }
    CBelString text;
    text.Format("%.1lf", m_pMonitor->Mean());
    return text;
}

// ---------------------------------------------------------------------------------------------
// CVMDFilter

CVMDFilter::CVMDFilter() : CKor2PinComponent("VMDFilter"), CKorUnbufferedModule("VMDFilter") {
    DisableProcessing(1);
}

CVMDFilter::~CVMDFilter() {
    if (m_pIVMD) {
        m_pIVMD->Release();
    }
}

CKorModule* CVMDFilter::CreateContext(const char* path) {
    return path && std::strcmp(path, kPath) == 0 ? this : nullptr;
}

void CVMDFilter::ProcessPacket() {
    CKorPacket* packet = m_pPacket;
    if (!packet->IsTimeStampValid() || packet->GetKind() != CKorPacket::KIND_VIDEO) {
        return;
    }
    int level = -1;
    if (!packet->GetAttribute(kVmdLevelAttribute, &level)) {
        level = -1; // no level stamped: the same as the encoder saying it has none
    }
    // The format sequence number changes exactly when the stream's format does.
    const long identity = packet->GetFormatSeqNumber();
    if (identity != m_FormatIdentity) {
        m_FormatIdentity = identity;
        m_NegativeLevelCount = 0;
        m_LevelUnavailable = true;
    }
    if (level >= 0) {
        ProcessVMDLevel(packet->GetTimeStamp(), level);
        return;
    }
    if (!m_LevelUnavailable) {
        return;
    }
    // Once per filter's life: a stream without levels is worth one notice, not one per frame.
    if (++m_NegativeLevelCount > kNegativeLevelsBeforeNotice && m_UnavailableNotifications == 0) {
        ++m_UnavailableNotifications;
        SignalMotion(packet->GetTimeStamp(), false);
    }
}

void CVMDFilter::ProcessVMDLevel(long time, long level) {
    const auto now = static_cast<std::int32_t>(time);
    m_LastTime = now;
    m_BaselineMonitor.AddTimeSample(now, level);
    m_LevelMonitor.AddTimeSample(now, level);
    m_LevelUnavailable = false;
    const double current = m_LevelMonitor.Mean();
    const double baseline = m_BaselineMonitor.Mean();
    if (m_Record && m_Trace.size() < kMaxTraceSamples) {
        m_Trace.push_back(
            SVMDTraceSample{now, static_cast<float>(current), static_cast<float>(baseline)});
    }
    switch (m_Detector.Step(now, current, baseline)) {
    case CVmdStateMachine::START:
        SignalMotion(now, true);
        break;
    case CVmdStateMachine::STOP:
        SignalMotion(now, false);
        break;
    case CVmdStateMachine::NONE:
        break;
    }
}

void CVMDFilter::SignalMotion(long, bool motion) {
    if (!m_pIVMD) {
        return;
    }
    CJokCommandContext context;
    if (m_LevelUnavailable) {
        m_LevelUnavailable = false;
        context.AddParamNoRef(nullptr, CJokGdNull::Allocate());
    } else {
        context.AddParam(nullptr, motion ? 1 : 0);
    }
    CallScript(m_pIVMD, context);
}

void CVMDFilter::ResetDetection() {
    m_LevelMonitor.SetWindow(-1);
    m_BaselineMonitor.SetWindow(-1);
    m_Detector.Reset();
}

void CVMDFilter::SkipTime(std::int32_t gap) {
    m_BaselineMonitor.AdjustTime(gap);
    m_LevelMonitor.AdjustTime(gap);
    m_LastTime = Later(m_LastTime, gap);
}

bool CVMDFilter::CheckMs(const char* property, double value, double limit) const {
    if (std::isnan(value) || value < 0 || value > limit) {
        CBelString text;
        text.Format("VMDFilter.%s: %s is not a time in ms from 0 to %.0f", property,
                    zormotion::NumberText(value).c_str(), limit);
        BelReportScriptError(text);
        return false;
    }
    return true;
}

const CJokPropertyMap<CVMDFilter>& CVMDFilter::PropertyMap() {
    using C = CVMDFilter;
    static const CJokPropertyMap<C> map = [] {
        CJokPropertyMap<C> m;
        m.AddNotifiedDouble("threshold", &C::ThresholdHandler, "&CVMDFilter::ThresholdHandler")
            .AddNotifiedDouble("longDelay", &C::LongDelayHandler, "&CVMDFilter::LongDelayHandler")
            .AddNotifiedDouble("baselineWindow", &C::BaselineWindowHandler,
                               "&CVMDFilter::BaselineWindowHandler")
            .AddNotifiedDouble("averagingWindow", &C::AveragingWindowHandler,
                               "&CVMDFilter::AveragingWindowHandler")
            .AddNotifiedDouble("shortDelay", &C::ShortDelayHandler,
                               "&CVMDFilter::ShortDelayHandler")
            .AddNotifiedDouble("level", &C::LevelHandler, "&CVMDFilter::LevelHandler", 1)
            .AddNotifiedDouble("baseline", &C::BaselineHandler, "&CVMDFilter::BaselineHandler", 1)
            .AddNotifiedBoolean("enabled", &C::EnabledHandler, "&CVMDFilter::EnabledHandler")
            .AddNotifiedDouble("timeStamp", &C::TimeStampHandler, "&CVMDFilter::TimeStampHandler",
                               1)
            .AddInterface("onVMD", &C::m_pIVMD, IID_IJokCommand, "IJokCommand",
                          "&CVMDFilter::m_pIVMD")
            .AddNotifiedBoolean("record", &C::RecordHandler, "&CVMDFilter::RecordHandler")
            .AddFunction("GetTrace", &C::GetTrace, "&CVMDFilter::GetTrace")
            .AddFunction("ClearTrace", &C::ClearTrace, "&CVMDFilter::ClearTrace");
        return m;
    }();
    return map;
}

CJokGenericData* CVMDFilter::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKor2PinComponent::GetProperty(name, flags);
}

int CVMDFilter::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKor2PinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CVMDFilter::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKor2PinComponent::GetPropertyEnumerator());
}

int CVMDFilter::ThresholdHandler(double* value, int set) {
    if (!set) {
        *value = m_Detector.m_Threshold;
        return 1;
    }
    if (std::isnan(*value) || *value < 0) {
        CBelString text;
        text.Format("VMDFilter.threshold: %s is not a level margin (a number from 0 up)",
                    zormotion::NumberText(*value).c_str());
        BelReportScriptError(text);
        return 0;
    }
    m_Detector.m_Threshold = *value;
    return 1;
}

int CVMDFilter::LongDelayHandler(double* value, int set) {
    if (!set) {
        *value = m_dHoldTime + static_cast<double>(BaselineWindowMs());
        return 1;
    }
    if (!CheckMs("longDelay", *value, kMaxDelayMs)) {
        return 0;
    }
    // Measured from the baseline window in force now; a later window change leaves it alone.
    m_dHoldTime = *value - static_cast<double>(BaselineWindowMs());
    m_Detector.m_HoldTime = TruncateMs(m_dHoldTime);
    return 1;
}

int CVMDFilter::BaselineWindowHandler(double* value, int set) {
    if (!set) {
        *value = static_cast<double>(m_BaselineMonitor.GetWindow());
        return 1;
    }
    if (!CheckMs("baselineWindow", *value, CKorEffectiveRateMonitor::kMaxWindowMs)) {
        return 0;
    }
    m_BaselineMonitor.SetWindow(static_cast<long>(*value));
    return 1;
}

int CVMDFilter::AveragingWindowHandler(double* value, int set) {
    if (!set) {
        *value = static_cast<double>(m_LevelMonitor.GetWindow());
        return 1;
    }
    if (!CheckMs("averagingWindow", *value, CKorEffectiveRateMonitor::kMaxWindowMs)) {
        return 0;
    }
    m_LevelMonitor.SetWindow(static_cast<long>(*value));
    return 1;
}

int CVMDFilter::ShortDelayHandler(double* value, int set) {
    if (!set) {
        *value = m_dShortDelay;
        return 1;
    }
    if (!CheckMs("shortDelay", *value, kMaxDelayMs)) {
        return 0;
    }
    m_dShortDelay = *value;
    m_Detector.m_ShortDelay = TruncateMs(m_dShortDelay);
    return 1;
}

int CVMDFilter::LevelHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = CalcLevel();
    return 1;
}

int CVMDFilter::BaselineHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = CalcBaseline();
    return 1;
}

int CVMDFilter::EnabledHandler(int* value, int set) {
    if (!set) {
        *value = IsDisabled() ? 0 : 1;
        return 1;
    }
    if (!*value) {
        DisableProcessing(1);
        ResetDetection();
        return 1;
    }
    DisableProcessing(0);
    if (m_Detector.GetState() == CVmdStateMachine::IDLE) {
        m_LevelUnavailable = true;
    }
    m_NegativeLevelCount = 0;
    return 1;
}

int CVMDFilter::TimeStampHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = static_cast<double>(m_LastTime);
    return 1;
}

int CVMDFilter::RecordHandler(int* value, int set) {
    if (!set) {
        *value = m_Record ? 1 : 0;
        return 1;
    }
    m_Record = *value != 0;
    return 1;
}

int CVMDFilter::GetTrace(CJokCommandContext* context) {
    double maxPoints = 4000;
    context->GetParam("maxPoints", &maxPoints, 1);
    if (!context->CanProceed(0)) {
        return 1;
    }
    if (std::isnan(maxPoints) || maxPoints < 0) {
        context->OutputErrorString("GetTrace: maxPoints must be a count from 0 up (0: all)");
        return 1;
    }
    const size_t total = m_Trace.size();
    const size_t points = maxPoints < 1 || maxPoints >= static_cast<double>(total)
                              ? total
                              : static_cast<size_t>(maxPoints);
    std::vector<double> times, levels, baselines;
    times.reserve(points);
    levels.reserve(points);
    baselines.reserve(points);
    // Stretches of equal sample counts; the highest level keeps short bursts of motion visible.
    for (size_t p = 0; p < points; ++p) {
        const size_t first = p * total / points;
        const size_t last = (p + 1) * total / points;
        float high = m_Trace[first].m_Level;
        double sum = 0;
        for (size_t i = first; i < last; ++i) {
            high = std::max(high, m_Trace[i].m_Level);
            sum += m_Trace[i].m_Baseline;
        }
        times.push_back(m_Trace[first].m_Time);
        levels.push_back(high);
        baselines.push_back(sum / static_cast<double>(last - first));
    }
    CJokGdVector* result = CJokGdVector::Allocate(3);
    const int count = static_cast<int>(times.size());
    CJokGdVector* series[3] = {CJokGdVector::AllocateNumbers(times.data(), count),
                               CJokGdVector::AllocateNumbers(levels.data(), count),
                               CJokGdVector::AllocateNumbers(baselines.data(), count)};
    for (int i = 0; i < 3; ++i) {
        result->SetElement(i, series[i]);
        series[i]->Release();
    }
    context->SetReturnValueNoRef(result);
    return 1;
}

int CVMDFilter::ClearTrace(CJokCommandContext* context) {
    if (!context->CanProceed(0)) {
        return 1;
    }
    m_Trace.clear();
    m_Trace.shrink_to_fit();
    return 1;
}

// ---------------------------------------------------------------------------------------------
// CArchiveVMDFilter

CArchiveVMDFilter::CArchiveVMDFilter() = default;

CArchiveVMDFilter::~CArchiveVMDFilter() {
    if (m_pSource) {
        m_pSource->Release();
    }
}

const CJokPropertyMap<CArchiveVMDFilter>& CArchiveVMDFilter::PropertyMap() {
    using C = CArchiveVMDFilter;
    static const CJokPropertyMap<C> map = [] {
        CJokPropertyMap<C> m;
        m.AddNotifiedInterface("source", &C::SourceHandler, IID_IJokArchiveAttributeSource,
                               "IJokArchiveAttributeSource", "&CArchiveVMDFilter::Source")
            .AddFunction("FindMotionLevels", &C::FindMotionLevels,
                         "&CArchiveVMDFilter::FindMotionLevels");
        return m;
    }();
    return map;
}

CJokGenericData* CArchiveVMDFilter::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CVMDFilter::GetProperty(name, flags);
}

int CArchiveVMDFilter::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CVMDFilter::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CArchiveVMDFilter::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CVMDFilter::GetPropertyEnumerator());
}

int CArchiveVMDFilter::SourceHandler(IUnknown** value, int set) {
    return zormotion::ArchiveSourceHandler(&m_pSource, value, set);
}

void CArchiveVMDFilter::SignalMotion(long time, bool motion) {
    m_Intervals.Signal(time, motion, m_TimeOffset);
}

int CArchiveVMDFilter::FindMotionLevels(CJokCommandContext* context) {
    double fps = 1.0;
    context->GetParam("fps", &fps, 1);
    zormotion::SArchiveRange range;
    if (!zormotion::ReadArchiveRange(context, "FindMotionLevels", &range)) {
        return 1;
    }
    m_Intervals.Begin();
    SetLevelUnavailable(false);
    if (!range.m_Continued) {
        m_TimeOffset = 0;
        m_CarriedLevel = 0;
        ResetDetection();
    }
    if (RetrieveLevels(TruncateMs(range.m_Start), TruncateMs(range.m_End))) {
        if (range.m_Continued && !range.m_LowState) {
            // The previous range ended in motion: the interval goes on from this range's start.
            SignalMotion(m_TimeOffset, true);
        }
        const double rate = std::isnan(fps) ? 1.0 : std::clamp(fps, 1.0, double(kMaxArchiveFps));
        FeedLevels(static_cast<int>(rate));
    }
    context->SetReturnValueNoRef(m_Intervals.Finish<CVMDMotionInfoCom>());
    return 1;
}

bool CArchiveVMDFilter::ReadRow(std::int32_t* time, std::int32_t* level) {
    if (m_pSource->ReadLong(KOR_ATTR_TIME, time) && m_pSource->ReadLong(KOR_ATTR_LEVEL, level)) {
        return true;
    }
    zormotion::DumpReadFailure(m_pSource, "CArchiveVMDFilter::RetrieveLevels");
    return false;
}

bool CArchiveVMDFilter::RetrieveLevels(std::int32_t start, std::int32_t end) {
    m_Levels.clear();
    m_Times.clear();
    m_EntryCount = 0;
    if (!m_pSource) {
        return false;
    }
    long remaining = m_pSource->GetRowCount(KOR_ATTR_TIME);
    if (remaining < 1) {
        return false;
    }
    const auto size = static_cast<size_t>(remaining) + 2;
    m_Levels.assign(size, 0);
    m_Times.assign(size, 0);
    m_pSource->Rewind(KOR_ATTR_TIME);
    m_Levels[0] = m_CarriedLevel;
    std::int32_t previous = 0;
    // Index 0 ends on the first row at or after start (or on the last row).
    do {
        previous = m_Levels[0];
        if (!ReadRow(&m_Times[0], &m_Levels[0])) {
            return false;
        }
        m_pSource->Advance(KOR_ATTR_TIME);
        --remaining;
    } while (remaining >= 1 && m_Times[0] < start);
    std::int32_t lastSourceTime = m_Times[0];
    m_Times[0] = Later(m_Times[0], m_TimeOffset);
    const std::int32_t rangeStart = Later(m_TimeOffset, start);
    if (Elapsed(rangeStart, m_Times[0]) > 0) {
        // The first row comes after the range's start: the level before it holds from the start.
        m_Times[1] = m_Times[0];
        m_Levels[1] = m_Levels[0];
        m_Times[0] = rangeStart;
        m_Levels[0] = previous;
        m_EntryCount = 2;
    } else {
        m_EntryCount = 1;
    }
    // A negative end reads to the last row.
    const bool bounded = end >= 0;
    for (; remaining >= 1; --remaining) {
        const size_t k = m_EntryCount;
        if (!ReadRow(&m_Times[k], &m_Levels[k])) {
            return false;
        }
        if (bounded && m_Times[k] >= end) {
            break;
        }
        lastSourceTime = m_Times[k];
        m_Times[k] = Later(m_Times[k], m_TimeOffset);
        ++m_EntryCount;
        m_pSource->Advance(KOR_ATTR_TIME);
    }
    const std::int32_t closing = bounded ? end : Later(lastSourceTime, 1);
    const size_t k = m_EntryCount;
    m_Times[k] = Later(Later(m_TimeOffset, closing), 1);
    m_Levels[k] = m_Levels[k - 1];
    ++m_EntryCount;
    return true;
}

void CArchiveVMDFilter::FeedLevels(int fps) {
    const int f = fps >= 1 ? fps : 1;
    const std::int32_t step = 1000 / f;
    const long limit = BaselineWindowMs() / f;
    for (size_t i = 1; i < m_EntryCount; ++i) {
        std::int32_t t = m_Times[i - 1];
        const std::int32_t level = m_Levels[i - 1];
        const std::int32_t e = m_Times[i];
        if (level < 0) {
            continue; // no level here: the live filter ignores such frames too
        }
        long k = 0;
        const auto feed = [&] {
            ProcessVMDLevel(t, level);
            t = Later(t, step);
            ++k;
        };
        const auto before = [&] { return Elapsed(t, e) > 0; }; // t < e, wrapping
        if (m_Intervals.IsOpen()) {
            do {
                feed();
            } while (m_Intervals.IsOpen() && before());
            while (before() && k < limit) {
                feed();
            }
        } else {
            do {
                feed();
            } while (k < limit && before());
            while (before() && m_Intervals.IsOpen()) {
                feed();
            }
        }
        if (before()) {
            // The windows are full of this constant level: skip the rest of the segment.
            SkipTime(Elapsed(t, e));
        }
    }
    SignalMotion(-1, false);
    if (m_EntryCount >= 2) {
        m_CarriedLevel = m_Levels[m_EntryCount - 2];
        m_TimeOffset = m_Times[m_EntryCount - 1];
    }
}
