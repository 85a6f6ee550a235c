#include "entry/Registry.h"

#include "framework/jok/JokDLL.h"

constinit zorCJokHlpAutoRegFunction* CZorComponentRegistry::s_pHead = nullptr;
constinit bool CZorComponentRegistry::s_Moved = false;

zorCJokHlpAutoRegFunction::zorCJokHlpAutoRegFunction(const char* creationName,
                                                     const char* description,
                                                     JokFreeFunction function)
    : CJokFreeFunctionObj(creationName, description, function),
      m_pNext(CZorComponentRegistry::s_pHead) {
    CZorComponentRegistry::s_pHead = this;
}

void CZorComponentRegistry::MoveRegistrationsTo(CJokDLL& module) {
    if (s_Moved) {
        return;
    }
    s_Moved = true;
    for (zorCJokHlpAutoRegFunction* r = s_pHead; r; r = r->Next()) {
        r->AddRef();
        module.AppendFunction(r);
    }
}

void ZorReturnNewComponent(CJokCommandContext* context, CJokComponent* component) {
    CJokGdObject* value = CJokGdObject::Allocate(component);
    component->ExternalRelease(); // the value now holds the only reference
    context->SetReturnValue(value);
    value->Release();
}

namespace {

bool IsVectorOfStrings(const CJokGenericData* value) {
    if (value->GetType() != JOKGD_VECTOR) {
        return false;
    }
    const auto* vector = static_cast<const CJokGdVector*>(value);
    for (int i = 0; i < vector->GetSize(); ++i) {
        const CJokGenericData* element = vector->GetElement(i);
        if (!element || element->GetType() != JOKGD_STRING) {
            return false;
        }
    }
    return true;
}

} // namespace

bool ZorReadPaths(CJokCommandContext* context, const char* creationName, CJokGdVector** paths,
                  bool* proceed) {
    CJokGenericData* value = nullptr;
    context->GetParam("paths", &value, 1);
    *proceed = context->CanProceed(0) != 0;
    *paths = nullptr;
    if (!*proceed || !value) {
        if (value) {
            value->Release();
        }
        return true;
    }
    if (value->GetType() == JOKGD_NULL) {
        value->Release();
        return true;
    }
    if (!IsVectorOfStrings(value)) {
        CBelString message;
        message.Format("%s: paths must be a vector of strings (or null)", creationName);
        context->OutputErrorString(message);
        value->Release();
        return false;
    }
    *paths = static_cast<CJokGdVector*>(value);
    return true;
}

int ZorNotAvailable(CJokCommandContext* context, const char* creationName) {
    CBelString message;
    message.Format("%s: not available in this build", creationName);
    context->OutputErrorString(message);
    return 1;
}
