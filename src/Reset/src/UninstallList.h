// The apps an apps reset still waits for: a list in uninstall order, plus an index from app id to the
// list entries of that id, so that a completion removes "the first entry with that app id" without
// walking the list. A reset of ten thousand apps gets ten thousand completions; a linear search per
// completion would make the reset quadratic.
//
// Not thread-safe: the owner guards it (CReset uses the singleton lock that the uninstall walk and the
// uninstall callback share).
#pragma once

#include <cstddef>
#include <list>
#include <string>
#include <unordered_map>
#include <vector>

#include "AppInfo.h"

class CUninstallList {
public:
    using Iterator = std::list<_APPINFO_T>::iterator;

    // Takes over the apps in the given order (their nodes are moved, not copied).
    void Assign(std::list<_APPINFO_T>&& apps);
    void Clear();

    Iterator begin() { return m_Apps.begin(); }
    Iterator end() { return m_Apps.end(); }
    std::size_t size() const { return m_Apps.size(); }
    bool empty() const { return m_Apps.empty(); }

    // Removes one entry; returns the entry after it.
    Iterator Erase(Iterator it);
    // Removes the entry nearest the front whose app id is `id`; false when there is none.
    bool RemoveFirst(const std::string& id);
    bool Contains(const std::string& id) const { return m_ById.count(id) != 0; }

private:
    // Entries of one app id, in list order (almost always exactly one).
    using Positions = std::vector<Iterator>;

    void m_Forget(const std::string& id, Iterator it);

    std::list<_APPINFO_T> m_Apps;
    std::unordered_map<std::string, Positions> m_ById;
};
