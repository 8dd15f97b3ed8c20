// The background-update checks against a real host root: the setting in the settings store, the update
// leftovers as real files, their removal through the privileged utility that `orvix-host init` installs.
#include <platform_path.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "BuiltInAppUtil.h"
#include "HostFixture.h"
#include "ICVConf.h"
#include "TAKDir.h"
#include "TAKFile.h"
#include "TestLog.h"

namespace {

using orvix::test::LogMark;

const char kUpdatingKey[] = "memory/tak/biu_updating_app";
const char* const kEndings[] = {"_inactive.tpk", "_anytime.tpk", "_on.tpk", "_off.tpk", "_.tpk"};

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
        ASSERT_TRUE(TAKDir::Create(BackgroundDir()));
    }

    static std::string Marker(const std::string& pkgId) {
        return std::string(platform_path_get(27)) + "/tpk-update-" + pkgId;
    }
    static std::string BackgroundDir() { return std::string(platform_path_get(6)) + "/background-update"; }
    static std::vector<std::string> Leftovers(const std::string& appId, const std::string& pkgId) {
        std::vector<std::string> files = {Marker(pkgId)};
        for (const char* ending : kEndings) {
            files.push_back(BackgroundDir() + "/" + appId + ending);
        }
        return files;
    }
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
    void SetUpdating(const char* value) const {
        std::string key = Root() + "/run/vconf/" + kUpdatingKey;
        if (value == nullptr) {
            unlink(key.c_str());
            return;
        }
        ASSERT_TRUE(ICVConf::Set(kUpdatingKey, std::string(value), true));
    }
};

// The package being updated now is reported and its files are left alone; for any other package, or
// when no update runs, the update leftovers of the app are removed, and only those.
TEST_F(UpdatingTest, ReportsTheUpdatedPackageAndCleansUpAfterTheOthers) {
    struct Case {
        const char* name;
        const char* setting;  // null: the key does not exist
        bool updating;
    };
    const std::string thisOne = Updating("pkg.a");
    const std::string thisOneUninstalling = Updating("pkg.a", "uninstall");
    const std::string another = Updating("pkg.other");
    const std::string ended = R"({"status":"update","value":"end","pkgname":"pkg.a"})";
    const Case cases[] = {
        {"this package updating", thisOne.c_str(), true},
        {"this package being uninstalled", thisOneUninstalling.c_str(), true},
        {"another package updating", another.c_str(), false},
        {"update of this package ended", ended.c_str(), false},
        {"setting is not JSON", "{{{", false},
        {"setting empty", "", false},
        {"setting missing", nullptr, false},
    };
    const std::vector<std::string> mine = Leftovers("app.a", "pkg.a");
    // A longer app id sharing the prefix, another package's marker: never touched.
    const std::vector<std::string> others = {Marker("pkg.ab"), Marker("pkg.other"),
                                             BackgroundDir() + "/app.ab_on.tpk",
                                             BackgroundDir() + "/app.a_other.tpk"};
    Touch(others);
    for (const auto& c : cases) {
        SetUpdating(c.setting);
        Touch(mine);
        EXPECT_EQ(CBuiltInAppUtil::CheckUpdating("app.a", "pkg.a"), c.updating) << c.name;
        EXPECT_EQ(Remaining(mine), c.updating ? mine.size() : 0u) << c.name;
        EXPECT_EQ(Remaining(others), others.size()) << c.name;
    }
    // Nothing to clean up is no failure either.
    SetUpdating(nullptr);
    EXPECT_FALSE(CBuiltInAppUtil::CheckUpdating("app.a", "pkg.a"));
}

// An id that would name a file elsewhere, or the bare prefix, removes nothing of that kind.
TEST_F(UpdatingTest, RefusesIdsThatNameOtherFiles) {
    SetUpdating(nullptr);
    ASSERT_TRUE(TAKDir::Create(BackgroundDir() + "/sub"));
    const std::vector<std::string> bystanders = {
        Marker(""),  // what an empty package id would name
        std::string(platform_path_get(27)) + "/victim",
        BackgroundDir() + "/_on.tpk",  // what an empty app id would name
        BackgroundDir() + "/sub/x_on.tpk",
        std::string(platform_path_get(6)) + "/x_on.tpk",
    };
    Touch(bystanders);
    struct Case {
        std::string appId, pkgId;
    };
    const Case cases[] = {
        {"", ""},
        {"sub/x", "../victim"},
        {"../x", "/victim"},
        {"..", ".."},
        {std::string("app\0/x", 6), std::string("pkg\0", 4)},
    };
    for (const auto& c : cases) {
        LogMark mark;
        EXPECT_FALSE(CBuiltInAppUtil::CheckUpdating(c.appId, c.pkgId));
        EXPECT_TRUE(mark.Contains("package [") && mark.Contains("can not name an update file"))
            << mark.Text();
        EXPECT_TRUE(mark.Contains("app [")) << mark.Text();
        EXPECT_EQ(Remaining(bystanders), bystanders.size()) << c.appId << " " << c.pkgId;
    }
    // A safe package id still has its marker removed when the app id is refused.
    Touch({Marker("pkg.ok")});
    EXPECT_FALSE(CBuiltInAppUtil::CheckUpdating("", "pkg.ok"));
    EXPECT_FALSE(TAKFile::Exists(Marker("pkg.ok")));
    EXPECT_EQ(Remaining(bystanders), bystanders.size());
}

// The candidate file: absent is an empty list; unreadable, oversized or not a file is a failure; a file
// at the size limit is read whole.
TEST(CandidateFile, IsReadWithinBounds) {
    char pattern[] = "/tmp/candidate-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    const std::string dir = pattern;
    const std::string path = dir + "/p0testcandidate.xml";
    const size_t limit = CBuiltInAppUtil::kMaxCandidateFileSize;
    std::string atLimit = "a,p,1,g,t,i;\n";
    atLimit += std::string(limit - atLimit.size() - 11, ';') + "b,q,2,h,u,j";
    ASSERT_EQ(atLimit.size(), limit);

    struct Case {
        const char* name;
        std::function<void()> prepare;
        bool result;
        std::vector<std::string> pkgIds;
    };
    auto write = [&](const std::string& text) { return [&, text] { std::ofstream(path) << text; }; };
    const Case cases[] = {
        {"absent", [&] { unlink(path.c_str()); }, true, {}},
        {"at the size limit", write(atLimit), true, {"p", "q"}},
        {"one byte beyond", write(atLimit + ";"), false, {}},
        {"a directory",
         [&] {
             unlink(path.c_str());
             TAKDir::Create(path);
         },
         false,
         {}},
        {"a FIFO",
         [&] {
             rmdir(path.c_str());
             mkfifo(path.c_str(), 0600);
         },
         false,
         {}},
        {"a link to a file",
         [&] {
             unlink(path.c_str());
             std::ofstream(dir + "/target") << "c,r,3,g,t,i";
             symlink((dir + "/target").c_str(), path.c_str());
         },
         true,
         {"r"}},
    };
    for (const auto& c : cases) {
        c.prepare();
        std::vector<HOME_TEST_APP> list = {HOME_TEST_APP{"stale", "stale", "", "", "", ""}};
        EXPECT_EQ(CBuiltInAppUtil::GetP0TestChangeList(path, list), c.result) << c.name;
        std::vector<std::string> pkgIds;
        for (const auto& app : list) {
            pkgIds.push_back(app.pkgId);
        }
        EXPECT_EQ(pkgIds, c.pkgIds) << c.name;
    }
    TAKDir::RemoveAllFiles(dir, true, false);
}

}  // namespace
