// The uninstall callback is called by the common library on its own threads, possibly long after the
// reset that asked has gone. These tests run it in-process, without a bus; under ASan and TSan a callback
// that touched a gone task, or raced with one being made or destroyed, fails here. Each call leaves one
// log line that says which way it went, which the tests count.
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "HostFixture.h"
#include "Reset.h"
#include "ResetFixture.h"
#include "TestLog.h"

namespace {

using orvix::test::LogMark;
using reset_test::Count;

const char kNoTask[] = "NULL == pvUserData";
const char kGone[] = "is gone, callback of ";
// A task that has sent no request yet has nothing an answer could end.
const char kEarly[] = "answered before this reset sent its requests, callback ignored";

// A private root without a bus: a task reads the board's kind when it is made.
class TheUninstallCallback : public orvix::test::HostFixture {
protected:
    bool StartsBus() const override { return false; }
};

TEST_F(TheUninstallCallback, NeverTouchesAMissingOrGoneTaskAndEndsAnEmptyListOfALiveOne) {
    auto live = std::make_unique<CReset>();
    void* gone = std::make_unique<CReset>().get();  // the library still holds an address that is free now
    const TAK_EVENT_STATE_E kProgress = static_cast<TAK_EVENT_STATE_E>(121);
    struct Case {
        const char* name;
        TAK_EVENT_STATE_E state;
        void* task;
        std::string line;  // the one line logged ("" for none)
    };
    const Case cases[] = {
        {"no task", TAK_EVENT_STATE_UNINSTALL_SUCCESS, nullptr, kNoTask},
        {"gone task, success", TAK_EVENT_STATE_UNINSTALL_SUCCESS, gone, std::string(kGone) + "app dropped"},
        {"gone task, failure", TAK_EVENT_STATE_UNINSTALL_FAIL, gone, std::string(kGone) + "app dropped"},
        {"gone task, not an end state", kProgress, gone, ""},
        {"live task, not an end state", kProgress, live.get(), ""},
        {"live task, no request out", TAK_EVENT_STATE_UNINSTALL_FAIL, live.get(),
         std::string("app ") + kEarly},
    };
    for (const auto& c : cases) {
        LogMark mark;
        CReset::m_UninstallCB("app", c.state, 100, 0, "", c.task);
        std::string logged = mark.Text();
        EXPECT_EQ(std::count(logged.begin(), logged.end(), '\n'), c.line.empty() ? 0 : 1) << c.name << "\n"
                                                                                          << logged;
        EXPECT_TRUE(c.line.empty() || Count(logged, c.line) == 1u) << c.name << ": " << c.line << "\n"
                                                                   << logged;
    }
}

TEST_F(TheUninstallCallback, AnswersEveryCallOnceWhileTasksComeAndGoOnOtherThreads) {
    LogMark mark;
    std::atomic<bool> stop{false};
    std::atomic<void*> current{nullptr};
    std::atomic<long> calls{0};
    std::vector<std::thread> callers;
    for (int i = 0; i < 4; ++i) {
        callers.emplace_back([&, i] {
            while (!stop) {
                CReset::m_UninstallCB("app" + std::to_string(i), TAK_EVENT_STATE_UNINSTALL_SUCCESS, 100, 0,
                                      "", current.load());
                ++calls;
            }
        });
    }
    for (int round = 0; round < 200; ++round) {
        auto task = std::make_unique<CReset>();
        current = task.get();
        std::this_thread::yield();
        current = nullptr;
    }
    stop = true;
    for (auto& caller : callers) {
        caller.join();
    }
    std::string logged = mark.Text();
    // Each call found no task, a gone one, or a live one that had asked nothing yet.
    EXPECT_EQ(Count(logged, kNoTask) + Count(logged, kGone) + Count(logged, kEarly),
              static_cast<size_t>(calls.load()));
    EXPECT_EQ(Count(logged, "removed appid "), 0u);
}

}  // namespace
