#include "framework/jok/TextEventDispatcher.h"

#include <algorithm>

int CJokTextEventDispatcher::Attach(IJokTextObserver* observer) {
    if (!observer || IsAttached(observer))
        return 0;
    m_Observers.push_back(observer);
    return 1;
}

int CJokTextEventDispatcher::Detach(IJokTextObserver* observer) {
    auto found = std::find(m_Observers.begin(), m_Observers.end(), observer);
    if (found == m_Observers.end())
        return 0;
    m_Observers.erase(found);
    return 1;
}

int CJokTextEventDispatcher::IsAttached(IJokTextObserver* observer) const {
    return std::find(m_Observers.begin(), m_Observers.end(), observer) != m_Observers.end();
}

void CJokTextEventDispatcher::Notify(const CJokTextSubjectEvent& event) {
    // A handler may change the list: walk a copy and skip observers detached meanwhile.
    const std::vector<IJokTextObserver*> snapshot = m_Observers;
    for (IJokTextObserver* observer : snapshot) {
        if (IsAttached(observer))
            observer->OnTextEvent(event);
    }
}
