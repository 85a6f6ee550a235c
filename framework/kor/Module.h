// Processing modules and the packet road between them.
//
// The packet road, which every module follows:
//  1. An upstream module calls Receive(packet) on its downstream module, passing one reference.
//  2. A module that can take the packet keeps it (or passes it on at once) and answers non-zero:
//     the reference is now the receiver's. A module that cannot take it now answers 0: the caller
//     still owns the reference and offers the packet again from its own Poll.
//  3. A module that holds a packet it could not deliver keeps it as its one pending packet and
//     retries it on Poll. Poll with nothing pending asks the upstream module for more.
//  4. Flush releases pending packets and calls Flush on the modules below.
//  5. A fan-out module shares a packet by adding one reference per extra receiver; no copy.
//  6. A packet that a module does not pass on is released by it.
// Receive must not be re-entered on the same module (assertion "!m_InRecv").
//
// A module with no neighbour has the shared null module there, never nullptr: the null module
// takes every packet and releases it, and does nothing on Poll and Flush.
//
// Threads: a module belongs to the thread that made it; its timers (TimeOut) and window
// messages (WindowProc) arrive on that thread's message loop.
#pragma once

#include "framework/bel/BelString.h"
#include "framework/bel/BelTimer.h"
#include "framework/bel/WinTypes.h"

class CKorPacket;
class CKorTimeBasePacket;
class IBelWindowTarget;

// Owns the hidden window through which timer and cross-thread messages reach a module.
class CKorModuleBase : public CBelTimer {
public:
    CKorModuleBase();
    ~CKorModuleBase() override;

    virtual void WindowProc(HWND window, unsigned message, unsigned wParam, long lParam);

    // Makes the hidden window on the calling thread's loop (once) and answers it.
    HWND MakeWindow();
    HWND GetWindow() const { return m_hWnd; }
    // Queues a message for this module's WindowProc on the thread that made the window.
    bool PostMessage(unsigned message, unsigned wParam, long lParam);
    // On that thread: delivers every queued message of this number now (see
    // CBelMessageLoop::DispatchQueued); answers how many.
    int DispatchQueued(unsigned message);
    // Messages delivered to hidden windows so far, process-wide.
    static long MessageCount();

    // The process's own handle, filled by the module's load-time initialiser.
    static HINSTANCE sm_hInstance;

private:
    class CWindowTarget;
    CWindowTarget* m_pWindowTarget = nullptr;
    HWND m_hWnd = nullptr;
};

class CKorModule : public CKorModuleBase {
public:
    explicit CKorModule(const char* name);
    // Unlinks the module from both neighbours.
    ~CKorModule() override;
    CKorModule(const CKorModule&) = delete;
    CKorModule& operator=(const CKorModule&) = delete;

    void TimeOut(long now) override;
    void WindowProc(HWND window, unsigned message, unsigned wParam, long lParam) override;
    // Makes downstream the next module (unlinking the previous one) and tells it so.
    virtual void LinkModule(CKorModule* downstream);
    // Forgets the module if it is a neighbour; the neighbour becomes the null module.
    virtual void UnlinkModule(CKorModule* module);
    virtual void _LinkUpStreamModule(CKorModule* upstream);
    // Takes one reference on success (non-zero). The base passes the packet straight on.
    virtual int Receive(CKorPacket* packet);
    virtual void Poll();
    // Writes the chain from this module down through BelDump, indented by sm_PrintOffset.
    virtual void PrintChain();
    virtual int ShowModule(HDC dc, int x, int y);
    virtual void DrawModule(HDC dc, int x, int y);
    virtual void Flush();

    const CBelString& GetName() const { return m_Name; }
    CKorModule* DownStreamModule() const { return m_pDownStream; }
    CKorModule* UpStreamModule() const { return m_pUpStream; }
    CKorModule* Parent() const { return m_pParent; }
    void SetParent(CKorModule* parent) { m_pParent = parent; }
    bool IsNull() const;

    // Module time (ms), anchored to the framework clock: SetTime(t) makes it read t now; from
    // then on it advances with the framework clock times the scale factor.
    long GetTime() const;
    double GetPreciseTime() const;
    void SetTime(long milliseconds);
    double GetTimeScaleFactor() const { return m_TimeScaleFactor; }
    // Changes the pace from now on, without a jump in the module's time.
    void SetTimeScaleFactor(double scaleFactor);
    // The time base last given (borrowed), or nullptr. Setting one holds a reference to it,
    // re-anchors the module time at its Time() and takes its scale factor.
    CKorTimeBasePacket* GetTimeBase() const { return m_pTimeBase; }
    void SetTimeBase(CKorTimeBasePacket* timeBase);

    static int sm_PrintOffset;

    // Counts changes of the module graph (links made or broken, components joining paths), so
    // that a check of the whole graph runs again only when something changed.
    static unsigned LinkGeneration() { return sm_LinkGeneration; }
    static void NoteGraphChange() { ++sm_LinkGeneration; }

protected:
    struct SNullTag {};
    // The null module's own constructor: its neighbours are itself.
    CKorModule(const char* name, SNullTag);
    // Prints the indentation of the current print offset (for PrintChain overrides).
    static void PrintIndent();
    // For a catch block around packet processing: reports the exception as "<name>::
    // ProcessPacket -> <what>; the packet was dropped" and releases packet (if any).
    void DropAfterException(CKorPacket*& packet) noexcept;
    // Set while inside Receive, by modules that guard against re-entry.
    int m_InRecv = 0;

private:
    static unsigned sm_LinkGeneration;
    CBelString m_Name;
    CKorModule* m_pUpStream;
    CKorModule* m_pDownStream;
    CKorModule* m_pParent = nullptr;
    CKorTimeBasePacket* m_pTimeBase = nullptr;
    double m_TimeScaleFactor = 1.0;
    double m_TimeAnchor = 0.0;  // module time (ms) at the anchor
    double m_ClockAnchor = 0.0; // framework clock (s) at the anchor
};

// Links b downstream of a so that chains read left to right; answers b.
CKorModule& operator|(CKorModule& a, CKorModule& b);

class CKorNullModule : public CKorModule {
public:
    static CKorNullModule* GetModule();
    // Called whenever a packet falls off an open end (the data path registry installs one that
    // names the end once per path); nullptr for none.
    using DropObserver = void (*)();
    static void SetDropObserver(DropObserver observer);

    int Receive(CKorPacket* packet) override;
    void Poll() override {}
    void Flush() override {}
    void PrintChain() override {}
    void LinkModule(CKorModule*) override {}
    void UnlinkModule(CKorModule*) override {}
    void _LinkUpStreamModule(CKorModule*) override {}

private:
    CKorNullModule();
};

// Mixin for modules that another module calls back (ports, triggers, synchronisers).
class CKorCallback {
public:
    virtual void Notify(int code, void* data);
    virtual void Notify(int code, CKorPacket* packet);
    virtual void Notify(int code, long a, long b);
    virtual void Notify(int code, long value);

protected:
    ~CKorCallback() = default;
};
