#include "TAKDBConnection.h"

#include <platform_path.h>
#include <smack.h>

#include <cstdlib>
#include <cstring>

#include "IClogger.h"
#include "TAKConfig.h"
#include "TAKFile.h"
#include "TAKLog.h"
#include "TAKShell.h"
#include "TAKString.h"
#include "TAKUtilityWrapper.h"

namespace {

// Daemon: SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX; others: SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX.
// SQLITE_OPEN_CREATE is never given: the file must already exist.
constexpr int kDaemonOpenFlags = 0x8002;
constexpr int kReaderOpenFlags = 0x8001;

const char kDBFileName[] = "/.vardell.db";
const char kJournalFileName[] = "/.vardell.db-journal";
const char kServiceDirName[] = "/vardell/";
const char kBackupDirName[] = "takdb_backup/";
const char kBackupDBName[] = "takdb_backup/.vardell.db";
const char kBackupJournalName[] = "takdb_backup/.vardell.db-journal";

const char kWidgetInfoTable[] = "widgetinfo";
const char kConfigTable[] = "TAKConfigTable";
const char kHomeLabel[] = "User::Home";

// Configuration keys that newer versions of the service expect; added, never changed, at every start.
const char* const kNewKeys[] = {
    "RESET_TYPE",         "API_APPS_DURING_INIT",    "PRIORITY_LIST_ETAG",
    "PRIORITY_LIST_INFO", "HOME_PRIORITY_LIST_ETAG", "HOME_PRIORITY_LIST_INFO",
    "KORBIT_SYNC_STATE",  "UNINSTALLED_APPS_INFO",   "TOKEN_DISCARDED_APPS",
    "GOOGLECAST_STATUS",  "HOME_TEST_LIST",
};
const char kKorbitSyncStateKey[] = "KORBIT_SYNC_STATE";
const char kKorbitSyncStateInitial[] = "0";

std::string PathVariable(int variable) {
    const char* dir = platform_path_get(variable);
    return dir != nullptr ? dir : "";
}

std::string ServiceBackupRoot() {
    return PathVariable(PLATFORM_PATH_APPS_RW) + kServiceDirName;
}

bool IsCorrupt(int ret) {
    return ret == SQLITE_CORRUPT || ret == SQLITE_NOTADB;
}

// Steps the integrity check until it reports "ok" or the file is busy. Every other outcome, a row
// with another text as much as the end of the statement or an error, is stepped again: a file whose
// check does not say "ok" keeps the check running. This is how the service has always behaved.
void RunIntegrityCheck(sqlite3_stmt* stmt) {
    while (true) {
        int ret = sqlite3_step(stmt);
        if (ret == SQLITE_ROW) {
            const unsigned char* text = sqlite3_column_text(stmt, 0);
            if (text != nullptr && !TAKString::Diff(reinterpret_cast<const char*>(text), "ok")) {
                return;
            }
            continue;
        }
        if (ret == SQLITE_BUSY) {
            TAK_LOGE("sqlite3 busy, return valid");
            return;
        }
    }
}

}  // namespace

CTAKDBConnection* CTAKDBConnection::m_pInstance = nullptr;
bool CTAKDBConnection::m_bTAKDaemon = false;

CTAKDBConnection* CTAKDBConnection::GetInstance(bool bTAKDaemon) {
    if (m_pInstance != nullptr) {
        return m_pInstance;
    }
    m_pInstance = new CTAKDBConnection();
    m_bTAKDaemon = bTAKDaemon;
    if (m_pInstance->Connect(GetDBPath())) {
        return m_pInstance;
    }
    delete m_pInstance;
    m_pInstance = nullptr;
    return nullptr;
}

void CTAKDBConnection::ResetInstanceForTest() {
    delete m_pInstance;
    m_pInstance = nullptr;
    m_bTAKDaemon = false;
}

CTAKDBConnection::~CTAKDBConnection() {
    Disconnect();
}

std::string CTAKDBConnection::GetDBPath() {
    return PathVariable(PLATFORM_PATH_USER_HOME) + kDBFileName;
}

std::string CTAKDBConnection::GetJournalPath() {
    return PathVariable(PLATFORM_PATH_USER_HOME) + kJournalFileName;
}

std::string CTAKDBConnection::GetBackupDir() {
    return ServiceBackupRoot() + kBackupDirName;
}

sqlite3* CTAKDBConnection::GetConnection() {
    if (m_pConnection == nullptr) {
        TAK_LOGE("m_pConnection is NULL");
        return nullptr;
    }
    return m_pConnection;
}

bool CTAKDBConnection::Connect(const std::string& path) {
    if (m_pConnection != nullptr) {
        TAK_LOGI("Data base already connected");
        return true;
    }
    if (m_bTAKDaemon) {
        std::string reason;
        if (!IsValid(reason)) {
            IClogger::SendTAKEventKPI(KPI_TAK_EVENT_DB_INVALID, reason);
            Restore();
            Disconnect();
        }
        CheckSmack();
    }
    // The engine opens the file without a way to keep that open from waiting; so whatever is at the path
    // must already be a regular file (or nothing, for the daemon to create).
    if (!TAKFile::IsRegularOrAbsent(path)) {
        return false;
    }
    int flags = m_bTAKDaemon ? kDaemonOpenFlags : kReaderOpenFlags;
    int ret = sqlite3_open_v2(path.c_str(), &m_pConnection, flags, nullptr);
    if (ret != SQLITE_OK) {
        TAK_LOGE("Failed to connect to DB : %s", sqlite3_errmsg(m_pConnection));
        if (m_pConnection != nullptr) {
            sqlite3_close(m_pConnection);
            m_pConnection = nullptr;
        }
        return false;
    }
    TAK_LOGI("Connected to DB");
    if (m_bTAKDaemon) {
        m_CheckNewKeys();
    }
    return true;
}

bool CTAKDBConnection::Disconnect() {
    if (m_pConnection == nullptr) {
        TAK_LOGI("Data base already disconnected.");
        return true;
    }
    sqlite3_close(m_pConnection);
    m_pConnection = nullptr;
    TAK_LOGI("Disconnected from DB");
    return true;
}

bool CTAKDBConnection::IsValid(std::string& reason) {
    const std::string path = GetDBPath();
    if (!TAKFile::IsFile(path)) {
        TAK_LOGE("%s is not a file", path.c_str());
        reason = "DB is not a file";
        return false;
    }
    if (TAKFile::Size(path) == 0) {
        TAK_LOGE("%s file size is zero", path.c_str());
        reason = "DB file size is zero";
        return false;
    }

    sqlite3* db = nullptr;
    int ret = sqlite3_open(path.c_str(), &db);
    if (IsCorrupt(ret)) {
        TAK_LOGE("sqlite3_open ret %d", ret);
        reason = "DB can not open";
        sqlite3_close(db);
        return false;
    }

    sqlite3_stmt* stmt = nullptr;
    ret = sqlite3_prepare_v2(db, "PRAGMA integrity_check;", -1, &stmt, nullptr);
    if (ret == SQLITE_OK) {
        RunIntegrityCheck(stmt);
        sqlite3_finalize(stmt);
    } else if (IsCorrupt(ret)) {
        TAK_LOGE("%s integrity_check failed, ret %d", path.c_str(), ret);
        TAK_LOGE("%s integrity_check not ok", path.c_str());
        reason = "DB integrity_check failed";
        sqlite3_close(db);
        return false;
    }

    bool valid = true;
    stmt = nullptr;
    ret = sqlite3_prepare_v2(db, "select name from sqlite_master where type = 'table';", -1, &stmt, nullptr);
    if (ret == SQLITE_OK) {
        bool hasWidgetInfo = false;
        bool hasConfig = false;
        while ((ret = sqlite3_step(stmt)) == SQLITE_ROW) {
            const char* name = reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0));
            if (name == nullptr) {
                continue;
            }
            hasWidgetInfo = hasWidgetInfo || strcmp(name, kWidgetInfoTable) == 0;
            hasConfig = hasConfig || strcmp(name, kConfigTable) == 0;
        }
        sqlite3_finalize(stmt);
        if (ret != SQLITE_BUSY) {
            valid = hasWidgetInfo && hasConfig;
            TAK_LOGI("%s table status %d ", path.c_str(), valid);
            if (!valid) {
                reason = "DB table check failed";
            }
        }
    } else if (IsCorrupt(ret)) {
        TAK_LOGE("sqlite3_prepare_v2 ret %d", ret);
        reason = "DB table check failed";
        valid = false;
    }

    sqlite3_close(db);
    TAK_LOGI("IsValid end, valid = [%d]", valid);
    return valid;
}

void CTAKDBConnection::m_CheckSmack(const std::string& path) {
    char* label = nullptr;
    ssize_t ret = smack_getlabel(path.c_str(), &label, SMACK_LABEL_ACCESS);
    TAK_LOGI("GetSmackLable %s, ret %d", path.c_str(), static_cast<int>(ret));
    if (ret < 0 || label == nullptr) {
        TAK_LOGE("GetSmackLable failed");
        free(label);
        return;
    }
    if (strcmp(label, kHomeLabel) != 0) {
        TAK_LOGE("smack[%s] invalid", label);
        ITAKUtility::SetSmack(path, kHomeLabel);
    }
    free(label);
}

void CTAKDBConnection::CheckSmack() {
    m_CheckSmack(GetDBPath());
    m_CheckSmack(GetJournalPath());
}

void CTAKDBConnection::Backup() {
    TAK_LOGI("Backup");
    const std::string backupRoot = ServiceBackupRoot();
    const std::string db = GetDBPath();
    const std::string dbBackup = backupRoot + kBackupDBName;
    CTAKShell::Copy(db.c_str(), dbBackup.c_str());
    const std::string journal = GetJournalPath();
    const std::string journalBackup = backupRoot + kBackupJournalName;
    CTAKShell::Copy(journal.c_str(), journalBackup.c_str());
}

void CTAKDBConnection::Restore() {
    ITAKUtility::RestoreTAKDB();
    TAK_LOGI("DB restored");
}

void CTAKDBConnection::m_CheckNewKeys() {
    CTAKConfig config;
    for (const char* key : kNewKeys) {
        std::string value;
        if (config.GetConfig(key, value)) {
            continue;
        }
        const char* initial = strcmp(key, kKorbitSyncStateKey) == 0 ? kKorbitSyncStateInitial : "";
        config.InsertConfig(key, initial);
    }
}
