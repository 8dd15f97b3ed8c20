// The download-info file, compared byte for byte with what the installer side reads. No reset writes it,
// so one record with every attribute set and the opens that must fail are the whole check.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "TAKUtil.h"
#include "TempDir.h"
#include "TestLog.h"

// Every attribute unescaped, requirements in key order; the map key is never written, the record's id is,
// byte for byte. A longer file is replaced; only a file that cannot be opened fails. A FIFO without a
// reader would block a plain open for good; it is refused like a directory.
TEST(DLDXmlTest, WritesTheRecordExactlyAndFailsOnlyWhenItCannotOpenTheFile) {
    std::string pattern = orvix::test::TempPattern("dld-xml-");
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    const std::string dir = pattern, path = dir + "/apps.xml", fifo = dir + "/fifo.xml";
    OPENAPI_APP_DLD_INFO full;
    full.id = std::string("app\xff\0\n.full", 11);
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
    full.requires["zeta"] = {"zeta", "1.0", "pkg.zeta", true};
    full.requires["alpha"] = {"alpha", "", "pkg.alpha", false};
    full.requiredService["svc.b"] = {"svc.b", "3", "pkg.svc.b", false};
    full.requiredService["svc.a"] = {"svc.a", "2.0", "pkg.svc.a", true};
    std::map<std::string, OPENAPI_APP_DLD_INFO> apps = {{"key", full}};
    std::ofstream(path) << std::string(10000, 'x');
    EXPECT_TRUE(CTAKUtil::WriteAppsDLDXml(path, apps));
    EXPECT_EQ(
        orvix::test::ReadWholeFile(path),
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<list>\n<app id=\"" + full.id +
            "\" orvixid=\"orvix.full\" platform=\"TIZEN\" version=\"2.1.0\" fileExtension=\"tpk\" "
            "url=\"https://cdn.example/a?x=1&y=2\" checksum=\"c0ffee\" decompressedSize=\"123456789012345\" "
            "fileSize=\"42\" title=\"Say \"hi\" & <bye>\" titleLang=\"en\" iconURL=\"i\" appGroup=\"g\" "
            "iconUpdated=\"u\" contentID=\"cid\" category=\"games\" usbInstall=\"true\" removable=\"true\" "
            "mountInstall=\"false\" multiScreen=\"false\" ambient=\"false\" langIcon=\"false\" "
            "squareIcon=\"false\" hiddenInstall=\"true\" gameHome=\"false\" multiHome=\"true\">\n"
            "<requires id=\"alpha\" version=\"\" pkgid=\"pkg.alpha\">\n</requires>\n"
            "<requires id=\"zeta\" version=\"1.0\" pkgid=\"pkg.zeta\">\n</requires>\n"
            "<requiredService id=\"svc.a\" version=\"2.0\" pkgid=\"pkg.svc.a\" builtInApp=\"true\">\n"
            "</requiredService>\n"
            "<requiredService id=\"svc.b\" version=\"3\" pkgid=\"pkg.svc.b\" builtInApp=\"false\">\n"
            "</requiredService>\n</app>\n</list>\n");
    EXPECT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    for (const std::string& bad : {dir + "/missing/apps.xml", dir, std::string(), fifo}) {
        EXPECT_FALSE(CTAKUtil::WriteAppsDLDXml(bad, apps)) << bad;
    }
    std::filesystem::remove_all(dir);
}
