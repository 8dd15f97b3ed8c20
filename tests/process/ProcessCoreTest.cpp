// The process core without a bus: the one-time initialisation on the first launch request, the
// watchdog timer, routing of monitoring and recovery requests, refusal after exit, the terminate
// callback. The initialisation runs once per process, so one test walks the whole life.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstring>

#include "ProcessCore.h"
#include "ProcessTest.h"
#include "TAKCommonHandle.h"
#include "TestLog.h"

using orvix::test::LogMark;
using process_test::Request;

namespace {

// A core with a watchdog period short enough for a test.
class CTestCore : public CProcessCore {
public:
    CTestCore() : CProcessCore(0, nullptr, "process-test", 100) {}
    void OnCreate() override { ++created; }
    void OnReset(app_control_h appControl) override {
        resets.emplace_back();
        m_GetControlData(appControl, "reset", resets.back());
    }
    void OnTerminate() override { ++terminated; }
    void MarkExiting() { m_SetExiting(); }
    void Deliver(std::initializer_list<std::pair<const char*, const char*>> extras) {
        Request request(extras);
        CProcessCore::s_AppControl(request.Get(), this);
    }

    std::atomic<int> created{0};
    std::vector<std::string> resets;
    int terminated = 0;
};

}  // namespace

class AProcessCore : public process_test::InARoot {};

TEST_F(AProcessCore, InitialisesOnceFeedsTheWatchdogRoutesRequestsAndRefusesThemAfterExit) {
    // A datagram socket standing in for the service manager's notify socket.
    std::string socketPath = Root() + "/notify.sock";
    int notify = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, socketPath.c_str(), sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(notify, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    setenv("NOTIFY_SOCKET", socketPath.c_str(), 1);
    CTestCore core;
    LogMark mark;

    core.Deliver({{"reset", "first"}});
    EXPECT_TRUE(mark.Contains("g_bReleasedImage is [0]. "));
    char datagram[512] = {};
    pollfd incoming{notify, POLLIN, 0};
    while (strstr(datagram, "WATCHDOG=1") == nullptr && poll(&incoming, 1, 20000) == 1) {
        ssize_t received = recv(notify, datagram, sizeof(datagram) - 1, 0);
        datagram[received > 0 ? received : 0] = '\0';
    }
    EXPECT_STREQ(datagram, "WATCHDOG=1");
    // The line is written once the notification has gone out, so it may trail the datagram.
    EXPECT_TRUE(orvix::test::WaitUntil(
        [&] { return mark.Contains("[end]sd_notifyf watchdog: [process-test], TAK PID["); }));

    // Monitoring and recovery requests never reach OnReset, whatever "reset" they carry.
    core.Deliver({{"monitor_event", "something_else"}, {"reset", "x"}});
    core.Deliver({{"recovery_action", "1"}, {"reset", "x"}});
    core.Deliver({{"reset", "second"}});
    EXPECT_EQ(core.resets, (std::vector<std::string>{"first", "second"}));
    EXPECT_EQ(core.created, 1) << "the initialisation runs once";

    core.MarkExiting();
    core.Deliver({{"reset", "third"}});
    EXPECT_EQ(core.resets.size(), 2u);
    EXPECT_TRUE(mark.Contains("process already exited, do not handle the new event"));
    CProcessCore::s_AppTerminate(&core);
    EXPECT_EQ(core.terminated, 1);
    unsetenv("NOTIFY_SOCKET");
    close(notify);
    CTAKCommonHandle::CloseLibrary();
}
