#include "storage/MetaDataWriter.h"

#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/PropertyMap.h"
#include "framework/kor/BoundingBoxesMD.h"
#include "framework/kor/Packet.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr const char* kDefaultPath = "video";
constexpr int kVmdLevelAttribute = 1;
constexpr int kMaxBatchRows = 1000000;
// A locked archive is waited for at most this long (ms).
constexpr double kMaxTimeoutMs = 60000;

} // namespace

CZorMetaDataWriter::CZorMetaDataWriter() : CKorUnbufferedModule("MetaDataWriter") {}

CZorMetaDataWriter::~CZorMetaDataWriter() {
    Close();
}

bool CZorMetaDataWriter::Open(const std::string& file, const std::string& camera, int timeoutMs,
                              std::string* error) {
    m_File = file;
    m_Camera = camera;
    if (!m_Database.Open(file, zorarchive::CArchiveDatabase::WRITE, timeoutMs, error)) {
        return false;
    }
    m_pWriter = std::make_unique<zorarchive::CArchiveWriter>(&m_Database);
    m_pWriter->m_BatchRows = m_BatchRows;
    return true;
}

void CZorMetaDataWriter::SetBatchRows(int rows) {
    m_BatchRows = rows;
    if (m_pWriter) {
        m_pWriter->m_BatchRows = rows;
    }
}

bool CZorMetaDataWriter::Commit() {
    KillAlarm();
    if (!m_pWriter || m_pWriter->Commit(&m_Error)) {
        return true;
    }
    BelDump("CZorMetaDataWriter::Commit -> %s\n", m_Error.c_str());
    return false;
}

void CZorMetaDataWriter::Close() {
    if (!m_pWriter) {
        return;
    }
    Commit();
    m_Written = m_pWriter->Written();
    m_pWriter.reset();
    m_Database.Close();
}

void CZorMetaDataWriter::TimeOut(long) {
    Commit();
}

void CZorMetaDataWriter::ProcessPacket() {
    const CKorPacket* packet = m_pPacket;
    if (!m_pWriter || !packet->IsTimeStampValid() || packet->GetKind() != CKorPacket::KIND_VIDEO) {
        return;
    }
    int level = -1;
    if (!packet->GetAttribute(kVmdLevelAttribute, &level)) {
        level = -1;
    }
    m_Boxes.clear();
    if (const auto* boxes =
            static_cast<const CKorBoundingBoxesMD*>(packet->FindMetadata(kMetadataBoundingBoxes))) {
        const int count = std::min<int>(boxes->GetBoxCount(), zorarchive::kMaxBoxesPerFrame);
        for (int i = 0; i < count; ++i) {
            const SKorBoundingBox& box = boxes->GetBox(i);
            m_Boxes.push_back(zorarchive::SArchiveBox{box.m_Left, box.m_Top, box.m_Right,
                                                      box.m_Bottom, box.m_Id});
        }
    }
    const bool batchWasOpen = m_pWriter->Pending() > 0;
    if (!m_pWriter->Append(
            m_Camera, packet->GetStreamNo(), static_cast<std::int32_t>(packet->GetTimeStamp()),
            packet->GetRealTimeStamp(), level, m_Boxes.data(), m_Boxes.size(), &m_Error)) {
        ++m_Failures;
        if (!m_Failing) {
            // Once per run of failures: a full disk would otherwise write a line per frame.
            BelDump("CZorMetaDataWriter::ProcessPacket -> %s\n", m_Error.c_str());
            m_Failing = true;
        }
        return;
    }
    m_Failing = false;
    if (!batchWasOpen && m_pWriter->Pending() > 0) {
        SetAlarm(kCommitDelayMs);
    }
}

// ---------------------------------------------------------------------------------------------

CMetaDataWriterCom::CMetaDataWriterCom(const char* dataPath)
    : CKor2PinComponent("MetaDataWriter"), m_Path(dataPath && *dataPath ? dataPath : kDefaultPath) {
    m_pModule = static_cast<CZorMetaDataWriter*>(CreateContext(m_Path));
}

void CMetaDataWriterCom::JoinPath() {
    ConnectPath(m_Path);
}

CKorModule* CMetaDataWriterCom::CreateContext(const char* path) {
    if (CKorModule* existing = _GetContext(path)) {
        return existing;
    }
    if (!path || m_Path != path) {
        return nullptr;
    }
    return RememberContext(path, new CZorMetaDataWriter);
}

const CJokPropertyMap<CMetaDataWriterCom>& CMetaDataWriterCom::PropertyMap() {
    using C = CMetaDataWriterCom;
    static const CJokPropertyMap<C> map = [] {
        CJokPropertyMap<C> m;
        m.AddNotifiedString("file", &C::FileHandler, "&CMetaDataWriterCom::FileHandler", 1)
            .AddNotifiedString("camera", &C::CameraHandler, "&CMetaDataWriterCom::CameraHandler", 1)
            .AddNotifiedDouble("written", &C::WrittenHandler, "&CMetaDataWriterCom::WrittenHandler",
                               1)
            .AddNotifiedDouble("failures", &C::FailuresHandler,
                               "&CMetaDataWriterCom::FailuresHandler", 1)
            .AddNotifiedDouble("batchRows", &C::BatchRowsHandler,
                               "&CMetaDataWriterCom::BatchRowsHandler")
            .AddFunction("Commit", &C::CommitMethod, "&CMetaDataWriterCom::CommitMethod")
            .AddFunction("Close", &C::CloseMethod, "&CMetaDataWriterCom::CloseMethod");
        return m;
    }();
    return map;
}

CJokGenericData* CMetaDataWriterCom::GetProperty(const char* name, int flags) {
    if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags)) {
        return value;
    }
    return CKor2PinComponent::GetProperty(name, flags);
}

int CMetaDataWriterCom::SetProperty(const char* name, CJokGenericData* value) {
    const int result = PropertyMap().SetProperty(this, name, value);
    if (result == -1) {
        return CKor2PinComponent::SetProperty(name, value);
    }
    return result != 0;
}

CJokPropertyEnum* CMetaDataWriterCom::GetPropertyEnumerator() {
    return PropertyMap().NewEnumerator(CKor2PinComponent::GetPropertyEnumerator());
}

int CMetaDataWriterCom::FileHandler(CBelString* value, int set) {
    if (set) {
        return 0;
    }
    *value = m_pModule->GetFile();
    return 1;
}

int CMetaDataWriterCom::CameraHandler(CBelString* value, int set) {
    if (set) {
        return 0;
    }
    *value = m_pModule->GetCamera();
    return 1;
}

int CMetaDataWriterCom::WrittenHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = static_cast<double>(m_pModule->Written());
    return 1;
}

int CMetaDataWriterCom::FailuresHandler(double* value, int set) {
    if (set) {
        return 0;
    }
    *value = static_cast<double>(m_pModule->Failures());
    return 1;
}

int CMetaDataWriterCom::BatchRowsHandler(double* value, int set) {
    if (!set) {
        *value = m_pModule->GetBatchRows();
        return 1;
    }
    if (std::isnan(*value) || *value < 1 || *value > kMaxBatchRows) {
        BelReportScriptError("MetaDataWriter.batchRows: expected a count from 1 to 1000000");
        return 0;
    }
    m_pModule->SetBatchRows(static_cast<int>(*value));
    return 1;
}

int CMetaDataWriterCom::CommitMethod(CJokCommandContext* context) {
    if (!context->CanProceed(0)) {
        return 1;
    }
    context->SetReturnValueNoRef(CJokGdBoolean::Allocate(m_pModule->Commit()));
    return 1;
}

int CMetaDataWriterCom::CloseMethod(CJokCommandContext* context) {
    if (!context->CanProceed(0)) {
        return 1;
    }
    m_pModule->Close();
    return 1;
}

int CreateMetaDataWriter(CJokCommandContext* context) {
    CBelString file;
    CBelString camera = "camera";
    CBelString dataPath;
    double batchRows = 1000;
    double timeout = 2000;
    context->GetParam("file", &file, 0);
    context->GetParam("camera", &camera, 1);
    context->GetParam("dataPath", &dataPath, 1);
    context->GetParam("batchRows", &batchRows, 1);
    context->GetParam("timeout", &timeout, 1);
    if (!context->CanProceed(0)) {
        return 1;
    }
    if (file.IsEmpty() || std::isnan(batchRows) || batchRows < 1 || batchRows > kMaxBatchRows ||
        std::isnan(timeout) || timeout < 0 || timeout > kMaxTimeoutMs) {
        context->OutputErrorString("CreateMetaDataWriter: file must name a file, batchRows be a "
                                   "count from 1 to 1000000, timeout ms from 0 to 60000");
        return 1;
    }
    auto* writer = new CMetaDataWriterCom(dataPath);
    writer->GetModule()->SetBatchRows(static_cast<int>(batchRows));
    std::string error;
    if (!writer->Open(file.str(), camera.str(), static_cast<int>(timeout), &error)) {
        context->OutputErrorString(("CreateMetaDataWriter: " + error).c_str());
        writer->Release();
        return 1;
    }
    if (!dataPath.IsEmpty()) {
        writer->JoinPath();
    }
    context->SetReturnValueNoRef(CJokGdObject::Allocate(writer));
    writer->ExternalRelease();
    return 1;
}
