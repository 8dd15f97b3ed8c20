// CWidgetInfoDB: the app-info table "widgetinfo", one row per installed web app (_APPINFO_T).
//
// Every operation holds CTAKDBTable::Mutex for its whole run and returns false on any database error;
// successful writes are followed by a backup of the database, failed ones never are. A select that
// yields no row returns false and leaves the output untouched; a list select that yields rows replaces
// the output list with them.
#pragma once

#include <list>
#include <string>
#include <vector>

#include "AppInfo.h"
#include "TAKDBTable.h"

#define TAK_WIDGETINFO_TABLE_NAME "widgetinfo"

class CWidgetInfoDB : public CTAKDBTable {
public:
    CWidgetInfoDB();

    // The first row of "select <columns> from widgetinfo" + `where`, with `binds` bound in order.
    bool GetAppInfo(_APPINFO_T& info, const std::string& where, const std::vector<_TAKDB_BIND_T>& binds);
    // Every row, by app_index.
    bool GetAllWidgetsInfo(std::list<_APPINFO_T>& apps);
    // Every row, by id without regard to case.
    bool GetAllWidgetsInfoOrderById(std::list<_APPINFO_T>& apps);
    // The rows matching `param` (pasted after " where ").
    bool GetAppListByParam(std::list<_APPINFO_T>& apps, const std::string& param);

    // Removes every app of the package.
    bool RemoveAppInfo(const std::string& pkgName);
    // Removes the one app with that id (the id is pasted, as in every delete by key).
    bool RemoveAppInfoById(const std::string& id);

    // "update widgetinfo set <assignment> where id = ?": the caller writes the column with its "?"
    // placeholder; the value is bound first and the id second. An empty id stands for every app: the
    // condition is left out and no id is bound.
    bool UpdateAppsKeyValue(const std::string& assignment, const std::string& value, const std::string& id);
    // The same for an integer value. `extra`, when not empty, is a further condition pasted into the
    // statement to narrow the rows, e.g. "app_type != 4": " where id = ? and (<extra>)" with an id,
    // " where <extra>" without one.
    bool UpdateAppsKeyValue(const std::string& assignment, int value, const std::string& id,
                            const std::string& extra);

    // Records a pending update: the new version (reserved_string_13), whether the app needs the update
    // (is_need_update) and whether the new package has already been downloaded and waits to be applied
    // (reserved_tinyint_11).
    bool UpdateAppUpdateInfo(const std::string& id, const std::string& version, bool needUpdate,
                             bool downloaded);

    bool InsertAppInfo(const _APPINFO_T& info);
    // Every column of the row with the record's id.
    bool UpdateAppInfo(const _APPINFO_T& info);

    // The 105 column names joined by ",".
    static const std::string& ColumnList();
    // "select <columns> from widgetinfo".
    static std::string SelectAllSql();
    static std::string InsertSql();
    static std::string UpdateSql();

    // Reads the current row of `stmt` (columns 0 to 104) into `info`.
    static void ReadRow(sqlite3_stmt* stmt, _APPINFO_T& info);
    // Binds the record's fields at positions 1 to 105 of `stmt`; false on the first failed bind.
    static bool BindRow(sqlite3_stmt* stmt, const _APPINFO_T& info);

private:
    bool m_GetList(std::list<_APPINFO_T>& apps, const std::string& sql);
    bool m_BindAppInfo(const _APPINFO_T& info);
    bool m_BindUpdateAppInfo(const _APPINFO_T& info);
    void m_GetAppInfoFromRow(_APPINFO_T& info);
    void m_Backup();
    // Steps the prepared write; only a write that is done is followed by a backup.
    bool m_FinishWrite();
};
