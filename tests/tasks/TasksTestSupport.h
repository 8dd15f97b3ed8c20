// Helpers of the task-framework tests: bounded waits (nothing here sleeps) and error lines of the log.
#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <future>
#include <regex>

#include "TestLog.h"

using orvix::test::LogMark;

// Upper bound of every wait; generous so that a loaded two-core machine under a sanitizer passes.
constexpr std::chrono::milliseconds kBound{30000};

// The values added so far, watched by waiters until there are enough; as a Signal, set means one.
class Counter {
public:
    void Add(long value = 0) {
        std::lock_guard<std::mutex> guard(m_Mutex);
        m_Values.push_back(value);
        m_Cond.notify_all();
    }
    std::vector<long> Values() {
        std::lock_guard<std::mutex> guard(m_Mutex);
        return m_Values;
    }
    long Get() { return Values().size(); }
    bool WaitAtLeast(size_t count) {
        std::unique_lock<std::mutex> lock(m_Mutex);
        return m_Cond.wait_for(lock, kBound, [&] { return m_Values.size() >= count; });
    }
    void Set() { Add(); }
    bool Wait() { return WaitAtLeast(1); }

private:
    std::mutex m_Mutex;
    std::condition_variable m_Cond;
    std::vector<long> m_Values;
};
using Signal = Counter;

// A thread whose end is awaited within the bound. One that does not end in time still uses the test's
// objects, so there is nothing to recover: the program stops with the reason.
class BoundedThread {
public:
    explicit BoundedThread(std::function<void()> fn)
        : m_Done(std::async(std::launch::async, std::move(fn))) {}
    ~BoundedThread() { Join("thread"); }
    void Join(const char* what) {
        if (m_Done.valid() && m_Done.wait_for(kBound) != std::future_status::ready) {
            fprintf(stderr, "FATAL: %s did not return within %lld ms\n", what, (long long)kBound.count());
            abort();
        }
        if (m_Done.valid()) {
            m_Done.get();
        }
    }

private:
    std::future<void> m_Done;
};

// Runs fn on a thread of its own; the program stops if it does not return within the bound.
inline void MustReturn(const char* what, std::function<void()> fn) {
    BoundedThread(std::move(fn)).Join(what);
}

// An error (red) line written after `mark` in `func`. The task framework logs under the task base's name.
inline bool HasError(const LogMark& mark, const std::string& func, const std::string& text) {
    const std::string quoted = std::regex_replace(text, std::regex(R"([()])"), R"(\$&)");
    return std::regex_search(mark.Text(), std::regex("\033\\[31m[^\n]*/TAKTaskBase: " + func +
                                                     "\\([^\n]*\\) > " + quoted + "\033\\[0m"));
}
