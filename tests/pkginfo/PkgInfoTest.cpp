// The package-information adapter over the host package manager (what the built-in reset learns about a
// package and its main app), and the host package manager under it: which records it answers from, when
// it reads the file again, and that handles and threads never see a store being replaced under them.
#include <gtest/gtest.h>
#include <orvix_host.h>
#include <orvix_pkgmgr.h>
#include <pkgmgr-info.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <map>
#include <thread>
#include <vector>

#include "PkgInfo.h"
#include "TAKDir.h"
#include "TempDir.h"
#include "TestLog.h"

namespace {

const char kInstant[] = "http://orvix.com/tv/metadata/prefer_instant_reset";

// A player whose main app is its second app and declares a key twice, a value without text and an empty
// one; packages that cannot tell their version, flag or main app; one whose main app is not there.
const char kRecords[] = R"({"packages": [
  {"pkgid": "org.tv.player", "version": "2.1.0", "removable": false, "builtin": true, "mainapp": "player",
   "apps": [{"appid": "player.helper", "metadata": [["role", "helper"]]},
            {"appid": "player",
             "metadata": [["http://orvix.com/tv/metadata/prefer_instant_reset", "false"], ["empty", ""],
                          ["bare", null], ["http://orvix.com/tv/metadata/prefer_instant_reset", "true"]]}]},
  {"pkgid": "org.tv.plain", "mainapp": "plain", "apps": [{"appid": "plain"}]},
  {"pkgid": "org.tv.odd", "version": 5, "removable": "yes", "mainapp": "", "apps": []},
  {"pkgid": "org.tv.nomain", "version": "1.0", "removable": true, "apps": [{"appid": "nomain"}]},
  {"pkgid": "org.tv.lostmain", "version": "1.0", "removable": true, "mainapp": "gone", "apps": []}
]})";

const char kGood[] = R"({"packages": [{"pkgid": "org.good", "version": "1.0", "removable": true,
  "mainapp": "good", "apps": [{"appid": "good", "metadata": [["k", "v"]]}]}]})";

// A fresh host root per test with the records above (the store's tests write their own); at tear-down
// every package-manager handle opened during the test must have been released.
class PkgInfoTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = orvix::test::TempPattern("pkginfo-root.");
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        orvix::host::SetRoot(root_ = pattern);
        ASSERT_TRUE(orvix::host::MakeDirs(root_ + "/var/lib/pkgmgr"));
        WriteRecords(kRecords);
        handlesAtStart_ = orvix::host::OpenPackageHandles();
    }
    void TearDown() override {
        EXPECT_EQ(orvix::host::OpenPackageHandles(), handlesAtStart_) << "package-manager handles left open";
        TAKDir::RemoveAllFiles(root_, true, false);
    }
    static std::string RecordsPath() { return orvix::host::UnderRoot("var/lib/pkgmgr/packages.json"); }
    // Replaces the records file in one step, as `orvix-host pkg` does.
    static void WriteRecords(const std::string& text) {
        std::string error;
        ASSERT_TRUE(orvix::host::WriteFileAtomically(RecordsPath(), text, &error)) << error;
    }
    // The package's version as the adapter reads it; "(not installed)" when it cannot be read.
    static std::string VersionOf(const char* pkgId) {
        std::string version = "(not installed)";
        IPkgInfo(pkgId, false).CheckAppVersion(version);
        return version;
    }

    std::string root_;
    long handlesAtStart_ = 0;
};

using PackageStoreTest = PkgInfoTest;

}  // namespace

// The robot app space is never asked; a flag that cannot be read, or a package without a handle, counts
// as removable; a version that cannot be read leaves the caller's text as it was.
TEST_F(PkgInfoTest, PackageAnswers) {
    struct Case {
        const char* name;
        bool robot, installed, removable;
        const char* version;  // nullptr: cannot be read
    };
    for (const Case& c : std::vector<Case>{{"org.tv.player", false, true, false, "2.1.0"},
                                           {"org.tv.plain", false, true, true, ""},
                                           {"org.tv.odd", false, true, true, nullptr},
                                           {"org.tv.player", true, false, true, nullptr},
                                           {"player", false, false, true, nullptr},
                                           {"", false, false, true, nullptr}}) {
        SCOPED_TRACE(std::string(c.name) + (c.robot ? " robot" : ""));
        EXPECT_EQ(IPkgInfo::IsInstalled(c.name, c.robot), c.installed);
        IPkgInfo info(c.name, c.robot);
        EXPECT_EQ(info.GetAppRemovableFlag(), c.removable);
        std::string version = "kept";
        EXPECT_EQ(info.CheckAppVersion(version), c.version != nullptr);
        EXPECT_EQ(version, c.version != nullptr ? c.version : "kept");
    }
}

// The main app is the package's "mainapp", not its first app; a key declared twice keeps its later value,
// values without text read as empty; a package whose main app cannot be found has no metadata. By app id,
// any app of any package is found, but not in the robot space.
TEST_F(PkgInfoTest, MainAppMetadataAndMetadataByAppId) {
    IPkgAppInfo player("org.tv.player");
    EXPECT_EQ(player.metadata,
              (std::map<std::string, std::string>{{kInstant, "true"}, {"empty", ""}, {"bare", ""}}));
    std::string value;
    EXPECT_TRUE(player.FindMetadataValue(kInstant, value) && value == "true");
    EXPECT_FALSE(player.FindMetadataValue("role", value));
    for (const char* name : {"org.tv.absent", "org.tv.nomain", "org.tv.lostmain", ""}) {
        IPkgAppInfo info(name);
        EXPECT_TRUE(info.metadata.empty() && !info.FindMetadataValue(kInstant, value)) << name;
    }
    struct Case {
        std::string appId, key;
        bool robot, found;
        std::string value;
    };
    for (const Case& c : std::vector<Case>{{"player", kInstant, false, true, "true"},
                                           {"player.helper", "role", false, true, "helper"},
                                           {"player", "role", false, false, ""},
                                           {"player", kInstant, true, false, ""},
                                           {"org.tv.player", kInstant, false, false, ""}}) {
        SCOPED_TRACE(c.appId + " " + c.key);
        value = "unchanged";
        EXPECT_EQ(IPkgAppInfo::GetMetadataByOrvixID(c.appId, c.key, value, c.robot), c.found);
        EXPECT_EQ(value, c.found ? c.value : "unchanged");
    }
}

// The whole file counts as no packages, with one log line for a file that is there but unusable (none for
// a missing one, however often it is asked); the next good version of the file is answered again.
TEST_F(PackageStoreTest, UnusableRecordsHoldNoPackages) {
    const std::string good = R"({"pkgid": "org.good", "mainapp": "good", "apps": [{"appid": "good"}]}, )";
    const std::string path = RecordsPath();
    const struct {
        std::string text;  // "missing" or "directory" for no file or a directory
        bool logged;
    } cases[] = {
        {"missing", false},
        {"directory", true},
        {"packages: org.good", true},
        // Deeper than the JSON reader's limit: it throws rather than fails (found by fuzzing).
        {R"({"packages":)" + std::string(1100, '[') + std::string(1100, ']') + "}", true},
        {"[" + good + "{}]", true},
        {R"({"packages": [)" + good + R"({"pkgid": "b", "apps": [{"appid": "b", "metadata": [["k", 1]]}]}]})",
         true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text.substr(0, 40));
        WriteRecords(kGood);
        ASSERT_TRUE(IPkgInfo::IsInstalled("org.good", false));
        orvix::test::LogMark mark;
        ASSERT_EQ(unlink(path.c_str()), 0);
        if (c.text == "directory") {
            ASSERT_EQ(mkdir(path.c_str(), 0755), 0);
        } else if (c.text != "missing") {
            WriteRecords(c.text);
        }
        for (int i = 0; i < 3; ++i) {
            std::string value;
            EXPECT_FALSE(IPkgInfo::IsInstalled("org.good", false) ||
                         IPkgAppInfo::GetMetadataByOrvixID("good", "k", value, false));
            EXPECT_TRUE(IPkgAppInfo("org.good").metadata.empty());
        }
        EXPECT_EQ(orvix::test::Count(mark.Text(), "package records"), c.logged ? 1u : 0u) << mark.Text();
        rmdir(path.c_str());
    }
}

// A rewrite (new file or the same file rewritten in place) is seen by the next look-up (a removal: see the
// missing file above), but an unchanged file is not parsed again. A handle keeps the records it was opened
// on: its texts stay valid and unchanged after a reload. A package id that two records carry answers with the
// first of them.
TEST_F(PackageStoreTest, FileIsParsedAgainOnlyWhenItChangedAndHandlesOutliveAReload) {
    WriteRecords(kGood);
    unsigned long loads = orvix::host::PackageRecordLoads();
    EXPECT_TRUE(VersionOf("org.good") == "1.0" && VersionOf("org.good") == "1.0");
    EXPECT_EQ(orvix::host::PackageRecordLoads(), loads + 1);
    pkgmgrinfo_pkginfo_h package = nullptr;
    pkgmgrinfo_appinfo_h app = nullptr;
    char *version = nullptr, *value = nullptr;
    ASSERT_EQ(pkgmgrinfo_pkginfo_get_pkginfo("org.good", &package), PMINFO_R_OK);
    ASSERT_EQ(pkgmgrinfo_appinfo_get_appinfo("good", &app), PMINFO_R_OK);
    pkgmgrinfo_pkginfo_get_version(package, &version);
    pkgmgrinfo_appinfo_get_metadata_value(app, "k", &value);
    WriteRecords(R"({"packages": [{"pkgid": "org.good", "version": "1.1", "apps": [{"appid": "good",
        "metadata": [["k", "w"]]}]}, {"pkgid": "org.new", "apps": [{"appid": "good", "metadata": [["k", "dup"]]}]},
        {"pkgid": "org.good", "version": "second"}]})");
    EXPECT_EQ(VersionOf("org.good"), "1.1");
    std::string metadata;
    EXPECT_TRUE(IPkgAppInfo::GetMetadataByOrvixID("good", "k", metadata, false) && metadata == "w");
    EXPECT_EQ(VersionOf("org.new"), "");
    EXPECT_STREQ(version, "1.0");
    EXPECT_STREQ(value, "v");
    pkgmgrinfo_appinfo_destroy_appinfo(app);
    pkgmgrinfo_pkginfo_destroy_pkginfo(package);
    std::ofstream(RecordsPath(), std::ios::trunc)
        << R"({"packages": [{"pkgid": "org.good", "version": "1.22"}]})";
    EXPECT_EQ(VersionOf("org.good"), "1.22");
    EXPECT_EQ(VersionOf("org.new"), "(not installed)");
}

// Look-ups from several threads while the file keeps being replaced: every answer comes from one version
// of the records (a package's version and its app's metadata always agree).
TEST_F(PackageStoreTest, ConcurrentLookupsSeeOneVersionOfTheRecords) {
    auto generation = [](int n) {
        std::string g = std::to_string(n);
        return R"({"packages": [{"pkgid": "p", "version": ")" + g +
               R"(", "mainapp": "a", "apps": [{"appid": "a", "metadata": [["gen", ")" + g + R"("]]}]}]})";
    };
    WriteRecords(generation(0));
    std::atomic<bool> writing{true};
    std::atomic<int> disagreements{0};
    auto reader = [&] {
        do {
            pkgmgrinfo_pkginfo_h package = nullptr;
            if (pkgmgrinfo_pkginfo_get_pkginfo("p", &package) != PMINFO_R_OK) {
                ++disagreements;
                continue;
            }
            char* version = nullptr;
            pkgmgrinfo_pkginfo_get_version(package, &version);
            std::string gen = "none";
            auto read = [](const pkgmgrinfo_appinfo_h app, void* data) {
                char* text = nullptr;
                pkgmgrinfo_appinfo_get_metadata_value(app, "gen", &text);
                *static_cast<std::string*>(data) = text != nullptr ? text : "";
                return 0;
            };
            pkgmgrinfo_appinfo_get_list(package, read, &gen);
            disagreements += version == nullptr || gen != version ? 1 : 0;
            pkgmgrinfo_pkginfo_destroy_pkginfo(package);
        } while (writing);
    };
    std::thread readers[] = {std::thread(reader), std::thread(reader), std::thread(reader)};
    for (int n = 1; n <= 60; ++n) {
        WriteRecords(generation(n));
    }
    writing = false;
    for (auto& thread : readers) {
        thread.join();
    }
    EXPECT_EQ(disagreements, 0);  // every reader answered at least once
    EXPECT_EQ(VersionOf("p"), "60");
}
