// The left-object analyser: follows the object tracker's "BBX1" boxes from frame to frame
// (CBoxTracker) and finds what stands still - objects that appeared and stayed, and things that
// moved in and stopped (CLeftObjectDetector) - and fills each video packet's "LOD1" left-object
// metadata with them: box, identifier, type and how long each has stood still. A packet that
// comes without "LOD1" (no exit-blocking filter in write mode upstream) gets one.
//
//   local lod = zor.CreateLODFilter{}
//   lod.zone = { 100, 150, 250, 240 }   -- only what stands here (default: the whole picture)
//   lod.enabled = true
//   zor.connect("video", tracker, write, lod, exitBlocking)
//
// Properties: "enabled" (starts disabled); "zone" { left, top, right, bottom } or zor.null;
// "minStill" (ms a thing must stand before it is listed, default 1000); "warmUp" (ms from the
// first frame in which nothing new is listed, default 5000: the tracker's background starts from
// the first picture, so whoever stands in it leaves a ghost there); "holdTime" (ms a thing
// that faded into the background stays listed without a sign of it leaving, default 600000; 0
// drops it when its track ends); "minArea" (px^2, default 24); "maxCoast" (ms, default 800);
// read-only "targets" (listed on the last frame); and "Reset", which forgets everything.
//
// Invariants: every packet passes on; video packets with a valid timestamp are analysed, others
// pass untouched; a packet earlier than the one before starts afresh; an absurd number of boxes
// is reported once on the diagnostic dump.
#pragma once

#include "analytics/counting/core/BoxTracker.h"
#include "analytics/counting/core/LeftObjectDetector.h"
#include "entry/ZorExport.h"
#include "framework/kor/PinComponent.h"
#include "framework/kor/UnbufferedModule.h"

#include <memory>
#include <vector>

class CJokCommandContext;
class CJokPropertyEnum;
template <class T> class CJokPropertyMap;

class ZOR_EXPORT CZorLODFilterModule : public CKorUnbufferedModule {
public:
    CZorLODFilterModule();

    zor::counting::CBoxTracker& Tracker() { return m_Tracker; }
    zor::counting::CLeftObjectDetector& Detector() { return m_Detector; }
    std::size_t TargetCount() const { return m_Detector.Targets().size(); }
    void Reset();

protected:
    void ProcessPacket() override;

private:
    zor::counting::CBoxTracker m_Tracker;
    zor::counting::CLeftObjectDetector m_Detector;
    std::vector<zor::counting::SBox> m_Boxes;
    bool m_HasTime = false;
    long m_LastTime = 0;
    bool m_ToldTooMany = false;
};

class CZorLODFilter final : public CKor2PinComponent {
public:
    CZorLODFilter();

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;
    CKorModule* CreateContext(const char* path) override;

    CZorLODFilterModule& Module() { return *m_pModule; }

    int EnabledHandler(int* value, int set);
    int ZoneHandler(CJokGenericData** value, int set);
    int MinStillHandler(double* value, int set);
    int WarmUpHandler(double* value, int set);
    int HoldTimeHandler(double* value, int set);
    int MinAreaHandler(double* value, int set);
    int MaxCoastHandler(double* value, int set);
    int TargetsHandler(double* value, int set);
    int Reset(CJokCommandContext* context);

private:
    static const CJokPropertyMap<CZorLODFilter>& PropertyMap();
    // Shared by the millisecond settings: a finite value in [0, limit].
    static bool Milliseconds(double value, double limit, long* out);

    std::unique_ptr<CZorLODFilterModule> m_pOwned;
    CZorLODFilterModule* m_pModule;
};
