#include "TAKDBSchema.h"

#include "AppInfo.h"
#include "TAKConfig.h"
#include "TAKLog.h"
#include "WidgetInfoDB.h"

namespace {

// Text default as an SQL literal.
std::string Quote(const std::string& text) {
    std::string quoted = "'";
    for (char c : text) {
        quoted += c;
        if (c == '\'') {
            quoted += '\'';
        }
    }
    return quoted + "'";
}

std::string ColumnDefinition(unsigned index, const _APPINFO_T& defaults) {
    const _APPINFO_FIELD_T& field = TAK_APPINFO_FIELDS[index];
    std::string definition = TAK_APPINFO_COLUMN_NAMES[index];
    if (index == 0) {
        return definition + " text primary key not null";
    }
    switch (field.kind) {
        case APPINFO_FIELD_TEXT:
            return definition + " text default " + Quote(defaults.*field.text);
        case APPINFO_FIELD_INT:
            return definition + " integer default " + std::to_string(defaults.*field.number);
        case APPINFO_FIELD_FLAG:
            return definition + " tinyint default " + std::to_string((defaults.*field.flag) ? 1 : 0);
    }
    return definition;
}

}  // namespace

namespace TAKDBSchema {

std::string WidgetInfoTableSql() {
    const _APPINFO_T defaults;
    std::string sql = std::string("create table if not exists ") + TAK_WIDGETINFO_TABLE_NAME + " (";
    for (unsigned i = 0; i < TAK_APPINFO_COLUMN_COUNT; ++i) {
        sql += (i == 0 ? "" : ", ") + ColumnDefinition(i, defaults);
    }
    return sql + ")";
}

std::string ConfigTableSql() {
    return std::string("create table if not exists ") + TAK_CONFIG_TABLE_NAME +
           " (name text primary key not null, value text)";
}

std::string CreateSql() {
    return WidgetInfoTableSql() + ";\n" + ConfigTableSql() + ";\n" +
           "create index if not exists widgetinfo_pkgname on " TAK_WIDGETINFO_TABLE_NAME "(pkgname);\n" +
           "create index if not exists widgetinfo_run_title on " TAK_WIDGETINFO_TABLE_NAME "(run_title);\n";
}

bool Create(sqlite3* db) {
    char* error = nullptr;
    if (sqlite3_exec(db, CreateSql().c_str(), nullptr, nullptr, &error) != SQLITE_OK) {
        TAK_LOGE("create schema failed: %s", error != nullptr ? error : "unknown error");
        sqlite3_free(error);
        return false;
    }
    return true;
}

}  // namespace TAKDBSchema
