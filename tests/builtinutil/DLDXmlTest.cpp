// The download-info file, compared byte for byte with what the installer side reads.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <limits>
#include <map>
#include <string>

#include "TAKUtil.h"
#include "TestLog.h"

namespace {

using orvix::test::LogMark;
using orvix::test::ReadWholeFile;

const char kHead[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<list>\n";
const char kTail[] = "</list>\n";

// The start tag of an app whose record holds nothing but the given texts; everything else default.
std::string DefaultStartTag(const std::string& id) {
    return "<app id=\"" + id +
           "\" orvixid=\"\" platform=\"ORVIX\" version=\"\" fileExtension=\"\" url=\"\" checksum=\"\" "
           "decompressedSize=\"0\" fileSize=\"0\" title=\"\" titleLang=\"\" iconURL=\"\" appGroup=\"\" "
           "iconUpdated=\"\" contentID=\"\" category=\"\" usbInstall=\"false\" removable=\"false\" "
           "mountInstall=\"false\" multiScreen=\"false\" ambient=\"false\" langIcon=\"false\" "
           "squareIcon=\"false\" hiddenInstall=\"false\" gameHome=\"false\" multiHome=\"false\">\n";
}

OPENAPI_APP_DLD_INFO Record(const std::string& id) {
    OPENAPI_APP_DLD_INFO record;
    record.id = id;
    return record;
}

class DLDXmlTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/dld-xml-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
        path_ = dir_ + "/apps.xml";
    }
    void TearDown() override {
        unlink(path_.c_str());
        rmdir(dir_.c_str());
    }

    std::string Written(std::map<std::string, OPENAPI_APP_DLD_INFO> apps) {
        EXPECT_TRUE(CTAKUtil::WriteAppsDLDXml(path_, apps));
        return ReadWholeFile(path_);
    }

    std::string dir_;
    std::string path_;
};

TEST_F(DLDXmlTest, WritesEachRecordExactly) {
    OPENAPI_APP_DLD_INFO full = Record("app.full");
    full.orvixid = "orvix.full";
    full.platform = "TIZEN";
    full.version = "2.1.0";
    full.fileExtension = "tpk";
    full.url = "https://cdn.example/a?x=1&y=2";
    full.checksum = "c0ffee";
    full.decompressedSize = 123456789012345;
    full.fileSize = 42;
    full.title = "Say \"hi\" & <bye>";
    full.titleLang = "en";
    full.iconURL = "i";
    full.appGroup = "g";
    full.iconUpdated = "u";
    full.contentID = "cid";
    full.category = "games";
    full.extra1 = "never written";
    full.extraValue = 99;
    full.usbInstall = true;
    full.removable = true;
    full.hiddenInstall = true;
    full.multiHome = true;
    const std::string fullTag =
        "<app id=\"app.full\" orvixid=\"orvix.full\" platform=\"TIZEN\" version=\"2.1.0\" "
        "fileExtension=\"tpk\" url=\"https://cdn.example/a?x=1&y=2\" checksum=\"c0ffee\" "
        "decompressedSize=\"123456789012345\" fileSize=\"42\" title=\"Say \"hi\" & <bye>\" titleLang=\"en\" "
        "iconURL=\"i\" appGroup=\"g\" iconUpdated=\"u\" contentID=\"cid\" category=\"games\" "
        "usbInstall=\"true\" removable=\"true\" mountInstall=\"false\" multiScreen=\"false\" "
        "ambient=\"false\" "
        "langIcon=\"false\" squareIcon=\"false\" hiddenInstall=\"true\" gameHome=\"false\" "
        "multiHome=\"true\">\n";

    OPENAPI_APP_DLD_INFO needs = Record("app.needs");
    needs.requires["zeta"] = {"zeta", "1.0", "pkg.zeta", true};
    needs.requires["alpha"] = {"alpha", "", "pkg.alpha", false};
    needs.requiredService["svc.b"] = {"svc.b", "3", "pkg.svc.b", false};
    needs.requiredService["svc.a"] = {"svc.a", "2.0", "pkg.svc.a", true};
    const std::string needsElement =
        DefaultStartTag("app.needs") +
        "<requires id=\"alpha\" version=\"\" pkgid=\"pkg.alpha\">\n</requires>\n"
        "<requires id=\"zeta\" version=\"1.0\" pkgid=\"pkg.zeta\">\n</requires>\n"
        "<requiredService id=\"svc.a\" version=\"2.0\" pkgid=\"pkg.svc.a\" "
        "builtInApp=\"true\">\n</requiredService>\n"
        "<requiredService id=\"svc.b\" version=\"3\" pkgid=\"pkg.svc.b\" "
        "builtInApp=\"false\">\n</requiredService>\n"
        "</app>\n";

    OPENAPI_APP_DLD_INFO negative = Record("");
    negative.fileSize = -1;
    negative.decompressedSize = std::numeric_limits<int64_t>::min();
    std::string negativeTag = DefaultStartTag("");
    negativeTag.replace(negativeTag.find("decompressedSize=\"0\" fileSize=\"0\""), 33,
                        "decompressedSize=\"-9223372036854775808\" fileSize=\"-1\"");

    struct Case {
        const char* name;
        std::map<std::string, OPENAPI_APP_DLD_INFO> apps;
        std::string expected;
    };
    const Case cases[] = {
        {"no apps: three lines", {}, std::string(kHead) + kTail},
        {"every attribute, unescaped", {{"k", full}}, kHead + fullTag + "</app>\n" + kTail},
        {"requirements in key order", {{"k", needs}}, kHead + needsElement + kTail},
        {"negative sizes", {{"k", negative}}, kHead + negativeTag + "</app>\n" + kTail},
        // Ordered by map key; the key itself is never written, the record's id is.
        {"apps in key order",
         {{"b", Record("first")}, {"a", Record("second")}},
         kHead + DefaultStartTag("second") + "</app>\n" + DefaultStartTag("first") + "</app>\n" + kTail},
        {"bytes as stored",
         {{"k", Record(std::string("\xff\x00\n", 3))}},
         kHead + DefaultStartTag(std::string("\xff\x00\n", 3)) + "</app>\n" + kTail},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Written(c.apps), c.expected) << c.name;
    }
}

TEST_F(DLDXmlTest, ReplacesALongerFile) {
    std::ofstream(path_) << std::string(10000, 'x');
    EXPECT_EQ(Written({}), std::string(kHead) + kTail);
}

TEST_F(DLDXmlTest, FailsOnlyWhenTheFileCannotBeOpened) {
    std::map<std::string, OPENAPI_APP_DLD_INFO> apps = {{"k", Record("a")}};
    // A FIFO without a reader would block a plain open for good; it is refused like a directory.
    const std::string fifo = dir_ + "/fifo.xml";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    for (const std::string& path : {dir_ + "/missing/apps.xml", dir_, std::string(), fifo}) {
        LogMark mark;
        EXPECT_FALSE(CTAKUtil::WriteAppsDLDXml(path, apps)) << path;
        EXPECT_TRUE(mark.Contains("save app DLD info to " + path + ".")) << mark.Text();
        EXPECT_TRUE(mark.Contains("failed to open xml file")) << mark.Text();
    }
    LogMark mark;
    EXPECT_TRUE(CTAKUtil::WriteAppsDLDXml(path_, apps));
    EXPECT_FALSE(mark.Contains("failed to open xml file"));
}

}  // namespace
