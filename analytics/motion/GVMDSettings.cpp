#include "analytics/motion/GVMDSettings.h"

#include "framework/jok/GenericData.h"
#include "framework/kor/Metadata.h"

#include <cmath>
#include <vector>

void CZorGVMDSettings::SignalCollision(long, bool, double) {}

void CZorGVMDSettings::SetSensitivity(double sensitivity) {
    double s = sensitivity;
    if (!(s > 0)) { // NaN too: the least sensitive setting is the safe reading of nonsense
        s = 0;
    }
    if (s > 1) {
        s = 1;
    }
    m_dSensitivity = s;
    m_MinimumOverlap = static_cast<long>((1.0 - s) * static_cast<double>(kFrameArea));
    if (m_MinimumOverlap == 0) {
        m_MinimumOverlap = 1;
    }
}

int CZorGVMDSettings::SensitivityHandler(double value, int set) {
    if (set) {
        SetSensitivity(value);
    }
    return 1;
}

long CZorGVMDSettings::ShortDelay(long value, int set) {
    if (set) {
        m_Detector.m_ShortDelay = static_cast<std::int32_t>(value);
        return 1;
    }
    return m_Detector.m_ShortDelay;
}

long CZorGVMDSettings::LongDelay(long value, int set) {
    if (set) {
        m_Detector.m_LongDelay = static_cast<std::int32_t>(value);
        return 1;
    }
    return m_Detector.m_LongDelay;
}

int CZorGVMDSettings::PackedMaskHandler(CBelString* value, int set, CBelString* error) {
    if (!set) {
        const long size = m_Mask.GetPackedSize();
        std::vector<char> buffer(static_cast<size_t>(size));
        m_Mask.Pack(buffer.data(), size);
        *value = buffer.data();
        return 1;
    }
    if (value->IsEmpty()) {
        m_Mask.Clear();
        return 1;
    }
    return m_Mask.Parse(value->c_str(), value->GetLength(), error) ? 1 : 0;
}

namespace {

bool RefuseRects(CBelString* error, int entry, const char* what) {
    if (error) {
        error->Format("rectangle %d: %s", entry, what);
    }
    return false;
}

// One {x1, x2, y1, y2} entry as a box; false (with the reason) when it is not four numbers of
// the 16-bit range with x1 <= x2 and y1 <= y2.
bool ReadRect(const CJokGenericData* entry, int index, SKorBoundingBox* box, CBelString* error) {
    if (!entry || entry->GetType() != JOKGD_VECTOR ||
        static_cast<const CJokGdVector*>(entry)->GetSize() != 4) {
        return RefuseRects(error, index, "expected a vector of four numbers {x1, x2, y1, y2}");
    }
    const auto* four = static_cast<const CJokGdVector*>(entry);
    double v[4] = {};
    for (int i = 0; i < 4; ++i) {
        const CJokGenericData* number = four->GetElement(i);
        if (!number || number->GetType() != JOKGD_DOUBLE) {
            return RefuseRects(error, index, "expected a vector of four numbers {x1, x2, y1, y2}");
        }
        v[i] = static_cast<const CJokGdDouble*>(number)->GetValue();
        if (!(v[i] >= 0 && v[i] < 65536)) {
            return RefuseRects(error, index, "coordinates must be numbers from 0 to 65535");
        }
    }
    // Coordinates are whole pixels: fractions are cut off.
    box->m_Left = static_cast<std::uint16_t>(v[0]);
    box->m_Right = static_cast<std::uint16_t>(v[1]);
    box->m_Top = static_cast<std::uint16_t>(v[2]);
    box->m_Bottom = static_cast<std::uint16_t>(v[3]);
    box->m_Id = 0;
    if (box->m_Left > box->m_Right || box->m_Top > box->m_Bottom) {
        return RefuseRects(error, index, "x1 must not pass x2, nor y1 y2");
    }
    return true;
}

} // namespace

int CZorGVMDSettings::MaskHandler(CJokGenericData** value, int set, CBelString* error) {
    if (!set) {
        const int count = m_Mask.GetBoxCount();
        CJokGdVector* rects = CJokGdVector::Allocate(count);
        for (int i = 0; i < count; ++i) {
            const SKorBoundingBox& box = m_Mask.GetBox(i);
            const double v[4] = {double(box.m_Left), double(box.m_Right), double(box.m_Top),
                                 double(box.m_Bottom)};
            CJokGdVector* four = CJokGdVector::AllocateNumbers(v, 4);
            rects->SetElement(i, four);
            four->Release();
        }
        *value = rects;
        return 1;
    }
    const CJokGenericData* given = *value;
    if (!given || given->GetType() != JOKGD_VECTOR) {
        if (error) {
            *error = "expected a vector of {x1, x2, y1, y2} vectors";
        }
        return 0;
    }
    const auto* list = static_cast<const CJokGdVector*>(given);
    if (list->GetSize() > CKorBoundingBoxesMD::kMaxPackedRects) {
        if (error) {
            error->Format("at most %d rectangles", CKorBoundingBoxesMD::kMaxPackedRects);
        }
        return 0;
    }
    std::vector<SKorBoundingBox> boxes(static_cast<size_t>(list->GetSize()));
    for (int i = 0; i < list->GetSize(); ++i) {
        if (!ReadRect(list->GetElement(i), i + 1, &boxes[static_cast<size_t>(i)], error)) {
            return 0;
        }
    }
    m_Mask.Clear();
    for (const SKorBoundingBox& box : boxes) {
        m_Mask.AddBox(box);
    }
    return 1;
}

void CZorGVMDSettings::ProcessMD(long time, const CKorBoundingBoxesMD* boxes, double realTime) {
    const bool collision = boxes && m_Mask.Intersects(boxes, m_MinimumOverlap);
    const zormotion::CGvmdStateMachine::SEvent event =
        m_Detector.Step(static_cast<std::int32_t>(time), collision, realTime);
    if (event.m_Happened) {
        SignalCollision(event.m_Time, event.m_Collision, event.m_RealTime);
    }
}

void CZorGVMDSettings::ProcessMD(long time, const CKorMetadataHandler* handler) {
    if (!handler) {
        ProcessMD(time, nullptr, -1.0);
        return;
    }
    for (const CKorMetadataHandler* h = handler; h; h = h->Next()) {
        if (h->GetType() == kMetadataBoundingBoxes) {
            ProcessMD(time, static_cast<const CKorBoundingBoxesMD*>(h), -1.0);
            return;
        }
    }
}
