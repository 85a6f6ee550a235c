// Test doubles for the motion components: an attribute source over rows in memory (with a read
// that can be made to fail), and property helpers that go through the component's map.
#pragma once

#include "framework/jok/Command.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/GenericData.h"
#include "framework/kor/AttributeSource.h"
#include "framework/kor/BoundingBoxesMD.h"
#include "tests/support/RecordingCallback.h"

#include <limits>
#include <map>
#include <string>
#include <vector>

namespace zortest {

struct SSourceRow {
    std::int32_t m_Time;
    std::int32_t m_Level;
    std::int32_t m_Key = 0;
};

class CFakeAttributeSource final : public IJokArchiveAttributeSource {
public:
    explicit CFakeAttributeSource(std::vector<SSourceRow> rows) : m_Rows(std::move(rows)) {}

    HRESULT QueryInterface(const IID& iid, void** object) override {
        if (iid == IID_IUnknown || iid == IID_IJokArchiveAttributeSource) {
            *object = static_cast<IJokArchiveAttributeSource*>(this);
            AddRef();
            return S_OK;
        }
        *object = nullptr;
        return E_NOINTERFACE;
    }
    unsigned long AddRef() override { return static_cast<unsigned long>(++m_Refs); }
    unsigned long Release() override {
        const long left = --m_Refs;
        if (left == 0) {
            delete this;
        }
        return static_cast<unsigned long>(left);
    }
    long GetRowCount(long) override { return static_cast<long>(m_Rows.size()); }
    int Rewind(long) override {
        m_Cursor = 0;
        return !m_Rows.empty();
    }
    int Advance(long) override {
        if (m_Cursor >= m_Rows.size()) {
            return 0;
        }
        ++m_Cursor;
        return m_Cursor < m_Rows.size();
    }
    int StepBack(long) override {
        if (m_Cursor == 0) {
            return 0;
        }
        --m_Cursor;
        ++m_StepBacks;
        return 1;
    }
    int ReadLong(long column, std::int32_t* value) override {
        if (m_Cursor >= m_Rows.size() || static_cast<long>(m_Cursor) == m_FailAt) {
            return 0;
        }
        const SSourceRow& row = m_Rows[m_Cursor];
        switch (column) {
        case KOR_ATTR_TIME:
            *value = row.m_Time;
            return 1;
        case KOR_ATTR_LEVEL:
            *value = row.m_Level;
            return 1;
        case KOR_ATTR_KEY:
            *value = row.m_Key;
            return 1;
        default:
            return 0;
        }
    }
    int ReadMetadata(long, CKorMetadataHandler** handler) override {
        *handler = nullptr;
        if (m_Cursor >= m_Rows.size()) {
            return 0;
        }
        ++m_MetadataReads;
        const auto found = m_Boxes.find(m_Rows[m_Cursor].m_Key);
        if (found == m_Boxes.end()) {
            return 1;
        }
        auto* boxes = new CKorBoundingBoxesMD;
        for (const SKorBoundingBox& box : found->second) {
            boxes->AddBox(box);
        }
        *handler = boxes;
        return 1;
    }
    const char* GetLastError() override { return m_FailAt >= 0 ? "the test broke row" : ""; }

    std::vector<SSourceRow> m_Rows;
    std::map<std::int32_t, std::vector<SKorBoundingBox>> m_Boxes;
    long m_FailAt = -1; // reads of this row fail
    int m_MetadataReads = 0;
    int m_StepBacks = 0;

private:
    ~CFakeAttributeSource() = default;
    long m_Refs = 1;
    size_t m_Cursor = 0;
};

// The (startTime, endTime) pairs of a result vector of interval objects (borrowed).
template <class TInfo> std::vector<std::pair<double, double>> Intervals(CJokGenericData* result) {
    std::vector<std::pair<double, double>> pairs;
    if (!result || result->GetType() != JOKGD_VECTOR) {
        return pairs;
    }
    auto* vector = static_cast<CJokGdVector*>(result);
    for (int i = 0; i < vector->GetSize(); ++i) {
        auto* object = static_cast<CJokGdObject*>(vector->GetElement(i));
        auto* info = static_cast<TInfo*>(object->GetCOMObject());
        pairs.emplace_back(info->m_dStartingTime, info->m_dEndTime);
    }
    return pairs;
}

} // namespace zortest
