// The service-application framework and its launch channel, driven the way the platform drives
// tak-reset: `orvix-host launch` against the kit's test app (tests/kit/app) in a fresh root.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <fstream>
#include <map>
#include <thread>

#include "HostFixture.h"

namespace {

using orvix::test::Count;
using orvix::test::ReadWholeFile;
using orvix::test::RunProgram;
using orvix::test::RunResult;
using Strings = std::vector<std::string>;

class ServiceApp : public orvix::test::HostFixture {
protected:
    // Here `launch` starts the kit's test app instead of tak-reset.
    static void SetUpTestSuite() { setenv("ORVIX_TAK_RESET", KIT_APP_PATH, 1); }
    static void TearDownTestSuite() { unsetenv("ORVIX_TAK_RESET"); }

    void ExpectLaunched(const Strings& extras) {
        RunResult result = Launch(extras);
        ASSERT_EQ(result.status, 0) << result.err;
    }
    std::vector<Json::Value> Controls() const { return CallsOf("kit-app", "control"); }
    bool WaitForControls(size_t count) const {
        return WaitForCall("kit-app", "control", std::chrono::seconds(30), count);
    }
    // The value the app received for `key`, byte for byte.
    static std::string Extra(const Json::Value& control, const char* key) {
        gsize size = 0;
        guchar* bytes = g_base64_decode(control["extras"][key].asCString(), &size);
        std::string value(reinterpret_cast<char*>(bytes), size);
        g_free(bytes);
        return value;
    }
    std::string AppLog() const { return ReadWholeFile(LogPath(AppName())); }
    bool ChannelExists() const { return access(orvix::host::LaunchSocketPath(AppName()).c_str(), F_OK) == 0; }
    pid_t RunningPid() const {
        orvix::host::ProcessId id;
        return orvix::host::ReadPidFile(orvix::host::LaunchPidPath(AppName()), id) ? id.pid : 0;
    }
};

TEST_F(ServiceApp, LaunchSaysWhetherItStartedOrQueuedWithThePidAndTheLog) {
    RunResult first = Launch({"n=1"});
    ASSERT_EQ(first.status, 0) << first.err;
    pid_t pid = RunningPid();
    ASSERT_NE(pid, 0);
    std::string tail = " (pid " + std::to_string(pid) + ")";
    std::string log = "; its log: " + LogPath(AppName()) + "\n";
    EXPECT_EQ(first.out, "started " + AppName() + tail + " with the request" + log);
    // The instance that is asked to end is named too, though it may be gone by the time launch prints.
    RunResult ended = Launch({"exit=1"});
    ASSERT_EQ(ended.status, 0) << ended.err;
    EXPECT_EQ(ended.out, "queued to the running " + AppName() + tail + log);
    EXPECT_EQ(first.err + ended.err, "");
}

TEST_F(ServiceApp, OneInstanceHandlesEveryRequestOnceAtATimeInArrivalOrder) {
    ExpectLaunched({"reset=tak_app_reset", "id=first"});
    // Another process of the app hands its request to the running instance and leaves.
    EXPECT_EQ(RunProgram({KIT_APP_PATH, "id=second"}, {{"ORVIX_HOST_ROOT", Root()}}).status, 0);
    const int kThreads = 4;
    const int kEach = 8;
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([this, t, &failures] {
            for (int i = 0; i < kEach; ++i) {
                failures += Launch({"id=" + std::to_string(t), "i=" + std::to_string(i)}).status != 0;
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures, 0);
    ASSERT_TRUE(WaitForControls(2 + kThreads * kEach));
    auto controls = Controls();
    ASSERT_EQ(controls.size(), 2u + kThreads * kEach);
    EXPECT_EQ(Extra(controls[0], "reset"), "tak_app_reset");
    EXPECT_EQ(Extra(controls[1], "id"), "second");
    std::map<std::string, int> next;  // of each launching thread, the request it sent next
    for (const auto& control : controls) {
        EXPECT_EQ(control["pid"], controls[0]["pid"]);
        EXPECT_EQ(control["depth"].asInt(), 1);
        if (control["extras"].isMember("i")) {
            EXPECT_EQ(Extra(control, "i"), std::to_string(next[Extra(control, "id")]++));
        }
    }
    EXPECT_EQ(CallsOf("kit-app", "create").size(), 1u);
    // The first request came on the command line, as the platform hands it over.
    std::string commandLine = ReadWholeFile("/proc/" + controls[0]["pid"].asString() + "/cmdline");
    EXPECT_NE(commandLine.find("id=first"), std::string::npos);
}

TEST_F(ServiceApp, RequestsArrivingDuringACallbackWaitUntilItReturns) {
    ExpectLaunched({"n=0", "iterate_ms=1500"});
    ASSERT_TRUE(WaitForControls(1));
    // Acknowledged by the main loop that the first callback iterates: queued, not yet handled.
    ExpectLaunched({"n=1"});
    ExpectLaunched({"n=2"});
    ASSERT_TRUE(WaitForControls(3));
    Strings order;
    for (const auto& event : CallsOf("kit-app")) {
        if (event["method"] == "control" || event["method"] == "done") {
            order.push_back(event["method"].asString() + Extra(event, "n"));
        }
    }
    EXPECT_EQ(order, (Strings{"control0", "done0", "control1", "done1", "control2", "done2"}));
}

TEST_F(ServiceApp, ValuesKeepEveryByteNewlinesEqualSignsAndMegabytes) {
    std::string big;
    for (size_t i = 0; big.size() < 1024 * 1024; ++i) {
        big += static_cast<char>(1 + i % 255);  // every byte value but NUL, not UTF-8
    }
    std::ofstream(Root() + "/big", std::ios::binary) << big;
    // Too large for a command line: the first request reaches the new instance on an fd, the second the
    // running one through its channel.
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(Host({"launch", "--extra-file", "big=" + Root() + "/big", "eq=a=b"}).status, 0);
    }
    ASSERT_TRUE(WaitForControls(2));
    for (const auto& control : Controls()) {
        EXPECT_EQ(Extra(control, "big"), big);
        EXPECT_EQ(Extra(control, "eq"), "a=b");
    }
}

// A value read as a C string would end at its NUL byte and could become another request altogether. Sent
// to a running instance, such a request is a row of the fault matrix (tests/faults); here it is the first
// request of a new instance, which comes on an fd (too large for its command line).
TEST_F(ServiceApp, AFirstRequestWithANulByteIsRefusedWithALogLineAndTheNextOneServed) {
    std::ofstream(Root() + "/nul", std::ios::binary) << std::string(200 * 1024, 'x') << '\0';
    ASSERT_EQ(Host({"launch", "--extra-file", "big=" + Root() + "/nul"}).status, 0);
    ASSERT_TRUE(orvix::test::WaitUntil([&] { return Count(AppLog(), "holds a NUL byte") == 1; }));
    EXPECT_NE(AppLog().find("refusing a launch request: extra [big] holds a NUL byte"), std::string::npos);
    ExpectLaunched({"n=1"});
    ASSERT_TRUE(WaitForControls(1));
    EXPECT_EQ(Extra(Controls()[0], "n"), "1");
}

TEST_F(ServiceApp, ExitOrDownEndsTheInstanceAndTheNextRequestStartsANewOne) {
    ExpectLaunched({"n=1"});
    ExpectLaunched({"exit=1"});
    ASSERT_TRUE(WaitForAppExit());
    ASSERT_TRUE(WaitForCall("kit-app", "return"));
    EXPECT_EQ(MethodsOf("kit-app"),
              (Strings{"create", "control", "done", "control", "done", "terminate", "return"}));
    EXPECT_FALSE(ChannelExists());

    // A request that comes while the next instance winds down is refused by it, and the launcher hands
    // it to yet another instance.
    ExpectLaunched({"exit=1", "iterate_ms=500"});
    ASSERT_TRUE(WaitForControls(3));
    ExpectLaunched({"n=after"});
    ASSERT_TRUE(WaitForControls(4));
    auto controls = Controls();
    EXPECT_NE(controls[2]["pid"], controls[0]["pid"]);
    EXPECT_NE(controls[3]["pid"], controls[2]["pid"]);
    // `down` ends that one too (TearDown checks that no process is left), its channel and the bus.
    ASSERT_EQ(Host({"down"}).status, 0);
    EXPECT_FALSE(ChannelExists());
    EXPECT_NE(access((Root() + "/run/env").c_str(), F_OK), 0);
}

TEST_F(ServiceApp, GarbageOnTheChannelIsDroppedAndServiceGoesOn) {
    ExpectLaunched({"n=1"});
    sockaddr_un address{AF_UNIX, {}};
    snprintf(address.sun_path, sizeof(address.sun_path), "%s",
             orvix::host::LaunchSocketPath(AppName()).c_str());
    // A size over the limit, a payload that does not decode, a payload cut short.
    for (const std::string& garbage :
         {std::string("OLR1\xff\xff\xff\xff", 8), std::string("OLR1\x04\0\0\0abcd", 12),
          std::string("OLR1\x10\0\0\0abc", 11)}) {
        int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        ASSERT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        ASSERT_EQ(send(fd, garbage.data(), garbage.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(garbage.size()));
        shutdown(fd, SHUT_WR);
        char answer = 0;
        EXPECT_LE(recv(fd, &answer, 1, 0), 0) << "garbage was acknowledged";
        close(fd);
    }
    ExpectLaunched({"n=2"});
    ASSERT_TRUE(WaitForControls(2));
    EXPECT_EQ(Controls().size(), 2u);
}

}  // namespace
