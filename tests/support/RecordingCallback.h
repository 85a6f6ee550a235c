// Component tests as a script drives them: a callback that records each call's positional values
// (numbers as they are, booleans as 0 or 1, null as NaN, an object - the calling component,
// last - as -1; strings apart) and can act inside the call, and property helpers.
#pragma once

#include "framework/jok/Command.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/GenericData.h"

#include <functional>
#include <initializer_list>
#include <limits>
#include <string>
#include <vector>

namespace zortest {

class CRecordingCallback : public CJokSimpleCommandObject {
public:
    struct SCall {
        std::vector<double> m_Numbers;
        std::vector<std::string> m_Texts;
        CJokCOMObject* m_pObject = nullptr; // the last object given
        double operator[](std::size_t i) const { return m_Numbers.at(i); }
        bool operator==(const std::vector<double>& numbers) const { return m_Numbers == numbers; }
    };

    int CallMethod(CJokCommandContext* context) override {
        SCall call;
        for (int i = 0; i < context->GetPositionalCount(); ++i) {
            const CJokGenericData* value = context->GetPositional(i);
            switch (value ? value->GetType() : JOKGD_NULL) {
            case JOKGD_BOOLEAN:
                call.m_Numbers.push_back(static_cast<const CJokGdBoolean*>(value)->GetValue());
                break;
            case JOKGD_DOUBLE:
                call.m_Numbers.push_back(static_cast<const CJokGdDouble*>(value)->GetValue());
                break;
            case JOKGD_STRING:
                call.m_Texts.push_back(static_cast<const CJokGdString*>(value)->GetString().str());
                break;
            case JOKGD_OBJECT:
                call.m_Numbers.push_back(-1);
                call.m_pObject = static_cast<const CJokGdObject*>(value)->GetCOMObject();
                break;
            default:
                call.m_Numbers.push_back(std::numeric_limits<double>::quiet_NaN());
                break;
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

// Sets a property as a script does, taking the value's reference; answers the property map's
// result (1 taken, 0 refused, -1 no such property).
template <class T> int Set(T* component, const char* name, CJokGenericData* value) {
    const int result = component->SetProperty(name, value);
    value->Release();
    return result;
}

template <class T> int SetNumber(T* component, const char* name, double value) {
    return Set(component, name, CJokGdDouble::Allocate(value));
}

template <class T> void SetBoolean(T* component, const char* name, bool on) {
    Set(component, name, CJokGdBoolean::Allocate(on));
}

template <class T> void SetCallback(T* component, const char* name, IJokCommand* callback) {
    Set(component, name, CJokGdObject::Allocate(callback, 1));
}

// A number property's value; NaN when the property has none.
template <class T> double GetNumber(T* component, const char* name) {
    CJokGenericData* value = component->GetProperty(name, 0);
    const double number = value && value->GetType() == JOKGD_DOUBLE
                              ? static_cast<CJokGdDouble*>(value)->GetValue()
                              : std::numeric_limits<double>::quiet_NaN();
    if (value) {
        value->Release();
    }
    return number;
}

// A script vector of the elements, whose references it takes; and one of numbers.
inline CJokGdVector* Vector(std::initializer_list<CJokGenericData*> elements) {
    CJokGdVector* vector = CJokGdVector::Allocate(static_cast<int>(elements.size()));
    int i = 0;
    for (CJokGenericData* element : elements) {
        vector->SetElement(i++, element);
        element->Release();
    }
    return vector;
}

inline CJokGdVector* Numbers(std::initializer_list<double> values) {
    CJokGdVector* vector = CJokGdVector::Allocate(static_cast<int>(values.size()));
    int i = 0;
    for (double value : values) {
        CJokGdDouble* number = CJokGdDouble::Allocate(value);
        vector->SetElement(i++, number);
        number->Release();
    }
    return vector;
}

} // namespace zortest
