// Joinable worker threads of the substitute common library.
#include "LibTakWorkers.h"

#include <chrono>

#include "orvix_host.h"

namespace {

// The kit's settings store inside this library keeps two objects for the life of a process; a library
// that is unloaded and loaded again would lose them at every unload. Constructed when the library is
// loaded, so destroyed after everything constructed at first use: the workers below, the settings
// watch and the schedule are gone by then, and nothing of this library reaches the store any more.
struct SettingsReleasedAtUnload {
    ~SettingsReleasedAtUnload() { orvix::host::ReleaseSettingsAtUnload(); }
} g_SettingsReleasedAtUnload;

}  // namespace

CLibTakWorkers& CLibTakWorkers::Get() {
    // Constructed at first use, destroyed when the library is unloaded or, at exit, before the statics of
    // the program that loaded it (it was registered after them).
    static CLibTakWorkers workers;
    return workers;
}

CLibTakWorkers::~CLibTakWorkers() {
    std::list<Worker> workers;
    {
        std::lock_guard<std::mutex> lock(m_tWorkersLock);
        m_bStopping = true;
        workers.swap(m_Workers);
    }
    m_tWake.notify_all();
    for (auto& worker : workers) {
        worker.thread.join();
    }
}

void CLibTakWorkers::m_JoinFinished() {
    std::list<Worker> finished;
    {
        std::lock_guard<std::mutex> lock(m_tWorkersLock);
        for (auto it = m_Workers.begin(); it != m_Workers.end();) {
            auto next = std::next(it);
            if (*it->finished) {
                finished.splice(finished.end(), m_Workers, it);
            }
            it = next;
        }
    }
    for (auto& worker : finished) {
        worker.thread.join();
    }
}

void CLibTakWorkers::Start(std::function<void()> job) {
    m_JoinFinished();
    auto finished = std::make_shared<bool>(false);
    std::lock_guard<std::mutex> lock(m_tWorkersLock);
    if (m_bStopping) {
        return;
    }
    m_Workers.push_back(Worker{std::thread([this, job = std::move(job), finished] {
                                   job();
                                   std::lock_guard<std::mutex> done(m_tWorkersLock);
                                   *finished = true;
                               }),
                               finished});
}

CLibTakWorkers::Wake CLibTakWorkers::WaitUntil(int ms, const std::function<bool()>& condition) {
    std::unique_lock<std::mutex> lock(m_tWorkersLock);
    bool woken = m_tWake.wait_for(lock, std::chrono::milliseconds(ms < 0 ? 0 : ms),
                                  [&] { return m_bStopping || condition(); });
    if (m_bStopping) {
        return Wake::Stopping;
    }
    return woken ? Wake::Condition : Wake::TimedOut;
}

void CLibTakWorkers::Signal(const std::function<void()>& change) {
    {
        std::lock_guard<std::mutex> lock(m_tWorkersLock);
        change();
    }
    m_tWake.notify_all();
}

bool CLibTakWorkers::Stopping() {
    std::lock_guard<std::mutex> lock(m_tWorkersLock);
    return m_bStopping;
}
