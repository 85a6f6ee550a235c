// The frame writer ("CreateVideoDisplay"): the system's display, rendered to files a person can
// open. It writes the frames that pass through it as PNG snapshots, as a video file, and as a
// contact sheet (a grid of thumbnails spread over the whole run, each with its time), drawing
// the "BBX1" boxes of each packet and its time and motion level when asked. Compressed packets
// are decoded with its own decoder; every packet goes on unchanged, or ends here when nothing
// follows the writer on its path (a display is a natural end of a chain).
//
//   local out = zor.CreateVideoDisplay{ dataPath = "video" }
//   out.snapshots = "/tmp/run/snap-%03d.png"   -- one every snapshotInterval ms (default 1000)
//   out.video = "/tmp/run/annotated.mp4"       -- container from the name: .mp4, .mkv, .avi
//   out.contactSheet = "/tmp/run/sheet.png"    -- sheetCount thumbnails, sheetColumns wide
//   out.drawBoxes = true; out.drawTime = true
//   out.drawCounting = true                    -- counting line, tracks, counts, left objects
//   ... run the graph ...
//   out.Close()                                 -- finishes the video and writes the sheet
//
// Invariants:
//  - Pictures are drawn on copies: the frames that go on are never changed.
//  - Output sizes: the frame's own, or "width" wide with the frame's aspect (even numbers for
//    the video file). The video file takes the size of its first picture; pictures of another
//    size are scaled to it.
//  - A file that cannot be written is reported once per output through BelDump and in "error";
//    the other outputs and the packet flow go on.
//  - A refused packet waits as the one pending packet; while it waits, new packets are refused
//    untouched.
#pragma once

#include "analytics/counting/CountingOverlay.h"
#include "entry/ZorExport.h"
#include "framework/kor/Module.h"
#include "framework/kor/PinComponent.h"
#include "video/PictureFiles.h"
#include "video/VideoDecompressor.h"
#include "video/core/ContactSheet.h"

#include <memory>
#include <string>

class CJokCommandContext;
class CJokPropertyEnum;
template <class T> class CJokPropertyMap;

struct SZorFrameWriterSettings {
    std::string m_Snapshots; // printf pattern with one integer conversion, or empty
    double m_SnapshotInterval = 1000;
    std::string m_Video;        // video file, or empty
    std::string m_VideoEncoder; // libavcodec encoder name; empty: H.264, else MPEG-4
    std::string m_ContactSheet; // PNG file, or empty
    int m_SheetCount = 12;
    int m_SheetColumns = 4;
    int m_ThumbWidth = 240;
    int m_Width = 0; // output width; 0: the frame's
    bool m_DrawBoxes = false;
    bool m_DrawTime = false;
    bool m_DrawCounting = false; // what the counting analysers saw (CZorCountingOverlay)
};

class ZOR_EXPORT CZorFrameWriter : public CKorModule {
public:
    explicit CZorFrameWriter(const char* name = "FrameWriter");
    // Finishes the outputs (as Close does).
    ~CZorFrameWriter() override;

    // Takes one reference on success (non-zero); see the file comment for the refusal rule.
    int Receive(CKorPacket* packet) override;
    void Poll() override;
    void Flush() override;

    SZorFrameWriterSettings& Settings() { return m_Settings; }
    // Writes the last frame seen as a PNG file now; answers false (see Error) without one.
    bool Snapshot(const std::string& file);
    // Ends the video file and writes the contact sheet; outputs start afresh afterwards.
    // Answers false when any output failed.
    bool Close();
    // Tries outputs that failed again (after their settings changed).
    void Rearm();

    long FramesSeen() const { return m_Frames; }
    long SnapshotsWritten() const { return m_Snapshots; }
    long VideoFrames() const { return m_Video.FramesWritten(); }
    const std::string& LastFile() const { return m_LastFile; }
    const std::string& Error() const { return m_Error; }

    // Whether a snapshot pattern has exactly one integer conversion ("%d", "%05d") and no other.
    static bool IsSnapshotPattern(const std::string& pattern);

private:
    struct SThumbnail {
        CZorRgbPicture m_Picture;
        long m_Time = 0;
    };

    void Handle(CKorVideoPacket* frame);
    // The frame as an RGB picture of the output size with its overlays.
    bool Render(CKorVideoPacket* frame, int width, int height, CZorRgbPicture* picture);
    void Overlay(const CKorVideoPacket* frame, CZorRgbPicture* picture, bool caption);
    void Report(const char* method, const std::string& error);
    bool WriteSheet();

    CZorVideoDecompressor m_Decoder;
    SZorFrameWriterSettings m_Settings;
    CZorFrameToRgb m_ToRgb;
    CZorCountingOverlay m_Counting;
    CZorRgbPicture m_Picture;
    CZorVideoFile m_Video;
    int m_VideoWidth = 0;
    int m_VideoHeight = 0;
    bool m_VideoFailed = false;
    bool m_SnapshotFailed = false;
    std::unique_ptr<CZorThumbnailPicker<SThumbnail>> m_pPicker;
    CKorVideoPacket* m_pLast = nullptr; // one reference
    CKorPacket* m_pPending = nullptr;   // one reference
    long m_Frames = 0;
    long m_Snapshots = 0;
    long m_NextSnapshotTime = 0;
    bool m_SnapshotDue = true;
    std::string m_LastFile;
    std::string m_Error;
};

class CVideoDisplayCom final : public CKor2PinComponent {
public:
    explicit CVideoDisplayCom(const char* dataPath);
    ~CVideoDisplayCom() override;

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;
    CKorModule* CreateContext(const char* path) override;

    int SnapshotsHandler(CBelString* value, int set);
    int SnapshotIntervalHandler(double* value, int set);
    int VideoHandler(CBelString* value, int set);
    int VideoEncoderHandler(CBelString* value, int set);
    int ContactSheetHandler(CBelString* value, int set);
    int SheetCountHandler(double* value, int set);
    int SheetColumnsHandler(double* value, int set);
    int ThumbWidthHandler(double* value, int set);
    int WidthHandler(double* value, int set);
    int DrawBoxesHandler(int* value, int set);
    int DrawTimeHandler(int* value, int set);
    int DrawCountingHandler(int* value, int set);
    int FramesHandler(double* value, int set);
    int SnapshotsWrittenHandler(double* value, int set);
    int VideoFramesHandler(double* value, int set);
    int LastFileHandler(CBelString* value, int set);
    int ErrorHandler(CBelString* value, int set);
    // Close(): answers whether every output was written.
    int Close(CJokCommandContext* context);
    // Snapshot{ file = }: writes the last frame now; answers whether it was written.
    int Snapshot(CJokCommandContext* context);

    CZorFrameWriter* Module() { return m_pModule; } // borrowed

private:
    static const CJokPropertyMap<CVideoDisplayCom>& PropertyMap();

    std::unique_ptr<CZorFrameWriter> m_pOwned; // until a path takes it
    CZorFrameWriter* m_pModule;
};

// "CreateVideoDisplay": optional "dataPath".
int CreateVideoDisplay(CJokCommandContext* context);
