// The list and JSON parsers of the built-in test-app utilities, on well-formed, damaged and hostile texts.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "BuiltInAppUtil.h"
#include "TestLog.h"

namespace {

using orvix::test::LogMark;

// Each entry's fields joined by "|", each entry ended by "/".
std::string Joined(const std::vector<HOME_TEST_APP>& list) {
    std::string text;
    for (const auto& app : list) {
        for (const auto* field : {&app.appId, &app.pkgId, &app.version, &app.groupType, &app.groupTag}) {
            text += *field + "|";
        }
        text += app.installType + "/";
    }
    return text;
}

std::string Home(const std::string& text) {
    return Joined(CBuiltInAppUtil::ParseHomeTestList(text));
}
std::string Candidates(const std::string& text) {
    return Joined(CBuiltInAppUtil::ParseP0TestChangeList(text));
}
std::string TestList(const std::string& text) {
    std::string joined;
    for (const auto& app : CBuiltInAppUtil::ParseTestList(text)) {
        joined += app.appId + "|" + app.pkgId + "/";
    }
    return joined;
}

// HOME_TEST_LIST: five fields, the table text taken byte for byte; the candidate file: six fields, blanks
// and line ends around records and fields dropped; RESERVED_16: exactly two fields.
TEST(ListParsers, TakeEntriesOfTheirFieldCountAndSkipOthers) {
    const std::tuple<const char*, std::string (*)(const std::string&), std::string, std::string> cases[] = {
        // name, parser, text, the entries it takes
        {"trailing and doubled separators", Home, ";a,p,1,g,t;;b,q,2,h,u;", "a|p|1|g|t|/b|q|2|h|u|/"},
        {"truncated last entry", Home, "a,p,1,g,t;b,q,2", "a|p|1|g|t|/"},
        {"extra fields ignored", Home, "a,p,1,g,t,x,y", "a|p|1|g|t|/"},
        {"empty fields kept", Home, ",p,,,", "|p||||/"},
        {"blanks are part of the value", Home, " a, p ,1,g,t\n", " a| p |1|g|t\n|/"},
        {"NUL byte inside a field", Home, std::string("a\0b,p,1,g,t", 11), std::string("a\0b|p|1|g|t|/", 13)},
        {"one candidate a line", Candidates, "a,p,1,g,t,i;\r\n b , q ,2,h,u,j;\n",
         "a|p|1|g|t|i/b|q|2|h|u|j/"},
        {"install type missing", Candidates, "a,p,1,g,t;b,q,2,h,u,j", "b|q|2|h|u|j/"},
        {"two test apps", TestList, "a,p;b,q", "a|p/b|q/"},
        {"one field", TestList, "a;b,q", "b|q/"},
        {"three fields", TestList, "a,p,x;b,q", "b|q/"},
        {"empty package id", TestList, "a,", "a|/"},
    };
    for (const auto& [name, parse, text, expected] : cases) {
        EXPECT_EQ(parse(text), expected) << name;
    }
}

// A megabyte of damaged entries costs one log line, not one a piece.
TEST(ListParsers, AMegabyteOfDamagedEntriesIsReportedOnce) {
    std::string damaged;
    while (damaged.size() < 1024 * 1024) {
        damaged += "x;";
    }
    LogMark mark;
    EXPECT_TRUE(CBuiltInAppUtil::ParseHomeTestList(damaged).empty());
    EXPECT_TRUE(CBuiltInAppUtil::ParseP0TestChangeList(damaged).empty());
    EXPECT_TRUE(CBuiltInAppUtil::ParseTestList(damaged).empty());
    EXPECT_EQ(orvix::test::Count(mark.Text(), "skipped 524288 entries"), 3u) << mark.Text().substr(0, 2000);
}

// Only an update that has started names a package; everything else reads as "nothing updating".
TEST(UpdatingAppParser, NamesThePackageOnlyForAStartedUpdate) {
    const std::tuple<const char*, std::string, std::string> cases[] = {
        // name, the setting's text, the package named ("": nothing updating)
        {"update", R"({"status":"update","value":"start","pkgname":"pkg.a"})", "pkg.a"},
        {"pre_update", R"({"value":"start","pkgname":"c","status":"pre_update","more":[1]})", "c"},
        {"update ended", R"({"status":"update","value":"end","pkgname":"a"})", ""},
        {"empty pkgname", R"({"status":"update","value":"start","pkgname":""})", ""},
        {"pkgname missing", R"({"status":"update","value":"start"})", ""},
        {"empty text", "", ""},
        {"text after the object", R"({"status":"update","value":"start","pkgname":"a"} x)", ""},
        {"NUL inside", std::string("{\"status\":\"update\"\0}", 20), ""},
        {"deep nesting", std::string(5000, '[') + std::string(5000, ']'), ""},
    };
    for (const auto& [name, json, expected] : cases) {
        std::string pkgname = "stale";
        EXPECT_EQ(CBuiltInAppUtil::ParseUpdatingApp(json, pkgname), !expected.empty()) << name;
        EXPECT_EQ(pkgname, expected) << name;
    }
}

}  // namespace
