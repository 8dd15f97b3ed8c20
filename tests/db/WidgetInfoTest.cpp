// The app table: every column in and out, look-ups, lists and removal by package.
#include "DbTestSupport.h"
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
    EXPECT_TRUE(CAppDBInfo::GetAppInfoById("usable", info, true) &&
                CAppDBInfo::GetAppInfoById("resetting", info, false));
    EXPECT_FALSE(CAppDBInfo::GetAppInfoById("resetting", info, true) ||
                 CAppDBInfo::GetAppInfoById("installing", info, true) ||
                 CAppDBInfo::GetAppInfoByRunTitle("installing", info, true) ||
                 CAppDBInfo::GetAppInfoById("", info, false));
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
