// CBelSubject / CBelObserver: a subject tells its attached observers about changes. Observers
// detach themselves when destroyed, so a subject never calls a dead observer.
#pragma once

#include <algorithm>
#include <vector>

class CBelSubject;

class CBelObserver {
public:
    CBelObserver() = default;
    virtual ~CBelObserver();
    CBelObserver(const CBelObserver&) = delete;
    CBelObserver& operator=(const CBelObserver&) = delete;
    // Called by the subject with its event code.
    virtual void Update(CBelSubject* subject, int event) = 0;

private:
    friend class CBelSubject;
    std::vector<CBelSubject*> m_Subjects;
};

class CBelSubject {
public:
    CBelSubject() = default;
    virtual ~CBelSubject();
    CBelSubject(const CBelSubject&) = delete;
    CBelSubject& operator=(const CBelSubject&) = delete;

    void Attach(CBelObserver* observer);
    void Detach(CBelObserver* observer);
    bool IsAttached(const CBelObserver* observer) const;
    // Tells every observer attached when the call starts; an observer may detach meanwhile.
    // Allocates nothing in steady state (subjects that notify per packet rely on it).
    void Notify(int event);

private:
    std::vector<CBelObserver*> m_Observers;
    std::vector<CBelObserver*> m_Snapshot; // the walk's buffer, kept between calls
};
