// What the data-store tests share: the log of this test program, a temporary host root holding the
// database, and small helpers that make database files with a connection of their own.
//
// The connection is a process-wide singleton whose daemon flag is fixed by the first call. Each test
// starts from the state of a fresh process: the fixture drops the instance with the hook that exists
// for tests only (CTAKDBConnection::ResetInstanceForTest) before and after the test.
#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "AppInfo.h"

namespace dbtest {

// The part of the platform log written since the mark was taken.
class LogMark {
public:
    LogMark();
    std::string Text() const;
    bool Has(const std::string& text) const { return Text().find(text) != std::string::npos; }
    // Lines that end with the message `text` (the colour escape closes every line).
    int CountMessages(const std::string& text) const;

private:
    size_t m_Offset;
};

// Polls `condition` until it holds or `timeout` passes.
bool WaitUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds timeout = std::chrono::seconds(30));

// A temporary host root with the owner's home and the backup directory, removed when it goes.
class TempRoot {
public:
    TempRoot();
    ~TempRoot();
    const std::string& Path() const { return m_Path; }
    // Puts the host takutility at both of its device paths; false when it has not been built.
    bool InstallTakUtility() const;

private:
    std::string m_Path;
};

std::string DBPath();
std::string JournalPath();
std::string BackupDBPath();

// Database files made with a connection of the test's own.
bool CreateDatabase(const std::string& path);
bool ExecSql(const std::string& path, const std::string& sql);
bool InsertApps(const std::string& path, const std::vector<_APPINFO_T>& apps);
bool InsertConfigRows(const std::string& path, const std::map<std::string, std::string>& rows);
std::map<std::string, std::string> ReadConfigRows(const std::string& path);
// Every app id in the file, by id.
std::vector<std::string> ReadAppIds(const std::string& path);
bool WriteFile(const std::string& path, const std::string& content);
std::string ReadFile(const std::string& path);

// A record whose every field holds a value of its own (derived from `seed`), so that a column read
// into the wrong field shows.
_APPINFO_T DistinctRecord(const std::string& id, int seed);
// Field-by-field comparison; the first difference is named.
::testing::AssertionResult SameRecord(const _APPINFO_T& expected, const _APPINFO_T& actual);

// A root, an empty database with the schema in it, and no connection at the start and at the end.
class DbTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    TempRoot m_Root;
};

}  // namespace dbtest
