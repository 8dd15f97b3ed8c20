// What the data-store tests share: a temporary host root holding an empty database, and helpers that
// read and write database files over a connection of the test's own.
//
// The connection is a process-wide singleton whose daemon flag is fixed by the first call; the fixture
// drops it before and after each test (CTAKDBConnection::ResetInstanceForTest), as a new process would.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "AppDBInfo.h"
#include "TAKDBConnection.h"
#include "TestLog.h"

namespace dbtest {

using orvix::test::LogMark;
using orvix::test::ReadWholeFile;

inline const auto DBPath = [] { return CTAKDBConnection::GetDBPath(); };
inline const auto BackupDBPath = [] { return CTAKDBConnection::GetBackupDir() + ".vardell.db"; };

bool CreateDatabase(const std::string& path);
bool ExecSql(const std::string& path, const std::string& sql);
bool InsertApps(const std::string& path, const std::vector<_APPINFO_T>& apps);
// Pasted into the statement: no quotes in names or values.
bool InsertConfigRows(const std::string& path, const std::map<std::string, std::string>& rows);
std::map<std::string, std::string> ReadConfigRows(const std::string& path);
std::vector<std::string> ReadAppIds(const std::string& path);  // ordered by id
// The record of that id through the store's own reader (a default record when there is none).
_APPINFO_T ReadApp(const std::string& id);

// A record whose every field holds a value of its own (derived from `seed`), so that a column read
// into the wrong field shows.
_APPINFO_T DistinctRecord(const std::string& id, int seed);
// Field-by-field comparison that names the first difference.
::testing::AssertionResult SameRecord(const _APPINFO_T& expected, const _APPINFO_T& actual);

// A root with the host takutility, an empty database with the schema, and no connection.
class DbTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    std::string m_Root;
};

}  // namespace dbtest
