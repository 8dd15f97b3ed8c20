#include "TAKConfig.h"

#include "TAKDBConnection.h"
#include "TAKLog.h"

const char* const CTAKConfig::RESET_KEYS[CTAKConfig::RESET_KEY_COUNT] = {
    TAK_CONFIG_KEY_SYNC_STATE,
    "RESERVED_2",
    "RESERVED_8",
    "RESERVED_14",
    "RESERVED_24",
    "RESERVED_18",
    "RESERVED_31",
    "RESERVED_15",
    "RESERVED_25",
    "RESERVED_10",
    "RESERVED_20",
    "UNINSTALLED_APPS_INFO",
    "RESERVED_4",
    "RESERVED_34",
    "RESERVED_35",
    "API_APPS_DURING_INIT",
    "PRIORITY_LIST_ETAG",
    "PRIORITY_LIST_INFO",
    "HOME_PRIORITY_LIST_ETAG",
    "HOME_PRIORITY_LIST_INFO",
    "RESERVED_26",
    "RESERVED_27",
    "RESERVED_36",
    "RESERVED_37",
    "TOKEN_DISCARDED_APPS",
    "GOOGLECAST_STATUS",
};

namespace {

// The value "SYNC_STATE" takes in a reset; every other reset key becomes empty.
const char kResetSyncState[] = "0";

void BackupDatabase() {
    if (CTAKDBConnection* connection = CTAKDBConnection::GetInstance(false); connection != nullptr) {
        connection->Backup();
    }
}

}  // namespace

CTAKConfig::CTAKConfig() : CTAKDBTable(TAK_CONFIG_TABLE_NAME) {}

bool CTAKConfig::InsertConfig(const std::string& name, const std::string& value) {
    if (!m_IsPasteable(name) || !m_IsPasteable(value)) {
        return false;
    }
    CStatementLock lock;
    std::string sql = "insert into " + m_strTableName + " values('" + name + "','" + value + "');";
    if (!Prepare(sql) || Step() != SQLITE_DONE) {
        TAK_LOGE("insert config [%s] failed", name.c_str());
        return false;
    }
    BackupDatabase();
    return true;
}

bool CTAKConfig::GetConfig(const std::string& name, std::string& value) {
    CStatementLock lock;
    if (!Prepare("select value from " + m_strTableName + " where name = ?") || !Bind(1, name)) {
        return false;
    }
    if (Step() != SQLITE_ROW) {
        return false;
    }
    GetValueByPosition(0, value);
    return true;
}

bool CTAKConfig::m_UpdateConfig(const std::string& name, const std::string& value) {
    if (!Prepare("update " + m_strTableName + " set " + "value = ? " + "where name = ?")) {
        return false;
    }
    if (!Bind(1, value) || !Bind(2, name)) {
        return false;
    }
    return Step() == SQLITE_DONE;
}

bool CTAKConfig::UpdateConfig(const std::string& name, const std::string& value) {
    CStatementLock lock;
    if (!m_UpdateConfig(name, value)) {
        TAK_LOGE("update config [%s] failed", name.c_str());
        return false;
    }
    BackupDatabase();
    return true;
}

bool CTAKConfig::GetAppSyncConfig(std::string& value) {
    return GetConfig(TAK_CONFIG_KEY_SYNC_STATE, value);
}

bool CTAKConfig::UpdateAppSyncConfig(const std::string& value) {
    return UpdateConfig(TAK_CONFIG_KEY_SYNC_STATE, value);
}

bool CTAKConfig::Reset() {
    CStatementLock lock;
    bool allDone = true;
    for (unsigned i = 0; i < RESET_KEY_COUNT; ++i) {
        const std::string value = (i == 0) ? kResetSyncState : "";
        if (!m_UpdateConfig(RESET_KEYS[i], value)) {
            TAK_LOGE("reset config [%s] failed", RESET_KEYS[i]);
            allDone = false;
        }
    }
    if (!allDone) {
        return false;
    }
    BackupDatabase();
    return true;
}
