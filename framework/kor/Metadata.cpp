#include "framework/kor/Metadata.h"

CKorMetadataHandler::~CKorMetadataHandler() {
    delete m_pNext;
}

void CKorMetadataHandler::Append(CKorMetadataHandler* handler) {
    CKorMetadataHandler* last = this;
    while (last->m_pNext) {
        last = last->m_pNext;
    }
    last->m_pNext = handler;
}

CKorMetadataHandler* CKorMetadataHandler::CloneChain() const {
    CKorMetadataHandler* head = CloneOne();
    if (m_pNext) {
        head->Append(m_pNext->CloneChain());
    }
    return head;
}

CKorMetadataHandler* CKorMetadataHandler::CloneOne() const {
    return new CKorMetadataHandler(m_Type);
}

CKorMetadataHandler* CKorAspectRatioMD::CloneOne() const {
    auto* copy = new CKorAspectRatioMD;
    copy->SetAspectRatio(m_X, m_Y);
    return copy;
}

CKorMetadataHandler* CKorGeneralDataMD::CloneOne() const {
    auto* copy = new CKorGeneralDataMD(GetType());
    copy->m_Data = m_Data;
    return copy;
}

CKorMetadataHandler* CKorSubStreamMD::CloneOne() const {
    auto* copy = new CKorSubStreamMD;
    copy->m_Sizes = m_Sizes;
    return copy;
}
