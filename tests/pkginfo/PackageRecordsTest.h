// What the package-information tests share: a fresh host root per test whose package records the test
// writes, the process's platform log since the test began, and a check at tear-down that every
// package-manager handle opened during the test was released.
#pragma once

#include <gtest/gtest.h>
#include <orvix_host.h>
#include <orvix_pkgmgr.h>
#include <stdlib.h>

#include <string>

#include "TAKDir.h"
#include "TestLog.h"

class PackageRecordsTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/pkginfo-root.XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        root_ = pattern;
        orvix::host::SetRoot(root_);
        ASSERT_TRUE(orvix::host::MakeDirs(root_ + "/var/lib/pkgmgr"));
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

    bool LogHas(const std::string& text) const { return mark_.Contains(text); }

    std::string root_;
    orvix::test::LogMark mark_;
    long handlesAtStart_ = 0;
};
