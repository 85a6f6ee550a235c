#include "storage/MetaDataReader.h"

#include "framework/jok/CommandContext.h"
#include "framework/jok/PropertyMap.h"
#include "framework/kor/BoundingBoxesMD.h"

#include <cmath>
#include <vector>

namespace {

// Times cross the interface as 32-bit ms since the range's start.
constexpr std::int64_t kMaxSpan = INT32_MAX;

bool WholeMs(double value) {
    return !std::isnan(value) && value >= -9.0e15 && value <= 9.0e15;
}

} // namespace

const _JOKCOM_IF_Entry CMetaDataReaderCom::sm_InterfaceEntries[] = {
    {&IID_IJokArchiveAttributeSource,
     [](CJokCOMObject* o) -> void* {
         return static_cast<IJokArchiveAttributeSource*>(
             static_cast<CMetaDataReaderCom*>(o)->GetSource());
     }},
    {nullptr, nullptr}};

const _JOKCOM_IF_Map CMetaDataReaderCom::sm_InterfaceMap = {&CJokComponent::sm_InterfaceMap,
                                                            sm_InterfaceEntries};

CMetaDataReaderCom::CMetaDataReaderCom() : CJokComponent("MetaDataReader") {}

CMetaDataReaderCom::~CMetaDataReaderCom() {
    m_pCursor.reset(); // its statements go before the database closes
}

const _JOKCOM_IF_Map* CMetaDataReaderCom::GetInterfaceMap() const {
    return &sm_InterfaceMap;
}

bool CMetaDataReaderCom::Open(const std::string& file, const std::string& camera, int stream,
                              const double* from, const double* to, std::string* error) {
    m_File = file;
    m_Camera = camera;
    m_Stream = stream;
    if (!m_Database.Open(file, zorarchive::CArchiveDatabase::READ, 2000, error) ||
        !m_Database.FindStream(camera, stream, false, &m_StreamId, error)) {
        return false;
    }
    std::int64_t first = 0;
    std::int64_t last = 0;
    const bool any = m_Database.TimeSpan(m_StreamId, &first, &last);
    m_From = from ? static_cast<std::int64_t>(*from) : (any ? first : 0);
    m_To = to ? static_cast<std::int64_t>(*to) : INT64_MAX;
    m_pCursor = std::make_unique<zorarchive::CArchiveCursor>(&m_Database);
    return ApplyRange(error);
}

bool CMetaDataReaderCom::ApplyRange(std::string* error) {
    if (m_To <= m_From) {
        *error = m_File + ": the range from " + std::to_string(m_From) + " to " +
                 std::to_string(m_To) + " ms holds no time";
        return false;
    }
    std::int64_t first = 0;
    std::int64_t last = 0;
    if (m_Database.TimeSpan(m_StreamId, &first, &last)) {
        const std::int64_t end = std::min(last, m_To - 1);
        if (end - m_From > kMaxSpan) {
            *error = m_File + ": the range spans more than 2147483647 ms (24.8 days); search it "
                              "in shorter ranges";
            return false;
        }
    }
    return m_pCursor->SetRange(m_StreamId, m_From, m_To, error);
}

const CJokPropertyMap<CMetaDataReaderCom>& CMetaDataReaderCom::PropertyMap() {
    using C = CMetaDataReaderCom;
    static const CJokPropertyMap<C> map = [] {
        CJokPropertyMap<C> m;
        m.AddNotifiedString("file", &C::FileHandler, "&CMetaDataReaderCom::FileHandler", 1)
            .AddNotifiedString("camera", &C::CameraHandler, "&CMetaDataReaderCom::CameraHandler", 1)
            .AddNotifiedDouble("stream", &C::StreamHandler, "&CMetaDataReaderCom::StreamHandler", 1)
            .AddNotifiedDouble("from", &C::FromHandler, "&CMetaDataReaderCom::FromHandler")
            .AddNotifiedDouble("to", &C::ToHandler, "&CMetaDataReaderCom::ToHandler")
            .AddNotifiedDouble("rows", &C::RowsHandler, "&CMetaDataReaderCom::RowsHandler", 1)
            .AddNotifiedDouble("firstTime", &C::FirstTimeHandler,
                               "&CMetaDataReaderCom::FirstTimeHandler", 1)
            .AddNotifiedDouble("lastTime", &C::LastTimeHandler,
                               "&CMetaDataReaderCom::LastTimeHandler", 1)
            .AddNotifiedString("lastError", &C::LastErrorHandler,
                               "&CMetaDataReaderCom::LastErrorHandler", 1);
        return m;
    }();
    return map;
}

CJokGenericData* CMetaDataReaderCom::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CJokComponent::GetProperty(name, flags);
}

int CMetaDataReaderCom::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    return result == -1 ? CJokComponent::SetProperty(name, value) : result != 0;
}

CJokPropertyEnum* CMetaDataReaderCom::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CJokComponent::GetPropertyEnumerator());
}

int CMetaDataReaderCom::FromHandler(double* value, int set) {
    if (!set) {
        *value = static_cast<double>(m_From);
        return 1;
    }
    if (!WholeMs(*value)) {
        BelReportScriptError("MetaDataReader.from: expected a time in ms");
        return 0;
    }
    const std::int64_t old = m_From;
    m_From = static_cast<std::int64_t>(*value);
    std::string error;
    if (!ApplyRange(&error)) {
        m_From = old;
        ApplyRange(&m_LastError);
        BelReportScriptError(("MetaDataReader.from: " + error).c_str());
        return 0;
    }
    return 1;
}

int CMetaDataReaderCom::ToHandler(double* value, int set) {
    if (!set) {
        *value = m_To == INT64_MAX ? -1.0 : static_cast<double>(m_To);
        return 1;
    }
    if (!WholeMs(*value)) {
        BelReportScriptError("MetaDataReader.to: expected a time in ms (-1: no end)");
        return 0;
    }
    const std::int64_t old = m_To;
    m_To = *value < 0 ? INT64_MAX : static_cast<std::int64_t>(*value);
    std::string error;
    if (!ApplyRange(&error)) {
        m_To = old;
        ApplyRange(&m_LastError);
        BelReportScriptError(("MetaDataReader.to: " + error).c_str());
        return 0;
    }
    return 1;
}

int CMetaDataReaderCom::RowsHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = static_cast<double>(m_xSource.GetRowCount(KOR_ATTR_TIME));
    return 1;
}

int CMetaDataReaderCom::FirstTimeHandler(double* value, int set) {
    std::int64_t first = 0, last = 0;
    if (set || !m_Database.TimeSpan(m_StreamId, &first, &last)) {
        return 0;
    }
    *value = static_cast<double>(first);
    return 1;
}

int CMetaDataReaderCom::LastTimeHandler(double* value, int set) {
    std::int64_t first = 0, last = 0;
    if (set || !m_Database.TimeSpan(m_StreamId, &first, &last)) {
        return 0;
    }
    *value = static_cast<double>(last);
    return 1;
}

int CMetaDataReaderCom::FileHandler(CBelString* value, int set) {
    if (set) {
        return 0;
    }
    *value = m_File;
    return 1;
}

int CMetaDataReaderCom::CameraHandler(CBelString* value, int set) {
    if (set) {
        return 0;
    }
    *value = m_Camera;
    return 1;
}

int CMetaDataReaderCom::StreamHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = m_Stream;
    return 1;
}

int CMetaDataReaderCom::LastErrorHandler(CBelString* value, int set) {
    if (set) {
        return 0;
    }
    *value = m_LastError;
    return 1;
}

// ---------------------------------------------------------------------------------------------
// The attribute source

HRESULT CMetaDataReaderCom::XSource::QueryInterface(const IID& iid, void** object) {
    return m_pOwner->ExternalQueryInterface(iid, object);
}

unsigned long CMetaDataReaderCom::XSource::AddRef() {
    return m_pOwner->ExternalAddRef();
}

unsigned long CMetaDataReaderCom::XSource::Release() {
    return m_pOwner->ExternalRelease();
}

long CMetaDataReaderCom::XSource::GetRowCount(long) {
    const std::int64_t rows = m_pOwner->m_pCursor->Count();
    if (rows < 0) {
        m_pOwner->m_LastError = m_pOwner->m_pCursor->Error();
        return 0;
    }
    return static_cast<long>(std::min<std::int64_t>(rows, INT32_MAX));
}

int CMetaDataReaderCom::XSource::Rewind(long) {
    m_pOwner->m_LastError.clear();
    if (m_pOwner->m_pCursor->Rewind()) {
        return 1;
    }
    m_pOwner->m_LastError = m_pOwner->m_pCursor->Error();
    return 0;
}

int CMetaDataReaderCom::XSource::Advance(long) {
    if (m_pOwner->m_pCursor->Advance()) {
        return 1;
    }
    m_pOwner->m_LastError = m_pOwner->m_pCursor->Error();
    return 0;
}

int CMetaDataReaderCom::XSource::StepBack(long) {
    return m_pOwner->m_pCursor->StepBack() ? 1 : 0;
}

int CMetaDataReaderCom::XSource::ReadLong(long column, std::int32_t* value) {
    const zorarchive::SFrameRow* row = m_pOwner->m_pCursor->Current();
    if (!row) {
        if (m_pOwner->m_LastError.empty()) {
            m_pOwner->m_LastError = m_pOwner->m_File + ": no current row (the cursor is past the "
                                                       "last row or was never rewound)";
        }
        return 0;
    }
    switch (column) {
    case KOR_ATTR_TIME:
        *value = static_cast<std::int32_t>(row->m_Time - m_pOwner->m_From);
        return 1;
    case KOR_ATTR_LEVEL:
        *value = row->m_Level;
        return 1;
    case KOR_ATTR_KEY:
        // Keys are compared, never counted: the low 32 bits tell neighbours apart.
        *value = static_cast<std::int32_t>(row->m_Key);
        return 1;
    default:
        m_pOwner->m_LastError = "column " + std::to_string(column) + " is not a number column";
        return 0;
    }
}

int CMetaDataReaderCom::XSource::ReadMetadata(long column, CKorMetadataHandler** handler) {
    *handler = nullptr;
    const zorarchive::SFrameRow* row = m_pOwner->m_pCursor->Current();
    if (column != KOR_ATTR_METADATA || !row) {
        m_pOwner->m_LastError = column != KOR_ATTR_METADATA
                                    ? "column " + std::to_string(column) + " holds no metadata"
                                    : m_pOwner->m_File + ": no current row";
        return 0;
    }
    if (row->m_Key == 0) {
        return 1;
    }
    std::vector<zorarchive::SArchiveBox> boxes;
    if (!m_pOwner->m_pCursor->ReadBoxes(row->m_Key, &boxes)) {
        m_pOwner->m_LastError = m_pOwner->m_pCursor->Error();
        return 0;
    }
    auto* metadata = new CKorBoundingBoxesMD;
    for (const zorarchive::SArchiveBox& box : boxes) {
        metadata->AddBox(
            SKorBoundingBox{box.m_Left, box.m_Top, box.m_Right, box.m_Bottom, box.m_Id});
    }
    *handler = metadata;
    return 1;
}

const char* CMetaDataReaderCom::XSource::GetLastError() {
    return m_pOwner->m_LastError.c_str();
}

// ---------------------------------------------------------------------------------------------

int CreateMetaDataReader(CJokCommandContext* context) {
    CBelString file;
    CBelString camera = "camera";
    double stream = 0;
    double from = 0;
    double to = 0;
    context->GetParam("file", &file, 0);
    context->GetParam("camera", &camera, 1);
    context->GetParam("stream", &stream, 1);
    const bool hasFrom = context->FindParam("from") != nullptr;
    const bool hasTo = context->FindParam("to") != nullptr;
    context->GetParam("from", &from, 1);
    context->GetParam("to", &to, 1);
    if (!context->CanProceed(0)) {
        return 1;
    }
    if (std::isnan(stream) || stream < 0 || stream > INT32_MAX || (hasFrom && !WholeMs(from)) ||
        (hasTo && !WholeMs(to))) {
        context->OutputErrorString(
            "CreateMetaDataReader: stream must be a number from 0 up, from and to times in ms");
        return 1;
    }
    auto* reader = new CMetaDataReaderCom;
    std::string error;
    if (!reader->Open(file.str(), camera.str(), static_cast<int>(stream), hasFrom ? &from : nullptr,
                      hasTo && to >= 0 ? &to : nullptr, &error)) {
        context->OutputErrorString(("CreateMetaDataReader: " + error).c_str());
        reader->Release();
        return 1;
    }
    context->SetReturnValueNoRef(CJokGdObject::Allocate(reader));
    reader->ExternalRelease();
    return 1;
}
