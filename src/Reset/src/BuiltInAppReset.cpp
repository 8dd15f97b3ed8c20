#include "BuiltInAppReset.h"

#include <app_control.h>

#include <cstdint>
#include <utility>

#include "BuiltInAppUtil.h"
#include "BuiltInResetRules.h"
#include "ICVConf.h"
#include "PkgInfo.h"
#include "ResetDbus.h"
#include "TAKCommonHandle.h"
#include "TAKConfigHandle.h"
#include "TAKLog.h"
#include "TAKString.h"
#include "TAKUtil.h"

namespace {

const char kResetDoneAppsConfig[] = "RESERVED_17";

// The install states that end an app's install; only the second also records the app as a test app.
const int kInstallEndStates[] = {103, 110, 111};
const int kInstallEndUpdatesTestList = 110;
// The other two end states leave the app without its reinstall: a failure a support engineer looks for.
const int kInstallEndInstalled = kInstallEndUpdatesTestList;
// Above the install states: uninstall outcomes that only touch the test-app list.
const int kLastInstallState = 111;

bool EndsInstall(int state) {
    for (int end : kInstallEndStates) {
        if (state == end) {
            return true;
        }
    }
    return false;
}

std::string AddressText(const void* address) {
    return std::to_string(reinterpret_cast<intptr_t>(address));
}

// The install mode sent with the statistics record: only an installed app has one.
std::string InstallMode(const std::string& resetMode) {
    if (resetMode == "anytime") {
        return "inactive";
    }
    return resetMode.empty() ? "foreground" : resetMode;
}

}  // namespace

CBuiltInAppReset* CBuiltInAppReset::m_poInstance = nullptr;

// Never freed: library threads may still call back while static objects are being destroyed.
std::mutex& CBuiltInAppReset::InstanceLock() {
    static auto* lock = new std::mutex();
    return *lock;
}

CBuiltInAppReset::CBuiltInAppReset() : CTAKTaskBase("CBuiltInAppReset") {
    ICVConf::Get(CBuiltInResetRules::HOME_BASE_PKG_KEY, m_strHomeBasePkgId);
    std::lock_guard<std::mutex> lock(InstanceLock());
    m_poInstance = this;
}

CBuiltInAppReset::~CBuiltInAppReset() {
    std::lock_guard<std::mutex> lock(InstanceLock());
    if (m_poInstance == this) {
        m_poInstance = nullptr;
    }
}

void CBuiltInAppReset::BuiltInAppReset(void* user, bool service, _CLIENT_INFO_T client) {
    {
        // A late install callback of the run stopped just before may still read the requester.
        std::lock_guard<std::mutex> lock(InstanceLock());
        m_nInstallCount = 0;
        m_bInstalling = false;
        m_InstantResetList.clear();
        m_pUserData = user;
        m_bServiceReset = service;
        m_tClientInfo = std::move(client);
    }
    m_WaitingList.clear();
    m_bWaiting = false;
    m_nDeadlineSec = CTAKUtil::GetCallbackTimeoutSec();
    m_EventSendToMe(EVENT_CHECK_CONDITION, 0);
}

bool CBuiltInAppReset::t_Create() {
    return true;
}

bool CBuiltInAppReset::t_Destroy() {
    {
        std::lock_guard<std::mutex> lock(InstanceLock());
        m_InstantResetList.clear();
        m_ResetDoneApps.clear();
        m_bInstalling = false;
        ++m_nEndedRuns;
    }
    m_DisarmDeadline();
    // A watch left behind would post into whichever reset runs next.
    m_StopWaiting();
    // A reset ended early still answers its requester once.
    if (!m_bCompleted) {
        m_ReportResult();
    }
    m_bCompleted = false;
    return true;
}

bool CBuiltInAppReset::t_OnEvent(PTEvent* ptEvent) {
    if (ptEvent == nullptr) {
        TAK_LOGE("ptEvent == NULL");
        return false;
    }
    bool handled = CTAKTaskBase::t_OnEvent(ptEvent);
    if (handled) {
        TAK_LOGD("CBuiltInAppReset task exit!");
        return handled;
    }
    TAK_LOGD("event type: %d!", static_cast<int>(ptEvent->event));
    switch (ptEvent->event) {
        case EVENT_CHECK_CONDITION:
            m_CheckCondition();
            break;
        case EVENT_GET_BUILTIN_APP_LIST:
            m_GetBuiltInAppList();
            break;
        case EVENT_CHECK_WAITING_LIST:
            m_CheckWaitingList();
            break;
        case EVENT_RESET_BUILTIN_APPS:
            m_ResetBuiltInApps();
            break;
        case EVENT_COMPLETED:
            m_Completed();
            break;
        default:
            TAK_LOGI("unknown event type %ld", static_cast<long>(ptEvent->event));
            break;
    }
    return true;
}

void CBuiltInAppReset::m_EventSendToMe(unsigned long event, long data) {
    PTEvent ev{};
    ev.event = event;
    ev.receiver = this;
    ev.data = data;
    Send(&ev, false);
}

void CBuiltInAppReset::m_CheckCondition() {
    TAK_LOGI("m_CheckCondition");
    bool serverUpgrade = true;
    int resetInProcess = 0;
    CBuiltInResetRules::ReadCondition(serverUpgrade, resetInProcess);
    if (CBuiltInResetRules::ConditionPasses(serverUpgrade, resetInProcess)) {
        ICVConf::Set(CBuiltInResetRules::RESET_IN_PROCESS_KEY,
                     CBuiltInResetRules::ResetInProcessValue(m_bServiceReset), true);
        m_EventSendToMe(EVENT_GET_BUILTIN_APP_LIST, 0);
        return;
    }
    TAK_LOGN("Server upgrade not support or Reset is already in process. this time reset will be skipped");
    if (m_bServiceReset) {
        size_t count = 0;
        {
            std::lock_guard<std::mutex> lock(InstanceLock());
            count = m_InstantResetList.size();
        }
        CResetDbus::BuiltInProgressMethodCall(m_tClientInfo, "", TAK_EVENT_STATE_BIU_RESET_TOTAL,
                                              static_cast<int>(count));
    }
    m_EventSendToMe(EVENT_COMPLETED, 0);
}

void CBuiltInAppReset::m_GetBuiltInAppList() {
    auto pfGetList = CTAKCommonHandle::Find<TAK_GET_BUILTIN_APP_LIST_API>(TAK_API_GET_BUILTIN_APP_LIST);
    if (pfGetList == nullptr) {
        return;
    }
    ICVConf::Set(CBuiltInResetRules::BTGID_KEY, std::string(), true);
    BUILTIN_APP_LIST apps;
    if (!pfGetList(apps, m_tClientInfo.caller_process_name)) {
        TAK_LOGE("GetBuiltInAppListAPI failed, %zu apps listed", apps.size());
    }
    std::deque<BUILTIN_APP_INFO> resetList;
    for (OPENAPI_BUILTIN_APP_INFO& app :
         CBuiltInResetRules::InstantResetList(std::move(apps), m_strHomeBasePkgId, m_tQuery, m_WaitingList)) {
        BUILTIN_APP_INFO entry;
        entry.appInfo = std::move(app);
        resetList.push_back(std::move(entry));
    }
    size_t count = resetList.size();
    {
        std::lock_guard<std::mutex> lock(InstanceLock());
        m_InstantResetList = std::move(resetList);
    }
    m_GetDLDInfo();
    if (m_bServiceReset) {
        CResetDbus::BuiltInProgressMethodCall(m_tClientInfo, "", TAK_EVENT_STATE_BIU_RESET_TOTAL,
                                              static_cast<int>(count));
    }
    if (m_WaitingList.empty()) {
        m_EventSendToMe(EVENT_RESET_BUILTIN_APPS, 0);
        return;
    }
    TAK_LOGI("waiting for background updates of %s", TAKString::AssembleListToString(m_WaitingList).c_str());
    m_WatchUpdatingApp();
    m_bWaiting = true;
    if (CBuiltInAppUtil::CheckWaitingList(m_WaitingList)) {
        m_StopWaiting();
        m_EventSendToMe(EVENT_RESET_BUILTIN_APPS, 0);
    }
}

void CBuiltInAppReset::m_GetDLDInfo() {
    std::map<std::string, APP_SERVER_REQUEST_INFO> requests;
    {
        std::lock_guard<std::mutex> lock(InstanceLock());
        for (const BUILTIN_APP_INFO& entry : m_InstantResetList) {
            const OPENAPI_BUILTIN_APP_INFO& app = entry.appInfo;
            requests.emplace(app.appId,
                             APP_SERVER_REQUEST_INFO{app.appId, app.orvixId, app.pkgId, app.appType});
        }
    }
    if (requests.empty()) {
        return;
    }
    auto pfGetDLDInfo = CTAKCommonHandle::Find<TAK_GET_APPS_DLD_INFO_API>(TAK_API_GET_APPS_DLD_INFO);
    if (pfGetDLDInfo == nullptr) {
        return;
    }
    std::map<std::string, OPENAPI_APP_DLD_INFO> answers;
    pfGetDLDInfo(requests, answers);
    std::lock_guard<std::mutex> lock(InstanceLock());
    for (BUILTIN_APP_INFO& entry : m_InstantResetList) {
        auto answer = answers.find(entry.appInfo.appId);
        if (answer == answers.end()) {
            continue;
        }
        entry.dldInfo = answer->second;
        TAK_LOGI("save %s DLD info", entry.appInfo.appId.c_str());
    }
}

void CBuiltInAppReset::m_WatchUpdatingApp() {
    auto pfRegister =
        CTAKCommonHandle::Find<TAK_REGISTER_VCONF_CHANGE_CB_API>(TAK_API_REGISTER_VCONF_CHANGE_CB);
    if (pfRegister == nullptr) {
        return;
    }
    pfRegister(CBuiltInResetRules::UPDATING_APP_KEY, &CBuiltInAppReset::m_VconfCB);
    m_bWatching = true;
}

void CBuiltInAppReset::m_StopWaiting() {
    m_bWaiting = false;
    if (!m_bWatching) {
        return;
    }
    m_bWatching = false;
    auto pfUnregister =
        CTAKCommonHandle::Find<TAK_UNREGISTER_VCONF_CHANGE_CB_API>(TAK_API_UNREGISTER_VCONF_CHANGE_CB);
    if (pfUnregister != nullptr) {
        pfUnregister(CBuiltInResetRules::UPDATING_APP_KEY);
    }
}

void CBuiltInAppReset::m_VconfCB(std::string key, VCONF_VALUE value) {
    if (key != CBuiltInResetRules::UPDATING_APP_KEY) {
        TAK_LOGE("vconf name %s is not biu updating app", key.c_str());
        return;
    }
    TAK_LOGI("vconf name biu updating app change to %s", value.stringValue.c_str());
    std::lock_guard<std::mutex> lock(InstanceLock());
    if (m_poInstance == nullptr) {
        TAK_LOGE("m_poInstance is NULL");
        return;
    }
    m_poInstance->m_EventSendToMe(EVENT_CHECK_WAITING_LIST, 0);
}

void CBuiltInAppReset::m_CheckWaitingList() {
    // A change that arrives after the wait ended (two quick changes, or a watch that outlived a reset)
    // must not start the installs a second time.
    if (!m_bWaiting) {
        TAK_LOGI("not waiting for background updates, event ignored");
        return;
    }
    if (!CBuiltInAppUtil::CheckWaitingList(m_WaitingList)) {
        return;
    }
    m_StopWaiting();
    m_EventSendToMe(EVENT_RESET_BUILTIN_APPS, 0);
}

void CBuiltInAppReset::m_ResetBuiltInApps() {
    BUILTIN_APP_INFO head;
    {
        std::lock_guard<std::mutex> lock(InstanceLock());
        if (m_bInstalling) {
            TAK_LOGI("install of %s still in progress, event ignored",
                     m_InstantResetList.empty() ? "" : m_InstantResetList.front().appInfo.appId.c_str());
            return;
        }
        if (m_InstantResetList.empty()) {
            m_EventSendToMe(EVENT_COMPLETED, 0);
            return;
        }
        head = m_InstantResetList.front();
    }
    auto pfInstall = CTAKCommonHandle::Find<TAK_INSTALL_API>(TAK_API_INSTALL_APP);
    if (pfInstall == nullptr) {
        std::lock_guard<std::mutex> lock(InstanceLock());
        if (!m_InstantResetList.empty()) {
            m_InstantResetList.pop_front();
        }
        m_EventSendToMe(EVENT_RESET_BUILTIN_APPS, 0);
        return;
    }
    if (!m_SendInstall(pfInstall, head)) {
        // The same app is tried again.
        m_EventSendToMe(EVENT_RESET_BUILTIN_APPS, 0);
    }
}

bool CBuiltInAppReset::m_SendInstall(TAK_INSTALL_API pfInstall, const BUILTIN_APP_INFO& app) {
    const OPENAPI_BUILTIN_APP_INFO& info = app.appInfo;
    // The library copies what it needs from these two records during the call.
    OPENAPI_APP_DLD_INFO dldInfo = app.dldInfo;
    BIU_INSTALL_KPI_INFO kpiInfo;
    kpiInfo.fields[0] = info.pkgId;
    kpiInfo.fields[2] = info.field5;
    if (IPkgInfo::IsInstalled(info.pkgId, false)) {
        kpiInfo.fields[6] = InstallMode(info.resetMode);
    }
    app_control_h request = nullptr;
    int ret = app_control_create(&request);
    if (ret != APP_CONTROL_ERROR_NONE) {
        TAK_LOGE("app_control_create for %s failed, ret %d.", info.appId.c_str(), ret);
        return false;
    }
    TAK_LOGN("Reset %s", info.appId.c_str());
    static const std::string s_Callback =
        AddressText(reinterpret_cast<const void*>(&CBuiltInAppReset::m_ResetCB));
    const std::pair<const char*, std::string> extras[] = {
        {"appkey", info.appId},
        {"keytype", "0"},
        {"callback", s_Callback},
        {"userdata", AddressText(this)},
        {"biu_reset", "1"},
        {"biu_uninstall_reason", "0"},
        {"app_dld_info", AddressText(&dldInfo)},
        {"biu_kpi_info", AddressText(&kpiInfo)},
    };
    for (const auto& extra : extras) {
        ret = app_control_add_extra_data(request, extra.first, extra.second.c_str());
        if (ret != APP_CONTROL_ERROR_NONE) {
            TAK_LOGE("app_control_add_extra_data %s failed %d", extra.first, ret);
        }
    }
    {
        // Set before the call: the library may answer from its thread before the call returns.
        std::lock_guard<std::mutex> lock(InstanceLock());
        m_bInstalling = true;
        ++m_nInstallCount;
    }
    m_ArmDeadline();
    ret = pfInstall(request);
    if (ret != 0) {
        TAK_LOGE("InstallAppAPI for %s returned %d", info.appId.c_str(), ret);
    }
    app_control_destroy(request);
    return true;
}

void CBuiltInAppReset::m_ArmDeadline() {
    m_DisarmDeadline();
    if (m_nDeadlineSec > 0) {
        m_pDeadline =
            t_AddTimeout(static_cast<unsigned long long>(m_nDeadlineSec) * 1000, m_OnDeadline, this);
    }
}

void CBuiltInAppReset::m_DisarmDeadline() {
    t_RemoveTimeout(m_pDeadline);
    m_pDeadline = nullptr;
}

// On the task thread. Only an install still outstanding is ended; one whose callback came first left
// m_bInstalling false, and the next install has disarmed this timer before arming its own.
gboolean CBuiltInAppReset::m_OnDeadline(gpointer self) {
    CBuiltInAppReset* task = static_cast<CBuiltInAppReset*>(self);
    task->m_DisarmDeadline();
    int installCount = 0;
    std::string appId;
    {
        std::lock_guard<std::mutex> lock(InstanceLock());
        if (!task->m_bInstalling || task->m_InstantResetList.empty()) {
            return G_SOURCE_REMOVE;
        }
        appId = task->m_InstantResetList.front().appInfo.appId;
        TAK_LOGE("%s: no final install state within %d s, taken as failed", appId.c_str(),
                 task->m_nDeadlineSec);
        TAK_LOGW("install of %s timed out after %d s", appId.c_str(), task->m_nDeadlineSec);
        task->m_InstantResetList.pop_front();
        task->m_bInstalling = false;
        installCount = task->m_nInstallCount;
    }
    if (task->m_bServiceReset) {
        CResetDbus::BuiltInProgressMethodCall(task->m_tClientInfo, appId, TAK_EVENT_STATE_BIU_RESET_ONE_DONE,
                                              installCount);
    }
    task->m_EventSendToMe(EVENT_RESET_BUILTIN_APPS, 0);
    return G_SOURCE_REMOVE;
}

void CBuiltInAppReset::m_ResetCB(std::string appId, TAK_EVENT_STATE_E state, int /*progress*/, int result,
                                 std::string /*message*/, void* user) {
    if (user == nullptr) {
        TAK_LOGE("NULL == pvUserData");
        return;
    }
    CBuiltInAppReset* task = static_cast<CBuiltInAppReset*>(user);
    OPENAPI_BUILTIN_APP_INFO head;
    unsigned long run = 0;
    {
        std::lock_guard<std::mutex> lock(InstanceLock());
        if (task != m_poInstance) {
            TAK_LOGE("reset task %p is gone, callback of %s dropped", user, appId.c_str());
            return;
        }
        if (!task->m_bInstalling || task->m_InstantResetList.empty() ||
            task->m_InstantResetList.front().appInfo.appId != appId) {
            TAK_LOGE("%s is not in upgrade list", appId.c_str());
            return;
        }
        head = task->m_InstantResetList.front().appInfo;
        run = task->m_nEndedRuns;
    }
    if (state > kLastInstallState) {
        if (state == TAK_EVENT_STATE_UNINSTALL_SUCCESS || state == TAK_EVENT_STATE_UNINSTALL_FAIL) {
            TAK_LOGI("strAppID[%s] uninstall  state %d result %d", appId.c_str(), static_cast<int>(state),
                     result);
            CBuiltInAppUtil::RemoveFromTestList(head.pkgId, appId);
        }
        return;
    }
    if (!EndsInstall(state)) {
        return;
    }
    HeadInstallEnd end;
    if (!task->m_EndHeadInstall(appId, end)) {
        return;
    }
    CTAKConfigHandle::UpdateConfigTable(kResetDoneAppsConfig, end.doneIds);
    TAK_LOGI("install of %s answered with state %d", appId.c_str(), static_cast<int>(state));
    if (state != kInstallEndInstalled) {
        TAK_LOGW("install of %s failed (state %d)", appId.c_str(), static_cast<int>(state));
    }
    if (state == kInstallEndUpdatesTestList) {
        CBuiltInAppUtil::UpdateTestList(head);
    }
    if (end.serviceReset) {
        CResetDbus::BuiltInProgressMethodCall(end.client, appId, TAK_EVENT_STATE_BIU_RESET_ONE_DONE,
                                              end.installCount);
    }
    // Posted under the lock, so that the task cannot go away between the check and the post.
    std::lock_guard<std::mutex> lock(InstanceLock());
    if (task != m_poInstance || task->m_nEndedRuns != run) {
        TAK_LOGE("the reset of %s was stopped meanwhile, nothing more to do", appId.c_str());
        return;
    }
    task->m_EventSendToMe(EVENT_RESET_BUILTIN_APPS, 0);
}

// Ends the head app's install: records it as done and takes it off the list. False when another
// callback ended it first (the lock was let go between the callback's check and this). The requester is
// copied here, under the lock: once it is let go, a new request may replace it.
bool CBuiltInAppReset::m_EndHeadInstall(const std::string& appId, HeadInstallEnd& end) {
    std::lock_guard<std::mutex> lock(InstanceLock());
    if (this != m_poInstance || !m_bInstalling || m_InstantResetList.empty() ||
        m_InstantResetList.front().appInfo.appId != appId) {
        TAK_LOGE("%s is not in upgrade list", appId.c_str());
        return false;
    }
    m_ResetDoneApps[appId] = appId;
    std::vector<std::string> ids;
    for (const auto& done : m_ResetDoneApps) {
        ids.push_back(done.first);
    }
    end.doneIds = TAKString::AssembleListToString(ids, ",");
    m_InstantResetList.pop_front();
    m_bInstalling = false;
    end.installCount = m_nInstallCount;
    end.serviceReset = m_bServiceReset;
    end.client = m_tClientInfo;
    return true;
}

void CBuiltInAppReset::m_Completed() {
    m_ReportResult();
    m_bCompleted = true;
}

void CBuiltInAppReset::m_ReportResult() {
    if (m_bServiceReset) {
        CResetDbus::BuiltInProgressMethodCall(m_tClientInfo, "", TAK_EVENT_STATE_BIU_RESET_FINISHED, 0);
    }
    CProcessDbus::ProcessResult(CBuiltInResetRules::ResultName(m_bServiceReset), 1, m_pUserData, "");
}
