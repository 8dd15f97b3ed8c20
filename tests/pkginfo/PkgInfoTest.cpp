// The package-information adapter over the host package manager: what the built-in reset learns about a
// package and its main app.
#include <orvix_pkgmgr.h>

#include <map>
#include <vector>

#include "PackageRecordsTest.h"
#include "PkgInfo.h"

namespace {

const char kInstant[] = "http://orvix.com/tv/metadata/prefer_instant_reset";

// A player whose main app is its second app and declares a key twice, a value without text and an empty
// one; packages that cannot tell their version, flag or main app; one whose main app is not there.
const char kRecords[] = R"({"packages": [
  {"pkgid": "org.tv.player", "version": "2.1.0", "removable": false, "builtin": true, "mainapp": "player",
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
    EXPECT_TRUE(LogHas("src/Commons/Wrapper/src/PkgInfo: CheckAppVersion("));
}

// The main app is the package's "mainapp", not its first app; a key declared twice keeps its later value,
// values without text read as empty; a package whose main app cannot be found has no metadata.
TEST_F(PkgInfoTest, MainAppMetadataAndCategories) {
    IPkgAppInfo player("org.tv.player");
    EXPECT_EQ(player.metadata,
              (std::map<std::string, std::string>{{kInstant, "true"}, {"empty", ""}, {"bare", ""}}));
    EXPECT_EQ(player.GetCategories(),
              (std::vector<std::string>{"http://orvix.com/category/app", "http://orvix.com/category/video"}));
    std::string value;
    EXPECT_TRUE(player.FindMetadataValue(kInstant, value));
    EXPECT_EQ(value, "true");
    EXPECT_FALSE(player.FindMetadataValue("role", value));
    for (const char* name : {"org.tv.absent", "org.tv.nomain", "org.tv.lostmain", ""}) {
        IPkgAppInfo info(name);
        EXPECT_TRUE(info.metadata.empty()) << name;
        EXPECT_FALSE(info.FindMetadataValue(kInstant, value)) << name;
    }
}

// Any app of any package is found by its id.
TEST_F(PkgInfoTest, MetadataByAppId) {
    struct Case {
        std::string appId, key;
        bool robot, found;
        std::string value;
    };
    for (const Case& c : std::vector<Case>{{"player", kInstant, false, true, "true"},
                                           {"player", "empty", false, true, ""},
                                           {"player.helper", "role", false, true, "helper"},
                                           {"player", "role", false, false, ""},
                                           {"player", kInstant, true, false, ""},
                                           {"org.tv.player", kInstant, false, false, ""},
                                           {"", kInstant, false, false, ""}}) {
        SCOPED_TRACE(c.appId + " " + c.key);
        std::string value = "unchanged";
        EXPECT_EQ(IPkgAppInfo::GetMetadataByOrvixID(c.appId, c.key, value, c.robot), c.found);
        EXPECT_EQ(value, c.found ? c.value : "unchanged");
    }
}

}  // namespace
