#include "TAKDBTable.h"

#include "TAKDBConnection.h"
#include "TAKLog.h"

namespace {

// Tries of the busy handler before SQLite reports the database as busy, and the pause between them.
constexpr int kBusyTries = 50;
constexpr int kBusySleepMs = 10;

// Apps that survive a truncation that keeps the fixed apps.
const char kFixedAppsList[] = ", '3201903017943', '3201904018125', '3202001019917'";

}  // namespace

sqlite3_stmt* CTAKDBTable::m_pStmt = nullptr;
std::mutex CTAKDBTable::Mutex;

CTAKDBTable::CStatementLock::CStatementLock() : m_tGuard(CTAKDBTable::Mutex) {}

CTAKDBTable::CStatementLock::~CStatementLock() {
    CTAKDBTable::m_FinalizeStmt();
}

CTAKDBTable::CTAKDBTable(const std::string& tableName) : m_strTableName(tableName) {}

CTAKDBTable::~CTAKDBTable() = default;

std::string CTAKDBTable::GetTableName() const {
    return m_strTableName;
}

void CTAKDBTable::m_FinalizeStmt() {
    if (m_pStmt != nullptr) {
        sqlite3_finalize(m_pStmt);
        m_pStmt = nullptr;
    }
}

bool CTAKDBTable::Prepare(const std::string& sql) {
    m_FinalizeStmt();
    CTAKDBConnection* connection = CTAKDBConnection::GetInstance(false);
    if (connection == nullptr) {
        return false;
    }
    sqlite3* db = connection->GetConnection();
    if (db == nullptr) {
        return false;
    }
    sqlite3_busy_handler(db, BusyHandler, nullptr);
    int ret = sqlite3_prepare_v2(db, sql.c_str(), -1, &m_pStmt, nullptr);
    if (ret != SQLITE_OK) {
        TAK_LOGE("unknow type %d", ret);
        if (m_pStmt != nullptr) {
            TAK_LOGE("finalize m_pStmt");
            m_FinalizeStmt();
        }
        return false;
    }
    return true;
}

int CTAKDBTable::Step() {
    if (m_pStmt == nullptr) {
        TAK_LOGE("g_pStmt is NULL");
        return SQLITE_ERROR;
    }
    int ret = sqlite3_step(m_pStmt);
    if (ret == SQLITE_ROW) {
        return ret;
    }
    if (ret != SQLITE_BUSY && ret != SQLITE_DONE) {
        TAK_LOGE("unknown type %d", ret);
    }
    m_FinalizeStmt();
    return ret;
}

bool CTAKDBTable::Bind(unsigned position, bool value) {
    int number = value ? 1 : 0;
    if (sqlite3_bind_int(m_pStmt, static_cast<int>(position), number) != SQLITE_OK) {
        TAK_LOGE("failed to bind %d at position %d", number, static_cast<int>(position));
        return false;
    }
    return true;
}

bool CTAKDBTable::Bind(unsigned position, int value) {
    if (sqlite3_bind_int(m_pStmt, static_cast<int>(position), value) != SQLITE_OK) {
        TAK_LOGE("failed to bind %d at position %d", value, static_cast<int>(position));
        return false;
    }
    return true;
}

bool CTAKDBTable::Bind(unsigned position, const std::string& value) {
    if (sqlite3_bind_text(m_pStmt, static_cast<int>(position), value.c_str(), -1, SQLITE_STATIC) !=
        SQLITE_OK) {
        TAK_LOGE("failed to bind '%s' at position %d", value.c_str(), static_cast<int>(position));
        return false;
    }
    return true;
}

bool CTAKDBTable::Bind(const std::vector<_TAKDB_BIND_T>& values) {
    unsigned position = 1;
    for (const auto& value : values) {
        if (value.type == TAKDB_BIND_TEXT) {
            Bind(position, value.strValue);
        } else if (value.type == TAKDB_BIND_INTEGER) {
            Bind(position, static_cast<int>(value.nValue));
        }
        ++position;
    }
    return true;
}

void CTAKDBTable::SaveBind(std::vector<_TAKDB_BIND_T>& values, const std::string& text) {
    values.push_back({TAKDB_BIND_TEXT, text, 0});
}

void CTAKDBTable::SaveBind(std::vector<_TAKDB_BIND_T>& values, int number) {
    values.push_back({TAKDB_BIND_INTEGER, "", number});
}

std::string CTAKDBTable::GetStringFromResult(unsigned column) {
    const unsigned char* text = sqlite3_column_text(m_pStmt, static_cast<int>(column));
    return text != nullptr ? reinterpret_cast<const char*>(text) : "";
}

int CTAKDBTable::GetIntegerFromResult(unsigned column) {
    return sqlite3_column_int(m_pStmt, static_cast<int>(column));
}

void CTAKDBTable::GetValueByPosition(unsigned column, int& value) {
    value = GetIntegerFromResult(column);
}

void CTAKDBTable::GetValueByPosition(unsigned column, bool& value) {
    value = GetIntegerFromResult(column) != 0;
}

void CTAKDBTable::GetValueByPosition(unsigned column, std::string& value) {
    const unsigned char* text = sqlite3_column_text(m_pStmt, static_cast<int>(column));
    if (text == nullptr) {
        value.clear();
        return;
    }
    value.assign(reinterpret_cast<const char*>(text),
                 static_cast<size_t>(sqlite3_column_bytes(m_pStmt, static_cast<int>(column))));
}

int CTAKDBTable::BusyHandler(void* /*data*/, int count) {
    TAK_LOGE("busy...");
    if (count >= kBusyTries) {
        return 0;
    }
    sqlite3_sleep(kBusySleepMs);
    return 1;
}

bool CTAKDBTable::Exec(const std::string& sql) {
    CStatementLock lock;
    if (!Prepare(sql)) {
        return false;
    }
    if (Step() != SQLITE_DONE) {
        return false;
    }
    TAK_LOGD("exec command successfully : %s", sql.c_str());
    return true;
}

bool CTAKDBTable::Begin() {
    return Exec("begin");
}

bool CTAKDBTable::Commit() {
    return Exec("commit");
}

bool CTAKDBTable::ClearTable() {
    std::string sql = "delete from " + m_strTableName;
    TAK_LOGD("%s", sql.c_str());
    return Exec(sql);
}

bool CTAKDBTable::Update(const std::string& id, const std::string& column, const std::string& value) {
    if (!m_IsPasteable(id) || !m_IsPasteable(value)) {
        return false;
    }
    CStatementLock lock;
    return Prepare(m_GenerateUpdateCmd(id, column, value)) && Step() == SQLITE_DONE;
}

bool CTAKDBTable::Update(const std::string& id, const std::string& column, int value) {
    if (!m_IsPasteable(id)) {
        return false;
    }
    CStatementLock lock;
    return Prepare(m_GenerateUpdateCmd(id, column, value)) && Step() == SQLITE_DONE;
}

bool CTAKDBTable::m_SelectFirst(const std::string& id, const std::string& column) {
    return m_IsPasteable(id) && Prepare(m_GenerateSelectCmd(id, column)) && Step() == SQLITE_ROW;
}

bool CTAKDBTable::Select(const std::string& id, const std::string& column, std::string& value) {
    CStatementLock lock;
    if (!m_SelectFirst(id, column)) {
        return false;
    }
    GetValueByPosition(0, value);
    return Step() == SQLITE_DONE;
}

bool CTAKDBTable::Select(const std::string& id, const std::string& column, int& value) {
    CStatementLock lock;
    if (!m_SelectFirst(id, column)) {
        return false;
    }
    GetValueByPosition(0, value);
    return Step() == SQLITE_DONE;
}

bool CTAKDBTable::IsPrimaryKeyExists(const std::string& key, const std::string& value) {
    if (!m_IsPasteable(value)) {
        return false;
    }
    CStatementLock lock;
    std::string sql = "select count(*) from " + m_strTableName + " where " + key + " = '" + value + "'";
    TAK_LOGD("%s", sql.c_str());
    if (!Prepare(sql) || Step() != SQLITE_ROW) {
        return false;
    }
    int count = GetIntegerFromResult(0);
    return Step() == SQLITE_DONE && count != 0;
}

bool CTAKDBTable::m_DeleteByPrimaryKey(const std::string& key, const std::string& value) {
    if (!m_IsPasteable(value)) {
        return false;
    }
    std::string sql = "delete from " + m_strTableName + " where " + key + "='" + value + "'";
    TAK_LOGD("sql %s", sql.c_str());
    return Prepare(sql) && Step() == SQLITE_DONE;
}

bool CTAKDBTable::Truncate(const std::map<std::string, std::string>& keep, bool keepFixedApps) {
    for (const auto& entry : keep) {
        if (!m_IsPasteable(entry.first)) {
            return false;
        }
    }
    return Exec(m_GenerateTruncateCmd(keep, keepFixedApps));
}

bool CTAKDBTable::m_IsPasteable(const std::string& value) {
    if (value.find('\'') == std::string::npos) {
        return true;
    }
    TAK_LOGE("refused: the value [%s] holds a single quote, which would end its quoted text", value.c_str());
    return false;
}

std::string CTAKDBTable::m_GenerateUpdateCmd(const std::string& id, const std::string& column,
                                             const std::string& value) const {
    std::string sql = "update " + m_strTableName + " set " + column + " = '" + value + "'";
    if (!id.empty()) {
        sql += " where ID = '" + id + "'";
    }
    TAK_LOGD("%s", sql.c_str());
    return sql;
}

std::string CTAKDBTable::m_GenerateUpdateCmd(const std::string& id, const std::string& column,
                                             int value) const {
    std::string sql = "update " + m_strTableName + " set " + column + " = " + std::to_string(value);
    if (!id.empty()) {
        sql += " where ID = '" + id + "'";
    }
    TAK_LOGD("%s", sql.c_str());
    return sql;
}

std::string CTAKDBTable::m_GenerateInsertCmd(const std::string& column, const std::string& value) const {
    std::string sql = "insert into " + m_strTableName + " ( " + column + " ) values ('" + value + "')";
    TAK_LOGD("%s", sql.c_str());
    return sql;
}

std::string CTAKDBTable::m_GenerateInsertCmd(const std::string& column, int value) const {
    std::string sql =
        "insert into " + m_strTableName + " ( " + column + " ) values (" + std::to_string(value) + ")";
    TAK_LOGD("%s", sql.c_str());
    return sql;
}

std::string CTAKDBTable::m_GenerateSelectCmd(const std::string& id, const std::string& column) const {
    std::string sql = "select " + column + " from " + m_strTableName;
    if (!id.empty()) {
        sql += " where  ID='" + id + "'";
    }
    TAK_LOGD("%s", sql.c_str());
    return sql;
}

// The steps are kept as they have always been, including the texts they give when the fixed apps are
// added after a non-empty list or to an empty one: SQLite rejects those, so nothing is deleted.
std::string CTAKDBTable::m_GenerateTruncateCmd(const std::map<std::string, std::string>& keep,
                                               bool keepFixedApps) const {
    std::string sql = "delete from " + m_strTableName + "  where id not in " + "('";
    for (const auto& entry : keep) {
        sql += entry.first + "','";
    }
    if (!keep.empty()) {
        sql.erase(sql.size() - 3);
    }
    if (keepFixedApps) {
        sql += kFixedAppsList;
    }
    sql += "')";
    TAK_LOGD("%s", sql.c_str());
    return sql;
}
