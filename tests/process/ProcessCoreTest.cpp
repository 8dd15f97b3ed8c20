// The process frame without a bus: typed reads of launch-request values; the process core's one-time
// initialisation on the first launch request, the watchdog, refusal after exit, the terminate callback (the
// initialisation runs once per process, so one test walks the whole life).
#include <app_control.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <climits>
#include <cstring>

#include "HostFixture.h"
#include "ProcessCore.h"
#include "TAKCommonHandle.h"

namespace {

// No system bus: an address that leads nowhere makes every report fail at once.
const bool kNoSystemBus =
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/tak-process-test/bus", 1) == 0;

// A launch request that frees itself.
using Request = std::unique_ptr<std::remove_pointer_t<app_control_h>, decltype(&app_control_destroy)>;
Request MakeRequest(std::initializer_list<std::pair<const char*, const char*>> extras) {
    app_control_h handle = nullptr;
    app_control_create(&handle);
    for (const auto& [key, value] : extras) {
        app_control_add_extra_data(handle, key, value);
    }
    return Request(handle, app_control_destroy);
}

// `text` as the value of "key" in a launch request, read into a variable that held `initial`. Without a
// text the request has no such key, and the read must say so.
template <typename T>
T Read(const char* text, T initial) {
    auto request = MakeRequest({{text != nullptr ? "key" : "other", text != nullptr ? text : ""}});
    EXPECT_EQ(CProcessCore::m_GetControlData(request.get(), "key", initial), text != nullptr) << text;
    return initial;
}

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
        CProcessCore::s_AppControl(MakeRequest(extras).get(), this);
    }

    int created = 0;
    std::vector<std::string> resets;
    int terminated = 0;
};

}  // namespace

TEST(AControlDataRead, ConvertsTextFlagsIntegersAndCookiesAndLeavesTheDefaultOfAMissingKey) {
    EXPECT_TRUE(Read<std::string>("tak_app_reset", "old") == "tak_app_reset" &&
                Read<std::string>("", "old").empty());
    // Only the exact text "true" is true.
    EXPECT_TRUE(Read("true", false));
    for (const char* text : {"TRUE", "1", "True", " true", "truex"}) {
        EXPECT_FALSE(Read(text, true)) << text;
    }
    // Numbers keep their sign, what is none reads as 0, and a cookie keeps its full width.
    for (const auto& [text, value] : {std::pair{"42", 42}, {"-7", -7}, {"abc", 0}, {"x1", 0}}) {
        EXPECT_EQ(Read(text, 5), value) << text;
        EXPECT_EQ(Read(text, 1L), value) << text;
    }
    EXPECT_EQ(Read("9223372036854775807", 1L), LONG_MAX);
    // The lowest cookie has no positive counterpart to negate (found by fuzzing).
    EXPECT_EQ(Read("-9223372036854775808", 1L), LONG_MIN);

    EXPECT_TRUE(Read<std::string>(nullptr, "default") == "default" && Read(nullptr, true) &&
                Read(nullptr, -1) == -1 && Read(nullptr, 77L) == 77L);
}

// A private host root made by the kit, without its bus; it holds the substitute common library.
class AProcessCore : public orvix::test::HostFixture {
protected:
    bool StartsBus() const override { return false; }
};

TEST_F(AProcessCore, InitialisesOnceFeedsTheWatchdogRoutesRequestsAndRefusesThemAfterExit) {
    // A datagram socket standing in for the service manager's notify socket.
    std::string socketPath = Root() + "/notify.sock";
    int notify = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{AF_UNIX, {}};
    strncpy(address.sun_path, socketPath.c_str(), sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(notify, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    setenv("NOTIFY_SOCKET", socketPath.c_str(), 1);
    CTestCore core;

    core.Deliver({{"reset", "first"}});
    char datagram[512] = {};
    pollfd incoming{notify, POLLIN, 0};
    while (strstr(datagram, "WATCHDOG=1") == nullptr && poll(&incoming, 1, 20000) == 1) {
        ssize_t received = recv(notify, datagram, sizeof(datagram) - 1, 0);
        datagram[received > 0 ? received : 0] = '\0';
    }
    EXPECT_STREQ(datagram, "WATCHDOG=1");

    core.Deliver({{"reset", "second"}});
    EXPECT_EQ(core.resets, (std::vector<std::string>{"first", "second"}));
    EXPECT_EQ(core.created, 1) << "the initialisation runs once";

    core.MarkExiting();
    core.Deliver({{"reset", "third"}});
    EXPECT_EQ(core.resets.size(), 2u);
    CProcessCore::s_AppTerminate(&core);
    EXPECT_EQ(core.terminated, 1);
    unsetenv("NOTIFY_SOCKET");
    close(notify);
    CTAKCommonHandle::CloseLibrary();
}
