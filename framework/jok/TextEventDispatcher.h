// CJokTextEventDispatcher: hands text-model events (a text changed, was appended ...) to the
// observers attached to it. Observers are borrowed: one must be detached before it dies.
#pragma once

#include "framework/bel/BelString.h"

#include <vector>

struct CJokTextSubjectEvent {
    int m_Kind = 0; // what happened; the subject defines its codes
    CBelString m_Text;
};

class IJokTextObserver {
public:
    virtual void OnTextEvent(const CJokTextSubjectEvent& event) = 0;

protected:
    ~IJokTextObserver() = default;
};

class CJokTextEventDispatcher {
public:
    // Each answers non-zero when it changed something (attaching twice, or detaching an
    // observer that is not attached, does nothing).
    int Attach(IJokTextObserver* observer);
    int Detach(IJokTextObserver* observer);
    int IsAttached(IJokTextObserver* observer) const;
    // Calls each observer attached when the call began and still attached when its turn comes,
    // in the order of attachment; observers may attach and detach from inside their handler.
    void Notify(const CJokTextSubjectEvent& event);

private:
    std::vector<IJokTextObserver*> m_Observers;
};
