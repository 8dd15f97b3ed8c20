// The data store: the connection (the validity check of the daemon side with its reasons, restore from
// the backup, Smack repair, the configuration keys added at start), table access and the configuration
// table, the app table, and the facade whose changes travel over the bus to the stand-in daemon.
//
// The connection is a process-wide singleton whose daemon flag is fixed by the first call; the fixture
// drops it before and after each test (CTAKDBConnection::ResetInstanceForTest), as a new process would.
#include <signal.h>
#include <smack.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <functional>
#include <future>

#include "AppDBInfo.h"
#include "AppDatabaseSeed.h"
#include "HostFixture.h"
#include "TAKConfig.h"
#include "TAKDBConnection.h"
#include "TAKDBSchema.h"
#include "TAKDBTable.h"
#include "TAKUtil.h"
#include "TempDir.h"
#include "WidgetInfoDB.h"

namespace {

using orvix::test::LogMark;
using orvix::test::ReadWholeFile;
using Db = std::unique_ptr<sqlite3, int (*)(sqlite3*)>;
using Map = std::map<std::string, std::string>;

// Database files read and written over connections of the test's own, and app records to compare.
struct DbFiles {
    static std::string DBPath() { return CTAKDBConnection::GetDBPath(); }
    static std::string BackupDBPath() { return CTAKDBConnection::GetBackupDir() + ".vardell.db"; }
    // A failed open still gives a handle, on which every later call fails.
    static Db Open(const std::string& path, int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE) {
        sqlite3* db = nullptr;
        sqlite3_open_v2(path.c_str(), &db, flags, nullptr);
        return Db(db, sqlite3_close);
    }
    static bool CreateDatabase(const std::string& path) { return TAKDBSchema::Create(Open(path).get()); }
    static bool ExecSql(const std::string& path, const std::string& sql) {
        return sqlite3_exec(Open(path).get(), sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
    }
    // The second column of every row keyed by the first ("<null>" for NULL).
    static Map Rows(const std::string& path, const char* sql) {
        Map rows;
        auto add = [](void* out, int, char** values, char**) {
            return (*static_cast<Map*>(out))[values[0]] = values[1] != nullptr ? values[1] : "<null>", 0;
        };
        sqlite3_exec(Open(path, SQLITE_OPEN_READONLY).get(), sql, add, &rows, nullptr);
        return rows;
    }
    static Map ReadConfigRows(const std::string& path) {
        return Rows(path, "select name, value from TAKConfigTable");
    }
    static Map ReadAppIds(const std::string& path) { return Rows(path, "select id, '' from widgetinfo"); }
    static bool InsertApps(const std::string& path, const std::vector<_APPINFO_T>& apps) {
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
    static bool InsertConfigRows(const std::string& path, const Map& rows) {
        std::string sql;
        for (const auto& [name, value] : rows) {
            sql += "insert or replace into TAKConfigTable values('" + name + "', '" + value + "');";
        }
        return ExecSql(path, sql);
    }
    // The record of that id through the store's own reader (a default record when there is none).
    static _APPINFO_T ReadApp(const std::string& id) {
        _APPINFO_T info;
        EXPECT_TRUE(CAppDBInfo::GetAppInfoById(id, info, false)) << id;
        return info;
    }
    // Every field of a record as the facade sends it: two records with the same text are the same.
    static std::string Json(const _APPINFO_T& info) { return CAppDBInfo::m_MakeAppInfoJson(info); }
    // A record whose every field holds a value of its own (derived from `seed`), so that a column read
    // into the wrong field shows.
    static _APPINFO_T DistinctRecord(const std::string& id, int seed) {
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
};

// A root with the host takutility (it restores the file and sets labels) at its device path, an empty
// database with the schema, and no connection.
class DbTest : public ::testing::Test, public DbFiles {
protected:
    void SetUp() override {
        CTAKDBConnection::ResetInstanceForTest();
        std::string pattern = orvix::test::TempPattern("test_db_root_");
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        orvix::host::SetRoot(m_Root = pattern);
        orvix::host::MakeDirs(orvix::host::PathVariable(24));  // the owner's home
        orvix::host::MakeDirs(CTAKDBConnection::GetBackupDir());
        const std::string utility = orvix::host::FixedPath("/usr/bin/takutility");
        orvix::host::MakeDirs(utility.substr(0, utility.rfind('/')));
        ASSERT_EQ(symlink(TAK_KIT_DIR "/tools/takutility/takutility", utility.c_str()), 0);
        ASSERT_TRUE(CreateDatabase(DBPath()));
    }
    void TearDown() override {
        CTAKDBConnection::ResetInstanceForTest();
        std::error_code ignored;  // no root when SetUp failed early
        std::filesystem::remove_all(m_Root, ignored);
    }

    // Damages the database file: "dir" (a directory in its place), "bytes:N" (N bytes that are no
    // database in its place), "sql:TEXT" (run on it) or "lock:TEXT" (run by `writer`, which stays open).
    static void Damage(const std::string& how, sqlite3*& writer) {
        const std::string kind = how.substr(0, how.find(':')), arg = how.substr(how.find(':') + 1);
        if (kind == "dir" || kind == "bytes") {
            ASSERT_EQ(unlink(DBPath().c_str()), 0);
        }
        if (kind == "dir") {
            ASSERT_EQ(mkdir(DBPath().c_str(), 0755), 0);
        } else if (kind == "bytes") {
            std::ofstream(DBPath(), std::ios::binary) << std::string(std::stoul(arg), '\x5a');
        } else if (kind == "sql") {
            ASSERT_TRUE(ExecSql(DBPath(), arg));
        } else if (kind == "lock") {
            ASSERT_TRUE(sqlite3_open(DBPath().c_str(), &writer) == SQLITE_OK &&
                        sqlite3_exec(writer, arg.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK);
        }
    }

    std::string m_Root;
};

using ConnectionTest = DbTest;

TEST_F(ConnectionTest, ValidityCheckNamesTheCheckThatFailed) {
    // How the file is damaged, and the reason ("" for a file that counts as valid).
    const std::string insert = "insert into TAKConfigTable values('k', 'v');";
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"sql:", ""},
        {"dir", "DB is not a file"},
        {"bytes:0", "DB file size is zero"},
        {"bytes:8192", "DB integrity_check failed"},
        {"sql:drop table widgetinfo; create table WidgetInfo2(a)", "DB table check failed"},
        // A writer between its statements stops no check (one that holds the file: see the integrity test).
        {"lock:begin immediate;" + insert, ""},
    };
    CTAKDBConnection* connection = CTAKDBConnection::GetInstance(false);
    ASSERT_NE(connection, nullptr);
    for (const auto& [damage, expected] : cases) {
        SCOPED_TRACE(damage);
        std::filesystem::remove_all(DBPath());
        ASSERT_TRUE(CreateDatabase(DBPath()));
        sqlite3* writer = nullptr;
        Damage(damage, writer);
        std::string reason = "<untouched>";
        EXPECT_EQ(connection->IsValid(reason), expected.empty());
        EXPECT_EQ(reason, expected.empty() ? "<untouched>" : expected);
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
    auto* trace = +[](sqlite3* db, const char**, const sqlite3_api_routines*) {
        auto count = [](unsigned, void*, void* statement, void*) {
            const char* sql = sqlite3_sql(static_cast<sqlite3_stmt*>(statement));
            return runs += sql != nullptr && strcmp(sql, "PRAGMA integrity_check;") == 0, 0;
        };
        return sqlite3_trace_v2(db, SQLITE_TRACE_STMT, count, nullptr);
    };
    runs = 0;
    ASSERT_EQ(sqlite3_auto_extension(reinterpret_cast<void (*)()>(trace)), SQLITE_OK);
    std::string reason = "<untouched>";
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
}

TEST_F(ConnectionTest, DamagedFileIsReplacedByTheBackupWhenThereIsOne) {
    Map expected = {
        {"RESET_TYPE", "2"},        {"API_APPS_DURING_INIT", ""},    {"PRIORITY_LIST_ETAG", ""},
        {"PRIORITY_LIST_INFO", ""}, {"HOME_PRIORITY_LIST_ETAG", ""}, {"HOME_PRIORITY_LIST_INFO", ""},
        {"KORBIT_SYNC_STATE", "0"}, {"UNINSTALLED_APPS_INFO", ""},   {"TOKEN_DISCARDED_APPS", ""},
        {"GOOGLECAST_STATUS", ""},  {"HOME_TEST_LIST", ""}};  // added, and the one held kept
    const std::string kpi = orvix::host::UnderRoot("var/log/kpi.log");
    std::filesystem::remove(BackupDBPath());  // a backup with two apps and one of the keys
    ASSERT_TRUE(CreateDatabase(BackupDBPath()) && InsertConfigRows(BackupDBPath(), {{"RESET_TYPE", "2"}}) &&
                InsertApps(BackupDBPath(), {DistinctRecord("one", 1), DistinctRecord("two", 2)}));
    ASSERT_TRUE(ExecSql(DBPath(), "drop table TAKConfigTable"));
    ASSERT_NE(CTAKDBConnection::GetInstance(true), nullptr);
    EXPECT_EQ(ReadAppIds(DBPath()), (Map{{"one", ""}, {"two", ""}}));
    EXPECT_EQ(ReadConfigRows(DBPath()), expected);
    EXPECT_EQ(ReadConfigRows(BackupDBPath()), expected);  // the new keys were backed up
    EXPECT_TRUE(orvix::test::WaitUntil([&] {
        std::string events = ReadWholeFile(kpi);
        return events.find("\"EV019\"") != std::string::npos &&
               events.find("{type=6;info=DB table check failed}") != std::string::npos;
    })) << ReadWholeFile(kpi);
    // Without a backup nothing can be restored, and nothing is created.
    CTAKDBConnection::ResetInstanceForTest();
    ASSERT_EQ(unlink(DBPath().c_str()) + unlink(BackupDBPath().c_str()), 0);
    EXPECT_EQ(CTAKDBConnection::GetInstance(true), nullptr);
    EXPECT_FALSE(std::filesystem::exists(DBPath()));
}

TEST_F(ConnectionTest, WrongLabelIsRepaired) {
    ASSERT_EQ(smack_setlabel(DBPath().c_str(), "System::Shared", SMACK_LABEL_ACCESS), 0);
    ASSERT_NE(CTAKDBConnection::GetInstance(true), nullptr);
    g_autofree char* label = nullptr;
    ASSERT_GT(smack_getlabel(DBPath().c_str(), &label, SMACK_LABEL_ACCESS), 0);
    EXPECT_STREQ(label, "User::Home");
}

class SeededTest : public DbTest {
protected:
    void SetUp() override {
        DbTest::SetUp();
        ASSERT_TRUE(SeedAppDatabase(24));  // enough apps for both preinstalled lists
        ASSERT_TRUE(InsertConfigRows(DBPath(), {{"KORBIT_SYNC_STATE", "1"},
                                                {"HOME_TEST_LIST", "x"},
                                                {"RESERVED_16", "t,pkg.t"},
                                                {"RESERVED_17", "done"}}));
        ASSERT_NE(CTAKDBConnection::GetInstance(true), nullptr);
        m_Before = ReadConfigRows(DBPath());
    }
    Map m_Before;
};

// Every operation that pastes a value refuses one holding a quote, with one line, and touches nothing:
// "x' or '1'='1" would otherwise match every row.
TEST_F(SeededTest, AValueWithAQuoteIsRefusedAndTouchesNothing) {
    const std::string rewriting = "x' or '1'='1";
    const Map apps = ReadAppIds(DBPath());
    const std::string firstId = apps.begin()->first, first = Json(ReadApp(firstId));
    CWidgetInfoDB table;
    const std::pair<const char*, std::function<bool()>> operations[] = {
        {"delete", [&] { return table.RemoveAppInfoById(rewriting); }},
        {"update id", [&] { return table.Update(rewriting, "title", "t"); }},
        {"update value", [&] { return table.Update("", "title", rewriting); }},
        {"update number", [&] { return table.Update(rewriting, "app_index", 9); }},
        {"insert config", [&] { return CTAKConfig().InsertConfig("K", rewriting); }},
    };
    for (const auto& [name, operation] : operations) {
        LogMark mark;
        EXPECT_FALSE(operation()) << name;
        EXPECT_EQ(orvix::test::Count(mark.Text(), "holds a single quote"), 1u) << name << ": " << mark.Text();
    }
    EXPECT_TRUE(ReadAppIds(DBPath()) == apps && ReadConfigRows(DBPath()) == m_Before);
    EXPECT_EQ(Json(ReadApp(firstId)), first);
}

// The keys a reset keeps: what the reset was, the Korbit state, the Home test list, the built-in lists.
// A reset that fails on one key still clears the keys after it, but backs nothing up.
TEST_F(SeededTest, ResetClearsExactlyItsKeysAndAFailedOneGoesOnWithoutABackup) {
    ASSERT_TRUE(ExecSql(DBPath(),
                        "create trigger refuse before update on TAKConfigTable when old.name = "
                        "'RESERVED_34' begin select raise(abort, 'refused'); end"));
    ASSERT_TRUE(CTAKConfig().UpdateConfig("RESET_TYPE", "backed up"));
    EXPECT_FALSE(CTAKConfig().Reset());
    Map now = ReadConfigRows(DBPath()), backup = ReadConfigRows(BackupDBPath());  // the state before
    EXPECT_EQ(now["RESERVED_34"] + "|" + now["RESERVED_35"], m_Before["RESERVED_34"] + "|");
    EXPECT_EQ(backup["RESERVED_35"] + "|" + backup["RESET_TYPE"], m_Before["RESERVED_35"] + "|backed up");

    ASSERT_TRUE(ExecSql(DBPath(), "drop trigger refuse") && CTAKConfig().Reset());
    Map expected = m_Before;
    expected["RESET_TYPE"] = "backed up";
    for (unsigned i = 0; i < CTAKConfig::RESET_KEY_COUNT; ++i) {
        ASSERT_FALSE(m_Before[CTAKConfig::RESET_KEYS[i]].empty()) << CTAKConfig::RESET_KEYS[i];
        expected[CTAKConfig::RESET_KEYS[i]] =
            std::string(CTAKConfig::RESET_KEYS[i]) == "SYNC_STATE" ? "0" : "";
    }
    EXPECT_EQ(ReadConfigRows(DBPath()), expected);
    EXPECT_EQ(ReadConfigRows(BackupDBPath()), expected);  // one backup, after the whole reset
}

TEST_F(SeededTest, PreinstalledListsAndUninstallReason) {
    ASSERT_TRUE(InsertConfigRows(
        DBPath(), {{"RESERVED_11", "appA:1,appB:2,,appC,appD:x:y"}, {"RESERVED_3", "g1,g2:3,,g1"}}));
    Map apps = {{"stale", "1"}};
    ASSERT_TRUE(CTAKUtil::GetPreinstallApps(0, apps));  // only default apps carry values
    EXPECT_EQ(apps, (Map{{"appA", "1"}, {"appB", "2"}, {"appC", ""}, {"appD", "x:y"}}));
    ASSERT_TRUE(CTAKUtil::GetPreinstallApps(1, apps));
    EXPECT_EQ(apps, (Map{{"g1", ""}, {"g2:3", ""}}));
    EXPECT_TRUE(!CTAKUtil::GetPreinstallApps(2, apps) && apps.empty());
    // An empty list gives an empty map; a missing one fails.
    ASSERT_TRUE(ExecSql(DBPath(),
                        "update TAKConfigTable set value = '' where name = 'RESERVED_11'; "
                        "delete from TAKConfigTable where name = 'RESERVED_3'"));
    apps = {{"stale", "1"}};
    EXPECT_TRUE(CTAKUtil::GetPreinstallApps(0, apps) && apps.empty());
    apps = {{"stale", "1"}};
    EXPECT_TRUE(!CTAKUtil::GetPreinstallApps(1, apps) && apps.empty());
    for (const auto& [type, reason] :
         std::vector<std::pair<std::string, int>>{{"1", 9}, {"2", 10}, {"3", 2}, {" 1", 2}}) {
        ASSERT_TRUE(InsertConfigRows(DBPath(), {{"RESET_TYPE", type}}));
        EXPECT_EQ(CTAKUtil::GetTAKUninstallReason(2), reason) << "'" << type << "'";
    }
    ASSERT_TRUE(ExecSql(DBPath(), "delete from TAKConfigTable"));
    EXPECT_EQ(CTAKUtil::GetTAKUninstallReason(7), 7);
}

TEST(CompareVersion, OrdersDottedNumericVersions) {
    const std::tuple<const char*, const char*, int> cases[] = {{"1.10", "1.9", 1},
                                                               {"1.2", "1.2.0", 0},
                                                               {"", "0.1", -1},
                                                               {"01.002", "1.2", 0},
                                                               {"1.3b", "1.2c", 1},
                                                               {"x.1", "0.1", 0},
                                                               {"4294967296.1", "4294967295.9", 1}};
    auto sign = [](int value) { return (value > 0) - (value < 0); };
    for (const auto& [a, b, expected] : cases) {
        EXPECT_TRUE(sign(CTAKUtil::CompareVersion(a, b)) == expected &&
                    sign(CTAKUtil::CompareVersion(b, a)) == -expected)
            << a << " vs " << b;
    }
}

// The app table as another process wrote it: every column read back by id or by package, and the list
// by upper(id). The reset reads records and sends them back whole, so a column read into the wrong field
// would be written back over another one.
TEST_F(DbTest, AppTableReadsEveryColumnAndListsByUpperId) {
    _APPINFO_T odd = DistinctRecord("Ünïcødé 'id'", 5), read;
    odd.title = "  it's \"a\" title – 日本  ";
    ASSERT_NE(CTAKDBConnection::GetInstance(false), nullptr);
    ASSERT_TRUE(InsertApps(DBPath(), {odd, DistinctRecord("Usable", 1), DistinctRecord("resetting", 2)}));
    EXPECT_EQ(Json(ReadApp(odd.id)), Json(odd));
    EXPECT_TRUE(CAppDBInfo::GetAppInfoById(odd.pkgname, read, false) && read.id == odd.id);
    EXPECT_FALSE(CAppDBInfo::GetAppInfoById("", read, false));
    // upper(id): "Usable" sorts among the lower-case ids, not before every one of them by byte value.
    EXPECT_EQ(CAppDBInfo::GetAllAppString(), "resetting,Usable,Ünïcødé 'id',");
    EXPECT_EQ(Json(CAppDBInfo::GetAllAppList().back()), Json(odd));
}

// The facade's changes travel over the bus to the stand-in daemon, which applies them to the file that
// this process reads. The bus connection of the process is made once and kept, so every case runs in one
// test, in order: no bus, bus and daemon up, daemon gone.
class FacadeBusTest : public orvix::test::HostFixture, public DbFiles {
protected:
    std::vector<std::string> InitArguments() const override { return {"--apps", "12", "--builtin", "0"}; }
    bool StartsBus() const override { return false; }
    void SetUp() override {
        HostFixture::SetUp();
        setenv("DBUS_SYSTEM_BUS_ADDRESS", BusAddress().c_str(), 1);
    }
    void TearDown() override {
        CTAKDBConnection::ResetInstanceForTest();
        HostFixture::TearDown();
    }
    // The arguments of the last recorded inner-server call of `method`, as one line of JSON.
    std::string LastArgs(const std::string& method) {
        std::vector<Json::Value> calls = CallsOf("innerserver", method);
        return calls.empty() ? "<none>" : orvix::host::JsonLine(calls.back()["args"]);
    }
};

TEST_F(FacadeBusTest, ChangesReachTheDaemonAndTheFile) {
    LogMark noBus;
    EXPECT_FALSE(CAppDBInfo::UpdateConfigTable("RESERVED_17", "a,b"));
    EXPECT_TRUE(noBus.Contains("Connection is NULL.")) << noBus.Text();
    ASSERT_EQ(Host({"up"}).status, 0);
    ASSERT_EQ(CAppDBInfo::GetAllAppList().size(), 12u);

    _APPINFO_T changed = ReadApp("3201904018125");
    changed.title = "it's \"renamed\" – ünï 日本";
    changed.is_need_reset = changed.is_ticker = true;
    EXPECT_TRUE(CAppDBInfo::SetAppInfo(changed, false));
    EXPECT_EQ(LastArgs("set_app_info"), "[1," + orvix::host::JsonLine(Json(changed)) + ",0]");
    EXPECT_EQ(Json(ReadApp("3201904018125")), Json(changed));

    std::string value;
    EXPECT_TRUE(CAppDBInfo::UpdateConfigTable("RESERVED_17", "a,b"));
    EXPECT_TRUE(CAppDBInfo::GetConfigTable("RESERVED_17", value) && value == "a,b");

    // Items of every app (empty id) and of one app.
    EXPECT_TRUE(CAppDBInfo::UpdateAppsInfoByKey(APPINFO_UPDATE_KEY_NEED_RESET, 1, "") &&
                CAppDBInfo::UpdateAppsInfoByKey(APPINFO_UPDATE_KEY_USE_COUNT, 42, "3201903017943"));
    EXPECT_EQ(LastArgs("update_app_item"), R"(["3201903017943",1,0,42,""])");
    for (const auto& app : CAppDBInfo::GetAllAppList()) {
        EXPECT_TRUE(app.is_need_reset) << app.id;
        EXPECT_EQ(app.use_count == 42, app.id == "3201903017943") << app.id;
    }

    // The daemon goes away; the bus stays. The change fails with the bus error and nothing changes.
    orvix::host::ProcessId daemon;
    ASSERT_TRUE(orvix::host::ReadPidFile(Root() + "/run/pids/innerserver.pid", daemon) &&
                kill(daemon.pid, SIGTERM) == 0);
    ASSERT_TRUE(
        orvix::test::WaitUntil([&] { return !orvix::host::IsRunning(daemon); }, std::chrono::seconds(30)));
    EXPECT_FALSE(CAppDBInfo::UpdateConfigTable("RESERVED_17", "c"));
    EXPECT_TRUE(CAppDBInfo::GetConfigTable("RESERVED_17", value) && value == "a,b");  // reads need no daemon
}

}  // namespace
