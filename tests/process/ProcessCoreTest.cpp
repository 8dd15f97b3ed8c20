// The process core without a bus: the one-time initialisation on the first launch request, the
// watchdog timer, routing of monitoring and recovery requests, refusal after exit, the terminate
// callback. The initialisation runs once per process, so one test walks the whole life.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "ProcessCore.h"
#include "ProcessTestEnv.h"
#include "TAKCommonHandle.h"

using process_test::LogSince;
using process_test::ReadLog;
using process_test::Request;
using process_test::TempRoot;

namespace {

// A core with a watchdog period short enough for a test.
class CTestCore : public CProcessCore {
public:
    CTestCore() : CProcessCore(0, nullptr, "process-test", 100) {}
    void OnCreate() override { ++created; }
    void OnReset(app_control_h appControl) override {
        ++resets;
        m_GetControlData(appControl, "reset", lastReset);
    }
    void OnTerminate() override { ++terminated; }
    void MarkExiting() { m_SetExiting(); }

    std::atomic<int> created{0};
    int resets = 0;
    int terminated = 0;
    std::string lastReset;
};

// A datagram socket standing in for the service manager's notify socket.
class NotifySocket {
public:
    explicit NotifySocket(const std::string& path) {
        m_fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        m_bound = bind(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
        setenv("NOTIFY_SOCKET", path.c_str(), 1);
    }
    ~NotifySocket() {
        unsetenv("NOTIFY_SOCKET");
        close(m_fd);
    }
    bool Bound() const { return m_bound; }
    // The datagrams received until one contains `text`, or until the time-out.
    bool WaitFor(const std::string& text, int timeoutMs) {
        pollfd pfd{m_fd, POLLIN, 0};
        while (poll(&pfd, 1, timeoutMs) == 1) {
            char buffer[512] = {};
            ssize_t n = recv(m_fd, buffer, sizeof(buffer) - 1, 0);
            if (n > 0 && std::string(buffer, n).find(text) != std::string::npos) {
                return true;
            }
        }
        return false;
    }

private:
    int m_fd = -1;
    bool m_bound = false;
};

int CallCount(const char* name) {
    auto count =
        reinterpret_cast<int (*)(const char*)>(CTAKCommonHandle::GetSymbolAddress("ProcessTestCallCount"));
    return count != nullptr ? count(name) : -1;
}

}  // namespace

TEST(AProcessCore, InitialisesOnceFeedsTheWatchdogAndRoutesRequests) {
    TempRoot root;
    ASSERT_TRUE(root.InstallLibrary(PROCESS_PARTIAL_LIBRARY));
    // The update marker is there at start, but the library offers only one entry point of each boost
    // pair: neither may be called.
    std::ofstream(root.Path() + "/run/tak_update_app") << "";
    NotifySocket notify(root.Path() + "/notify.sock");
    ASSERT_TRUE(notify.Bound());
    CTestCore core;

    size_t mark = ReadLog().size();
    {
        Request request({{"reset", "first"}});
        CProcessCore::s_AppControl(request.Get(), &core);
    }
    EXPECT_EQ(core.created, 1);
    EXPECT_EQ(core.resets, 1);
    EXPECT_EQ(core.lastReset, "first");
    std::string log = LogSince(mark);
    EXPECT_NE(log.find("g_bReleasedImage is [0]. "), std::string::npos);
    EXPECT_NE(log.find("open library end"), std::string::npos);
    EXPECT_EQ(CallCount("StartBoostOwnProcessAPI"), 0);

    EXPECT_TRUE(notify.WaitFor("WATCHDOG=1", 20000)) << LogSince(mark);
    // The line is written once the notification has gone out, so it may trail the datagram.
    EXPECT_TRUE(process_test::WaitForLogSince(mark, "[end]sd_notifyf watchdog: [process-test], TAK PID["));

    {
        // A monitoring request, even with a reset value, never reaches OnReset.
        Request request({{"monitor_event", "monitor_install"},
                         {"reset", "end"},
                         {"appkey", "app.one"},
                         {"caller_pid", "321"},
                         {"method", ""}});
        CProcessCore::s_AppControl(request.Get(), &core);
    }
    EXPECT_EQ(core.resets, 1);
    EXPECT_EQ(CallCount("MonitorAppInstallStatusAPI"), 1);
    EXPECT_NE(LogSince(mark).find("app.one is cancelled"), std::string::npos);

    {
        Request request({{"monitor_event", "something_else"}, {"reset", "x"}});
        CProcessCore::s_AppControl(request.Get(), &core);
    }
    {
        Request request({{"recovery_action", "1"}, {"reset", "x"}});
        CProcessCore::s_AppControl(request.Get(), &core);
    }
    EXPECT_EQ(core.resets, 1);
    EXPECT_EQ(CallCount("NotifyRecoveryActionChangedAPI"), 1);
    EXPECT_EQ(CallCount("MonitorAppInstallStatusAPI"), 1);

    {
        Request request({{"reset", "second"}});
        CProcessCore::s_AppControl(request.Get(), &core);
    }
    EXPECT_EQ(core.resets, 2);
    EXPECT_EQ(core.created, 1) << "the initialisation runs once";

    core.MarkExiting();
    mark = ReadLog().size();
    {
        Request request({{"reset", "third"}});
        CProcessCore::s_AppControl(request.Get(), &core);
    }
    EXPECT_EQ(core.resets, 2);
    EXPECT_NE(LogSince(mark).find("process already exited, do not handle the new event"), std::string::npos);

    CProcessCore::s_AppTerminate(&core);
    EXPECT_EQ(core.terminated, 1);
    EXPECT_EQ(CallCount("StopBoostAppFWAPI"), 0);
    CTAKCommonHandle::CloseLibrary();
}

TEST(AProcessCore, IgnoresCallbacksWithoutItsObject) {
    size_t mark = ReadLog().size();
    Request request({{"reset", "x"}});
    CProcessCore::s_AppControl(request.Get(), nullptr);
    CProcessCore::s_AppTerminate(nullptr);
    EXPECT_TRUE(CProcessCore::s_AppCreate(nullptr));
    std::string log = LogSince(mark);
    size_t first = log.find("pData is NULL");
    ASSERT_NE(first, std::string::npos);
    EXPECT_NE(log.find("pData is NULL", first + 1), std::string::npos);
}
