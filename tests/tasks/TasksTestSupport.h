// Helpers of the task-framework tests: bounded waits (nothing here sleeps) and the platform log.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace taskstest {

// Upper bound of every wait; generous so that a loaded two-core machine under a sanitizer passes.
constexpr std::chrono::milliseconds kBound{30000};

// A flag that one thread sets and others wait for.
class Signal {
public:
    void Set() {
        {
            std::lock_guard<std::mutex> guard(m_Mutex);
            m_bSet = true;
        }
        m_Cond.notify_all();
    }
    bool IsSet() {
        std::lock_guard<std::mutex> guard(m_Mutex);
        return m_bSet;
    }
    bool Wait(std::chrono::milliseconds bound = kBound) {
        std::unique_lock<std::mutex> lock(m_Mutex);
        return m_Cond.wait_for(lock, bound, [this] { return m_bSet; });
    }

private:
    std::mutex m_Mutex;
    std::condition_variable m_Cond;
    bool m_bSet = false;
};

// A count that waiters watch until it reaches a target.
class Counter {
public:
    void Add(long n = 1) {
        {
            std::lock_guard<std::mutex> guard(m_Mutex);
            m_Value += n;
        }
        m_Cond.notify_all();
    }
    long Get() {
        std::lock_guard<std::mutex> guard(m_Mutex);
        return m_Value;
    }
    bool WaitAtLeast(long target, std::chrono::milliseconds bound = kBound) {
        std::unique_lock<std::mutex> lock(m_Mutex);
        return m_Cond.wait_for(lock, bound, [&] { return m_Value >= target; });
    }

private:
    std::mutex m_Mutex;
    std::condition_variable m_Cond;
    long m_Value = 0;
};

// A thread whose end is awaited within the bound. One that does not end in time still uses the test's
// objects, so there is nothing to recover: the program stops with the reason.
class BoundedThread {
public:
    explicit BoundedThread(std::function<void()> fn) : m_Done(std::make_shared<Signal>()) {
        m_Thread = std::thread([fn = std::move(fn), done = m_Done] {
            fn();
            done->Set();
        });
    }
    BoundedThread(const BoundedThread&) = delete;
    BoundedThread& operator=(const BoundedThread&) = delete;
    ~BoundedThread() { Join("thread"); }

    bool HasEnded() { return m_Done->IsSet(); }
    void Join(const char* what) {
        if (!m_Thread.joinable()) {
            return;
        }
        if (!m_Done->Wait()) {
            fprintf(stderr, "FATAL: %s did not return within %lld ms\n", what,
                    static_cast<long long>(kBound.count()));
            fflush(stderr);
            abort();
        }
        m_Thread.join();
    }

private:
    std::shared_ptr<Signal> m_Done;
    std::thread m_Thread;
};

// Runs fn on a thread of its own; the program stops if it does not return within the bound.
inline void MustReturn(const char* what, std::function<void()> fn) {
    BoundedThread thread(std::move(fn));
    thread.Join(what);
}

// Waits, without sleeping for a guessed time, until pred() holds: pred is asked again on every wake-up
// of a condition that nobody signals, i.e. every millisecond or so.
inline bool WaitUntil(const std::function<bool()>& pred, std::chrono::milliseconds bound = kBound) {
    std::mutex mutex;
    std::condition_variable cond;
    std::unique_lock<std::mutex> lock(mutex);
    auto deadline = std::chrono::steady_clock::now() + bound;
    while (!pred()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        cond.wait_for(lock, std::chrono::milliseconds(1));
    }
    return true;
}

// The platform log of this test process goes to a file of its own (set up in main before the first line).
const std::string& LogFilePath();

// Marks the end of the log now; Has() looks only at lines written after the mark.
class LogMark {
public:
    LogMark();
    // A red (error) line from `source` (path without extension) in function `func` with message `text`.
    bool HasError(const std::string& source, const std::string& func, const std::string& text) const;
    std::string Text() const;

private:
    long m_Offset;
};

}  // namespace taskstest
