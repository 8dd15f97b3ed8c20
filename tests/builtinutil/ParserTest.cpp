// The list and JSON parsers of the built-in test-app utilities, on well-formed, damaged and hostile texts.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "BuiltInAppUtil.h"
#include "TestLog.h"

namespace {

using orvix::test::LogMark;
using Fields = std::vector<std::string>;

Fields FieldsOf(const HOME_TEST_APP& app) {
    return {app.appId, app.pkgId, app.version, app.groupType, app.groupTag, app.installType};
}

std::vector<Fields> FieldsOf(const std::vector<HOME_TEST_APP>& list) {
    std::vector<Fields> fields;
    for (const auto& app : list) {
        fields.push_back(FieldsOf(app));
    }
    return fields;
}

using orvix::test::Count;

struct ListCase {
    const char* name;
    std::string text;
    std::vector<Fields> expected;
    bool logsSkip;  // one line reports skipped entries
};

// HOME_TEST_LIST: five fields, the table text taken byte for byte.
TEST(HomeTestListParser, TakesEntriesOfFiveFieldsAndSkipsShortOnes) {
    const std::vector<ListCase> cases = {
        {"empty", "", {}, false},
        {"one entry", "app,pkg,1.0,grp,tag", {{"app", "pkg", "1.0", "grp", "tag", ""}}, false},
        {"trailing and doubled separators",
         ";a,p,1,g,t;;b,q,2,h,u;",
         {{"a", "p", "1", "g", "t", ""}, {"b", "q", "2", "h", "u", ""}},
         false},
        {"truncated last entry", "a,p,1,g,t;b,q,2", {{"a", "p", "1", "g", "t", ""}}, true},
        {"no field separator at all", "justtext", {}, true},
        {"extra fields ignored", "a,p,1,g,t,x,y", {{"a", "p", "1", "g", "t", ""}}, false},
        {"empty fields kept", ",p,,,", {{"", "p", "", "", "", ""}}, false},
        {"blanks are part of the value", " a, p ,1,g,t\n", {{" a", " p ", "1", "g", "t\n", ""}}, false},
        {"non-UTF-8 bytes carried",
         "\xff\xfe,p\x80,1,\xc3,t",
         {{"\xff\xfe", "p\x80", "1", "\xc3", "t", ""}},
         false},
        {"NUL byte inside a field",
         std::string("a\0b,p,1,g,t", 11),
         {{std::string("a\0b", 3), "p", "1", "g", "t", ""}},
         false},
    };
    for (const auto& c : cases) {
        LogMark mark;
        EXPECT_EQ(FieldsOf(CBuiltInAppUtil::ParseHomeTestList(c.text)), c.expected) << c.name;
        EXPECT_EQ(mark.Contains("HOME_TEST_LIST: skipped"), c.logsSkip) << c.name << "\n" << mark.Text();
    }
}

// The candidate file: six fields, blanks and line ends around records and fields dropped.
TEST(CandidateListParser, TakesEntriesOfSixFieldsFromAnEditedFile) {
    const std::vector<ListCase> cases = {
        {"empty", "", {}, false},
        {"one record", "a,p,1,g,t,i", {{"a", "p", "1", "g", "t", "i"}}, false},
        {"one record a line",
         "a,p,1,g,t,i;\r\n b , q ,2,h,u,j;\n",
         {{"a", "p", "1", "g", "t", "i"}, {"b", "q", "2", "h", "u", "j"}},
         false},
        {"install type missing", "a,p,1,g,t;b,q,2,h,u,j", {{"b", "q", "2", "h", "u", "j"}}, true},
        {"separators only", ",,,,,", {{"", "", "", "", "", ""}}, false},
    };
    for (const auto& c : cases) {
        LogMark mark;
        EXPECT_EQ(FieldsOf(CBuiltInAppUtil::ParseP0TestChangeList(c.text)), c.expected) << c.name;
        EXPECT_EQ(mark.Contains("candidate list: skipped"), c.logsSkip) << c.name << "\n" << mark.Text();
    }
}

// RESERVED_16: exactly two fields; anything else is not an entry of the list.
TEST(TestListParser, TakesEntriesOfExactlyTwoFields) {
    struct Case {
        const char* name;
        std::string text;
        std::vector<CBuiltInAppUtil::TEST_APP> expected;
        bool logsSkip;
    };
    const std::vector<Case> cases = {
        {"empty", "", {}, false},
        {"two entries", "a,p;b,q", {{"a", "p"}, {"b", "q"}}, false},
        {"one field", "a;b,q", {{"b", "q"}}, true},
        {"three fields", "a,p,x;b,q", {{"b", "q"}}, true},
        {"empty package id", "a,", {{"a", ""}}, false},
        {"non-UTF-8", "\xff,\xfe", {{"\xff", "\xfe"}}, false},
    };
    for (const auto& c : cases) {
        LogMark mark;
        EXPECT_EQ(CBuiltInAppUtil::ParseTestList(c.text), c.expected) << c.name;
        EXPECT_EQ(mark.Contains("RESERVED_16: skipped"), c.logsSkip) << c.name;
    }
}

TEST(TestListParser, AssembledListReadsBackAsTheSameList) {
    const std::vector<CBuiltInAppUtil::TEST_APP> list = {
        {"org.app.one", "pkg.one"}, {"two", ""}, {"\xc3\xa9", "\xff"}};
    std::string text = CBuiltInAppUtil::AssembleTestList(list);
    EXPECT_EQ(text, "org.app.one,pkg.one;two,;\xc3\xa9,\xff");
    EXPECT_EQ(CBuiltInAppUtil::ParseTestList(text), list);
    EXPECT_TRUE(CBuiltInAppUtil::ParseTestList(CBuiltInAppUtil::AssembleTestList({})).empty());
}

// A megabyte of text parses completely; a megabyte of damaged entries costs one log line, not one a piece.
TEST(ListParsers, MegabyteTextsParseAndReportSkipsOnce) {
    const size_t kMiB = 1024 * 1024;
    std::string good;
    while (good.size() + 10 <= kMiB) {
        good += "a,p,1,g,t;";
    }
    auto home = CBuiltInAppUtil::ParseHomeTestList(good);
    ASSERT_EQ(home.size(), good.size() / 10);
    EXPECT_EQ(FieldsOf(home.back()), (Fields{"a", "p", "1", "g", "t", ""}));

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
    struct Case {
        const char* name;
        std::string json;
        bool updating;
        std::string pkgname;
        const char* logged;
    };
    const std::vector<Case> cases = {
        {"update", R"({"status":"update","value":"start","pkgname":"pkg.a"})", true, "pkg.a", nullptr},
        {"uninstall", R"({"status":"uninstall","value":"start","pkgname":"b"})", true, "b", nullptr},
        {"pre_update", R"({"value":"start","pkgname":"c","status":"pre_update","more":[1]})", true, "c",
         nullptr},
        {"blanks around", " \n{\"status\":\"update\",\"value\":\"start\",\"pkgname\":\"d\"}\n ", true, "d",
         nullptr},
        {"update ended", R"({"status":"update","value":"end","pkgname":"a"})", false, "",
         "no background update"},
        {"status in other case", R"({"status":"UPDATE","value":"start","pkgname":"a"})", false, "",
         "no background update"},
        {"empty pkgname", R"({"status":"update","value":"start","pkgname":""})", false, "",
         "no background update"},
        {"pkgname missing", R"({"status":"update","value":"start"})", false, "", "lacks a string"},
        {"array", R"([{"status":"update","value":"start","pkgname":"a"}])", false, "", "not a JSON object"},
        {"empty text", "", false, "", "no background update"},
        {"truncated", R"({"status":"update","value":"start","pkgname":"a")", false, "", "not a JSON object"},
        {"text after the object", R"({"status":"update","value":"start","pkgname":"a"} x)", false, "",
         "not a JSON object"},
        {"NUL inside", std::string("{\"status\":\"update\"\0}", 20), false, "", "not a JSON object"},
        {"deep nesting", std::string(5000, '[') + std::string(5000, ']'), false, "", "not a JSON object"},
    };
    for (const auto& c : cases) {
        LogMark mark;
        std::string pkgname = "stale";
        EXPECT_EQ(CBuiltInAppUtil::ParseUpdatingApp(c.json, pkgname), c.updating) << c.name;
        EXPECT_EQ(pkgname, c.pkgname) << c.name;
        if (c.logged != nullptr) {
            EXPECT_TRUE(mark.Contains(c.logged)) << c.name << "\n" << mark.Text();
        }
    }
}

}  // namespace
