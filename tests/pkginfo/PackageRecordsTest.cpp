#include "PackageRecordsTest.h"

#include <orvix_host.h>
#include <orvix_pkgmgr.h>
#include <stdlib.h>

#include "TAKDir.h"

void PackageRecordsTest::SetUp() {
    char pattern[] = "/tmp/pkginfo-root.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    root_ = pattern;
    orvix::host::SetRoot(root_);
    ASSERT_TRUE(orvix::host::MakeDirs(root_ + "/var/lib/pkgmgr"));
    handlesAtStart_ = orvix::host::OpenPackageHandles();
}

void PackageRecordsTest::TearDown() {
    EXPECT_EQ(orvix::host::OpenPackageHandles(), handlesAtStart_) << "package-manager handles left open";
    TAKDir::RemoveAllFiles(root_, true, false);
}

std::string PackageRecordsTest::RecordsPath() {
    return orvix::host::UnderRoot("var/lib/pkgmgr/packages.json");
}

void PackageRecordsTest::WriteRecords(const std::string& text) {
    std::string error;
    ASSERT_TRUE(orvix::host::WriteFileAtomically(RecordsPath(), text, &error)) << error;
}
