// Version order, the preinstalled-app lists and reset reason from the configuration table, and the hooks.
#include <gtest/gtest.h>

#include "AppDBInfo.h"
#include "DbTestSupport.h"
#include "TAKAppInfoHandle.h"
#include "TAKConfigHandle.h"
#include "TAKDBConnection.h"
#include "TAKUtil.h"

using namespace dbtest;

namespace {

int Sign(int value) {
    return (value > 0) - (value < 0);
}

struct VersionCase {
    const char* a;
    const char* b;
    int expected;
};

const VersionCase kVersions[] = {
    {"1.0.0", "1.0.0", 0},
    {"1.10", "1.9", 1},
    {"1.9", "1.10", -1},
    {"1.2", "1.2.0", 0},
    {"1.2.0.0", "1.2", 0},
    {"1.2.1", "1.2", 1},
    {"1", "1.0.1", -1},
    {"2.0", "10.0", -1},
    {"", "", 0},
    {"", "0.0", 0},
    {"", "0.1", -1},
    {"01.002", "1.2", 0},
    {"1.2b", "1.2", 0},
    {"1.3b", "1.2c", 1},
    {"x.1", "0.1", 0},
    {"4294967296.1", "4294967295.9", 1},
    {"1..2", "1.0.2", 0},
    {"3.0.0", "2.99.99", 1},
    {"1.0.0.10", "1.0.0.9", 1},
};

}  // namespace

TEST(CompareVersion, OrdersDottedNumericVersions) {
    for (const auto& c : kVersions) {
        EXPECT_EQ(Sign(CTAKUtil::CompareVersion(c.a, c.b)), c.expected) << c.a << " vs " << c.b;
        EXPECT_EQ(Sign(CTAKUtil::CompareVersion(c.b, c.a)), -c.expected) << c.b << " vs " << c.a;
    }
}

class ConfigListTest : public DbTest {
protected:
    void Set(const std::map<std::string, std::string>& rows) {
        ASSERT_TRUE(InsertConfigRows(DBPath(), rows));
        ASSERT_NE(CTAKDBConnection::GetInstance(false), nullptr);
    }
};

TEST_F(ConfigListTest, DefaultAppsCarryValuesGeneralAppsDoNot) {
    Set({{"RESERVED_11", "appA:1,appB:2,,appC,appD:x:y"}, {"RESERVED_3", "g1,g2:3,,g1"}});
    std::map<std::string, std::string> apps = {{"stale", "1"}};
    ASSERT_TRUE(CTAKUtil::GetPreinstallApps(0, apps));
    EXPECT_EQ(apps, (std::map<std::string, std::string>{
                        {"appA", "1"}, {"appB", "2"}, {"appC", ""}, {"appD", "x:y"}}));
    ASSERT_TRUE(CTAKUtil::GetPreinstallApps(1, apps));
    EXPECT_EQ(apps, (std::map<std::string, std::string>{{"g1", ""}, {"g2:3", ""}}));
    EXPECT_FALSE(CTAKUtil::GetPreinstallApps(2, apps));
    EXPECT_TRUE(apps.empty());
}

TEST_F(ConfigListTest, MissingListGivesAnEmptyMap) {
    Set({{"RESERVED_11", ""}});
    std::map<std::string, std::string> apps = {{"stale", "1"}};
    EXPECT_TRUE(CTAKUtil::GetPreinstallApps(0, apps));
    EXPECT_TRUE(apps.empty());
    apps["stale"] = "1";
    EXPECT_FALSE(CTAKUtil::GetPreinstallApps(1, apps));
    EXPECT_TRUE(apps.empty());
}

TEST_F(ConfigListTest, ResetTypeChoosesTheUninstallReason) {
    Set({{"RESET_TYPE", "1"}});
    EXPECT_EQ(CTAKUtil::GetTAKUninstallReason(2), 9);
    ASSERT_TRUE(ExecSql(DBPath(), "update TAKConfigTable set value = '2' where name = 'RESET_TYPE'"));
    EXPECT_EQ(CTAKUtil::GetTAKUninstallReason(2), 10);
    for (const char* other : {"0", "3", "", " 1", "1 "}) {
        ASSERT_TRUE(InsertConfigRows(DBPath(), {{"RESET_TYPE", other}}));
        EXPECT_EQ(CTAKUtil::GetTAKUninstallReason(2), 2) << "'" << other << "'";
    }
    ASSERT_TRUE(ExecSql(DBPath(), "delete from TAKConfigTable"));
    EXPECT_EQ(CTAKUtil::GetTAKUninstallReason(7), 7);
}

namespace {

int g_SetCalls = 0;
bool FakeSetInfo(_APPINFO_T& info, bool flag) {
    ++g_SetCalls;
    return flag && info.id == "x";
}
std::list<_APPINFO_T> FakeAll() {
    return std::list<_APPINFO_T>(2);
}
bool FakeGetConfig(const std::string& name, std::string& value) {
    value = "value of " + name;
    return true;
}

}  // namespace

TEST(Hooks, UnsetHooksGiveFalseOrEmpty) {
    _APPINFO_T info;
    std::map<std::string, std::string> types;
    std::list<_APPINFO_T> apps;
    std::string value;
    EXPECT_FALSE(CTAKAppInfoHandle::SetAppInfo(info, true));
    EXPECT_FALSE(CTAKAppInfoHandle::GetAppInfoById("x", info, false));
    EXPECT_FALSE(CTAKAppInfoHandle::GetAppInfoByRunTitle("x", info, false));
    EXPECT_FALSE(CTAKAppInfoHandle::RemoveApp("x"));
    EXPECT_FALSE(CTAKAppInfoHandle::GetAppPkgTypeInfo(types));
    EXPECT_TRUE(CTAKAppInfoHandle::GetAllAppList().empty());
    EXPECT_EQ(CTAKAppInfoHandle::GetAllAppString(), "");
    EXPECT_FALSE(CTAKAppInfoHandle::GetUsbAppsInfo(apps));
    EXPECT_FALSE(CTAKAppInfoHandle::GetUnAvailableUsbAppsInfo(apps));
    EXPECT_FALSE(CTAKConfigHandle::GetConfigTable("k", value));
    EXPECT_FALSE(CTAKConfigHandle::UpdateConfigTable("k", "v"));
    EXPECT_FALSE(CTAKConfigHandle::GetAppSyncConfig(value));
    EXPECT_FALSE(CTAKConfigHandle::UpdateAppSyncConfig("v"));
}

TEST(Hooks, SetHooksForwardTheirArguments) {
    CTAKAppInfoHandle::SetSetInfoHandle(FakeSetInfo);
    CTAKAppInfoHandle::SetGetAllAppHandle(FakeAll);
    CTAKConfigHandle::SetGetConfigTableHandle(FakeGetConfig);
    _APPINFO_T info;
    info.id = "x";
    EXPECT_TRUE(CTAKAppInfoHandle::SetAppInfo(info, true));
    EXPECT_FALSE(CTAKAppInfoHandle::SetAppInfo(info, false));
    EXPECT_EQ(g_SetCalls, 2);
    EXPECT_EQ(CTAKAppInfoHandle::GetAllAppList().size(), 2u);
    std::string value;
    EXPECT_TRUE(CTAKConfigHandle::GetConfigTable("K", value));
    EXPECT_EQ(value, "value of K");
    CTAKAppInfoHandle::SetSetInfoHandle(nullptr);
    CTAKAppInfoHandle::SetGetAllAppHandle(nullptr);
    CTAKConfigHandle::SetGetConfigTableHandle(nullptr);
}

TEST_F(ConfigListTest, UsbAndPackageTypeLists) {
    _APPINFO_T plain = DistinctRecord("plain", 1);
    plain.is_usb_app = false;
    plain.pkg_type = "wgt";
    _APPINFO_T attached = DistinctRecord("usb.on", 2);
    attached.is_usb_app = true;
    attached.is_app_available = true;
    attached.pkg_type = "tpk";
    _APPINFO_T detached = DistinctRecord("USB.off", 3);
    detached.is_usb_app = true;
    detached.is_app_available = false;
    ASSERT_TRUE(InsertApps(DBPath(), {plain, attached, detached}));
    Set({});

    std::list<_APPINFO_T> apps;
    ASSERT_TRUE(CAppDBInfo::GetUsbAppsInfo(apps));
    ASSERT_EQ(apps.size(), 2u);
    EXPECT_EQ(apps.front().id, "USB.off");
    EXPECT_EQ(apps.back().id, "usb.on");
    ASSERT_TRUE(CAppDBInfo::GetUnAvailableUsbAppsInfo(apps));
    ASSERT_EQ(apps.size(), 1u);
    EXPECT_EQ(apps.front().id, "USB.off");

    std::map<std::string, std::string> types;
    ASSERT_TRUE(CAppDBInfo::GetAppPkgTypeInfo(types));
    EXPECT_EQ(types, (std::map<std::string, std::string>{
                         {"plain", "wgt"}, {"usb.on", "tpk"}, {"USB.off", detached.pkg_type}}));
}
