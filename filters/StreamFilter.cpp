#include "filters/StreamFilter.h"

#include "entry/Registry.h"
#include "expr/ExpressionEvalOp.h"
#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/GenericData.h"
#include "framework/jok/PropertyMap.h"
#include "framework/kor/Packet.h"

#include <algorithm>

bool CZorStreamFilterModule::IsKeyFrame(const CKorPacket& packet) {
    switch (packet.GetKind()) {
    case CKorPacket::KIND_VIDEO: {
        const int type = static_cast<const CKorVideoPacket&>(packet).GetFrameType();
        return type == CKorVideoPacket::I_FRAME || type == CKorVideoPacket::EI_FRAME;
    }
    case CKorPacket::KIND_TRELLUM:
        return static_cast<const CKorTrellumPacket&>(packet).GetPacketType() ==
               CKorTrellumPacket::TL3_K_PCK;
    default:
        return true;
    }
}

CZorStreamFilterModule::CZorStreamFilterModule(const char* name)
    : CKorUnbufferedModule(name && *name ? name : "StreamFilter") {
    DisableProcessing(1);
}

void CZorStreamFilterModule::SetStreamFilter(std::vector<std::int32_t> ids, std::int32_t include,
                                             std::uint32_t mask) {
    m_Ids = std::move(ids);
    m_Include = include;
    m_Mask = mask;
}

void CZorStreamFilterModule::ProcessPacket() {
    const auto key =
        static_cast<std::int32_t>(static_cast<std::uint32_t>(m_pPacket->GetStreamNo()) & m_Mask);
    const bool found = std::find(m_Ids.begin(), m_Ids.end(), key) != m_Ids.end();
    // While waiting, even a matching packet must be a key frame; the wait goes on.
    const bool pass =
        (!m_Resynchronising || IsKeyFrame(*m_pPacket)) && (found ? m_Include != 0 : m_Include == 0);
    m_Resynchronising = pass ? 0 : 1;
    if (!pass) {
        m_pPacket->Release();
        m_pPacket = nullptr;
    }
}

// ---------------------------------------------------------------------------------------------

CStreamFilterCom::CStreamFilterCom(CJokGdVector* paths)
    : CKor2PinMultiPath("StreamFilter", paths, "") {
    JoinPaths();
}

CZorStreamFilterModule* CStreamFilterCom::MakeModule(const char*) {
    return new CZorStreamFilterModule(GetModuleName());
}

const CJokPropertyMap<CStreamFilterCom>& CStreamFilterCom::PropertyMap() {
    static const CJokPropertyMap<CStreamFilterCom> map = [] {
        CJokPropertyMap<CStreamFilterCom> m;
        m.AddFunction("SetStreamFilter", &CStreamFilterCom::SetStreamFilter,
                      "&CStreamFilterCom::SetStreamFilter")
            .AddFunction("EnableStreamFilter", &CStreamFilterCom::EnableStreamFilter,
                         "&CStreamFilterCom::EnableStreamFilter");
        return m;
    }();
    return map;
}

CJokGenericData* CStreamFilterCom::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKor2PinComponent::GetProperty(name, flags);
}

int CStreamFilterCom::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKor2PinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CStreamFilterCom::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKor2PinComponent::GetPropertyEnumerator());
}

int CStreamFilterCom::SetStreamFilter(CJokCommandContext* context) {
    CBelString path;
    CJokGenericData* idsValue = nullptr;
    int include = 1;
    double mask = 4294967295.0;
    context->GetParam("path", &path, 1);
    context->GetParam("filterIDs", &idsValue, 0);
    context->GetParam("includeFilter", &include, 1);
    context->GetParam("mask", &mask, 1);
    if (!context->CanProceed(0)) {
        if (idsValue) {
            idsValue->Release();
        }
        return 1;
    }
    std::vector<std::int32_t> ids;
    const int type = idsValue->GetType();
    if (type == JOKGD_VECTOR) {
        auto* vector = static_cast<CJokGdVector*>(idsValue);
        for (int i = 0; i < vector->GetSize(); ++i) {
            CJokGenericData* pElem = vector->GetElement(i);
            if (!pElem || pElem->GetType() != JOKGD_DOUBLE) {
                BelDisplayAssert("pElem->GetType() == CJokGenericData::Number", __FILE__, __LINE__);
                continue;
            }
            const double id = static_cast<CJokGdDouble*>(pElem)->GetValue();
            ids.push_back(static_cast<std::int32_t>(TruncateToWord(id)));
        }
    }
    idsValue->Release();
    if (type != JOKGD_VECTOR && type != JOKGD_NULL) {
        // The method's name reversed in this message is what existing scripts match on.
        context->OutputErrorString(
            "SetFilterStream: sourceIDs must be a vector of integers (or null)");
        return 1;
    }
    bool found = false;
    for (const auto& [modulePath, module] : GetModules()) {
        if (path.IsEmpty() || modulePath.CompareNoCase(path) == 0) {
            module->SetStreamFilter(ids, include, TruncateToWord(mask));
            found = true;
        }
    }
    if (!found && !path.IsEmpty()) {
        CBelString message;
        message.Format("StreamFilter: the requested path %s does not exist.\n", path.c_str());
        context->OutputErrorString(message);
    }
    return 1;
}

int CStreamFilterCom::EnableStreamFilter(CJokCommandContext* context) {
    CBelString path;
    int enable = 1;
    context->GetParam("path", &path, 1);
    context->GetParam("enable", &enable, 1);
    if (!context->CanProceed(0)) {
        return 1;
    }
    for (const auto& [modulePath, module] : GetModules()) {
        if (path.IsEmpty()) {
            module->DisableProcessing(!enable);
        } else if (modulePath.CompareNoCase(path) == 0) {
            module->DisableProcessing(!enable);
            return 1;
        }
    }
    if (!path.IsEmpty()) {
        CBelString message;
        message.Format("EnableStreamFilter: the requested path %s does not exist.\n", path.c_str());
        context->OutputErrorString(message);
    }
    return 1;
}

int CreateStreamFilter(CJokCommandContext* context) {
    return ZorCreateWithPaths<CStreamFilterCom>(context, "CreateStreamFilter");
}
