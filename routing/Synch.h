// Synchroniser: releases packets downstream at the moment their timestamps say, measured on the
// module's own clock and stretched or shrunk by a scale factor, so that a stream read from
// storage plays at real-time pace (scale 1.0), faster or slower. It holds one packet at a time
// and paces its upstream by refusing the next one until the held one has gone.
//
// Several synchronisers form a ring. In high-speed mode the ring, not the timer, decides: every
// member's clock jumps to the earliest timestamp held in the ring, so the member holding it goes
// at once and the streams stay in step with each other while running as fast as downstream
// takes them.
//
//     local synch = zor.CreateSynch{ paths = { "video", "audio" } }
//     synch.scaleFactor = 4.0              -- play four times as fast
//     synch.SetMode{ mode = "highspeed" }  -- or one path: { mode = "normal", path = "audio" }
//     synch.paused = true
//
// Invariants:
//  - At most one held packet, and an alarm is set only while one is held.
//  - A module alone is a ring of one (its link points to itself); destruction leaves the ring
//    first.
//  - The module clock does not run on through a pause: play resumes from the held packet's time.
//  - Timestamps are compared wrap-aware (32-bit signed difference), so order holds across the
//    wrap of the millisecond counter.
#pragma once

#include "entry/ZorExport.h"
#include "framework/jok/PropertyMap.h"
#include "framework/kor/Module.h"
#include "framework/kor/MultiPath.h"

#include <cstdint>

class CKorPacket;

class ZOR_EXPORT CZorSynchModule : public CKorModule, private CKorCallback {
public:
    enum Mode { MODE_DISABLE = 0, MODE_NORMAL = 1, MODE_HIGHSPEED = 2 };

    // An empty name gives "Synch".
    explicit CZorSynchModule(const CBelString& name);
    ~CZorSynchModule() override;

    // Takes packet's reference on non-zero; answers 0 while a packet is held or while paused.
    int Receive(CKorPacket* packet) override;
    void Poll() override;
    void Flush() override;
    void TimeOut(long now) override;

    // The scale factor in force: the time base's when there is one, else the one set (1.0 when
    // none was set).
    double GetScaleFactor() const;
    // -1.0 stores "not set" and changes nothing in force. Other values must be positive.
    void SetScaleFactor(double scaleFactor);
    bool IsPaused() const { return m_Paused; }
    void SetPaused(bool paused);

    // Joins this module's ring and other's ring into one.
    void Chain(CZorSynchModule* poCZorSynchModule);
    // Takes this module out of its ring.
    void UnChain();
    CZorSynchModule* GetNextInRing() const { return m_NextCZorSynchModule; }

    // Sets the mode (0 disable, 1 normal, 2 high speed); other values are ignored.
    void Notify(int mode, long unused) override;
    int GetMode() const { return m_Mode; }

    CKorPacket* GetHeldPacket() const { return m_pPacket; } // borrowed, or nullptr
    bool IsResynchPending() const { return m_Resynch; }

    // True when a is later than b, and earlier, with the 32-bit counter's wrap taken into account.
    static bool IsLater(std::uint32_t a, std::uint32_t b);
    static bool IsEarlier(std::uint32_t a, std::uint32_t b);

private:
    void Schedule();
    void SynchroniseRing();
    // Offers the held packet downstream; answers true when it went.
    bool Deliver();
    void KillAlarmIfSet();

    CKorPacket* m_pPacket = nullptr; // one reference, or nullptr
    int m_Mode = MODE_NORMAL;
    double m_ScaleFactor = -1.0; // -1.0: not set
    bool m_Paused = false;
    bool m_Resynch = false;
    CZorSynchModule* m_NextCZorSynchModule;
};

// "CreateSynch" { paths = { ... } }: one synchroniser per data path, all in one ring.
class CSynchCom : public CKor2PinMultiPath<CZorSynchModule> {
public:
    // Borrows paths (may be nullptr).
    explicit CSynchCom(CJokGdVector* paths, const char* moduleName = "Synch");

    // "SetMode" { mode = "disable" | "normal" | "highspeed", path = "..." }: answers a boolean.
    int SetMode(CJokCommandContext* context);
    int PausedHandler(int* value, int set);
    int ScaleFactorHandler(double* value, int set);

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;

protected:
    CZorSynchModule* MakeModule(const char* path) override;

private:
    static const CJokPropertyMap<CSynchCom>& PropertyMap();

    // What scripts set, so that a module made later (a path connected after creation) starts
    // the same way.
    double m_ScaleFactor = -1.0;
    bool m_Paused = false;
};

// The creation function registered as "CreateSynch".
int CreateSynch(CJokCommandContext* context);
