// The uninstall callback is called by the common library on its own threads, possibly long after the
// reset that asked has gone. These tests run it in-process, without a bus; under ASan and TSan a callback
// that touched a gone task, or raced with one being made or destroyed, fails here.
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "HostFixture.h"
#include "Reset.h"

// A private root without a bus: a task reads the board's kind when it is made.
class TheUninstallCallback : public orvix::test::HostFixture {
protected:
    bool StartsBus() const override { return false; }
};

TEST_F(TheUninstallCallback, NeverTouchesAMissingOrGoneTask) {
    CReset::m_UninstallCB("app", TAK_EVENT_STATE_UNINSTALL_SUCCESS, 100, 0, "", nullptr);
    auto task = std::make_unique<CReset>();
    void* address = task.get();
    task.reset();
    // The library still holds the address it was given; the memory behind it is free now.
    CReset::m_UninstallCB("app", TAK_EVENT_STATE_UNINSTALL_SUCCESS, 100, 0, "", address);
    CReset::m_UninstallCB("app", TAK_EVENT_STATE_UNINSTALL_FAIL, 0, -1, "", address);
}

TEST_F(TheUninstallCallback, SurvivesManyThreadsWhileTasksComeAndGo) {
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
