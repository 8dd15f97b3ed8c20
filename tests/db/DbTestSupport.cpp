#include "DbTestSupport.h"

#include <orvix_host.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

#include "TAKDBConnection.h"
#include "TAKDBSchema.h"
#include "WidgetInfoDB.h"

namespace dbtest {

std::string& LogPath();  // set by main()

namespace {

std::string ReadLog() {
    return ReadFile(LogPath());
}

// An open connection of the test's own, closed when it goes.
class Handle {
public:
    explicit Handle(const std::string& path, int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE) {
        if (sqlite3_open_v2(path.c_str(), &m_pDb, flags, nullptr) != SQLITE_OK) {
            sqlite3_close(m_pDb);
            m_pDb = nullptr;
        }
    }
    ~Handle() { sqlite3_close(m_pDb); }
    sqlite3* Get() const { return m_pDb; }

private:
    sqlite3* m_pDb = nullptr;
};

bool Exec(sqlite3* db, const std::string& sql) {
    return db != nullptr && sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
}

}  // namespace

LogMark::LogMark() : m_Offset(ReadLog().size()) {}

std::string LogMark::Text() const {
    std::string all = ReadLog();
    return m_Offset <= all.size() ? all.substr(m_Offset) : std::string();
}

int LogMark::CountMessages(const std::string& text) const {
    std::istringstream lines(Text());
    std::string line;
    const std::string ending = "> " + text + "\033[0m";
    int count = 0;
    while (std::getline(lines, line)) {
        if (line.size() >= ending.size() &&
            line.compare(line.size() - ending.size(), ending.size(), ending) == 0) {
            ++count;
        }
    }
    return count;
}

bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

TempRoot::TempRoot() {
    char pattern[] = "/tmp/test_db_root_XXXXXX";
    const char* made = mkdtemp(pattern);
    m_Path = made != nullptr ? made : "";
    orvix::host::SetRoot(m_Path);
    orvix::host::MakeDirs(orvix::host::PathVariable(24));
    orvix::host::MakeDirs(CTAKDBConnection::GetBackupDir());
    InstallTakUtility();
}

TempRoot::~TempRoot() {
    if (m_Path.empty() || getenv("DB_TEST_KEEP_ROOT") != nullptr) {
        return;
    }
    std::string command = "rm -rf '" + m_Path + "'";
    if (system(command.c_str()) != 0) {
        fprintf(stderr, "could not remove %s\n", m_Path.c_str());
    }
}

bool TempRoot::InstallTakUtility() const {
    const std::string built = std::string(TAK_BINARY_DIR) + "/tools/takutility/takutility";
    if (access(built.c_str(), X_OK) != 0) {
        return false;
    }
    bool ok = true;
    for (const char* device : {"/bin/takutility", "/usr/bin/takutility"}) {
        std::string target = orvix::host::FixedPath(device);
        orvix::host::MakeDirs(target.substr(0, target.rfind('/')));
        unlink(target.c_str());
        ok = symlink(built.c_str(), target.c_str()) == 0 && ok;
    }
    return ok;
}

std::string DBPath() {
    return CTAKDBConnection::GetDBPath();
}
std::string JournalPath() {
    return CTAKDBConnection::GetJournalPath();
}
std::string BackupDBPath() {
    return CTAKDBConnection::GetBackupDir() + ".vardell.db";
}

bool CreateDatabase(const std::string& path) {
    Handle db(path);
    return db.Get() != nullptr && TAKDBSchema::Create(db.Get());
}

bool ExecSql(const std::string& path, const std::string& sql) {
    Handle db(path);
    return Exec(db.Get(), sql);
}

bool InsertApps(const std::string& path, const std::vector<_APPINFO_T>& apps) {
    Handle db(path);
    sqlite3_stmt* stmt = nullptr;
    if (db.Get() == nullptr ||
        sqlite3_prepare_v2(db.Get(), CWidgetInfoDB::InsertSql().c_str(), -1, &stmt, nullptr) != SQLITE_OK) {
        return false;
    }
    bool ok = Exec(db.Get(), "begin");
    for (const auto& app : apps) {
        ok = ok && CWidgetInfoDB::BindRow(stmt, app) && sqlite3_step(stmt) == SQLITE_DONE;
        sqlite3_reset(stmt);
    }
    sqlite3_finalize(stmt);
    return Exec(db.Get(), ok ? "commit" : "rollback") && ok;
}

bool InsertConfigRows(const std::string& path, const std::map<std::string, std::string>& rows) {
    Handle db(path);
    sqlite3_stmt* stmt = nullptr;
    if (db.Get() == nullptr ||
        sqlite3_prepare_v2(db.Get(), "insert or replace into TAKConfigTable(name, value) values(?, ?)", -1,
                           &stmt, nullptr) != SQLITE_OK) {
        return false;
    }
    bool ok = true;
    for (const auto& row : rows) {
        sqlite3_bind_text(stmt, 1, row.first.c_str(), -1, SQLITE_TRANSIENT);
        sqlite3_bind_text(stmt, 2, row.second.c_str(), -1, SQLITE_TRANSIENT);
        ok = sqlite3_step(stmt) == SQLITE_DONE && ok;
        sqlite3_reset(stmt);
    }
    sqlite3_finalize(stmt);
    return ok;
}

std::map<std::string, std::string> ReadConfigRows(const std::string& path) {
    std::map<std::string, std::string> rows;
    Handle db(path, SQLITE_OPEN_READONLY);
    sqlite3_stmt* stmt = nullptr;
    if (db.Get() == nullptr || sqlite3_prepare_v2(db.Get(), "select name, value from TAKConfigTable", -1,
                                                  &stmt, nullptr) != SQLITE_OK) {
        return rows;
    }
    while (sqlite3_step(stmt) == SQLITE_ROW) {
        const unsigned char* value = sqlite3_column_text(stmt, 1);
        rows[reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0))] =
            value != nullptr ? reinterpret_cast<const char*>(value) : "<null>";
    }
    sqlite3_finalize(stmt);
    return rows;
}

std::vector<std::string> ReadAppIds(const std::string& path) {
    std::vector<std::string> ids;
    Handle db(path, SQLITE_OPEN_READONLY);
    sqlite3_stmt* stmt = nullptr;
    if (db.Get() == nullptr || sqlite3_prepare_v2(db.Get(), "select id from widgetinfo order by id", -1,
                                                  &stmt, nullptr) != SQLITE_OK) {
        return ids;
    }
    while (sqlite3_step(stmt) == SQLITE_ROW) {
        ids.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0)));
    }
    sqlite3_finalize(stmt);
    return ids;
}

bool WriteFile(const std::string& path, const std::string& content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    return static_cast<bool>(out);
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

_APPINFO_T DistinctRecord(const std::string& id, int seed) {
    _APPINFO_T info;
    for (unsigned i = 0; i < TAK_APPINFO_COLUMN_COUNT; ++i) {
        const _APPINFO_FIELD_T& field = TAK_APPINFO_FIELDS[i];
        int value = seed * 1000 + static_cast<int>(i);
        switch (field.kind) {
            case APPINFO_FIELD_TEXT:
                info.*field.text = std::string(TAK_APPINFO_COLUMN_NAMES[i]) + "-" + std::to_string(value);
                break;
            case APPINFO_FIELD_INT:
                info.*field.number = value;
                break;
            case APPINFO_FIELD_FLAG:
                info.*field.flag = (i + seed) % 2 == 0;
                break;
        }
    }
    info.id = id;
    return info;
}

::testing::AssertionResult SameRecord(const _APPINFO_T& expected, const _APPINFO_T& actual) {
    for (unsigned i = 0; i < TAK_APPINFO_COLUMN_COUNT; ++i) {
        const _APPINFO_FIELD_T& field = TAK_APPINFO_FIELDS[i];
        bool same = true;
        std::string shown;
        switch (field.kind) {
            case APPINFO_FIELD_TEXT:
                same = expected.*field.text == actual.*field.text;
                shown = "'" + expected.*field.text + "' vs '" + actual.*field.text + "'";
                break;
            case APPINFO_FIELD_INT:
                same = expected.*field.number == actual.*field.number;
                shown =
                    std::to_string(expected.*field.number) + " vs " + std::to_string(actual.*field.number);
                break;
            case APPINFO_FIELD_FLAG:
                same = expected.*field.flag == actual.*field.flag;
                shown = std::to_string(expected.*field.flag) + " vs " + std::to_string(actual.*field.flag);
                break;
        }
        if (!same) {
            return ::testing::AssertionFailure() << "column " << TAK_APPINFO_COLUMN_NAMES[i] << ": " << shown;
        }
    }
    return ::testing::AssertionSuccess();
}

void DbTest::SetUp() {
    CTAKDBConnection::ResetInstanceForTest();
    ASSERT_FALSE(m_Root.Path().empty());
    ASSERT_TRUE(CreateDatabase(DBPath()));
}

void DbTest::TearDown() {
    CTAKDBConnection::ResetInstanceForTest();
}

}  // namespace dbtest
