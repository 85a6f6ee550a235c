#include "framework/jok/VoidPtrMap.h"

#include <string_view>

void CJokVoidPtrMap::Set(const char* name, void* value) {
    m_Items.insert_or_assign(std::string(name ? name : ""), value);
}

int CJokVoidPtrMap::Lookup(const char* name, void** value) const {
    auto found = m_Items.find(std::string_view(name ? name : ""));
    if (found == m_Items.end())
        return 0;
    *value = found->second;
    return 1;
}

CJokVoidPtrMapIterator CJokVoidPtrMap::GetIterator() const {
    return CJokVoidPtrMapIterator(*this);
}
