// What the package-information tests share: a fresh host root per test whose package records the test
// writes, the process's platform log since the test began, and a check at tear-down that every
// package-manager handle opened during the test was released.
#pragma once

#include <gtest/gtest.h>
#include <json/json.h>

#include <string>

#include "TestLog.h"

class PackageRecordsTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    static std::string RecordsPath();
    // Replaces the records file in one step, as `orvix-host pkg` does.
    static void WriteRecords(const std::string& text);
    static void WriteRecordsJson(const Json::Value& records);

    bool LogHas(const std::string& text) const { return mark_.Contains(text); }
    // How many times `text` was logged since the test began.
    size_t LogCount(const std::string& text) const;

    std::string root_;
    orvix::test::LogMark mark_;

private:
    long handlesAtStart_ = 0;
};

// One package record with its main app as its only app; `metadata` is a list of [key, value] pairs.
Json::Value PackageJson(const std::string& pkgId, const std::string& version, bool removable,
                        const std::string& appId, const Json::Value& metadata);

// {"packages": [...]} with `count` packages "pkg.N" (N from 0), main app "app.N"; the first `builtIn` of
// them carry the instant-reset metadata "true" and are removable, the others carry other metadata.
Json::Value ManyPackages(int count, int builtIn);
