// CInnerServerStore: the data side of the stand-in service daemon. It owns the app database read-write
// (CTAKDBConnection::GetInstance(true): validity check, restore from the backup, label repair, new
// configuration keys) and applies the app-data methods of the inner server to it. The daemon's bus code
// asks Handles() and replies "(i)" with the result of Apply(): 1 success, 0 failure.
//
// What each method does (the wire format is documented in AppDBInfo.h):
//   set_app_info "(isi)"          kind 1: store the JSON record over the row with its id (0 when there
//                                 is none); kind 2: insert it as a new app (0 when the id exists);
//                                 kinds 3 and 4 (FAILED_INFO_TYPE_E): keep the text in the
//                                 configuration table under CAppDBInfo::FailedInfoConfigKey(kind).
//   remove_app "(s)"              remove the row of that app id.
//   update_config_table "(ss)"    update the key, adding the row when it is missing.
//   truncate_widgetinfo_table "(i)"  0: remove every app; 1: every app but the three fixed ones.
//   reset_for_corvane_reset ()    the home screen forgets its arrangement: takorder, is_hidden and
//                                 is_ticker become 0 in every row.
//   update_app_item "(siiis)"     set the item's column (APPINFO_UPDATE_KEY_e) of one app, or of every
//                                 app for an empty id; the value kind must match the column.
//   reset_config_table ()         CTAKConfig::Reset().
//   reset_app_user_data ()        forget what the user did with every app: use_count 0, launch_date
//                                 empty, is_lock 0.
// A parameter tuple of another type is refused with 0. Successful changes are backed up.
#pragma once

#include <glib.h>

#include <string>

class CInnerServerStore {
public:
    // Opens the database as its owner; false when no connection can be made.
    bool Open();
    bool Handles(const char* method) const;
    // 1 success, 0 failure (also for a method that Handles() does not know).
    int Apply(const char* method, GVariant* parameters);

private:
    bool m_SetAppInfo(GVariant* parameters);
    bool m_RemoveApp(GVariant* parameters);
    bool m_UpdateConfigTable(GVariant* parameters);
    bool m_TruncateWidgetInfoTable(GVariant* parameters);
    bool m_ResetForCorvaneReset(GVariant* parameters);
    bool m_UpdateAppItem(GVariant* parameters);
    bool m_ResetConfigTable(GVariant* parameters);
    bool m_ResetAppUserData(GVariant* parameters);

    static bool m_StoreRecord(int kind, const char* json);
    static bool m_SetConfig(const std::string& name, const std::string& value);
};
