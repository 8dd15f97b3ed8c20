// The stand-in daemon's data side: each app-data method applied to the file, and the seeded database.
#include <gtest/gtest.h>

#include <set>

#include "AppDBInfo.h"
#include "AppDatabaseSeed.h"
#include "DbTestSupport.h"
#include "InnerServerStore.h"
#include "TAKConfig.h"
#include "TAKDBConnection.h"
#include "TAKUtil.h"
#include "WidgetInfoDB.h"

using namespace dbtest;

namespace {

class StoreTest : public DbTest {
protected:
    void SetUp() override {
        DbTest::SetUp();
        _APPINFO_T a = DistinctRecord("a", 1);
        _APPINFO_T b = DistinctRecord("b", 2);
        _APPINFO_T fixed = DistinctRecord("3201904018125", 3);
        ASSERT_TRUE(InsertApps(DBPath(), {a, b, fixed}));
        ASSERT_TRUE(
            InsertConfigRows(DBPath(), {{"SYNC_STATE", "1"}, {"RESERVED_2", "x"}, {"RESERVED_5", "y"}}));
        ASSERT_TRUE(m_Store.Open());
    }

    int Apply(const char* method, GVariant* parameters) {
        if (parameters != nullptr) {
            g_variant_ref_sink(parameters);
        }
        int result = m_Store.Apply(method, parameters);
        if (parameters != nullptr) {
            g_variant_unref(parameters);
        }
        return result;
    }

    _APPINFO_T Read(const std::string& id) {
        _APPINFO_T info;
        EXPECT_TRUE(CAppDBInfo::GetAppInfoById(id, info, false)) << id;
        return info;
    }

    CInnerServerStore m_Store;
};

}  // namespace

TEST_F(StoreTest, KnowsExactlyTheAppDataMethods) {
    for (const char* method :
         {"set_app_info", "remove_app", "update_config_table", "truncate_widgetinfo_table",
          "reset_for_corvane_reset", "update_app_item", "reset_config_table", "reset_app_user_data"}) {
        EXPECT_TRUE(m_Store.Handles(method)) << method;
    }
    EXPECT_FALSE(m_Store.Handles("process_result"));
    EXPECT_FALSE(m_Store.Handles(nullptr));
    EXPECT_EQ(Apply("process_result", nullptr), 0);
}

TEST_F(StoreTest, SetAppInfoUpdatesOrInsertsAsAsked) {
    _APPINFO_T changed = DistinctRecord("a", 9);
    changed.title = "it's \"new\" – ünï";
    std::string json = CAppDBInfo::m_MakeAppInfoJson(changed);
    EXPECT_EQ(Apply("set_app_info", g_variant_new("(isi)", 1, json.c_str(), 0)), 1);
    EXPECT_TRUE(SameRecord(changed, Read("a")));
    // The same record as a new app: its id is taken.
    EXPECT_EQ(Apply("set_app_info", g_variant_new("(isi)", 2, json.c_str(), 0)), 0);

    _APPINFO_T fresh = DistinctRecord("fresh", 4);
    std::string freshJson = CAppDBInfo::m_MakeAppInfoJson(fresh);
    EXPECT_EQ(Apply("set_app_info", g_variant_new("(isi)", 1, freshJson.c_str(), 0)), 0);
    EXPECT_EQ(Apply("set_app_info", g_variant_new("(isi)", 2, freshJson.c_str(), 0)), 1);
    EXPECT_TRUE(SameRecord(fresh, Read("fresh")));
    EXPECT_EQ(ReadAppIds(BackupDBPath()).size(), 4u);

    EXPECT_EQ(Apply("set_app_info", g_variant_new("(isi)", 1, "not json", 0)), 0);
    EXPECT_EQ(Apply("set_app_info", g_variant_new("(isi)", 1, "{\"id\": \"a\", \"app_type\": \"4\"}", 0)), 0);
    EXPECT_EQ(Apply("set_app_info", g_variant_new("(s)", json.c_str())), 0);
}

TEST_F(StoreTest, SetAppInfoKeepsFailedMemoryReports) {
    EXPECT_EQ(Apply("set_app_info", g_variant_new("(isi)", FAILED_INFO_TYPE_INSTALL, "app x: 'no space'", 0)),
              1);
    EXPECT_EQ(Apply("set_app_info", g_variant_new("(isi)", FAILED_INFO_TYPE_INSTALL, "app y", 0)), 1);
    EXPECT_EQ(ReadConfigRows(DBPath())["FAILED_INSTALL_MEMORY_INFO"], "app y");
    EXPECT_EQ(Apply("set_app_info", g_variant_new("(isi)", 9, "x", 0)), 0);
}

TEST_F(StoreTest, RemoveApp) {
    EXPECT_EQ(Apply("remove_app", g_variant_new("(s)", "b")), 1);
    EXPECT_EQ(ReadAppIds(DBPath()), (std::vector<std::string>{"3201904018125", "a"}));
    EXPECT_EQ(ReadAppIds(BackupDBPath()), ReadAppIds(DBPath()));
    EXPECT_EQ(Apply("remove_app", g_variant_new("(i)", 1)), 0);
}

TEST_F(StoreTest, UpdateConfigTableAddsMissingKeys) {
    EXPECT_EQ(Apply("update_config_table", g_variant_new("(ss)", "RESERVED_17", "a,b")), 1);
    EXPECT_EQ(Apply("update_config_table", g_variant_new("(ss)", "SYNC_STATE", "it's 2")), 1);
    std::map<std::string, std::string> rows = ReadConfigRows(DBPath());
    EXPECT_EQ(rows["RESERVED_17"], "a,b");
    EXPECT_EQ(rows["SYNC_STATE"], "it's 2");
    EXPECT_EQ(ReadConfigRows(BackupDBPath())["SYNC_STATE"], "it's 2");
}

TEST_F(StoreTest, TruncateKeepsTheFixedAppsWhenAsked) {
    EXPECT_EQ(Apply("truncate_widgetinfo_table", g_variant_new("(i)", 1)), 1);
    EXPECT_EQ(ReadAppIds(DBPath()), (std::vector<std::string>{"3201904018125"}));
    EXPECT_EQ(ReadAppIds(BackupDBPath()), ReadAppIds(DBPath()));
    EXPECT_EQ(Apply("truncate_widgetinfo_table", g_variant_new("(i)", 0)), 1);
    EXPECT_TRUE(ReadAppIds(DBPath()).empty());
}

TEST_F(StoreTest, ResetForCorvaneResetClearsTheHomeArrangement) {
    EXPECT_EQ(Apply("reset_for_corvane_reset", nullptr), 1);
    EXPECT_EQ(Apply("reset_for_corvane_reset", g_variant_new("()")), 1);
    for (const char* id : {"a", "b", "3201904018125"}) {
        _APPINFO_T expected = DistinctRecord(id, std::string(id) == "a" ? 1 : std::string(id) == "b" ? 2 : 3);
        expected.takorder = 0;
        expected.is_hidden = false;
        expected.is_ticker = false;
        EXPECT_TRUE(SameRecord(expected, Read(id)));
    }
    EXPECT_EQ(Apply("reset_for_corvane_reset", g_variant_new("(i)", 1)), 0);
}

TEST_F(StoreTest, UpdateAppItemForOneAppOrEvery) {
    EXPECT_EQ(
        Apply("update_app_item", g_variant_new("(siiis)", "a", APPINFO_UPDATE_KEY_NEED_RESET, 0, 1, "")), 1);
    EXPECT_TRUE(Read("a").is_need_reset);
    EXPECT_EQ(Read("b").is_need_reset, DistinctRecord("b", 2).is_need_reset);

    EXPECT_EQ(Apply("update_app_item", g_variant_new("(siiis)", "", APPINFO_UPDATE_KEY_LOCK, 0, 0, "")), 1);
    EXPECT_EQ(Apply("update_app_item", g_variant_new("(siiis)", "", APPINFO_UPDATE_KEY_USE_COUNT, 0, 0, "")),
              1);
    EXPECT_EQ(
        Apply("update_app_item", g_variant_new("(siiis)", "", APPINFO_UPDATE_KEY_LAUNCH_DATE, 1, 0, "")), 1);
    for (const char* id : {"a", "b", "3201904018125"}) {
        _APPINFO_T info = Read(id);
        EXPECT_FALSE(info.is_lock);
        EXPECT_EQ(info.use_count, 0);
        EXPECT_EQ(info.launch_date, "");
    }
    // Unknown key, and a value kind that does not suit the column.
    EXPECT_EQ(Apply("update_app_item", g_variant_new("(siiis)", "a", 99, 0, 1, "")), 0);
    EXPECT_EQ(
        Apply("update_app_item", g_variant_new("(siiis)", "a", APPINFO_UPDATE_KEY_LAUNCH_DATE, 0, 5, "")), 0);
    EXPECT_EQ(Apply("update_app_item", g_variant_new("(siiis)", "a", APPINFO_UPDATE_KEY_LOCK, 1, 0, "x")), 0);
}

TEST_F(StoreTest, ResetConfigTableAndUserData) {
    EXPECT_EQ(Apply("reset_config_table", nullptr), 1);
    std::map<std::string, std::string> rows = ReadConfigRows(DBPath());
    EXPECT_EQ(rows["SYNC_STATE"], "0");
    EXPECT_EQ(rows["RESERVED_2"], "");
    EXPECT_EQ(rows["RESERVED_5"], "y");

    EXPECT_EQ(Apply("reset_app_user_data", nullptr), 1);
    _APPINFO_T a = Read("a");
    EXPECT_EQ(a.use_count, 0);
    EXPECT_EQ(a.launch_date, "");
    EXPECT_FALSE(a.is_lock);
    EXPECT_EQ(a.title, DistinctRecord("a", 1).title);
}

TEST(AppInfoJson, RoundTripsEveryField) {
    _APPINFO_T info = DistinctRecord("Ünïcødé \"id\"", 6);
    _APPINFO_T parsed;
    ASSERT_TRUE(CAppDBInfo::ParseAppInfoJson(CAppDBInfo::m_MakeAppInfoJson(info), parsed));
    EXPECT_TRUE(SameRecord(info, parsed));
    // Absent members keep the defaults; flags may come as numbers.
    ASSERT_TRUE(
        CAppDBInfo::ParseAppInfoJson("{\"id\": \"x\", \"is_need_reset\": 1, \"app_type\": 4}", parsed));
    _APPINFO_T expected;
    expected.id = "x";
    expected.is_need_reset = true;
    expected.app_type = 4;
    EXPECT_TRUE(SameRecord(expected, parsed));
    EXPECT_FALSE(CAppDBInfo::ParseAppInfoJson("{\"title\": \"no id\"}", parsed));
    EXPECT_FALSE(CAppDBInfo::ParseAppInfoJson("[1, 2]", parsed));
}

class SeedTest : public DbTest {};

TEST_F(SeedTest, SeededDatabaseHasTheMixTheResetsNeed) {
    ASSERT_TRUE(SeedAppDatabase(200));
    ASSERT_NE(CTAKDBConnection::GetInstance(false), nullptr);
    std::list<_APPINFO_T> apps = CAppDBInfo::GetAllAppList();
    ASSERT_EQ(apps.size(), 200u);
    int native = 0, disabled = 0, front = 0, usb = 0, mixedCase = 0;
    std::set<std::string> packages;
    for (const auto& app : apps) {
        native += app.app_type == 4;
        disabled += app.reserved_tinyint_1 != 0;
        front += app.reserved_tinyint_2 != 0;
        usb += app.is_usb_app;
        mixedCase += app.id.find_first_of("ABCDEFGHJKMNPQRSTUVWXYZ") != std::string::npos;
        packages.insert(app.pkgname);
        EXPECT_EQ(app.install_state, 3);
        EXPECT_FALSE(app.is_need_reset);
    }
    EXPECT_EQ(native, 20);
    EXPECT_GT(disabled, 20);
    EXPECT_GT(front, 15);
    EXPECT_GT(usb, 5);
    EXPECT_EQ(mixedCase, 40);
    EXPECT_EQ(packages.size(), 200u);
    _APPINFO_T info;
    for (const char* id : {"3201903017943", "3201904018125", "3202001019917"}) {
        ASSERT_TRUE(CAppDBInfo::GetAppInfoById(id, info, true)) << id;
        EXPECT_NE(info.app_type, 4);
        EXPECT_EQ(info.reserved_tinyint_1, 0);
    }

    std::map<std::string, std::string> defaults;
    ASSERT_TRUE(CTAKUtil::GetPreinstallApps(0, defaults));
    EXPECT_EQ(defaults.size(), 21u);  // the native apps and one that is not installed
    EXPECT_EQ(defaults.count("3201700000001"), 1u);
    std::map<std::string, std::string> general;
    ASSERT_TRUE(CTAKUtil::GetPreinstallApps(1, general));
    EXPECT_EQ(general.size(), 2u);
    EXPECT_EQ(CTAKUtil::GetTAKUninstallReason(2), 2);

    std::map<std::string, std::string> rows = ReadConfigRows(DBPath());
    for (unsigned i = 0; i < CTAKConfig::RESET_KEY_COUNT; ++i) {
        EXPECT_FALSE(rows[CTAKConfig::RESET_KEYS[i]].empty()) << CTAKConfig::RESET_KEYS[i];
    }
    for (const char* key :
         {"RESET_TYPE", "HOME_TEST_LIST", "KORBIT_SYNC_STATE", "SYNC_STATE", "RESERVED_17"}) {
        EXPECT_EQ(rows.count(key), 1u) << key;
    }
    // The backup is the same file, so a restore gives the seeded state back.
    EXPECT_EQ(ReadFile(BackupDBPath()), ReadFile(DBPath()));
}

TEST_F(SeedTest, SameCountGivesTheSameDatabase) {
    ASSERT_TRUE(SeedAppDatabase(3));
    std::vector<std::string> first = ReadAppIds(DBPath());
    EXPECT_EQ(first, (std::vector<std::string>{"3201903017943", "3201904018125", "3202001019917"}));
    ASSERT_TRUE(SeedAppDatabase(0));
    EXPECT_TRUE(ReadAppIds(DBPath()).empty());
    ASSERT_TRUE(SeedAppDatabase(3));
    EXPECT_EQ(ReadAppIds(DBPath()), first);
    EXPECT_FALSE(SeedAppDatabase(-1));
}
