// The app-info table: every column in and out, the orders, removal by package, updates, backups.
#include <gtest/gtest.h>

#include "AppDBInfo.h"
#include "DbTestSupport.h"
#include "TAKDBConnection.h"
#include "WidgetInfoDB.h"

using namespace dbtest;

namespace {

class WidgetInfoTest : public DbTest {
protected:
    // The writer side: the daemon's read-write connection, with a backup directory in place.
    void OpenAsDaemon() { ASSERT_NE(CTAKDBConnection::GetInstance(true), nullptr); }
    void OpenAsReader() { ASSERT_NE(CTAKDBConnection::GetInstance(false), nullptr); }

    static std::vector<std::string> Ids(const std::list<_APPINFO_T>& apps) {
        std::vector<std::string> ids;
        for (const auto& app : apps) {
            ids.push_back(app.id);
        }
        return ids;
    }
};

}  // namespace

TEST(AppRecord, DefaultsMarkTheUnsettledTexts) {
    _APPINFO_T info;
    EXPECT_EQ(info.pkg_type, "undefined");
    EXPECT_EQ(info.rating, "not confirmed");
    EXPECT_EQ(info.id, "");
    EXPECT_EQ(info.app_type, 0);
    EXPECT_FALSE(info.is_need_reset);
    EXPECT_EQ(info.reserved_tinyint_1, 0);
}

TEST_F(WidgetInfoTest, InsertedRecordReadsBackColumnForColumn) {
    OpenAsDaemon();
    CWidgetInfoDB table;
    _APPINFO_T written = DistinctRecord("app.one", 3);
    ASSERT_TRUE(table.InsertAppInfo(written));

    _APPINFO_T byId;
    ASSERT_TRUE(CAppDBInfo::GetAppInfoById("app.one", byId, false));
    EXPECT_TRUE(SameRecord(written, byId));

    _APPINFO_T byPackage;
    ASSERT_TRUE(CAppDBInfo::GetAppInfoById(written.pkgname, byPackage, false));
    EXPECT_TRUE(SameRecord(written, byPackage));

    _APPINFO_T byRunTitle;
    ASSERT_TRUE(CAppDBInfo::GetAppInfoByRunTitle(written.run_title, byRunTitle, false));
    EXPECT_TRUE(SameRecord(written, byRunTitle));
}

TEST_F(WidgetInfoTest, RowWrittenByOthersReadsWithTheReadOnlyConnection) {
    _APPINFO_T written = DistinctRecord("Ünïcødé 'id'", 5);
    written.title = "  it's \"a\" title – 日本  ";
    ASSERT_TRUE(InsertApps(DBPath(), {written}));
    OpenAsReader();
    _APPINFO_T read;
    ASSERT_TRUE(CAppDBInfo::GetAppInfoById(written.id, read, false));
    EXPECT_TRUE(SameRecord(written, read));
}

TEST_F(WidgetInfoTest, UsableLookUpNeedsInstalledAvailableAndNoPendingReset) {
    _APPINFO_T usable = DistinctRecord("usable", 1);
    usable.install_state = 3;
    usable.is_app_available = true;
    usable.is_need_reset = false;
    _APPINFO_T resetting = usable;
    resetting.id = "resetting";
    resetting.pkgname = "resetting.pkg";
    resetting.is_need_reset = true;
    _APPINFO_T installing = usable;
    installing.id = "installing";
    installing.pkgname = "installing.pkg";
    installing.install_state = 1;
    installing.run_title = "installing title";
    ASSERT_TRUE(InsertApps(DBPath(), {usable, resetting, installing}));
    OpenAsReader();

    _APPINFO_T info;
    EXPECT_TRUE(CAppDBInfo::GetAppInfoById("usable", info, true));
    EXPECT_FALSE(CAppDBInfo::GetAppInfoById("resetting", info, true));
    EXPECT_TRUE(CAppDBInfo::GetAppInfoById("resetting", info, false));
    EXPECT_FALSE(CAppDBInfo::GetAppInfoById("installing", info, true));
    EXPECT_FALSE(CAppDBInfo::GetAppInfoByRunTitle(installing.run_title, info, true));
    EXPECT_FALSE(CAppDBInfo::GetAppInfoById("", info, false));
}

TEST_F(WidgetInfoTest, MissingAppLeavesTheRecordUntouched) {
    OpenAsReader();
    _APPINFO_T info;
    info.title = "keep";
    EXPECT_FALSE(CAppDBInfo::GetAppInfoById("nobody", info, false));
    EXPECT_EQ(info.title, "keep");
}

TEST_F(WidgetInfoTest, ListsComeInBothOrders) {
    std::vector<_APPINFO_T> apps;
    const std::vector<std::pair<std::string, int>> rows = {
        {"beta", 1}, {"Alpha", 3}, {"gamma", 0}, {"alpha2", 2}};
    for (size_t i = 0; i < rows.size(); ++i) {
        apps.push_back(DistinctRecord(rows[i].first, static_cast<int>(i)));
        apps.back().app_index = rows[i].second;
    }
    ASSERT_TRUE(InsertApps(DBPath(), apps));
    OpenAsReader();

    CWidgetInfoDB table;
    std::list<_APPINFO_T> byIndex;
    ASSERT_TRUE(table.GetAllWidgetsInfo(byIndex));
    EXPECT_EQ(Ids(byIndex), (std::vector<std::string>{"gamma", "beta", "alpha2", "Alpha"}));

    // upper(id): "Alpha" sorts with the lower-case ids, not before every lower-case one by byte value.
    EXPECT_EQ(Ids(CAppDBInfo::GetAllAppList()),
              (std::vector<std::string>{"Alpha", "alpha2", "beta", "gamma"}));
    EXPECT_EQ(CAppDBInfo::GetAllAppString(), "Alpha,alpha2,beta,gamma,");

    std::list<_APPINFO_T> some;
    ASSERT_TRUE(table.GetAppListByParam(some, "app_index >= 2 order by id"));
    EXPECT_EQ(Ids(some), (std::vector<std::string>{"Alpha", "alpha2"}));
    for (const auto& app : some) {
        EXPECT_TRUE(SameRecord(app.id == "Alpha" ? apps[1] : apps[3], app));
    }
}

TEST_F(WidgetInfoTest, EmptyTableGivesFalseAndKeepsTheList) {
    OpenAsReader();
    CWidgetInfoDB table;
    std::list<_APPINFO_T> apps(1);
    apps.front().id = "kept";
    EXPECT_FALSE(table.GetAllWidgetsInfoOrderById(apps));
    ASSERT_EQ(apps.size(), 1u);
    EXPECT_EQ(apps.front().id, "kept");
    EXPECT_TRUE(CAppDBInfo::GetAllAppList().empty());
    EXPECT_EQ(CAppDBInfo::GetAllAppString(), "");
}

TEST_F(WidgetInfoTest, RemoveAppInfoRemovesTheWholePackage) {
    _APPINFO_T a = DistinctRecord("a", 1);
    _APPINFO_T b = DistinctRecord("b", 2);
    _APPINFO_T c = DistinctRecord("c", 3);
    a.pkgname = b.pkgname = "shared.pkg";
    ASSERT_TRUE(InsertApps(DBPath(), {a, b, c}));
    OpenAsDaemon();
    CWidgetInfoDB table;
    EXPECT_TRUE(table.RemoveAppInfo("shared.pkg"));
    EXPECT_EQ(ReadAppIds(DBPath()), (std::vector<std::string>{"c"}));
    EXPECT_TRUE(table.RemoveAppInfoById("c"));
    EXPECT_TRUE(ReadAppIds(DBPath()).empty());
}

TEST_F(WidgetInfoTest, UpdatesChangeTheirColumnsOnly) {
    _APPINFO_T a = DistinctRecord("a", 1);
    _APPINFO_T b = DistinctRecord("b", 2);
    ASSERT_TRUE(InsertApps(DBPath(), {a, b}));
    OpenAsDaemon();
    CWidgetInfoDB table;

    ASSERT_TRUE(table.UpdateAppsKeyValue("launch_date = ?", std::string("it's 2024"), "a"));
    ASSERT_TRUE(table.UpdateAppsKeyValue("use_count = ?", 9, "b", ""));
    ASSERT_TRUE(table.UpdateAppUpdateInfo("a", "2.0.1", true, true));
    a.launch_date = "it's 2024";
    b.use_count = 9;
    a.reserved_string_13 = "2.0.1";
    a.is_need_update = true;
    a.reserved_tinyint_11 = 1;

    _APPINFO_T read;
    ASSERT_TRUE(CAppDBInfo::GetAppInfoById("a", read, false));
    EXPECT_TRUE(SameRecord(a, read));
    ASSERT_TRUE(CAppDBInfo::GetAppInfoById("b", read, false));
    EXPECT_TRUE(SameRecord(b, read));

    // An empty id stands for every app; a further condition narrows it.
    ASSERT_TRUE(table.UpdateAppsKeyValue("is_lock = ?", 1, "", ""));
    ASSERT_TRUE(table.UpdateAppsKeyValue("takorder = ?", 4, "", "id = 'b'"));
    ASSERT_TRUE(table.UpdateAppsKeyValue("hbbTV = ?", 6, "a", "app_type = -1"));
    ASSERT_TRUE(CAppDBInfo::GetAppInfoById("a", read, false));
    EXPECT_TRUE(read.is_lock);
    EXPECT_EQ(read.takorder, a.takorder);
    EXPECT_EQ(read.hbbTV, a.hbbTV);
    ASSERT_TRUE(CAppDBInfo::GetAppInfoById("b", read, false));
    EXPECT_TRUE(read.is_lock);
    EXPECT_EQ(read.takorder, 4);

    _APPINFO_T changed = DistinctRecord("a", 7);
    ASSERT_TRUE(table.UpdateAppInfo(changed));
    ASSERT_TRUE(CAppDBInfo::GetAppInfoById("a", read, false));
    EXPECT_TRUE(SameRecord(changed, read));
}

TEST_F(WidgetInfoTest, SuccessfulWritesAreBackedUpFailedOnesAreNot) {
    OpenAsDaemon();
    CWidgetInfoDB table;
    ASSERT_TRUE(table.InsertAppInfo(DistinctRecord("a", 1)));
    EXPECT_EQ(ReadAppIds(BackupDBPath()), (std::vector<std::string>{"a"}));

    // A duplicate id fails, and the backup keeps the state before it.
    ASSERT_TRUE(ExecSql(BackupDBPath(), "delete from widgetinfo"));
    EXPECT_FALSE(table.InsertAppInfo(DistinctRecord("a", 2)));
    EXPECT_TRUE(ReadAppIds(BackupDBPath()).empty());

    ASSERT_TRUE(table.RemoveAppInfo(DistinctRecord("a", 1).pkgname));
    ASSERT_TRUE(InsertApps(BackupDBPath(), {DistinctRecord("stale", 1)}));
    ASSERT_TRUE(table.UpdateAppsKeyValue("use_count = ?", 1, "", ""));
    EXPECT_TRUE(ReadAppIds(BackupDBPath()).empty());
}
