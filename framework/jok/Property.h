// Property descriptions, enumeration, and the conversions between plain member values and
// script values that every property item uses.
//
// Script conversions: a boolean property also takes a number (non-zero is true), because scripts
// commonly write flags as numbers ("enable = 1"); a double property takes only a number, as in
// the script language, where true is not a number. Strings never convert. The script null stands
// for "no object" wherever an interface is expected.
//
// The int `flags` arguments of the conversions are reserved and should be 0.
#pragma once

#include "framework/bel/BelString.h"
#include "framework/bel/WinTypes.h"

class CJokGenericData;
class CJokPropertyDescriptor;
struct IJokCommand;

// Walks the properties of one object: its own first, then those of its bases.
class CJokPropertyEnum {
public:
    enum ReadOnlyStatus { ReadWrite = 0, ReadOnly = 1 };

    virtual ~CJokPropertyEnum() = default;
    virtual void Reset() = 0;
    // Answers the next property (borrowed; it outlives the enumerator) or nullptr after the last.
    virtual const CJokPropertyDescriptor* Next() = 0;
};

// "a, b, c": the property names an enumerator gives, for messages. Borrows enumerator (nullptr
// gives "").
CBelString JokListPropertyNames(CJokPropertyEnum* enumerator);

CBelString CJokGetDoublePropertyType();   // "double"
CBelString CJokGetStringPropertyType();   // "string"
CBelString CJokGetBooleanPropertyType();  // "boolean"
CBelString CJokGetFunctionPropertyType(); // "function"
CBelString CJokGetGeneralPropertyType();  // "general": any value
// "interface <name> {iid}"
CBelString CJokGetInterfacePropertyType(const IID& iid, const char* interfaceName);

class CJokPropertyDescriptor {
public:
    CJokPropertyDescriptor(const char* name, int readOnlyStatus,
                           CBelString type = CJokGetGeneralPropertyType());

    int IsReadOnly() const { return m_ReadOnly != CJokPropertyEnum::ReadWrite; }
    // Any of the outputs may be nullptr.
    void DescribeProperty(CBelString* name, CBelString* type,
                          CJokPropertyEnum::ReadOnlyStatus* readOnlyStatus) const;
    const CBelString& GetName() const { return m_Name; }
    const CBelString& GetType() const { return m_Type; }

private:
    CBelString m_Name;
    CBelString m_Type;
    CJokPropertyEnum::ReadOnlyStatus m_ReadOnly;
};

// Enumerates a fixed list of descriptors (borrowed; they must outlive the enumerator), then the
// properties of a base enumerator, which it owns.
class CJokListPropertyEnum : public CJokPropertyEnum {
public:
    CJokListPropertyEnum(const CJokPropertyDescriptor* const* descriptors, int count,
                         CJokPropertyEnum* base);
    ~CJokListPropertyEnum() override;
    CJokListPropertyEnum(const CJokListPropertyEnum&) = delete;
    CJokListPropertyEnum& operator=(const CJokListPropertyEnum&) = delete;

    void Reset() override;
    const CJokPropertyDescriptor* Next() override;

private:
    const CJokPropertyDescriptor* const* m_pDescriptors;
    int m_Count;
    int m_Position = 0;
    CJokPropertyEnum* m_pBase;
};

// Plain value -> script value; each returns a new reference.
CJokGenericData* CJokDoublePropertyGet(double value, int flags);
CJokGenericData* CJokStringPropertyGet(const CBelString& value, int flags);
CJokGenericData* CJokBooleanPropertyGet(int value, int flags);
// An object value (adding a reference to value), or the null value for nullptr.
CJokGenericData* CJokInterfacePropertyGet(IUnknown* value, int flags);

// Script value -> plain variable. Each borrows value, answers non-zero when the value was of an
// acceptable type and stored, and leaves the variable untouched otherwise.
int CJokDoublePropertySet(const CJokGenericData* value, double* out, int flags);
int CJokStringPropertySet(const CJokGenericData* value, CBelString* out, int flags);
int CJokBooleanPropertySet(const CJokGenericData* value, int* out, int flags);
// *out holds one reference: on success the previous interface is released and *out receives
// the object's iid interface with a new reference, or nullptr for the script null. An object
// without the interface is refused.
int CJokInterfacePropertySet(const CJokGenericData* value, const IID& iid,
                             const char* interfaceName, IUnknown** out, int flags);

// Why a property write was refused, so that a host can tell the script author. A handler or a
// property map item that refuses a value calls JokRefuseProperty with the reason ("unknown
// format 'x' (valid: ...)", the parse message of a script) and answers its result, 0. A host
// takes the reason after SetProperty answered 0 (and before, to drop a stale one). One per
// thread: property writes run on the caller's thread.
int JokRefuseProperty(const char* reason);
// "a number is expected, not a string"; answers 0.
int JokRefusePropertyType(const char* expected, const CJokGenericData* given);
// "a function is expected, not a number" for IJokCommand, else "an object with interface <name>
// is expected, ..."; answers 0.
int JokRefusePropertyInterface(const IID& iid, const char* interfaceName,
                               const CJokGenericData* given);
// The reason given since the last take, or "" when none was.
CBelString JokTakePropertyRefusal();

// Reads properties of another object through its IJokCommand (holding a reference meanwhile).
class CJokPropertyAccessor {
public:
    explicit CJokPropertyAccessor(IJokCommand* command); // borrows command (adds a reference)
    ~CJokPropertyAccessor();
    CJokPropertyAccessor(const CJokPropertyAccessor&) = delete;
    CJokPropertyAccessor& operator=(const CJokPropertyAccessor&) = delete;

    // Each answers non-zero and sets out when the property exists and converts; numbers are
    // truncated toward zero for GetLong.
    int GetLong(const char* name, long& out, const int& flags = 0);
    int GetDouble(const char* name, double& out, const int& flags = 0);
    int GetString(const char* name, CBelString& out, const int& flags = 0);

private:
    IJokCommand* m_pCommand;
};
