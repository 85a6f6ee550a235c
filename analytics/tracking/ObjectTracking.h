// Object tracking on the "video" path: compressed video (or decoded frames) in; out, for each
// picture, a frame packet with the processed image (the picture where the scene is calm, the
// amplified change against the learned background where something moves) and "BBX1" metadata
// with one box per 4 x 4 block of foreground, for the generic motion detector downstream.
//
//   local track = zor.CreateObjectTrackingModule{}
//   track.enabled = true                       -- starts disabled: packets pass untouched
//   local gvmd = zor.CreateGVMDFilter{}
//   gvmd.sPackedRects = "M1:0,120,352,240"
//   gvmd.enabled = true
//   zor.connect("video", source, track, gvmd, sink)
//   print(track.frames, track.boxes, track.foreground)
//
// Invariants:
//  - A video packet is decoded (a frame packet is taken as it is) and its picture tracked; the
//    output replaces it, carrying its picture's timestamp, validity and motion level. A packet
//    whose picture the decoder holds back or cannot decode goes on unchanged, with the line
//    "Should disable ObjectTracking encoding!!!".
//  - A video packet with an invalid timestamp starts a new sequence before it is decoded, and so
//    does a time-base packet without its continuous flag ("Time Base packet." for every
//    time-base packet, "NewSequence..." for every new sequence); other packets pass unchanged.
//  - The tracker's buffers are made for the first picture and again only when the frame format
//    changes (a new format sequence number); that picture becomes the background.
//  - The chain (TrackingChain.h) runs on luma; the output is grey unless the frames are colour
//    (grey = false), when calm blocks keep their colour. With picture = true the output is a copy
//    of the decoded picture instead, with the same boxes.
#pragma once

#include "analytics/tracking/TrackingChain.h"
#include "entry/ZorExport.h"
#include "framework/kor/PinComponent.h"
#include "framework/kor/UnbufferedModule.h"
#include "video/VideoDecompressor.h"

#include <cstdint>
#include <vector>

class CJokPropertyEnum;
class CKorVideoPacket;
template <class T> class CJokPropertyMap;

class ZOR_EXPORT CZorObjectTrackingProcessor : public CZorVideoDecompressor {
public:
    CZorObjectTrackingProcessor();
    ~CZorObjectTrackingProcessor() override;

    // Decodes input (borrowed) and tracks its picture: answers the processed frame (one
    // reference) with *produced true, or what the decoder answered (nullptr) with *produced
    // false when no picture came.
    CKorVideoPacket* Process(CKorVideoPacket* input, bool* produced);
    // Writes "NewSequence..." and forgets the decoder's sequence; the background stays.
    void NewSequence() override;

    // Whether each picture writes its "Cycles: %lu" line (off by default: a line a frame per
    // stream would bury every other diagnostic).
    void SetDumpCycles(bool dump) { m_DumpCycles = dump; }
    // Whether the output carries the decoded picture itself (with the boxes) instead of the
    // processed image: for showing the boxes on what the camera saw.
    void SetOutputPicture(bool picture) { m_OutputPicture = picture; }
    bool GetOutputPicture() const { return m_OutputPicture; }
    bool GetDumpCycles() const { return m_DumpCycles; }
    long FramesTracked() const { return m_FramesTracked; }
    int LastBoxCount() const { return m_LastBoxCount; }
    // Processor cycles (or nanoseconds where there is no cycle counter) spent on the eleven
    // steps for the last picture.
    std::uint64_t LastCycles() const { return m_LastCycles; }
    const CZorTrackingChain& Chain() const { return m_Chain; }
    // Backgrounds made so far (the first picture, and one after each change of format), and the
    // FOURCC of the frames they were made for.
    int FormatChanges() const { return m_FormatChanges; }
    unsigned long CurrentFormat() const { return m_Format; }

protected:
    // Called when the frame format changes (format: the frames' FOURCC), after the buffers were
    // made anew for it.
    virtual void NewFormat(unsigned long format);

private:
    CKorVideoPacket* SmartTrack(CKorVideoPacket* frame, bool* produced);

    std::int32_t m_FormatSeqNumber = -1;
    CZorTrackingChain m_Chain;
    std::vector<SBeluiRect> m_Rects;
    bool m_DumpCycles = false;
    bool m_OutputPicture = false;
    int m_FormatChanges = 0;
    unsigned long m_Format = 0;
    long m_FramesTracked = 0;
    int m_LastBoxCount = 0;
    std::uint64_t m_LastCycles = 0;
};

class ZOR_EXPORT CZorObjectTrackingModule : public CKorUnbufferedModule {
public:
    explicit CZorObjectTrackingModule(const char* name = "Object Tracking Module");
    ~CZorObjectTrackingModule() override;

    CZorObjectTrackingProcessor& Processor() { return m_Processor; }

protected:
    // Replaces the current packet by its processed frame (see the file comment).
    void ProcessPacket() override;

private:
    CZorObjectTrackingProcessor m_Processor;
};

class CZorObjectTrackingModuleCom final : public CKor2PinComponent {
public:
    CZorObjectTrackingModuleCom();
    ~CZorObjectTrackingModuleCom() override;

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;
    // The tracking module of the "video" path (made on first request); nullptr for any other.
    CKorModule* CreateContext(const char* path) override;

    int EnabledHandler(int* value, int set);
    int GreyHandler(int* value, int set);
    int ThreadsHandler(double* value, int set);
    int DumpCyclesHandler(int* value, int set);
    int PictureHandler(int* value, int set);
    int FramesHandler(double* value, int set);
    int BoxesHandler(double* value, int set);
    int ForegroundHandler(double* value, int set);
    int CyclesHandler(double* value, int set);
    int ErrorsHandler(double* value, int set);

    CZorObjectTrackingModule* Module() { return m_pModule; } // borrowed

private:
    static const CJokPropertyMap<CZorObjectTrackingModuleCom>& PropertyMap();

    CZorObjectTrackingModule* m_pModule = nullptr; // owned by the component's bus
};
