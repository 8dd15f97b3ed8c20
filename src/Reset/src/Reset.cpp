#include "Reset.h"

#include <app_control.h>
#include <app_launcher.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <unordered_set>
#include <utility>
#include <vector>

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

const int kUninstallReasonReset = 2;

const char* const kDangbeiPackage = "com.velorin.dangbeimarket";

// Every CReset alive. The common library may call back after the task that asked has gone (the process
// is ending, or an "end" arrived while uninstalls were outstanding); a callback whose user data is not
// in here is dropped instead of touching freed memory. Guarded by the singleton lock. Allocated once and
// never freed, because library threads may still call back while static objects are being destroyed.
std::unordered_set<const void*>& LiveTasks() {
    static auto* live = new std::unordered_set<const void*>();
    return *live;
}

// Uninstall callbacks that have come and wait for the singleton lock (the walk holds it for its whole
// run). The deadline lets them in before it judges: an answer made in time must not lose to the timer
// only because it had to wait for the walk to end.
std::atomic<int> g_nAnswersWaiting{0};
// How soon the deadline looks again while answers wait.
const unsigned long long kAnswersFirstMs = 5;

std::string AddressText(const void* address) {
    return std::to_string(reinterpret_cast<intptr_t>(address));
}

// Carries out one clean-up step; false when it did nothing because the library cannot delete the
// install notifications. A step without a path (its variable is not configured) touches nothing.
bool RunCleanUpAction(const RESET_CLEANUP_STEP& step) {
    switch (step.action) {
        case RESET_CLEANUP_EMPTY_DIR:
        case RESET_CLEANUP_REMOVE_DIR:
            if (!step.path.empty()) {
                TAKDir::RemoveAllFiles(step.path, step.action == RESET_CLEANUP_REMOVE_DIR, false);
                TAK_LOGI("clean-up emptied %s", step.path.c_str());
            }
            return true;
        case RESET_CLEANUP_REMOVE_FILE:
            if (!step.path.empty()) {
                ITAKUtility::RemoveFile(step.path);
            }
            return true;
        case RESET_CLEANUP_RESET_USER_DATA:
            CResetDbus::ResetAppsUserData();
            return true;
        case RESET_CLEANUP_DELETE_NOTIFICATIONS:
            return CTAKCommonHandle::CallVoid(TAK_API_DELETE_ALL_INSTALL_NOTIFICATIONS);
    }
    return true;
}

void RunCleanUp(RESET_KIND_E kind) {
    const std::vector<RESET_CLEANUP_STEP> steps = CAppsResetRules::CleanUpSteps(kind);
    // Marks where the clean-up starts, so that its time can be told from the uninstalls'.
    TAK_LOGI("clean-up of %zu steps starts", steps.size());
    for (const RESET_CLEANUP_STEP& step : steps) {
        if (!step.logBefore.empty()) {
            TAK_LOGI("%s", step.logBefore.c_str());
        }
        if (RunCleanUpAction(step) && !step.logAfter.empty()) {
            TAK_LOGI("%s", step.logAfter.c_str());
        }
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
    {
        std::lock_guard<std::mutex> lock(CTAKSingleton<CReset>::m_tSingletonLock);
        m_AppsList.Abandon();
    }
    // An app reset that was stopped before its clean-up still owes its caller an answer.
    if (!m_bResultSent && !m_bCorvaneResetDoing && !m_bServiceReset) {
        CProcessDbus::ProcessResult(CAppsResetRules::ResultName(RESET_KIND_APP), 1, m_pUserData, "");
    }
    m_bResultSent = false;
    return true;
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
    const RESET_KIND_E kind = m_AppsKind();

    CResetDbus::ResetConfigTable();
    m_WriteSettings(kind, RESET_STAGE_START);
    m_ResetAppItems();
    m_GetUninstallList();

    CTAKUtil::GetPreinstallApps(0, m_DefaultApps);
    int factoryReset = 0;
    ICVConf::Get(CAppsResetRules::FACTORY_RESET_KEY, factoryReset);
    if (CAppsResetRules::ReadsGeneralApps(kind, factoryReset)) {
        CTAKUtil::GetPreinstallApps(1, m_GeneralApps);
    }
    CAppDBInfo::UpdateAppsInfoByKey(APPINFO_UPDATE_KEY_NEED_RESET, 1, kEveryApp);
    m_RecoverDefaultAppResetStatus();
    m_WriteSettings(kind, RESET_STAGE_RECORDS_RESET, factoryReset);

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

RESET_KIND_E CReset::m_AppsKind() const {
    return m_bServiceReset ? RESET_KIND_SERVICE : RESET_KIND_APP;
}

void CReset::m_WriteSettings(RESET_KIND_E kind, RESET_STAGE_E stage, int factoryReset) {
    // The board flags are read at every stage, as the host may change them while a reset runs.
    for (const RESET_SETTING_T& setting :
         CAppsResetRules::Settings(kind, stage, m_bAOTBoard, ICSystemInfo::GetKorbitBoard(), factoryReset)) {
        if (setting.text) {
            ICVConf::Set(setting.key, setting.value, setting.sync);
        } else {
            ICVConf::Set(setting.key, setting.number, setting.sync);
        }
    }
}

void CReset::m_GetUninstallList() {
    std::list<_APPINFO_T> ordered = CAppsResetRules::UninstallOrder(CAppDBInfo::GetAllAppList());
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
    TAK_LOGD("m_AppsList size = %zu, Reason = %s", m_AppsList.Apps().size(),
             m_tClientInfo.reset_reason.c_str());

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
    m_nDeadlineSec = CTAKUtil::GetCallbackTimeoutSec();
    const int64_t deadlineUs = static_cast<int64_t>(m_nDeadlineSec) * G_USEC_PER_SEC;
    // The same for every app of this walk; reading it once spares one configuration read per app.
    int reason = CTAKUtil::GetTAKUninstallReason(kUninstallReasonReset);
    const CAppsResetRules rules(m_bAOTBoard, m_bServiceReset, m_DefaultApps, m_GeneralApps);
    CUninstallList& apps = m_AppsList.Apps();
    for (auto it = apps.begin(); it != apps.end();) {
        if (rules.KeepRule(*it) != RESET_KEEP_NONE) {
            it = apps.Erase(it);
            continue;
        }
        // A request that cannot be made will never be answered: the app ends here, as a failed
        // uninstall would, or the reset would wait for it forever.
        if (!m_SendUninstall(pfUninstall, request, *it, reason)) {
            TAK_LOGE("uninstall request for %s could not be made, taken as failed", it->id.c_str());
            it = apps.Erase(it);
            continue;
        }
        // Each request has its own deadline: a long walk must not give up on apps it asked a moment ago.
        if (deadlineUs > 0) {
            m_AppsList.Sent(it->id, g_get_monotonic_time() + deadlineUs);
        }
        ++it;
    }
    app_control_destroy(request);
    m_AppsList.WalkDone();
    m_ArmDeadline();

    TAK_LOGI("m_AppsList size %zu", apps.size());
    if (apps.empty()) {
        m_EventSendToMe(m_EndEvent(), 0);
    }
}

void CReset::m_ArmDeadline() {
    t_RemoveTimeout(m_pDeadline);
    m_pDeadline = nullptr;
    int64_t dueUs = 0;
    if (m_nDeadlineSec <= 0 || !m_AppsList.NextDue(dueUs)) {
        return;
    }
    // Rounded up, so that the timer never fires before the request is due.
    const int64_t waitUs = std::max<int64_t>(0, dueUs - g_get_monotonic_time());
    m_pDeadline = t_AddTimeout(static_cast<unsigned long long>((waitUs + 999) / 1000), m_OnDeadline, this);
}

gboolean CReset::m_OnDeadline(gpointer self) {
    CReset* task = static_cast<CReset*>(self);
    if (g_nAnswersWaiting.load() > 0) {
        task->t_RemoveTimeout(task->m_pDeadline);
        task->m_pDeadline = task->t_AddTimeout(kAnswersFirstMs, m_OnDeadline, task);
        return G_SOURCE_REMOVE;
    }
    std::lock_guard<std::mutex> lock(CTAKSingleton<CReset>::m_tSingletonLock);
    const std::vector<std::string> givenUp = task->m_AppsList.GiveUpDue(g_get_monotonic_time());
    for (const std::string& id : givenUp) {
        TAK_LOGE("%s: no final uninstall state within %d s, taken as failed", id.c_str(),
                 task->m_nDeadlineSec);
        TAK_LOGW("uninstall of %s timed out after %d s", id.c_str(), task->m_nDeadlineSec);
        WriteHistoryLogFile("[Reset][%s][%d][%s] uninstall timed out after %d s", "m_OnDeadline", __LINE__,
                            id.c_str(), task->m_nDeadlineSec);
    }
    // Replaces the source that is running now (destroying it from its own callback is allowed).
    task->m_ArmDeadline();
    if (!givenUp.empty()) {
        TAK_LOGI("m_AppsList size %zu", task->m_AppsList.Apps().size());
        if (task->m_AppsList.Apps().empty()) {
            task->m_EventSendToMe(task->m_EndEvent(), 0);
        }
    }
    return G_SOURCE_REMOVE;
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
    ++g_nAnswersWaiting;
    std::unique_lock<std::mutex> lock(CTAKSingleton<CReset>::m_tSingletonLock);
    --g_nAnswersWaiting;
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
    static_cast<CReset*>(pvUserData)->m_OnAnswer(appId, state == TAK_EVENT_STATE_UNINSTALL_FAIL);
}

void CReset::m_OnAnswer(const std::string& appId, bool failed) {
    switch (m_AppsList.Answer(appId)) {
        case CUninstallRequests::ANSWER_STOPPED:
            TAK_LOGE("%s answered a request of a stopped reset, callback ignored", appId.c_str());
            return;
        case CUninstallRequests::ANSWER_LATE:
            TAK_LOGE("%s answered after its deadline, callback ignored", appId.c_str());
            return;
        case CUninstallRequests::ANSWER_EARLY:
            TAK_LOGE("%s answered before this reset sent its requests, callback ignored", appId.c_str());
            return;
        case CUninstallRequests::ANSWER_COUNTS:
        case CUninstallRequests::ANSWER_UNKNOWN:
            break;
    }
    if (failed) {
        TAK_LOGW("uninstall of %s failed", appId.c_str());
    }
    // An answer that matches no request still ends the run again once its list is empty.
    TAK_LOGI("uninstall callback appid %s ", appId.c_str());
    TAK_LOGI("m_AppsList size %zu", m_AppsList.Apps().size());
    if (m_AppsList.Apps().empty()) {
        m_EventSendToMe(m_EndEvent(), 0);
    }
    TAK_LOGI("removed appid %s ", appId.c_str());
}

void CReset::m_ClearDB() {
    const RESET_KIND_E kind = m_AppsKind();
    m_WriteSettings(kind, RESET_STAGE_CLEAN_UP);
    RunCleanUp(kind);
    int factoryReset = 0;
    if (CAppsResetRules::EndsFactoryReset(kind)) {
        ICVConf::Get(CAppsResetRules::FACTORY_RESET_KEY, factoryReset);
    }
    m_WriteSettings(kind, RESET_STAGE_RESULT, factoryReset);
    CProcessDbus::ProcessResult(CAppsResetRules::ResultName(kind), 1, m_pUserData, "");
    m_bResultSent = true;
    WriteHistoryLogFile("[%s][%d]End", "m_ClearDB", 637);
}

void CReset::CorvaneReset() {
    TAK_LOGN("CorvaneReset");
    WriteHistoryLogFile("[%s][%d]Corvane Reset", "CorvaneReset", 187);
    m_bCorvaneResetDoing = true;
    m_WriteSettings(RESET_KIND_CORVANE, RESET_STAGE_START);

    // Without Android apps nothing is uninstalled; the per-app state is reset at the end instead.
    if (!CAppsResetRules::UninstallsApps(RESET_KIND_CORVANE, m_bAOTBoard)) {
        m_EventSendToMe(EVENT_TERMINATE_ALL_APPS, 0);
        return;
    }
    m_GetUninstallList();
    CTAKUtil::GetPreinstallApps(0, m_DefaultApps);
    if (CAppsResetRules::ReadsGeneralApps(RESET_KIND_CORVANE, 0)) {
        CTAKUtil::GetPreinstallApps(1, m_GeneralApps);
    }
    m_ResetAppItems();
    CAppDBInfo::ResetForCorvaneReset();
    m_WriteSettings(RESET_KIND_CORVANE, RESET_STAGE_RECORDS_RESET);
    m_PostAfterBinder(EVENT_TERMINATE_ALL_APPS);
}

void CReset::m_TerminateAllApps() {
    TAK_LOGN("m_TerminateAllApps");
    tak_terminate_allApps_internal("TAK", "corvane reset");
    CAppDBInfo::UpdateAppsInfoByKey(APPINFO_UPDATE_KEY_NEED_RESET, 1, kEveryApp);
    m_RecoverDefaultAppResetStatus();
    if (CAppsResetRules::UninstallsApps(RESET_KIND_CORVANE, m_bAOTBoard)) {
        m_EventSendToMe(EVENT_CORVANE_UNINSTALL_APPS, 0);
    } else {
        m_EventSendToMe(EVENT_DISABLE_APPS, 0);
    }
}

void CReset::m_DisableApps() {
    TAK_LOGN("m_DisableApps");
    // A board that uninstalls nothing left the app records alone in the entry; they are reset here.
    if (!CAppsResetRules::UninstallsApps(RESET_KIND_CORVANE, m_bAOTBoard)) {
        m_ResetAppItems();
        CAppDBInfo::ResetForCorvaneReset();
    }
    m_WriteSettings(RESET_KIND_CORVANE, RESET_STAGE_CLEAN_UP);
    RunCleanUp(RESET_KIND_CORVANE);
    m_WriteSettings(RESET_KIND_CORVANE, RESET_STAGE_RESULT);
    CProcessDbus::ProcessResult(CAppsResetRules::ResultName(RESET_KIND_CORVANE), 1, nullptr, "");
    m_bResultSent = true;
}
