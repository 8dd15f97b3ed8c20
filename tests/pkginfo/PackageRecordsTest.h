// What the package-information tests share: a fresh host root per test whose package records the test
// writes, the process's platform log since the test began, and a check at tear-down that every
// package-manager handle opened during the test was released.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "TestLog.h"

class PackageRecordsTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    static std::string RecordsPath();
    // Replaces the records file in one step, as `orvix-host pkg` does.
    static void WriteRecords(const std::string& text);

    bool LogHas(const std::string& text) const { return mark_.Contains(text); }

    std::string root_;
    orvix::test::LogMark mark_;

private:
    long handlesAtStart_ = 0;
};
