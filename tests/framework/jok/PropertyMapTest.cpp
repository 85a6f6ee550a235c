#include "framework/jok/PropertyMap.h"

#include "framework/jok/CommandContext.h"
#include "framework/jok/Component.h"

#include <gtest/gtest.h>

namespace {

// A base with one property of its own, standing in for a pin component base.
class CProbeBase : public CJokComponent {
public:
    CProbeBase() : CJokComponent("Probe") {}
    CJokGenericData* GetProperty(const char* name, int flags) override {
        if (CBelString(name) == "baseValue")
            return CJokGdDouble::Allocate(flags);
        return CJokComponent::GetProperty(name, flags);
    }
    int SetProperty(const char* name, CJokGenericData* value) override {
        if (CBelString(name) == "baseValue")
            return 1;
        return CJokComponent::SetProperty(name, value);
    }
    CJokPropertyEnum* GetPropertyEnumerator() override {
        static const CJokPropertyDescriptor baseValue("baseValue", 0);
        static const CJokPropertyDescriptor* const list[] = {&baseValue};
        return new CJokListPropertyEnum(list, 1, nullptr);
    }
};

class CProbeCom : public CProbeBase {
public:
    ~CProbeCom() override {
        if (m_pIOnEvent)
            m_pIOnEvent->Release();
        if (m_pStored)
            m_pStored->Release();
    }

    static const CJokPropertyMap<CProbeCom>& PropertyMap() {
        static const CJokPropertyMap<CProbeCom> map = [] {
            CJokPropertyMap<CProbeCom> m;
            m.AddDouble("gain", &CProbeCom::m_Gain, "&CProbeCom::m_Gain")
                .AddBoolean("enable", &CProbeCom::m_Enable, "&CProbeCom::m_Enable")
                .AddString("label", &CProbeCom::m_Label, "&CProbeCom::m_Label", 1)
                .AddInterface("onEvent", &CProbeCom::m_pIOnEvent, IID_IJokCommand, "IJokCommand",
                              "&CProbeCom::m_pIOnEvent")
                .AddNotifiedDouble("level", &CProbeCom::LevelHandler, "&CProbeCom::LevelHandler")
                .AddNotifiedGenericData("stored", &CProbeCom::StoredHandler,
                                        "&CProbeCom::StoredHandler")
                .AddFunction("Bump", &CProbeCom::Bump, "&CProbeCom::Bump");
            return m;
        }();
        return map;
    }

    CJokGenericData* GetProperty(const char* name, int flags) override {
        if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags))
            return value;
        return CProbeBase::GetProperty(name, flags);
    }
    int SetProperty(const char* name, CJokGenericData* value) override {
        int result = PropertyMap().SetProperty(this, name, value);
        if (result == -1)
            return CProbeBase::SetProperty(name, value);
        return result != 0;
    }
    CJokPropertyEnum* GetPropertyEnumerator() override {
        return PropertyMap().NewEnumerator(CProbeBase::GetPropertyEnumerator());
    }

    // Refuses negative levels; has no level to give until one was set.
    int LevelHandler(double* value, int set) {
        if (!set) {
            *value = m_Level;
            return m_HaveLevel;
        }
        if (*value < 0)
            return 0;
        m_Level = *value;
        m_HaveLevel = 1;
        return 1;
    }
    int StoredHandler(CJokGenericData** value, int set) {
        if (!set) {
            if (m_pStored)
                m_pStored->AddRef();
            *value = m_pStored;
            return m_pStored != nullptr;
        }
        (*value)->AddRef();
        if (m_pStored)
            m_pStored->Release();
        m_pStored = *value;
        return 1;
    }
    int Bump(CJokCommandContext* context) {
        double by = 1;
        context->GetParam("by", &by, 1);
        if (!context->CanProceed(0))
            return 1;
        m_Gain += by;
        context->SetReturnValueNoRef(CJokGdDouble::Allocate(m_Gain));
        return 1;
    }

    double m_Gain = 1;
    int m_Enable = 0;
    CBelString m_Label = "probe";
    IJokCommand* m_pIOnEvent = nullptr;
    double m_Level = 0;
    int m_HaveLevel = 0;
    CJokGenericData* m_pStored = nullptr;
};

class PropertyMap : public ::testing::Test {
protected:
    ~PropertyMap() override { m_pProbe->Release(); }

    // Sets through the component's IJokCommand, as a host does; takes value.
    int Set(const char* name, CJokGenericData* value) {
        int result = m_pProbe->GetCommand()->SetProperty(name, value);
        value->Release();
        return result;
    }
    // The property's type code, or -1 when nothing was answered.
    int GetType(const char* name, int flags = 0) {
        CJokGenericData* value = m_pProbe->GetCommand()->GetProperty(name, flags);
        if (!value)
            return -1;
        int type = value->GetType();
        value->Release();
        return type;
    }

    CProbeCom* m_pProbe = new CProbeCom;
};

} // namespace

TEST_F(PropertyMap, SetAnswersOneZeroOrAllOnesAndSaysWhyItRefused) {
    auto* callback = new CJokSimpleCommandObject;
    const struct {
        const char* name;
        CJokGenericData* value;
        int result;
        const char* reason; // what JokTakePropertyRefusal gives afterwards
    } cases[] = {
        {"gain", CJokGdDouble::Allocate(2.5), 1, ""},
        {"gain", CJokGdString::Allocate("2.5"), 0, "a number is expected, not a string"},
        {"enable", CJokGdDouble::Allocate(3), 1, ""}, // a number written as a flag
        {"enable", CJokGdString::Allocate("on"), 0, "a boolean is expected, not a string"},
        {"label", CJokGdString::Allocate("x"), 0, "the property is read-only"},
        {"level", CJokGdDouble::Allocate(0.25), 1, ""},
        {"level", CJokGdBoolean::Allocate(1), 0, "a number is expected, not a boolean"},
        {"level", CJokGdDouble::Allocate(-1), 0, ""}, // the handler refuses without a reason
        {"onEvent", CJokGdObject::Allocate(callback, 1), 1, ""},
        {"onEvent", CJokGdDouble::Allocate(1), 0, "a function is expected, not a number"},
        {"Bump", CJokGdDouble::Allocate(1), 0, "the property is read-only"},
        {"baseValue", CJokGdDouble::Allocate(1), 1, ""}, // passed on to the base
        {"noSuchName", CJokGdDouble::Allocate(1), -1, ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Set(c.name, c.value), c.result) << c.name;
        EXPECT_EQ(JokTakePropertyRefusal(), c.reason) << c.name;
    }

    EXPECT_EQ(m_pProbe->m_Gain, 2.5);
    EXPECT_EQ(m_pProbe->m_Enable, 1);
    EXPECT_EQ(m_pProbe->m_Label, "probe");
    EXPECT_EQ(m_pProbe->m_Level, 0.25);
    EXPECT_EQ(m_pProbe->m_pIOnEvent, callback);
    EXPECT_EQ(callback->GetRefCount(), 2);
    EXPECT_EQ(Set("onEvent", CJokGdNull::Allocate()), 1); // null clears and releases
    EXPECT_EQ(m_pProbe->m_pIOnEvent, nullptr);
    EXPECT_EQ(callback->GetRefCount(), 1);
    callback->Release();
}

TEST_F(PropertyMap, GetAsksMapOnlyWithZeroFlagsThenBase) {
    EXPECT_EQ(GetType("gain"), JOKGD_DOUBLE);
    EXPECT_EQ(GetType("gain", 1), -1);
    EXPECT_EQ(GetType("baseValue", 1), JOKGD_DOUBLE);
    EXPECT_EQ(GetType("noSuchName"), -1);
    EXPECT_EQ(GetType("onEvent"), JOKGD_NULL);
    EXPECT_EQ(GetType("level"), JOKGD_NONE); // the handler has nothing yet
    EXPECT_EQ(GetType("stored"), JOKGD_NONE);
    EXPECT_EQ(Set("stored", CJokGdString::Allocate("kept")), 1);
    EXPECT_EQ(GetType("stored"), JOKGD_STRING);
}

TEST_F(PropertyMap, FunctionPropertyIsCallableAndHoldsItsObject) {
    CJokGenericData* value = m_pProbe->GetCommand()->GetProperty("Bump", 0);
    ASSERT_EQ(value->GetType(), JOKGD_OBJECT);
    IJokCommand* bump = nullptr;
    ASSERT_TRUE(static_cast<CJokGdObject*>(value)->GetInterface(
        IID_IJokCommand, reinterpret_cast<void**>(&bump), "IJokCommand"));
    value->Release();
    EXPECT_EQ(m_pProbe->GetRefCount(), 2);

    CJokCommandContext context;
    context.AddParam("by", 2.0);
    EXPECT_EQ(bump->CallMethod(&context), 1);
    ASSERT_NE(context.GetReturnValue(), nullptr);
    EXPECT_EQ(static_cast<CJokGdDouble*>(context.GetReturnValue())->GetValue(), 3.0);

    CJokGenericData* source = bump->GetProperty("description", 0);
    EXPECT_EQ(static_cast<CJokGdString*>(source)->GetString(), "&CProbeCom::Bump");
    source->Release();
    bump->Release();
    EXPECT_EQ(m_pProbe->GetRefCount(), 1);
}

TEST_F(PropertyMap, EnumeratorListsOwnPropertiesThenBase) {
    CJokPropertyEnum* properties = m_pProbe->GetCommand()->GetPropertyEnumerator();
    EXPECT_EQ(JokListPropertyNames(properties),
              "gain, enable, label, onEvent, level, stored, Bump, baseValue");
    properties->Reset();
    const CJokPropertyDescriptor* gain = properties->Next();
    CBelString type;
    CJokPropertyEnum::ReadOnlyStatus status{};
    gain->DescribeProperty(nullptr, &type, &status);
    EXPECT_EQ(type, "double");
    EXPECT_EQ(status, CJokPropertyEnum::ReadWrite);
    delete properties;

    const auto* onEvent = CProbeCom::PropertyMap().Find("onEvent");
    ASSERT_NE(onEvent, nullptr);
    EXPECT_EQ(onEvent->GetSource(), "&CProbeCom::m_pIOnEvent");
    EXPECT_EQ(onEvent->GetDescriptor().GetType(),
              "interface IJokCommand {067F572E-8416-11D0-BDFD-0020AF6FA161}");
    EXPECT_TRUE(CProbeCom::PropertyMap().Find("Bump")->IsReadOnly());
}

TEST_F(PropertyMap, AccessorReadsNumbersOfAnotherComponent) {
    CJokPropertyAccessor accessor(m_pProbe->GetCommand());
    long value = -1;
    m_pProbe->m_Gain = 7.9;
    EXPECT_TRUE(accessor.GetLong("gain", value));
    EXPECT_EQ(value, 7);
    EXPECT_FALSE(accessor.GetLong("label", value)); // a string
    EXPECT_FALSE(accessor.GetLong("noSuchName", value));
    m_pProbe->m_Gain = 1e30;
    EXPECT_FALSE(accessor.GetLong("gain", value));
    EXPECT_EQ(value, 7);
}
