// The database options of the host takutility: "-n" creates the service database with its schema and
// an empty configuration table, "-t" puts the backup in place of the live file.
#include <smack.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

#include <orvix_host.h>
#include <platform_path.h>

#include "TAKDBConnection.h"
#include "TAKDBSchema.h"
#include "TAKFile.h"
#include "UtilityOptions.h"

namespace {

const char kHomeLabel[] = "User::Home";

// Removes a file that may not be there; false only when one is there and stays.
bool RemoveIfPresent(const std::string& path) {
    return unlink(path.c_str()) == 0 || !TAKFile::Exists(path);
}

bool CopyFile(const std::string& from, const std::string& to) {
    std::ifstream in(from, std::ios::binary);
    std::ofstream out(to, std::ios::binary | std::ios::trunc);
    if (!in || !out) {
        return false;
    }
    out << in.rdbuf();
    out.flush();
    return static_cast<bool>(out);
}

// Both live files must lie below the root before anything is changed.
bool LiveFilesConfined(std::string& db, std::string& journal) {
    // The home directory is the kit's own path variable, so it may be made before the check.
    orvix::host::MakeDirs(orvix::host::PathVariable(PLATFORM_PATH_USER_HOME));
    db = ConfinedPath(CTAKDBConnection::GetDBPath(), false);
    journal = ConfinedPath(CTAKDBConnection::GetJournalPath(), false);
    return !db.empty() && !journal.empty();
}

bool CreateSchema(const std::string& path) {
    sqlite3* db = nullptr;
    int ret = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    if (ret != SQLITE_OK) {
        fprintf(stderr, "takutility: cannot create %s: %s\n", path.c_str(), sqlite3_errstr(ret));
        sqlite3_close(db);
        return false;
    }
    bool created = TAKDBSchema::Create(db);
    if (!created) {
        fprintf(stderr, "takutility: cannot write the schema into %s: %s\n", path.c_str(),
                sqlite3_errmsg(db));
    }
    return sqlite3_close(db) == SQLITE_OK && created;
}

}  // namespace

// A fresh database replaces whatever was there: the utility is asked for it when the file is missing
// or beyond repair.
int CreateDatabaseOption(const std::string& /*unused*/) {
    std::string db;
    std::string journal;
    if (!LiveFilesConfined(db, journal)) {
        return kRefused;
    }
    if (!RemoveIfPresent(journal) || !RemoveIfPresent(db)) {
        fprintf(stderr, "takutility: cannot remove the old database %s\n", db.c_str());
        return 1;
    }
    if (!CreateSchema(db)) {
        RemoveIfPresent(db);
        return 1;
    }
    smack_setlabel(db.c_str(), kHomeLabel, SMACK_LABEL_ACCESS);
    return 0;
}

// The backup copy replaces the live file in one rename. The live journal goes, and the backup's
// journal is not brought back: a journal beside the restored file would be rolled into it as a hot
// journal of a transaction that file never saw. Backups are taken after each statement has finished,
// so the backup file alone is complete.
int RestoreDatabaseOption(const std::string& /*unused*/) {
    std::string db;
    std::string journal;
    if (!LiveFilesConfined(db, journal)) {
        return kRefused;
    }
    const std::string backup = CTAKDBConnection::GetBackupDir() + ".vardell.db";
    if (!TAKFile::IsFile(backup)) {
        fprintf(stderr, "takutility: no backup at %s\n", backup.c_str());
        return 1;
    }
    const std::string staging = db + ".restoring";
    if (!CopyFile(backup, staging)) {
        fprintf(stderr, "takutility: cannot copy %s to %s\n", backup.c_str(), staging.c_str());
        RemoveIfPresent(staging);
        return 1;
    }
    if (!RemoveIfPresent(journal) || rename(staging.c_str(), db.c_str()) != 0) {
        fprintf(stderr, "takutility: cannot put the backup in place at %s\n", db.c_str());
        RemoveIfPresent(staging);
        return 1;
    }
    smack_setlabel(db.c_str(), kHomeLabel, SMACK_LABEL_ACCESS);
    return 0;
}
