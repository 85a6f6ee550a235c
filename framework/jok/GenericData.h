// CJokGenericData: the reference-counted values that scripts and components exchange.
//
// Every value is made by a static Allocate that answers a new value with one reference for the
// caller; Release drops a reference and deletes the value at zero. Values other than vectors are
// immutable once made, so they may be shared freely between threads.
//
// Type codes (GetType):
//   0 none    - no value at all: what a property answers when it has nothing to give
//   1 null    - the script's null
//   2 boolean - an int, 0 or 1
//   3 double  - every script number
//   4 string
//   5 vector  - a fixed-size array of values; an element never set is empty (nullptr)
//   6 object  - an IUnknown with one reference (a component, a callback, a function)
#pragma once

#include "framework/bel/BelString.h"
#include "framework/bel/WinTypes.h"

#include <atomic>
#include <vector>

class CJokCOMObject;

enum EJokGdType : int {
    JOKGD_NONE = 0,
    JOKGD_NULL = 1,
    JOKGD_BOOLEAN = 2,
    JOKGD_DOUBLE = 3,
    JOKGD_STRING = 4,
    JOKGD_VECTOR = 5,
    JOKGD_OBJECT = 6,
};

// "a number", "a string" ...: how parameter faults name a type.
const char* JokGdTypeDescription(int type);

class CJokGenericData {
public:
    CJokGenericData(const CJokGenericData&) = delete;
    CJokGenericData& operator=(const CJokGenericData&) = delete;

    unsigned long AddRef() const;
    // Deletes the value when the last reference goes.
    unsigned long Release() const;
    long GetRefCount() const { return m_RefCount.load(); }

    virtual int GetType() const = 0;
    // Non-zero when both values have the same type and value; vectors compare element by
    // element, objects by the identity of their IUnknown.
    virtual int IsEqual(const CJokGenericData* other) const = 0;

protected:
    CJokGenericData() = default;
    virtual ~CJokGenericData() = default;

private:
    mutable std::atomic<long> m_RefCount{1};
};

class CJokGdNone : public CJokGenericData {
public:
    static CJokGdNone* Allocate(); // returns a new reference
    int GetType() const override { return JOKGD_NONE; }
    int IsEqual(const CJokGenericData* other) const override;
};

class CJokGdNull : public CJokGenericData {
public:
    static CJokGdNull* Allocate(); // returns a new reference
    int GetType() const override { return JOKGD_NULL; }
    int IsEqual(const CJokGenericData* other) const override;
};

class CJokGdBoolean : public CJokGenericData {
public:
    static CJokGdBoolean* Allocate(int value); // returns a new reference; stores value != 0
    int GetType() const override { return JOKGD_BOOLEAN; }
    int IsEqual(const CJokGenericData* other) const override;
    int GetValue() const { return m_Value; }

private:
    explicit CJokGdBoolean(int value) : m_Value(value ? 1 : 0) {}
    int m_Value;
};

class CJokGdDouble : public CJokGenericData {
public:
    static CJokGdDouble* Allocate(double value); // returns a new reference
    int GetType() const override { return JOKGD_DOUBLE; }
    int IsEqual(const CJokGenericData* other) const override;
    double GetValue() const { return m_Value; }

private:
    explicit CJokGdDouble(double value) : m_Value(value) {}
    double m_Value;
};

class CJokGdString : public CJokGenericData {
public:
    static CJokGdString* Allocate(const char* text);       // returns a new reference; nullptr is ""
    static CJokGdString* Allocate(const CBelString& text); // returns a new reference
    int GetType() const override { return JOKGD_STRING; }
    int IsEqual(const CJokGenericData* other) const override;
    const CBelString& GetString() const { return m_Text; }

private:
    explicit CJokGdString(CBelString text) : m_Text(std::move(text)) {}
    CBelString m_Text;
};

class CJokGdVector : public CJokGenericData {
public:
    // Returns a new reference to a vector of `size` empty elements (negative sizes give 0).
    static CJokGdVector* Allocate(int size);
    // Returns a new reference to a vector of the count numbers.
    static CJokGdVector* AllocateNumbers(const double* values, int count);
    int GetType() const override { return JOKGD_VECTOR; }
    int IsEqual(const CJokGenericData* other) const override;

    int GetSize() const { return static_cast<int>(m_Elements.size()); }
    // Borrowed; nullptr for an empty element or an index out of range.
    CJokGenericData* GetElement(int index) const;
    // Borrows value (the vector adds its own reference; nullptr empties the element) and
    // releases the element it replaces. Answers 0 for an index out of range.
    int SetElement(int index, CJokGenericData* value);

private:
    explicit CJokGdVector(int size) : m_Elements(static_cast<size_t>(size), nullptr) {}
    ~CJokGdVector() override;
    std::vector<CJokGenericData*> m_Elements;
};

class CJokGdObject : public CJokGenericData {
public:
    // Returns a new reference; the value adds one external reference to the object.
    static CJokGdObject* Allocate(CJokCOMObject* object);
    // Returns a new reference; with addRef non-zero the value adds its own reference to unknown,
    // with addRef 0 it takes over the caller's.
    static CJokGdObject* Allocate(IUnknown* unknown, int addRef);
    int GetType() const override { return JOKGD_OBJECT; }
    int IsEqual(const CJokGenericData* other) const override;

    // Borrowed.
    IUnknown* GetObject() const { return m_pUnknown; }
    // The framework object behind the value (borrowed), or nullptr for a foreign interface.
    CJokCOMObject* GetCOMObject() const;
    // Queries the object for iid; on success *out holds one reference for the caller and the
    // answer is non-zero, else *out is nullptr. interfaceName is the script name of the
    // interface; it is not needed for the query and is accepted so that all typed lookups read
    // alike.
    int GetInterface(const IID& iid, void** out, const char* interfaceName) const;

private:
    explicit CJokGdObject(IUnknown* unknown) : m_pUnknown(unknown) {}
    ~CJokGdObject() override;
    IUnknown* m_pUnknown;
};

// A record: a vector of alternating names (strings) and values,
//     {"width", 640, "height", 480}
// which is how CJokGenericDataContainer builds records and how a host passes a table with
// named fields. Lookup is by exact name; a name given twice answers its first value.
class JokAssocArray {
public:
    // Borrows data; holds references to the values while it lives. A value that is not such a
    // vector (or has an odd size or a non-string name) gives an invalid, empty array.
    explicit JokAssocArray(const CJokGenericData* data);
    ~JokAssocArray();
    JokAssocArray(const JokAssocArray&) = delete;
    JokAssocArray& operator=(const JokAssocArray&) = delete;

    int IsValid() const { return m_Valid; }
    int GetCount() const { return static_cast<int>(m_Items.size()); }
    const CBelString& GetName(int index) const {
        return m_Items[static_cast<size_t>(index)].m_Name;
    }
    // Borrowed; may be nullptr for an empty element.
    CJokGenericData* GetValue(int index) const {
        return m_Items[static_cast<size_t>(index)].m_pValue;
    }
    // Borrowed; nullptr when the name is absent.
    CJokGenericData* Lookup(const char* name) const;

private:
    struct SItem {
        CBelString m_Name;
        CJokGenericData* m_pValue;
    };
    int m_Valid = 0;
    std::vector<SItem> m_Items;
};

// Builds a record value (see JokAssocArray) one named field at a time.
class CJokGenericDataContainer {
public:
    CJokGenericDataContainer() = default;
    ~CJokGenericDataContainer();
    CJokGenericDataContainer(const CJokGenericDataContainer&) = delete;
    CJokGenericDataContainer& operator=(const CJokGenericDataContainer&) = delete;

    // Borrows value (the container adds its own reference).
    void AddProperty(const char* name, CJokGenericData* value);
    void AddProperty(const char* name, double value);
    void AddProperty(const char* name, const CBelString& value);
    // Returns a new reference to the record built so far.
    CJokGdVector* GetData() const;

private:
    std::vector<CJokGenericData*> m_Fields; // names and values, alternating
};
