#include "framework/jok/GenericData.h"

#include "framework/jok/COMObject.h"
#include "framework/jok/Component.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

// Releases a value when the test is done with it.
struct SHeld {
    CJokGenericData* m_p;
    ~SHeld() {
        if (m_p)
            m_p->Release();
    }
    CJokGenericData* operator->() const { return m_p; }
};

class CCountedComponent : public CJokComponent {
public:
    explicit CCountedComponent(int* destroyed)
        : CJokComponent("Counted"), m_pDestroyed(destroyed) {}
    ~CCountedComponent() override { ++*m_pDestroyed; }

private:
    int* m_pDestroyed;
};

} // namespace

TEST(GenericData, VectorHoldsOneReferencePerElement) {
    SHeld element{CJokGdDouble::Allocate(2)};
    SHeld replacement{CJokGdString::Allocate("b")};
    CJokGdVector* vector = CJokGdVector::Allocate(2);
    EXPECT_EQ(vector->GetElement(0), nullptr); // never set: empty
    ASSERT_TRUE(vector->SetElement(0, element.m_p));
    ASSERT_TRUE(vector->SetElement(1, element.m_p));
    EXPECT_EQ(element->GetRefCount(), 3);
    EXPECT_TRUE(vector->SetElement(1, replacement.m_p));
    EXPECT_EQ(element->GetRefCount(), 2);
    EXPECT_FALSE(vector->SetElement(2, element.m_p));
    EXPECT_FALSE(vector->SetElement(-1, element.m_p));
    EXPECT_EQ(vector->GetElement(2), nullptr);
    vector->Release();
    EXPECT_EQ(element->GetRefCount(), 1);
    EXPECT_EQ(replacement->GetRefCount(), 1);
}

TEST(GenericData, IsEqualComparesTypeAndValue) {
    auto pair = [](double a, double b) {
        CJokGdVector* v = CJokGdVector::Allocate(2);
        SHeld x{CJokGdDouble::Allocate(a)}, y{CJokGdDouble::Allocate(b)};
        v->SetElement(0, x.m_p);
        v->SetElement(1, y.m_p);
        return v;
    };
    const struct {
        CJokGenericData* a;
        CJokGenericData* b;
        int equal;
    } cases[] = {
        {CJokGdDouble::Allocate(1), CJokGdDouble::Allocate(1), 1},
        {CJokGdDouble::Allocate(1), CJokGdBoolean::Allocate(1), 0},
        {CJokGdString::Allocate("a"), CJokGdString::Allocate(CBelString("a")), 1},
        {CJokGdString::Allocate("a"), CJokGdString::Allocate("b"), 0},
        {CJokGdNull::Allocate(), CJokGdNone::Allocate(), 0},
        {pair(1, 2), pair(1, 2), 1},
        {pair(1, 2), pair(1, 3), 0},
        {CJokGdVector::Allocate(1), CJokGdVector::Allocate(2), 0},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.a->IsEqual(c.b), c.equal);
        EXPECT_EQ(c.b->IsEqual(c.a), c.equal);
        c.a->Release();
        c.b->Release();
    }
}

TEST(GenericData, ObjectValueKeepsComponentAlive) {
    int destroyed = 0;
    auto* component = new CCountedComponent(&destroyed);
    CJokGdObject* value = CJokGdObject::Allocate(component);
    EXPECT_EQ(component->GetRefCount(), 2);
    component->ExternalRelease(); // the value now holds the only reference
    EXPECT_EQ(value->GetCOMObject(), component);

    // A value made from another interface of the same object is the same object.
    IJokCommand* command = component->GetCommand();
    SHeld sameObject{CJokGdObject::Allocate(command, 1)};
    EXPECT_TRUE(value->IsEqual(sameObject.m_p));

    void* found = nullptr;
    EXPECT_FALSE(value->GetInterface(IID_IJokArchiveAttributeSource, &found, "IArchive"));
    EXPECT_EQ(found, nullptr);
    ASSERT_TRUE(value->GetInterface(IID_IJokCommand, &found, "IJokCommand"));
    EXPECT_EQ(found, command);
    command->Release();

    value->Release();
    EXPECT_EQ(destroyed, 0);
    sameObject.m_p->Release();
    sameObject.m_p = nullptr;
    EXPECT_EQ(destroyed, 1);
}

TEST(COMObject, QueryInterfaceAnswersMappedInterfacesWithReference) {
    int destroyed = 0;
    auto* component = new CCountedComponent(&destroyed);
    IUnknown* unknown = nullptr;
    ASSERT_EQ(component->ExternalQueryInterface(IID_IUnknown, reinterpret_cast<void**>(&unknown)),
              S_OK);
    EXPECT_EQ(unknown, component->GetIUnknown());
    EXPECT_EQ(component->GetRefCount(), 2);

    // Every interface of the object answers the same IUnknown.
    IUnknown* again = nullptr;
    ASSERT_EQ(
        component->GetCommand()->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&again)),
        S_OK);
    EXPECT_EQ(again, unknown);
    again->Release();

    void* none = &destroyed;
    EXPECT_EQ(unknown->QueryInterface(IID_IJokArchiveAttributeSource, &none), E_NOINTERFACE);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(CJokCOMObject::FromIUnknown(unknown), component);

    unknown->Release();
    component->Release();
    EXPECT_EQ(destroyed, 1);
}

TEST(GenericData, RecordRoundTripsThroughAssocArray) {
    CJokGenericDataContainer container;
    container.AddProperty("width", 640.0);
    container.AddProperty("codec", CBelString("pcm"));
    SHeld record{container.GetData()};
    ASSERT_EQ(record->GetType(), JOKGD_VECTOR);

    JokAssocArray array(record.m_p);
    ASSERT_TRUE(array.IsValid());
    EXPECT_EQ(array.GetCount(), 2);
    EXPECT_EQ(array.GetName(1), "codec");
    auto* width = static_cast<CJokGdDouble*>(array.Lookup("width"));
    ASSERT_NE(width, nullptr);
    EXPECT_EQ(width->GetValue(), 640.0);
    EXPECT_EQ(array.Lookup("height"), nullptr);

    SHeld odd{CJokGdVector::Allocate(3)};
    SHeld number{CJokGdDouble::Allocate(1)};
    EXPECT_FALSE(JokAssocArray(odd.m_p).IsValid());
    EXPECT_FALSE(JokAssocArray(number.m_p).IsValid());
}
