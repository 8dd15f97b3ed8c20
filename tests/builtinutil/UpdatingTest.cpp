// The background-update checks against a real host root: the setting in the settings store, the update
// leftovers as real files, their removal through the privileged utility that `orvix-host init` installs.
#include <platform_path.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include "BuiltInAppUtil.h"
#include "HostFixture.h"
#include "ICVConf.h"
#include "TAKDir.h"
#include "TAKFile.h"

namespace {

const char kUpdatingKey[] = "memory/tak/biu_updating_app";

std::string Updating(const std::string& pkgname, const std::string& status = "update") {
    return R"({"status":")" + status + R"(","value":"start","pkgname":")" + pkgname + R"("})";
}

class UpdatingTest : public orvix::test::HostFixture {
protected:
    std::vector<std::string> InitArguments() const override { return {"--apps", "0", "--builtin", "0"}; }
    bool StartsBus() const override { return false; }

    void SetUp() override {
        HostFixture::SetUp();
        ASSERT_FALSE(HasFatalFailure());
        ASSERT_TRUE(TAKDir::Create(BackgroundDir() + "/sub"));
    }

    static std::string Marker(const std::string& pkgId) {
        return std::string(platform_path_get(27)) + "/tpk-update-" + pkgId;
    }
    static std::string BackgroundDir() { return std::string(platform_path_get(6)) + "/background-update"; }
    static void Touch(const std::vector<std::string>& files) {
        for (const auto& file : files) {
            std::ofstream(file) << "x";
            ASSERT_TRUE(TAKFile::IsFile(file)) << file;
        }
    }
    static size_t Remaining(const std::vector<std::string>& files) {
        size_t count = 0;
        for (const auto& file : files) {
            count += TAKFile::Exists(file) ? 1 : 0;
        }
        return count;
    }
};

// The package being updated now is reported and its files are left alone; for any other package, or
// when no update runs, the update leftovers of the app are removed, and only those. What else the
// setting's text can say is the parser test's.
TEST_F(UpdatingTest, ReportsTheUpdatedPackageAndCleansUpAfterTheOthers) {
    const struct {
        std::string setting;  // "": the key does not exist
        bool updating;
    } cases[] = {{Updating("pkg.a"), true},
                 {Updating("pkg.a", "uninstall"), true},
                 {Updating("pkg.other"), false},
                 {"", false}};
    std::vector<std::string> mine = {Marker("pkg.a")};
    for (const char* ending : {"_inactive.tpk", "_anytime.tpk", "_on.tpk", "_off.tpk", "_.tpk"}) {
        mine.push_back(BackgroundDir() + "/app.a" + ending);
    }
    // A longer app id sharing the prefix, another package's marker: never touched.
    const std::vector<std::string> others = {Marker("pkg.ab"), Marker("pkg.other"),
                                             BackgroundDir() + "/app.ab_on.tpk",
                                             BackgroundDir() + "/app.a_other.tpk"};
    Touch(others);
    for (const auto& c : cases) {
        if (c.setting.empty()) {
            unlink((Root() + "/run/vconf/" + kUpdatingKey).c_str());
        } else {
            ASSERT_TRUE(ICVConf::Set(kUpdatingKey, c.setting, true));
        }
        Touch(mine);
        EXPECT_EQ(CBuiltInAppUtil::CheckUpdating("app.a", "pkg.a"), c.updating) << c.setting;
        // A waiting list is served only when the package being updated is not in it.
        EXPECT_EQ(CBuiltInAppUtil::CheckWaitingList({"pkg.x", "pkg.a"}), !c.updating) << c.setting;
        EXPECT_EQ(Remaining(mine), c.updating ? mine.size() : 0u) << c.setting;
        EXPECT_EQ(Remaining(others), others.size()) << c.setting;
    }
}

// An id that would name a file elsewhere, or the bare prefix, removes nothing of that kind; a safe
// package id still has its marker removed when the app id is refused.
TEST_F(UpdatingTest, RefusesIdsThatNameOtherFiles) {
    const std::vector<std::string> bystanders = {
        Marker(""),  // what an empty package id would name
        std::string(platform_path_get(27)) + "/victim",
        BackgroundDir() + "/_on.tpk",  // what an empty app id would name
        BackgroundDir() + "/sub/x_on.tpk",
        std::string(platform_path_get(6)) + "/x_on.tpk",
    };
    Touch(bystanders);
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"sub/x", "../victim"},
        {"../x", "/victim"},
        {"..", ".."},
        {std::string("app\0/x", 6), std::string("pkg\0", 4)}};
    for (const auto& [appId, pkgId] : cases) {
        EXPECT_FALSE(CBuiltInAppUtil::CheckUpdating(appId, pkgId));
        EXPECT_EQ(Remaining(bystanders), bystanders.size()) << appId << " " << pkgId;
    }
    Touch({Marker("pkg.ok")});
    EXPECT_FALSE(CBuiltInAppUtil::CheckUpdating("", "pkg.ok"));
    EXPECT_FALSE(TAKFile::Exists(Marker("pkg.ok")));
    EXPECT_EQ(Remaining(bystanders), bystanders.size());
}

// The candidate file: absent is an empty list; oversized or not a file is a failure; a file at the size
// limit is read whole; a link to a file is followed.
TEST_F(UpdatingTest, ReadsTheCandidateFileWithinBounds) {
    const std::string dir = Root() + "/";
    std::string atLimit = "a,p,1,g,t,i;\n";
    atLimit += std::string(CBuiltInAppUtil::kMaxCandidateFileSize - atLimit.size() - 11, ';') + "b,q,2,h,u,j";
    std::ofstream(dir + "at-limit") << atLimit;
    std::ofstream(dir + "over-limit") << atLimit + ";";
    std::ofstream(dir + "target") << "c,r,3,g,t,i";
    ASSERT_TRUE(TAKDir::Create(dir + "directory") && mkfifo((dir + "fifo").c_str(), 0600) == 0 &&
                symlink((dir + "target").c_str(), (dir + "link").c_str()) == 0);
    const std::tuple<const char*, bool, const char*> cases[] = {
        // name, result, the package ids read
        {"absent", true, ""},     {"at-limit", true, "p;q;"}, {"over-limit", false, ""},
        {"directory", false, ""}, {"fifo", false, ""},        {"link", true, "r;"},
    };
    for (const auto& [name, result, pkgIds] : cases) {
        std::vector<HOME_TEST_APP> list = {HOME_TEST_APP{"stale", "stale", "", "", "", ""}};
        EXPECT_EQ(CBuiltInAppUtil::GetP0TestChangeList(dir + name, list), result) << name;
        std::string read;
        for (const auto& app : list) {
            read += app.pkgId + ";";
        }
        EXPECT_EQ(read, pkgIds) << name;
    }
}

}  // namespace
