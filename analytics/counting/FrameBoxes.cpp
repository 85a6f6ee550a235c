#include "analytics/counting/FrameBoxes.h"

#include "framework/jok/GenericData.h"
#include "framework/kor/BoundingBoxesMD.h"
#include "framework/kor/LeftObjectDetectionMD.h"
#include "framework/kor/Packet.h"
#include "framework/kor/PeopleCountingMD.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

void ZorReadFrameBoxes(const CKorPacket& packet, std::vector<zor::counting::SBox>& boxes) {
    boxes.clear();
    for (CKorMetadataHandler* h = packet.GetMetadataHandler(); h; h = h->Next()) {
        if (h->GetType() != kMetadataBoundingBoxes) {
            continue;
        }
        const auto* found = dynamic_cast<const CKorBoundingBoxesMD*>(h);
        if (!found) {
            continue;
        }
        boxes.reserve(static_cast<size_t>(found->GetBoxCount()));
        for (int i = 0; i < found->GetBoxCount(); ++i) {
            const SKorBoundingBox& b = found->GetBox(i);
            boxes.push_back(zor::counting::SBox{b.m_Left, b.m_Top, b.m_Right, b.m_Bottom});
        }
        return;
    }
}

bool ZorFrameSize(const CKorPacket& packet, int* width, int* height) {
    if (packet.GetKind() != CKorPacket::KIND_VIDEO) {
        return false;
    }
    const BITMAPINFOHEADER* info = static_cast<const CKorVideoPacket&>(packet).GetBitmapInfo();
    if (!info || info->biWidth <= 0 || info->biHeight == 0) {
        return false;
    }
    *width = static_cast<int>(info->biWidth);
    *height = static_cast<int>(std::labs(info->biHeight));
    return true;
}

std::uint16_t ZorBoxCoordinate(int value) {
    return static_cast<std::uint16_t>(std::clamp(value, 0, 65535));
}

template <class MD> MD* ZorFindOrAttach(CKorPacket& packet) {
    CKorMetadataHandler* chain = packet.GetMetadataHandler();
    if (MD* found = MD::Find(chain)) {
        return found;
    }
    auto* made = new MD;
    if (chain) {
        chain->Append(made);
    } else {
        packet.SetMetadataHandler(made, true);
    }
    return made;
}

template CKorPeopleCountingMD* ZorFindOrAttach<CKorPeopleCountingMD>(CKorPacket&);
template CKorLeftObjectDetectionMD* ZorFindOrAttach<CKorLeftObjectDetectionMD>(CKorPacket&);

bool ZorReadFourNumbers(CJokGenericData* value, double numbers[4]) {
    if (!value || value->GetType() != JOKGD_VECTOR) {
        return false;
    }
    const auto* vector = static_cast<const CJokGdVector*>(value);
    if (vector->GetSize() != 4) {
        return false;
    }
    for (int i = 0; i < 4; ++i) {
        const CJokGenericData* element = vector->GetElement(i);
        if (!element || element->GetType() != JOKGD_DOUBLE) {
            return false;
        }
        numbers[i] = static_cast<const CJokGdDouble*>(element)->GetValue();
        if (!std::isfinite(numbers[i]) || std::fabs(numbers[i]) > 100000.0) {
            return false;
        }
    }
    return true;
}

CJokGenericData* ZorFourNumbers(const double numbers[4]) {
    return CJokGdVector::AllocateNumbers(numbers, 4);
}
