// What the archive motion filters share: the range a search call names, the intervals its
// replay collects, and the "source" property they read rows from.
#pragma once

#include "framework/jok/GenericData.h"

#include <cstdint>
#include <utility>
#include <vector>

class CJokCommandContext;
struct IJokArchiveAttributeSource;
struct IUnknown;

namespace zormotion {

// { StartTime, EndTime, ContinuedFromPrevious, LowState } of a search call.
struct SArchiveRange {
    double m_Start = 0.0;
    double m_End = -1.0; // negative: to the last row
    int m_Continued = 0;
    int m_LowState = 1;
};

// Reads the range. False when the call ends here: a parameter fault (already reported), or a
// NaN time, which is reported under the method's name and answers an empty list.
bool ReadArchiveRange(CJokCommandContext* context, const char* method, SArchiveRange* range);

// The "source" property handler over the filter's slot, which holds one reference. The property
// map has already queried the object for the interface.
int ArchiveSourceHandler(IJokArchiveAttributeSource** slot, IUnknown** value, int set);
// A failed read, with the source's reason when it gives one, as the "where -> ..." line.
void DumpReadFailure(IJokArchiveAttributeSource* source, const char* where);

// Turns a replay's start and stop signals into intervals, in ms from the offset: the internal
// time at which the first range of a run of continued searches began.
class CArchiveIntervals {
public:
    // One search call begins: nothing collected, no interval open.
    void Begin();
    // An interval opens or closes at time; closing at -1 (the range ran out while it was open)
    // gives an end of -1.
    void Signal(long time, bool open, std::int32_t offset);
    bool IsOpen() const { return m_Open; }
    // The call ends: the intervals as a list of Info(start, end) components, a new reference.
    template <class Info> CJokGdVector* Finish();

private:
    bool m_Collecting = false; // signals outside a search call move the state only
    bool m_Open = false;
    std::int32_t m_Start = 0;
    std::vector<std::pair<double, double>> m_Results;
};

template <class Info> CJokGdVector* CArchiveIntervals::Finish() {
    m_Collecting = false;
    CJokGdVector* result = CJokGdVector::Allocate(static_cast<int>(m_Results.size()));
    for (size_t i = 0; i < m_Results.size(); ++i) {
        auto* info = new Info(m_Results[i].first, m_Results[i].second);
        CJokGdObject* value = CJokGdObject::Allocate(info);
        info->ExternalRelease();
        result->SetElement(static_cast<int>(i), value);
        value->Release();
    }
    m_Results.clear();
    return result;
}

} // namespace zormotion
