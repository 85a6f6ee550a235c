// A script callback for component tests: records each call's numbers (booleans as 0 or 1) and
// strings, the calling component (the last value) left out, and can act inside the call.
#pragma once

#include "framework/jok/Command.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/GenericData.h"

#include <functional>
#include <string>
#include <vector>

namespace zortest {

class CRecordingCallback : public CJokSimpleCommandObject {
public:
    struct SCall {
        std::vector<double> m_Numbers;
        std::vector<std::string> m_Texts;
    };

    int CallMethod(CJokCommandContext* context) override {
        SCall call;
        for (int i = 0; i + 1 < context->GetPositionalCount(); ++i) {
            const CJokGenericData* value = context->GetPositional(i);
            if (value->GetType() == JOKGD_BOOLEAN) {
                call.m_Numbers.push_back(static_cast<const CJokGdBoolean*>(value)->GetValue());
            } else if (value->GetType() == JOKGD_DOUBLE) {
                call.m_Numbers.push_back(static_cast<const CJokGdDouble*>(value)->GetValue());
            } else if (value->GetType() == JOKGD_STRING) {
                call.m_Texts.push_back(static_cast<const CJokGdString*>(value)->GetString().str());
            }
        }
        m_Calls.push_back(call);
        if (m_Action) {
            m_Action();
        }
        return 1;
    }

    // A script value holding a new reference to this callback.
    CJokGenericData* Value() { return CJokGdObject::Allocate(this, 1); }

    std::vector<SCall> m_Calls;
    std::function<void()> m_Action;
};

} // namespace zortest
