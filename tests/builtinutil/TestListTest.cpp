// The test list kept in the configuration table (RESERVED_16), through the table hooks with an in-memory
// table.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "BuiltInAppUtil.h"
#include "TAKConfigHandle.h"

namespace {

// A missing key cannot be read, as in the real table: the same failure as g_failRead.
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

class TestListTest : public ::testing::Test {
protected:
    void SetUp() override {
        g_table.clear();
        CTAKConfigHandle::SetGetConfigTableHandle(GetConfig);
        CTAKConfigHandle::SetUpdateConfigTableHandle(UpdateConfig);
    }
    void TearDown() override {
        g_failRead = g_failWrite = false;
        CTAKConfigHandle::SetGetConfigTableHandle(nullptr);
        CTAKConfigHandle::SetUpdateConfigTableHandle(nullptr);
    }
};

// An update records an app once, in place, dropping later duplicates and entries that are not two fields;
// a removal takes every entry of the package or the app. Nothing changed is nothing written; an id that
// would break the list, or a table that cannot be read or written, changes nothing.
TEST_F(TestListTest, UpdateAndRemoveKeepOneWellFormedList) {
    struct Case {
        const char* name;
        std::string before;
        bool update;  // update: app `first` of package `second`; remove: package `first` or app `second`
        std::string first, second;
        bool result;
        std::string after;
        int writes;
        bool failRead, failWrite;
    };
    const Case cases[] = {
        {"into an empty list", "", true, "a", "p", true, "a,p", 1, false, false},
        {"appended", "x,1", true, "a", "p", true, "x,1;a,p", 1, false, false},
        {"replaced in place", "x,1;a,old;y,2", true, "a", "new", true, "x,1;a,new;y,2", 1, false, false},
        {"later duplicates dropped", "a,1;b,2;a,3", true, "a", "9", true, "a,9;b,2", 1, false, false},
        {"foreign entries dropped", "junk;b,2;c,3,4", true, "a", "1", true, "b,2;a,1", 1, false, false},
        {"comma in app id", "x,1", true, "a,b", "p", false, "x,1", 0, false, false},
        {"empty app id", "x,1", true, "", "p", false, "x,1", 0, false, false},
        {"remove by either", "a,p;b,q;c,r", false, "p", "c", true, "b,q", 1, false, false},
        {"empty ids match no empty field", "a,;b,q", false, "q", "", true, "a,", 1, false, false},
        {"nothing matches", "a,p", false, "x", "y", true, "a,p", 0, false, false},
        {"last entry", "a,p", false, "p", "a", true, "", 1, false, false},
        {"both ids empty", "a,p", false, "", "", false, "a,p", 0, false, false},
        {"separator in an id", "a,p", false, "p;", "a", false, "a,p", 0, false, false},
        {"update, read fails", "a,p", true, "b", "q", false, "a,p", 0, true, false},
        {"remove, write fails", "a,p", false, "p", "a", false, "a,p", 0, false, true},
        {"no change needs no write", "a,p", true, "a", "p", true, "a,p", 0, false, true},
    };
    for (const auto& c : cases) {
        g_table["RESERVED_16"] = c.before;
        g_failRead = c.failRead;
        g_failWrite = c.failWrite;
        g_writes = 0;
        OPENAPI_BUILTIN_APP_INFO app;
        app.appId = c.first;
        app.pkgId = c.second;
        EXPECT_EQ(c.update ? CBuiltInAppUtil::UpdateTestList(app)
                           : CBuiltInAppUtil::RemoveFromTestList(c.first, c.second),
                  c.result)
            << c.name;
        EXPECT_EQ(g_table["RESERVED_16"], c.after) << c.name;
        EXPECT_EQ(g_writes, c.writes) << c.name;
    }
}

// The parsing itself is the parser test's; a table that cannot be read empties the list.
TEST_F(TestListTest, HomeTestListComesFromTheTable) {
    std::vector<HOME_TEST_APP> list = {HOME_TEST_APP{"stale", "", "", "", "", ""}};
    g_table["HOME_TEST_LIST"] = "a,p,1,g,t;b,q,2";
    ASSERT_TRUE(CBuiltInAppUtil::GetHomeTestAppDBInfo(list));
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].pkgId, "p");
    g_failRead = true;
    EXPECT_FALSE(CBuiltInAppUtil::GetHomeTestAppDBInfo(list));
    EXPECT_TRUE(list.empty());
}

}  // namespace
