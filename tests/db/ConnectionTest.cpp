// The connection: the process-wide instance, the validity check of the daemon side with its reasons,
// restore from the backup, Smack repair and the configuration keys added at start.
#include <gtest/gtest.h>
#include <smack.h>
#include <sys/stat.h>

#include <atomic>
#include <cstring>
#include <future>
#include <random>

#include <orvix_host.h>

#include "DbTestSupport.h"
#include "TAKConfig.h"
#include "TAKDBConnection.h"
#include "TAKFile.h"
#include "WidgetInfoDB.h"

using namespace dbtest;

namespace {

const std::map<std::string, std::string> kAddedKeys = {
    {"RESET_TYPE", ""},         {"API_APPS_DURING_INIT", ""},    {"PRIORITY_LIST_ETAG", ""},
    {"PRIORITY_LIST_INFO", ""}, {"HOME_PRIORITY_LIST_ETAG", ""}, {"HOME_PRIORITY_LIST_INFO", ""},
    {"KORBIT_SYNC_STATE", "0"}, {"UNINSTALLED_APPS_INFO", ""},   {"TOKEN_DISCARDED_APPS", ""},
    {"GOOGLECAST_STATUS", ""},  {"HOME_TEST_LIST", ""},
};

std::string RandomBytes(size_t size) {
    std::mt19937 generator(12345);
    std::string bytes(size, '\0');
    for (char& c : bytes) {
        c = static_cast<char>(generator());
    }
    return bytes;
}

std::string Label(const std::string& path) {
    char* label = nullptr;
    if (smack_getlabel(path.c_str(), &label, SMACK_LABEL_ACCESS) < 0) {
        return "<none>";
    }
    std::string text = label;
    free(label);
    return text;
}

class ConnectionTest : public DbTest {
protected:
    // A reader instance on a sound file, so that IsValid can be asked about whatever is put at the path.
    CTAKDBConnection* Reader() {
        CTAKDBConnection* connection = CTAKDBConnection::GetInstance(false);
        EXPECT_NE(connection, nullptr);
        return connection;
    }

    void ReplaceDatabase(const std::string& content) {
        ASSERT_EQ(unlink(DBPath().c_str()), 0);
        ASSERT_TRUE(WriteFile(DBPath(), content));
    }

    // The validity check of whatever is at the path now; `reason` starts as a marker.
    bool Check(std::string& reason) {
        reason = "<untouched>";
        CTAKDBConnection* connection = Reader();
        return connection != nullptr && connection->IsValid(reason);
    }
};

}  // namespace

TEST_F(ConnectionTest, ReaderInstanceIsKeptForALaterDaemonCall) {
    CTAKDBConnection* reader = CTAKDBConnection::GetInstance(false);
    ASSERT_NE(reader, nullptr);
    LogMark mark;
    EXPECT_EQ(CTAKDBConnection::GetInstance(true), reader);
    // The flag was not re-applied: nothing validated, no keys added, and the file stays read-only.
    EXPECT_FALSE(mark.Has("IsValid end"));
    EXPECT_TRUE(ReadConfigRows(DBPath()).empty());
    CTAKConfig config;
    EXPECT_FALSE(config.InsertConfig("KEY", "value"));
    EXPECT_TRUE(mark.Has("unknown type 8"));
}

TEST_F(ConnectionTest, MissingFileLeavesNoInstanceAndALaterCallRetries) {
    ASSERT_EQ(unlink(DBPath().c_str()), 0);
    LogMark mark;
    EXPECT_EQ(CTAKDBConnection::GetInstance(false), nullptr);
    EXPECT_TRUE(mark.Has("Failed to connect to DB : unable to open database file"));
    EXPECT_FALSE(TAKFile::Exists(DBPath())) << "the file must never be created";

    // Every table operation retries the whole connection.
    CTAKConfig config;
    std::string value;
    EXPECT_FALSE(config.GetConfig("RESET_TYPE", value));
    ASSERT_TRUE(CreateDatabase(DBPath()));
    ASSERT_TRUE(InsertConfigRows(DBPath(), {{"RESET_TYPE", "2"}}));
    EXPECT_TRUE(config.GetConfig("RESET_TYPE", value));
    EXPECT_EQ(value, "2");
    EXPECT_NE(CTAKDBConnection::GetInstance(false), nullptr);
}

TEST_F(ConnectionTest, DaemonAddsMissingKeysAndKeepsExistingRows) {
    ASSERT_TRUE(InsertConfigRows(DBPath(), {{"RESET_TYPE", "1"}, {"OTHER", "kept"}}));
    LogMark mark;
    ASSERT_NE(CTAKDBConnection::GetInstance(true), nullptr);
    EXPECT_TRUE(mark.Has("IsValid end, valid = [1]"));
    EXPECT_TRUE(mark.Has("Connected to DB"));
    std::map<std::string, std::string> expected = kAddedKeys;
    expected["RESET_TYPE"] = "1";
    expected["OTHER"] = "kept";
    EXPECT_EQ(ReadConfigRows(DBPath()), expected);
    // The daemon writes.
    CTAKConfig config;
    EXPECT_TRUE(config.UpdateConfig("OTHER", "changed"));
}

TEST_F(ConnectionTest, DisconnectedInstanceFailsEveryOperation) {
    CTAKDBConnection* connection = Reader();
    ASSERT_NE(connection, nullptr);
    LogMark mark;
    EXPECT_TRUE(connection->Disconnect());
    EXPECT_TRUE(connection->Disconnect());
    EXPECT_EQ(mark.CountMessages("Disconnected from DB"), 1);
    EXPECT_EQ(mark.CountMessages("Data base already disconnected."), 1);
    CTAKConfig config;
    std::string value;
    EXPECT_FALSE(config.GetConfig("RESET_TYPE", value));
    EXPECT_EQ(mark.CountMessages("m_pConnection is NULL"), 1);
    EXPECT_TRUE(connection->Connect(DBPath()));
    EXPECT_TRUE(connection->Connect(DBPath()));
    EXPECT_EQ(mark.CountMessages("Data base already connected"), 1);
}

TEST_F(ConnectionTest, SoundFileIsValid) {
    std::string reason;
    LogMark mark;
    EXPECT_TRUE(Check(reason));
    EXPECT_EQ(reason, "<untouched>");
    EXPECT_EQ(mark.CountMessages(DBPath() + " table status 1 "), 1);
    EXPECT_EQ(mark.CountMessages("IsValid end, valid = [1]"), 1);
}

TEST_F(ConnectionTest, MissingFileIsNotAFile) {
    Reader();
    ASSERT_EQ(unlink(DBPath().c_str()), 0);
    std::string reason;
    LogMark mark;
    EXPECT_FALSE(Check(reason));
    EXPECT_EQ(reason, "DB is not a file");
    EXPECT_EQ(mark.CountMessages(DBPath() + " is not a file"), 1);
}

TEST_F(ConnectionTest, DirectoryIsNotAFile) {
    Reader();
    ASSERT_EQ(unlink(DBPath().c_str()), 0);
    ASSERT_EQ(mkdir(DBPath().c_str(), 0755), 0);
    std::string reason;
    EXPECT_FALSE(Check(reason));
    EXPECT_EQ(reason, "DB is not a file");
}

TEST_F(ConnectionTest, EmptyFileHasSizeZero) {
    Reader();
    ReplaceDatabase("");
    std::string reason;
    LogMark mark;
    EXPECT_FALSE(Check(reason));
    EXPECT_EQ(reason, "DB file size is zero");
    EXPECT_EQ(mark.CountMessages(DBPath() + " file size is zero"), 1);
}

TEST_F(ConnectionTest, RandomBytesFailTheIntegrityCheck) {
    Reader();
    ReplaceDatabase(RandomBytes(8192));
    std::string reason;
    LogMark mark;
    EXPECT_FALSE(Check(reason));
    EXPECT_EQ(reason, "DB integrity_check failed");
    EXPECT_EQ(mark.CountMessages(DBPath() + " integrity_check failed, ret 26"), 1);
    EXPECT_EQ(mark.CountMessages(DBPath() + " integrity_check not ok"), 1);
    EXPECT_FALSE(mark.Has("IsValid end"));
}

TEST_F(ConnectionTest, MissingConfigurationTableFailsTheTableCheck) {
    Reader();
    ASSERT_TRUE(ExecSql(DBPath(), "drop table TAKConfigTable"));
    std::string reason;
    LogMark mark;
    EXPECT_FALSE(Check(reason));
    EXPECT_EQ(reason, "DB table check failed");
    EXPECT_EQ(mark.CountMessages(DBPath() + " table status 0 "), 1);
    EXPECT_EQ(mark.CountMessages("IsValid end, valid = [0]"), 1);
}

TEST_F(ConnectionTest, MissingAppTableFailsTheTableCheck) {
    Reader();
    ASSERT_TRUE(ExecSql(DBPath(), "drop table widgetinfo; create table WidgetInfo2(a)"));
    std::string reason;
    EXPECT_FALSE(Check(reason));
    EXPECT_EQ(reason, "DB table check failed");
}

TEST_F(ConnectionTest, FileLockedByAWriterCountsAsValid) {
    Reader();
    sqlite3* writer = nullptr;
    ASSERT_EQ(sqlite3_open(DBPath().c_str(), &writer), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(writer, "begin exclusive; insert into TAKConfigTable values('k', 'v');", nullptr,
                           nullptr, nullptr),
              SQLITE_OK);
    std::string reason;
    LogMark mark;
    EXPECT_TRUE(Check(reason));
    EXPECT_EQ(reason, "<untouched>");
    // Both checks were skipped as busy: no table verdict was logged.
    EXPECT_FALSE(mark.Has("table status"));
    EXPECT_EQ(mark.CountMessages("IsValid end, valid = [1]"), 1);
    sqlite3_exec(writer, "rollback", nullptr, nullptr, nullptr);
    sqlite3_close(writer);
}

TEST_F(ConnectionTest, PendingWriteDoesNotStopTheChecks) {
    Reader();
    sqlite3* writer = nullptr;
    ASSERT_EQ(sqlite3_open(DBPath().c_str(), &writer), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(writer, "begin immediate; insert into TAKConfigTable values('k', 'v');", nullptr,
                           nullptr, nullptr),
              SQLITE_OK);
    std::string reason;
    LogMark mark;
    EXPECT_TRUE(Check(reason));
    EXPECT_EQ(mark.CountMessages(DBPath() + " table status 1 "), 1);
    sqlite3_exec(writer, "rollback", nullptr, nullptr, nullptr);
    sqlite3_close(writer);
}

namespace {

// Counts the runs of the integrity check on every connection of the process.
std::atomic<int> g_IntegrityRuns{0};

int CountIntegrityRuns(unsigned type, void*, void* statement, void*) {
    if (type == SQLITE_TRACE_STMT) {
        const char* sql = sqlite3_sql(static_cast<sqlite3_stmt*>(statement));
        if (sql != nullptr && strcmp(sql, "PRAGMA integrity_check;") == 0) {
            ++g_IntegrityRuns;
        }
    }
    return 0;
}

int TraceEveryConnection(sqlite3* db, const char**, const struct sqlite3_api_routines*) {
    sqlite3_trace_v2(db, SQLITE_TRACE_STMT, CountIntegrityRuns, nullptr);
    return SQLITE_OK;
}

}  // namespace

// A file whose integrity check reports a problem (pages that nothing uses) keeps the check stepping;
// it ends only when the file turns busy, and then counts as valid.
TEST_F(ConnectionTest, IntegrityProblemKeepsTheCheckRunningUntilBusy) {
    ASSERT_TRUE(ExecSql(DBPath(),
                        "create table junk(a); "
                        "with recursive n(i) as (select 1 union all select i + 1 from n where i < 2000) "
                        "insert into junk select hex(randomblob(40)) from n; "
                        "create index junk_a on junk(a);"));
    ASSERT_TRUE(
        ExecSql(DBPath(), "pragma writable_schema = on; delete from sqlite_master where name = 'junk_a';"));
    CTAKDBConnection* connection = Reader();
    ASSERT_NE(connection, nullptr);

    g_IntegrityRuns = 0;
    auto entry = reinterpret_cast<void (*)()>(TraceEveryConnection);
    ASSERT_EQ(sqlite3_auto_extension(entry), SQLITE_OK);
    std::string reason = "<untouched>";
    LogMark mark;
    auto check = std::async(std::launch::async, [&]() { return connection->IsValid(reason); });

    // The check ran to its end and started again, more than once.
    EXPECT_TRUE(WaitUntil([]() { return g_IntegrityRuns >= 3; }));
    EXPECT_EQ(check.wait_for(std::chrono::milliseconds(0)), std::future_status::timeout);

    sqlite3* writer = nullptr;
    ASSERT_EQ(sqlite3_open(DBPath().c_str(), &writer), SQLITE_OK);
    sqlite3_busy_timeout(writer, 30000);
    ASSERT_EQ(sqlite3_exec(writer, "begin exclusive", nullptr, nullptr, nullptr), SQLITE_OK);
    ASSERT_EQ(check.wait_for(std::chrono::seconds(30)), std::future_status::ready);
    EXPECT_TRUE(check.get());
    sqlite3_exec(writer, "commit", nullptr, nullptr, nullptr);
    sqlite3_close(writer);
    sqlite3_cancel_auto_extension(entry);

    EXPECT_EQ(reason, "<untouched>");
    EXPECT_EQ(mark.CountMessages("sqlite3 busy, return valid"), 1);
    EXPECT_EQ(mark.CountMessages("IsValid end, valid = [1]"), 1);
}

class RestoreTest : public DbTest {
protected:
    void SetUp() override {
        DbTest::SetUp();
        ASSERT_TRUE(m_Root.InstallTakUtility()) << "takutility has not been built";
        // The backup: two apps and some of the keys.
        ASSERT_TRUE(CreateDatabase(BackupDBPath()));
        ASSERT_TRUE(
            InsertApps(BackupDBPath(), {DistinctRecord("kept.one", 1), DistinctRecord("kept.two", 2)}));
        ASSERT_TRUE(InsertConfigRows(BackupDBPath(), {{"RESET_TYPE", "2"}, {"RESERVED_11", "kept.one:1"}}));
    }

    void ExpectRestored(const std::string& reason) {
        EXPECT_EQ(ReadAppIds(DBPath()), (std::vector<std::string>{"kept.one", "kept.two"}));
        std::map<std::string, std::string> expected = kAddedKeys;
        expected["RESET_TYPE"] = "2";
        expected["RESERVED_11"] = "kept.one:1";
        EXPECT_EQ(ReadConfigRows(DBPath()), expected);
        const std::string kpi = orvix::host::UnderRoot("var/log/kpi.log");
        EXPECT_TRUE(WaitUntil([&]() { return ReadFile(kpi).find(reason) != std::string::npos; }))
            << ReadFile(kpi);
        EXPECT_NE(ReadFile(kpi).find("type=6"), std::string::npos) << ReadFile(kpi);
    }
};

TEST_F(RestoreTest, RandomBytesAreReplacedByTheBackup) {
    ASSERT_TRUE(WriteFile(DBPath(), RandomBytes(4096)));
    LogMark mark;
    ASSERT_NE(CTAKDBConnection::GetInstance(true), nullptr);
    EXPECT_TRUE(mark.Has("DB restored"));
    ExpectRestored("DB integrity_check failed");
    // The new keys were backed up too.
    EXPECT_EQ(ReadConfigRows(BackupDBPath()), ReadConfigRows(DBPath()));
}

TEST_F(RestoreTest, MissingFileIsRestored) {
    ASSERT_EQ(unlink(DBPath().c_str()), 0);
    ASSERT_NE(CTAKDBConnection::GetInstance(true), nullptr);
    ExpectRestored("DB is not a file");
}

TEST_F(RestoreTest, FileWithoutConfigurationTableIsRestored) {
    ASSERT_TRUE(ExecSql(DBPath(), "drop table TAKConfigTable"));
    ASSERT_NE(CTAKDBConnection::GetInstance(true), nullptr);
    ExpectRestored("DB table check failed");
}

TEST_F(RestoreTest, MissingFileWithoutBackupLeavesNoInstance) {
    ASSERT_EQ(unlink(DBPath().c_str()), 0);
    ASSERT_EQ(unlink(BackupDBPath().c_str()), 0);
    LogMark mark;
    EXPECT_EQ(CTAKDBConnection::GetInstance(true), nullptr);
    EXPECT_TRUE(mark.Has("Failed to connect to DB"));
    EXPECT_FALSE(TAKFile::Exists(DBPath()));
}

TEST_F(RestoreTest, WrongLabelsAreRepaired) {
    ASSERT_EQ(smack_setlabel(DBPath().c_str(), "System::Shared", SMACK_LABEL_ACCESS), 0);
    LogMark mark;
    ASSERT_NE(CTAKDBConnection::GetInstance(true), nullptr);
    EXPECT_EQ(mark.CountMessages("smack[System::Shared] invalid"), 1);
    EXPECT_EQ(Label(DBPath()), "User::Home");
    // No journal between transactions: its label cannot be read and it is skipped.
    EXPECT_EQ(mark.CountMessages("GetSmackLable " + JournalPath() + ", ret -1"), 1);
    EXPECT_EQ(mark.CountMessages("GetSmackLable failed"), 1);

    CTAKDBConnection::ResetInstanceForTest();
    LogMark again;
    ASSERT_NE(CTAKDBConnection::GetInstance(true), nullptr);
    EXPECT_FALSE(again.Has("invalid"));
}
