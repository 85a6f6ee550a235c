// The metadata reader: opens an archive the metadata writer made and serves one camera's stream
// over a time range to the archive searches, through the attribute-source interface.
//
//   local reader = zor.CreateMetaDataReader{ file = "cam.db", camera = "cam1" }
//   print(reader.rows, reader.firstTime, reader.lastTime)
//   avmd.source = reader                       -- archive motion search
//   agvmd.source = reader                      -- archive collision search
//
// Creation parameters: "file" (required), "camera" (default "camera"), "stream" (the packets'
// stream number, default 0), "from" and "to" (stored ms, from <= time < to; default: the whole
// stream). Times read through the interface are ms since "from" (the stream's first frame when
// not given), so a search's StartTime 0 is the range's start.
//
// Columns: 1 time, 2 level, 5 box set key, 6 the key's boxes as "BBX1" metadata (nullptr for
// frames without boxes).
//
// Invariants: the component opens the file once, when made; a missing, locked, damaged or
// foreign file makes no component and says why; a failure while reading fails the read with the
// reason in GetLastError (and in "lastError") and never throws.
#pragma once

#include "framework/jok/Component.h"
#include "framework/kor/AttributeSource.h"
#include "storage/ArchiveStore.h"

#include <cstdint>
#include <memory>
#include <string>

class CJokCommandContext;
class CJokPropertyEnum;
template <class T> class CJokPropertyMap;

class CMetaDataReaderCom final : public CJokComponent {
public:
    CMetaDataReaderCom();
    ~CMetaDataReaderCom() override;

    // Opens the archive and the stream; on failure answers false with the reason.
    bool Open(const std::string& file, const std::string& camera, int stream, const double* from,
              const double* to, std::string* error);

    const _JOKCOM_IF_Map* GetInterfaceMap() const override;
    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;

    // The attribute source, borrowed (its reference count is the component's).
    IJokArchiveAttributeSource* GetSource() { return &m_xSource; }

    int FromHandler(double* value, int set);
    int ToHandler(double* value, int set);
    int RowsHandler(double* value, int set);
    int FirstTimeHandler(double* value, int set);
    int LastTimeHandler(double* value, int set);
    int FileHandler(CBelString* value, int set);
    int CameraHandler(CBelString* value, int set);
    int StreamHandler(double* value, int set);
    int LastErrorHandler(CBelString* value, int set);

    static const _JOKCOM_IF_Map sm_InterfaceMap;

private:
    struct XSource : IJokArchiveAttributeSource {
        explicit XSource(CMetaDataReaderCom* owner) : m_pOwner(owner) {}
        HRESULT QueryInterface(const IID& iid, void** object) override;
        unsigned long AddRef() override;
        unsigned long Release() override;
        long GetRowCount(long column) override;
        int Rewind(long column) override;
        int Advance(long column) override;
        int StepBack(long column) override;
        int ReadLong(long column, std::int32_t* value) override;
        int ReadMetadata(long column, CKorMetadataHandler** handler) override;
        const char* GetLastError() override;
        CMetaDataReaderCom* m_pOwner;
    };

    static const _JOKCOM_IF_Entry sm_InterfaceEntries[];
    static const CJokPropertyMap<CMetaDataReaderCom>& PropertyMap();
    // Applies m_From/m_To to the cursor; false with a message when the range is unusable.
    bool ApplyRange(std::string* error);

    zorarchive::CArchiveDatabase m_Database;
    std::unique_ptr<zorarchive::CArchiveCursor> m_pCursor;
    std::string m_File;
    std::string m_Camera;
    int m_Stream = 0;
    std::int64_t m_StreamId = 0;
    std::int64_t m_From = 0;
    std::int64_t m_To = INT64_MAX;
    std::string m_LastError;
    XSource m_xSource{this};
};

// "CreateMetaDataReader" { file, camera, stream, from, to }.
int CreateMetaDataReader(CJokCommandContext* context);
