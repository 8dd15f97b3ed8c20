// The app table (every column in and out, look-ups, lists, removal by package, backups after successful
// writes), what the stand-in daemon refuses or resets, and the seeded database of a fresh host root.
#include "AppDatabaseSeed.h"
#include "DbTestSupport.h"
#include "InnerServerStore.h"
#include "TAKUtil.h"
#include "WidgetInfoDB.h"

using namespace dbtest;

namespace {

std::vector<std::string> Ids(const std::list<_APPINFO_T>& apps) {
    std::vector<std::string> ids;
    for (const auto& app : apps) {
        ids.push_back(app.id);
    }
    return ids;
}

using WidgetInfoTest = DbTest;

}  // namespace

TEST_F(WidgetInfoTest, EveryColumnReadsBackByIdPackageAndRunTitle) {
    _APPINFO_T foreign = DistinctRecord("Ünïcødé 'id'", 5), sibling = DistinctRecord("sibling", 6);
    foreign.title = "  it's \"a\" title – 日本  ";  // written by another process
    ASSERT_TRUE(InsertApps(DBPath(), {foreign}));
    ASSERT_NE(CTAKDBConnection::GetInstance(true), nullptr);
    _APPINFO_T written = DistinctRecord("app.one", 3), read;
    sibling.pkgname = written.pkgname;
    ASSERT_TRUE(CWidgetInfoDB().InsertAppInfo(written) && CWidgetInfoDB().InsertAppInfo(sibling));
    EXPECT_TRUE(SameRecord(written, ReadApp("app.one")));
    EXPECT_TRUE(SameRecord(foreign, ReadApp(foreign.id)));
    ASSERT_TRUE(CAppDBInfo::GetAppInfoByRunTitle(written.run_title, read, false));
    EXPECT_TRUE(SameRecord(written, read));
    read.title = "keep";
    EXPECT_TRUE(!CAppDBInfo::GetAppInfoById("nobody", read, false) && read.title == "keep");
    // A package names an app too; removal by package removes every app of it.
    EXPECT_TRUE(CAppDBInfo::GetAppInfoById(written.pkgname, read, false) && read.pkgname == written.pkgname);
    EXPECT_TRUE(CWidgetInfoDB().RemoveAppInfo(written.pkgname));
    EXPECT_EQ(ReadAppIds(DBPath()), (std::vector<std::string>{foreign.id}));
}

TEST_F(WidgetInfoTest, UsableLookUpNeedsInstalledAvailableAndNoPendingReset) {
    _APPINFO_T usable = DistinctRecord("usable", 1);
    usable.install_state = 3;
    usable.is_app_available = true;
    usable.is_need_reset = false;
    _APPINFO_T resetting = usable, installing = usable;
    resetting.id = resetting.pkgname = "resetting";
    resetting.is_need_reset = true;
    installing.id = installing.pkgname = installing.run_title = "installing";
    installing.install_state = 1;
    ASSERT_TRUE(InsertApps(DBPath(), {usable, resetting, installing}));
    _APPINFO_T info;
    EXPECT_TRUE(CAppDBInfo::GetAppInfoById("usable", info, true));
    EXPECT_TRUE(CAppDBInfo::GetAppInfoById("resetting", info, false));
    EXPECT_FALSE(CAppDBInfo::GetAppInfoById("resetting", info, true));
    EXPECT_FALSE(CAppDBInfo::GetAppInfoById("installing", info, true));
    EXPECT_FALSE(CAppDBInfo::GetAppInfoByRunTitle("installing", info, true));
    EXPECT_FALSE(CAppDBInfo::GetAppInfoById("", info, false));
}

TEST_F(WidgetInfoTest, ListsComeInBothOrders) {
    ASSERT_NE(CTAKDBConnection::GetInstance(false), nullptr);
    CWidgetInfoDB table;
    std::list<_APPINFO_T> apps(1);  // an empty table gives false and leaves the list alone
    EXPECT_TRUE(!table.GetAllWidgetsInfoOrderById(apps) && apps.size() == 1);
    std::vector<_APPINFO_T> rows;
    for (const auto& [id, index] :
         std::vector<std::pair<std::string, int>>{{"beta", 1}, {"Delta", 3}, {"gamma", 0}, {"alpha", 2}}) {
        rows.push_back(DistinctRecord(id, index));
        rows.back().app_index = index;
    }
    ASSERT_TRUE(InsertApps(DBPath(), rows));
    ASSERT_TRUE(table.GetAllWidgetsInfo(apps));
    EXPECT_EQ(Ids(apps), (std::vector<std::string>{"gamma", "beta", "alpha", "Delta"}));
    // upper(id): "Delta" sorts among the lower-case ids, not before every one of them by byte value.
    EXPECT_EQ(Ids(CAppDBInfo::GetAllAppList()),
              (std::vector<std::string>{"alpha", "beta", "Delta", "gamma"}));
    EXPECT_EQ(CAppDBInfo::GetAllAppString(), "alpha,beta,Delta,gamma,");
    EXPECT_TRUE(SameRecord(rows[3], CAppDBInfo::GetAllAppList().front()));
}

TEST_F(WidgetInfoTest, UsbLists) {
    _APPINFO_T plain = DistinctRecord("plain", 1), on = DistinctRecord("usb.on", 2),
               off = DistinctRecord("USB.off", 3);
    plain.is_usb_app = false;
    on.is_usb_app = on.is_app_available = off.is_usb_app = true;
    off.is_app_available = false;
    ASSERT_TRUE(InsertApps(DBPath(), {plain, on, off}));
    std::list<_APPINFO_T> apps;
    ASSERT_TRUE(CAppDBInfo::GetUsbAppsInfo(apps));
    EXPECT_EQ(Ids(apps), (std::vector<std::string>{"USB.off", "usb.on"}));
    ASSERT_TRUE(CAppDBInfo::GetUnAvailableUsbAppsInfo(apps));
    EXPECT_EQ(Ids(apps), (std::vector<std::string>{"USB.off"}));
}

TEST_F(WidgetInfoTest, SuccessfulWritesAreBackedUpFailedOnesAreNot) {
    ASSERT_NE(CTAKDBConnection::GetInstance(true), nullptr);
    CWidgetInfoDB table;
    ASSERT_TRUE(table.InsertAppInfo(DistinctRecord("a", 1)));
    EXPECT_EQ(ReadAppIds(BackupDBPath()), (std::vector<std::string>{"a"}));
    ASSERT_TRUE(ExecSql(BackupDBPath(), "delete from widgetinfo"));
    EXPECT_FALSE(table.InsertAppInfo(DistinctRecord("a", 2)));  // a duplicate id
    EXPECT_TRUE(ReadAppIds(BackupDBPath()).empty());
    ASSERT_TRUE(InsertApps(BackupDBPath(), {DistinctRecord("stale", 1)}));
    ASSERT_TRUE(table.RemoveAppInfo(DistinctRecord("a", 1).pkgname));
    EXPECT_TRUE(ReadAppIds(BackupDBPath()).empty());
}

TEST_F(WidgetInfoTest, DaemonRefusesWhatItCannotApplyAndResets) {
    ASSERT_TRUE(InsertApps(DBPath(), {DistinctRecord("a", 1), DistinctRecord("b", 2)}));
    ASSERT_TRUE(InsertConfigRows(DBPath(), {{"SYNC_STATE", "1"}, {"RESERVED_2", "x"}, {"RESERVED_5", "y"}}));
    CInnerServerStore store;
    ASSERT_TRUE(store.Open());
    auto apply = [&](const char* method, GVariant* parameters) {
        g_autoptr(GVariant) owned = parameters != nullptr ? g_variant_ref_sink(parameters) : nullptr;
        return store.Apply(method, owned);
    };
    const std::string fresh = CAppDBInfo::m_MakeAppInfoJson(DistinctRecord("fresh", 1));
    for (const auto& [method, parameters] : std::vector<std::pair<const char*, GVariant*>>{
             {"process_result", nullptr},
             {"set_app_info", g_variant_new("(isi)", 1, "{\"id\": \"a\", \"app_type\": \"4\"}", 0)},
             {"set_app_info", g_variant_new("(isi)", 1, fresh.c_str(), 0)},  // no row to update
             {"set_app_info", g_variant_new("(s)", fresh.c_str())},
             {"set_app_info", g_variant_new("(isi)", 9, "x", 0)},
             {"reset_for_corvane_reset", g_variant_new("(i)", 1)},
             {"update_app_item", g_variant_new("(siiis)", "a", 99, 0, 1, "")},
             {"update_app_item", g_variant_new("(siiis)", "a", APPINFO_UPDATE_KEY_LAUNCH_DATE, 0, 5, "")}}) {
        EXPECT_EQ(apply(method, parameters), 0) << method;
    }
    EXPECT_TRUE(SameRecord(DistinctRecord("a", 1), ReadApp("a")));

    EXPECT_EQ(apply("update_config_table", g_variant_new("(ss)", "RESERVED_17", "a,b")), 1);  // a new row
    EXPECT_EQ(apply("reset_config_table", nullptr), 1);
    std::map<std::string, std::string> rows = ReadConfigRows(DBPath());
    EXPECT_EQ(
        rows["SYNC_STATE"] + "|" + rows["RESERVED_2"] + "|" + rows["RESERVED_5"] + "|" + rows["RESERVED_17"],
        "0||y|a,b");
    EXPECT_EQ(rows.count("RESERVED_8"), 0u) << "a reset key without a row gets none";
    EXPECT_EQ(apply("reset_app_user_data", nullptr), 1);
    _APPINFO_T expected = DistinctRecord("b", 2);
    expected.use_count = 0;
    expected.launch_date = "";
    expected.is_lock = false;
    EXPECT_TRUE(SameRecord(expected, ReadApp("b")));
    EXPECT_EQ(apply("truncate_widgetinfo_table", g_variant_new("(i)", 0)), 1);
    EXPECT_TRUE(ReadAppIds(DBPath()).empty());
    EXPECT_TRUE(ReadAppIds(BackupDBPath()).empty());
}

TEST_F(WidgetInfoTest, SeededDatabaseHasTheMixTheResetsNeed) {
    ASSERT_TRUE(SeedAppDatabase(200));
    std::list<_APPINFO_T> apps = CAppDBInfo::GetAllAppList();
    ASSERT_EQ(apps.size(), 200u);
    int native = 0, disabled = 0, front = 0, usb = 0, mixedCase = 0, waiting = 0;
    for (const auto& app : apps) {
        native += app.app_type == 4;
        disabled += app.reserved_tinyint_1 != 0;
        front += app.reserved_tinyint_2 != 0;
        usb += app.is_usb_app;
        mixedCase += app.id.find_first_of("ABCDEFGHJKMNPQRSTUVWXYZ") != std::string::npos;
        waiting += app.install_state != 3 || app.is_need_reset;
    }
    EXPECT_TRUE(native == 20 && disabled > 20 && front > 15 && usb > 5 && mixedCase == 40 && waiting == 0)
        << native << " " << disabled << " " << front << " " << usb << " " << mixedCase << " " << waiting;
    _APPINFO_T info;
    for (const char* id : {"3201903017943", "3201904018125", "3202001019917"}) {
        ASSERT_TRUE(CAppDBInfo::GetAppInfoById(id, info, true)) << id;
        EXPECT_TRUE(info.app_type != 4 && info.reserved_tinyint_1 == 0) << id;
    }
    std::map<std::string, std::string> defaults;
    ASSERT_TRUE(CTAKUtil::GetPreinstallApps(0, defaults));
    EXPECT_EQ(defaults.size(), 21u);  // the native apps and one that is not installed
    // The backup is the same file, so a restore gives the seeded state back; the same count gives the
    // same database.
    EXPECT_EQ(ReadWholeFile(BackupDBPath()), ReadWholeFile(DBPath()));
    std::vector<std::string> first = ReadAppIds(DBPath());
    ASSERT_TRUE(SeedAppDatabase(0) && ReadAppIds(DBPath()).empty() && SeedAppDatabase(200));
    EXPECT_EQ(ReadAppIds(DBPath()), first);
}
