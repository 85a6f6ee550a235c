// The metadata writer: stores, for every video packet that passes, its time, real time, motion
// level (attribute 1) and "BBX1" boxes in an archive file, for later searches through the
// metadata reader. Packets pass on unchanged.
//
//   local writer = zor.CreateMetaDataWriter{ file = "cam.db", camera = "cam1" }
//   zor.connect("video", source, writer, sink)    -- or dataPath = "video" to join by name
//   ...
//   writer.Commit{}                                 -- or let batches, the timer or the end do it
//
// Creation parameters: "file" (required; made when missing), "camera" (default "camera"),
// "dataPath" (joins that path by name; without it the writer serves "video" for explicit
// connection), "batchRows" (frames per transaction, default 1000), "timeout" (ms a locked
// archive is waited for, default 2000).
//
// Invariants:
//  - Frames are keyed (camera, the packet's stream number, time); a frame at a time already
//    stored replaces it.
//  - A frame's box set key changes exactly when its boxes differ from the previous frame's (0 for
//    none), so a search reads each box set once per run of frames that carry it.
//  - A batch is committed when full, a second after it opened (on the message loop), on Commit
//    and when the writer goes; a crash loses at most the open batch.
//  - A store that fails is reported once per run of failures, and packets still pass.
#pragma once

#include "entry/ZorExport.h"
#include "framework/kor/PinComponent.h"
#include "framework/kor/UnbufferedModule.h"
#include "storage/ArchiveStore.h"

#include <memory>
#include <string>
#include <vector>

class CJokCommandContext;
class CJokPropertyEnum;
template <class T> class CJokPropertyMap;

class ZOR_EXPORT CZorMetaDataWriter : public CKorUnbufferedModule {
public:
    // A batch is committed at the latest this long after it opened (ms).
    static constexpr long kCommitDelayMs = 1000;

    CZorMetaDataWriter();
    ~CZorMetaDataWriter() override;

    // timeoutMs: how long a locked archive is waited for.
    bool Open(const std::string& file, const std::string& camera, int timeoutMs,
              std::string* error);
    // Commits the open batch; false with a dump line when the store fails.
    bool Commit();
    // Commits and closes; later packets pass unrecorded.
    void Close();

    void TimeOut(long now) override;

    bool IsOpen() const { return m_pWriter != nullptr; }
    const std::string& GetFile() const { return m_File; }
    const std::string& GetCamera() const { return m_Camera; }
    long long Written() const { return m_pWriter ? m_pWriter->Written() : m_Written; }
    long Failures() const { return m_Failures; }
    void SetBatchRows(int rows);
    int GetBatchRows() const { return m_BatchRows; }

protected:
    void ProcessPacket() override;

private:
    zorarchive::CArchiveDatabase m_Database;
    std::unique_ptr<zorarchive::CArchiveWriter> m_pWriter;
    std::string m_File;
    std::string m_Camera;
    std::vector<zorarchive::SArchiveBox> m_Boxes;
    std::string m_Error;
    int m_BatchRows = 1000;
    long long m_Written = 0; // kept after Close
    long m_Failures = 0;
    bool m_Failing = false;
};

class CMetaDataWriterCom final : public CKor2PinComponent {
public:
    // Joins dataPath by name when it is not empty; serves "video" otherwise.
    explicit CMetaDataWriterCom(const char* dataPath);
    bool Open(const std::string& file, const std::string& camera, int timeoutMs,
              std::string* error) {
        return m_pModule->Open(file, camera, timeoutMs, error);
    }
    void JoinPath();

    CKorModule* CreateContext(const char* path) override;
    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;

    CZorMetaDataWriter* GetModule() const { return m_pModule; }

    int FileHandler(CBelString* value, int set);
    int CameraHandler(CBelString* value, int set);
    int WrittenHandler(double* value, int set);
    int FailuresHandler(double* value, int set);
    int BatchRowsHandler(double* value, int set);
    int CommitMethod(CJokCommandContext* context);
    int CloseMethod(CJokCommandContext* context);

private:
    static const CJokPropertyMap<CMetaDataWriterCom>& PropertyMap();

    CBelString m_Path;
    CZorMetaDataWriter* m_pModule; // owned by the bus as the path's context
};

// "CreateMetaDataWriter" { file, camera, dataPath, batchRows, timeout }.
int CreateMetaDataWriter(CJokCommandContext* context);
