// System flags, the watchdog and the launcher record: the small platform services of the kit.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <fstream>

#include "HostFixture.h"
#include "app_launcher.h"
#include "smart_deadlock.h"
#include "system_info.h"

namespace {

using orvix::test::HostFixture;
using orvix::test::RunResult;

class PlatformWithoutBus : public HostFixture {
protected:
    bool StartsBus() const override { return false; }

    bool Flag(const char* name) {
        bool value = true;
        EXPECT_EQ(system_info_get_platform_bool(name, &value), SYSTEM_INFO_ERROR_NONE);
        return value;
    }
};

TEST_F(PlatformWithoutBus, FlagsStartFalseAndFollowSysinfoSet) {
    EXPECT_FALSE(Flag("android_on_orvix.support"));
    EXPECT_FALSE(Flag("never.heard.of"));
    SetSystemFlag("android_on_orvix.support", true);
    SetSystemFlag("dangbei_store.support", true);
    EXPECT_TRUE(Flag("android_on_orvix.support"));
    EXPECT_TRUE(Flag("dangbei_store.support"));
    EXPECT_FALSE(Flag("robot_product.support"));
    bool custom = false;
    EXPECT_EQ(system_info_get_custom_bool("dangbei_store.support", &custom), SYSTEM_INFO_ERROR_NONE);
    EXPECT_TRUE(custom);
    SetSystemFlag("android_on_orvix.support", false);
    EXPECT_FALSE(Flag("android_on_orvix.support"));
    RunResult get = Host({"sysinfo", "get", "dangbei_store.support"});
    EXPECT_EQ(get.out, "true\n");
}

TEST_F(PlatformWithoutBus, BadFlagValuesAreRefusedAndChangeNothing) {
    std::string before = orvix::test::ReadWholeFile(Root() + "/etc/sysinfo.ini");
    for (const std::vector<std::string>& bad :
         std::vector<std::vector<std::string>>{{"sysinfo", "set", "robot_product.support", "yes"},
                                               {"sysinfo", "set", "robot_product.support", "TRUE"},
                                               {"sysinfo", "set", "bad=name", "true"},
                                               {"sysinfo", "set", "robot_product.support"},
                                               {"sysinfo", "toggle", "robot_product.support"}}) {
        RunResult result = Host(bad);
        EXPECT_EQ(result.status, 2) << bad.back();
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    }
    EXPECT_EQ(orvix::test::ReadWholeFile(Root() + "/etc/sysinfo.ini"), before);
}

TEST_F(PlatformWithoutBus, AFlagThatIsNotABooleanOrAMissingFileReadsFalse) {
    std::ofstream(Root() + "/etc/sysinfo.ini", std::ios::trunc) << "[flags]\nrobot_product.support=maybe\n";
    EXPECT_FALSE(Flag("robot_product.support"));
    unlink((Root() + "/etc/sysinfo.ini").c_str());
    EXPECT_FALSE(Flag("robot_product.support"));
    bool value = false;
    EXPECT_EQ(system_info_get_platform_bool(nullptr, &value), SYSTEM_INFO_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(system_info_get_platform_bool("x", nullptr), SYSTEM_INFO_ERROR_INVALID_PARAMETER);
}

TEST_F(PlatformWithoutBus, TerminatingAllAppsIsRecorded) {
    EXPECT_EQ(tak_terminate_allApps_internal("tak-reset", "corvane reset"), 0);
    auto calls = CallsOf("launcher", "tak_terminate_allApps_internal");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0]["caller"], "tak-reset");
    EXPECT_EQ(calls[0]["reason"], "corvane reset");
    EXPECT_EQ(calls[0]["args"][1], "corvane reset");
}

// A stand-in for systemd's notification socket.
class NotifySocket {
public:
    NotifySocket() {
        m_path = "/tmp/orvix-notify-" + std::to_string(getpid()) + ".sock";
        unlink(m_path.c_str());
        m_fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        struct sockaddr_un addr {};
        addr.sun_family = AF_UNIX;
        snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", m_path.c_str());
        m_bound = bind(m_fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0;
        struct timeval timeout = {20, 0};
        setsockopt(m_fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout));
    }
    ~NotifySocket() {
        close(m_fd);
        unlink(m_path.c_str());
    }
    bool Bound() const { return m_bound; }
    const std::string& Path() const { return m_path; }
    std::string Receive() {
        char buffer[256];
        ssize_t n = recv(m_fd, buffer, sizeof(buffer), 0);
        return n > 0 ? std::string(buffer, static_cast<size_t>(n)) : "";
    }

private:
    std::string m_path;
    int m_fd = -1;
    bool m_bound = false;
};

TEST(Watchdog, NotifiesTheServiceManagerWhenThereIsOne) {
    NotifySocket manager;
    ASSERT_TRUE(manager.Bound());
    setenv("NOTIFY_SOCKET", manager.Path().c_str(), 1);
    EXPECT_EQ(smart_deadlock_register_watchdog_service(48), 0);
    EXPECT_EQ(smart_deadlock_watchdog_notify(), 0);
    EXPECT_EQ(manager.Receive(), "WATCHDOG=1");
    EXPECT_EQ(smart_deadlock_watchdog_notify(), 0);
    EXPECT_EQ(manager.Receive(), "WATCHDOG=1");
    unsetenv("NOTIFY_SOCKET");
}

TEST(Watchdog, SucceedsDoingNothingWithoutAServiceManager) {
    unsetenv("NOTIFY_SOCKET");
    EXPECT_EQ(smart_deadlock_watchdog_notify(), 0);
}

TEST(Watchdog, AServiceManagerThatIsGoneIsAnError) {
    setenv("NOTIFY_SOCKET", "/tmp/orvix-no-such-notify-socket", 1);
    EXPECT_LT(smart_deadlock_watchdog_notify(), 0);
    unsetenv("NOTIFY_SOCKET");
}

}  // namespace
