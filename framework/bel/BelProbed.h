// Probed variables: named tunable values (a name, a folder and a default) that read and write as
// plain values, and that a prober can find by "folder/name" to inspect or tune at run time.
#pragma once

#include "framework/bel/BelString.h"

#include <vector>

class CBelProbedVariable;

class CBelRealTimeProber {
public:
    static CBelRealTimeProber& Instance();
    // Finds a variable by "folder/name"; nullptr when there is none.
    CBelProbedVariable* Find(const char* path) const;
    std::vector<CBelProbedVariable*> All() const;

private:
    friend class CBelProbedVariable;
    void Add(CBelProbedVariable* variable);
    void Remove(CBelProbedVariable* variable);
    std::vector<CBelProbedVariable*> m_Variables;
};

class CBelProbedVariable {
public:
    CBelProbedVariable(const char* name, const char* folder);
    virtual ~CBelProbedVariable();
    CBelProbedVariable(const CBelProbedVariable&) = delete;
    CBelProbedVariable& operator=(const CBelProbedVariable&) = delete;

    CBelString Path() const { return m_Folder + "/" + m_Name; }
    virtual double GetAsDouble() const = 0;
    virtual void SetFromDouble(double value) = 0;

private:
    CBelString m_Name;
    CBelString m_Folder;
};

template <typename TValue> class CBelProbed : public CBelProbedVariable {
public:
    CBelProbed(const char* name, const char* folder, TValue initial)
        : CBelProbedVariable(name, folder), m_Value(initial) {}
    operator TValue() const { return m_Value; }
    CBelProbed& operator=(TValue value) {
        m_Value = value;
        return *this;
    }
    double GetAsDouble() const override { return static_cast<double>(m_Value); }
    void SetFromDouble(double value) override { m_Value = static_cast<TValue>(value); }

private:
    TValue m_Value;
};

using CBelProbedLong = CBelProbed<long>;
using CBelProbedDouble = CBelProbed<double>;
