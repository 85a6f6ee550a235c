// The module's registration list: every creation function registers itself while the module's
// static objects are constructed, and the first zor_GetInterface hands them all to the module
// object (CJokDLL), where hosts find them by creation name.
//
// The factory patterns every component's creation function follows are here too, so that a
// component only says what it constructs.
#pragma once

#include "framework/jok/Command.h"
#include "framework/jok/CommandContext.h"
#include "framework/jok/Component.h"
#include "framework/jok/GenericData.h"

class CJokDLL;

// One registration: a named free function with a link to the next registration. Registrations
// have static lifetime; their reference count never deletes them.
class zorCJokHlpAutoRegFunction : public CJokFreeFunctionObj {
public:
    // Puts the registration at the head of the list (so the list runs in reverse construction
    // order).
    zorCJokHlpAutoRegFunction(const char* creationName, const char* description,
                              JokFreeFunction function);
    zorCJokHlpAutoRegFunction* Next() const { return m_pNext; }

protected:
    void OnFinalRelease() override {}

private:
    zorCJokHlpAutoRegFunction* m_pNext;
};

class CZorComponentRegistry {
public:
    // The most recently constructed registration, or nullptr.
    static zorCJokHlpAutoRegFunction* Head() { return s_pHead; }
    // Once per load: appends every registration, head first, to the module object's function
    // list, with one reference each. Later calls do nothing.
    static void MoveRegistrationsTo(CJokDLL& module);

private:
    friend class zorCJokHlpAutoRegFunction;
    static constinit zorCJokHlpAutoRegFunction* s_pHead;
    static constinit bool s_Moved;
};

// Wraps a new component in an object value that holds its only reference, and makes that the
// call's return value. Takes the component's construction reference.
void ZorReturnNewComponent(CJokCommandContext* context, CJokComponent* component);

// Class factory: components made without creation parameters.
template <class T> int ZorCreateComponent(CJokCommandContext* context) {
    if (!context->CanProceed(0)) {
        return 1;
    }
    ZorReturnNewComponent(context, new T);
    return 1;
}

template <class T> class zorCJokHlpAutoRegComponentFactory : public zorCJokHlpAutoRegFunction {
public:
    // description: "&" followed by the class name.
    zorCJokHlpAutoRegComponentFactory(const char* creationName, const char* description)
        : zorCJokHlpAutoRegFunction(creationName, description, &ZorCreateComponent<T>) {}
};

// Hand-written factory taking a data path: T(const char* dataPath).
template <class T> int ZorCreateWithDataPath(CJokCommandContext* context) {
    CBelString dataPath;
    context->GetParam("dataPath", &dataPath, 1);
    if (!context->CanProceed(0)) {
        return 1;
    }
    T* component = new T(dataPath.c_str());
    context->SetReturnValueNoRef(CJokGdObject::Allocate(component));
    component->ExternalRelease();
    return 1;
}

// Reads the optional "paths" parameter of a multi-path factory. Answers false (after the
// message "<creation name>: paths must be a vector of strings (or null)") when it is neither
// null nor a vector of strings; otherwise *paths is the vector with one reference, or nullptr.
bool ZorReadPaths(CJokCommandContext* context, const char* creationName, CJokGdVector** paths,
                  bool* proceed);

// Hand-written factory taking data paths: T(CJokGdVector* paths (borrowed, may be nullptr)).
template <class T> int ZorCreateWithPaths(CJokCommandContext* context, const char* creationName) {
    CJokGdVector* paths = nullptr;
    bool proceed = false;
    if (ZorReadPaths(context, creationName, &paths, &proceed) && proceed) {
        ZorReturnNewComponent(context, new T(paths));
    }
    if (paths) {
        paths->Release();
    }
    return 1;
}

// The creation function of a component this build does not contain: reports
// "<creation name>: not available in this build" and returns no object.
int ZorNotAvailable(CJokCommandContext* context, const char* creationName);
