// The advanced packet filter: a one-input, one-output packet module whose behaviour is a script
// of the expression language. Each arriving packet becomes the current packet, the compiled
// script runs once over it through the packet vocabulary (CZorPacketVocabulary: fields such as
// TS and FRAMETYPE, actions such as DISCARD, PUSH, DELAY), and whatever is current afterwards goes
// on. With no script the filter calls its callback for every packet.
//
//   local apf = zor.CreateAdvancedPacketFilter{ dataPath = "video" }
//   apf.filter = "if (TYPE == VIDEO && FRAMETYPE != IFRAME) { DISCARD; }"
//
// Invariants:
//  - The script is compiled when "filter" is set, never per packet; a script that does not
//    compile leaves the filter without one. A script set from inside the filter's own callback
//    takes over with the next packet, so a running tree is never deleted.
//  - DELAY and LOCKED hold input through the module's lock: a locked module refuses packets
//    (upstream keeps them) and keeps its current packet; the delay alarm unlocks it and resumes
//    the flow.
//  - Packets made by the Create... methods enter through the module's own Receive and meet the
//    script like any other packet; a refused one is released.
//  - The component has one module, for the first data path it is asked for.
#pragma once

#include "entry/ZorExport.h"
#include "filters/PacketVocabulary.h"
#include "framework/kor/PinComponent.h"
#include "framework/kor/UnbufferedModule.h"

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class CJokCommandContext;
class CJokGenericData;
class CJokPropertyEnum;
template <class T> class CJokPropertyMap;
class ExpressionEvalOp;
struct IJokCommand;

class ZOR_EXPORT CZorAdvancedPacketFilter : public CKorUnbufferedModule {
public:
    explicit CZorAdvancedPacketFilter(const char* name = "AdvancedPacketFilter");
    ~CZorAdvancedPacketFilter() override;

    // Compiles and installs a script; an empty text removes the script. On failure the filter is
    // left without a script and the answer is false; the parse messages go to *failure (one line,
    // "; " between messages) when it is given, else to the diagnostic output, as do the
    // messages of a script that compiles ("string overflow" of a literal).
    bool SetFilter(std::string_view text, std::string* failure = nullptr);
    const std::string& GetFilter() const { return m_FilterText; }
    bool HasFilter() const { return m_pTree != nullptr; }

    CZorPacketVocabulary& Vocabulary() { return m_Vocabulary; }
    // Called by the CALLBACK action, and for every packet while there is no script.
    void SetCallback(std::function<void()> callback) { m_Callback = std::move(callback); }

    // Hands a new packet to the module's own Receive; takes the reference (a refused packet is
    // released). Answers whether the module took it. Refused while the module is processing a
    // packet (a callback cannot feed its own filter).
    bool Inject(CKorPacket* packet);
    bool IsProcessing() const { return m_InRecv != 0; }

    // The delay alarm: releases the lock and lets held input flow again.
    void TimeOut(long now) override;
    // Drops the current, pending and saved packets, then flushes downstream.
    void Flush() override;

protected:
    void ProcessPacket() override;

private:
    // What the vocabulary asks of the module: a member rather than a second base, whose thunks
    // would be exported with the class.
    class CHost final : public IZorPacketFilterHost {
    public:
        explicit CHost(CZorAdvancedPacketFilter& owner) : m_Owner(owner) {}
        double GetTimeScale() override { return m_Owner.GetTimeScaleFactor(); }
        void SetTimeScale(double scale) override { m_Owner.SetTimeScaleFactor(scale); }
        long GetModuleTime() override { return m_Owner.GetTime(); }
        void SetModuleTime(long milliseconds) override { m_Owner.SetTime(milliseconds); }
        bool IsFilterLocked() override { return m_Owner.IsLocked(); }
        void LockFilter() override { m_Owner.Lock(); }
        void UnlockFilter() override;
        void ArmDelayAlarm(long milliseconds) override { m_Owner.SetAlarm(milliseconds); }
        void CancelDelayAlarm() override { m_Owner.KillAlarm(); }
        bool HasFilterCallback() override { return static_cast<bool>(m_Owner.m_Callback); }
        void FilterCallback() override;
        void SendToOutput(CKorPacket* packet) override;

    private:
        CZorAdvancedPacketFilter& m_Owner;
    };

    CHost m_Host{*this};
    CZorPacketVocabulary m_Vocabulary{m_Host, m_pPacket};
    std::unique_ptr<ExpressionEvalOp> m_pTree;
    std::string m_FilterText;
    // A script set while the tree runs waits here for the end of the evaluation.
    bool m_Evaluating = false;
    bool m_HasNext = false;
    CZorPacketVocabulary::SCompiled m_Next;
    std::function<void()> m_Callback;
};

class CAdvancedPacketFilterCom : public CKor2PinComponent {
public:
    // Joins dataPath when it is not empty.
    explicit CAdvancedPacketFilterCom(const char* dataPath);
    ~CAdvancedPacketFilterCom() override;

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;
    CKorModule* CreateContext(const char* path) override;

    CZorAdvancedPacketFilter& Module() { return *m_pModule; }

    int FilterHandler(CBelString* value, int set);
    int TextHandler(CBelString* value, int set);
    int PacketTypeHandler(CBelString* value, int set);
    int DumpFileHandler(CBelString* value, int set);
    int CallbackHandler(IUnknown** value, int set);

    int CreateTextPacket(CJokCommandContext* context);
    int CreateTextSchema(CJokCommandContext* context);
    int AddTextSchemaField(CJokCommandContext* context);
    int CreateAudioPacket(CJokCommandContext* context);
    int CreateTimebasePacket(CJokCommandContext* context);
    int GetVariable(CJokCommandContext* context);
    int SetVariable(CJokCommandContext* context);
    int GetStringVar(CJokCommandContext* context);
    int SetStringVar(CJokCommandContext* context);
    int Flush(CJokCommandContext* context);

private:
    static const CJokPropertyMap<CAdvancedPacketFilterCom>& PropertyMap();
    void CallScriptCallback();
    // Reads the optional time stamps of a Create... method (defaults: module time, clock).
    void StampPacket(CJokCommandContext* context, CKorPacket* packet);
    // Answers whether the filter may take a made packet now; reports why not.
    bool CanInject(CJokCommandContext* context, const char* method);
    // The index of an existing variable, or -1 (reported the first time a name is asked for).
    int LookupOrReport(const CBelString& name, const char* method, CJokCommandContext* context);

    std::unique_ptr<CZorAdvancedPacketFilter> m_pOwned; // until a data path takes the module
    CZorAdvancedPacketFilter* m_pModule;
    IJokCommand* m_pCallback = nullptr;
    // Sub-media id and format sequence number, one pair per id used so far.
    std::vector<std::pair<unsigned, long>> m_AudioFormatNumbers;
    std::set<std::string> m_UnknownNamesReported;
};

// "CreateAdvancedPacketFilter" { dataPath = "..." }.
int CreateAdvancedPacketFilter(CJokCommandContext* context);
