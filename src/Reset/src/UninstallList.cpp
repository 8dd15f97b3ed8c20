#include "UninstallList.h"

#include <algorithm>
#include <utility>

void CUninstallList::Assign(std::list<_APPINFO_T>&& apps) {
    Clear();
    m_Apps.splice(m_Apps.end(), apps);
    m_ById.reserve(m_Apps.size());
    // Walking the final list keeps each id's entries in list order, which RemoveFirst relies on.
    for (auto it = m_Apps.begin(); it != m_Apps.end(); ++it) {
        m_ById[it->id].push_back(it);
    }
}

void CUninstallList::Clear() {
    m_Apps.clear();
    m_ById.clear();
}

CUninstallList::Iterator CUninstallList::Erase(Iterator it) {
    m_Forget(it->id, it);
    return m_Apps.erase(it);
}

bool CUninstallList::RemoveFirst(const std::string& id) {
    auto found = m_ById.find(id);
    if (found == m_ById.end()) {
        return false;
    }
    Iterator first = found->second.front();
    found->second.erase(found->second.begin());
    if (found->second.empty()) {
        m_ById.erase(found);
    }
    m_Apps.erase(first);
    return true;
}

void CUninstallList::m_Forget(const std::string& id, Iterator it) {
    auto found = m_ById.find(id);
    if (found == m_ById.end()) {
        return;
    }
    Positions& positions = found->second;
    positions.erase(std::remove(positions.begin(), positions.end(), it), positions.end());
    if (positions.empty()) {
        m_ById.erase(found);
    }
}
