// CAppDBInfo: the one entry point through which a client process of the service reads and changes
// app and configuration data. Reads go straight to the database over the read-only connection; every
// change is a method call to the service daemon's inner server, which owns the file and writes it.
// Each change logs "MethodCall success, result %d (0-fail, 1-success)" after an "(i)" reply and is
// true only when the daemon answered 1.
//
// Wire format of the changes (bus name, path and interface of the inner server):
//
//   "set_app_info"        "(isi)"   kind, text, 0
//        kind 1 (SetAppInfo with flag false): text is the record as JSON; the daemon stores it over
//               the existing row with that id and fails when there is none.
//        kind 2 (SetAppInfo with flag true): text is the record as JSON of a newly installed app; the
//               daemon inserts it and fails when the id already has a row.
//        kind FAILED_INFO_TYPE_E (SetFailedMemoryInfo): text is a description of the operation that
//               failed for lack of memory; the daemon keeps the last one per type in the
//               configuration table under the key FailedInfoConfigKey(type).
//        The JSON is one object whose members are named after the columns: text columns as strings,
//        integer columns as numbers, flags as booleans. Members that are absent keep the value of a
//        default-constructed record.
//   "remove_app"          "(s)"     app id: the daemon removes that app's row.
//   "update_config_table" "(ss)"    key, value: the daemon updates the row, adding it when missing.
//   "truncate_widgetinfo_table" "(i)"  0: every app row goes; 1: the three fixed apps
//                                      ("3201903017943", "3201904018125", "3202001019917") stay.
//   "reset_for_corvane_reset"  ()   the daemon forgets every app's home-screen arrangement: takorder,
//                                   is_hidden and is_ticker become 0 for every row.
//   "update_app_item"     "(siiis)" app id (empty: every app), item key (APPINFO_UPDATE_KEY_e),
//                                   value kind (0 integer, 1 string), integer value (0 for a string),
//                                   string value (empty for an integer). The daemon refuses a key it
//                                   does not know and a value kind that does not match the key's column.
//
// Reads:
//   GetAllAppString()            every app id of GetAllAppList(), each followed by ",".
//   GetAppPkgTypeInfo(types)     app id -> package type ("pkg_type") of every app.
//   GetUsbAppsInfo(apps)         apps installed on USB storage (is_usb_app set), by id.
//   GetUnAvailableUsbAppsInfo()  those of them that cannot run now (is_app_available clear: the
//                                storage is not attached).
#pragma once

#include <glib.h>

#include <list>
#include <map>
#include <string>
#include <vector>

#include "AppInfo.h"
#include "TAKDBTable.h"

// Items of an app record that "update_app_item" changes.
enum APPINFO_UPDATE_KEY_e {
    APPINFO_UPDATE_KEY_NEED_RESET = 0,     // is_need_reset (integer): the app is to be reset
    APPINFO_UPDATE_KEY_USE_COUNT = 1,      // use_count (integer): how often the user started the app
    APPINFO_UPDATE_KEY_HIDDEN = 2,         // is_hidden (integer): hidden from the home screen
    APPINFO_UPDATE_KEY_LOCK = 3,           // is_lock (integer): locked behind the parental PIN
    APPINFO_UPDATE_KEY_ORDER = 4,          // takorder (integer): position on the home screen
    APPINFO_UPDATE_KEY_LAUNCH_DATE = 5,    // launch_date (string): when the user last started the app
    APPINFO_UPDATE_KEY_AUTO_UPDATE = 6,    // is_auto_update (integer)
    APPINFO_UPDATE_KEY_INSTALL_STATE = 7,  // install_state (integer)
    APPINFO_UPDATE_KEY_AVAILABLE = 8,      // is_app_available (integer)
    APPINFO_UPDATE_KEY_VERSION = 9,        // version (string)
    APPINFO_UPDATE_KEY_MAX
};

// Operations that failed for lack of memory, reported through "set_app_info". The values follow the
// two record kinds so that the daemon tells them apart by the first field.
enum FAILED_INFO_TYPE_E {
    FAILED_INFO_TYPE_INSTALL = 3,
    FAILED_INFO_TYPE_UPDATE = 4,
};

// First field of "set_app_info" for a whole record.
enum APPINFO_SET_KIND_E {
    APPINFO_SET_KIND_UPDATE = 1,
    APPINFO_SET_KIND_NEW = 2,
};

// The column an update key changes and whether it holds text.
struct _APPINFO_UPDATE_ITEM_T {
    const char* column;
    bool text;
};

class CAppDBInfo {
public:
    // Changes, sent to the inner server.
    static bool SetAppInfo(_APPINFO_T& info, bool flag);
    static bool SetFailedMemoryInfo(FAILED_INFO_TYPE_E type, const std::string& text);
    static bool RemoveApp(const std::string& id);
    static bool UpdateConfigTable(const std::string& name, const std::string& value);
    static bool UpdateAppSyncConfig(const std::string& value);
    static bool TruncateWidgetInfoTable(bool keepFixedApps);
    static bool ResetForCorvaneReset();
    static bool UpdateAppsInfoByKey(APPINFO_UPDATE_KEY_e key, int value, const std::string& id);
    static bool UpdateAppsInfoByKey(APPINFO_UPDATE_KEY_e key, const std::string& value,
                                    const std::string& id);

    // Reads, from the database.
    static bool GetAppInfoById(const std::string& id, _APPINFO_T& info, bool onlyUsable);
    static bool GetAppInfoByRunTitle(const std::string& runTitle, _APPINFO_T& info, bool onlyUsable);
    static std::list<_APPINFO_T> GetAllAppList();
    static std::string GetAllAppString();
    static bool GetConfigTable(const std::string& name, std::string& value);
    static bool GetAppSyncConfig(std::string& value);
    static bool GetAppPkgTypeInfo(std::map<std::string, std::string>& types);
    static bool GetUsbAppsInfo(std::list<_APPINFO_T>& apps);
    static bool GetUnAvailableUsbAppsInfo(std::list<_APPINFO_T>& apps);

    // The record as the JSON text of "set_app_info", and back. Parsing fails on text that is not a
    // JSON object, lacks a string "id", or holds a member of the wrong type.
    static std::string m_MakeAppInfoJson(const _APPINFO_T& info);
    static bool ParseAppInfoJson(const std::string& text, _APPINFO_T& info);

    // The column of an update key; false for a key outside APPINFO_UPDATE_KEY_e.
    static bool GetUpdateItem(int key, _APPINFO_UPDATE_ITEM_T& item);

    // Where the daemon keeps the last text of a failed-memory report.
    static std::string FailedInfoConfigKey(int type);

private:
    static bool m_CallInnerServer(const char* method, GVariant* parameters);
    static bool m_GetAppInfo(std::string where, std::vector<_TAKDB_BIND_T> binds, _APPINFO_T& info,
                             bool onlyUsable);
};
