// CLibTakWorkers: the threads the substitute library calls its callers back from. Every thread is
// joinable and joined: finished ones at the next start, the rest when the library is unloaded or the
// process exits, after they were told to stop. Waits inside the threads are interruptible, so unloading
// never waits for a long configured delay.
#pragma once

#include <condition_variable>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

// One install monitoring (Monitor.cpp); the workers keep the list of open ones, so that it outlives
// every thread that uses it.
struct SMonitoring;

class CLibTakWorkers {
public:
    static CLibTakWorkers& Get();

    ~CLibTakWorkers();

    // Runs `job` on a thread of its own.
    void Start(std::function<void()> job);

    enum class Wake { TimedOut, Condition, Stopping };
    // Waits up to `ms` for `condition` (checked under the workers' lock) or for the library to stop.
    Wake WaitUntil(int ms, const std::function<bool()>& condition);

    // Runs `change` under the workers' lock and wakes every waiting thread to re-check its condition.
    void Signal(const std::function<void()>& change);

    bool Stopping();

    // The open monitorings; use only under the workers' lock (inside Signal or a WaitUntil condition).
    std::list<std::shared_ptr<SMonitoring>>& Monitorings() { return m_Monitorings; }

private:
    CLibTakWorkers() = default;
    void m_JoinFinished();

    struct Worker {
        std::thread thread;
        std::shared_ptr<bool> finished;  // guarded by m_tWorkersLock
    };
    std::mutex m_tWorkersLock;  // guards m_Workers, m_bStopping and every condition of WaitUntil
    std::condition_variable m_tWake;
    std::list<Worker> m_Workers;
    bool m_bStopping = false;
    std::list<std::shared_ptr<SMonitoring>> m_Monitorings;  // destroyed after the threads are joined
};
