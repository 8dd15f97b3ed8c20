// The lists kept in the configuration table, through the table hooks with an in-memory table.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "BuiltInAppUtil.h"
#include "TAKConfigHandle.h"
#include "TestLog.h"

namespace {

using orvix::test::LogMark;

// The in-memory configuration table: a missing key cannot be read, as in the real table.
std::map<std::string, std::string> g_table;
bool g_failRead = false;
bool g_failWrite = false;
int g_writes = 0;

bool GetConfig(const std::string& name, std::string& value) {
    auto found = g_table.find(name);
    if (g_failRead || found == g_table.end()) {
        return false;
    }
    value = found->second;
    return true;
}

bool UpdateConfig(const std::string& name, const std::string& value) {
    if (g_failWrite) {
        return false;
    }
    ++g_writes;
    g_table[name] = value;
    return true;
}

OPENAPI_BUILTIN_APP_INFO App(const std::string& appId, const std::string& pkgId) {
    OPENAPI_BUILTIN_APP_INFO app;
    app.appId = appId;
    app.pkgId = pkgId;
    return app;
}

class TestListTest : public ::testing::Test {
protected:
    void SetUp() override {
        g_table.clear();
        g_failRead = g_failWrite = false;
        g_writes = 0;
        CTAKConfigHandle::SetGetConfigTableHandle(GetConfig);
        CTAKConfigHandle::SetUpdateConfigTableHandle(UpdateConfig);
    }
    void TearDown() override {
        CTAKConfigHandle::SetGetConfigTableHandle(nullptr);
        CTAKConfigHandle::SetUpdateConfigTableHandle(nullptr);
    }
};

struct Case {
    const char* name;
    std::string before;
    std::function<bool()> operation;
    bool result;
    std::string after;  // the text in the table afterwards
    int writes;
};

void RunCases(const std::vector<Case>& cases) {
    for (const auto& c : cases) {
        g_table["RESERVED_16"] = c.before;
        g_writes = 0;
        LogMark mark;
        EXPECT_EQ(c.operation(), c.result) << c.name;
        EXPECT_EQ(g_table["RESERVED_16"], c.after) << c.name;
        EXPECT_EQ(g_writes, c.writes) << c.name;
        if (!c.result) {
            EXPECT_TRUE(mark.Contains("RESERVED_16")) << c.name << " logs nothing\n" << mark.Text();
        }
    }
}

TEST_F(TestListTest, UpdateRecordsAnAppOnceKeepingTheOrder) {
    auto update = [](const std::string& appId, const std::string& pkgId) {
        return [=] { return CBuiltInAppUtil::UpdateTestList(App(appId, pkgId)); };
    };
    RunCases({
        {"into an empty list", "", update("a", "p"), true, "a,p", 1},
        {"appended", "x,1", update("a", "p"), true, "x,1;a,p", 1},
        {"replaced in place", "x,1;a,old;y,2", update("a", "new"), true, "x,1;a,new;y,2", 1},
        {"already there: no write", "x,1;a,p", update("a", "p"), true, "x,1;a,p", 0},
        {"later duplicates dropped", "a,1;b,2;a,3", update("a", "9"), true, "a,9;b,2", 1},
        {"foreign entries dropped on write", "junk;b,2;c,3,4", update("a", "1"), true, "b,2;a,1", 1},
        {"comma in app id", "x,1", update("a,b", "p"), false, "x,1", 0},
        {"semicolon in package id", "x,1", update("a", "p;q"), false, "x,1", 0},
        {"empty app id", "x,1", update("", "p"), false, "x,1", 0},
    });
}

TEST_F(TestListTest, RemoveTakesEveryEntryOfThePackageOrTheApp) {
    auto remove = [](const std::string& pkgId, const std::string& appId) {
        return [=] { return CBuiltInAppUtil::RemoveFromTestList(pkgId, appId); };
    };
    RunCases({
        {"by package", "a,p;b,p;c,q", remove("p", ""), true, "c,q", 1},
        {"by app", "a,p;b,q", remove("", "b"), true, "a,p", 1},
        {"by either", "a,p;b,q;c,r", remove("p", "c"), true, "b,q", 1},
        {"empty ids match no empty field", "a,;b,q", remove("q", ""), true, "a,", 1},
        {"nothing matches: no write", "a,p", remove("x", "y"), true, "a,p", 0},
        {"last entry", "a,p", remove("p", "a"), true, "", 1},
        {"both ids empty", "a,p", remove("", ""), false, "a,p", 0},
        {"separator in an id", "a,p", remove("p;", "a"), false, "a,p", 0},
    });
}

TEST_F(TestListTest, TableFailuresAreReported) {
    g_failRead = true;
    RunCases({
        {"update, read fails", "a,p", [] { return CBuiltInAppUtil::UpdateTestList(App("b", "q")); }, false,
         "a,p", 0},
        {"remove, read fails", "a,p", [] { return CBuiltInAppUtil::RemoveFromTestList("p", "a"); }, false,
         "a,p", 0},
    });
    g_failRead = false;
    g_failWrite = true;
    RunCases({
        {"update, write fails", "a,p", [] { return CBuiltInAppUtil::UpdateTestList(App("b", "q")); }, false,
         "a,p", 0},
        {"remove, write fails", "a,p", [] { return CBuiltInAppUtil::RemoveFromTestList("p", "a"); }, false,
         "a,p", 0},
        {"no change needs no write", "a,p", [] { return CBuiltInAppUtil::UpdateTestList(App("a", "p")); },
         true, "a,p", 0},
    });
    g_failWrite = false;
    g_table.erase("RESERVED_16");
    EXPECT_FALSE(CBuiltInAppUtil::UpdateTestList(App("a", "p")));
    EXPECT_EQ(g_table.count("RESERVED_16"), 0u);
}

// The parsing itself is the parser test's; a table that cannot be read empties the list and says so.
TEST_F(TestListTest, HomeTestListComesFromTheTable) {
    std::vector<HOME_TEST_APP> list = {HOME_TEST_APP{"stale", "", "", "", "", ""}};
    g_table["HOME_TEST_LIST"] = "a,p,1,g,t;b,q,2";
    ASSERT_TRUE(CBuiltInAppUtil::GetHomeTestAppDBInfo(list));
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].pkgId, "p");

    g_failRead = true;
    LogMark mark;
    EXPECT_FALSE(CBuiltInAppUtil::GetHomeTestAppDBInfo(list));
    EXPECT_TRUE(list.empty());
    EXPECT_TRUE(mark.Contains("can not read HOME_TEST_LIST"));
}

}  // namespace
