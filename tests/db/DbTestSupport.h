// What the data-store tests share: a temporary host root holding an empty database, and helpers that
// read and write database files over a connection of the test's own.
//
// The connection is a process-wide singleton whose daemon flag is fixed by the first call; the fixture
// drops it before and after each test (CTAKDBConnection::ResetInstanceForTest), as a new process would.
#pragma once

#include <gtest/gtest.h>
#include <orvix_host.h>
#include <sqlite3.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <memory>

#include "AppDBInfo.h"
#include "TAKDBConnection.h"
#include "TAKDBSchema.h"
#include "TestLog.h"
#include "WidgetInfoDB.h"

namespace dbtest {

using orvix::test::LogMark;
using orvix::test::ReadWholeFile;

inline const auto DBPath = [] { return CTAKDBConnection::GetDBPath(); };
inline const auto BackupDBPath = [] { return CTAKDBConnection::GetBackupDir() + ".vardell.db"; };

using Db = std::unique_ptr<sqlite3, int (*)(sqlite3*)>;

// A failed open still gives a handle, on which every later call fails.
inline Db Open(const std::string& path, int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE) {
    sqlite3* db = nullptr;
    sqlite3_open_v2(path.c_str(), &db, flags, nullptr);
    return Db(db, sqlite3_close);
}

// The first two columns of every row ("<null>" for NULL), keyed by the first.
inline std::vector<std::pair<std::string, std::string>> Rows(const std::string& path, const char* sql) {
    std::vector<std::pair<std::string, std::string>> rows;
    Db db = Open(path, SQLITE_OPEN_READONLY);
    sqlite3_stmt* stmt = nullptr;
    sqlite3_prepare_v2(db.get(), sql, -1, &stmt, nullptr);
    auto text = [&](int column) {
        const unsigned char* value = sqlite3_column_text(stmt, column);
        return value != nullptr ? std::string(reinterpret_cast<const char*>(value)) : "<null>";
    };
    while (stmt != nullptr && sqlite3_step(stmt) == SQLITE_ROW) {
        rows.emplace_back(text(0), text(1));
    }
    sqlite3_finalize(stmt);
    return rows;
}

inline std::string FieldText(const _APPINFO_T& info, unsigned i) {
    const _APPINFO_FIELD_T& field = TAK_APPINFO_FIELDS[i];
    if (field.kind == APPINFO_FIELD_TEXT) {
        return "'" + info.*field.text + "'";
    }
    return field.kind == APPINFO_FIELD_INT ? std::to_string(info.*field.number)
                                           : std::to_string(info.*field.flag);
}

// The privileged utility that restores the file and sets labels, at its device path.
inline bool InstallTakUtility() {
    const std::string target = orvix::host::FixedPath("/usr/bin/takutility");
    orvix::host::MakeDirs(target.substr(0, target.rfind('/')));
    const std::string built = std::string(TAK_BINARY_DIR) + "/tools/takutility/takutility";
    return symlink(built.c_str(), target.c_str()) == 0;
}

inline bool CreateDatabase(const std::string& path) {
    return TAKDBSchema::Create(Open(path).get());
}

inline bool ExecSql(const std::string& path, const std::string& sql) {
    return sqlite3_exec(Open(path).get(), sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
}

inline bool InsertApps(const std::string& path, const std::vector<_APPINFO_T>& apps) {
    Db db = Open(path);
    sqlite3_stmt* stmt = nullptr;
    bool ok =
        sqlite3_prepare_v2(db.get(), CWidgetInfoDB::InsertSql().c_str(), -1, &stmt, nullptr) == SQLITE_OK;
    for (const auto& app : apps) {
        ok = ok && CWidgetInfoDB::BindRow(stmt, app) && sqlite3_step(stmt) == SQLITE_DONE;
        sqlite3_reset(stmt);
    }
    sqlite3_finalize(stmt);
    return ok;
}

// Pasted into the statement: no quotes in names or values.
inline bool InsertConfigRows(const std::string& path, const std::map<std::string, std::string>& rows) {
    std::string sql;
    for (const auto& [name, value] : rows) {
        sql += "insert or replace into TAKConfigTable values('" + name + "', '" + value + "');";
    }
    return ExecSql(path, sql);
}

inline std::map<std::string, std::string> ReadConfigRows(const std::string& path) {
    auto rows = Rows(path, "select name, value from TAKConfigTable");
    return std::map<std::string, std::string>(rows.begin(), rows.end());
}

inline std::vector<std::string> ReadAppIds(const std::string& path) {
    std::vector<std::string> ids;
    for (const auto& row : Rows(path, "select id, id from widgetinfo order by id")) {
        ids.push_back(row.first);
    }
    return ids;
}

// The record of that id through the store's own reader (a default record when there is none).
inline _APPINFO_T ReadApp(const std::string& id) {
    _APPINFO_T info;
    EXPECT_TRUE(CAppDBInfo::GetAppInfoById(id, info, false)) << id;
    return info;
}

// A record whose every field holds a value of its own (derived from `seed`), so that a column read
// into the wrong field shows.
inline _APPINFO_T DistinctRecord(const std::string& id, int seed) {
    _APPINFO_T info;
    for (unsigned i = 0; i < TAK_APPINFO_COLUMN_COUNT; ++i) {
        const _APPINFO_FIELD_T& field = TAK_APPINFO_FIELDS[i];
        int value = seed * 1000 + static_cast<int>(i);
        if (field.kind == APPINFO_FIELD_TEXT) {
            info.*field.text = std::string(TAK_APPINFO_COLUMN_NAMES[i]) + "-" + std::to_string(value);
        } else if (field.kind == APPINFO_FIELD_INT) {
            info.*field.number = value;
        } else {
            info.*field.flag = (i + seed) % 2 == 0;
        }
    }
    info.id = id;
    return info;
}

// Field-by-field comparison that names the first difference.
inline ::testing::AssertionResult SameRecord(const _APPINFO_T& expected, const _APPINFO_T& actual) {
    for (unsigned i = 0; i < TAK_APPINFO_COLUMN_COUNT; ++i) {
        if (FieldText(expected, i) != FieldText(actual, i)) {
            return ::testing::AssertionFailure() << "column " << TAK_APPINFO_COLUMN_NAMES[i] << ": "
                                                 << FieldText(expected, i) << " vs " << FieldText(actual, i);
        }
    }
    return ::testing::AssertionSuccess();
}

// A root with the host takutility, an empty database with the schema, and no connection.
class DbTest : public ::testing::Test {
protected:
    void SetUp() override {
        CTAKDBConnection::ResetInstanceForTest();
        char pattern[] = "/tmp/test_db_root_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        m_Root = pattern;
        orvix::host::SetRoot(m_Root);
        orvix::host::MakeDirs(orvix::host::PathVariable(24));  // the owner's home
        orvix::host::MakeDirs(CTAKDBConnection::GetBackupDir());
        ASSERT_TRUE(InstallTakUtility()) << "takutility has not been built";
        ASSERT_TRUE(CreateDatabase(DBPath()));
    }

    void TearDown() override {
        CTAKDBConnection::ResetInstanceForTest();
        std::error_code ignored;  // no root when SetUp failed early
        std::filesystem::remove_all(m_Root, ignored);
    }

    std::string m_Root;
};

}  // namespace dbtest
