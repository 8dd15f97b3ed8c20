// The list and JSON parsers of the built-in test-app utilities, on well-formed, damaged and hostile texts.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "BuiltInAppUtil.h"
#include "TestLog.h"

namespace {

using orvix::test::LogMark;
using Fields = std::vector<std::string>;

std::vector<Fields> FieldsOf(const std::vector<HOME_TEST_APP>& list) {
    std::vector<Fields> fields;
    for (const auto& app : list) {
        fields.push_back({app.appId, app.pkgId, app.version, app.groupType, app.groupTag, app.installType});
    }
    return fields;
}

using orvix::test::Count;

std::vector<Fields> Home(const std::string& text) {
    return FieldsOf(CBuiltInAppUtil::ParseHomeTestList(text));
}
std::vector<Fields> Candidates(const std::string& text) {
    return FieldsOf(CBuiltInAppUtil::ParseP0TestChangeList(text));
}
std::vector<Fields> TestList(const std::string& text) {
    std::vector<Fields> fields;
    for (const auto& app : CBuiltInAppUtil::ParseTestList(text)) {
        fields.push_back({app.appId, app.pkgId});
    }
    return fields;
}

// HOME_TEST_LIST: five fields, the table text taken byte for byte; the candidate file: six fields, blanks
// and line ends around records and fields dropped; RESERVED_16: exactly two fields. Skipped entries cost
// one log line.
TEST(ListParsers, TakeEntriesOfTheirFieldCountAndSkipOthers) {
    const struct {
        const char* name;
        std::vector<Fields> (*parse)(const std::string&);
        std::string text;
        std::vector<Fields> expected;
        const char* skipLine;  // nullptr: nothing skipped
    } cases[] = {
        {"one entry", Home, "app,pkg,1.0,grp,tag", {{"app", "pkg", "1.0", "grp", "tag", ""}}, nullptr},
        {"trailing and doubled separators",
         Home,
         ";a,p,1,g,t;;b,q,2,h,u;",
         {{"a", "p", "1", "g", "t", ""}, {"b", "q", "2", "h", "u", ""}},
         nullptr},
        {"truncated last entry",
         Home,
         "a,p,1,g,t;b,q,2",
         {{"a", "p", "1", "g", "t", ""}},
         "HOME_TEST_LIST: skipped"},
        {"no field separator at all", Home, "justtext", {}, "HOME_TEST_LIST: skipped"},
        {"extra fields ignored", Home, "a,p,1,g,t,x,y", {{"a", "p", "1", "g", "t", ""}}, nullptr},
        {"empty fields kept", Home, ",p,,,", {{"", "p", "", "", "", ""}}, nullptr},
        {"blanks are part of the value",
         Home,
         " a, p ,1,g,t\n",
         {{" a", " p ", "1", "g", "t\n", ""}},
         nullptr},
        {"NUL byte inside a field",
         Home,
         std::string("a\0b,p,1,g,t", 11),
         {{std::string("a\0b", 3), "p", "1", "g", "t", ""}},
         nullptr},
        {"one candidate a line",
         Candidates,
         "a,p,1,g,t,i;\r\n b , q ,2,h,u,j;\n",
         {{"a", "p", "1", "g", "t", "i"}, {"b", "q", "2", "h", "u", "j"}},
         nullptr},
        {"install type missing",
         Candidates,
         "a,p,1,g,t;b,q,2,h,u,j",
         {{"b", "q", "2", "h", "u", "j"}},
         "candidate list: skipped"},
        {"separators only", Candidates, ",,,,,", {{"", "", "", "", "", ""}}, nullptr},
        {"two test apps", TestList, "a,p;b,q", {{"a", "p"}, {"b", "q"}}, nullptr},
        {"one field", TestList, "a;b,q", {{"b", "q"}}, "RESERVED_16: skipped"},
        {"three fields", TestList, "a,p,x;b,q", {{"b", "q"}}, "RESERVED_16: skipped"},
        {"empty package id", TestList, "a,", {{"a", ""}}, nullptr},
    };
    for (const auto& c : cases) {
        LogMark mark;
        EXPECT_EQ(c.parse(c.text), c.expected) << c.name;
        EXPECT_EQ(mark.Contains("skipped"), c.skipLine != nullptr) << c.name << "\n" << mark.Text();
        EXPECT_TRUE(c.skipLine == nullptr || mark.Contains(c.skipLine)) << c.name << "\n" << mark.Text();
    }
}

// A megabyte of text parses completely; a megabyte of damaged entries costs one log line, not one a piece.
TEST(ListParsers, MegabyteTextsParseAndReportSkipsOnce) {
    const size_t kMiB = 1024 * 1024;
    std::string good;
    while (good.size() + 10 <= kMiB) {
        good += "a,p,1,g,t;";
    }
    std::vector<Fields> home = Home(good);
    ASSERT_EQ(home.size(), good.size() / 10);
    EXPECT_EQ(home.back(), (Fields{"a", "p", "1", "g", "t", ""}));

    std::string damaged;
    while (damaged.size() < kMiB) {
        damaged += "x;";
    }
    LogMark mark;
    EXPECT_TRUE(CBuiltInAppUtil::ParseHomeTestList(damaged).empty());
    EXPECT_TRUE(CBuiltInAppUtil::ParseP0TestChangeList(damaged).empty());
    EXPECT_TRUE(CBuiltInAppUtil::ParseTestList(damaged).empty());
    EXPECT_EQ(Count(mark.Text(), "skipped 524288 entries"), 3u) << mark.Text().substr(0, 2000);
}

// Only an update that has started names a package; everything else reads as "nothing updating".
TEST(UpdatingAppParser, NamesThePackageOnlyForAStartedUpdate) {
    const struct {
        const char* name;
        std::string json;
        std::string pkgname;  // "": nothing updating
    } cases[] = {
        {"update", R"({"status":"update","value":"start","pkgname":"pkg.a"})", "pkg.a"},
        {"pre_update", R"({"value":"start","pkgname":"c","status":"pre_update","more":[1]})", "c"},
        {"blanks around", " \n{\"status\":\"update\",\"value\":\"start\",\"pkgname\":\"d\"}\n ", "d"},
        {"update ended", R"({"status":"update","value":"end","pkgname":"a"})", ""},
        {"empty pkgname", R"({"status":"update","value":"start","pkgname":""})", ""},
        {"pkgname missing", R"({"status":"update","value":"start"})", ""},
        {"empty text", "", ""},
        {"text after the object", R"({"status":"update","value":"start","pkgname":"a"} x)", ""},
        {"NUL inside", std::string("{\"status\":\"update\"\0}", 20), ""},
        {"deep nesting", std::string(5000, '[') + std::string(5000, ']'), ""},
    };
    for (const auto& c : cases) {
        LogMark mark;
        std::string pkgname = "stale";
        EXPECT_EQ(CBuiltInAppUtil::ParseUpdatingApp(c.json, pkgname), !c.pkgname.empty()) << c.name;
        EXPECT_EQ(pkgname, c.pkgname) << c.name;
        EXPECT_TRUE(!c.pkgname.empty() || !mark.Text().empty()) << c.name << " logs nothing";
    }
}

}  // namespace
