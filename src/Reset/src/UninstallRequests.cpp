#include "UninstallRequests.h"

void CUninstallRequests::Assign(std::list<_APPINFO_T>&& apps) {
    m_Apps.Assign(std::move(apps));
    m_bRequestsOut = false;
    m_Due.clear();
}

void CUninstallRequests::Sent(const std::string& id, int64_t dueUs) {
    m_Due.emplace_back(dueUs, id);
}

CUninstallRequests::ANSWER_E CUninstallRequests::Answer(const std::string& id) {
    if (m_bRequestsOut && m_Apps.RemoveFirst(id)) {
        return ANSWER_COUNTS;
    }
    if (m_Stopped.count(id) != 0) {
        return ANSWER_STOPPED;
    }
    if (m_GivenUp.count(id) != 0) {
        return ANSWER_LATE;
    }
    return m_bRequestsOut ? ANSWER_UNKNOWN : ANSWER_EARLY;
}

std::vector<std::string> CUninstallRequests::GiveUpDue(int64_t nowUs) {
    std::vector<std::string> givenUp;
    while (!m_Due.empty() && m_Due.front().first <= nowUs) {
        const std::string& id = m_Due.front().second;
        if (m_bRequestsOut && m_Apps.RemoveFirst(id)) {
            m_GivenUp.insert(id);
            givenUp.push_back(id);
        }
        m_Due.pop_front();
    }
    return givenUp;
}

bool CUninstallRequests::NextDue(int64_t& dueUs) {
    m_DropAnswered();
    if (m_Due.empty()) {
        return false;
    }
    dueUs = m_Due.front().first;
    return true;
}

void CUninstallRequests::m_DropAnswered() {
    while (!m_Due.empty() && !m_Apps.Contains(m_Due.front().second)) {
        m_Due.pop_front();
    }
}

void CUninstallRequests::Abandon() {
    if (m_bRequestsOut) {
        for (const _APPINFO_T& app : m_Apps) {
            m_Stopped.insert(app.id);
        }
    }
    m_bRequestsOut = false;
}
