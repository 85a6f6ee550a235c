// The people-counting analyser: follows the object tracker's "BBX1" boxes from frame to frame
// (CBoxTracker), counts the tracks that cross a counting line or enter and leave a zone
// (CLineCounter), and fills each video packet's "PCD1" people-counting metadata with what it saw:
// the line or zone, this frame's crossings, its running totals and occupancy, and its targets.
// A packet that comes without "PCD1" (no people-counting filter in write mode upstream) gets one.
//
//   local pca = zor.CreatePCAFilter{}
//   pca.line = { 0, 120, 352, 120 }   -- x1, y1, x2, y2: walking down the picture enters
//   pca.enabled = true
//   zor.connect("video", tracker, write, pca, read)
//
// Properties: "enabled" (starts disabled); "line" { x1, y1, x2, y2 } or "zone" { left, top,
// right, bottom } in frame pixels (setting one clears the other; zor.null clears it); "band"
// (px of hysteresis around the line, default 4); "feet" (count the bottom middle of each box
// instead of its centre); "minArea" (px^2: smaller boxes are noise, default 24); "maxCoast" (ms a
// track lives on unseen, default 800); read-only "entries", "exits", "occupancy", "tracks"; and
// "Reset", which zeroes the counts and forgets the tracks.
//
// Invariants: every packet passes on; video packets with a valid timestamp are analysed, others
// pass untouched; a packet earlier than the one before starts the tracking afresh (the counts
// stay); each fault of the input (a line outside the frame, no line at all, an absurd number of
// boxes) is reported once on the diagnostic dump, not per frame.
#pragma once

#include "analytics/counting/core/BoxTracker.h"
#include "analytics/counting/core/LineCounter.h"
#include "entry/ZorExport.h"
#include "framework/kor/PinComponent.h"
#include "framework/kor/UnbufferedModule.h"

#include <memory>
#include <vector>

class CJokCommandContext;
class CJokPropertyEnum;
template <class T> class CJokPropertyMap;

class ZOR_EXPORT CZorPCAFilter : public CKorUnbufferedModule {
public:
    CZorPCAFilter();

    zor::counting::CBoxTracker& Tracker() { return m_Tracker; }
    zor::counting::CLineCounter& Counter() { return m_Counter; }
    // Geometry changes restart the counts (answers false for a degenerate one, which is ignored).
    bool SetLine(const double coordinates[4]);
    bool SetZone(const double coordinates[4]);
    void ClearGeometry();
    // Zeroes the counts and forgets the tracks.
    void Reset();

protected:
    void ProcessPacket() override;

private:
    void CheckGeometry(const CKorPacket& packet);

    zor::counting::CBoxTracker m_Tracker;
    zor::counting::CLineCounter m_Counter;
    std::vector<zor::counting::SBox> m_Boxes;
    std::vector<zor::counting::SCrossing> m_Crossings;
    bool m_HasTime = false;
    long m_LastTime = 0;
    int m_CheckedWidth = 0;
    int m_CheckedHeight = 0;
    bool m_ToldNoGeometry = false;
    bool m_ToldTooMany = false;
};

class CZorPCAFilterCom final : public CKor2PinComponent {
public:
    CZorPCAFilterCom();

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;
    CKorModule* CreateContext(const char* path) override;

    CZorPCAFilter& Module() { return *m_pModule; }

    int EnabledHandler(int* value, int set);
    int LineHandler(CJokGenericData** value, int set);
    int ZoneHandler(CJokGenericData** value, int set);
    int BandHandler(double* value, int set);
    int FeetHandler(int* value, int set);
    int MinAreaHandler(double* value, int set);
    int MaxCoastHandler(double* value, int set);
    int EntriesHandler(double* value, int set);
    int ExitsHandler(double* value, int set);
    int OccupancyHandler(double* value, int set);
    int TracksHandler(double* value, int set);
    int Reset(CJokCommandContext* context);

private:
    static const CJokPropertyMap<CZorPCAFilterCom>& PropertyMap();
    int GeometryHandler(CJokGenericData** value, int set,
                        zor::counting::CLineCounter::EGeometry kind);

    std::unique_ptr<CZorPCAFilter> m_pOwned;
    CZorPCAFilter* m_pModule;
};
