// CTAKConfig: the configuration table "TAKConfigTable" of the app database, one text row per key
// ("name", "value"): list tags and caches of the home screen, sync states, lists of uninstalled or
// discarded apps and numbered reserved slots.
//
// Every public operation holds CTAKDBTable::Mutex for its whole run; successful writes are followed by
// a backup of the database (CTAKDBConnection::Backup), failed ones never are.
#pragma once

#include <string>

#include "TAKDBTable.h"

#define TAK_CONFIG_TABLE_NAME "TAKConfigTable"
#define TAK_CONFIG_KEY_SYNC_STATE "SYNC_STATE"

class CTAKConfig : public CTAKDBTable {
public:
    CTAKConfig();

    // Adds a row; the values are pasted into the statement, not bound.
    bool InsertConfig(const std::string& name, const std::string& value);
    // True with `value` set when the key has a row.
    bool GetConfig(const std::string& name, std::string& value);
    // Updating a key that has no row changes nothing and still counts as done.
    bool UpdateConfig(const std::string& name, const std::string& value);

    bool GetAppSyncConfig(std::string& value);
    bool UpdateAppSyncConfig(const std::string& value);

    // Clears the keys a home-screen reset must forget: "SYNC_STATE" becomes "0", the other 25 keys of
    // the reset list become empty. Every key is attempted even when one fails, so that one bad row
    // does not leave the rest of the home screen's state behind. The result is false when any key
    // failed. The backup is made once, at the end, and only when every key succeeded: a failed write
    // hints at a damaged file, which must not overwrite the last good backup.
    bool Reset();

    // The keys Reset() clears, in the order it clears them.
    static constexpr unsigned RESET_KEY_COUNT = 26;
    static const char* const RESET_KEYS[RESET_KEY_COUNT];

private:
    bool m_UpdateConfig(const std::string& name, const std::string& value);
};
