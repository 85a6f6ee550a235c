#include "framework/bel/BelProbed.h"

#include <algorithm>

CBelRealTimeProber& CBelRealTimeProber::Instance() {
    static CBelRealTimeProber prober;
    return prober;
}

CBelProbedVariable* CBelRealTimeProber::Find(const char* path) const {
    for (CBelProbedVariable* variable : m_Variables) {
        if (variable->Path() == path) {
            return variable;
        }
    }
    return nullptr;
}

std::vector<CBelProbedVariable*> CBelRealTimeProber::All() const {
    return m_Variables;
}

void CBelRealTimeProber::Add(CBelProbedVariable* variable) {
    m_Variables.push_back(variable);
}

void CBelRealTimeProber::Remove(CBelProbedVariable* variable) {
    m_Variables.erase(std::remove(m_Variables.begin(), m_Variables.end(), variable),
                      m_Variables.end());
}

CBelProbedVariable::CBelProbedVariable(const char* name, const char* folder)
    : m_Name(name), m_Folder(folder) {
    CBelRealTimeProber::Instance().Add(this);
}

CBelProbedVariable::~CBelProbedVariable() {
    CBelRealTimeProber::Instance().Remove(this);
}
