// Property maps: the table from script property names to a component's members, handlers and
// methods. Each component class builds one map, once, and answers its property trio through it.
//
// Declaring a map (in the component's .cpp; the function-local static makes the first call
// build it, thread-safely):
//
//     const CJokPropertyMap<CVMDFilter>& CVMDFilter::PropertyMap() {
//         static const CJokPropertyMap<CVMDFilter> map = [] {
//             CJokPropertyMap<CVMDFilter> m;
//             m.AddDouble("threshold", &CVMDFilter::m_Threshold, "&CVMDFilter::m_Threshold")
//                 .AddNotifiedBoolean("enable", &CVMDFilter::EnableHandler,
//                                     "&CVMDFilter::EnableHandler")
//                 .AddInterface("onVMD", &CVMDFilter::m_pIOnVMD, IID_IJokCommand, "IJokCommand",
//                               "&CVMDFilter::m_pIOnVMD")
//                 .AddFunction("GetDetector", &CVMDFilter::GetDetector,
//                              "&CVMDFilter::GetDetector");
//             return m;
//         }();
//         return map;
//     }
//
// Answering the property trio (the map first, then the pin component base):
//
//     CJokGenericData* CVMDFilter::GetProperty(const char* name, int flags) {
//         if (CJokGenericData* value = PropertyMap().GetProperty(this, name, flags))
//             return value;
//         return CKorInputPinComponent::GetProperty(name, flags);
//     }
//     int CVMDFilter::SetProperty(const char* name, CJokGenericData* value) {
//         int result = PropertyMap().SetProperty(this, name, value);
//         if (result == -1)
//             return CKorInputPinComponent::SetProperty(name, value);
//         return result != 0;
//     }
//     CJokPropertyEnum* CVMDFilter::GetPropertyEnumerator() {
//         return PropertyMap().NewEnumerator(CKorInputPinComponent::GetPropertyEnumerator());
//     }
//
// Rules: a map answers a get only when flags is 0 (other flags go to the base). A set answers
// 1 (set), 0 (the name is here but the value was refused, or the item is read-only) or -1 (no
// such name here). A notified item's set answers its handler's result as it is. Every refusal
// the map makes itself gives its reason through JokRefuseProperty (Property.h); a handler that
// refuses a value it understood gives its own ("unknown format 'x' (valid: ...)").
//
// Handlers have the form `int T::H(X* value, int set)`: with set 0 the handler writes the
// current value and answers non-zero, or answers 0 when it has nothing to give (the get then
// gives the none value); with set 1 it takes *value and answers non-zero when it accepted it.
// Interface and generic-data handlers: on a get the handler writes a new reference (or nullptr)
// that the map takes over; on a set *value is borrowed and the handler adds a reference to
// whatever it keeps.
//
// Each item records the text of its member or handler as written in the source
// ("&CSplitterCom::CreatePort"), for diagnostics and listings.
#pragma once

#include "framework/bel/BelDiagnostics.h"
#include "framework/jok/Command.h"
#include "framework/jok/GenericData.h"
#include "framework/jok/Property.h"
#include "framework/jok/VoidPtrMap.h"

#include <memory>
#include <vector>

class CJokCommandContext;

// One named property of class T.
template <class T> class CJokPropertyMapItem {
public:
    CJokPropertyMapItem(const char* name, const char* source, int readOnly, CBelString type)
        : m_Source(source), m_Descriptor(name, readOnly, std::move(type)) {}
    virtual ~CJokPropertyMapItem() = default;
    CJokPropertyMapItem(const CJokPropertyMapItem&) = delete;
    CJokPropertyMapItem& operator=(const CJokPropertyMapItem&) = delete;

    const CBelString& GetName() const { return m_Descriptor.GetName(); }
    const CBelString& GetSource() const { return m_Source; }
    const CJokPropertyDescriptor& GetDescriptor() const { return m_Descriptor; }
    int IsReadOnly() const { return m_Descriptor.IsReadOnly(); }

    // Returns a new reference (never nullptr for the kinds here).
    virtual CJokGenericData* Get(T* object) const = 0;
    // Borrows value (never nullptr). Answers 1 / 0 as described in the file comment.
    virtual int Set(T* object, CJokGenericData* value) const = 0;

private:
    CBelString m_Source;
    CJokPropertyDescriptor m_Descriptor;
};

template <class T> class CJokDoublePropertyMapItem : public CJokPropertyMapItem<T> {
public:
    CJokDoublePropertyMapItem(const char* name, double T::*member, const char* source, int readOnly)
        : CJokPropertyMapItem<T>(name, source, readOnly, CJokGetDoublePropertyType()),
          m_Member(member) {}
    CJokGenericData* Get(T* object) const override {
        return CJokDoublePropertyGet(object->*m_Member, 0);
    }
    int Set(T* object, CJokGenericData* value) const override {
        if (!CJokDoublePropertySet(value, &(object->*m_Member), 0))
            return JokRefusePropertyType("a number", value);
        return 1;
    }

private:
    double T::*m_Member;
};

// Bound to an int member holding 0 or 1.
template <class T> class CJokBooleanPropertyMapItem : public CJokPropertyMapItem<T> {
public:
    CJokBooleanPropertyMapItem(const char* name, int T::*member, const char* source, int readOnly)
        : CJokPropertyMapItem<T>(name, source, readOnly, CJokGetBooleanPropertyType()),
          m_Member(member) {}
    CJokGenericData* Get(T* object) const override {
        return CJokBooleanPropertyGet(object->*m_Member, 0);
    }
    int Set(T* object, CJokGenericData* value) const override {
        if (!CJokBooleanPropertySet(value, &(object->*m_Member), 0))
            return JokRefusePropertyType("a boolean", value);
        return 1;
    }

private:
    int T::*m_Member;
};

template <class T> class CJokStringPropertyMapItem : public CJokPropertyMapItem<T> {
public:
    CJokStringPropertyMapItem(const char* name, CBelString T::*member, const char* source,
                              int readOnly)
        : CJokPropertyMapItem<T>(name, source, readOnly, CJokGetStringPropertyType()),
          m_Member(member) {}
    CJokGenericData* Get(T* object) const override {
        return CJokStringPropertyGet(object->*m_Member, 0);
    }
    int Set(T* object, CJokGenericData* value) const override {
        if (!CJokStringPropertySet(value, &(object->*m_Member), 0))
            return JokRefusePropertyType("a string", value);
        return 1;
    }

private:
    CBelString T::*m_Member;
};

// Bound to a member `I* m_pX` that holds one reference (nullptr when unset); I is the interface
// that iid names. Get gives an object value, or the null value when unset; set takes an object
// with the interface (the old one is released) or the null value (clears it).
template <class T, class I = IUnknown>
class CJokInterfacePropertyMapItem : public CJokPropertyMapItem<T> {
public:
    CJokInterfacePropertyMapItem(const char* name, I* T::*member, const IID& iid,
                                 const char* interfaceName, const char* source, int readOnly)
        : CJokPropertyMapItem<T>(name, source, readOnly,
                                 CJokGetInterfacePropertyType(iid, interfaceName)),
          m_Member(member), m_IID(iid), m_InterfaceName(interfaceName) {}
    CJokGenericData* Get(T* object) const override {
        return CJokInterfacePropertyGet(object->*m_Member, 0);
    }
    int Set(T* object, CJokGenericData* value) const override {
        I* found = nullptr;
        if (value->GetType() == JOKGD_OBJECT) {
            void* raw = nullptr;
            if (!static_cast<CJokGdObject*>(value)->GetInterface(m_IID, &raw, m_InterfaceName))
                return JokRefusePropertyInterface(m_IID, m_InterfaceName, value);
            found = static_cast<I*>(raw);
        } else if (value->GetType() != JOKGD_NULL) {
            return JokRefusePropertyInterface(m_IID, m_InterfaceName, value);
        }
        I*& slot = object->*m_Member;
        if (slot)
            slot->Release();
        slot = found;
        return 1;
    }

private:
    I* T::*m_Member;
    IID m_IID;
    CBelString m_InterfaceName;
};

template <class T> class CJokNotifiedDoublePropertyMapItem : public CJokPropertyMapItem<T> {
public:
    using Handler = int (T::*)(double* value, int set);
    CJokNotifiedDoublePropertyMapItem(const char* name, Handler handler, const char* source,
                                      int readOnly)
        : CJokPropertyMapItem<T>(name, source, readOnly, CJokGetDoublePropertyType()),
          m_Handler(handler) {}
    CJokGenericData* Get(T* object) const override {
        double value = 0;
        if (!(object->*m_Handler)(&value, 0))
            return CJokGdNone::Allocate();
        return CJokDoublePropertyGet(value, 0);
    }
    int Set(T* object, CJokGenericData* value) const override {
        double plain = 0;
        if (!CJokDoublePropertySet(value, &plain, 0))
            return JokRefusePropertyType("a number", value);
        return (object->*m_Handler)(&plain, 1);
    }

private:
    Handler m_Handler;
};

template <class T> class CJokNotifiedBooleanPropertyMapItem : public CJokPropertyMapItem<T> {
public:
    using Handler = int (T::*)(int* value, int set);
    CJokNotifiedBooleanPropertyMapItem(const char* name, Handler handler, const char* source,
                                       int readOnly)
        : CJokPropertyMapItem<T>(name, source, readOnly, CJokGetBooleanPropertyType()),
          m_Handler(handler) {}
    CJokGenericData* Get(T* object) const override {
        int value = 0;
        if (!(object->*m_Handler)(&value, 0))
            return CJokGdNone::Allocate();
        return CJokBooleanPropertyGet(value, 0);
    }
    int Set(T* object, CJokGenericData* value) const override {
        int plain = 0;
        if (!CJokBooleanPropertySet(value, &plain, 0))
            return JokRefusePropertyType("a boolean", value);
        return (object->*m_Handler)(&plain, 1);
    }

private:
    Handler m_Handler;
};

template <class T> class CJokNotifiedStringPropertyMapItem : public CJokPropertyMapItem<T> {
public:
    using Handler = int (T::*)(CBelString* value, int set);
    CJokNotifiedStringPropertyMapItem(const char* name, Handler handler, const char* source,
                                      int readOnly)
        : CJokPropertyMapItem<T>(name, source, readOnly, CJokGetStringPropertyType()),
          m_Handler(handler) {}
    CJokGenericData* Get(T* object) const override {
        CBelString value;
        if (!(object->*m_Handler)(&value, 0))
            return CJokGdNone::Allocate();
        return CJokStringPropertyGet(value, 0);
    }
    int Set(T* object, CJokGenericData* value) const override {
        CBelString plain;
        if (!CJokStringPropertySet(value, &plain, 0))
            return JokRefusePropertyType("a string", value);
        return (object->*m_Handler)(&plain, 1);
    }

private:
    Handler m_Handler;
};

// The handler sees the interface that iid names, as an IUnknown*; nullptr stands for the
// script null.
template <class T> class CJokNotifiedInterfacePropertyMapItem : public CJokPropertyMapItem<T> {
public:
    using Handler = int (T::*)(IUnknown** value, int set);
    CJokNotifiedInterfacePropertyMapItem(const char* name, Handler handler, const IID& iid,
                                         const char* interfaceName, const char* source,
                                         int readOnly)
        : CJokPropertyMapItem<T>(name, source, readOnly,
                                 CJokGetInterfacePropertyType(iid, interfaceName)),
          m_Handler(handler), m_IID(iid), m_InterfaceName(interfaceName) {}
    CJokGenericData* Get(T* object) const override {
        IUnknown* value = nullptr;
        int ok = (object->*m_Handler)(&value, 0);
        if (!ok) {
            if (value)
                value->Release();
            return CJokGdNone::Allocate();
        }
        if (!value)
            return CJokGdNull::Allocate();
        return CJokGdObject::Allocate(value, 0);
    }
    int Set(T* object, CJokGenericData* value) const override {
        IUnknown* plain = nullptr;
        if (!CJokInterfacePropertySet(value, m_IID, m_InterfaceName, &plain, 0))
            return JokRefusePropertyInterface(m_IID, m_InterfaceName, value);
        int result = (object->*m_Handler)(&plain, 1);
        if (plain)
            plain->Release();
        return result;
    }

private:
    Handler m_Handler;
    IID m_IID;
    CBelString m_InterfaceName;
};

// Any script value goes to the handler as it is.
template <class T> class CJokNotifiedGenericDataPropertyMapItem : public CJokPropertyMapItem<T> {
public:
    using Handler = int (T::*)(CJokGenericData** value, int set);
    CJokNotifiedGenericDataPropertyMapItem(const char* name, Handler handler, const char* source,
                                           int readOnly)
        : CJokPropertyMapItem<T>(name, source, readOnly, CJokGetGeneralPropertyType()),
          m_Handler(handler) {}
    CJokGenericData* Get(T* object) const override {
        CJokGenericData* value = nullptr;
        int ok = (object->*m_Handler)(&value, 0);
        if (ok && value)
            return value;
        if (value)
            value->Release();
        return CJokGdNone::Allocate();
    }
    int Set(T* object, CJokGenericData* value) const override {
        CJokGenericData* borrowed = value;
        return (object->*m_Handler)(&borrowed, 1);
    }

private:
    Handler m_Handler;
};

// A method made callable: each get answers a new function object bound to this object.
template <class T> class CJokFunctionPropertyMapItem : public CJokPropertyMapItem<T> {
public:
    using Method = int (T::*)(CJokCommandContext* context);
    CJokFunctionPropertyMapItem(const char* name, Method method, const char* source)
        : CJokPropertyMapItem<T>(name, source, 1, CJokGetFunctionPropertyType()), m_Method(method) {
    }
    CJokGenericData* Get(T* object) const override {
        auto* function =
            new CJokClassFunctionObj<T>(object, m_Method, this->GetName(), this->GetSource());
        return CJokGdObject::Allocate(function, 0);
    }
    int Set(T*, CJokGenericData*) const override { return 0; }

private:
    Method m_Method;
};

template <class T> class CJokPropertyMap {
public:
    CJokPropertyMap() = default;
    CJokPropertyMap(CJokPropertyMap&&) = default;
    CJokPropertyMap& operator=(CJokPropertyMap&&) = default;

    // Takes item. A name given twice is a programming fault; the first item stays.
    CJokPropertyMap& Add(CJokPropertyMapItem<T>* item) {
        std::unique_ptr<CJokPropertyMapItem<T>> owned(item);
        void* existing = nullptr;
        if (m_Index.Lookup(item->GetName(), &existing)) {
            BelDisplayAssert("property name given twice", __FILE__, __LINE__);
            return *this;
        }
        m_Index.Set(item->GetName(), item);
        m_Descriptors.push_back(&item->GetDescriptor());
        m_Items.push_back(std::move(owned));
        return *this;
    }

    CJokPropertyMap& AddDouble(const char* name, double T::*member, const char* source,
                               int readOnly = 0) {
        return Add(new CJokDoublePropertyMapItem<T>(name, member, source, readOnly));
    }
    CJokPropertyMap& AddBoolean(const char* name, int T::*member, const char* source,
                                int readOnly = 0) {
        return Add(new CJokBooleanPropertyMapItem<T>(name, member, source, readOnly));
    }
    CJokPropertyMap& AddString(const char* name, CBelString T::*member, const char* source,
                               int readOnly = 0) {
        return Add(new CJokStringPropertyMapItem<T>(name, member, source, readOnly));
    }
    template <class I>
    CJokPropertyMap& AddInterface(const char* name, I* T::*member, const IID& iid,
                                  const char* interfaceName, const char* source, int readOnly = 0) {
        return Add(new CJokInterfacePropertyMapItem<T, I>(name, member, iid, interfaceName, source,
                                                          readOnly));
    }
    CJokPropertyMap& AddNotifiedDouble(const char* name, int (T::*handler)(double*, int),
                                       const char* source, int readOnly = 0) {
        return Add(new CJokNotifiedDoublePropertyMapItem<T>(name, handler, source, readOnly));
    }
    CJokPropertyMap& AddNotifiedBoolean(const char* name, int (T::*handler)(int*, int),
                                        const char* source, int readOnly = 0) {
        return Add(new CJokNotifiedBooleanPropertyMapItem<T>(name, handler, source, readOnly));
    }
    CJokPropertyMap& AddNotifiedString(const char* name, int (T::*handler)(CBelString*, int),
                                       const char* source, int readOnly = 0) {
        return Add(new CJokNotifiedStringPropertyMapItem<T>(name, handler, source, readOnly));
    }
    CJokPropertyMap& AddNotifiedInterface(const char* name, int (T::*handler)(IUnknown**, int),
                                          const IID& iid, const char* interfaceName,
                                          const char* source, int readOnly = 0) {
        return Add(new CJokNotifiedInterfacePropertyMapItem<T>(name, handler, iid, interfaceName,
                                                               source, readOnly));
    }
    CJokPropertyMap& AddNotifiedGenericData(const char* name,
                                            int (T::*handler)(CJokGenericData**, int),
                                            const char* source, int readOnly = 0) {
        return Add(new CJokNotifiedGenericDataPropertyMapItem<T>(name, handler, source, readOnly));
    }
    CJokPropertyMap& AddFunction(const char* name, int (T::*method)(CJokCommandContext*),
                                 const char* source) {
        return Add(new CJokFunctionPropertyMapItem<T>(name, method, source));
    }

    // Borrowed; nullptr when the name is not here.
    const CJokPropertyMapItem<T>* Find(const char* name) const {
        void* item = nullptr;
        if (!name || !m_Index.Lookup(name, &item))
            return nullptr;
        return static_cast<const CJokPropertyMapItem<T>*>(item);
    }

    // Returns a new reference, or nullptr when the name is not here or flags is not 0.
    CJokGenericData* GetProperty(T* object, const char* name, int flags) const {
        if (flags != 0)
            return nullptr;
        const CJokPropertyMapItem<T>* item = Find(name);
        return item ? item->Get(object) : nullptr;
    }
    // Borrows value. Answers 1, 0 or -1 (no such name here).
    int SetProperty(T* object, const char* name, CJokGenericData* value) const {
        const CJokPropertyMapItem<T>* item = Find(name);
        if (!item)
            return -1;
        if (item->IsReadOnly())
            return JokRefuseProperty("the property is read-only");
        if (!value)
            return JokRefuseProperty("no value was given");
        return item->Set(object, value);
    }

    // Returns a new enumerator over this map's properties, in the order they were added, and
    // then base's; takes base (may be nullptr).
    CJokPropertyEnum* NewEnumerator(CJokPropertyEnum* base) const;

    int GetCount() const { return static_cast<int>(m_Items.size()); }
    const CJokPropertyMapItem<T>* GetItem(int index) const {
        return m_Items[static_cast<size_t>(index)].get();
    }
    const CJokPropertyDescriptor* const* GetDescriptors() const { return m_Descriptors.data(); }

private:
    std::vector<std::unique_ptr<CJokPropertyMapItem<T>>> m_Items;
    std::vector<const CJokPropertyDescriptor*> m_Descriptors;
    CJokVoidPtrMap m_Index;
};

template <class T> class CJokPropertyMapEnumerator : public CJokListPropertyEnum {
public:
    // Borrows map (a class's static map outlives every enumerator); takes base.
    CJokPropertyMapEnumerator(const CJokPropertyMap<T>& map, CJokPropertyEnum* base)
        : CJokListPropertyEnum(map.GetDescriptors(), map.GetCount(), base) {}
};

template <class T>
CJokPropertyEnum* CJokPropertyMap<T>::NewEnumerator(CJokPropertyEnum* base) const {
    return new CJokPropertyMapEnumerator<T>(*this, base);
}
