#include "Reset.h"

#include <app_control.h>
#include <app_launcher.h>
#include <platform_path.h>

#include <cstdint>
#include <iterator>
#include <unordered_set>
#include <utility>

#include "AppDBInfo.h"
#include "ICSystemInfo.h"
#include "ICVConf.h"
#include "ResetDbus.h"
#include "TAKCommonHandle.h"
#include "TAKDir.h"
#include "TAKHistoryLog.h"
#include "TAKLog.h"
#include "TAKUtil.h"
#include "TAKUtilityWrapper.h"

namespace {

// Every app: the app id that the app-record updates take for "all rows".
const char* const kEveryApp = "";

const int kAppTypeDefault = 4;
const int kUninstallReasonReset = 2;

// Kept in a service reset (defect DF200715-00947): these apps must survive it.
const char* const kServiceResetKeptApps[] = {"3201903017943", "3201904018125", "3202001019917"};

const char* const kDangbeiPackage = "com.velorin.dangbeimarket";

// Every CReset alive. The common library may call back after the task that asked has gone (the process
// is ending, or an "end" arrived while uninstalls were outstanding); a callback whose user data is not
// in here is dropped instead of touching freed memory. Guarded by the singleton lock. Allocated once and
// never freed, because library threads may still call back while static objects are being destroyed.
std::unordered_set<const void*>& LiveTasks() {
    static auto* live = new std::unordered_set<const void*>();
    return *live;
}

bool IsKeptInServiceReset(const std::string& id) {
    for (const char* kept : kServiceResetKeptApps) {
        if (id == kept) {
            return true;
        }
    }
    return false;
}

std::string AddressText(const void* address) {
    return std::to_string(reinterpret_cast<intptr_t>(address));
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

void EmptyDir(const std::string& path, bool bFirst = false) {
    if (path.empty()) {
        return;
    }
    TAKDir::RemoveAllFiles(path, bFirst, false);
}

void EmptyServiceDir(int variable, const char* sub) {
    EmptyDir(ServicePath(variable, sub));
}

void RemoveCaches() {
    std::string cache = HomePath("/owner/.cache/Apps/WebAppsCache/");
    TAK_LOGI("remove Cache %s", cache.c_str());
    EmptyDir(cache, true);
    std::string xwalk = HomePath("/owner/apps_rw/xwalk-service/");
    TAK_LOGI("remove xwalk service files %s", xwalk.c_str());
    EmptyDir(xwalk, true);
}

void RemoveBackupFile() {
    std::string backup = ServicePath(PLATFORM_PATH_APPS_RW, "bnr_backup/bnr_backup.json");
    if (!backup.empty()) {
        ITAKUtility::RemoveFile(backup);
    }
}

}  // namespace

CReset::CReset() : CTAKTaskBase("CReset"), m_bAOTBoard(ICSystemInfo::GetAOTBoard()) {
    std::lock_guard<std::mutex> lock(CTAKSingleton<CReset>::m_tSingletonLock);
    LiveTasks().insert(this);
}

CReset::~CReset() {
    std::lock_guard<std::mutex> lock(CTAKSingleton<CReset>::m_tSingletonLock);
    LiveTasks().erase(this);
}

bool CReset::t_Create() {
    return true;
}

bool CReset::t_Destroy() {
    t_RemoveTimeout(m_pDeadline);
    m_pDeadline = nullptr;
    m_AbandonUnanswered();
    // An app reset that was stopped before its clean-up still owes its caller an answer.
    if (!m_bResultSent && !m_bCorvaneResetDoing && !m_bServiceReset) {
        CProcessDbus::ProcessResult("tak_app_reset_result", 1, m_pUserData, "");
    }
    m_bResultSent = false;
    return true;
}

void CReset::m_AbandonUnanswered() {
    std::lock_guard<std::mutex> lock(CTAKSingleton<CReset>::m_tSingletonLock);
    if (m_bRequestsOut) {
        for (const _APPINFO_T& app : m_AppsList) {
            m_AbandonedApps.insert(app.id);
        }
    }
    m_AbandonedApps.insert(m_TimedOutApps.begin(), m_TimedOutApps.end());
    m_TimedOutApps.clear();
    m_bRequestsOut = false;
}

bool CReset::t_OnEvent(PTEvent* ptEvent) {
    if (ptEvent == nullptr) {
        TAK_LOGE("ptEvent == NULL");
        return false;
    }
    if (CTAKTaskBase::t_OnEvent(ptEvent)) {
        if (ptEvent->event == CTAKTaskBase::EVENT_EXIT) {
            TAK_LOGD("CReset task exit!");
        }
        return true;
    }
    TAK_LOGD("event type: %d!", static_cast<int>(ptEvent->event));
    switch (ptEvent->event) {
        case EVENT_UNINSTALL_APPS:
        case EVENT_CORVANE_UNINSTALL_APPS:
            m_UninstallApps(static_cast<unsigned long>(ptEvent->data));
            break;
        case EVENT_CLEAR_DB:
            m_ClearDB();
            break;
        case EVENT_TERMINATE_ALL_APPS:
            m_TerminateAllApps();
            break;
        case EVENT_DISABLE_APPS:
            m_DisableApps();
            break;
        default:
            TAK_LOGI("unknown event type %ld", static_cast<long>(ptEvent->event));
            break;
    }
    return true;
}

void CReset::m_EventSendToMe(unsigned long type, long param) {
    PTEvent event{};
    event.event = type;
    event.receiver = this;
    event.data = param;
    Send(&event, false);
}

void CReset::m_PostAfterBinder(unsigned long event) {
    std::lock_guard<std::mutex> lock(m_tBinderLock);
    if (m_bBinderCreated) {
        m_EventSendToMe(event, 0);
        return;
    }
    TAK_LOGN("binder is not created yet, waiting...");
    m_nPendingEvent = event;
}

void CReset::SetCommunicatorBinderCreated() {
    TAK_LOGN("SetCommunicatorBinderCreated");
    std::lock_guard<std::mutex> lock(m_tBinderLock);
    m_bBinderCreated = true;
    if (m_nPendingEvent != 0) {
        m_EventSendToMe(m_nPendingEvent, 0);
        m_nPendingEvent = 0;
    }
}

unsigned long CReset::m_EndEvent() const {
    return (m_bCorvaneResetDoing && m_bAOTBoard) ? EVENT_DISABLE_APPS : EVENT_CLEAR_DB;
}

void CReset::AppsReset(void* pUserData, bool bServiceReset, _CLIENT_INFO_T tClientInfo) {
    TAK_LOGI("app reset");
    WriteHistoryLogFile("[%s][%d]Start", "AppsReset", 118);
    m_pUserData = pUserData;
    m_bServiceReset = bServiceReset;
    m_tClientInfo = std::move(tClientInfo);

    CResetDbus::ResetConfigTable();
    if (!ICSystemInfo::GetKorbitBoard()) {
        ICVConf::Set("db/tak/app_sync_status", 0, true);
    }
    ICVConf::Set("memory/tak/boot_status", 0, false);
    m_ResetAppItems();
    m_GetUninstallList();

    CTAKUtil::GetPreinstallApps(0, m_DefaultApps);
    int factoryReset = 0;
    ICVConf::Get("db/tak/factory_reset", factoryReset);
    // General preinstalled apps are only protected right after a factory reset.
    if (factoryReset == 1) {
        CTAKUtil::GetPreinstallApps(1, m_GeneralApps);
    }
    CAppDBInfo::UpdateAppsInfoByKey(APPINFO_UPDATE_KEY_NEED_RESET, 1, kEveryApp);
    m_RecoverDefaultAppResetStatus();
    ICVConf::Set("memory/tak/app_change", 1, true);

    if (m_bAOTBoard) {
        m_PostAfterBinder(EVENT_UNINSTALL_APPS);
    } else {
        m_EventSendToMe(EVENT_UNINSTALL_APPS, 0);
    }
}

void CReset::m_ResetAppItems() {
    CAppDBInfo::UpdateAppsInfoByKey(APPINFO_UPDATE_KEY_LOCK, 0, kEveryApp);
    CAppDBInfo::UpdateAppsInfoByKey(APPINFO_UPDATE_KEY_LAUNCH_DATE, std::string(), kEveryApp);
    CAppDBInfo::UpdateAppsInfoByKey(APPINFO_UPDATE_KEY_USE_COUNT, 0, kEveryApp);
}

void CReset::m_ResetBootState() {
    // A robot-product board keeps its own sync status.
    if (!ICSystemInfo::GetKorbitBoard()) {
        ICVConf::Set("db/tak/app_sync_status", 0, true);
    }
    ICVConf::Set("memory/tak/boot_status", 0, false);
}

void CReset::m_GetUninstallList() {
    std::list<_APPINFO_T> fetched = CAppDBInfo::GetAllAppList();
    std::list<_APPINFO_T> ordered;
    // Front-placed apps are uninstalled first (so in reverse of their fetched order).
    while (!fetched.empty()) {
        auto app = fetched.begin();
        ordered.splice(app->reserved_tinyint_2 ? ordered.begin() : ordered.end(), fetched, app);
    }
    // Callbacks of an earlier reset may still arrive; they must see either the old list or the new one.
    std::lock_guard<std::mutex> lock(CTAKSingleton<CReset>::m_tSingletonLock);
    m_AppsList.Assign(std::move(ordered));
}

void CReset::m_RecoverDefaultAppResetStatus() {
    std::map<std::string, std::string> defaultApps;
    CTAKUtil::GetPreinstallApps(0, defaultApps);
    for (const auto& entry : defaultApps) {
        _APPINFO_T info;
        if (!CAppDBInfo::GetAppInfoById(entry.first, info, false)) {
            TAK_LOGE("App [%s] does not find in local", entry.first.c_str());
            continue;
        }
        TAK_LOGN("App [%s] set reset flag[false] to DB", entry.first.c_str());
        info.is_need_reset = 0;
        CAppDBInfo::SetAppInfo(info, false);
    }
    for (_APPINFO_T& app : CAppDBInfo::GetAllAppList()) {
        if (!app.reserved_tinyint_1) {
            continue;
        }
        TAK_LOGN("App [%s]disable reset,  set reset flag[false] to DB", app.id.c_str());
        app.is_need_reset = 0;
        CAppDBInfo::SetAppInfo(app, false);
    }
}

void CReset::m_UninstallApps(unsigned long /*param*/) {
    // Held for the whole walk: a callback that arrives meanwhile waits and then sees the filtered list.
    std::lock_guard<std::mutex> lock(CTAKSingleton<CReset>::m_tSingletonLock);
    if (m_bAOTBoard) {
        TAK_LOGI("clear userdata for dangbei");
        CTAKCommonHandle::CallIfPresent<TAK_CLEAR_ANDROID_DATA_API>(TAK_API_CLEAR_ANDROID_DATA,
                                                                    kDangbeiPackage);
        CTAKCommonHandle::CallIfPresent<TAK_SET_PRELOAD_STATUS_API>(TAK_API_SET_PRELOAD_STATUS, 1);
    }
    TAK_LOGD("m_AppsList size = %zu, Reason = %s", m_AppsList.size(), m_tClientInfo.reset_reason.c_str());

    auto pfUninstall = CTAKCommonHandle::Find<TAK_INSTALL_API>(TAK_API_UNINSTALL_APP);
    if (pfUninstall == nullptr) {
        TAK_LOGE("pfUninstallAppAPI is NULL.");
        return;
    }
    app_control_h request = nullptr;
    int ret = app_control_create(&request);
    if (ret != APP_CONTROL_ERROR_NONE) {
        TAK_LOGE("app_control_create failed %d", ret);
        return;
    }
    // The clock starts with the first request; the timer can only fire once the walk is over, as both
    // run on this thread.
    m_ArmDeadline();
    // The same for every app of this walk; reading it once spares one configuration read per app.
    int reason = CTAKUtil::GetTAKUninstallReason(kUninstallReasonReset);
    for (auto it = m_AppsList.begin(); it != m_AppsList.end();) {
        if (m_SkipUninstall(*it)) {
            it = m_AppsList.Erase(it);
            continue;
        }
        // A request that cannot be made will never be answered: the app ends here, as a failed
        // uninstall would, or the reset would wait for it forever.
        if (!m_SendUninstall(pfUninstall, request, *it, reason)) {
            TAK_LOGE("uninstall request for %s could not be made, taken as failed", it->id.c_str());
            it = m_AppsList.Erase(it);
            continue;
        }
        ++it;
    }
    app_control_destroy(request);
    m_bRequestsOut = true;

    TAK_LOGI("m_AppsList size %zu", m_AppsList.size());
    if (m_AppsList.empty()) {
        m_EventSendToMe(m_EndEvent(), 0);
    }
}

void CReset::m_ArmDeadline() {
    t_RemoveTimeout(m_pDeadline);
    m_pDeadline = nullptr;
    m_nDeadlineSec = CTAKUtil::GetCallbackTimeoutSec();
    m_TimedOutApps.clear();
    if (m_nDeadlineSec > 0) {
        m_pDeadline =
            t_AddTimeout(static_cast<unsigned long long>(m_nDeadlineSec) * 1000, m_OnDeadline, this);
    }
}

gboolean CReset::m_OnDeadline(gpointer self) {
    CReset* task = static_cast<CReset*>(self);
    task->t_RemoveTimeout(task->m_pDeadline);
    task->m_pDeadline = nullptr;
    std::lock_guard<std::mutex> lock(CTAKSingleton<CReset>::m_tSingletonLock);
    if (task->m_AppsList.empty()) {
        return G_SOURCE_REMOVE;
    }
    for (auto it = task->m_AppsList.begin(); it != task->m_AppsList.end();) {
        TAK_LOGE("%s: no final uninstall state within %d s, taken as failed", it->id.c_str(),
                 task->m_nDeadlineSec);
        WriteHistoryLogFile("[Reset][%s][%d][%s] uninstall timed out after %d s", "m_OnDeadline", __LINE__,
                            it->id.c_str(), task->m_nDeadlineSec);
        task->m_TimedOutApps.insert(it->id);
        it = task->m_AppsList.Erase(it);
    }
    TAK_LOGI("m_AppsList size %zu", task->m_AppsList.size());
    task->m_EventSendToMe(task->m_EndEvent(), 0);
    return G_SOURCE_REMOVE;
}

bool CReset::m_SkipUninstall(const _APPINFO_T& app) const {
    const char* id = app.id.c_str();
    int type = static_cast<int>(app.app_type);
    if (type == kAppTypeDefault || m_DefaultApps.count(app.id) != 0) {
        TAK_LOGI("%s is default/native[%d], continue to uninstall next apps", id, type);
        return true;
    }
    if (app.reserved_tinyint_1) {
        TAK_LOGI("%s is configured as disable reset, continue to uninstall next apps", id);
        return true;
    }
    if (m_bAOTBoard && m_GeneralApps.count(app.id) != 0) {
        TAK_LOGI("%s is general app[%d], continue to uninstall next apps", id, type);
        return true;
    }
    if (m_bServiceReset && IsKeptInServiceReset(app.id)) {
        TAK_LOGI("hard-coded for DF200715-00947, do not uninstall %s", id);
        return true;
    }
    return false;
}

bool CReset::m_SendUninstall(TAK_INSTALL_API pfUninstall, app_control_h request, const _APPINFO_T& app,
                             int reason) {
    WriteHistoryLogFile("[Reset][%s][%d][%s] will be uninstalled in reset scenario", "m_UninstallApps", 505,
                        app.id.c_str());
    TAK_LOGN("Reset %s", app.id.c_str());
    static const std::string s_Callback = AddressText(reinterpret_cast<const void*>(&CReset::m_UninstallCB));
    const std::pair<const char*, std::string> extras[] = {
        {"appkey", app.id},       {"keytype", "0"},
        {"callback", s_Callback}, {"userdata", AddressText(this)},
        {"force_uninstall", "1"}, {"tak_uninstall_reason", std::to_string(reason)},
    };
    for (const auto& extra : extras) {
        int ret = app_control_add_extra_data(request, extra.first, extra.second.c_str());
        if (ret != APP_CONTROL_ERROR_NONE) {
            TAK_LOGE("app_control_add_extra_data %s failed %d", extra.first, ret);
            return false;
        }
    }
    pfUninstall(request);
    return true;
}

void CReset::m_UninstallCB(std::string appId, TAK_EVENT_STATE_E state, int /*progress*/, int /*result*/,
                           std::string /*message*/, void* pvUserData) {
    std::lock_guard<std::mutex> lock(CTAKSingleton<CReset>::m_tSingletonLock);
    if (pvUserData == nullptr) {
        TAK_LOGE("NULL == pvUserData");
        return;
    }
    // Only the two terminal states of an uninstall, success or failure alike, end an app's wait.
    if (state != TAK_EVENT_STATE_UNINSTALL_SUCCESS && state != TAK_EVENT_STATE_UNINSTALL_FAIL) {
        return;
    }
    if (LiveTasks().count(pvUserData) == 0) {
        TAK_LOGE("reset task %p is gone, callback of %s dropped", pvUserData, appId.c_str());
        return;
    }
    CReset* task = static_cast<CReset*>(pvUserData);
    auto abandoned = task->m_AbandonedApps.find(appId);
    if (abandoned != task->m_AbandonedApps.end()) {
        task->m_AbandonedApps.erase(abandoned);
        TAK_LOGE("%s answered a request of a stopped reset, callback ignored", appId.c_str());
        return;
    }
    auto timedOut = task->m_TimedOutApps.find(appId);
    if (timedOut != task->m_TimedOutApps.end()) {
        task->m_TimedOutApps.erase(timedOut);
        TAK_LOGE("%s answered after its deadline, callback ignored", appId.c_str());
        return;
    }
    TAK_LOGI("uninstall callback appid %s ", appId.c_str());
    task->m_AppsList.RemoveFirst(appId);
    TAK_LOGI("m_AppsList size %zu", task->m_AppsList.size());
    if (task->m_AppsList.empty()) {
        task->m_EventSendToMe(task->m_EndEvent(), 0);
    }
    TAK_LOGI("removed appid %s ", appId.c_str());
}

void CReset::m_ClearDB() {
    EmptyServiceDir(PLATFORM_PATH_SYSTEM_DATA, "common/");
    TAK_LOGI("reset common path end");
    EmptyServiceDir(PLATFORM_PATH_APPS_RW, "preinstallrecovery/");
    TAK_LOGI("reset preinstall recovery file end");
    CResetDbus::ResetAppsUserData();
    EmptyServiceDir(PLATFORM_PATH_APPS_RW, "clone/");
    EmptyServiceDir(PLATFORM_PATH_APPS_RW, "RM/");
    EmptyServiceDir(PLATFORM_PATH_SYSTEM_DATA, "appupdate/");
    EmptyServiceDir(PLATFORM_PATH_APPS_RW, "appupdate/package/");
    RemoveCaches();
    RemoveBackupFile();
    m_RemoveContentFiles();

    if (m_bServiceReset) {
        CProcessDbus::ProcessResult("tak_service_reset_result", 1, m_pUserData, "");
    } else {
        int factoryReset = 0;
        ICVConf::Get("db/tak/factory_reset", factoryReset);
        if (factoryReset != 0) {
            ICVConf::Set("db/tak/factory_reset", 0, true);
        }
        CProcessDbus::ProcessResult("tak_app_reset_result", 1, m_pUserData, "");
    }
    m_bResultSent = true;
    WriteHistoryLogFile("[%s][%d]End", "m_ClearDB", 637);
}

void CReset::m_RemoveContentFiles() {
    for (int variable = PLATFORM_PATH_CONTENT_FIRST; variable <= PLATFORM_PATH_CONTENT_LAST; ++variable) {
        const char* path = platform_path_get(variable);
        if (path == nullptr) {
            TAK_LOGE("path variable %d is not configured", variable);
            continue;
        }
        TAK_LOGI("remove files %s", path);
        TAKDir::RemoveAllFiles(path, false, false);
    }
}

void CReset::CorvaneReset() {
    TAK_LOGN("CorvaneReset");
    WriteHistoryLogFile("[%s][%d]Corvane Reset", "CorvaneReset", 187);
    ICVConf::Set("memory/tak/app_group_list_ready", 0, false);
    ICVConf::Set("memory/tak/andrioid_group_list_ready", 0, false);
    m_bCorvaneResetDoing = true;
    ICVConf::Set("db/appinfoviewer/auto_update_off_applist", "", true);
    ICVConf::Set("db/tak/btgid", "", true);
    ICVConf::Set("db/tak/app_canary_id_list", "", false);
    ICVConf::Set("db/tak/app_canary_internal_test", 0, true);

    // Without Android apps nothing is uninstalled; the per-app state is reset at the end instead.
    if (!m_bAOTBoard) {
        m_EventSendToMe(EVENT_TERMINATE_ALL_APPS, 0);
        return;
    }
    m_GetUninstallList();
    CTAKUtil::GetPreinstallApps(0, m_DefaultApps);
    CTAKUtil::GetPreinstallApps(1, m_GeneralApps);
    m_ResetAppItems();
    CAppDBInfo::ResetForCorvaneReset();
    ICVConf::Set("memory/tak/app_change", 1, true);
    m_ResetBootState();
    m_PostAfterBinder(EVENT_TERMINATE_ALL_APPS);
}

void CReset::m_TerminateAllApps() {
    TAK_LOGN("m_TerminateAllApps");
    tak_terminate_allApps_internal("TAK", "corvane reset");
    CAppDBInfo::UpdateAppsInfoByKey(APPINFO_UPDATE_KEY_NEED_RESET, 1, kEveryApp);
    m_RecoverDefaultAppResetStatus();
    if (m_bAOTBoard) {
        m_EventSendToMe(EVENT_CORVANE_UNINSTALL_APPS, 0);
    } else {
        m_EventSendToMe(EVENT_DISABLE_APPS, 0);
    }
}

void CReset::m_DisableApps() {
    TAK_LOGN("m_DisableApps");
    if (!m_bAOTBoard) {
        m_ResetAppItems();
        CAppDBInfo::ResetForCorvaneReset();
        m_ResetBootState();
    }
    ICVConf::Set("memory/tak/app_change", 1, true);

    EmptyServiceDir(PLATFORM_PATH_SYSTEM_DATA, "common/");
    TAK_LOGI("reset common path end");
    EmptyServiceDir(PLATFORM_PATH_APPS_RW, "preinstallrecovery/");
    TAK_LOGI("reset preinstall recovery file end");
    EmptyServiceDir(PLATFORM_PATH_APPS_RW, "system_app/");
    TAK_LOGI("reset all special app end");
    CResetDbus::ResetAppsUserData();
    EmptyServiceDir(PLATFORM_PATH_APPS_RW, "clone/");
    TAK_LOGI("reset clone file end");
    EmptyServiceDir(PLATFORM_PATH_APPS_RW, "RM/");
    TAK_LOGI("reset RM file end");
    EmptyServiceDir(PLATFORM_PATH_SYSTEM_DATA, "appupdate/");
    EmptyServiceDir(PLATFORM_PATH_APPS_RW, "appupdate/package/");
    RemoveCaches();
    // Unlike the apps reset, the content goes before the backup file.
    m_RemoveContentFiles();
    RemoveBackupFile();

    if (CTAKCommonHandle::CallVoid(TAK_API_DELETE_ALL_INSTALL_NOTIFICATIONS)) {
        TAK_LOGI("delete all install noti end");
    }
    CProcessDbus::ProcessResult("corvane_reset_result", 1, nullptr, "");
    m_bResultSent = true;
}
