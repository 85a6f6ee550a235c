// The sector grid on the "video" path ("CreateGenericVideoProcessingModule"): grades every
// decoded frame sector by sector (SectorGrid.h), stamps the result on the frame and calls the
// script when sectors change suddenly, saying whether the change is local (a few sectors: an
// object) or global (most sectors at once: lights switched, the camera covered or moved).
//
//   local grid = zor.CreateGenericVideoProcessingModule{}
//   grid.columns = 4; grid.rows = 4
//   grid.onChange = function(time, changed, scope, levels, self)
//       print(time, changed, scope)          -- scope: "local" or "global"
//   end
//   grid.enabled = true                      -- starts disabled: frames pass untouched
//   zor.connect("video", source, decoder, grid, sink)
//
// Invariants:
//  - Frame packets (video/VideoFrame.h) are graded on their luma; every other packet, and
//    compressed video, passes unchanged. Frames are stamped in place (attributes 20: sectors
//    with a sudden change, 21: the highest level, 22: scope 0 none, 1 local, 2 global): put the
//    grid before any fan-out.
//  - The callback runs for frames where at least one sector has a sudden change (level 4 to 8),
//    with (time ms, changed sectors, scope, levels vector, component).
//  - A refused setting says why and changes nothing; an accepted one starts the grid again
//    (warm-up) with the next frame. A frame of another size starts it again too.
#pragma once

#include "analytics/tracking/SectorGrid.h"
#include "entry/ZorExport.h"
#include "framework/kor/PinComponent.h"
#include "framework/kor/UnbufferedModule.h"

#include <functional>

class CJokPropertyEnum;
struct IJokCommand;
template <class T> class CJokPropertyMap;

class ZOR_EXPORT CZorVideoProcessingModule : public CKorUnbufferedModule {
public:
    static constexpr int kChangedAttribute = 20;
    static constexpr int kHighestAttribute = 21;
    static constexpr int kScopeAttribute = 22;

    explicit CZorVideoProcessingModule(const char* name = "GenericVideoProcessingModule");

    CZorSectorGrid& Grid() { return m_Grid; }
    // Called after a frame with a sudden change was graded (time: the frame's timestamp).
    std::function<void(long time)> m_OnChange;

protected:
    void ProcessPacket() override;

private:
    CZorSectorGrid m_Grid;
};

class CZorVideoProcessingModuleCom final : public CKor2PinComponent {
public:
    CZorVideoProcessingModuleCom();
    ~CZorVideoProcessingModuleCom() override;

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;
    // The grid module of the "video" path (made on first request); nullptr for any other.
    CKorModule* CreateContext(const char* path) override;

    int ColumnsHandler(double* value, int set);
    int RowsHandler(double* value, int set);
    int StepHandler(double* value, int set);
    int PixelThresholdHandler(double* value, int set);
    int ShortChangeThresholdHandler(double* value, int set);
    int MinGroupLengthHandler(double* value, int set);
    int LowerCutThresholdHandler(double* value, int set);
    int HigherCutThresholdHandler(double* value, int set);
    int WarmUpHandler(double* value, int set);
    int ReferenceFramesHandler(double* value, int set);
    int GlobalShareHandler(double* value, int set);
    int EnabledHandler(int* value, int set);
    int LevelsHandler(CJokGenericData** value, int set);
    int ChangedHandler(double* value, int set);
    int ScopeHandler(CBelString* value, int set);
    int FramesHandler(double* value, int set);
    int SectorsHandler(double* value, int set);

    CZorVideoProcessingModule* Module() { return m_pModule; } // borrowed

private:
    static const CJokPropertyMap<CZorVideoProcessingModuleCom>& PropertyMap();
    // Reads or sets one setting through a copy of the settings; refusals say why.
    template <class T>
    int Setting(const char* name, T SZorSectorSettings::*field, double* value, int set);
    void SignalChange(long time);

    CZorVideoProcessingModule* m_pModule = nullptr; // owned by the component's bus
    IJokCommand* m_pIOnChange = nullptr;            // the "onChange" callback, one reference
};
