// The facade's changes travel over the bus to the stand-in daemon, which applies them to the file that
// this process reads; with the daemon gone a change fails with its log line.
//
// The bus connection of the process is made once and kept, so every case runs in one test, in order:
// no bus, bus and daemon up, daemon gone.
#include <gtest/gtest.h>
#include <signal.h>

#include "AppDBInfo.h"
#include "DbTestSupport.h"
#include "HostFixture.h"
#include "TAKDBConnection.h"
#include "TAKUtil.h"

namespace {

using dbtest::LogMark;

class FacadeBusTest : public orvix::test::HostFixture {
protected:
    std::vector<std::string> InitArguments() const override { return {"--apps", "12", "--builtin", "0"}; }
    bool StartsBus() const override { return false; }

    void SetUp() override {
        CTAKDBConnection::ResetInstanceForTest();
        HostFixture::SetUp();
        setenv("DBUS_SYSTEM_BUS_ADDRESS", BusAddress().c_str(), 1);
    }
    void TearDown() override {
        CTAKDBConnection::ResetInstanceForTest();
        HostFixture::TearDown();
    }

    _APPINFO_T Read(const std::string& id) {
        _APPINFO_T info;
        EXPECT_TRUE(CAppDBInfo::GetAppInfoById(id, info, false)) << id;
        return info;
    }

    // The arguments of the last recorded inner-server call of `method`.
    Json::Value LastArgs(const std::string& method) {
        std::vector<Json::Value> calls = CallsOf("innerserver", method);
        return calls.empty() ? Json::Value() : calls.back()["args"];
    }

    static Json::Value Args(std::initializer_list<Json::Value> values) {
        Json::Value args(Json::arrayValue);
        for (const auto& value : values) {
            args.append(value);
        }
        return args;
    }
};

}  // namespace

TEST_F(FacadeBusTest, ChangesReachTheDaemonAndTheFile) {
    // No bus at all: the change fails and says why.
    {
        LogMark mark;
        EXPECT_FALSE(CAppDBInfo::RemoveApp("3201903017943"));
        EXPECT_TRUE(mark.Has("Connection is NULL.")) << mark.Text();
    }

    orvix::test::RunResult up = Host({"up"});
    ASSERT_EQ(up.status, 0) << up.err;
    ASSERT_NE(CTAKDBConnection::GetInstance(false), nullptr);
    std::list<_APPINFO_T> apps = CAppDBInfo::GetAllAppList();
    ASSERT_EQ(apps.size(), 12u);

    // A stored record, changed.
    _APPINFO_T changed = Read("3201904018125");
    changed.title = "it's \"renamed\" – ünï 日本";
    changed.is_need_reset = true;
    {
        LogMark mark;
        EXPECT_TRUE(CAppDBInfo::SetAppInfo(changed, false));
        EXPECT_TRUE(mark.Has("MethodCall success, result 1 (0-fail, 1-success)"));
    }
    EXPECT_TRUE(dbtest::SameRecord(changed, Read("3201904018125")));
    Json::Value args = LastArgs("set_app_info");
    ASSERT_EQ(args.size(), 3u);
    EXPECT_EQ(args[0].asInt(), 1);
    EXPECT_EQ(args[1].asString(), CAppDBInfo::m_MakeAppInfoJson(changed));
    EXPECT_EQ(args[2].asInt(), 0);

    // A new record; then the same again, which the daemon refuses.
    _APPINFO_T fresh = dbtest::DistinctRecord("fresh.app", 4);
    EXPECT_TRUE(CAppDBInfo::SetAppInfo(fresh, true));
    EXPECT_EQ(LastArgs("set_app_info")[0].asInt(), 2);
    EXPECT_TRUE(dbtest::SameRecord(fresh, Read("fresh.app")));
    {
        LogMark mark;
        EXPECT_FALSE(CAppDBInfo::SetAppInfo(fresh, true));
        EXPECT_TRUE(mark.Has("MethodCall success, result 0 (0-fail, 1-success)"));
    }

    EXPECT_TRUE(CAppDBInfo::SetFailedMemoryInfo(FAILED_INFO_TYPE_UPDATE, "fresh.app needs 20 MB"));
    EXPECT_EQ(LastArgs("set_app_info"), Args({FAILED_INFO_TYPE_UPDATE, "fresh.app needs 20 MB", 0}));
    std::string value;
    EXPECT_TRUE(CAppDBInfo::GetConfigTable("FAILED_UPDATE_MEMORY_INFO", value));
    EXPECT_EQ(value, "fresh.app needs 20 MB");

    EXPECT_TRUE(CAppDBInfo::RemoveApp("fresh.app"));
    EXPECT_EQ(LastArgs("remove_app"), Args({"fresh.app"}));
    _APPINFO_T gone;
    EXPECT_FALSE(CAppDBInfo::GetAppInfoById("fresh.app", gone, false));

    EXPECT_TRUE(CAppDBInfo::UpdateConfigTable("RESERVED_17", "a,b"));
    EXPECT_EQ(LastArgs("update_config_table"), Args({"RESERVED_17", "a,b"}));
    EXPECT_TRUE(CAppDBInfo::UpdateAppSyncConfig("5"));
    EXPECT_EQ(LastArgs("update_config_table"), Args({"SYNC_STATE", "5"}));
    EXPECT_TRUE(CAppDBInfo::GetAppSyncConfig(value));
    EXPECT_EQ(value, "5");

    // Items of every app (empty id) and of one app.
    EXPECT_TRUE(CAppDBInfo::UpdateAppsInfoByKey(APPINFO_UPDATE_KEY_NEED_RESET, 1, ""));
    EXPECT_EQ(LastArgs("update_app_item"), Args({"", 0, 0, 1, ""}));
    EXPECT_TRUE(CAppDBInfo::UpdateAppsInfoByKey(APPINFO_UPDATE_KEY_LAUNCH_DATE, std::string(""), ""));
    EXPECT_EQ(LastArgs("update_app_item"), Args({"", 5, 1, 0, ""}));
    EXPECT_TRUE(CAppDBInfo::UpdateAppsInfoByKey(APPINFO_UPDATE_KEY_USE_COUNT, 42, "3201903017943"));
    for (const auto& app : CAppDBInfo::GetAllAppList()) {
        EXPECT_TRUE(app.is_need_reset) << app.id;
        EXPECT_EQ(app.launch_date, "") << app.id;
        EXPECT_EQ(app.use_count == 42, app.id == "3201903017943") << app.id;
    }
    EXPECT_FALSE(CAppDBInfo::UpdateAppsInfoByKey(APPINFO_UPDATE_KEY_LAUNCH_DATE, 3, ""));

    EXPECT_TRUE(CAppDBInfo::ResetForCorvaneReset());
    EXPECT_EQ(LastArgs("reset_for_corvane_reset"), Json::Value(Json::arrayValue));
    for (const auto& app : CAppDBInfo::GetAllAppList()) {
        EXPECT_EQ(app.takorder, 0) << app.id;
        EXPECT_FALSE(app.is_hidden) << app.id;
    }

    EXPECT_TRUE(CAppDBInfo::TruncateWidgetInfoTable(true));
    EXPECT_EQ(LastArgs("truncate_widgetinfo_table"), Args({1}));
    EXPECT_EQ(CAppDBInfo::GetAllAppString(), "3201903017943,3201904018125,3202001019917,");

    // The daemon goes away; the bus stays. The change fails with the bus error and nothing changes.
    orvix::host::ProcessId daemon;
    ASSERT_TRUE(orvix::host::ReadPidFile(Root() + "/run/pids/innerserver.pid", daemon));
    ASSERT_EQ(kill(daemon.pid, SIGTERM), 0);
    ASSERT_TRUE(
        orvix::test::WaitUntil([&] { return !orvix::host::IsRunning(daemon); }, std::chrono::seconds(30)));
    {
        LogMark mark;
        EXPECT_FALSE(CAppDBInfo::RemoveApp("3201903017943"));
        EXPECT_TRUE(mark.Has("method call false.")) << mark.Text();
        EXPECT_FALSE(mark.Has("MethodCall success"));
    }
    EXPECT_EQ(CAppDBInfo::GetAllAppList().size(), 3u);
    // Reads do not need the daemon.
    EXPECT_EQ(CTAKUtil::GetTAKUninstallReason(2), 2);
}
