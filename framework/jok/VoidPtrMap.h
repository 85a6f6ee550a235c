// CJokVoidPtrMap: a map from names to untyped pointers (not owned), walked in name order. The
// property maps index their items with it.
#pragma once

#include "framework/bel/BelString.h"

#include <map>
#include <string>

class CJokVoidPtrMapIterator;

class CJokVoidPtrMap {
public:
    // Replaces any pointer already under name.
    void Set(const char* name, void* value);
    // Answers non-zero and sets *value when the name is present.
    int Lookup(const char* name, void** value) const;
    // Forgets every entry; the pointers themselves are the caller's.
    void DeleteAllItems() { m_Items.clear(); }
    int GetCount() const { return static_cast<int>(m_Items.size()); }
    // An iterator at the first entry. Valid until the map changes.
    CJokVoidPtrMapIterator GetIterator() const;

private:
    friend class CJokVoidPtrMapIterator;
    std::map<std::string, void*, std::less<>> m_Items;
};

//     for (CJokVoidPtrMapIterator it = map.GetIterator(); !it.IsEnd(); it.Next())
//         use(it.Name(), it.Value());
class CJokVoidPtrMapIterator {
public:
    explicit CJokVoidPtrMapIterator(const CJokVoidPtrMap& map) : m_pMap(&map) { Reset(); }

    void Reset() { m_Position = m_pMap->m_Items.begin(); }
    void Next() {
        if (!IsEnd())
            ++m_Position;
    }
    int IsEnd() const { return m_Position == m_pMap->m_Items.end(); }
    // Name and Value must not be asked at the end.
    CBelString Name() const { return CBelString(m_Position->first); }
    void* Value() const { return m_Position->second; }

private:
    const CJokVoidPtrMap* m_pMap;
    std::map<std::string, void*, std::less<>>::const_iterator m_Position;
};
