// The substitute common library as a loader sees it: installed by `orvix-host init`/`libtak apply`,
// opened with dlopen, entry points looked up by name, callbacks from its own threads. That the reset
// process finds and uses every entry point is the process tests' business.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <mutex>
#include <thread>

#include "HostFixture.h"
#include "TAKCommonApi.h"

namespace {

using orvix::test::WaitUntil;
using Reports = std::vector<std::string>;

std::mutex g_reportsLock;  // guards g_reports, written by the library's threads
Reports g_reports;         // "binder", or "<app key> <state>/<progress>" and " cookie" for our user data
int g_cookie = 0;
const std::thread::id g_testThread = std::this_thread::get_id();

void Report(const std::string& report) {
    std::lock_guard<std::mutex> guard(g_reportsLock);
    g_reports.push_back(report);
}
void OnBinder(void*) {
    Report(std::this_thread::get_id() == g_testThread ? "binder on the calling thread" : "binder");
}
void OnProgress(std::string appKey, TAK_EVENT_STATE_E state, int progress, int, std::string, void* userData) {
    Report(appKey + " " + std::to_string(state) + "/" + std::to_string(progress) +
           (userData == &g_cookie ? " cookie" : ""));
}
// The reports that start with `prefix`.
Reports ReportsOf(const std::string& prefix) {
    std::lock_guard<std::mutex> guard(g_reportsLock);
    Reports selected;
    for (const auto& report : g_reports) {
        if (report.compare(0, prefix.size(), prefix) == 0) {
            selected.push_back(report);
        }
    }
    return selected;
}

class SubstituteLibrary : public orvix::test::HostFixture {
protected:
    bool StartsBus() const override { return false; }
    void TearDown() override {
        Close();
        g_reports.clear();
        HostFixture::TearDown();
    }

    std::string LibraryPath() const { return Root() + "/usr/lib64/libtak_common.so"; }
    // Installs the library as `behaviour` describes it; the status of `orvix-host libtak apply`.
    int Apply(const std::string& behaviour) {
        std::ofstream(Root() + "/etc/libtak_common.json", std::ios::trunc) << behaviour;
        return Host({"libtak", "apply"}).status;
    }
    void OpenWith(const std::string& behaviour) {
        ASSERT_EQ(Apply(behaviour), 0);
        m_handle = dlopen(LibraryPath().c_str(), RTLD_LAZY);
        ASSERT_NE(m_handle, nullptr) << dlerror();
    }
    // Unloading joins the library's threads: no callback can come after this.
    void Close() {
        if (m_handle == nullptr) {
            return;
        }
        EXPECT_EQ(dlclose(m_handle), 0);
        m_handle = nullptr;
        void* still = dlopen(LibraryPath().c_str(), RTLD_LAZY | RTLD_NOLOAD);
        EXPECT_EQ(still, nullptr) << "the library cannot be unloaded";
        if (still != nullptr) {
            dlclose(still);
        }
    }

    template <class T>
    T Symbol(const char* name) {
        return reinterpret_cast<T>(dlsym(m_handle, name));
    }
    int Monitor(const char* appKey, int callerPid, void* userData = nullptr) {
        return Symbol<TAK_MONITOR_INSTALL_API>(TAK_API_MONITOR_INSTALL)(appKey, callerPid, OnProgress,
                                                                        userData);
    }
    int Cancel(const char* appKey, int callerPid) {
        return Symbol<TAK_CANCEL_MONITOR_INSTALL_API>(TAK_API_CANCEL_MONITOR_INSTALL)(appKey, callerPid);
    }

    void* m_handle = nullptr;
};

TEST_F(SubstituteLibrary, HidesTheKitAndRecordsCallsButAMissingOrBrokenOneCannotBeLoaded) {
    OpenWith("{}");
    EXPECT_EQ(dlsym(m_handle, "dlog_print"), dlsym(RTLD_DEFAULT, "dlog_print"));
    EXPECT_EQ(dlsym(m_handle, "app_control_create"), dlsym(RTLD_DEFAULT, "app_control_create"));
    Symbol<TAK_VOID_API>(TAK_API_QX_CURL_SSL_UNLOCK)();
    ASSERT_EQ(MethodsOf("libtak_common"), Reports{"QXCurlSSLUnLock"});
    EXPECT_NE(CallsOf("libtak_common")[0]["sender"].asString().find("[" + std::to_string(getpid()) + "]"),
              std::string::npos);
    Close();
    for (const std::string library : {"missing", "broken"}) {
        EXPECT_EQ(Apply(R"({"library": ")" + library + "\"}"), 0);
        EXPECT_EQ(access(LibraryPath().c_str(), F_OK) == 0, library == "broken") << library;
        EXPECT_EQ(dlopen(LibraryPath().c_str(), RTLD_LAZY), nullptr) << library;
    }
    EXPECT_EQ(Apply(R"({"library": "sometimes"})"), 1);
}

// The JSON reader throws on a text nested beyond its depth limit; that must not end the caller (found by
// fuzzing the behaviour file).
TEST_F(SubstituteLibrary, ABehaviourFileNestedTooDeeplyCountsAsNoneAndTheNextGoodOneApplies) {
    OpenWith("{}");
    auto create = [this] {
        return Symbol<TAK_CREATE_COMMUNICATOR_BINDER_API>(TAK_API_CREATE_COMMUNICATOR_BINDER)(OnBinder,
                                                                                              nullptr);
    };
    std::string deep = R"({"results": {"CreateCommunicatorBinderAPI": )" + std::string(5000, '[') +
                       std::string(5000, ']') + "}}";
    std::ofstream(Root() + "/etc/libtak_common.json", std::ios::trunc) << deep;
    EXPECT_EQ(create(), 0);
    std::ofstream(Root() + "/etc/libtak_common.json", std::ios::trunc)
        << R"({"results": {"CreateCommunicatorBinderAPI": 1}, "binder": {"never": true}})";
    EXPECT_EQ(create(), 1);
    EXPECT_EQ(CallsOf("libtak_common", "CreateCommunicatorBinderAPI").size(), 2u);
}

TEST_F(SubstituteLibrary, TheBinderComesFromALibraryThreadAfterTheDelayOrNotAtAll) {
    auto create = [this] {
        return Symbol<TAK_CREATE_COMMUNICATOR_BINDER_API>(TAK_API_CREATE_COMMUNICATOR_BINDER)(OnBinder,
                                                                                              nullptr);
    };
    for (const auto& [behaviour, result] : std::vector<std::pair<std::string, int>>{
             {R"({"binder": {"never": true}})", 0},
             {R"({"results": {"CreateCommunicatorBinderAPI": 1}, "binder": {"delay_ms": 0}})", 1},
             // Unloading does not wait for a long delay, and drops the pending callback.
             {R"({"binder": {"delay_ms": 600000}})", 0}}) {
        SCOPED_TRACE(behaviour);
        g_reports.clear();
        ASSERT_NO_FATAL_FAILURE(OpenWith(behaviour));
        EXPECT_EQ(create(), result);
        // A callback due at once would come before the first report of a monitoring (20 ms apart).
        ASSERT_EQ(Monitor("app.x", 1), 0);
        ASSERT_TRUE(WaitUntil([] { return !ReportsOf("app.x ").empty(); }));
        Close();
        EXPECT_TRUE(ReportsOf("binder").empty());
    }
    OpenWith(R"({"binder": {"delay_ms": 20}})");
    EXPECT_EQ(create(), 0);
    ASSERT_TRUE(WaitUntil([] { return !ReportsOf("binder").empty(); }));
    Close();
    EXPECT_EQ(ReportsOf("binder"), Reports{"binder"});
    EXPECT_EQ(CallsOf("libtak_common", "CreateCommunicatorBinderAPI:callback").size(), 1u);
}

TEST_F(SubstituteLibrary, MonitoringReportsItsStatesUntilCancelledWith160OrUnloaded) {
    OpenWith(R"({"monitor": {"interval_ms": 1, "states": [[100, 0, 0], [100, 100, 0], [110, 100, 0]]}})");
    ASSERT_EQ(Monitor("app.one", 321, &g_cookie), 0);
    ASSERT_EQ(Monitor("app.left", 1), 0);
    ASSERT_TRUE(WaitUntil([] { return ReportsOf("app.").size() == 6; }));
    EXPECT_EQ(Cancel("app.one", 999), -1) << "another caller's monitoring is not this one";
    EXPECT_EQ(Cancel("app.one", 321), 0);
    ASSERT_TRUE(WaitUntil([] { return ReportsOf("app.one ").size() == 4; }));
    Close();
    EXPECT_EQ(ReportsOf("app.one "), (Reports{"app.one 100/0 cookie", "app.one 100/100 cookie",
                                              "app.one 110/100 cookie", "app.one 160/0 cookie"}));
    EXPECT_EQ(ReportsOf("app.left "), (Reports{"app.left 100/0", "app.left 100/100", "app.left 110/100"}))
        << "unloading reported";
    EXPECT_EQ(CallsOf("libtak_common", "MonitorAppInstallStatusAPI:callback").size(), 7u);

    // A cancel ends every monitoring of the key at once, even while it waits for its next state.
    OpenWith(R"({"monitor": {"interval_ms": 600000, "states": [[100, 0, 0]]}})");
    ASSERT_EQ(Monitor("app.two", 5), 0);
    ASSERT_EQ(Monitor("app.two", 5), 0);
    EXPECT_EQ(Cancel("app.two", 5), 0);
    ASSERT_TRUE(WaitUntil([] { return ReportsOf("app.two ").size() == 2; }));
    EXPECT_EQ(ReportsOf("app.two "), (Reports{"app.two 160/0", "app.two 160/0"}));
}

}  // namespace
