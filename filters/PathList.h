// The "paths" parameter of the multi-path filter components, checked once at creation: null or
// absent gives no path, a vector must hold only strings.
#pragma once

#include "entry/Registry.h"
#include "framework/bel/BelString.h"

#include <vector>

class CJokCommandContext;

// Answers false when nothing may be made: a parameter fault (reported by the context) or a
// "paths" value that is not null or a vector of strings (reported as "<creationName>: paths
// must be a vector of strings (or null)").
bool ZorReadPathNames(CJokCommandContext* context, const char* creationName,
                      std::vector<CBelString>* paths);

// Creation function body for T(const std::vector<CBelString>& paths).
template <class T>
int ZorCreateWithPathNames(CJokCommandContext* context, const char* creationName) {
    std::vector<CBelString> paths;
    if (ZorReadPathNames(context, creationName, &paths)) {
        ZorReturnNewComponent(context, new T(paths));
    }
    return 1;
}
