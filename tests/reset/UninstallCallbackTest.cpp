// The uninstall callback is called by the common library on its own threads, possibly long after the
// reset that asked has gone. These tests run it in-process, without a bus; under ASan a callback that
// touched a gone task would fail here.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "Reset.h"

TEST(TheUninstallCallback, IgnoresNullUserDataAndNonTerminalStates) {
    CReset task;
    CReset::m_UninstallCB("app", TAK_EVENT_STATE_UNINSTALL_SUCCESS, 100, 0, "", nullptr);
    CReset::m_UninstallCB("app", static_cast<TAK_EVENT_STATE_E>(120), 50, 0, "", &task);
    CReset::m_UninstallCB("app", TAK_EVENT_STATE_MONITOR_CANCELLED, 0, 0, "", &task);
    EXPECT_FALSE(task.IsCreated());
}

TEST(TheUninstallCallback, TouchesNothingOfATaskThatIsGone) {
    auto task = std::make_unique<CReset>();
    void* address = task.get();
    task.reset();
    // The library still holds the address it was given; the memory behind it is free now.
    CReset::m_UninstallCB("app", TAK_EVENT_STATE_UNINSTALL_SUCCESS, 100, 0, "", address);
    CReset::m_UninstallCB("app", TAK_EVENT_STATE_UNINSTALL_FAIL, 0, -1, "", address);
}

TEST(TheUninstallCallback, DropsTheEndEventOfATaskThatIsNotRunning) {
    CReset task;
    // An empty list and a terminal state: the end event goes to a task that was never created.
    CReset::m_UninstallCB("unknown", TAK_EVENT_STATE_UNINSTALL_SUCCESS, 100, 0, "", &task);
    EXPECT_FALSE(task.IsCreated());
}

TEST(TheUninstallCallback, SurvivesManyThreadsWhileTasksComeAndGo) {
    std::atomic<bool> stop{false};
    std::atomic<void*> current{nullptr};
    std::vector<std::thread> callers;
    for (int i = 0; i < 4; ++i) {
        callers.emplace_back([&, i] {
            while (!stop) {
                CReset::m_UninstallCB("app" + std::to_string(i), TAK_EVENT_STATE_UNINSTALL_SUCCESS, 100, 0,
                                      "", current.load());
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
}
