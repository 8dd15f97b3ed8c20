#include "InnerServerStore.h"

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "AppDBInfo.h"
#include "TAKConfig.h"
#include "TAKDBConnection.h"
#include "TAKLog.h"
#include "WidgetInfoDB.h"

namespace {

const char* const kMethods[] = {
    "set_app_info",
    "remove_app",
    "update_config_table",
    "truncate_widgetinfo_table",
    "reset_for_corvane_reset",
    "update_app_item",
    "reset_config_table",
    "reset_app_user_data",
};

// Apps that survive a truncation that keeps the fixed apps.
const char* const kFixedApps[] = {"3201903017943", "3201904018125", "3202001019917"};

// Value kinds of "update_app_item".
constexpr int kItemValueInteger = 0;
constexpr int kItemValueString = 1;

// The parameters have the tuple type; a method without parameters accepts none or an empty tuple.
bool HasType(GVariant* parameters, const char* type, const char* method) {
    bool matches = (parameters == nullptr) ? strcmp(type, "()") == 0
                                           : g_variant_is_of_type(parameters, G_VARIANT_TYPE(type));
    if (!matches) {
        TAK_LOGE("%s: expected %s, got %s", method, type,
                 parameters != nullptr ? g_variant_get_type_string(parameters) : "no parameters");
    }
    return matches;
}

void Backup() {
    if (CTAKDBConnection* connection = CTAKDBConnection::GetInstance(true); connection != nullptr) {
        connection->Backup();
    }
}

// The row of exactly that id (not of a package of that name).
bool AppExists(const std::string& id) {
    std::vector<_TAKDB_BIND_T> binds;
    CTAKDBTable::SaveBind(binds, id);
    _APPINFO_T existing;
    CWidgetInfoDB table;
    return table.GetAppInfo(existing, " where id = ?", binds);
}

}  // namespace

bool CInnerServerStore::Open() {
    return CTAKDBConnection::GetInstance(true) != nullptr;
}

bool CInnerServerStore::Handles(const char* method) const {
    if (method == nullptr) {
        return false;
    }
    for (const char* known : kMethods) {
        if (strcmp(method, known) == 0) {
            return true;
        }
    }
    return false;
}

int CInnerServerStore::Apply(const char* method, GVariant* parameters) {
    if (!Handles(method)) {
        TAK_LOGE("unknown app-data method %s", method != nullptr ? method : "(null)");
        return 0;
    }
    bool done = false;
    if (strcmp(method, "set_app_info") == 0) {
        done = m_SetAppInfo(parameters);
    } else if (strcmp(method, "remove_app") == 0) {
        done = m_RemoveApp(parameters);
    } else if (strcmp(method, "update_config_table") == 0) {
        done = m_UpdateConfigTable(parameters);
    } else if (strcmp(method, "truncate_widgetinfo_table") == 0) {
        done = m_TruncateWidgetInfoTable(parameters);
    } else if (strcmp(method, "reset_for_corvane_reset") == 0) {
        done = m_ResetForCorvaneReset(parameters);
    } else if (strcmp(method, "update_app_item") == 0) {
        done = m_UpdateAppItem(parameters);
    } else if (strcmp(method, "reset_config_table") == 0) {
        done = m_ResetConfigTable(parameters);
    } else {
        done = m_ResetAppUserData(parameters);
    }
    TAK_LOGI("%s applied, result %d", method, done ? 1 : 0);
    return done ? 1 : 0;
}

bool CInnerServerStore::m_StoreRecord(int kind, const char* json) {
    _APPINFO_T info;
    if (!CAppDBInfo::ParseAppInfoJson(json, info)) {
        return false;
    }
    CWidgetInfoDB table;
    bool exists = AppExists(info.id);
    if (kind == APPINFO_SET_KIND_NEW) {
        if (exists) {
            TAK_LOGE("app %s is already stored", info.id.c_str());
            return false;
        }
        return table.InsertAppInfo(info);
    }
    if (!exists) {
        TAK_LOGE("app %s is not stored", info.id.c_str());
        return false;
    }
    return table.UpdateAppInfo(info);
}

bool CInnerServerStore::m_SetConfig(const std::string& name, const std::string& value) {
    CTAKConfig config;
    std::string current;
    if (config.GetConfig(name, current)) {
        return config.UpdateConfig(name, value);
    }
    // A new key: add the row empty, then set the value bound, so any text can be stored.
    return config.InsertConfig(name, "") && config.UpdateConfig(name, value);
}

bool CInnerServerStore::m_SetAppInfo(GVariant* parameters) {
    if (!HasType(parameters, "(isi)", "set_app_info")) {
        return false;
    }
    int kind = 0;
    const char* text = nullptr;
    int reserved = 0;
    g_variant_get(parameters, "(i&si)", &kind, &text, &reserved);
    if (kind == APPINFO_SET_KIND_UPDATE || kind == APPINFO_SET_KIND_NEW) {
        return m_StoreRecord(kind, text);
    }
    std::string key = CAppDBInfo::FailedInfoConfigKey(kind);
    if (key.empty()) {
        TAK_LOGE("set_app_info: unknown kind %d", kind);
        return false;
    }
    return m_SetConfig(key, text);
}

bool CInnerServerStore::m_RemoveApp(GVariant* parameters) {
    if (!HasType(parameters, "(s)", "remove_app")) {
        return false;
    }
    const char* id = nullptr;
    g_variant_get(parameters, "(&s)", &id);
    CWidgetInfoDB table;
    return table.RemoveAppInfoById(id);
}

bool CInnerServerStore::m_UpdateConfigTable(GVariant* parameters) {
    if (!HasType(parameters, "(ss)", "update_config_table")) {
        return false;
    }
    const char* name = nullptr;
    const char* value = nullptr;
    g_variant_get(parameters, "(&s&s)", &name, &value);
    return m_SetConfig(name, value);
}

bool CInnerServerStore::m_TruncateWidgetInfoTable(GVariant* parameters) {
    if (!HasType(parameters, "(i)", "truncate_widgetinfo_table")) {
        return false;
    }
    int keepFixedApps = 0;
    g_variant_get(parameters, "(i)", &keepFixedApps);
    std::map<std::string, std::string> keep;
    if (keepFixedApps != 0) {
        for (const char* id : kFixedApps) {
            keep[id] = "";
        }
    }
    CWidgetInfoDB table;
    if (!table.Truncate(keep, false)) {
        return false;
    }
    Backup();
    return true;
}

bool CInnerServerStore::m_ResetForCorvaneReset(GVariant* parameters) {
    if (!HasType(parameters, "()", "reset_for_corvane_reset")) {
        return false;
    }
    CWidgetInfoDB table;
    return table.UpdateAppsKeyValue("takorder = ?, is_hidden = 0, is_ticker = 0", 0, "", "");
}

bool CInnerServerStore::m_UpdateAppItem(GVariant* parameters) {
    if (!HasType(parameters, "(siiis)", "update_app_item")) {
        return false;
    }
    const char* id = nullptr;
    int key = 0;
    int kind = 0;
    int number = 0;
    const char* text = nullptr;
    g_variant_get(parameters, "(&siii&s)", &id, &key, &kind, &number, &text);
    _APPINFO_UPDATE_ITEM_T item{};
    if (!CAppDBInfo::GetUpdateItem(key, item)) {
        TAK_LOGE("update_app_item: unknown key %d", key);
        return false;
    }
    if ((kind == kItemValueString) != item.text || (kind != kItemValueString && kind != kItemValueInteger)) {
        TAK_LOGE("update_app_item: value kind %d does not suit %s", kind, item.column);
        return false;
    }
    CWidgetInfoDB table;
    const std::string assignment = std::string(item.column) + " = ?";
    if (item.text) {
        return table.UpdateAppsKeyValue(assignment, std::string(text), id);
    }
    return table.UpdateAppsKeyValue(assignment, number, id, "");
}

bool CInnerServerStore::m_ResetConfigTable(GVariant* parameters) {
    if (!HasType(parameters, "()", "reset_config_table")) {
        return false;
    }
    CTAKConfig config;
    return config.Reset();
}

bool CInnerServerStore::m_ResetAppUserData(GVariant* parameters) {
    if (!HasType(parameters, "()", "reset_app_user_data")) {
        return false;
    }
    CWidgetInfoDB table;
    return table.UpdateAppsKeyValue("use_count = ?, launch_date = '', is_lock = 0", 0, "", "");
}
