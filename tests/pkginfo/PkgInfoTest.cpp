// The package-information adapter over the host package manager: what the built-in reset learns about a
// package and its main app, and the log line each answer leaves.
#include <orvix_pkgmgr.h>

#include <vector>

#include "PackageRecordsTest.h"
#include "PkgInfo.h"

namespace {

const char kInstantReset[] = "http://orvix.com/tv/metadata/prefer_instant_reset";

// Packages as a device's database can hold them: a player whose main app is its second app and declares
// a key twice, a value without text and an empty one; packages that cannot tell their version, flag or
// main app; and one whose main app is not there.
const char kRecords[] = R"({"packages": [
  {"pkgid": "org.tv.player", "version": "2.1.0", "type": "tpk", "removable": false, "builtin": true,
   "mainapp": "player",
   "apps": [{"appid": "player.helper", "metadata": [["role", "helper"]]},
            {"appid": "player",
             "metadata": [["http://orvix.com/tv/metadata/prefer_instant_reset", "false"], ["empty", ""],
                          ["bare", null], ["http://orvix.com/tv/metadata/prefer_instant_reset", "true"]],
             "categories": ["http://orvix.com/category/app", "http://orvix.com/category/video"]}]},
  {"pkgid": "org.tv.plain", "mainapp": "plain", "apps": [{"appid": "plain"}]},
  {"pkgid": "org.tv.odd", "version": 5, "removable": "yes", "mainapp": "", "apps": []},
  {"pkgid": "org.tv.nomain", "version": "1.0", "removable": true, "apps": [{"appid": "nomain"}]},
  {"pkgid": "org.tv.lostmain", "version": "1.0", "removable": true, "mainapp": "gone", "apps": []}
]})";

class PkgInfoTest : public PackageRecordsTest {
protected:
    void SetUp() override {
        PackageRecordsTest::SetUp();
        WriteRecords(kRecords);
    }
};

// The robot app space is never asked: an installed id counts as not installed there.
TEST_F(PkgInfoTest, IsInstalledOnlyForKnownPackagesOutsideTheRobotSpace) {
    EXPECT_TRUE(IPkgInfo::IsInstalled("org.tv.player", false));
    EXPECT_FALSE(IPkgInfo::IsInstalled("org.tv.player", true));
    EXPECT_FALSE(IPkgInfo::IsInstalled("player", false));
    EXPECT_FALSE(IPkgInfo::IsInstalled("", false));
    EXPECT_TRUE(LogHas("strPkgName is empty!"));
}

// Log lines name the adapter's source file, and each answer leaves its own line.
TEST_F(PkgInfoTest, VersionAndRemovableFlagOfAnInstalledPackage) {
    IPkgInfo player("org.tv.player", false);
    std::string version;
    EXPECT_TRUE(player.CheckAppVersion(version));
    EXPECT_EQ(version, "2.1.0");
    EXPECT_FALSE(player.GetAppRemovableFlag());
    EXPECT_TRUE(LogHas("src/Commons/Wrapper/src/PkgInfo: CheckAppVersion("));
    EXPECT_TRUE(LogHas("App pkg name[org.tv.player], app version[2.1.0]"));
    EXPECT_TRUE(LogHas("App pkg name[org.tv.player], removable flag[0]"));

    IPkgInfo plain("org.tv.plain", false);
    version = "stale";
    EXPECT_TRUE(plain.CheckAppVersion(version));
    EXPECT_EQ(version, "");
    EXPECT_TRUE(LogHas("App pkg name[org.tv.plain], app version[]"));
}

// A flag that cannot be read, or a package without a handle, counts as removable; a version that cannot be
// read or a package without a handle gives no version.
TEST_F(PkgInfoTest, UnreadableAnswersAndMissingHandles) {
    struct Case {
        const char* name;
        bool robot;
        const char* openLine;     // logged by the constructor, or "" for none
        const char* versionLine;  // logged by CheckAppVersion
    };
    for (const Case& c : std::vector<Case>{
             {"org.tv.plain", false, "", ""},
             {"org.tv.odd", false, "", "Failed to get app pkgname[org.tv.odd] version!"},
             {"org.tv.player", true, "", "pkgname[org.tv.player] is not installed"},
             {"org.tv.absent", false, "Failed to get app pkgname[org.tv.absent] pkgmgr pkginfo handle.",
              "pkgname[org.tv.absent] is not installed"},
             {"", false, "strPkgName is empty", "pkgname[] is not installed"}}) {
        SCOPED_TRACE(c.name);
        orvix::test::LogMark mark;
        IPkgInfo info(c.name, c.robot);
        EXPECT_TRUE(info.GetAppRemovableFlag());
        std::string flagLine = std::string("Failed to get app pkgname[") + c.name + "] remvable flag!";
        EXPECT_TRUE(mark.Contains(flagLine));
        EXPECT_TRUE(mark.Contains(c.openLine));
        if (*c.versionLine != '\0') {
            std::string version = "kept";
            EXPECT_FALSE(info.CheckAppVersion(version));
            EXPECT_EQ(version, "kept");
            EXPECT_TRUE(mark.Contains(c.versionLine));
        }
    }
}

// The main app is the package's "mainapp", not its first app; a key declared twice keeps its later value,
// values without text read as empty.
TEST_F(PkgInfoTest, MainAppMetadataAndCategories) {
    IPkgAppInfo player("org.tv.player");
    std::map<std::string, std::string> expected = {{kInstantReset, "true"}, {"empty", ""}, {"bare", ""}};
    EXPECT_EQ(player.metadata, expected);
    EXPECT_EQ(player.GetCategories(),
              (std::vector<std::string>{"http://orvix.com/category/app", "http://orvix.com/category/video"}));
    EXPECT_TRUE(LogHas("pkgname[org.tv.player] main app id [player]"));

    std::string value;
    EXPECT_TRUE(player.FindMetadataValue(kInstantReset, value));
    EXPECT_EQ(value, "true");
    EXPECT_TRUE(LogHas("Find pkgname[org.tv.player] metadata key=[" + std::string(kInstantReset) +
                       "], value=[true]"));
    EXPECT_FALSE(player.FindMetadataValue("role", value));
    EXPECT_TRUE(LogHas("Not find pkgname[org.tv.player] meatadata key[role]."));
}

TEST_F(PkgInfoTest, AppInfoFailuresLeaveNoMetadata) {
    struct Case {
        const char* name;
        const char* line;
    };
    for (const Case& c : std::vector<Case>{
             {"org.tv.absent", "Failed to get app pkgname[org.tv.absent] pkgmgr appinfo handle."},
             {"org.tv.nomain", "Failed to get app pkgname[org.tv.nomain] main app id."},
             {"org.tv.lostmain", "Failed to get app pkgname[org.tv.lostmain] appinfo handle!"}}) {
        SCOPED_TRACE(c.name);
        orvix::test::LogMark mark;
        IPkgAppInfo info(c.name);
        std::string value;
        EXPECT_TRUE(info.metadata.empty());
        EXPECT_FALSE(info.FindMetadataValue(kInstantReset, value));
        EXPECT_TRUE(mark.Contains(c.line));
    }
}

// Any app of any package is found by its id; the handle is released whatever the answer.
TEST_F(PkgInfoTest, MetadataByAppId) {
    const std::string instant = kInstantReset;
    struct Case {
        std::string appId, key;
        bool robot;
        bool found;
        std::string value, line;
    };
    for (const Case& c : std::vector<Case>{
             {"player", instant, false, true, "true", "App [player], metadata[" + instant + "] value[true]"},
             {"player", "empty", false, true, "", "App [player], metadata[empty] value[]"},
             {"player.helper", "role", false, true, "helper",
              "App [player.helper], metadata[role] value[helper]"},
             {"player", "role", false, false, "", "Failed to get app [player] metadata[role]!"},
             {"player", instant, true, false, "", "Failed to get app [player] info!"},
             {"org.tv.player", instant, false, false, "", "Failed to get app [org.tv.player] info!"},
             {"", instant, false, false, "", "strOrvixID is empty!"}}) {
        SCOPED_TRACE(c.appId + " " + c.key);
        orvix::test::LogMark mark;
        long handles = orvix::host::OpenPackageHandles();
        std::string value = "unchanged";
        EXPECT_EQ(IPkgAppInfo::GetMetadataByOrvixID(c.appId, c.key, value, c.robot), c.found);
        EXPECT_EQ(value, c.found ? c.value : "unchanged");
        EXPECT_EQ(orvix::host::OpenPackageHandles(), handles);
        EXPECT_TRUE(mark.Contains(c.line));
    }
}

}  // namespace
