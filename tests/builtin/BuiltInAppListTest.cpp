// The decisions of a built-in reset on their own: the list assembly is a pure function of the library's
// list and the package answers, which a scripted query gives here.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "BuiltInAppList.h"

namespace {

OPENAPI_BUILTIN_APP_INFO App(const std::string& appId, const std::vector<std::string>& requires = {}) {
    OPENAPI_BUILTIN_APP_INFO app;
    app.appId = appId;
    app.pkgId = "pkg." + appId;
    app.orvixId = appId + ".orvix";
    for (const auto& required : requires) {
        app.requires[required] = OPENAPI_REQUIRE_INFO{required, "1.0", "pkg." + required, false};
    }
    return app;
}

OPENAPI_BUILTIN_APP_INFO Requiring(const std::string& appId, const std::string& pkgid,
                                   const std::string& version, const std::string& key = "home") {
    OPENAPI_BUILTIN_APP_INFO app = App(appId);
    app.requires[key] = OPENAPI_REQUIRE_INFO{key, version, pkgid, false};
    return app;
}

std::vector<std::string> Ids(const BUILTIN_APP_LIST& list) {
    std::vector<std::string> ids;
    for (const auto& app : list) {
        ids.push_back(app.appId);
    }
    return ids;
}

// Answers as scripted; a package that is not scripted is not installed and has no metadata.
struct ScriptedQuery : CBuiltInAppList::Query {
    std::map<std::string, std::string> versions;  // installed packages
    std::map<std::string, std::string> instantReset;
    std::set<std::string> robotInstalled;
    std::vector<HOME_TEST_APP> homeTests;
    std::vector<HOME_TEST_APP> candidates;
    std::vector<std::string> metadataAsked;

    bool InstalledVersion(const std::string& pkgId, std::string& version) override {
        auto it = versions.find(pkgId);
        if (it == versions.end() || it->second == "unreadable") {
            return false;
        }
        version = it->second;
        return true;
    }
    bool IsInstalled(const std::string& pkgId, bool robot) override {
        return robot ? robotInstalled.count(pkgId) != 0 : versions.count(pkgId) != 0;
    }
    bool MetadataValue(const OPENAPI_BUILTIN_APP_INFO& app, bool robot, const std::string& key,
                       std::string& value) override {
        metadataAsked.push_back((robot ? "robot:" + app.orvixId : app.pkgId) + " " + key);
        auto it = instantReset.find(app.pkgId);
        if (it == instantReset.end()) {
            return false;
        }
        value = it->second;
        return true;
    }
    bool IsRemovable(const std::string&, bool) override { return true; }
    bool IsUpdating(const std::string&, const std::string&) override { return false; }
    void HomeTestList(std::vector<HOME_TEST_APP>& list) override { list = homeTests; }
    void CandidateList(const std::string&, std::vector<HOME_TEST_APP>& list) override { list = candidates; }
};

// The assembly exactly as the rule reads: take the first entry off a working array, pull each required
// app (key order) that is still in the array in front of it, repeat. Slow on purpose.
BUILTIN_APP_LIST LiteralAssembly(BUILTIN_APP_LIST work) {
    BUILTIN_APP_LIST list;
    while (!work.empty()) {
        OPENAPI_BUILTIN_APP_INFO current = work.front();
        work.erase(work.begin());
        for (const auto& require : current.requires) {
            auto found = std::find_if(work.begin(), work.end(), [&](const OPENAPI_BUILTIN_APP_INFO& app) {
                return !require.first.empty() && app.appId == require.first;
            });
            if (found != work.end()) {
                list.push_back(*found);
                work.erase(found);
            }
        }
        list.push_back(current);
    }
    return list;
}

}  // namespace

// Each required app is placed once, before the first app that needs it: random lists with duplicate ids,
// cycles, self and absent requirements, compared with the rule done literally; 2,000 apps each needing up to
// three others finish and keep every entry exactly once.
TEST(ABuiltInListAssembly, AgreesWithTheLiteralRuleOnRandomLists) {
    std::mt19937 random(4242);
    for (int round = 0; round < 300; ++round) {
        size_t size = round == 0 ? 2000 : random() % 30;
        BUILTIN_APP_LIST input;
        for (size_t i = 0; i < size; ++i) {
            std::vector<std::string>
            requires;
            for (int r = static_cast<int>(random() % 4); r > 0; --r) {
                requires.push_back("app" + std::to_string(random() % (size + 3)));
            }
            OPENAPI_BUILTIN_APP_INFO app = App("app" + std::to_string(random() % (size + 1)), requires);
            app.field4 = std::to_string(i);  // tells duplicates apart
            input.push_back(app);
        }
        BUILTIN_APP_LIST list = input;
        CBuiltInAppList::AssembleBuiltInList(list);
        BUILTIN_APP_LIST expected = LiteralAssembly(input);
        ASSERT_EQ(list.size(), input.size());
        for (size_t i = 0; i < list.size(); ++i) {
            ASSERT_EQ(list[i].field4, expected[i].field4) << "round " << round << " position " << i;
            ASSERT_EQ(list[i].requires.size(), expected[i].requires.size());
        }
    }
}

TEST(ABuiltInListRemoval, DropsThePackageAndTheAppsThatNeedANewerOne) {
    using Lines = std::vector<std::string>;
    for (const auto& [installed, kept] : std::vector<std::pair<std::string, bool>>{
             {"4.9", false}, {"5.0", true}, {"5.0.0", true}, {"5.1", true}, {"unreadable", false}}) {
        ScriptedQuery query;
        query.versions["pkg.home"] = installed;
        BUILTIN_APP_LIST list = {App("home"), Requiring("needs", "pkg.home", "5.0"), App("free")};
        CBuiltInAppList(query).RemoveHomeBasePkg("pkg.home", list);
        EXPECT_EQ(Ids(list), (kept ? Lines{"needs", "free"} : Lines{"free"})) << installed;
    }
}

TEST(ABuiltInListRemoval, JudgesOnlyTheFirstMatchingRequirementAndMatchesEmptyIds) {
    ScriptedQuery query;
    query.versions["pkg.home"] = "3.0";
    OPENAPI_BUILTIN_APP_INFO twice = Requiring("twice", "pkg.home", "1.0", "a");
    twice.requires["b"] = OPENAPI_REQUIRE_INFO{"b", "9.0", "pkg.home", false};  // later key, not judged
    OPENAPI_BUILTIN_APP_INFO noPackage = App("nopkg");
    noPackage.pkgId = "";
    BUILTIN_APP_LIST list = {twice, noPackage, Requiring("needsEmpty", "", "1.0")};
    CBuiltInAppList(query).RemoveFromBuiltInList("pkg.home", list);
    EXPECT_EQ(Ids(list), (std::vector<std::string>{"twice", "nopkg", "needsEmpty"}));

    // An empty Home base id removes entries without a package and the apps requiring an empty id whose
    // version cannot be read.
    CBuiltInAppList(query).RemoveHomeBasePkg("", list);
    EXPECT_EQ(Ids(list), (std::vector<std::string>{"twice"}));
}

// What the list walk below does not show: a "1" is no instant-reset value, and only "ROBOTAPP" apps are
// looked up as robot apps.
TEST(ABuiltInResetCondition, AsksRobotAppsByTheirOrvixIdAndTakesOnlyTrue) {
    ScriptedQuery query;
    query.versions["pkg.one"] = "1.0";
    query.instantReset = {{"pkg.one", "1"}, {"pkg.robot", "true"}};
    query.robotInstalled = {"pkg.robot"};
    OPENAPI_BUILTIN_APP_INFO robot = App("robot");
    robot.appType = "ROBOTAPP";
    OPENAPI_BUILTIN_APP_INFO almostRobot = App("almost");
    almostRobot.appType = "ROBOTAPPX";
    std::vector<std::string> waiting;
    EXPECT_FALSE(CBuiltInAppList(query).CheckResetCondition(App("one"), waiting));
    EXPECT_TRUE(CBuiltInAppList(query).CheckResetCondition(robot, waiting));
    EXPECT_FALSE(CBuiltInAppList(query).CheckResetCondition(almostRobot, waiting));
    EXPECT_TRUE(waiting.empty());
    EXPECT_NE(std::find(query.metadataAsked.begin(), query.metadataAsked.end(),
                        std::string("robot:robot.orvix ") + CBuiltInAppList::INSTANT_RESET_KEY),
              query.metadataAsked.end());
}

// The Home test packages, installed or candidates, leave the list like the base package, with the apps
// that need a newer one or whose installed version cannot be read.
TEST(ABuiltInListRemoval, TakesTheHomeTestPackagesLikeTheBasePackage) {
    ScriptedQuery query;
    query.versions = {{"pkg.test", "unreadable"}, {"pkg.cand", "2.0"}};
    query.homeTests = {{"test.app", "pkg.test", "", "", "", ""}};
    query.candidates = {{"cand.app", "pkg.cand", "", "", "", ""}};
    BUILTIN_APP_LIST list = {App("test"),
                             Requiring("tested", "pkg.test", "1.0"),
                             App("cand"),
                             Requiring("fits", "pkg.cand", "2.0"),
                             Requiring("newer", "pkg.cand", "3.0"),
                             App("free")};
    CBuiltInAppList(query).RemoveHomeTestVersion(list);
    EXPECT_EQ(Ids(list), (std::vector<std::string>{"fits", "free"}));
}
