// The host package manager: which records files it answers from, when it reads the file again, and that
// handles and threads never see a store being replaced under them.
#include <orvix_host.h>
#include <orvix_pkgmgr.h>
#include <pkgmgr-info.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <thread>
#include <vector>

#include "PackageRecordsTest.h"
#include "PkgInfo.h"

namespace {

using orvix::host::PackageRecordLoads;

const char kGood[] = R"({"packages": [{"pkgid": "org.good", "version": "1.0", "removable": true,
  "mainapp": "good", "apps": [{"appid": "good", "metadata": [["k", "v"]]}]}]})";

// The package's version as the adapter reads it; "(not installed)" when it cannot be read.
std::string VersionOf(const char* pkgId) {
    std::string version = "(not installed)";
    IPkgInfo(pkgId, false).CheckAppVersion(version);
    return version;
}

using PackageStoreTest = PackageRecordsTest;

// The whole file counts as no packages, with one log line for a file that is there but unusable (none for
// a missing one, however often it is asked); the next good version of the file is answered again.
TEST_F(PackageStoreTest, UnusableRecordsHoldNoPackages) {
    const std::string good = R"({"pkgid": "org.good", "mainapp": "good", "apps": [{"appid": "good"}]}, )";
    const std::string path = RecordsPath();
    const struct {
        std::string text;  // "missing" or "directory" for no file or a directory
        const char* line;  // "" when nothing is logged
    } cases[] = {
        {"missing", ""},
        {"directory", "package records cannot be read"},
        {"packages: org.good", "are not a package list"},
        // Deeper than the JSON reader's limit: it throws rather than fails (found by fuzzing).
        {R"({"packages":)" + std::string(1100, '[') + std::string(1100, ']') + "}", "are not a package list"},
        {"[" + good + "{}]", "no \"packages\" list"},
        {R"({"packages": [)" + good + R"({"version": "1"}]})", "malformed package record (number 2)"},
        {R"({"packages": [)" + good + R"({"pkgid": "b", "apps": [{"appid": "b", "metadata": [["k", 1]]}]}]})",
         "malformed package record (number 2)"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text.substr(0, 40));
        WriteRecords(kGood);
        ASSERT_TRUE(IPkgInfo::IsInstalled("org.good", false));
        orvix::test::LogMark mark;
        if (c.text == "missing" || c.text == "directory") {
            unlink(path.c_str());
            if (c.text == "directory") {
                mkdir(path.c_str(), 0755);
            }
        } else {
            WriteRecords(c.text);
        }
        for (int i = 0; i < 3; ++i) {
            std::string value;
            EXPECT_FALSE(IPkgInfo::IsInstalled("org.good", false));
            EXPECT_FALSE(IPkgAppInfo::GetMetadataByOrvixID("good", "k", value, false));
            EXPECT_TRUE(IPkgAppInfo("org.good").metadata.empty());
        }
        std::string log = mark.Text();
        EXPECT_EQ(orvix::test::Count(log, "package records"), *c.line != '\0' ? 1u : 0u) << log;
        EXPECT_NE(log.find(c.line), std::string::npos) << log;
        rmdir(path.c_str());
    }
    WriteRecords(kGood);
    EXPECT_TRUE(IPkgInfo::IsInstalled("org.good", false));
}

// One parse per version of the file, however many look-ups: a rewrite (new file or the same file
// rewritten in place) and a removal are each seen by the next look-up. A handle keeps the records it was
// opened on: its texts stay valid and unchanged after a reload.
TEST_F(PackageStoreTest, FileIsParsedAgainOnlyWhenItChangedAndHandlesOutliveAReload) {
    WriteRecords(kGood);
    unsigned long loads = PackageRecordLoads();
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(VersionOf("org.good"), "1.0");
    }
    EXPECT_EQ(PackageRecordLoads(), loads + 1);
    pkgmgrinfo_pkginfo_h package = nullptr;
    pkgmgrinfo_appinfo_h app = nullptr;
    char *version = nullptr, *value = nullptr;
    ASSERT_EQ(pkgmgrinfo_pkginfo_get_pkginfo("org.good", &package), PMINFO_R_OK);
    ASSERT_EQ(pkgmgrinfo_appinfo_get_appinfo("good", &app), PMINFO_R_OK);
    pkgmgrinfo_pkginfo_get_version(package, &version);
    pkgmgrinfo_appinfo_get_metadata_value(app, "k", &value);
    WriteRecords(R"({"packages": [{"pkgid": "org.good", "version": "1.1"}, {"pkgid": "org.new"}]})");
    EXPECT_EQ(VersionOf("org.good"), "1.1");
    EXPECT_EQ(VersionOf("org.new"), "");
    EXPECT_EQ(PackageRecordLoads(), loads + 2);
    EXPECT_STREQ(version, "1.0");
    EXPECT_STREQ(value, "v");
    pkgmgrinfo_appinfo_destroy_appinfo(app);
    pkgmgrinfo_pkginfo_destroy_pkginfo(package);
    std::ofstream(RecordsPath(), std::ios::trunc)
        << R"({"packages": [{"pkgid": "org.good", "version": "1.22"}]})";
    EXPECT_EQ(VersionOf("org.good"), "1.22");
    EXPECT_EQ(VersionOf("org.new"), "(not installed)");
    EXPECT_EQ(PackageRecordLoads(), loads + 3);
    unlink(RecordsPath().c_str());
    EXPECT_EQ(VersionOf("org.good"), "(not installed)");
    EXPECT_EQ(PackageRecordLoads(), loads + 3);
}

// A package id or an app id that two records carry answers with the first of them.
TEST_F(PackageStoreTest, RepeatedIdsAnswerWithTheirFirstRecord) {
    WriteRecords(
        R"({"packages": [{"pkgid": "p", "version": "first", "apps": [{"appid": "a", "metadata": [["k", "p"]]}]},
        {"pkgid": "q", "apps": [{"appid": "a", "metadata": [["k", "q"]]}]}, {"pkgid": "p", "version": "second"}]})");
    EXPECT_EQ(VersionOf("p"), "first");
    std::string value;
    EXPECT_TRUE(IPkgAppInfo::GetMetadataByOrvixID("a", "k", value, false));
    EXPECT_EQ(value, "p");
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
    std::atomic<int> answers{0}, disagreements{0};
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
            ++answers;
            pkgmgrinfo_pkginfo_destroy_pkginfo(package);
        } while (writing);
    };
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back(reader);
    }
    for (int n = 1; n <= 60; ++n) {
        WriteRecords(generation(n));
    }
    writing = false;
    for (auto& thread : readers) {
        thread.join();
    }
    EXPECT_EQ(disagreements, 0);
    EXPECT_GE(answers, 3);
    EXPECT_EQ(VersionOf("p"), "60");
}

}  // namespace
