// What the people-counting and exit-blocking filters share: a module on the "video" path that
// either reads one kind of analytics metadata off passing packets for a script ("read") or hangs
// a fresh, empty object of that kind on every packet for an analyser downstream to fill
// ("write"), and the scriptable wrapper with the properties both offer.
//
// Invariants:
//  - The module starts with processing disabled; disabled, it passes packets untouched.
//  - Every packet passes on, in both modes; nothing here refuses or drops a packet.
//  - Write mode leaves exactly one object of the filter's kind on the packet: a packet without a
//    handler gets one (a bare handler carrying the filter's handler tag) with a new object
//    appended; a handler that already carries one has it cleared rather than a second added, so
//    that an analyser downstream fills the only one there is.
//  - The wrapper's module belongs to the wrapper until a data path asks for it; then the path's
//    bus owns it, and it serves that one path.
#pragma once

#include "entry/ZorExport.h"
#include "framework/bel/WinTypes.h"
#include "framework/kor/PinComponent.h"
#include "framework/kor/UnbufferedModule.h"

#include <functional>
#include <memory>

class CJokCommandContext;
class CKorMetadataHandler;
struct IJokCommand;

class ZOR_EXPORT CZorMetadataFilter : public CKorUnbufferedModule {
public:
    enum EMode { MODE_READ = 0, MODE_WRITE = 1 };
    // The six values of a count notification, in the order the callback receives them.
    using CountHook = std::function<void(const unsigned long (&values)[6])>;

    // handlerTag: the FOURCC of the handler that write mode makes for a packet without one.
    CZorMetadataFilter(const char* name, DWORD handlerTag);

    EMode GetMode() const { return m_Mode; }
    void SetMode(EMode mode) { m_Mode = mode; }
    // The interval scan's start time and interval (ms); a change starts the scan afresh.
    void SetScan(long startTime, long interval);
    long GetStartTime() const { return m_StartTime; }
    long GetInterval() const { return m_Interval; }
    void SetCountHook(CountHook hook) { m_CountHook = std::move(hook); }

    // Writes what the last metadata found holds to the diagnostic dump, prefixed with caller.
    virtual void PrintTargetList(const char* caller) const = 0;

protected:
    void ProcessPacket() override;
    // Read mode, for a packet that has a handler (borrowed).
    virtual void Read(const CKorPacket& packet, CKorMetadataHandler* handler) = 0;
    // Write mode: the filter's own metadata in the chain (borrowed) or nullptr, and a new one.
    virtual CKorMetadataHandler* FindOwn(CKorMetadataHandler* chain) const = 0;
    virtual void ClearOwn(CKorMetadataHandler* own) const = 0;
    virtual CKorMetadataHandler* MakeOwn() const = 0;
    virtual void Written() {}
    virtual void ScanChanged() = 0;

    void NotifyCount(const unsigned long (&values)[6]) const {
        if (m_CountHook) {
            m_CountHook(values);
        }
    }

private:
    DWORD m_HandlerTag;
    EMode m_Mode = MODE_READ;
    long m_StartTime = 0;
    long m_Interval = 0;
    CountHook m_CountHook;
};

// The wrapper's common part: "mode", "StartTime", "Interval", "enabled", "onCountChange" and
// "PrintTargetList" are answered here; each filter lists them in its own property map.
class CZorMetadataFilterCom : public CKor2PinComponent {
public:
    ~CZorMetadataFilterCom() override;

    CKorModule* CreateContext(const char* path) override;

    int ModeHandler(CBelString* value, int set);
    int StartTimeHandler(double* value, int set);
    int IntervalHandler(double* value, int set);
    int EnabledHandler(int* value, int set);
    int PrintTargetList(CJokCommandContext* context);

protected:
    // Takes module; joins dataPath when it is not empty. className prefixes diagnostics.
    CZorMetadataFilterCom(const char* componentName, const char* className, const char* dataPath,
                          CZorMetadataFilter* module);

    // Calls callback (may be nullptr) with the values as unnamed parameters, then this component.
    void Call(IJokCommand* callback, const double* values, int count);

    CZorMetadataFilter* m_pModule; // borrowed from m_pOwned or from the bus that owns it
    const char* m_ClassName;
    IJokCommand* m_pINotifyCount = nullptr;

private:
    std::unique_ptr<CZorMetadataFilter> m_pOwned;
    double m_StartTime = 0;
    double m_Interval = 0;
};
