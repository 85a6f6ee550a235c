// CJokCommandContext: one script call - its parameters, its return value and whether the callee
// may go on.
//
// Parameters are named (what a creation function or a method reads: "dataPath", "paths") or
// positional (what a callback receives: the event's values, then the calling component last).
// AddParam with a null or empty name appends a positional parameter.
//
// A method reads its parameters with GetParam, then asks CanProceed(0) and returns at once when
// it answers 0:
//
//     int CSplitterCom::CreatePort(CJokCommandContext* context) {
//         CBelString path;
//         context->GetParam("dataPath", &path, 0);
//         if (!context->CanProceed(0))
//             return 1;
//         ...
//         context->SetReturnValueNoRef(CJokGdObject::Allocate(port, 0));
//         return 1;
//     }
//
// A missing required parameter, or one of the wrong type, is a parameter fault: the context
// remembers a message ("missing parameter 'dataPath'", "paths: expected a vector, got a
// number") and CanProceed answers 0 from then on. The first CanProceed(0) after a fault reports
// all faults so far through OutputErrorString, as one line, prefixed with the call name when
// the caller set one ("CreateSplitter: missing parameter 'dataPath'"); later faults are
// reported by the next CanProceed(0). CanProceed with a non-zero argument only answers.
//
// Parameters nobody read: every read (GetParam, FindParam, GetPositional) marks the parameter.
// After the call, the function objects report, once per call, the named parameters and
// positional arguments that were never read, with the names that were ("CreateSplitter: unused
// parameter 'dataPat' (it reads: dataPath)"): a misspelt name fails where it is written, for
// every creation function and method without each having to check.
//
// Parameter types: a double parameter takes a number; an int parameter takes a number (truncated
// toward zero; beyond the int range is a fault) or a boolean (true is 1), as ints are mostly
// flags and counts; a string takes only a string; interface parameters take an object that
// has the interface, or the null value, which gives nullptr. The none value counts as missing.
#pragma once

#include "framework/bel/BelString.h"
#include "framework/bel/WinTypes.h"

#include <vector>

class CJokCOMObject;
class CJokGenericData;
struct IJokCommand;

class CJokCommandContext {
public:
    CJokCommandContext() = default;
    ~CJokCommandContext();
    CJokCommandContext(const CJokCommandContext&) = delete;
    CJokCommandContext& operator=(const CJokCommandContext&) = delete;

    // The name that prefixes reported parameter faults (the creation function's, say).
    void SetCallName(const char* name) { m_CallName = name; }
    const CBelString& GetCallName() const { return m_CallName; }

    // --- Reading parameters -------------------------------------------------------------
    // Each answers non-zero when it wrote *out. A missing optional parameter leaves *out as the
    // caller set it; a missing required one or a wrong type is a parameter fault.
    // Returns a new reference in *out (any type is accepted, null included).
    int GetParam(const char* name, CJokGenericData** out, int optional);
    int GetParam(const char* name, CBelString* out, int optional);
    // Returns a new reference in *out (nullptr for the script null).
    int GetParam(const char* name, IJokCommand** out, int optional);
    int GetParam(const char* name, double* out, int optional);
    int GetParam(const char* name, int* out, int optional);
    // Returns a new reference in *out (nullptr for the script null).
    int GetParam(const char* name, IUnknown** out, int optional);
    // Returns a new reference to the iid interface in *out (nullptr for the script null);
    // interfaceName words the fault message.
    int GetParam(const char* name, const IID& iid, void** out, int optional,
                 const char* interfaceName);

    // Non-zero while no parameter fault has happened; see the file comment for reporting.
    int CanProceed(int quiet);

    // Borrowed; nullptr when the name is absent.
    CJokGenericData* FindParam(const char* name) const;
    int GetPositionalCount() const { return static_cast<int>(m_Positional.size()); }
    // Borrowed; nullptr out of range.
    CJokGenericData* GetPositional(int index) const;

    // --- Adding parameters (an empty or null name appends a positional one) ----------------
    // A name given twice keeps the latest value.
    void AddParam(const char* name, CJokCOMObject* value);   // borrows (the value adds a reference)
    void AddParam(const char* name, CJokGenericData* value); // borrows (adds a reference)
    void AddParam(const char* name, const CBelString& value);
    void AddParam(const char* name, const char* value);
    void AddParam(const char* name, double value);
    void AddParam(const char* name, int value);       // a number, as scripts have no integers
    void AddParam(const char* name, IUnknown* value); // borrows (the value adds a reference)
    void AddBooleanParam(const char* name, int value);
    void AddParamNoRef(const char* name, CJokGenericData* value); // takes the caller's reference

    // --- Return value ------------------------------------------------------------------
    void SetReturnValue(CJokGenericData* value);      // borrows (adds a reference)
    void SetReturnValueNoRef(CJokGenericData* value); // takes the caller's reference
    CJokGenericData* GetReturnValue() const { return m_pReturnValue; } // borrowed
    // Returns the return value's reference to the caller and clears it.
    CJokGenericData* DetachReturnValue();

    // Reports a script error (through the framework's script-error channel).
    void OutputErrorString(const char* text);

    // "unused parameter 'x' (it reads: a, b)", "" when every parameter was read.
    CBelString DescribeUnusedParams() const;
    // Reports DescribeUnusedParams through OutputErrorString, prefixed with the call name (or
    // fallbackName when none was set); at most once per context.
    void ReportUnusedParams(const char* fallbackName);

private:
    struct SNamed {
        CBelString m_Name;
        CJokGenericData* m_pValue; // one reference
        mutable bool m_Read = false;
    };

    // Borrowed value, or nullptr after recording a fault for a required parameter.
    CJokGenericData* Lookup(const char* name, int optional);
    int GetInterfaceParam(const char* name, const IID& iid, void** out, int optional,
                          const CBelString& expected);
    void WrongType(const char* name, const char* expected, const CJokGenericData* got);
    void Fault(const CBelString& message);

    std::vector<SNamed> m_Named;
    std::vector<CJokGenericData*> m_Positional; // one reference each
    mutable std::vector<bool> m_PositionalRead;
    mutable std::vector<CBelString> m_Asked; // every name read, given or not, in order
    bool m_UnusedReported = false;
    CJokGenericData* m_pReturnValue = nullptr; // one reference
    CBelString m_CallName;
    CBelString m_PendingFaults; // recorded, not yet reported
    int m_CanProceed = 1;
};
