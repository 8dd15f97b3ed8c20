// The service-application framework and its launch channel, driven the way the platform drives
// tak-reset: `orvix-host launch` against the kit's test app in a fresh root.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <fstream>
#include <set>
#include <thread>

#include "KitAppFixture.h"
#include "orvix_launch.h"

namespace {

using kit_test::KitAppFixture;
using orvix::test::RunProgram;
using orvix::test::RunResult;
using orvix::test::WaitUntil;

class ServiceApp : public KitAppFixture {
protected:
    void ExpectLaunched(const std::vector<std::string>& extras) {
        RunResult result = Launch(extras);
        ASSERT_EQ(result.status, 0) << result.err;
    }

    std::string ExtraOf(const Json::Value& control, const std::string& key) const {
        return control["extras"][key].asString();
    }

    std::vector<std::string> Sequence(const std::string& key) const {
        std::vector<std::string> values;
        for (const auto& control : Controls()) {
            values.push_back(ExtraOf(control, key));
        }
        return values;
    }

    std::vector<std::string> EventNames() const {
        std::vector<std::string> names;
        for (const auto& event : Events()) {
            names.push_back(event["event"].asString());
        }
        return names;
    }

    std::string WriteFile(const std::string& name, const std::string& content) const {
        std::string path = Root() + "/" + name;
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }
};

TEST_F(ServiceApp, FirstRequestStartsTheAppAndLaterOnesReachTheSameInstance) {
    ExpectLaunched({"reset=tak_app_reset", "n=1"});
    EXPECT_TRUE(AppRunning());
    ExpectLaunched({"n=2"});
    ASSERT_TRUE(WaitForControls(2));

    auto controls = Controls();
    EXPECT_EQ(ExtraOf(controls[0], "reset"), Hex("tak_app_reset"));
    EXPECT_EQ(ExtraOf(controls[0], "n"), Hex("1"));
    EXPECT_EQ(ExtraOf(controls[1], "n"), Hex("2"));
    EXPECT_EQ(controls[0]["pid"], controls[1]["pid"]);
    EXPECT_EQ(EventNames().front(), "create");
    // The first request came on the command line, as the platform hands it over.
    EXPECT_NE(orvix::test::ReadWholeFile("/proc/" + controls[0]["pid"].asString() + "/cmdline").find("n=1"),
              std::string::npos);
}

TEST_F(ServiceApp, SequentialRequestsAreHandledInArrivalOrder) {
    std::vector<std::string> expected;
    for (int i = 0; i < 30; ++i) {
        ExpectLaunched({"seq=" + std::to_string(i)});
        expected.push_back(Hex(std::to_string(i)));
    }
    ASSERT_TRUE(WaitForControls(expected.size()));
    EXPECT_EQ(Sequence("seq"), expected);
}

TEST_F(ServiceApp, ConcurrentLaunchersShareOneInstanceAndEveryRequestIsHandledOnceAtATime) {
    const int kThreads = 6;
    const int kEach = 5;
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([this, t, &failures] {
            for (int i = 0; i < kEach; ++i) {
                if (Launch({"id=" + std::to_string(t) + "." + std::to_string(i)}).status != 0) {
                    ++failures;
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures, 0);
    ASSERT_TRUE(WaitForControls(kThreads * kEach));
    std::set<std::string> ids;
    std::set<std::string> pids;
    for (const auto& control : Controls()) {
        ids.insert(ExtraOf(control, "id"));
        pids.insert(control["pid"].asString());
        EXPECT_EQ(control["depth"].asInt(), 1);
    }
    EXPECT_EQ(ids.size(), static_cast<size_t>(kThreads * kEach));
    EXPECT_EQ(Controls().size(), static_cast<size_t>(kThreads * kEach));
    EXPECT_EQ(pids.size(), 1u);
}

TEST_F(ServiceApp, RequestsArrivingDuringACallbackWaitUntilItReturns) {
    ExpectLaunched({"n=0", "iterate_ms=1500"});
    ASSERT_TRUE(WaitForControls(1));
    // Acknowledged by the main loop that the first callback iterates: queued, not yet handled.
    ExpectLaunched({"n=1"});
    ExpectLaunched({"n=2"});
    ASSERT_TRUE(WaitForControls(3));
    std::vector<std::string> order;
    for (const auto& event : Events()) {
        if (event["event"] == "control" || event["event"] == "done") {
            order.push_back(event["event"].asString() + ":" + event["extras"]["n"].asString());
            EXPECT_EQ(event["depth"].asInt(), event["event"] == "control" ? 1 : 0);
        }
    }
    EXPECT_EQ(order,
              (std::vector<std::string>{"control:" + Hex("0"), "done:" + Hex("0"), "control:" + Hex("1"),
                                        "done:" + Hex("1"), "control:" + Hex("2"), "done:" + Hex("2")}));
}

TEST_F(ServiceApp, ValuesKeepEveryByteNewlinesEqualSignsAndMegabytes) {
    std::string big;
    for (size_t i = 0; big.size() < 1024 * 1024; ++i) {
        big += static_cast<char>(1 + i % 255);  // every byte value but NUL, not UTF-8
    }
    std::string odd = "line1\nline2=x\xff\xfe";
    // Too large for a command line: the first request reaches the new instance on an fd.
    RunResult first =
        Host({"launch", "--extra-file", "big=" + WriteFile("big", big), "n=1", "eq=a=b", "empty="});
    ASSERT_EQ(first.status, 0) << first.err;
    RunResult later = Host({"launch", "--extra-file", "odd=" + WriteFile("odd", odd), "--extra-file",
                            "big=" + WriteFile("big", big), "n=2"});
    ASSERT_EQ(later.status, 0) << later.err;
    ASSERT_TRUE(WaitForControls(2));

    auto controls = Controls();
    EXPECT_EQ(ExtraOf(controls[0], "big"), Hex(big));
    EXPECT_EQ(ExtraOf(controls[0], "eq"), Hex("a=b"));
    EXPECT_EQ(ExtraOf(controls[0], "empty"), "");
    EXPECT_TRUE(controls[0]["extras"].isMember("empty"));
    EXPECT_EQ(ExtraOf(controls[1], "odd"), Hex(odd));
    EXPECT_EQ(ExtraOf(controls[1], "big"), Hex(big));
    EXPECT_EQ(controls[0]["pid"], controls[1]["pid"]);
}

TEST_F(ServiceApp, MalformedLaunchArgumentsAreRefusedAndStartNothing) {
    for (const std::vector<std::string>& bad :
         std::vector<std::vector<std::string>>{{"launch", "reset"},
                                               {"launch", "=value"},
                                               {"launch", "ok=1", "broken"},
                                               {"launch", "--extra-file", "k=" + Root() + "/missing"},
                                               {"launch", "--extra-file", "nokey"}}) {
        RunResult result = Host(bad);
        EXPECT_EQ(result.status, 2) << bad.back();
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    }
    EXPECT_FALSE(AppRunning());
    EXPECT_TRUE(Events().empty());
}

TEST_F(ServiceApp, AnUninitialisedRootIsRefused) {
    char pattern[] = "/tmp/orvix-empty-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    RunResult result = RunProgram({OrvixHostPath(), "launch", "reset=end"}, {{"ORVIX_HOST_ROOT", pattern}});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("not an initialised root"), std::string::npos) << result.err;
    EXPECT_EQ(rmdir(pattern), 0) << "launch left something in the uninitialised root";
}

TEST_F(ServiceApp, ExitRunsTerminateThenMainReturnsAndTheChannelIsGone) {
    ExpectLaunched({"n=1"});
    ExpectLaunched({"exit=1"});
    ASSERT_TRUE(WaitForAppExit());
    ASSERT_TRUE(WaitUntil([&] { return !Events().empty() && Events().back()["event"] == "return"; }));
    EXPECT_EQ(EventNames(), (std::vector<std::string>{"create", "control", "done", "control", "done",
                                                      "terminate", "return"}));
    EXPECT_EQ(Events().back()["result"].asInt(), 0);
    EXPECT_NE(access(orvix::host::LaunchSocketPath(AppName()).c_str(), F_OK), 0);
    EXPECT_NE(access(orvix::host::LaunchPidPath(AppName()).c_str(), F_OK), 0);

    // The next request starts a new instance.
    ExpectLaunched({"n=3"});
    ASSERT_TRUE(WaitForControls(3));
    EXPECT_NE(Controls()[2]["pid"], Controls()[0]["pid"]);
}

TEST_F(ServiceApp, ARequestThatArrivesAfterExitIsNotLost) {
    // The app asks to exit and, while it winds down, another launch comes: the dying instance refuses
    // it, and the launcher hands it to a new instance.
    ExpectLaunched({"exit=1", "iterate_ms=500"});
    ASSERT_TRUE(WaitForControls(1));
    ExpectLaunched({"n=after"});
    ASSERT_TRUE(WaitForControls(2));
    EXPECT_EQ(ExtraOf(Controls()[1], "n"), Hex("after"));
    EXPECT_NE(Controls()[1]["pid"], Controls()[0]["pid"]);
}

TEST_F(ServiceApp, CommandLineArgumentsWithoutEqualSignAreLoggedAndSkipped) {
    RunResult result = RunProgram({KIT_APP_PATH, "good=1", "bad", "exit=1"},
                                  {{"ORVIX_HOST_ROOT", Root()}, {"ORVIX_LOG_FILE", ""}});
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.err.find("ignoring launch argument [bad]"), std::string::npos) << result.err;
    ASSERT_EQ(Controls().size(), 1u);
    EXPECT_EQ(ExtraOf(Controls()[0], "good"), Hex("1"));
    EXPECT_FALSE(Controls()[0]["extras"].isMember("bad"));
}

TEST_F(ServiceApp, ASecondProcessHandsItsRequestToTheRunningInstance) {
    ExpectLaunched({"n=1"});
    RunResult second = RunProgram({KIT_APP_PATH, "n=2"}, {{"ORVIX_HOST_ROOT", Root()}});
    EXPECT_EQ(second.status, 0);
    ASSERT_TRUE(WaitForControls(2));
    EXPECT_EQ(Controls()[0]["pid"], Controls()[1]["pid"]);
    size_t creates = 0;
    for (const auto& name : EventNames()) {
        creates += name == "create";
    }
    EXPECT_EQ(creates, 1u);
}

TEST_F(ServiceApp, GarbageOnTheChannelIsDroppedAndServiceGoesOn) {
    ExpectLaunched({"n=1"});
    std::string path = orvix::host::LaunchSocketPath(AppName());
    for (const std::string& garbage : {std::string("hello world\n"), std::string("OLR1\xff\xff\xff\xff", 8),
                                       std::string("OLR1\x04\0\0\0abcd", 12), std::string("OL")}) {
        int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        struct sockaddr_un addr {};
        addr.sun_family = AF_UNIX;
        snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path.c_str());
        ASSERT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
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

TEST(LaunchPayload, RoundTripsAndRefusesWhatIsNotARequest) {
    orvix::host::LaunchExtras extras = {
        {"reset", "tak_app_reset"}, {"k", std::string("\x01\xff\n=", 4)}, {"e", ""}};
    orvix::host::LaunchExtras decoded;
    ASSERT_TRUE(orvix::host::DecodeLaunchPayload(orvix::host::EncodeLaunchPayload(extras), decoded));
    EXPECT_EQ(decoded, extras);

    orvix::host::LaunchExtras untouched = {{"keep", "me"}};
    EXPECT_FALSE(
        orvix::host::DecodeLaunchPayload(orvix::host::EncodeLaunchPayload({{"", "empty key"}}), untouched));
    std::string payload = orvix::host::EncodeLaunchPayload(extras);
    for (size_t cut = 1; cut < payload.size(); cut += 3) {
        orvix::host::LaunchExtras partial;
        orvix::host::DecodeLaunchPayload(payload.substr(0, cut), partial);  // must not crash
    }
    EXPECT_FALSE(orvix::host::DecodeLaunchPayload(std::string(40, '\xff'), untouched));
    EXPECT_EQ(untouched, (orvix::host::LaunchExtras{{"keep", "me"}}));
}

TEST(LaunchArgument, SplitsAtTheFirstEqualSign) {
    std::string key, value;
    EXPECT_TRUE(orvix::host::ParseLaunchArgument("a=b=c", key, value));
    EXPECT_EQ(key, "a");
    EXPECT_EQ(value, "b=c");
    EXPECT_TRUE(orvix::host::ParseLaunchArgument("k=", key, value));
    EXPECT_EQ(value, "");
    EXPECT_FALSE(orvix::host::ParseLaunchArgument("=v", key, value));
    EXPECT_FALSE(orvix::host::ParseLaunchArgument("plain", key, value));
}

}  // namespace
