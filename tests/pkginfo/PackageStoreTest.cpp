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

std::string VersionOf(const char* pkgId) {
    pkgmgrinfo_pkginfo_h handle = nullptr;
    if (pkgmgrinfo_pkginfo_get_pkginfo(pkgId, &handle) != PMINFO_R_OK) {
        return "(not installed)";
    }
    char* version = nullptr;
    pkgmgrinfo_pkginfo_get_version(handle, &version);
    std::string text = version != nullptr ? version : "(none)";
    pkgmgrinfo_pkginfo_destroy_pkginfo(handle);
    return text;
}

using PackageStoreTest = PackageRecordsTest;

// Nothing here crashes or half-answers: the whole file counts as no packages, with one log line for a
// file that is there but unusable (none for a missing one, however often it is asked), and the next good
// version of the file is answered again.
TEST_F(PackageStoreTest, UnusableRecordsHoldNoPackages) {
    const std::string good = R"({"pkgid": "org.good", "mainapp": "good", "apps": [{"appid": "good"}]}, )";
    struct Case {
        const char* what;
        std::string text;  // the file's content; "missing" or "directory" for no file or a directory
        const char* line;  // "" when nothing is logged
    };
    std::string path = RecordsPath();
    const std::vector<Case> cases = {
        {"missing", "missing", ""},
        {"a directory", "directory", "package records cannot be read"},
        {"not JSON", "packages: org.good", "are not a package list"},
        // Deeper than the JSON reader's limit: it throws rather than fails (found by fuzzing).
        {"nested too deep", R"({"packages":)" + std::string(1100, '[') + std::string(1100, ']') + "}",
         "are not a package list"},
        {"an array", "[" + good + "{}]", "no \"packages\" list"},
        {"no pkgid", R"({"packages": [)" + good + R"({"version": "1"}]})",
         "malformed package record (number 2)"},
        {"metadata value a number",
         R"({"packages": [)" + good + R"({"pkgid": "b", "apps": [{"appid": "b", "metadata": [["k", 1]]}]}]})",
         "malformed package record (number 2)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
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
        size_t first = log.find("package records");
        EXPECT_EQ(first != std::string::npos, *c.line != '\0') << log;
        EXPECT_EQ(log.find("package records", first + 1), std::string::npos) << "logged twice: " << log;
        EXPECT_NE(log.find(c.line), std::string::npos) << log;
        rmdir(path.c_str());
    }
    WriteRecords(kGood);
    EXPECT_TRUE(IPkgInfo::IsInstalled("org.good", false));
}

// One parse per version of the file, however many look-ups: a rewrite (new file or the same file
// rewritten in place) and a removal are each seen by the next look-up.
TEST_F(PackageStoreTest, FileIsParsedAgainOnlyWhenItChanged) {
    WriteRecords(kGood);
    unsigned long loads = PackageRecordLoads();
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(VersionOf("org.good"), "1.0");
    }
    EXPECT_EQ(PackageRecordLoads(), loads + 1);

    WriteRecords(R"({"packages": [{"pkgid": "org.good", "version": "1.1"}, {"pkgid": "org.new"}]})");
    EXPECT_EQ(VersionOf("org.good"), "1.1");
    EXPECT_EQ(VersionOf("org.new"), "(none)");
    EXPECT_EQ(PackageRecordLoads(), loads + 2);

    std::ofstream(RecordsPath(), std::ios::trunc)
        << R"({"packages": [{"pkgid": "org.good", "version": "1.22"}]})";
    EXPECT_EQ(VersionOf("org.good"), "1.22");
    EXPECT_EQ(VersionOf("org.new"), "(not installed)");
    EXPECT_EQ(PackageRecordLoads(), loads + 3);

    unlink(RecordsPath().c_str());
    EXPECT_EQ(VersionOf("org.good"), "(not installed)");
    EXPECT_EQ(PackageRecordLoads(), loads + 3);
}

// A handle keeps the records it was opened on: its texts stay valid and unchanged after a reload.
TEST_F(PackageStoreTest, HandlesOutliveAReload) {
    WriteRecords(kGood);
    pkgmgrinfo_pkginfo_h package = nullptr;
    pkgmgrinfo_appinfo_h app = nullptr;
    ASSERT_EQ(pkgmgrinfo_pkginfo_get_pkginfo("org.good", &package), PMINFO_R_OK);
    ASSERT_EQ(pkgmgrinfo_appinfo_get_appinfo("good", &app), PMINFO_R_OK);
    char* version = nullptr;
    char* value = nullptr;
    ASSERT_EQ(pkgmgrinfo_pkginfo_get_version(package, &version), PMINFO_R_OK);
    ASSERT_EQ(pkgmgrinfo_appinfo_get_metadata_value(app, "k", &value), PMINFO_R_OK);

    WriteRecords(R"({"packages": [{"pkgid": "org.other", "version": "2.0"}]})");
    EXPECT_EQ(VersionOf("org.good"), "(not installed)");
    EXPECT_STREQ(version, "1.0");
    EXPECT_STREQ(value, "v");
    pkgmgrinfo_appinfo_destroy_appinfo(app);
    pkgmgrinfo_pkginfo_destroy_pkginfo(package);
}

// Iterations stop when the callback says so; missing arguments are refused, never dereferenced.
TEST_F(PackageStoreTest, IterationsStopOnRequestAndArgumentsAreChecked) {
    WriteRecords(R"({"packages": [{"pkgid": "p", "mainapp": "a", "apps": [
        {"appid": "a", "metadata": [["k1", "1"], ["k2", "2"]], "categories": ["c1", "c2"]}, {"appid": "b"}]}]})");
    pkgmgrinfo_pkginfo_h package = nullptr;
    pkgmgrinfo_appinfo_h app = nullptr;
    ASSERT_EQ(pkgmgrinfo_pkginfo_get_pkginfo("p", &package), PMINFO_R_OK);
    ASSERT_EQ(pkgmgrinfo_appinfo_get_appinfo("a", &app), PMINFO_R_OK);
    int apps = 0, items = 0, categories = 0;
    auto stopApps = [](const pkgmgrinfo_appinfo_h, void* data) {
        return ++*static_cast<int*>(data) ? -1 : 0;
    };
    auto stopItems = [](const char*, const char*, void* data) { return ++*static_cast<int*>(data) ? -1 : 0; };
    auto stopCategories = [](const char*, void* data) { return ++*static_cast<int*>(data) ? -1 : 0; };
    EXPECT_EQ(pkgmgrinfo_appinfo_get_list(package, stopApps, &apps), PMINFO_R_OK);
    EXPECT_EQ(pkgmgrinfo_appinfo_foreach_metadata(app, stopItems, &items), PMINFO_R_OK);
    EXPECT_EQ(pkgmgrinfo_appinfo_foreach_category(app, stopCategories, &categories), PMINFO_R_OK);
    EXPECT_EQ(apps + items + categories, 3);

    char* text = nullptr;
    pkgmgrinfo_pkginfo_h noPackage = nullptr;
    for (int result :
         {pkgmgrinfo_pkginfo_get_pkginfo(nullptr, &noPackage), pkgmgrinfo_pkginfo_get_pkginfo("", &noPackage),
          pkgmgrinfo_pkginfo_destroy_pkginfo(nullptr), pkgmgrinfo_pkginfo_get_mainappid(package, nullptr),
          pkgmgrinfo_appinfo_get_list(package, nullptr, nullptr), pkgmgrinfo_appinfo_destroy_appinfo(nullptr),
          pkgmgrinfo_appinfo_get_metadata_value(app, nullptr, &text),
          pkgmgrinfo_appinfo_get_metadata_value(nullptr, "k1", &text)}) {
        EXPECT_EQ(result, PMINFO_R_EINVAL);
    }
    EXPECT_EQ(noPackage, nullptr);
    pkgmgrinfo_appinfo_destroy_appinfo(app);
    pkgmgrinfo_pkginfo_destroy_pkginfo(package);
}

// A package id or an app id that two records carry answers with the first of them.
TEST_F(PackageStoreTest, RepeatedIdsAnswerWithTheirFirstRecord) {
    WriteRecords(R"({"packages": [
        {"pkgid": "p", "version": "first", "apps": [{"appid": "shared", "metadata": [["from", "p"]]}]},
        {"pkgid": "q", "version": "q", "apps": [{"appid": "shared", "metadata": [["from", "q"]]}]},
        {"pkgid": "p", "version": "second"}]})");
    EXPECT_EQ(VersionOf("p"), "first");
    std::string value;
    EXPECT_TRUE(IPkgAppInfo::GetMetadataByOrvixID("shared", "from", value, false));
    EXPECT_EQ(value, "p");
}

// Look-ups from several threads while another process keeps rewriting the file: every answer comes from
// one version of the records (a package's version and its app's metadata always agree).
TEST_F(PackageStoreTest, ConcurrentLookupsSeeOneVersionOfTheRecords) {
    auto generation = [](int n) {
        std::string g = std::to_string(n);
        return R"({"packages": [{"pkgid": "p", "version": ")" + g + R"(", "mainapp": "a",
                   "apps": [{"appid": "a", "metadata": [["gen", ")" +
               g + R"("]]}]}]})";
    };
    WriteRecords(generation(0));
    std::atomic<bool> writing{true};
    std::atomic<int> answers{0};
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
            std::string gen;
            auto read = [](const pkgmgrinfo_appinfo_h app, void* data) {
                char* text = nullptr;
                pkgmgrinfo_appinfo_get_metadata_value(app, "gen", &text);
                *static_cast<std::string*>(data) = text != nullptr ? text : "";
                return 0;
            };
            pkgmgrinfo_appinfo_get_list(package, read, &gen);
            if (version == nullptr || gen != version) {
                ++disagreements;
            }
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
