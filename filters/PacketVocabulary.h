// CZorPacketVocabulary: the variable store of the advanced packet filter. It binds the filter's
// predefined names (TS, TYPE, FRAMETYPE, DISCARD ...) to the current packet, keeps the saved
// packet, the text schemas and the dump file, and leaves everything that belongs to the module
// (time, lock, alarm, callback, output) to an IZorPacketFilterHost. It has no component glue, so
// it is tested and benchmarked on its own.
//
// How names reach the packet, fast:
//  - Actions (DISCARD, PUSH, DELAY ...), the clocks, the lock and the string fields are host
//    variables of the expression context: every access goes through Read/WriteHostNumber.
//  - Constants (VIDEO, IFRAME ...) are plain slots holding their value.
//  - Packet fields that a script only reads are plain slots too, filled from the packet before
//    each evaluation (BeginPacket) and again whenever the current packet may have changed (an
//    action, a callback). So "TYPE == VIDEO" is a comparison of two array cells.
//  - A constant or field that a script assigns becomes a host variable before that script is
//    parsed, so that the assignment is ignored (or reaches the packet) as the vocabulary says.
// PrepareScript works this out from the script's uses, once per script, when the filter is set.
//
// Invariants: the vocabulary is registered first, so vocabulary entry i has context index i;
// the current packet is the module's (borrowed through a reference to its slot); the saved packet
// holds one reference of its own. Evaluation allocates nothing for numeric scripts.
#pragma once

#include "expr/ExpressionEvalContext.h"
#include "expr/ExpressionParser.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

class CKorPacket;

// What the vocabulary needs of the module that runs the script.
class IZorPacketFilterHost {
public:
    virtual double GetTimeScale() = 0;
    virtual void SetTimeScale(double scale) = 0;
    virtual long GetModuleTime() = 0;
    virtual void SetModuleTime(long milliseconds) = 0;
    virtual bool IsFilterLocked() = 0;
    virtual void LockFilter() = 0;
    virtual void UnlockFilter() = 0;
    virtual void ArmDelayAlarm(long milliseconds) = 0;
    virtual void CancelDelayAlarm() = 0;
    virtual bool HasFilterCallback() = 0;
    virtual void FilterCallback() = 0;
    // Sends a packet to the output at once; takes the reference (a refused packet is released).
    virtual void SendToOutput(CKorPacket* packet) = 0;

protected:
    ~IZorPacketFilterHost() = default;
};

class CZorPacketVocabulary : public ExpressionEvalContext {
public:
    // Vocabulary entries in registration order; the value is also the context index.
    enum EEntry {
        TIMESCALE,
        TIMEBASETS,
        TIME,
        TS,
        RTS,
        STREAM,
        TYPE,
        VIDEO,
        AUDIO,
        TEXT,
        TEXTSTR,
        DATA,
        METADATA,
        TIMEBASE,
        GPS,
        TRELLUM,
        TRELLUMPACKETTYPE,
        TL3_C_PCK,
        TL3_K_PCK,
        TL3_P_PCK,
        TL3_S_PCK,
        TL3_V_PCK,
        GDLIST,
        RECEIVEDTIME,
        LOCKED,
        TIMESTAMPVALID,
        TIMEBASEFLAGS,
        TBFCONTINUOUS,
        TBFENDOFSEQ,
        SIZE,
        FRAMETYPE,
        IFRAME,
        PFRAME,
        BFRAME,
        PBFRAME,
        EIFRAME,
        EPFRAME,
        VIDEOWIDTH,
        VIDEOHEIGHT,
        ASPECTRATIOX,
        ASPECTRATIOY,
        CODEC,
        FORMATID,
        AUDIOCHANNELS,
        AUDIOSAMPLERATE,
        AUDIOBYTERATE,
        AUDIOBITS,
        VMDLEVEL,
        LAYER,
        DISCARD,
        DISCARDSAVED,
        PUSH,
        SWAP,
        POP,
        CALLBACK,
        DELAY,
        EXPANDREFS,
        SCHEMA,
        COPY,
        DUMP,
        kEntryCount
    };
    enum EKind { kConstant, kField, kAction, kHost, kStringField };
    struct SEntry {
        const char* m_Name;
        unsigned m_Id; // the name's fixed identifier (0x10000000 upward, DUMP 0x20000007)
        EKind m_Kind;
        double m_Constant;
    };
    static const SEntry& Entry(int index) { return sm_Entries[index]; }
    // The index of a vocabulary name, or -1.
    static int FindEntry(std::string_view name);
    // Registers the vocabulary's names, as host variables, in a plain context: what a script
    // checker needs to tell the filter's names from the script's own.
    static void RegisterNames(ExpressionEvalContext& context);
    // Checks a filter script against the vocabulary without a module.
    static ExpressionCheckResult CheckScript(std::string_view text);
    // What assigning TS stores: values beyond the signed range fold back by 2^32, so unsigned
    // time stamps round-trip; then the low 32 bits of the truncated value.
    static std::uint32_t ToTimeStamp(double value);

    // Borrows host and the module's current-packet slot; both outlive the vocabulary.
    CZorPacketVocabulary(IZorPacketFilterHost& host, CKorPacket*& current);
    ~CZorPacketVocabulary() override;

    // Parses a script for this vocabulary: the check (uses and messages), then the tree. Fails
    // with no tree; *messages gets the formatted parse messages either way. Nothing of the
    // running script changes until InstallScript.
    struct SCompiled {
        std::unique_ptr<ExpressionEvalOp> m_Tree;
        std::vector<int> m_Bound; // fields read from slots: filled per packet
    };
    bool CompileScript(std::string_view text, SCompiled* compiled, std::string* messages);
    // Makes a compiled script's field binding the running one (the tree stays with the caller).
    // A new script: its bound fields, and its complaints reported afresh.
    void InstallBinding(std::vector<int> bound) {
        m_Bound = std::move(bound);
        ResetReports();
    }

    // Before each evaluation: fills the bound fields and the schema fields of a text packet.
    void BeginPacket() {
        m_ReceivedTimeTaken = false;
        if (!m_Bound.empty())
            RebindFields();
        if (!m_Schemas.empty())
            ExposeSchemaFields();
    }
    // Fills the bound fields from the current packet (after anything that may have changed it).
    void RebindFields();

    // Live access by index, whatever the context's routing (GetVariable / SetVariable).
    // Reading an action's name answers 0 and does nothing.
    double ReadValue(int index);
    void WriteValue(int index, double value);
    void ReadText(int index, std::string& out);
    void WriteText(int index, const std::string& value);

    // The saved packet (borrowed), or nullptr.
    CKorPacket* SavedPacket() const { return m_pSaved; }
    // Releases the saved packet.
    void DropSaved();
    // Seconds of the last DELAY request.
    double LastDelay() const { return m_DelayMilliseconds / 1000.0; }

    // Dump file: a new name closes the open file; the next DUMP opens it for appending.
    void SetDumpFile(std::string_view name);
    const std::string& DumpFile() const { return m_DumpName; }

    // Text schemas: a schema code lists named fields; a name with a leading "$" is a string
    // field, any other a number field. AddSchemaField answers an error text, or "" when added.
    void CreateSchema(int code);
    std::string AddSchemaField(int code, std::string_view variable);
    bool HasSchema(int code) const;
    // The text of a packet of that schema, built from the fields' variables.
    bool BuildSchemaText(int code, std::string* text);

    // Prints go to the diagnostic output.
    void DebugOutput(std::string_view line) override;
    void RuntimeMessage(std::string_view text) override;

    double ReadHostNumber(int index) override;
    void WriteHostNumber(int index, double value) override;
    void ReadHostString(int index, std::string& out) override;
    void WriteHostString(int index, const std::string& value) override;

private:
    struct SSchemaField {
        int m_Index;
        bool m_IsString;
    };
    struct SSchema {
        int m_Code;
        std::vector<SSchemaField> m_Fields;
    };

    double ReadField(int index);
    // A packet field (kind kField) of a packet of that kind.
    static double PacketField(int index, const CKorPacket& packet, int kind);
    double PerformAction(int index);
    void SetDelay(double seconds);
    void SetLocked(double value);
    void ExpandReferences(CKorPacket* packet, int depth);
    void Dump();
    void ExposeSchemaFields();
    const SSchema* FindSchema(int code) const;

    static const SEntry sm_Entries[kEntryCount];

    IZorPacketFilterHost& m_Host;
    CKorPacket*& m_pCurrent;
    CKorPacket* m_pSaved = nullptr;
    std::vector<int> m_Bound;
    double m_ReceivedTime = 0.0;
    bool m_ReceivedTimeTaken = false;
    double m_DelayMilliseconds = 0.0;
    std::string m_DumpName;
    std::FILE* m_pDumpFile = nullptr;
    std::vector<SSchema> m_Schemas;
};
