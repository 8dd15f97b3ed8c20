#include "WidgetInfoDB.h"

#include "TAKDBConnection.h"
#include "TAKLog.h"

namespace {

std::string JoinColumns() {
    std::string columns;
    for (unsigned i = 0; i < TAK_APPINFO_COLUMN_COUNT; ++i) {
        if (i != 0) {
            columns += ",";
        }
        columns += TAK_APPINFO_COLUMN_NAMES[i];
    }
    return columns;
}

void AssignText(sqlite3_stmt* stmt, int column, std::string& value) {
    const unsigned char* text = sqlite3_column_text(stmt, column);
    if (text == nullptr) {
        value.clear();
        return;
    }
    value.assign(reinterpret_cast<const char*>(text),
                 static_cast<size_t>(sqlite3_column_bytes(stmt, column)));
}

}  // namespace

CWidgetInfoDB::CWidgetInfoDB() : CTAKDBTable(TAK_WIDGETINFO_TABLE_NAME) {}

const std::string& CWidgetInfoDB::ColumnList() {
    static const std::string columns = JoinColumns();
    return columns;
}

std::string CWidgetInfoDB::SelectAllSql() {
    return std::string("select ") + ColumnList() + " from " + TAK_WIDGETINFO_TABLE_NAME;
}

std::string CWidgetInfoDB::InsertSql() {
    std::string sql =
        std::string("insert into ") + TAK_WIDGETINFO_TABLE_NAME + "(" + ColumnList() + ")" + " values(";
    for (unsigned i = 0; i + 1 < TAK_APPINFO_COLUMN_COUNT; ++i) {
        sql += "?,";
    }
    return sql + "?)";
}

std::string CWidgetInfoDB::UpdateSql() {
    std::string sql = std::string("update ") + TAK_WIDGETINFO_TABLE_NAME + " set ";
    for (unsigned i = 0; i + 1 < TAK_APPINFO_COLUMN_COUNT; ++i) {
        sql += std::string(TAK_APPINFO_COLUMN_NAMES[i]) + "= ?,";
    }
    return sql + TAK_APPINFO_COLUMN_NAMES[TAK_APPINFO_COLUMN_COUNT - 1] + "=? where id = ?";
}

void CWidgetInfoDB::ReadRow(sqlite3_stmt* stmt, _APPINFO_T& info) {
    for (unsigned i = 0; i < TAK_APPINFO_COLUMN_COUNT; ++i) {
        const _APPINFO_FIELD_T& field = TAK_APPINFO_FIELDS[i];
        int column = static_cast<int>(i);
        switch (field.kind) {
            case APPINFO_FIELD_TEXT:
                AssignText(stmt, column, info.*field.text);
                break;
            case APPINFO_FIELD_INT:
                info.*field.number = sqlite3_column_int(stmt, column);
                break;
            case APPINFO_FIELD_FLAG:
                info.*field.flag = sqlite3_column_int(stmt, column) != 0;
                break;
        }
    }
}

bool CWidgetInfoDB::BindRow(sqlite3_stmt* stmt, const _APPINFO_T& info) {
    for (unsigned i = 0; i < TAK_APPINFO_COLUMN_COUNT; ++i) {
        const _APPINFO_FIELD_T& field = TAK_APPINFO_FIELDS[i];
        int position = static_cast<int>(i) + 1;
        int ret = SQLITE_OK;
        switch (field.kind) {
            case APPINFO_FIELD_TEXT:
                ret = sqlite3_bind_text(stmt, position, (info.*field.text).c_str(), -1, SQLITE_STATIC);
                break;
            case APPINFO_FIELD_INT:
                ret = sqlite3_bind_int(stmt, position, info.*field.number);
                break;
            case APPINFO_FIELD_FLAG:
                ret = sqlite3_bind_int(stmt, position, (info.*field.flag) ? 1 : 0);
                break;
        }
        if (ret != SQLITE_OK) {
            TAK_LOGE("failed to bind column %s at position %d", TAK_APPINFO_COLUMN_NAMES[i], position);
            return false;
        }
    }
    return true;
}

void CWidgetInfoDB::m_GetAppInfoFromRow(_APPINFO_T& info) {
    ReadRow(m_pStmt, info);
}

bool CWidgetInfoDB::m_BindAppInfo(const _APPINFO_T& info) {
    for (unsigned i = 0; i < TAK_APPINFO_COLUMN_COUNT; ++i) {
        const _APPINFO_FIELD_T& field = TAK_APPINFO_FIELDS[i];
        bool bound = false;
        switch (field.kind) {
            case APPINFO_FIELD_TEXT:
                bound = Bind(i + 1, info.*field.text);
                break;
            case APPINFO_FIELD_INT:
                bound = Bind(i + 1, info.*field.number);
                break;
            case APPINFO_FIELD_FLAG:
                bound = Bind(i + 1, info.*field.flag);
                break;
        }
        if (!bound) {
            return false;
        }
    }
    return true;
}

bool CWidgetInfoDB::m_BindUpdateAppInfo(const _APPINFO_T& info) {
    return m_BindAppInfo(info) && Bind(TAK_APPINFO_COLUMN_COUNT + 1, info.id);
}

void CWidgetInfoDB::m_Backup() {
    if (CTAKDBConnection* connection = CTAKDBConnection::GetInstance(false); connection != nullptr) {
        connection->Backup();
    }
}

bool CWidgetInfoDB::m_FinishWrite() {
    if (Step() != SQLITE_DONE) {
        return false;
    }
    m_Backup();
    return true;
}

bool CWidgetInfoDB::GetAppInfo(_APPINFO_T& info, const std::string& where,
                               const std::vector<_TAKDB_BIND_T>& binds) {
    CStatementLock lock;
    if (!Prepare(SelectAllSql() + where)) {
        return false;
    }
    Bind(binds);
    if (Step() != SQLITE_ROW) {
        return false;
    }
    m_GetAppInfoFromRow(info);
    return true;
}

bool CWidgetInfoDB::m_GetList(std::list<_APPINFO_T>& apps, const std::string& sql) {
    CStatementLock lock;
    if (!Prepare(sql)) {
        return false;
    }
    std::list<_APPINFO_T> rows;
    int ret = Step();
    while (ret == SQLITE_ROW) {
        m_GetAppInfoFromRow(rows.emplace_back());
        ret = Step();
    }
    if (ret != SQLITE_DONE || rows.empty()) {
        return false;
    }
    apps.swap(rows);
    return true;
}

bool CWidgetInfoDB::GetAllWidgetsInfo(std::list<_APPINFO_T>& apps) {
    return m_GetList(apps, SelectAllSql() + " order by app_index asc");
}

bool CWidgetInfoDB::GetAllWidgetsInfoOrderById(std::list<_APPINFO_T>& apps) {
    return m_GetList(apps, SelectAllSql() + " order by upper(id) asc");
}

bool CWidgetInfoDB::GetAppListByParam(std::list<_APPINFO_T>& apps, const std::string& param) {
    return m_GetList(apps, SelectAllSql() + " where " + param);
}

bool CWidgetInfoDB::RemoveAppInfo(const std::string& pkgName) {
    CStatementLock lock;
    if (!m_DeleteByPrimaryKey("pkgname", pkgName)) {
        return false;
    }
    m_Backup();
    return true;
}

bool CWidgetInfoDB::RemoveAppInfoById(const std::string& id) {
    CStatementLock lock;
    if (!m_DeleteByPrimaryKey("id", id)) {
        return false;
    }
    m_Backup();
    return true;
}

bool CWidgetInfoDB::UpdateAppsKeyValue(const std::string& assignment, const std::string& value,
                                       const std::string& id) {
    CStatementLock lock;
    std::string sql = std::string("update ") + TAK_WIDGETINFO_TABLE_NAME + " set " + assignment;
    if (!id.empty()) {
        sql += " where id = ?";
    }
    if (!Prepare(sql) || !Bind(1, value) || (!id.empty() && !Bind(2, id))) {
        return false;
    }
    return m_FinishWrite();
}

bool CWidgetInfoDB::UpdateAppsKeyValue(const std::string& assignment, int value, const std::string& id,
                                       const std::string& extra) {
    CStatementLock lock;
    std::string sql = std::string("update ") + TAK_WIDGETINFO_TABLE_NAME + " set " + assignment;
    if (!id.empty()) {
        sql += " where id = ?";
        if (!extra.empty()) {
            sql += " and (" + extra + ")";
        }
    } else if (!extra.empty()) {
        sql += " where " + extra;
    }
    if (!Prepare(sql) || !Bind(1, value) || (!id.empty() && !Bind(2, id))) {
        return false;
    }
    return m_FinishWrite();
}

bool CWidgetInfoDB::UpdateAppUpdateInfo(const std::string& id, const std::string& version, bool needUpdate,
                                        bool downloaded) {
    CStatementLock lock;
    std::string sql = std::string("update ") + TAK_WIDGETINFO_TABLE_NAME + " set " +
                      "reserved_string_13 = ?," + "is_need_update = ?," + "reserved_tinyint_11 = ?" +
                      " where id = ?";
    if (!Prepare(sql) || !Bind(1, version) || !Bind(2, needUpdate) || !Bind(3, downloaded) || !Bind(4, id)) {
        return false;
    }
    return m_FinishWrite();
}

bool CWidgetInfoDB::InsertAppInfo(const _APPINFO_T& info) {
    CStatementLock lock;
    if (!Prepare(InsertSql()) || !m_BindAppInfo(info)) {
        return false;
    }
    return m_FinishWrite();
}

bool CWidgetInfoDB::UpdateAppInfo(const _APPINFO_T& info) {
    CStatementLock lock;
    if (!Prepare(UpdateSql()) || !m_BindUpdateAppInfo(info)) {
        return false;
    }
    return m_FinishWrite();
}
