// The schema of the service's app database, as the privileged utility creates it ("takutility -n")
// and the host kit seeds it. Written in one place so that every creator makes the same file.
//
// "widgetinfo": one column per field of _APPINFO_T, in the record's order. "id" is the text primary
// key; text fields are "text", integer fields "integer", flags "tinyint". Each column's default is the
// value of a default-constructed record, so a row inserted with only some columns reads back as the
// record would start ("undefined" package type, "not confirmed" rating, empty texts, zeros).
// Indexes on "pkgname" and "run_title" serve the look-ups by package and by run title.
//
// "TAKConfigTable": ("name" text primary key, "value" text), one row per key.
#pragma once

#include <sqlite3.h>

#include <string>

namespace TAKDBSchema {

// "create table ..." for "widgetinfo".
std::string WidgetInfoTableSql();
// "create table ..." for "TAKConfigTable".
std::string ConfigTableSql();
// Every statement of the schema, tables and indexes, separated by ";".
std::string CreateSql();

// Runs CreateSql() on an open read-write connection; logs and returns false on failure.
bool Create(sqlite3* db);

}  // namespace TAKDBSchema
