#include "AppDBInfo.h"

#include <glib.h>
#include <json/json.h>

#include <cstring>
#include <memory>
#include <vector>

#include "ProcessDbus.h"
#include "TAKConfig.h"
#include "TAKLog.h"
#include "WidgetInfoDB.h"

namespace {

// Indexed by APPINFO_UPDATE_KEY_e.
const _APPINFO_UPDATE_ITEM_T kUpdateItems[APPINFO_UPDATE_KEY_MAX] = {
    {"is_need_reset", false},    {"use_count", false},  {"is_hidden", false},      {"is_lock", false},
    {"takorder", false},         {"launch_date", true}, {"is_auto_update", false}, {"install_state", false},
    {"is_app_available", false}, {"version", true},
};

// Value kinds of "update_app_item".
constexpr int kItemValueInteger = 0;
constexpr int kItemValueString = 1;

// The usable-app condition of the look-ups: installed, available and not waiting for a reset.
const char kUsableCondition[] = "and install_state = ? and is_app_available = ? and is_need_reset = ? ";
constexpr int kInstalledState = 3;

std::string ForBus(const std::string& text) {
    return CProcessDbus::ValidUtf8(text);
}

// The daemon acts on the row whose id is exactly the one named, and a bus string must be UTF-8: an id that
// is not cannot be named, and a converted one would name another app's row (or none). False, logged.
bool CanNameOnBus(const std::string& id) {
    if (g_utf8_validate(id.data(), static_cast<gssize>(id.size()), nullptr)) {
        return true;
    }
    TAK_LOGE("app id [%s] is not UTF-8, so the daemon cannot be asked about its row", ForBus(id).c_str());
    return false;
}

Json::Value FieldToJson(const _APPINFO_T& info, const _APPINFO_FIELD_T& field) {
    switch (field.kind) {
        case APPINFO_FIELD_TEXT:
            return Json::Value(info.*field.text);
        case APPINFO_FIELD_INT:
            return Json::Value(info.*field.number);
        case APPINFO_FIELD_FLAG:
            return Json::Value(info.*field.flag);
    }
    return Json::Value();
}

bool FieldFromJson(const Json::Value& value, const _APPINFO_FIELD_T& field, _APPINFO_T& info) {
    switch (field.kind) {
        case APPINFO_FIELD_TEXT:
            if (!value.isString()) {
                return false;
            }
            info.*field.text = value.asString();
            return true;
        case APPINFO_FIELD_INT:
            if (!value.isInt()) {
                return false;
            }
            info.*field.number = value.asInt();
            return true;
        case APPINFO_FIELD_FLAG:
            if (value.isBool()) {
                info.*field.flag = value.asBool();
                return true;
            }
            if (value.isInt()) {
                info.*field.flag = value.asInt() != 0;
                return true;
            }
            return false;
    }
    return false;
}

}  // namespace

bool CAppDBInfo::m_CallInnerServer(const char* method, GVariant* parameters) {
    g_autoptr(GVariant) reply = nullptr;
    if (!CProcessDbus::MethodCall(TAK_INNER_SERVER_NAME, TAK_INNER_SERVER_PATH, TAK_INNER_SERVER_INTERFACE,
                                  method, parameters, &reply)) {
        return false;
    }
    if (reply == nullptr || !g_variant_is_of_type(reply, G_VARIANT_TYPE("(i)"))) {
        TAK_LOGE("%s: unexpected reply %s", method,
                 reply != nullptr ? g_variant_get_type_string(reply) : "(none)");
        return false;
    }
    int result = 0;
    g_variant_get(reply, "(i)", &result);
    TAK_LOGD("MethodCall success, result %d (0-fail, 1-success)", result);
    return result == 1;
}

std::string CAppDBInfo::m_MakeAppInfoJson(const _APPINFO_T& info) {
    Json::Value record(Json::objectValue);
    for (unsigned i = 0; i < TAK_APPINFO_COLUMN_COUNT; ++i) {
        record[TAK_APPINFO_COLUMN_NAMES[i]] = FieldToJson(info, TAK_APPINFO_FIELDS[i]);
    }
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, record);
}

bool CAppDBInfo::ParseAppInfoJson(const std::string& text, _APPINFO_T& info) {
    Json::CharReaderBuilder builder;
    Json::Value record;
    std::string errors;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    if (!reader->parse(text.data(), text.data() + text.size(), &record, &errors) || !record.isObject()) {
        TAK_LOGE("app info is not a JSON object: %s", errors.c_str());
        return false;
    }
    if (!static_cast<const Json::Value&>(record)["id"].isString()) {
        TAK_LOGE("app info has no id");
        return false;
    }
    _APPINFO_T parsed;
    for (unsigned i = 0; i < TAK_APPINFO_COLUMN_COUNT; ++i) {
        const Json::Value* value = record.find(
            TAK_APPINFO_COLUMN_NAMES[i], TAK_APPINFO_COLUMN_NAMES[i] + strlen(TAK_APPINFO_COLUMN_NAMES[i]));
        if (value != nullptr && !FieldFromJson(*value, TAK_APPINFO_FIELDS[i], parsed)) {
            TAK_LOGE("app info member %s has the wrong type", TAK_APPINFO_COLUMN_NAMES[i]);
            return false;
        }
    }
    info = parsed;
    return true;
}

bool CAppDBInfo::GetUpdateItem(int key, _APPINFO_UPDATE_ITEM_T& item) {
    if (key < 0 || key >= APPINFO_UPDATE_KEY_MAX) {
        return false;
    }
    item = kUpdateItems[key];
    return true;
}

std::string CAppDBInfo::FailedInfoConfigKey(int type) {
    switch (type) {
        case FAILED_INFO_TYPE_INSTALL:
            return "FAILED_INSTALL_MEMORY_INFO";
        case FAILED_INFO_TYPE_UPDATE:
            return "FAILED_UPDATE_MEMORY_INFO";
        default:
            return "";
    }
}

bool CAppDBInfo::SetAppInfo(_APPINFO_T& info, bool flag) {
    int kind = flag ? APPINFO_SET_KIND_NEW : APPINFO_SET_KIND_UPDATE;
    return m_CallInnerServer("set_app_info",
                             g_variant_new("(isi)", kind, ForBus(m_MakeAppInfoJson(info)).c_str(), 0));
}

bool CAppDBInfo::SetFailedMemoryInfo(FAILED_INFO_TYPE_E type, const std::string& text) {
    return m_CallInnerServer("set_app_info",
                             g_variant_new("(isi)", static_cast<int>(type), ForBus(text).c_str(), 0));
}

bool CAppDBInfo::RemoveApp(const std::string& id) {
    return CanNameOnBus(id) && m_CallInnerServer("remove_app", g_variant_new("(s)", ForBus(id).c_str()));
}

bool CAppDBInfo::UpdateConfigTable(const std::string& name, const std::string& value) {
    return m_CallInnerServer("update_config_table",
                             g_variant_new("(ss)", ForBus(name).c_str(), ForBus(value).c_str()));
}

bool CAppDBInfo::UpdateAppSyncConfig(const std::string& value) {
    return UpdateConfigTable(TAK_CONFIG_KEY_SYNC_STATE, value);
}

bool CAppDBInfo::TruncateWidgetInfoTable(bool keepFixedApps) {
    return m_CallInnerServer("truncate_widgetinfo_table", g_variant_new("(i)", keepFixedApps ? 1 : 0));
}

bool CAppDBInfo::ResetForCorvaneReset() {
    return m_CallInnerServer("reset_for_corvane_reset", nullptr);
}

bool CAppDBInfo::UpdateAppsInfoByKey(APPINFO_UPDATE_KEY_e key, int value, const std::string& id) {
    return CanNameOnBus(id) &&
           m_CallInnerServer("update_app_item",
                             g_variant_new("(siiis)", ForBus(id).c_str(), static_cast<int>(key),
                                           kItemValueInteger, value, ""));
}

bool CAppDBInfo::UpdateAppsInfoByKey(APPINFO_UPDATE_KEY_e key, const std::string& value,
                                     const std::string& id) {
    return CanNameOnBus(id) &&
           m_CallInnerServer("update_app_item",
                             g_variant_new("(siiis)", ForBus(id).c_str(), static_cast<int>(key),
                                           kItemValueString, 0, ForBus(value).c_str()));
}

bool CAppDBInfo::m_GetAppInfo(std::string where, std::vector<_TAKDB_BIND_T> binds, _APPINFO_T& info,
                              bool onlyUsable) {
    if (onlyUsable) {
        where += kUsableCondition;
        CTAKDBTable::SaveBind(binds, kInstalledState);
        CTAKDBTable::SaveBind(binds, 1);
        CTAKDBTable::SaveBind(binds, 0);
    }
    CWidgetInfoDB table;
    return table.GetAppInfo(info, where, binds);
}

bool CAppDBInfo::GetAppInfoById(const std::string& id, _APPINFO_T& info, bool onlyUsable) {
    if (id.empty()) {
        return false;
    }
    std::vector<_TAKDB_BIND_T> binds;
    CTAKDBTable::SaveBind(binds, id);
    CTAKDBTable::SaveBind(binds, id);
    return m_GetAppInfo(" where (id = ? or pkgname = ?) ", std::move(binds), info, onlyUsable);
}

bool CAppDBInfo::GetAppInfoByRunTitle(const std::string& runTitle, _APPINFO_T& info, bool onlyUsable) {
    std::vector<_TAKDB_BIND_T> binds;
    CTAKDBTable::SaveBind(binds, runTitle);
    return m_GetAppInfo(" where run_title = ? ", std::move(binds), info, onlyUsable);
}

std::list<_APPINFO_T> CAppDBInfo::GetAllAppList() {
    std::list<_APPINFO_T> apps;
    CWidgetInfoDB table;
    table.GetAllWidgetsInfoOrderById(apps);
    return apps;
}

std::string CAppDBInfo::GetAllAppString() {
    std::string text;
    for (const auto& app : GetAllAppList()) {
        text += app.id + ",";
    }
    return text;
}

bool CAppDBInfo::GetConfigTable(const std::string& name, std::string& value) {
    CTAKConfig config;
    return config.GetConfig(name, value);
}

bool CAppDBInfo::GetAppSyncConfig(std::string& value) {
    CTAKConfig config;
    return config.GetAppSyncConfig(value);
}

bool CAppDBInfo::GetAppPkgTypeInfo(std::map<std::string, std::string>& types) {
    std::list<_APPINFO_T> apps;
    CWidgetInfoDB table;
    if (!table.GetAllWidgetsInfoOrderById(apps)) {
        return false;
    }
    types.clear();
    for (const auto& app : apps) {
        types[app.id] = app.pkg_type;
    }
    return true;
}

bool CAppDBInfo::GetUsbAppsInfo(std::list<_APPINFO_T>& apps) {
    CWidgetInfoDB table;
    return table.GetAppListByParam(apps, "is_usb_app != 0 order by upper(id) asc");
}

bool CAppDBInfo::GetUnAvailableUsbAppsInfo(std::list<_APPINFO_T>& apps) {
    CWidgetInfoDB table;
    return table.GetAppListByParam(apps, "is_usb_app != 0 and is_app_available = 0 order by upper(id) asc");
}
