// The substitute common library as a loader sees it: installed by `orvix-host init`/`libtak apply`,
// opened with dlopen, entry points looked up by name, callbacks from its own threads.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <mutex>
#include <thread>

#include "HostFixture.h"
#include "TAKCommonApi.h"

namespace {

using orvix::test::HostFixture;
using orvix::test::WaitUntil;

struct Progress {
    std::string appKey;
    int state;
    int progress;
    int result;
    void* userData;
};

struct Observed {
    std::mutex lock;  // guards everything below: written by the library's threads
    std::vector<Progress> progress;
    int binderCalls = 0;
    std::thread::id binderThread;

    size_t ProgressCount() {
        std::lock_guard<std::mutex> guard(lock);
        return progress.size();
    }
    int BinderCalls() {
        std::lock_guard<std::mutex> guard(lock);
        return binderCalls;
    }
};

Observed* g_observed = nullptr;

void OnProgress(std::string appKey, TAK_EVENT_STATE_E state, int progress, int result, std::string,
                void* userData) {
    std::lock_guard<std::mutex> guard(g_observed->lock);
    g_observed->progress.push_back({appKey, state, progress, result, userData});
}

void OnBinder(void* userData) {
    auto* observed = static_cast<Observed*>(userData);
    std::lock_guard<std::mutex> guard(observed->lock);
    ++observed->binderCalls;
    observed->binderThread = std::this_thread::get_id();
}

class SubstituteLibrary : public HostFixture {
protected:
    bool StartsBus() const override { return false; }

    void SetUp() override {
        HostFixture::SetUp();
        g_observed = &m_observed;
    }
    void TearDown() override {
        Close();
        g_observed = nullptr;
        HostFixture::TearDown();
    }

    std::string LibraryPath() const { return Root() + "/usr/lib64/libtak_common.so"; }

    void* Open() {
        m_handle = dlopen(LibraryPath().c_str(), RTLD_LAZY);
        EXPECT_NE(m_handle, nullptr) << dlerror();
        return m_handle;
    }
    // Unloading joins the library's threads: no callback can come after this.
    void Close() {
        if (m_handle != nullptr) {
            EXPECT_EQ(dlclose(m_handle), 0);
            m_handle = nullptr;
            void* still = dlopen(LibraryPath().c_str(), RTLD_LAZY | RTLD_NOLOAD);
            EXPECT_EQ(still, nullptr) << "the library cannot be unloaded";
            if (still != nullptr) {
                dlclose(still);
            }
        }
    }

    template <class T>
    T Symbol(const char* name) {
        return reinterpret_cast<T>(dlsym(m_handle, name));
    }

    void Behave(const std::string& json) {
        Json::Value behaviour;
        std::istringstream in(json);
        Json::CharReaderBuilder builder;
        std::string errors;
        ASSERT_TRUE(Json::parseFromStream(builder, in, &behaviour, &errors)) << errors;
        SetLibTakBehaviour(behaviour);
    }

    std::vector<int> States() {
        std::lock_guard<std::mutex> guard(m_observed.lock);
        std::vector<int> states;
        for (const auto& p : m_observed.progress) {
            states.push_back(p.state);
        }
        return states;
    }

    void* m_handle = nullptr;
    Observed m_observed;
};

TEST_F(SubstituteLibrary, ExportsEveryEntryPointItImplementsUnderItsName) {
    ASSERT_NE(Open(), nullptr);
    for (const char* name :
         {TAK_API_QX_CURL_SSL_LOCK, TAK_API_QX_CURL_SSL_UNLOCK, TAK_API_CREATE_CONNECTOR,
          TAK_API_CREATE_INSTALLER, TAK_API_DESTROY_INSTALLER, TAK_API_DESTROY_CONNECTOR,
          TAK_API_CREATE_COMMUNICATOR_BINDER, TAK_API_CREATE_APPFW_BINDER,
          TAK_API_DESTROY_COMMUNICATOR_BINDER, TAK_API_DESTROY_APPFW_BINDER, TAK_API_START_BOOST_OWN_PROCESS,
          TAK_API_START_BOOST_APPFW, TAK_API_STOP_BOOST_OWN_PROCESS, TAK_API_STOP_BOOST_APPFW,
          TAK_API_MONITOR_INSTALL, TAK_API_CANCEL_MONITOR_INSTALL, TAK_API_NOTIFY_RECOVERY_ACTION}) {
        EXPECT_NE(dlsym(m_handle, name), nullptr) << name;
    }
    // Nothing of the kit inside it is visible.
    EXPECT_EQ(dlsym(m_handle, "dlog_print"), dlsym(RTLD_DEFAULT, "dlog_print"));
    EXPECT_EQ(dlsym(m_handle, "app_control_create"), dlsym(RTLD_DEFAULT, "app_control_create"));
}

TEST_F(SubstituteLibrary, CallsAreRecordedInOrderWithTheCallingProcess) {
    ASSERT_NE(Open(), nullptr);
    for (const char* name :
         {TAK_API_QX_CURL_SSL_LOCK, TAK_API_CREATE_CONNECTOR, TAK_API_CREATE_INSTALLER,
          TAK_API_DESTROY_INSTALLER, TAK_API_DESTROY_CONNECTOR, TAK_API_QX_CURL_SSL_UNLOCK}) {
        Symbol<TAK_VOID_API>(name)();
    }
    EXPECT_EQ(MethodsOf("libtak_common"),
              (std::vector<std::string>{"QXCurlSSLLock", "CreateConnector", "CreateInstaller",
                                        "DestroyInstaller", "DestroyConnector", "QXCurlSSLUnLock"}));
    EXPECT_NE(CallsOf("libtak_common")[0]["sender"].asString().find("[" + std::to_string(getpid()) + "]"),
              std::string::npos);
}

TEST_F(SubstituteLibrary, AbsentEntryPointsCannotBeFoundAndTheRestStillWork) {
    Behave(R"({"absent": ["StartBoostAppFWAPI", "NotifyRecoveryActionChangedAPI", "NotAnEntryPoint"]})");
    ASSERT_NE(Open(), nullptr);
    EXPECT_EQ(dlsym(m_handle, TAK_API_START_BOOST_APPFW), nullptr);
    EXPECT_EQ(dlsym(m_handle, TAK_API_NOTIFY_RECOVERY_ACTION), nullptr);
    auto ownProcess = Symbol<TAK_VOID_API>(TAK_API_START_BOOST_OWN_PROCESS);
    ASSERT_NE(ownProcess, nullptr);
    ownProcess();
    EXPECT_EQ(MethodsOf("libtak_common"), (std::vector<std::string>{"StartBoostOwnProcessAPI"}));
    Close();

    Behave(R"({"absent": []})");
    ASSERT_NE(Open(), nullptr);
    EXPECT_NE(dlsym(m_handle, TAK_API_START_BOOST_APPFW), nullptr);
}

TEST_F(SubstituteLibrary, AMissingOrBrokenLibraryCannotBeLoaded) {
    Behave(R"({"library": "missing"})");
    EXPECT_NE(access(LibraryPath().c_str(), F_OK), 0);
    EXPECT_EQ(dlopen(LibraryPath().c_str(), RTLD_LAZY), nullptr);
    Behave(R"({"library": "broken"})");
    EXPECT_EQ(access(LibraryPath().c_str(), F_OK), 0);
    EXPECT_EQ(dlopen(LibraryPath().c_str(), RTLD_LAZY), nullptr);
    EXPECT_EQ(Host({"libtak", "apply"}).status, 0);
    std::ofstream(Root() + "/etc/libtak_common.json", std::ios::trunc) << R"({"library": "sometimes"})";
    EXPECT_EQ(Host({"libtak", "apply"}).status, 1);
}

TEST_F(SubstituteLibrary, TheBinderIsAnnouncedFromAThreadOfTheLibraryAfterTheDelay) {
    Behave(R"({"binder": {"delay_ms": 20}})");
    ASSERT_NE(Open(), nullptr);
    auto create = Symbol<TAK_CREATE_COMMUNICATOR_BINDER_API>(TAK_API_CREATE_COMMUNICATOR_BINDER);
    EXPECT_EQ(create(OnBinder, &m_observed), 0);
    ASSERT_TRUE(WaitUntil([&] { return m_observed.BinderCalls() == 1; }));
    std::lock_guard<std::mutex> guard(m_observed.lock);
    EXPECT_NE(m_observed.binderThread, std::this_thread::get_id());
    EXPECT_EQ(CallsOf("libtak_common", "CreateCommunicatorBinderAPI:callback").size(), 1u);
}

TEST_F(SubstituteLibrary, ABinderThatNeverComesOrAlreadyExistsCallsNothing) {
    Behave(R"({"binder": {"never": true}})");
    ASSERT_NE(Open(), nullptr);
    EXPECT_EQ(
        Symbol<TAK_CREATE_COMMUNICATOR_BINDER_API>(TAK_API_CREATE_COMMUNICATOR_BINDER)(OnBinder, &m_observed),
        0);
    Close();
    EXPECT_EQ(m_observed.BinderCalls(), 0);

    Behave(R"({"results": {"CreateCommunicatorBinderAPI": 1}, "binder": {"delay_ms": 0}})");
    ASSERT_NE(Open(), nullptr);
    EXPECT_EQ(
        Symbol<TAK_CREATE_COMMUNICATOR_BINDER_API>(TAK_API_CREATE_COMMUNICATOR_BINDER)(OnBinder, &m_observed),
        1);
    Close();
    EXPECT_EQ(m_observed.BinderCalls(), 0);
}

TEST_F(SubstituteLibrary, UnloadingDoesNotWaitForALongDelayAndDropsThePendingCallback) {
    Behave(R"({"binder": {"delay_ms": 600000}})");
    ASSERT_NE(Open(), nullptr);
    EXPECT_EQ(
        Symbol<TAK_CREATE_COMMUNICATOR_BINDER_API>(TAK_API_CREATE_COMMUNICATOR_BINDER)(OnBinder, &m_observed),
        0);
    Close();
    EXPECT_EQ(m_observed.BinderCalls(), 0);
}

TEST_F(SubstituteLibrary, MonitoringReportsItsStatesAndACancelEndsItWith160) {
    Behave(R"({"monitor": {"interval_ms": 1, "states": [[100, 0, 0], [100, 100, 0], [110, 100, 0]]}})");
    ASSERT_NE(Open(), nullptr);
    auto monitor = Symbol<TAK_MONITOR_INSTALL_API>(TAK_API_MONITOR_INSTALL);
    auto cancel = Symbol<TAK_CANCEL_MONITOR_INSTALL_API>(TAK_API_CANCEL_MONITOR_INSTALL);
    int cookie = 0;
    ASSERT_EQ(monitor("app.one", 321, OnProgress, &cookie), 0);
    ASSERT_TRUE(WaitUntil([&] { return m_observed.ProgressCount() == 3; }));
    EXPECT_EQ(cancel("app.one", 999), -1) << "another caller's monitoring is not this one";
    EXPECT_EQ(cancel("app.one", 321), 0);
    ASSERT_TRUE(WaitUntil([&] { return m_observed.ProgressCount() == 4; }));
    Close();
    EXPECT_EQ(States(), (std::vector<int>{100, 100, 110, 160}));
    std::lock_guard<std::mutex> guard(m_observed.lock);
    for (const auto& p : m_observed.progress) {
        EXPECT_EQ(p.appKey, "app.one");
        EXPECT_EQ(p.userData, &cookie);
    }
    EXPECT_EQ(m_observed.progress[1].progress, 100);
    EXPECT_EQ(CallsOf("libtak_common", "MonitorAppInstallStatusAPI:callback").size(), 4u);
}

TEST_F(SubstituteLibrary, ACancelDuringTheStatesStopsThemAndEveryMonitoringOfTheKeyEnds) {
    Behave(R"({"monitor": {"interval_ms": 600000, "states": [[100, 0, 0]]}})");
    ASSERT_NE(Open(), nullptr);
    auto monitor = Symbol<TAK_MONITOR_INSTALL_API>(TAK_API_MONITOR_INSTALL);
    ASSERT_EQ(monitor("app.two", 5, OnProgress, nullptr), 0);
    ASSERT_EQ(monitor("app.two", 5, OnProgress, nullptr), 0);
    EXPECT_EQ(Symbol<TAK_CANCEL_MONITOR_INSTALL_API>(TAK_API_CANCEL_MONITOR_INSTALL)("app.two", 5), 0);
    ASSERT_TRUE(WaitUntil([&] { return m_observed.ProgressCount() == 2; }));
    Close();
    EXPECT_EQ(States(), (std::vector<int>{160, 160}));
}

TEST_F(SubstituteLibrary, MonitoringsOpenAtUnloadEndWithoutACallback) {
    Behave(R"({"monitor": {"interval_ms": 1, "states": [[100, 50, 0]]}})");
    ASSERT_NE(Open(), nullptr);
    ASSERT_EQ(Symbol<TAK_MONITOR_INSTALL_API>(TAK_API_MONITOR_INSTALL)("app.three", 1, OnProgress, nullptr),
              0);
    ASSERT_TRUE(WaitUntil([&] { return m_observed.ProgressCount() == 1; }));
    Close();
    EXPECT_EQ(States(), (std::vector<int>{100}));
}

}  // namespace
