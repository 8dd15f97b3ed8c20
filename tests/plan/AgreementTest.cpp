// The plan and the reset agree: on generated roots (apps under every keep rule, directories with files,
// links and gaps; built-in lists with requirements, Home packages and every skip reason), the plan is
// made first, then the real reset runs, and both are compared app by app, directory by directory and,
// for the built-in kinds, in install order. Making the plan changes nothing in the root.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <random>
#include <set>

#include "PlanFixture.h"

using namespace plan_test;
using reset_test::Lines;
using reset_test::TestApp;

namespace {

namespace fs = std::filesystem;

const char kAndroidApps[] = "android_on_orvix.support";
const char* const kFixedApps[] = {"3201903017943", "3201904018125", "3202001019917"};

struct Tree {
    bool exists = false;
    long long files = 0;
    long long bytes = 0;
};

// What is below a path now, counted as a removal would count it: links are not followed.
Tree Measure(const std::string& path) {
    Tree tree;
    std::error_code error;
    fs::file_status status = fs::symlink_status(path, error);
    if (error || !fs::exists(status)) {
        return tree;
    }
    tree.exists = true;
    if (!fs::is_directory(status)) {
        tree.files = 1;
        tree.bytes = fs::is_regular_file(status) ? static_cast<long long>(fs::file_size(path)) : 0;
        return tree;
    }
    for (auto it = fs::recursive_directory_iterator(path, error); !error && it != fs::end(it);
         it.increment(error)) {
        fs::file_status entry = it->symlink_status();
        if (fs::is_directory(entry)) {
            continue;
        }
        ++tree.files;
        tree.bytes += fs::is_regular_file(entry) ? static_cast<long long>(it->file_size()) : 0;
    }
    return tree;
}

// Every file of the root but the logs, with its size and modification time.
std::map<std::string, std::string> Snapshot(const std::string& root) {
    std::map<std::string, std::string> files;
    std::error_code error;
    for (auto it = fs::recursive_directory_iterator(root, error); !error && it != fs::end(it);
         it.increment(error)) {
        std::string path = it->path().string();
        if (path.rfind(root + "/var/log", 0) == 0) {
            continue;
        }
        struct stat info {};
        lstat(path.c_str(), &info);
        files[path] = std::to_string(info.st_mode) + " " + std::to_string(info.st_size) + " " +
                      std::to_string(info.st_mtim.tv_sec) + "." + std::to_string(info.st_mtim.tv_nsec);
    }
    return files;
}

std::string Pick(std::mt19937& random, const std::vector<std::string>& pool) {
    return pool[random() % pool.size()];
}

bool Chance(std::mt19937& random, int percent) {
    return static_cast<int>(random() % 100) < percent;
}

}  // namespace

class ThePlanAndTheReset : public PlanFixture, public ::testing::WithParamInterface<int> {
protected:
    // The plan, made now; the root is unchanged by it.
    Json::Value PlanUnchanged(const std::vector<std::string>& args) {
        std::map<std::string, std::string> before = Snapshot(Root());
        Json::Value plan = PlanJson(args);
        std::map<std::string, std::string> after = Snapshot(Root());
        EXPECT_TRUE(before == after) << "the plan changed the root";
        return plan;
    }

    // Each planned path as it is now, checked against the plan's counts; then, after the reset, each is
    // checked against what the plan said would happen to it.
    std::map<std::string, Tree> CheckCounts(const Json::Value& plan) const {
        std::map<std::string, Tree> trees;
        for (const Json::Value& step : plan["cleanUp"]) {
            if (!step.isMember("path")) {
                continue;
            }
            std::string path = Unroot(step["path"].asString());
            Tree tree = Measure(path);
            EXPECT_EQ(step["exists"].asBool(), tree.exists) << path;
            EXPECT_EQ(step["files"].asInt64(), tree.files) << path;
            EXPECT_EQ(step["bytes"].asInt64(), tree.bytes) << path;
            trees[path] = tree;
        }
        return trees;
    }

    void CheckCleanedUp(const Json::Value& plan, const std::map<std::string, Tree>& before) const {
        for (const Json::Value& step : plan["cleanUp"]) {
            if (!step.isMember("path")) {
                continue;
            }
            std::string path = Unroot(step["path"].asString());
            std::string action = step["action"].asString();
            Tree now = Measure(path);
            if (action == "empty") {
                // An absent directory stays absent; one that was there stays, empty.
                EXPECT_EQ(now.exists, before.at(path).exists) << path;
                EXPECT_EQ(now.files, 0) << path;
                EXPECT_TRUE(!now.exists || reset_test::ResetFixture::IsEmptyDir(path)) << path;
            } else {
                EXPECT_FALSE(now.exists) << action << " " << path;
            }
        }
    }

    std::string Unroot(std::string path) const {
        if (path.rfind("<root>", 0) == 0) {
            path.replace(0, 6, Root());
        }
        return path;
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
class ThePlanAndTheAppsReset : public ThePlanAndTheReset {
protected:
    // A few files, a nested one and sometimes a link out of the root's service tree; sometimes the
    // directory is gone.
    void Furnish(std::mt19937& random, const std::string& dir) const {
        if (Chance(random, 15)) {
            fs::remove_all(dir);
            return;
        }
        for (int i = static_cast<int>(random() % 4); i > 0; --i) {
            std::string name = dir + "/d" + std::to_string(random() % 3) + "/f" + std::to_string(random());
            fs::create_directories(fs::path(name).parent_path());
            std::ofstream(name) << std::string(random() % 5000, 'x');
        }
        if (Chance(random, 25)) {
            fs::create_directories(dir);
            fs::create_symlink(Root() + "/outside", dir + "/link-" + std::to_string(random()));
        }
    }
};

TEST_P(ThePlanAndTheAppsReset, AgreeAppByAppAndDirectoryByDirectory) {
    const int seed = GetParam();
    std::mt19937 random(seed);
    const char* const kinds[] = {"tak_app_reset", "tak_service_reset", "corvane_reset"};
    const std::string reset = kinds[seed % 3];
    const bool android = (seed / 3) % 2 == 1;
    SetSystemFlag(kAndroidApps, android);
    SetSetting("int", "db/tak/factory_reset", Chance(random, 50) ? "1" : "0");

    std::vector<std::string> pool = {kFixedApps[0], kFixedApps[1], kFixedApps[2], "ghost"};
    for (int i = 0; i < 12; ++i) {
        pool.push_back("app" + std::to_string(random() % 1000) + (Chance(random, 20) ? ".Ünï" : ""));
    }
    std::vector<TestApp> apps;
    std::set<std::string> ids;
    for (const std::string& id : pool) {
        if (id == "ghost" || !ids.insert(id).second || Chance(random, 20)) {
            continue;
        }
        apps.push_back({id, Chance(random, 20) ? 4 : 1 + static_cast<int>(random() % 3), Chance(random, 20),
                        Chance(random, 20)});
    }
    std::shuffle(apps.begin(), apps.end(), random);
    AddApps(apps);
    std::string defaults = "ghost:1";
    std::string general;
    for (int i = 0; i < 5; ++i) {
        defaults += "," + Pick(random, pool) + ":" + std::to_string(i);
        general += (i == 0 ? "" : ",") + Pick(random, pool);
    }
    SetConfig("RESERVED_11", defaults);
    SetConfig("RESERVED_3", general);

    fs::create_directories(Root() + "/outside");
    std::ofstream(Root() + "/outside/keep.txt") << "keep\n";
    // Every directory a reset of some kind empties or removes, and some no reset touches.
    std::vector<std::string> furnished = {ServiceDir(2, "common"), ServiceDir(2, "appupdate"),
                                          ServiceDir(2, "unrelated"),
                                          orvix::host::PathVariable(0) + "/owner/apps_rw/other"};
    for (const char* sub : {"preinstallrecovery", "clone", "RM", "appupdate/package", "system_app"}) {
        furnished.push_back(ServiceDir(27, sub));
    }
    furnished.push_back(orvix::host::PathVariable(0) + "/owner/.cache/Apps/WebAppsCache");
    for (int variable = 66; variable <= 74; ++variable) {
        furnished.push_back(orvix::host::PathVariable(variable));
    }
    for (const std::string& dir : furnished) {
        Furnish(random, dir);
    }
    if (Chance(random, 30)) {
        fs::remove(ServiceDir(27, "bnr_backup/bnr_backup.json"));
    }
    std::map<std::string, Tree> untouched;
    for (const std::string& dir : furnished) {
        untouched[dir] = Measure(dir);
    }
    const bool corvane = reset == "corvane_reset";

    Json::Value plan = PlanUnchanged({"reset=" + reset, "userdata=" + std::to_string(seed)});
    ASSERT_FALSE(HasFailure());
    std::map<std::string, Tree> before = CheckCounts(plan);
    Lines uninstall = Actions(plan, "uninstall");
    EXPECT_EQ(uninstall.size() + Actions(plan, "keep").size(), corvane && !android ? 0u : apps.size());

    RunToEnd({"reset=" + reset, "userdata=" + std::to_string(seed)}, plan["result"]["name"].asString());
    EXPECT_EQ(Requested(), uninstall);
    EXPECT_EQ(Results(plan["result"]["name"].asString()).size(), 1u);
    EXPECT_EQ(plan["result"]["when"].asString(), "end");
    CheckCleanedUp(plan, before);
    // What the plan leaves out, the reset leaves alone.
    for (const Json::Value& step : plan["cleanUp"]) {
        std::string path = Unroot(step["path"].asString());
        untouched.erase(path.substr(0, path.find_last_not_of('/') + 1));
    }
    EXPECT_EQ(untouched.size(), corvane ? 2u : 3u);
    for (const auto& [dir, tree] : untouched) {
        Tree now = Measure(dir);
        EXPECT_TRUE(now.exists == tree.exists && now.files == tree.files && now.bytes == tree.bytes) << dir;
    }
    EXPECT_TRUE(Exists(Root() + "/outside/keep.txt"));
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
    const bool service = seed % 2 == 0;
    std::vector<std::string> appIds;
    for (int i = static_cast<int>(5 + random() % 6); i > 0; --i) {
        appIds.push_back("b" + std::to_string(random() % 100));
    }
    AddPackage({"pkg.home", "--builtin", "--version", Chance(random, 50) ? "4.9" : "5.2", "--app", "home",
                "--main", "home"});
    SetSetting("string", "db/home/homeversion_pkg_id", "pkg.home");

    Json::Value behaviour(Json::objectValue);
    behaviour["builtin"]["install"]["delay_ms"] = 5;
    std::set<std::string> packaged;
    for (const std::string& appId : appIds) {
        Json::Value entry(Json::objectValue);
        entry["appId"] = appId;
        entry["pkgId"] = "pkg." + appId;
        entry["baseVersion"] = "1.0.0";
        for (int r = static_cast<int>(random() % 3); r > 0; --r) {
            std::string required = Pick(random, appIds);
            entry["requires"][required]["version"] = "1.0";
            entry["requires"][required]["pkgid"] = "pkg." + required;
        }
        if (Chance(random, 25)) {
            entry["requires"]["home"]["version"] = "5.0";
            entry["requires"]["home"]["pkgid"] = "pkg.home";
        }
        behaviour["builtin"]["list"].append(entry);
        if (Chance(random, 15) || !packaged.insert(appId).second) {
            continue;
        }
        const char* metadata = Chance(random, 85) ? "true" : "TRUE";
        AddPackage({"pkg." + appId, "--builtin", "--version", "2.0.0", "--removable",
                    Chance(random, 85) ? "true" : "false", "--app", appId, "--main", appId, "--meta",
                    std::string("http://orvix.com/tv/metadata/prefer_instant_reset=") + metadata});
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
    const std::string reset = service ? "reset=biu_service_reset" : "reset=biu_app_reset";

    Json::Value plan = PlanUnchanged({reset});
    ASSERT_FALSE(HasFailure());
    Lines install = Actions(plan, "install");
    Start({reset});
    if (!plan["waitingList"].empty()) {
        // The installs wait for the background update; it ends now.
        ASSERT_TRUE(WaitForCall("libtak_common", "RegisterVconfChangeCBAPI"));
        EXPECT_TRUE(CallsOf("libtak_common", "InstallAppAPI").empty());
        SetSetting("string", "memory/tak/biu_updating_app", "");
    }
    ASSERT_TRUE(WaitForResult(plan["result"]["name"].asString()));
    EndProcess();

    Lines installed;
    for (const auto& call : CallsOf("libtak_common", "InstallAppAPI")) {
        for (const auto& pair : call["args"][0]) {
            if (pair[0].asString() == "appkey") {
                installed.push_back(pair[1].asString());
            }
        }
    }
    EXPECT_EQ(installed, install);
    // Only an app that is installed makes the reset wait for its background update.
    bool waits = !updating.empty() && std::count(install.begin(), install.end(), updating.substr(4)) > 0;
    EXPECT_EQ(!plan["waitingList"].empty(), waits);
    EXPECT_EQ(plan["problems"].size(), 0u) << plan["problems"];
}

INSTANTIATE_TEST_SUITE_P(GeneratedRoots, ThePlanAndTheBuiltInReset, ::testing::Range(1, 9));
