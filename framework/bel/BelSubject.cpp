#include "framework/bel/BelSubject.h"

CBelObserver::~CBelObserver() {
    const std::vector<CBelSubject*> subjects = m_Subjects;
    for (CBelSubject* subject : subjects) {
        subject->Detach(this);
    }
}

CBelSubject::~CBelSubject() {
    const std::vector<CBelObserver*> observers = m_Observers;
    for (CBelObserver* observer : observers) {
        Detach(observer);
    }
}

void CBelSubject::Attach(CBelObserver* observer) {
    if (!observer || IsAttached(observer)) {
        return;
    }
    m_Observers.push_back(observer);
    observer->m_Subjects.push_back(this);
}

void CBelSubject::Detach(CBelObserver* observer) {
    m_Observers.erase(std::remove(m_Observers.begin(), m_Observers.end(), observer),
                      m_Observers.end());
    if (observer) {
        auto& subjects = observer->m_Subjects;
        subjects.erase(std::remove(subjects.begin(), subjects.end(), this), subjects.end());
    }
}

bool CBelSubject::IsAttached(const CBelObserver* observer) const {
    return std::find(m_Observers.begin(), m_Observers.end(), observer) != m_Observers.end();
}

void CBelSubject::Notify(int event) {
    // The walk goes over a copy, in a buffer kept between calls; a nested Notify finds the buffer
    // taken and uses a fresh one.
    std::vector<CBelObserver*> observers;
    observers.swap(m_Snapshot);
    observers.assign(m_Observers.begin(), m_Observers.end());
    for (CBelObserver* observer : observers) {
        if (IsAttached(observer)) {
            observer->Update(this, event);
        }
    }
    observers.clear();
    m_Snapshot.swap(observers);
}
