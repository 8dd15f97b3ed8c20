// The download-info file, compared byte for byte with what the installer side reads.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <map>
#include <string>

#include "TAKUtil.h"
#include "TestLog.h"

namespace {

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

// Every attribute unescaped, requirements in key order, apps ordered by map key; the key itself is never
// written, the record's id is, byte for byte.
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
        "fileExtension=\"tpk\" "
        "url=\"https://cdn.example/a?x=1&y=2\" checksum=\"c0ffee\" decompressedSize=\"123456789012345\" "
        "fileSize=\"42\" title=\"Say \"hi\" & <bye>\" titleLang=\"en\" iconURL=\"i\" appGroup=\"g\" "
        "iconUpdated=\"u\" contentID=\"cid\" category=\"games\" usbInstall=\"true\" removable=\"true\" "
        "mountInstall=\"false\" multiScreen=\"false\" ambient=\"false\" langIcon=\"false\" "
        "squareIcon=\"false\" "
        "hiddenInstall=\"true\" gameHome=\"false\" multiHome=\"true\">\n";
    full.requires["zeta"] = {"zeta", "1.0", "pkg.zeta", true};
    full.requires["alpha"] = {"alpha", "", "pkg.alpha", false};
    full.requiredService["svc.b"] = {"svc.b", "3", "pkg.svc.b", false};
    full.requiredService["svc.a"] = {"svc.a", "2.0", "pkg.svc.a", true};
    const std::string odd("\xff\x00\n", 3);
    EXPECT_EQ(Written({{"b", Record(odd)}, {"a", full}}),
              kHead + fullTag +
                  "<requires id=\"alpha\" version=\"\" pkgid=\"pkg.alpha\">\n</requires>\n"
                  "<requires id=\"zeta\" version=\"1.0\" pkgid=\"pkg.zeta\">\n</requires>\n"
                  "<requiredService id=\"svc.a\" version=\"2.0\" pkgid=\"pkg.svc.a\" builtInApp=\"true\">\n"
                  "</requiredService>\n"
                  "<requiredService id=\"svc.b\" version=\"3\" pkgid=\"pkg.svc.b\" builtInApp=\"false\">\n"
                  "</requiredService>\n</app>\n" +
                  DefaultStartTag(odd) + "</app>\n" + kTail);
}

// A longer file is replaced by one of three lines when there are no apps; only a file that cannot be opened
// fails. A FIFO without a reader would block a plain open for good; it is refused like a directory.
TEST_F(DLDXmlTest, ReplacesALongerFileAndFailsOnlyWhenItCannotOpenIt) {
    std::ofstream(path_) << std::string(10000, 'x');
    EXPECT_EQ(Written({}), std::string(kHead) + kTail);
    const std::string fifo = dir_ + "/fifo.xml";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    std::map<std::string, OPENAPI_APP_DLD_INFO> apps = {{"k", Record("a")}};
    for (const std::string& path : {dir_ + "/missing/apps.xml", dir_, std::string(), fifo}) {
        EXPECT_FALSE(CTAKUtil::WriteAppsDLDXml(path, apps)) << path;
    }
    unlink(fifo.c_str());
}

}  // namespace
