// The substitute common library as the reset process's loader sees it (installed by `orvix-host libtak
// apply`, opened with dlopen, entry points looked up by name, callbacks from the library's threads), and
// `orvix-host config`, which shows and changes the configuration table the built-in reset keeps its lists in.
#include <app_control.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <mutex>
#include <thread>

#include "AppDLDInfo.h"
#include "HostFixture.h"
#include "TAKCommonApi.h"
#include "TestLog.h"

namespace {

using orvix::test::RunResult;
using orvix::test::WaitUntil;
using Clock = std::chrono::steady_clock;
using Strings = std::vector<std::string>;
using Extras = std::vector<std::pair<std::string, std::string>>;

const std::thread::id g_testThread = std::this_thread::get_id();
int g_cookie = 0;

// What the library called back with. Written by its threads.
struct Report {
    std::string text;  // "<app id> <state>/<progress>/<result>" or "<key> <type> <value>"
    bool onTestThread;
    bool cookie;
};
std::mutex g_reportsLock;  // guards g_reports
std::vector<Report> g_reports;

void Add(std::string text, void* userData) {
    std::lock_guard<std::mutex> lock(g_reportsLock);
    g_reports.push_back({std::move(text), std::this_thread::get_id() == g_testThread, userData == &g_cookie});
}
void OnInstall(std::string appId, TAK_EVENT_STATE_E state, int progress, int result, std::string,
               void* user) {
    Add(appId + " " + std::to_string(state) + "/" + std::to_string(progress) + "/" + std::to_string(result),
        user);
}
std::string ValueText(const VCONF_VALUE& value) {
    switch (value.type) {
        case 41:
            return "int " + std::to_string(value.intValue);
        case 43:
            return value.boolValue ? "bool true" : "bool false";
        case 42:
            return "double " + orvix::host::ShortestDoubleText(value.doubleValue);
        default:
            return "string " + value.stringValue;
    }
}
void OnChange(std::string key, VCONF_VALUE value) {
    Add(key + " " + ValueText(value), nullptr);
}
void OnChangeReplaced(std::string key, VCONF_VALUE value) {
    Add("replaced " + key + " " + ValueText(value), nullptr);
}

// The reports that start with `prefix`, in order.
std::vector<Report> ReportsOf(const std::string& prefix) {
    std::lock_guard<std::mutex> lock(g_reportsLock);
    std::vector<Report> selected;
    for (const auto& report : g_reports) {
        if (report.text.compare(0, prefix.size(), prefix) == 0) {
            selected.push_back(report);
        }
    }
    return selected;
}
Strings TextsOf(const std::string& prefix) {
    Strings texts;
    for (const auto& report : ReportsOf(prefix)) {
        texts.push_back(report.text);
    }
    return texts;
}

template <class T>
std::string Address(T* pointer) {
    return std::to_string(reinterpret_cast<uintptr_t>(pointer));
}

void OnBinder(void*) {
    Add("binder", nullptr);
}
void ClearReports() {
    std::lock_guard<std::mutex> lock(g_reportsLock);
    g_reports.clear();
}

class BuiltInLibrary : public orvix::test::HostFixture {
protected:
    bool StartsBus() const override { return false; }
    void TearDown() override {
        Close();
        ClearReports();
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
    // Unloading joins the library's threads: nothing calls back after it.
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
        T symbol = reinterpret_cast<T>(dlsym(m_handle, name));
        EXPECT_NE(symbol, nullptr) << name;
        return symbol;
    }

    int CreateBinder() {
        return Symbol<TAK_CREATE_COMMUNICATOR_BINDER_API>(TAK_API_CREATE_COMMUNICATOR_BINDER)(OnBinder,
                                                                                              nullptr);
    }
    int Monitor(const char* appKey, int callerPid, void* userData = nullptr) {
        return Symbol<TAK_MONITOR_INSTALL_API>(TAK_API_MONITOR_INSTALL)(appKey, callerPid, OnInstall,
                                                                        userData);
    }
    int Cancel(const char* appKey, int callerPid) {
        return Symbol<TAK_CANCEL_MONITOR_INSTALL_API>(TAK_API_CANCEL_MONITOR_INSTALL)(appKey, callerPid);
    }

    // The request the reset process makes, extras in its order.
    static Extras RequestFor(const std::string& appId, const OPENAPI_APP_DLD_INFO* dld = nullptr,
                             const BIU_INSTALL_KPI_INFO* kpi = nullptr) {
        return {{"appkey", appId},
                {"keytype", "0"},
                {"callback", Address(&OnInstall)},
                {"userdata", Address(&g_cookie)},
                {"biu_reset", "1"},
                {"biu_uninstall_reason", "0"},
                {"app_dld_info", Address(dld)},
                {"biu_kpi_info", Address(kpi)}};
    }
    int Install(const Extras& extras) {
        app_control_h request = nullptr;
        EXPECT_EQ(app_control_create(&request), APP_CONTROL_ERROR_NONE);
        for (const auto& [key, value] : extras) {
            app_control_add_extra_data(request, key.c_str(), value.c_str());
        }
        int result = Symbol<TAK_INSTALL_API>(TAK_API_INSTALL_APP)(request);
        app_control_destroy(request);
        return result;
    }
    // Callbacks come in the order they fall due: once a plain install given last has called back, every
    // callback due before it has come too.
    void Drain() {
        std::string marker = "marker" + std::to_string(++m_markers);
        ASSERT_EQ(Install(RequestFor(marker)), 0);
        ASSERT_TRUE(WaitUntil([&] { return !ReportsOf(marker + " ").empty(); }));
    }
    int Register(const std::string& key, TAK_VCONF_CHANGE_CB callback) {
        return Symbol<TAK_REGISTER_VCONF_CHANGE_CB_API>(TAK_API_REGISTER_VCONF_CHANGE_CB)(key, callback);
    }
    int Unregister(const std::string& key) {
        return Symbol<TAK_UNREGISTER_VCONF_CHANGE_CB_API>(TAK_API_UNREGISTER_VCONF_CHANGE_CB)(key);
    }
    // `orvix-host settings set ARGS...` from another process, then the wait for its callback.
    void SetAndWait(const Strings& args, const std::string& expected) {
        Strings command = {"settings", "set"};
        command.insert(command.end(), args.begin(), args.end());
        RunResult set = Host(command);
        ASSERT_EQ(set.status, 0) << set.err;
        EXPECT_TRUE(WaitUntil([&] { return !ReportsOf(expected).empty(); })) << expected;
    }
    void* m_handle = nullptr;
    int m_markers = 0;
};

TEST_F(BuiltInLibrary, HidesTheKitAndRecordsCallsButAMissingOrBrokenOneCannotBeLoaded) {
    OpenWith("{}");
    EXPECT_EQ(dlsym(m_handle, "dlog_print"), dlsym(RTLD_DEFAULT, "dlog_print"));
    EXPECT_EQ(dlsym(m_handle, "app_control_create"), dlsym(RTLD_DEFAULT, "app_control_create"));
    Symbol<TAK_VOID_API>(TAK_API_QX_CURL_SSL_UNLOCK)();
    ASSERT_EQ(MethodsOf("libtak_common"), Strings{"QXCurlSSLUnLock"});
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
TEST_F(BuiltInLibrary, ABehaviourFileNestedTooDeeplyCountsAsNoneAndTheNextGoodOneApplies) {
    OpenWith("{}");
    std::ofstream(Root() + "/etc/libtak_common.json", std::ios::trunc)
        << R"({"results": {"CreateCommunicatorBinderAPI": )" + std::string(5000, '[') +
               std::string(5000, ']') + "}}";
    EXPECT_EQ(CreateBinder(), 0);
    std::ofstream(Root() + "/etc/libtak_common.json", std::ios::trunc)
        << R"({"results": {"CreateCommunicatorBinderAPI": 1}, "binder": {"never": true}})";
    EXPECT_EQ(CreateBinder(), 1);
}

TEST_F(BuiltInLibrary, TheBinderComesFromALibraryThreadAfterTheDelayOrNotAtAll) {
    // Unloading does not wait for a long delay, and drops the pending callback.
    for (const std::string behaviour :
         {R"({"binder": {"never": true}})", R"({"binder": {"delay_ms": 600000}})"}) {
        SCOPED_TRACE(behaviour);
        ASSERT_NO_FATAL_FAILURE(OpenWith(behaviour));
        EXPECT_EQ(CreateBinder(), 0);
        // A callback due at once would come before the first report of a monitoring (20 ms apart).
        ASSERT_EQ(Monitor("app.x", 1), 0);
        ASSERT_TRUE(WaitUntil([] { return !ReportsOf("app.x ").empty(); }));
        Close();
        EXPECT_TRUE(ReportsOf("binder").empty());
        ClearReports();
    }
    OpenWith(R"({"binder": {"delay_ms": 20}})");
    EXPECT_EQ(CreateBinder(), 0);
    ASSERT_TRUE(WaitUntil([] { return !ReportsOf("binder").empty(); }));
    Close();
    ASSERT_EQ(ReportsOf("binder").size(), 1u);
    EXPECT_FALSE(ReportsOf("binder")[0].onTestThread);
}

TEST_F(BuiltInLibrary, MonitoringReportsItsStatesUntilCancelledWith160OrUnloaded) {
    OpenWith(R"({"monitor": {"interval_ms": 1, "states": [[100, 0, 0], [100, 100, 0], [110, 100, 0]]}})");
    ASSERT_EQ(Monitor("app.one", 321, &g_cookie), 0);
    ASSERT_EQ(Monitor("app.left", 1), 0);
    ASSERT_TRUE(WaitUntil([] { return ReportsOf("app.").size() == 6; }));
    EXPECT_EQ(Cancel("app.one", 999), -1) << "another caller's monitoring is not this one";
    EXPECT_EQ(Cancel("app.one", 321), 0);
    ASSERT_TRUE(WaitUntil([] { return ReportsOf("app.one ").size() == 4; }));
    Close();
    EXPECT_EQ(TextsOf("app.one "),
              (Strings{"app.one 100/0/0", "app.one 100/100/0", "app.one 110/100/0", "app.one 160/0/0"}));
    EXPECT_TRUE(ReportsOf("app.one ").back().cookie);
    EXPECT_EQ(TextsOf("app.left "), (Strings{"app.left 100/0/0", "app.left 100/100/0", "app.left 110/100/0"}))
        << "unloading reported";

    // A cancel ends every monitoring of the key at once, even while it waits for its next state.
    OpenWith(R"({"monitor": {"interval_ms": 600000, "states": [[100, 0, 0]]}})");
    ASSERT_EQ(Monitor("app.two", 5), 0);
    ASSERT_EQ(Monitor("app.two", 5), 0);
    EXPECT_EQ(Cancel("app.two", 5), 0);
    ASSERT_TRUE(WaitUntil([] { return ReportsOf("app.two ").size() == 2; }));
    EXPECT_EQ(TextsOf("app.two "), (Strings{"app.two 160/0/0", "app.two 160/0/0"}));
}

TEST_F(BuiltInLibrary, AnInstallRecordsWhatItWasHandedAndCallsBackFromALibraryThread) {
    OpenWith(R"({"builtin": {"install": {"delay_ms": 0}}})");
    OPENAPI_APP_DLD_INFO dld;
    dld.id = "alpha";
    dld.url = "http://cdn/alpha.tpk";
    dld.fileSize = 77;
    dld.requires["zeta"] = OPENAPI_REQUIRE_INFO{"zeta", "2.0", "pkg.zeta", false};
    BIU_INSTALL_KPI_INFO kpi;
    kpi.fields[0] = "pkg.alpha";
    kpi.fields[6] = "inactive";
    ASSERT_EQ(Install(RequestFor("alpha", &dld, &kpi)), 0);
    // The records live only until the call returns; what was recorded must be what they held then.
    dld.url = "changed";
    kpi.fields[0] = "changed";
    ASSERT_TRUE(WaitUntil([] { return !ReportsOf("alpha ").empty(); }));
    Drain();
    std::vector<Report> reports = ReportsOf("alpha ");
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].text, "alpha 110/100/0");
    EXPECT_FALSE(reports[0].onTestThread);
    EXPECT_TRUE(reports[0].cookie);

    Json::Value args = CallsOf("libtak_common", "InstallAppAPI").front()["args"];
    // The order of the extras and the records' other fields show in the built-in reset's own test.
    ASSERT_EQ(args.size(), 3u);
    EXPECT_EQ(args[1].size(), TAKDLDInfo::kAttributeCount + 2);
    EXPECT_EQ(args[1]["url"].asString(), "http://cdn/alpha.tpk");
    EXPECT_EQ(args[1]["requires"]["zeta"]["version"].asString(), "2.0");
    EXPECT_EQ(orvix::host::JsonLine(args[2]), R"(["pkg.alpha","","","","","","inactive"])");
    EXPECT_EQ(orvix::host::JsonLine(CallsOf("libtak_common", "InstallAppAPI:callback").front()["args"]),
              R"(["alpha",110,100,0])");
}

TEST_F(BuiltInLibrary, ASettingChangedByAnotherProcessReachesItsWatchOnALibraryThread) {
    OpenWith("{}");
    ASSERT_EQ(Host({"settings", "set", "-t", "double", "db/tak/ratio", "0.5"}).status, 0);
    const std::vector<std::pair<Strings, std::string>> changes = {
        {{"memory/tak/biu_updating_app", R"({"pkgname":"p","status":"update","value":"start"})"},
         R"(memory/tak/biu_updating_app string {"pkgname":"p","status":"update","value":"start"})"},
        {{"db/built-in-app-upgrader/reset", "2"}, "db/built-in-app-upgrader/reset int 2"},
        {{"db/built-in-app-upgrader/server_upgrade", "false"},
         "db/built-in-app-upgrader/server_upgrade bool false"},
        {{"db/tak/ratio", "1.25"}, "db/tak/ratio double 1.25"},
    };
    for (const auto& [args, expected] : changes) {
        ASSERT_EQ(Register(args[0], OnChange), 0) << args[0];
    }
    for (const auto& [args, expected] : changes) {
        ASSERT_NO_FATAL_FAILURE(SetAndWait(args, expected));
    }
    for (const auto& report : ReportsOf("")) {
        EXPECT_FALSE(report.onTestThread) << report.text;
    }
    EXPECT_EQ(ReportsOf("").size(), changes.size()) << "a key called back for another key's change";

    // Registering again replaces the callback; unregistering stops it before it returns.
    const std::string key = "memory/tak/biu_updating_app";
    ASSERT_EQ(Register(key, OnChangeReplaced), 0);
    ASSERT_NO_FATAL_FAILURE(SetAndWait({key, "second"}, "replaced " + key + " string second"));
    EXPECT_EQ(ReportsOf(key + " string second").size(), 0u);
    EXPECT_EQ(Unregister(key), 0);
    ASSERT_EQ(Host({"settings", "set", key, "third"}).status, 0);
    ASSERT_NO_FATAL_FAILURE(
        SetAndWait({"db/built-in-app-upgrader/reset", "3"}, "db/built-in-app-upgrader/reset int 3"));
    EXPECT_TRUE(ReportsOf("replaced " + key + " string third").empty());
    EXPECT_EQ(Unregister(key), -1) << "unregistered twice";
    EXPECT_EQ(
        orvix::host::JsonLine(CallsOf("libtak_common", "RegisterVconfChangeCBAPI:callback").front()["args"]),
        R"(["memory/tak/biu_updating_app","{\"pkgname\":\"p\",\"status\":\"update\",\"value\":\"start\"}"])");
}

TEST_F(BuiltInLibrary, UnloadingWithAnInstallAndAWatchOutstandingJoinsWithoutCallingBack) {
    OpenWith(R"({"builtin": {"install": {"delay_ms": 600000}}})");
    ASSERT_EQ(Install(RequestFor("pending")), 0);
    ASSERT_EQ(Register("memory/tak/biu_updating_app", OnChange), 0);
    Clock::time_point start = Clock::now();
    Close();
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(10)) << "unloading waited for the delay";
    ASSERT_EQ(Host({"settings", "set", "memory/tak/biu_updating_app", "after"}).status, 0);
    EXPECT_TRUE(ReportsOf("").empty());
    EXPECT_TRUE(CallsOf("libtak_common", "InstallAppAPI:callback").empty());
}

// `orvix-host config` and what `init` leaves for the built-in reset.
class ConfigTable : public orvix::test::HostFixture {
protected:
    std::string Get(const std::string& key) {
        RunResult got = Host({"config", "get", key});
        EXPECT_EQ(got.status, 0) << key << ": " << got.err;
        return got.out;
    }
};

TEST_F(ConfigTable, SetGoesThroughTheInnerServerAndBadInputIsRefusedWithStatus2) {
    EXPECT_EQ(Get("RESERVED_16"), "\n");
    EXPECT_EQ(Get("RESET_TYPE"), "0\n");
    for (const std::string value : {"a,pkg.a,1,x,y;b,pkg.b,2,x,y", "", "it's \"quoted\""}) {
        RunResult set = Host({"config", "set", "RESERVED_17", value});
        ASSERT_EQ(set.status, 0) << set.err;
        EXPECT_EQ(Get("RESERVED_17"), value + "\n");
    }
    EXPECT_EQ(orvix::host::JsonLine(CallsOf("innerserver", "update_config_table").front()["args"]),
              R"(["RESERVED_17","a,pkg.a,1,x,y;b,pkg.b,2,x,y"])");
    EXPECT_EQ(Host({"config", "get", "NO_SUCH_KEY"}).status, 1);
    size_t updates = CallsOf("innerserver", "update_config_table").size();
    const std::vector<Strings> bad = {{"config", "frob", "RESERVED_17"},
                                      {"config", "set", "RESERVED-17", "v"},
                                      {"config", "set", "RESERVED_17", "\xff\xfe"}};
    for (const auto& command : bad) {
        RunResult result = Host(command);
        EXPECT_EQ(result.status, 2) << orvix::host::JsonLine(Json::Value(command.back()));
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    }
    ASSERT_EQ(Host({"down"}).status, 0);
    EXPECT_EQ(Host({"config", "set", "RESERVED_17", "bus down"}).status, 2);
    EXPECT_EQ(Get("RESERVED_17"), "it's \"quoted\"\n");
    EXPECT_EQ(CallsOf("innerserver", "update_config_table").size(), updates);
}

}  // namespace
