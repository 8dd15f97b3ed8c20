// The facade's changes travel over the bus to the stand-in daemon, which applies them to the file that
// this process reads; with the daemon gone a change fails with its log line.
//
// The bus connection of the process is made once and kept, so every case runs in one test, in order:
// no bus, bus and daemon up, daemon gone.
#include <signal.h>

#include "DbTestSupport.h"
#include "HostFixture.h"
#include "TAKUtil.h"

namespace {

using namespace dbtest;

class FacadeBusTest : public orvix::test::HostFixture {
protected:
    std::vector<std::string> InitArguments() const override { return {"--apps", "12", "--builtin", "0"}; }
    bool StartsBus() const override { return false; }
    void SetUp() override {
        HostFixture::SetUp();
        setenv("DBUS_SYSTEM_BUS_ADDRESS", BusAddress().c_str(), 1);
    }
    void TearDown() override {
        CTAKDBConnection::ResetInstanceForTest();
        HostFixture::TearDown();
    }

    // The arguments of the last recorded inner-server call of `method`, as one line of JSON.
    std::string LastArgs(const std::string& method) {
        std::vector<Json::Value> calls = CallsOf("innerserver", method);
        return calls.empty() ? "<none>" : orvix::host::JsonLine(calls.back()["args"]);
    }
};

}  // namespace

TEST_F(FacadeBusTest, ChangesReachTheDaemonAndTheFile) {
    // No bus at all: the change fails and says why.
    LogMark noBus;
    EXPECT_FALSE(CAppDBInfo::RemoveApp("3201903017943"));
    EXPECT_TRUE(noBus.Contains("Connection is NULL.")) << noBus.Text();

    ASSERT_EQ(Host({"up"}).status, 0);
    ASSERT_EQ(CAppDBInfo::GetAllAppList().size(), 12u);

    // A stored record, changed.
    _APPINFO_T changed = ReadApp("3201904018125");
    changed.title = "it's \"renamed\" – ünï 日本";
    changed.is_need_reset = changed.is_ticker = true;
    EXPECT_TRUE(CAppDBInfo::SetAppInfo(changed, false));
    EXPECT_EQ(LastArgs("set_app_info"),
              "[1," + orvix::host::JsonLine(CAppDBInfo::m_MakeAppInfoJson(changed)) + ",0]");
    EXPECT_TRUE(SameRecord(changed, ReadApp("3201904018125")));

    // A new record; then the same again, which the daemon refuses.
    _APPINFO_T fresh = DistinctRecord("fresh.app", 4);
    EXPECT_TRUE(CAppDBInfo::SetAppInfo(fresh, true));
    EXPECT_EQ(LastArgs("set_app_info").substr(0, 3), "[2,");
    EXPECT_TRUE(SameRecord(fresh, ReadApp("fresh.app")));
    EXPECT_FALSE(CAppDBInfo::SetAppInfo(fresh, true));

    EXPECT_TRUE(CAppDBInfo::SetFailedMemoryInfo(FAILED_INFO_TYPE_UPDATE, "fresh.app needs 20 MB"));
    EXPECT_EQ(LastArgs("set_app_info"), R"([4,"fresh.app needs 20 MB",0])");
    std::string value;
    EXPECT_TRUE(CAppDBInfo::GetConfigTable("FAILED_UPDATE_MEMORY_INFO", value) &&
                value == "fresh.app needs 20 MB");

    EXPECT_TRUE(CAppDBInfo::RemoveApp("fresh.app") && !CAppDBInfo::GetAppInfoById("fresh.app", fresh, false));

    EXPECT_TRUE(CAppDBInfo::UpdateConfigTable("RESERVED_17", "a,b"));
    EXPECT_EQ(LastArgs("update_config_table"), R"(["RESERVED_17","a,b"])");
    EXPECT_TRUE(CAppDBInfo::UpdateAppSyncConfig("5"));
    EXPECT_EQ(LastArgs("update_config_table"), R"(["SYNC_STATE","5"])");
    EXPECT_TRUE(CAppDBInfo::GetAppSyncConfig(value) && value == "5");

    // Items of every app (empty id) and of one app.
    EXPECT_TRUE(CAppDBInfo::UpdateAppsInfoByKey(APPINFO_UPDATE_KEY_NEED_RESET, 1, ""));
    EXPECT_EQ(LastArgs("update_app_item"), R"(["",0,0,1,""])");
    EXPECT_TRUE(CAppDBInfo::UpdateAppsInfoByKey(APPINFO_UPDATE_KEY_LAUNCH_DATE, std::string(""), ""));
    EXPECT_EQ(LastArgs("update_app_item"), R"(["",5,1,0,""])");
    EXPECT_TRUE(CAppDBInfo::UpdateAppsInfoByKey(APPINFO_UPDATE_KEY_LOCK, 1, ""));
    EXPECT_TRUE(CAppDBInfo::UpdateAppsInfoByKey(APPINFO_UPDATE_KEY_USE_COUNT, 42, "3201903017943"));
    for (const auto& app : CAppDBInfo::GetAllAppList()) {
        EXPECT_TRUE(app.is_need_reset && app.is_lock && app.launch_date.empty()) << app.id;
        EXPECT_EQ(app.use_count == 42, app.id == "3201903017943") << app.id;
    }
    EXPECT_FALSE(CAppDBInfo::UpdateAppsInfoByKey(APPINFO_UPDATE_KEY_LAUNCH_DATE, 3, ""));

    EXPECT_TRUE(CAppDBInfo::TruncateWidgetInfoTable(true));
    EXPECT_EQ(LastArgs("truncate_widgetinfo_table"), "[1]");
    EXPECT_EQ(CAppDBInfo::GetAllAppString(), "3201903017943,3201904018125,3202001019917,");

    // The daemon goes away; the bus stays. The change fails with the bus error and nothing changes.
    orvix::host::ProcessId daemon;
    ASSERT_TRUE(orvix::host::ReadPidFile(Root() + "/run/pids/innerserver.pid", daemon) &&
                kill(daemon.pid, SIGTERM) == 0);
    ASSERT_TRUE(
        orvix::test::WaitUntil([&] { return !orvix::host::IsRunning(daemon); }, std::chrono::seconds(30)));
    LogMark noDaemon;
    EXPECT_FALSE(CAppDBInfo::RemoveApp("3201903017943"));
    EXPECT_TRUE(noDaemon.Contains("method call false.") && !noDaemon.Contains("MethodCall success"))
        << noDaemon.Text();
    EXPECT_EQ(CAppDBInfo::GetAllAppList().size(), 3u);
    // Reads do not need the daemon.
    EXPECT_EQ(CTAKUtil::GetTAKUninstallReason(2), 2);
}
