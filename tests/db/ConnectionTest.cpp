// The connection: the process-wide instance, the validity check of the daemon side with its reasons,
// restore from the backup, Smack repair and the configuration keys added at start.
#include <smack.h>
#include <sys/stat.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <random>

#include "DbTestSupport.h"
#include "HostFixture.h"
#include "TAKConfig.h"

using namespace dbtest;

namespace {

const std::map<std::string, std::string> kAddedKeys = {
    {"RESET_TYPE", ""},         {"API_APPS_DURING_INIT", ""},    {"PRIORITY_LIST_ETAG", ""},
    {"PRIORITY_LIST_INFO", ""}, {"HOME_PRIORITY_LIST_ETAG", ""}, {"HOME_PRIORITY_LIST_INFO", ""},
    {"KORBIT_SYNC_STATE", "0"}, {"UNINSTALLED_APPS_INFO", ""},   {"TOKEN_DISCARDED_APPS", ""},
    {"GOOGLECAST_STATUS", ""},  {"HOME_TEST_LIST", ""}};

// Damages the database file: "rm", "dir" (a directory in its place), "bytes:N" (N random bytes in its
// place), "sql:TEXT" (run on it) or "lock:TEXT" (run by `writer`, which stays open).
void Damage(const std::string& how, sqlite3*& writer) {
    const std::string arg = how.substr(how.find(':') + 1);
    if (how == "rm" || how == "dir" || how.rfind("bytes:", 0) == 0) {
        ASSERT_EQ(unlink(DBPath().c_str()), 0);
    }
    if (how == "dir") {
        ASSERT_EQ(mkdir(DBPath().c_str(), 0755), 0);
    } else if (how.rfind("bytes:", 0) == 0) {
        std::mt19937 generator(12345);
        std::ofstream out(DBPath(), std::ios::binary);
        for (unsigned long i = std::stoul(arg); i > 0; --i) {
            out << static_cast<char>(generator());
        }
    } else if (how.rfind("sql:", 0) == 0) {
        ASSERT_TRUE(ExecSql(DBPath(), arg));
    } else if (how.rfind("lock:", 0) == 0) {
        ASSERT_EQ(sqlite3_open(DBPath().c_str(), &writer), SQLITE_OK);
        ASSERT_EQ(sqlite3_exec(writer, arg.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
    }
}

using ConnectionTest = DbTest;

}  // namespace

TEST_F(ConnectionTest, ValidityCheckNamesTheCheckThatFailed) {
    // How the file is damaged, the reason ("" for a file that counts as valid), a line that must be
    // logged and one that must not.
    using Case = std::tuple<std::string, std::string, std::string, std::string>;
    const std::string path = DBPath();
    const std::string insert = "insert into TAKConfigTable values('k', 'v');";
    const std::vector<Case> cases = {
        {"sql:", "", path + " table status 1 ", "valid = [0]"},
        {"rm", "DB is not a file", path + " is not a file", "IsValid end"},
        {"dir", "DB is not a file", path + " is not a file", "IsValid end"},
        {"bytes:0", "DB file size is zero", path + " file size is zero", "IsValid end"},
        {"bytes:8192", "DB integrity_check failed", path + " integrity_check failed, ret 26", "IsValid end"},
        {"sql:drop table TAKConfigTable", "DB table check failed", path + " table status 0 ", "valid = [1]"},
        {"sql:drop table widgetinfo; create table WidgetInfo2(a)", "DB table check failed",
         path + " table status 0 ", "valid = [1]"},
        // A writer between its statements stops no check; one that holds the file makes both give up.
        {"lock:begin immediate;" + insert, "", path + " table status 1 ", "valid = [0]"},
        {"lock:begin exclusive;" + insert, "", "IsValid end, valid = [1]", "table status"},
    };
    CTAKDBConnection* connection = CTAKDBConnection::GetInstance(false);
    ASSERT_NE(connection, nullptr);
    for (const auto& [damage, expected, logged, notLogged] : cases) {
        SCOPED_TRACE(damage);
        std::filesystem::remove_all(DBPath());
        ASSERT_TRUE(CreateDatabase(DBPath()));
        sqlite3* writer = nullptr;
        Damage(damage, writer);
        std::string reason = "<untouched>";
        LogMark mark;
        EXPECT_EQ(connection->IsValid(reason), expected.empty());
        EXPECT_EQ(reason, expected.empty() ? "<untouched>" : expected);
        EXPECT_TRUE(mark.Contains(logged));
        EXPECT_FALSE(mark.Contains(notLogged));
        sqlite3_close(writer);  // rolls back
    }
}

// A file whose integrity check reports a problem (an index that nothing owns) keeps the check stepping;
// it ends only when the file turns busy, and then counts as valid.
TEST_F(ConnectionTest, IntegrityProblemKeepsTheCheckRunningUntilBusy) {
    ASSERT_TRUE(ExecSql(DBPath(),
                        "create table junk(a); "
                        "with recursive n(i) as (select 1 union all select i + 1 from n where i < 2000) "
                        "insert into junk select hex(randomblob(40)) from n; create index junk_a on junk(a); "
                        "pragma writable_schema = on; delete from sqlite_master where name = 'junk_a';"));
    CTAKDBConnection* connection = CTAKDBConnection::GetInstance(false);
    ASSERT_NE(connection, nullptr);
    // Every connection of the process counts the runs of the integrity check.
    static std::atomic<int> runs{0};
    static int (*const count)(unsigned, void*, void*, void*) = [](unsigned, void*, void* statement, void*) {
        const char* sql = sqlite3_sql(static_cast<sqlite3_stmt*>(statement));
        runs += sql != nullptr && strcmp(sql, "PRAGMA integrity_check;") == 0;
        return 0;
    };
    static int (*const trace)(sqlite3*, const char**, const sqlite3_api_routines*) =
        [](sqlite3* db, const char**, const sqlite3_api_routines*) {
            return sqlite3_trace_v2(db, SQLITE_TRACE_STMT, count, nullptr);
        };
    runs = 0;
    ASSERT_EQ(sqlite3_auto_extension(reinterpret_cast<void (*)()>(trace)), SQLITE_OK);
    std::string reason = "<untouched>";
    LogMark mark;
    auto check = std::async(std::launch::async, [&]() { return connection->IsValid(reason); });
    EXPECT_TRUE(orvix::test::WaitUntil([]() { return runs >= 3; }));  // ran to its end, and again
    EXPECT_EQ(check.wait_for(std::chrono::milliseconds(0)), std::future_status::timeout);
    sqlite3* writer = nullptr;
    ASSERT_EQ(sqlite3_open(DBPath().c_str(), &writer), SQLITE_OK);
    sqlite3_busy_timeout(writer, 30000);
    ASSERT_EQ(sqlite3_exec(writer, "begin exclusive", nullptr, nullptr, nullptr), SQLITE_OK);
    ASSERT_EQ(check.wait_for(std::chrono::seconds(30)), std::future_status::ready);
    EXPECT_TRUE(check.get());
    sqlite3_close(writer);
    sqlite3_cancel_auto_extension(reinterpret_cast<void (*)()>(trace));
    EXPECT_EQ(reason, "<untouched>");
    EXPECT_TRUE(mark.Contains("sqlite3 busy, return valid"));
}

TEST_F(ConnectionTest, DamagedFileIsReplacedByTheBackupWhenThereIsOne) {
    std::map<std::string, std::string> expected = kAddedKeys;  // added, and the one held kept
    expected["RESET_TYPE"] = "2";
    const std::string kpi = orvix::host::UnderRoot("var/log/kpi.log");
    for (const auto& [damage, reason] : std::vector<std::pair<std::string, std::string>>{
             {"bytes:4096", "DB integrity_check failed"},
             {"rm", "DB is not a file"},
             {"sql:drop table TAKConfigTable", "DB table check failed"}}) {
        SCOPED_TRACE(reason);
        CTAKDBConnection::ResetInstanceForTest();
        std::filesystem::remove(BackupDBPath());  // a backup with two apps and one of the keys
        ASSERT_TRUE(CreateDatabase(BackupDBPath()) &&
                    InsertConfigRows(BackupDBPath(), {{"RESET_TYPE", "2"}}));
        ASSERT_TRUE(InsertApps(BackupDBPath(), {DistinctRecord("one", 1), DistinctRecord("two", 2)}));
        sqlite3* writer = nullptr;
        Damage(damage, writer);
        LogMark mark;
        ASSERT_NE(CTAKDBConnection::GetInstance(true), nullptr);
        EXPECT_TRUE(mark.Contains("DB restored"));
        EXPECT_EQ(ReadAppIds(DBPath()), (std::vector<std::string>{"one", "two"}));
        EXPECT_EQ(ReadConfigRows(DBPath()), expected);
        EXPECT_EQ(ReadConfigRows(BackupDBPath()), expected);  // the new keys were backed up
        EXPECT_TRUE(orvix::test::WaitUntil([&] {
            std::string events = ReadWholeFile(kpi);
            return events.find(reason) != std::string::npos && events.find("type=6") != std::string::npos;
        })) << ReadWholeFile(kpi);
    }
    // Without a backup nothing can be restored, and nothing is created.
    CTAKDBConnection::ResetInstanceForTest();
    ASSERT_EQ(unlink(DBPath().c_str()) + unlink(BackupDBPath().c_str()), 0);
    EXPECT_EQ(CTAKDBConnection::GetInstance(true), nullptr);
    EXPECT_FALSE(std::filesystem::exists(DBPath()));
}

TEST_F(ConnectionTest, WrongLabelIsRepaired) {
    ASSERT_EQ(smack_setlabel(DBPath().c_str(), "System::Shared", SMACK_LABEL_ACCESS), 0);
    LogMark mark;
    ASSERT_NE(CTAKDBConnection::GetInstance(true), nullptr);
    EXPECT_TRUE(mark.Contains("smack[System::Shared] invalid"));
    char* label = nullptr;
    ASSERT_GT(smack_getlabel(DBPath().c_str(), &label, SMACK_LABEL_ACCESS), 0);
    EXPECT_STREQ(label, "User::Home");
    free(label);
    // No journal between transactions: its label cannot be read and it is skipped.
    EXPECT_TRUE(mark.Contains("GetSmackLable " + CTAKDBConnection::GetJournalPath() + ", ret -1"));
}
