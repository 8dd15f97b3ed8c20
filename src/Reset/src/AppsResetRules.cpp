#include "AppsResetRules.h"

#include <platform_path.h>

#include <utility>

#include "TAKLog.h"

namespace {

const int kAppTypeDefault = 4;

// Kept in a service reset (defect DF200715-00947): these apps must survive it.
const char* const kServiceResetKeptApps[] = {"3201903017943", "3201904018125", "3202001019917"};

RESET_SETTING_T Number(const char* key, int number, bool sync) {
    RESET_SETTING_T setting;
    setting.key = key;
    setting.number = number;
    setting.sync = sync;
    return setting;
}

RESET_SETTING_T Text(const char* key, const char* value, bool sync) {
    RESET_SETTING_T setting;
    setting.key = key;
    setting.text = true;
    setting.value = value;
    setting.sync = sync;
    return setting;
}

// "db/tak/app_sync_status" (a robot-product board keeps its own) and "memory/tak/boot_status".
void AddBootState(std::vector<RESET_SETTING_T>& settings, bool korbitBoard) {
    if (!korbitBoard) {
        settings.push_back(Number("db/tak/app_sync_status", 0, true));
    }
    settings.push_back(Number("memory/tak/boot_status", 0, false));
}

std::vector<RESET_SETTING_T> AppsResetSettings(RESET_KIND_E kind, RESET_STAGE_E stage, bool korbitBoard,
                                               int factoryReset) {
    std::vector<RESET_SETTING_T> settings;
    switch (stage) {
        case RESET_STAGE_START:
            AddBootState(settings, korbitBoard);
            break;
        case RESET_STAGE_RECORDS_RESET:
            settings.push_back(Number("memory/tak/app_change", 1, true));
            break;
        case RESET_STAGE_CLEAN_UP:
            break;
        case RESET_STAGE_RESULT:
            // Only when there is one.
            if (CAppsResetRules::EndsFactoryReset(kind) && factoryReset != 0) {
                settings.push_back(Number(CAppsResetRules::FACTORY_RESET_KEY, 0, true));
            }
            break;
    }
    return settings;
}

std::vector<RESET_SETTING_T> CorvaneResetSettings(RESET_STAGE_E stage, bool aotBoard, bool korbitBoard) {
    std::vector<RESET_SETTING_T> settings;
    switch (stage) {
        case RESET_STAGE_START:
            settings.push_back(Number("memory/tak/app_group_list_ready", 0, false));
            settings.push_back(Number("memory/tak/andrioid_group_list_ready", 0, false));
            settings.push_back(Text("db/appinfoviewer/auto_update_off_applist", "", true));
            settings.push_back(Text("db/tak/btgid", "", true));
            settings.push_back(Text("db/tak/app_canary_id_list", "", false));
            settings.push_back(Number("db/tak/app_canary_internal_test", 0, true));
            break;
        case RESET_STAGE_RECORDS_RESET:
            if (aotBoard) {
                settings.push_back(Number("memory/tak/app_change", 1, true));
                AddBootState(settings, korbitBoard);
            }
            break;
        case RESET_STAGE_CLEAN_UP:
            // A board without Android apps resets the app state here instead of in the entry; every
            // board announces the changed apps once more.
            if (!aotBoard) {
                AddBootState(settings, korbitBoard);
            }
            settings.push_back(Number("memory/tak/app_change", 1, true));
            break;
        case RESET_STAGE_RESULT:
            break;
    }
    return settings;
}

// <path variable>/vardell/<sub>; empty when the platform does not know the variable.
std::string ServicePath(int variable, const char* sub) {
    const char* root = platform_path_get(variable);
    if (root == nullptr) {
        TAK_LOGE("path variable %d is not configured", variable);
        return std::string();
    }
    return std::string(root) + "/vardell/" + sub;
}

// The owners' home root followed directly by `sub`.
std::string HomePath(const char* sub) {
    const char* root = platform_path_get(PLATFORM_PATH_HOME_ROOT);
    if (root == nullptr) {
        TAK_LOGE("path variable %d is not configured", PLATFORM_PATH_HOME_ROOT);
        return std::string();
    }
    return std::string(root) + sub;
}

RESET_CLEANUP_STEP Step(RESET_CLEANUP_ACTION_E action, std::string path, std::string logBefore = "",
                        std::string logAfter = "") {
    return RESET_CLEANUP_STEP{action, std::move(path), std::move(logBefore), std::move(logAfter)};
}

void AddServiceDir(std::vector<RESET_CLEANUP_STEP>& steps, int variable, const char* sub,
                   const char* logAfter = "") {
    steps.push_back(Step(RESET_CLEANUP_EMPTY_DIR, ServicePath(variable, sub), "", logAfter));
}

void AddAppUpdateDirs(std::vector<RESET_CLEANUP_STEP>& steps) {
    AddServiceDir(steps, PLATFORM_PATH_SYSTEM_DATA, "appupdate/");
    AddServiceDir(steps, PLATFORM_PATH_APPS_RW, "appupdate/package/");
}

// The web-app cache and the xwalk service files go with their directories.
void AddCaches(std::vector<RESET_CLEANUP_STEP>& steps) {
    std::string cache = HomePath("/owner/.cache/Apps/WebAppsCache/");
    steps.push_back(Step(RESET_CLEANUP_REMOVE_DIR, cache, "remove Cache " + cache));
    std::string xwalk = HomePath("/owner/apps_rw/xwalk-service/");
    steps.push_back(Step(RESET_CLEANUP_REMOVE_DIR, xwalk, "remove xwalk service files " + xwalk));
}

void AddBackupFile(std::vector<RESET_CLEANUP_STEP>& steps) {
    steps.push_back(
        Step(RESET_CLEANUP_REMOVE_FILE, ServicePath(PLATFORM_PATH_APPS_RW, "bnr_backup/bnr_backup.json")));
}

// The owner's nine content directories; one the platform does not know is left out.
void AddContentDirs(std::vector<RESET_CLEANUP_STEP>& steps) {
    for (int variable = PLATFORM_PATH_CONTENT_FIRST; variable <= PLATFORM_PATH_CONTENT_LAST; ++variable) {
        const char* path = platform_path_get(variable);
        if (path == nullptr) {
            TAK_LOGE("path variable %d is not configured", variable);
            continue;
        }
        steps.push_back(Step(RESET_CLEANUP_EMPTY_DIR, path, std::string("remove files ") + path));
    }
}

std::vector<RESET_CLEANUP_STEP> AppsResetCleanUp() {
    std::vector<RESET_CLEANUP_STEP> steps;
    AddServiceDir(steps, PLATFORM_PATH_SYSTEM_DATA, "common/", "reset common path end");
    AddServiceDir(steps, PLATFORM_PATH_APPS_RW, "preinstallrecovery/", "reset preinstall recovery file end");
    steps.push_back(Step(RESET_CLEANUP_RESET_USER_DATA, ""));
    AddServiceDir(steps, PLATFORM_PATH_APPS_RW, "clone/");
    AddServiceDir(steps, PLATFORM_PATH_APPS_RW, "RM/");
    AddAppUpdateDirs(steps);
    AddCaches(steps);
    AddBackupFile(steps);
    AddContentDirs(steps);
    return steps;
}

// Unlike the apps reset, the Corvane reset also empties "system_app/", logs after "clone/" and "RM/",
// removes the content before the backup file and deletes the install notifications.
std::vector<RESET_CLEANUP_STEP> CorvaneResetCleanUp() {
    std::vector<RESET_CLEANUP_STEP> steps;
    AddServiceDir(steps, PLATFORM_PATH_SYSTEM_DATA, "common/", "reset common path end");
    AddServiceDir(steps, PLATFORM_PATH_APPS_RW, "preinstallrecovery/", "reset preinstall recovery file end");
    AddServiceDir(steps, PLATFORM_PATH_APPS_RW, "system_app/", "reset all special app end");
    steps.push_back(Step(RESET_CLEANUP_RESET_USER_DATA, ""));
    AddServiceDir(steps, PLATFORM_PATH_APPS_RW, "clone/", "reset clone file end");
    AddServiceDir(steps, PLATFORM_PATH_APPS_RW, "RM/", "reset RM file end");
    AddAppUpdateDirs(steps);
    AddCaches(steps);
    AddContentDirs(steps);
    AddBackupFile(steps);
    steps.push_back(Step(RESET_CLEANUP_DELETE_NOTIFICATIONS, "", "", "delete all install noti end"));
    return steps;
}

}  // namespace

const char* const CAppsResetRules::FACTORY_RESET_KEY = "db/tak/factory_reset";

CAppsResetRules::CAppsResetRules(bool aotBoard, bool serviceReset, const AppMap& defaultApps,
                                 const AppMap& generalApps)
    : m_bAOTBoard(aotBoard),
      m_bServiceReset(serviceReset),
      m_rDefaultApps(defaultApps),
      m_rGeneralApps(generalApps) {}

RESET_KEEP_RULE_E CAppsResetRules::KeepRule(const _APPINFO_T& app) const {
    const char* id = app.id.c_str();
    int type = static_cast<int>(app.app_type);
    if (type == kAppTypeDefault || m_rDefaultApps.count(app.id) != 0) {
        TAK_LOGI("%s is default/native[%d], continue to uninstall next apps", id, type);
        return RESET_KEEP_DEFAULT_NATIVE;
    }
    if (app.reserved_tinyint_1) {
        TAK_LOGI("%s is configured as disable reset, continue to uninstall next apps", id);
        return RESET_KEEP_DISABLE_RESET;
    }
    if (m_bAOTBoard && m_rGeneralApps.count(app.id) != 0) {
        TAK_LOGI("%s is general app[%d], continue to uninstall next apps", id, type);
        return RESET_KEEP_GENERAL_APP;
    }
    if (m_bServiceReset && IsFixedId(app.id)) {
        TAK_LOGI("hard-coded for DF200715-00947, do not uninstall %s", id);
        return RESET_KEEP_FIXED_ID;
    }
    return RESET_KEEP_NONE;
}

const char* CAppsResetRules::KeepRuleName(RESET_KEEP_RULE_E rule) {
    switch (rule) {
        case RESET_KEEP_DEFAULT_NATIVE:
            return "default/native";
        case RESET_KEEP_DISABLE_RESET:
            return "disable reset";
        case RESET_KEEP_GENERAL_APP:
            return "general app";
        case RESET_KEEP_FIXED_ID:
            return "fixed id";
        case RESET_KEEP_NONE:
            break;
    }
    return "";
}

std::list<_APPINFO_T> CAppsResetRules::UninstallOrder(std::list<_APPINFO_T>&& fetched) {
    std::list<_APPINFO_T> ordered;
    while (!fetched.empty()) {
        auto app = fetched.begin();
        ordered.splice(app->reserved_tinyint_2 ? ordered.begin() : ordered.end(), fetched, app);
    }
    return ordered;
}

bool CAppsResetRules::UninstallsApps(RESET_KIND_E kind, bool aotBoard) {
    return kind != RESET_KIND_CORVANE || aotBoard;
}

bool CAppsResetRules::ReadsGeneralApps(RESET_KIND_E kind, int factoryReset) {
    // General preinstalled apps are only protected right after a factory reset.
    return kind == RESET_KIND_CORVANE || factoryReset == 1;
}

bool CAppsResetRules::EndsFactoryReset(RESET_KIND_E kind) {
    return kind == RESET_KIND_APP;
}

std::vector<RESET_SETTING_T> CAppsResetRules::Settings(RESET_KIND_E kind, RESET_STAGE_E stage, bool aotBoard,
                                                       bool korbitBoard, int factoryReset) {
    if (kind == RESET_KIND_CORVANE) {
        return CorvaneResetSettings(stage, aotBoard, korbitBoard);
    }
    return AppsResetSettings(kind, stage, korbitBoard, factoryReset);
}

std::vector<RESET_CLEANUP_STEP> CAppsResetRules::CleanUpSteps(RESET_KIND_E kind) {
    return kind == RESET_KIND_CORVANE ? CorvaneResetCleanUp() : AppsResetCleanUp();
}

const char* CAppsResetRules::ResultName(RESET_KIND_E kind) {
    switch (kind) {
        case RESET_KIND_APP:
            return "tak_app_reset_result";
        case RESET_KIND_SERVICE:
            return "tak_service_reset_result";
        case RESET_KIND_CORVANE:
            return "corvane_reset_result";
    }
    return "";
}

bool CAppsResetRules::IsFixedId(const std::string& id) {
    for (const char* kept : kServiceResetKeptApps) {
        if (id == kept) {
            return true;
        }
    }
    return false;
}
