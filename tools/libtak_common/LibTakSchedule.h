// CLibTakSchedule: one thread of the library that runs jobs when they fall due, so that a thousand
// installs cost a thousand queue entries and not a thousand threads.
//
// Life cycle: the thread starts with the first job. Jobs run one at a time, in the order of their due
// time, jobs due at the same time in the order they were given. A job may give new jobs. When the
// library is unloaded (or the process ends) the object is destroyed: a job that runs is finished, the
// ones still waiting are dropped without running, the thread is joined; jobs given after that are
// dropped too.
//
// Locks: m_tLock guards the queue and the stop flag; no job runs under it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

class CLibTakSchedule {
public:
    using Clock = std::chrono::steady_clock;

    static CLibTakSchedule& Get();

    ~CLibTakSchedule();

    void At(Clock::time_point due, std::function<void()> job);

private:
    CLibTakSchedule() = default;
    void m_Run();

    std::mutex m_tLock;
    std::condition_variable m_tWake;
    std::multimap<Clock::time_point, std::function<void()>> m_Jobs;  // equal keys keep their order
    bool m_bStopping = false;
    std::thread m_tThread;
};
