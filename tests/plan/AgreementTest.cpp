// The plan and the reset agree: on generated roots (apps under every keep rule, directories with files,
// links and gaps; built-in lists with requirements, Home packages and every skip reason), the plan is
// made first, then the real reset runs, and both are compared app by app, directory by directory and,
// for the built-in kinds, in install order. Making the plan changes nothing in the root.
#include <algorithm>
#include <filesystem>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <tuple>

#include "PlanFixture.h"

using namespace plan_test;
using reset_test::Lines;

namespace {

namespace fs = std::filesystem;

// Whether a path exists, and its files and bytes.
using Tree = std::tuple<bool, long long, long long>;

// What is below a path now, counted as a removal would count it: links are not followed.
Tree Measure(const std::string& path) {
    std::error_code error;
    fs::file_status status = fs::symlink_status(path, error);
    if (error || !fs::exists(status)) {
        return {false, 0, 0};
    }
    auto size = [](fs::file_status s, const fs::path& p) {
        return fs::is_regular_file(s) ? static_cast<long long>(fs::file_size(p)) : 0;
    };
    if (!fs::is_directory(status)) {
        return {true, 1, size(status, path)};
    }
    Tree tree{true, 0, 0};
    for (auto it = fs::recursive_directory_iterator(path, error); !error && it != fs::end(it);
         it.increment(error)) {
        if (!fs::is_directory(it->symlink_status())) {
            ++std::get<1>(tree);
            std::get<2>(tree) += size(it->symlink_status(), it->path());
        }
    }
    return tree;
}

bool Chance(std::mt19937& random, int percent) {
    return static_cast<int>(random() % 100) < percent;
}

}  // namespace

class ThePlanAndTheReset : public PlanFixture, public ::testing::WithParamInterface<int> {
protected:
    // The plan, made now; the root is unchanged by it.
    Json::Value PlanUnchanged(std::vector<std::string> args) {
        std::map<std::string, std::string> before = Snapshot({Root() + "/var/log"});
        args.insert(args.begin(), "--json");
        orvix::test::RunResult run = Plan(args);
        EXPECT_EQ(run.status, 0) << run.err;
        Json::Value plan;
        std::istringstream(run.out) >> plan;
        EXPECT_TRUE(before == Snapshot({Root() + "/var/log"})) << "the plan changed the root";
        return plan;
    }

    // Each planned clean-up path (as on disk, with its action) and what is there now, which must be what
    // the plan counted.
    std::map<std::string, std::pair<std::string, Tree>> PlannedPaths(const Json::Value& plan) const {
        std::map<std::string, std::pair<std::string, Tree>> paths;
        for (const Json::Value& step : plan["cleanUp"]) {
            if (!step.isMember("path")) {
                continue;
            }
            std::string path = step["path"].asString();
            if (path.rfind("<root>", 0) == 0) {
                path.replace(0, 6, Root());
            }
            Tree tree = Measure(path);
            EXPECT_TRUE(tree ==
                        (Tree{step["exists"].asBool(), step["files"].asInt64(), step["bytes"].asInt64()}))
                << path;
            paths[path] = {step["action"].asString(), tree};
        }
        return paths;
    }

    static Lines Actions(const Json::Value& plan, const char* action) {
        Lines ids;
        for (const Json::Value& app : plan["apps"]) {
            if (app["action"].asString() == action) {
                ids.push_back(app["appId"].asString());
            }
        }
        return ids;
    }
};

// Apps and Corvane resets: the kind and the board follow the seed, everything else is drawn from it.
class ThePlanAndTheAppsReset : public ThePlanAndTheReset {};

TEST_P(ThePlanAndTheAppsReset, AgreeAppByAppAndDirectoryByDirectory) {
    const int seed = GetParam();
    std::mt19937 random(seed);
    const char* const kinds[] = {"tak_app_reset", "tak_service_reset", "corvane_reset"};
    const std::string reset = kinds[seed % 3];
    const bool android = (seed / 3) % 2 == 1, corvane = reset == "corvane_reset";
    SetSystemFlag("android_on_orvix.support", android);
    SetSetting("int", "db/tak/factory_reset", Chance(random, 50) ? "1" : "0");

    std::vector<std::string> pool = {"3201903017943", "3201904018125", "3202001019917", "ghost"};
    for (int i = 0; i < 12; ++i) {
        pool.push_back("app" + std::to_string(random() % 1000) + (Chance(random, 20) ? ".Ünï" : ""));
    }
    std::vector<reset_test::TestApp> apps;
    std::set<std::string> ids;
    for (const std::string& id : pool) {
        if (id != "ghost" && ids.insert(id).second && !Chance(random, 20)) {
            apps.push_back({id, Chance(random, 20) ? 4 : 1 + static_cast<int>(random() % 3),
                            Chance(random, 20), Chance(random, 20)});
        }
    }
    std::shuffle(apps.begin(), apps.end(), random);
    AddApps(apps);
    std::string defaults = "ghost:1", general;
    for (int i = 0; i < 5; ++i) {
        defaults += "," + pool[random() % pool.size()] + ":" + std::to_string(i);
        general += (i == 0 ? "" : ",") + pool[random() % pool.size()];
    }
    SetConfig("RESERVED_11", defaults);
    SetConfig("RESERVED_3", general);

    // Every directory a reset of some kind empties or removes, and some no reset touches: a few files, some
    // hidden, nested ones and sometimes a link out of the root, to a directory or a file; sometimes the
    // directory is gone. The data store's backup directory is no reset's business.
    Plant(Root() + "/outside/keep.txt");
    Plant(ServiceDir(27, "takdb_backup/keep.db"));
    std::vector<std::string> furnished = ResetDirectories(true);
    furnished.insert(furnished.end(),
                     {ServiceDir(2, "unrelated"), orvix::host::PathVariable(0) + "/owner/apps_rw/other",
                      orvix::host::PathVariable(0) + "/owner/.cache/Apps/WebAppsCache"});
    for (const std::string& dir : furnished) {
        if (Chance(random, 15)) {
            fs::remove_all(dir);
            continue;
        }
        for (int i = static_cast<int>(random() % 4); i > 0; --i) {
            std::string name = dir + "/d" + std::to_string(random() % 3) + (i % 2 == 0 ? "/.f" : "/f") +
                               std::to_string(random());
            fs::create_directories(fs::path(name).parent_path());
            std::ofstream(name) << std::string(random() % 5000, 'x');
        }
        if (Chance(random, 25)) {
            fs::create_directories(dir);
            fs::create_symlink(Root() + (Chance(random, 50) ? "/outside" : "/outside/keep.txt"),
                               dir + "/link-" + std::to_string(random()));
        }
    }
    if (Chance(random, 30)) {
        fs::remove(ServiceDir(27, "bnr_backup/bnr_backup.json"));
    }
    std::map<std::string, Tree> untouched;
    for (const std::string& dir : furnished) {
        untouched[dir] = Measure(dir);
    }

    Json::Value plan = PlanUnchanged({"reset=" + reset, "userdata=" + std::to_string(seed)});
    ASSERT_FALSE(HasFailure());
    auto planned = PlannedPaths(plan);
    Lines uninstall = Actions(plan, "uninstall");
    // Only the plan shows which apps are placed in front: no reset test sees that flag.
    for (const Json::Value& app : plan["apps"]) {
        auto drawn = std::find_if(apps.begin(), apps.end(),
                                  [&](const auto& a) { return a.id == app["appId"].asString(); });
        EXPECT_TRUE(drawn != apps.end() && app["front"].asBool() == drawn->front) << app["appId"];
    }
    EXPECT_EQ(uninstall.size() + Actions(plan, "keep").size(), corvane && !android ? 0u : apps.size());

    const std::string result = plan["result"]["name"].asString();
    RunToEnd({"reset=" + reset, "userdata=" + std::to_string(seed)}, result);
    EXPECT_EQ(Requested(), uninstall);
    EXPECT_EQ(plan["result"]["when"].asString(), "end");
    for (const auto& [path, step] : planned) {
        const auto& [action, before] = step;
        auto [exists, files, bytes] = Measure(path);
        // An absent directory stays absent; one that was there stays, empty. Whatever else is removed.
        EXPECT_TRUE(action == "empty" ? exists == std::get<0>(before) && files + bytes == 0 : !exists)
            << action << " " << path;
        untouched.erase(path.substr(0, path.find_last_not_of('/') + 1));
    }
    // What the plan leaves out, the reset leaves alone.
    EXPECT_EQ(untouched.size(), corvane ? 2u : 3u);
    for (const auto& [dir, tree] : untouched) {
        EXPECT_TRUE(Measure(dir) == tree) << dir;
    }
    EXPECT_TRUE(Exists(Root() + "/outside/keep.txt"));
    EXPECT_TRUE(Exists(ServiceDir(27, "takdb_backup/keep.db")));
    EXPECT_EQ(plan["notes"].size() > 0, android || corvane) << plan["notes"];
    EXPECT_EQ(plan["problems"].size(), 0u) << plan["problems"];
}

INSTANTIATE_TEST_SUITE_P(GeneratedRoots, ThePlanAndTheAppsReset, ::testing::Range(1, 13));

// Built-in resets: a drawn list with requirements on each other and on a Home base package, packages
// missing, fixed, without the instant-reset value, and sometimes one updated in the background.
class ThePlanAndTheBuiltInReset : public ThePlanAndTheReset {};

TEST_P(ThePlanAndTheBuiltInReset, AgreeOnTheInstallOrder) {
    const int seed = GetParam();
    std::mt19937 random(seed * 7919);
    std::vector<std::string> appIds;
    for (int i = static_cast<int>(5 + random() % 6); i > 0; --i) {
        appIds.push_back("b" + std::to_string(random() % 100));
    }
    AddBuiltIn("home", Chance(random, 50) ? "4.9" : "5.2");
    SetSetting("string", "db/home/homeversion_pkg_id", "pkg.home");

    Json::Value behaviour(Json::objectValue);
    behaviour["builtin"]["install"]["delay_ms"] = 5;
    std::set<std::string> packaged;
    for (const std::string& appId : appIds) {
        std::vector<std::pair<std::string, std::string>> required;
        for (int r = static_cast<int>(random() % 3); r > 0; --r) {
            required.push_back({appIds[random() % appIds.size()], "1.0"});
        }
        if (Chance(random, 25)) {
            required.push_back({"home", "5.0"});
        }
        behaviour["builtin"]["list"].append(BuiltInEntry(appId, required));
        if (Chance(random, 15) || !packaged.insert(appId).second) {
            continue;
        }
        const char* instantReset = Chance(random, 85) ? "true" : "TRUE";
        AddBuiltIn(appId, "2.0.0", Chance(random, 85) ? "true" : "false", instantReset);
    }
    SetLibTakBehaviour(behaviour);
    const std::string updating = seed % 3 == 0 ? "pkg." + appIds.back() : "";
    if (!updating.empty()) {
        SetSetting("string", "memory/tak/biu_updating_app",
                   R"({"status": "update", "value": "start", "pkgname": ")" + updating + R"("})");
    }
    // Leftovers of an ended background update, which the reset cleans up and the plan must not.
    Plant(orvix::host::PathVariable(27) + "/tpk-update-pkg." + appIds.front());
    Plant(orvix::host::PathVariable(6) + "/background-update/" + appIds.front() + "_on.tpk");
    const std::string reset = seed % 2 == 0 ? "reset=biu_service_reset" : "reset=biu_app_reset";

    Json::Value plan = PlanUnchanged({reset});
    ASSERT_FALSE(HasFailure());
    Start({reset});
    if (!plan["waitingList"].empty()) {
        // The installs wait for the background update; it ends now.
        ASSERT_TRUE(WaitForCall("libtak_common", "RegisterVconfChangeCBAPI"));
        EXPECT_TRUE(CallsOf("libtak_common", "InstallAppAPI").empty());
        SetSetting("string", "memory/tak/biu_updating_app", "");
    }
    ASSERT_TRUE(WaitForResult(plan["result"]["name"].asString()));
    EndProcess();
    Lines install = Actions(plan, "install");
    EXPECT_EQ(Installed(), install);
    // Only an app that is installed makes the reset wait for its background update.
    bool waits = !updating.empty() && std::count(install.begin(), install.end(), updating.substr(4)) > 0;
    EXPECT_EQ(!plan["waitingList"].empty(), waits);
    EXPECT_EQ(plan["problems"].size(), 0u) << plan["problems"];
}

INSTANTIATE_TEST_SUITE_P(GeneratedRoots, ThePlanAndTheBuiltInReset, ::testing::Range(1, 9));
