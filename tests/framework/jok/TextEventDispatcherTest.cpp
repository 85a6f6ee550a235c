#include "framework/jok/TextEventDispatcher.h"

#include <gtest/gtest.h>

namespace {

// Records what it saw; may detach another observer from inside its handler.
class CRecorder : public IJokTextObserver {
public:
    void OnTextEvent(const CJokTextSubjectEvent& event) override {
        m_Seen += event.m_Text;
        if (m_pDispatcher && m_pVictim)
            m_pDispatcher->Detach(m_pVictim);
    }
    CBelString m_Seen;
    CJokTextEventDispatcher* m_pDispatcher = nullptr;
    IJokTextObserver* m_pVictim = nullptr;
};

} // namespace

TEST(TextEventDispatcher, ObserverDetachedDuringNotifyIsSkipped) {
    CJokTextEventDispatcher dispatcher;
    CRecorder first, second;
    EXPECT_TRUE(dispatcher.Attach(&first));
    EXPECT_FALSE(dispatcher.Attach(&first));
    EXPECT_TRUE(dispatcher.Attach(&second));
    first.m_pDispatcher = &dispatcher;
    first.m_pVictim = &second;

    dispatcher.Notify({1, "a"});
    EXPECT_EQ(first.m_Seen, "a");
    EXPECT_EQ(second.m_Seen, "");
    EXPECT_FALSE(dispatcher.IsAttached(&second));
    EXPECT_FALSE(dispatcher.Detach(&second));
}
