// The library's timed job queue.
#include "LibTakSchedule.h"

#include <utility>

CLibTakSchedule& CLibTakSchedule::Get() {
    // Constructed at first use, after the library's namespace-scope objects, so it is destroyed (and its
    // thread joined) before anything a job uses goes away.
    static CLibTakSchedule schedule;
    return schedule;
}

CLibTakSchedule::~CLibTakSchedule() {
    {
        std::lock_guard<std::mutex> lock(m_tLock);
        m_bStopping = true;
        m_Jobs.clear();
    }
    m_tWake.notify_all();
    if (m_tThread.joinable()) {
        m_tThread.join();
    }
}

void CLibTakSchedule::At(Clock::time_point due, std::function<void()> job) {
    {
        std::lock_guard<std::mutex> lock(m_tLock);
        if (m_bStopping) {
            return;
        }
        m_Jobs.emplace(due, std::move(job));
        if (!m_tThread.joinable()) {
            m_tThread = std::thread(&CLibTakSchedule::m_Run, this);
        }
    }
    m_tWake.notify_all();
}

void CLibTakSchedule::m_Run() {
    std::unique_lock<std::mutex> lock(m_tLock);
    while (!m_bStopping) {
        if (m_Jobs.empty()) {
            m_tWake.wait(lock);
            continue;
        }
        auto first = m_Jobs.begin();
        // A copy: the wait reads its deadline again after waking, when the job may be gone.
        Clock::time_point due = first->first;
        if (due > Clock::now()) {
            m_tWake.wait_until(lock, due);
            continue;
        }
        std::function<void()> job = std::move(first->second);
        m_Jobs.erase(first);
        lock.unlock();
        job();
        lock.lock();
    }
}
