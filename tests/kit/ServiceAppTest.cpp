// What the reset process meets of the kit. The service-application framework and its launch channel,
// driven the way the platform drives tak-reset: `orvix-host launch` against the kit's test app
// (tests/kit/app) in a fresh root. The substitute common library as the reset process's loader sees it
// (installed by `orvix-host libtak apply`, opened with dlopen): what the resets' own tests cannot see, that
// callbacks come from the library's threads and that unloading joins them without calling back, and a
// behaviour file it must survive.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <map>
#include <thread>

#include "HostFixture.h"
#include "TAKCommonApi.h"

namespace {

using orvix::test::ReadWholeFile;
using orvix::test::RunResult;

class ServiceApp : public orvix::test::HostFixture {
protected:
    // Here `launch` starts the kit's test app instead of tak-reset.
    // The program that ORVIX_TAK_RESET named before (a build for another processor sets it) comes back after.
    static void SetUpTestSuite() {
        s_before = getenv("ORVIX_TAK_RESET") != nullptr ? getenv("ORVIX_TAK_RESET") : "";
        setenv("ORVIX_TAK_RESET", KIT_APP_PATH, 1);
    }
    static void TearDownTestSuite() { setenv("ORVIX_TAK_RESET", s_before.c_str(), 1); }
    inline static std::string s_before;

    std::string Launched(const std::vector<std::string>& extras) const {
        RunResult result = Launch(extras, true);
        EXPECT_EQ(result.status, 0) << result.err;
        return result.out;
    }
    // The requests the app received, once there are `count`.
    std::vector<Json::Value> Controls(size_t count) const {
        EXPECT_TRUE(WaitForCall("kit-app", "control", std::chrono::seconds(30), count));
        return CallsOf("kit-app", "control");
    }
    static std::string Extra(const Json::Value& control, const char* key) {
        return control["extras"][key].asString();
    }
};

// Requests from four launchers at once arrive while the first callback iterates the main loop: each is
// handled once, in its launcher's order, never inside another callback.
TEST_F(ServiceApp, OneInstanceHandlesEveryRequestOnceAtATimeInArrivalOrder) {
    Launched({"id=first", "iterate_ms=1000"});
    std::string queued = Launched({"id=second"});
    EXPECT_EQ(queued.rfind("queued to the running " + AppName(), 0), 0u) << queued;
    // Another process of the app hands its request to the running instance and leaves.
    RunResult third = orvix::test::RunProgram(orvix::test::DeviceArgv({KIT_APP_PATH, "id=third"}),
                                              {{"ORVIX_HOST_ROOT", Root()}});
    EXPECT_EQ(third.status, 0) << third.err;
    const int kThreads = 4, kEach = 8;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([this, t] {
            for (int i = 0; i < kEach; ++i) {
                Launched({"id=" + std::to_string(t), "i=" + std::to_string(i)});
            }
        });
    }
    std::for_each(threads.begin(), threads.end(), [](std::thread& thread) { thread.join(); });
    auto controls = Controls(3 + kThreads * kEach);
    ASSERT_EQ(controls.size(), 3u + kThreads * kEach);
    EXPECT_EQ(Extra(controls[0], "id") + Extra(controls[1], "id") + Extra(controls[2], "id"),
              "firstsecondthird");
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
    EXPECT_NE(ReadWholeFile("/proc/" + controls[0]["pid"].asString() + "/cmdline").find("id=first"),
              std::string::npos);
}

// A value read as a C string would end at its NUL byte and could become another request altogether. Sent
// to a running instance, such a request is a row of the fault matrix (tests/faults); here it is the first
// request of a new instance, which comes on an fd (too large for its command line). Garbage on the
// channel (a size over the limit, a payload that does not decode, one cut short) is dropped unanswered.
TEST_F(ServiceApp, RefusesANulByteAndDropsGarbageOnTheChannelAndServesTheNextRequest) {
    std::ofstream(Root() + "/nul", std::ios::binary) << std::string(200 * 1024, 'x') + '\0';
    ASSERT_EQ(Host({"launch", "--raw", "--extra-file", "nul=" + Root() + "/nul"}).status, 0);
    ASSERT_TRUE(WaitForLog("refusing a launch request: extra [nul] holds a NUL byte"));
    Launched({"n=1"});
    sockaddr_un address{AF_UNIX, {}};
    snprintf(address.sun_path, sizeof(address.sun_path), "%s",
             orvix::host::LaunchSocketPath(AppName()).c_str());
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
    Launched({"n=2"});
    auto controls = Controls(2);
    ASSERT_EQ(controls.size(), 2u);
    EXPECT_EQ(Extra(controls[0], "n") + Extra(controls[1], "n"), "12");
    EXPECT_EQ(orvix::test::Count(TakResetLog(), "holds a NUL byte"), 1u);
}

const std::thread::id g_testThread = std::this_thread::get_id();
std::atomic<int> g_callbacks{0}, g_onTestThread{0};  // what the library called back, and on this thread

void CalledBack() {
    ++g_callbacks;
    g_onTestThread += std::this_thread::get_id() == g_testThread;
}

class TheSubstituteLibrary : public orvix::test::HostFixture {
protected:
    bool StartsBus() const override { return false; }
    void TearDown() override {
        Close();
        HostFixture::TearDown();
    }
    void Write(const std::string& behaviour) const {
        std::ofstream(Root() + "/etc/libtak_common.json", std::ios::trunc) << behaviour;
    }
    void OpenWith(const std::string& behaviour) {
        Write(behaviour);
        ASSERT_EQ(Host({"libtak", "apply"}).status, 0);
        m_handle = dlopen((Root() + "/usr/lib64/libtak_common.so").c_str(), RTLD_LAZY);
        ASSERT_NE(m_handle, nullptr) << dlerror();
        g_callbacks = g_onTestThread = 0;
    }
    void Close() {
        EXPECT_TRUE(m_handle == nullptr || dlclose(m_handle) == 0);
        m_handle = nullptr;
    }
    int CreateBinder() {
        auto create = reinterpret_cast<TAK_CREATE_COMMUNICATOR_BINDER_API>(
            dlsym(m_handle, TAK_API_CREATE_COMMUNICATOR_BINDER));
        return create([](void*) { CalledBack(); }, nullptr);
    }
    void* m_handle = nullptr;
};

// The JSON reader throws on a text nested beyond its depth limit; that must not end the caller (found by
// fuzzing the behaviour file).
TEST_F(TheSubstituteLibrary, CountsABehaviourFileNestedTooDeeplyAsNoneAndAppliesTheNextGoodOne) {
    OpenWith("{}");
    Write(R"({"results": {"CreateCommunicatorBinderAPI": )" + std::string(5000, '[') +
          std::string(5000, ']') + "}}");
    EXPECT_EQ(CreateBinder(), 0);
    Write(R"({"results": {"CreateCommunicatorBinderAPI": 1}, "binder": {"never": true}})");
    EXPECT_EQ(CreateBinder(), 1);
}

TEST_F(TheSubstituteLibrary, CallsBackFromItsOwnThreadAndUnloadingJoinsItWithoutCallingBack) {
    OpenWith(R"({"binder": {"delay_ms": 20}})");
    EXPECT_EQ(CreateBinder(), 0);
    ASSERT_TRUE(orvix::test::WaitUntil([] { return g_callbacks > 0; }));
    Close();
    EXPECT_EQ(g_callbacks, 1);
    EXPECT_EQ(g_onTestThread, 0);

    // Unloading does not wait for a long delay, and drops the pending callbacks: a binder, a watch.
    OpenWith(R"({"binder": {"delay_ms": 600000}})");
    EXPECT_EQ(CreateBinder(), 0);
    auto watch =
        reinterpret_cast<TAK_REGISTER_VCONF_CHANGE_CB_API>(dlsym(m_handle, TAK_API_REGISTER_VCONF_CHANGE_CB));
    ASSERT_EQ(watch("memory/tak/biu_updating_app", [](std::string, VCONF_VALUE) { CalledBack(); }), 0);
    auto start = std::chrono::steady_clock::now();
    Close();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10))
        << "unloading waited for the delay";
    ASSERT_EQ(Host({"settings", "set", "memory/tak/biu_updating_app", "after"}).status, 0);
    EXPECT_EQ(g_callbacks, 0);
}

}  // namespace
