// IJokCommand: a script-callable object (a callback, a function, a component reached through its
// interface), and the function objects that implement it.
//
// CallMethod runs the call described by a command context: parameters in, return value out. It
// answers non-zero when the call ran (script-level faults included: they go through the
// context's OutputErrorString), 0 when the object cannot be called at all.
#pragma once

#include "framework/bel/BelString.h"
#include "framework/bel/WinTypes.h"

#include <atomic>

class CJokCommandContext;
class CJokGenericData;
class CJokPropertyEnum;

// {067F572E-8416-11D0-BDFD-0020AF6FA161}: the type of script callback properties.
inline constexpr IID IID_IJokCommand = {
    0x067F572E, 0x8416, 0x11D0, {0xBD, 0xFD, 0x00, 0x20, 0xAF, 0x6F, 0xA1, 0x61}};
// {067F573A-8416-11D0-BDFD-0020AF6FA161}: archive attribute sources.
inline constexpr IID IID_IJokArchiveAttributeSource = {
    0x067F573A, 0x8416, 0x11D0, {0xBD, 0xFD, 0x00, 0x20, 0xAF, 0x6F, 0xA1, 0x61}};

// Virtual slots: QueryInterface, AddRef, Release, GetProperty, SetProperty, CallMethod,
// GetPropertyEnumerator, destructor.
struct IJokCommand : IUnknown {
    // Returns a new reference, or nullptr when there is no such property (or flags ask for
    // something this object does not give).
    virtual CJokGenericData* GetProperty(const char* name, int flags) = 0;
    // Borrows value. Answers 1 (set), 0 (refused) or -1 (no such property).
    virtual int SetProperty(const char* name, CJokGenericData* value) = 0;
    // Borrows context.
    virtual int CallMethod(CJokCommandContext* context) = 0;
    // Returns a new enumerator that the caller deletes, or nullptr when there are no properties.
    virtual CJokPropertyEnum* GetPropertyEnumerator() = 0;
    virtual ~IJokCommand() = default;
};

// A stand-alone IJokCommand with its own reference count (starting at 1, the creator's). It
// answers QueryInterface for IUnknown and IJokCommand, has no properties and cannot be called;
// subclasses override what they offer (the script host wraps its functions this way).
class CJokSimpleCommandObject : public IJokCommand {
public:
    CJokSimpleCommandObject() = default;
    CJokSimpleCommandObject(const CJokSimpleCommandObject&) = delete;
    CJokSimpleCommandObject& operator=(const CJokSimpleCommandObject&) = delete;

    HRESULT QueryInterface(const IID& iid, void** object) override;
    unsigned long AddRef() override;
    unsigned long Release() override;
    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    int CallMethod(CJokCommandContext* context) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;

    long GetRefCount() const { return m_RefCount.load(); }

protected:
    // Runs when the last reference goes; deletes the object. Objects of static lifetime
    // override it to do nothing.
    virtual void OnFinalRelease();

private:
    std::atomic<long> m_RefCount{1};
};

// A named function. Its read-only properties "name" and "description" (the text of the
// function reference as written in the source, "&CreateSplitter") let a host list and find
// functions through IJokCommand alone.
class CJokFunctionObj : public CJokSimpleCommandObject {
public:
    CJokFunctionObj(const char* name, const char* description);

    const CBelString& GetName() const { return m_Name; }
    const CBelString& GetDescription() const { return m_Description; }

    CJokGenericData* GetProperty(const char* name, int flags) override;
    int SetProperty(const char* name, CJokGenericData* value) override;
    CJokPropertyEnum* GetPropertyEnumerator() override;

private:
    CBelString m_Name;
    CBelString m_Description;
};

// The framework's guarantees around a script-callable function, so that every creation function
// and method has them without writing them: an exception never leaves the call (it becomes a
// script error, "<name>: out of memory"), and named parameters or arguments the function never
// read are reported once (see CommandContext.h). Answers the function's result, 1 after an
// exception.
template <class F> int JokGuardedCall(CJokCommandContext* context, const char* name, F&& function);

// The out-of-line halves of JokGuardedCall.
void JokReportCallException(CJokCommandContext* context, const char* name) noexcept;
void JokReportUnusedParams(CJokCommandContext* context, const char* name);

template <class F> int JokGuardedCall(CJokCommandContext* context, const char* name, F&& function) {
    int result = 1;
    try {
        result = function();
    } catch (...) {
        JokReportCallException(context, name);
        return 1;
    }
    if (result != 0) { // 0: the object cannot be called, so it read nothing on purpose
        JokReportUnusedParams(context, name);
    }
    return result;
}

using JokFreeFunction = int (*)(CJokCommandContext* context);

// A named free function.
class CJokFreeFunctionObj : public CJokFunctionObj {
public:
    CJokFreeFunctionObj(const char* name, const char* description, JokFreeFunction function);
    // Answers the function's own result.
    int CallMethod(CJokCommandContext* context) override;

private:
    JokFreeFunction m_pFunction;
};

// One method of one object, bound: a function property's value. Holds an external reference to
// the object (T derives from CJokCOMObject) for as long as it lives.
template <class T> class CJokClassFunctionObj : public CJokFunctionObj {
public:
    using Method = int (T::*)(CJokCommandContext* context);

    // Borrows object (adds its own reference).
    CJokClassFunctionObj(T* object, Method method, const char* name, const char* description)
        : CJokFunctionObj(name, description), m_pObject(object), m_Method(method) {
        m_pObject->ExternalAddRef();
    }
    ~CJokClassFunctionObj() override { m_pObject->ExternalRelease(); }

    int CallMethod(CJokCommandContext* context) override {
        return JokGuardedCall(context, GetName().c_str(),
                              [&] { return (m_pObject->*m_Method)(context); });
    }
    T* GetObject() const { return m_pObject; } // borrowed

private:
    T* m_pObject;
    Method m_Method;
};
