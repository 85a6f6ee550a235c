#include "filters/PathList.h"

#include "framework/jok/CommandContext.h"
#include "framework/jok/GenericData.h"

bool ZorReadPathNames(CJokCommandContext* context, const char* creationName,
                      std::vector<CBelString>* paths) {
    CJokGdVector* vector = nullptr;
    bool proceed = false;
    if (!ZorReadPaths(context, creationName, &vector, &proceed) || !proceed) {
        return false;
    }
    bool ok = true;
    for (int i = 0; vector && i < vector->GetSize(); ++i) {
        CJokGenericData* element = vector->GetElement(i);
        if (!element || element->GetType() != JOKGD_STRING) {
            ok = false;
            break;
        }
        paths->push_back(static_cast<CJokGdString*>(element)->GetString());
    }
    if (vector) {
        vector->Release();
    }
    if (!ok) {
        CBelString message;
        message.Format("%s: paths must be a vector of strings (or null)", creationName);
        context->OutputErrorString(message);
    }
    return ok;
}
