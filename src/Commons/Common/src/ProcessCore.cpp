#include "ProcessCore.h"

#include <glib-unix.h>
#include <platform_path.h>
#include <service_app.h>
#include <smart_deadlock.h>
#include <sys/stat.h>
#include <ttrace.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <limits>
#include <mutex>

#include "AppDBInfo.h"
#include "ICSystemInfo.h"
#include "ICVConf.h"
#include "ProcessDbus.h"
#include "TAKAppInfoHandle.h"
#include "TAKCommonApi.h"
#include "TAKCommonHandle.h"
#include "TAKConfigHandle.h"
#include "TAKLog.h"
#include "TAKString.h"

namespace {

const char kAotSvcReadyKey[] = "memory/setting-sync/aot_svc_ready";
const char kUpdateMarker[] = "/run/tak_update_app";
const int kAotSvcReady = 2;
const int kWatchdogServiceType = 48;

// Cookies are addresses written as signed decimals; the unsigned conversion of the common string
// utilities refuses a sign, so a negative value is converted without it and negated back. The negation
// is done on the unsigned value: the lowest cookie, -9223372036854775808, has no positive counterpart.
long ToSignedLong(const std::string& text) {
    size_t start = text.find_first_not_of(" \t");
    if (start != std::string::npos && text[start] == '-') {
        return static_cast<long>(0UL - TAKString::UlInteger(text.substr(start + 1)));
    }
    return static_cast<long>(TAKString::UlInteger(text));
}

}  // namespace

bool CProcessCore::s_bCreated = false;
bool CProcessCore::s_bBoosted = false;
bool CProcessCore::g_bReleasedImage = false;
GFileMonitor* CProcessCore::m_gFileMonitorHandle = nullptr;
gulong CProcessCore::m_MonitorHandlerId = 0;

namespace {

// The process core that a binder callback may reach: set while Exec() runs. The library calls back from
// a thread of its own and joins it only when it is unloaded, after the core is gone; Exec() takes this lock
// before it returns, so a callback either ends before that or finds no core.
std::mutex g_LiveCoreLock;
CProcessCore* g_poLiveCore = nullptr;  // guarded by g_LiveCoreLock

void SetLiveCore(CProcessCore* core) {
    std::lock_guard<std::mutex> lock(g_LiveCoreLock);
    g_poLiveCore = core;
}

}  // namespace

CProcessCore::CProcessCore(int argc, char** argv, const std::string& processName,
                           unsigned int watchdogPeriodMs)
    : m_nArgc(argc),
      m_ppArgv(argv),
      m_strProcessName(processName),
      m_nWatchdogPeriodMs(watchdogPeriodMs),
      m_SdNotifyTimer("") {}

CProcessCore::~CProcessCore() = default;

int CProcessCore::Exec() {
    TAK_LOGI("EXEC");
    SetLiveCore(this);
    service_app_lifecycle_callback_s callbacks{};
    callbacks.create = s_AppCreate;
    callbacks.terminate = s_AppTerminate;
    callbacks.app_control = s_AppControl;
    int ret = service_app_main(m_nArgc, m_ppArgv, &callbacks, this);
    SetLiveCore(nullptr);
    if (ret != 0) {
        TAK_LOGE("service_app_main() failed with error ret: %d", ret);
    }
    TAK_LOGI("EXEC finish");
    return ret;
}

bool CProcessCore::s_AppCreate(void* /*data*/) {
    // Everything waits for the first launch request.
    return true;
}

void CProcessCore::s_AppControl(app_control_h appControl, void* data) {
    TAK_LOGI("CONTROL");
    auto* core = static_cast<CProcessCore*>(data);
    if (core == nullptr) {
        TAK_LOGE("pData is NULL");
        return;
    }
    if (!s_bCreated) {
        core->m_Init();
    }
    if (core->m_bExiting) {
        TAK_LOGE("process already exited, do not handle the new event");
        return;
    }
    std::string monitorEvent;
    if (m_GetControlData(appControl, "monitor_event", monitorEvent)) {
        core->m_HandleMonitorRequest(appControl, monitorEvent);
        return;
    }
    std::string recoveryAction;
    if (m_GetControlData(appControl, "recovery_action", recoveryAction)) {
        core->m_HandleRecoveryRequest();
        return;
    }
    core->OnReset(appControl);
}

void CProcessCore::m_HandleMonitorRequest(app_control_h appControl, const std::string& event) {
    if (event != "monitor_install" && event != "cancel_monitor_install") {
        return;
    }
    std::string appKey;
    int callerPid = -1;
    m_GetControlData(appControl, "appkey", appKey);
    m_GetControlData(appControl, "caller_pid", callerPid);
    if (event == "cancel_monitor_install") {
        CTAKCommonHandle::CallIfPresent<TAK_CANCEL_MONITOR_INSTALL_API>(TAK_API_CANCEL_MONITOR_INSTALL,
                                                                        appKey.c_str(), callerPid);
        return;
    }
    _CLIENT_INFO_T client;
    m_GetControlData(appControl, "deprecated", client.deprecated);
    m_GetControlData(appControl, "method", client.method);
    m_GetControlData(appControl, "obj", client.obj);
    m_GetControlData(appControl, "thread_id", client.thread_id);
    m_GetControlData(appControl, "event_index", client.event_index);
    auto monitor = CTAKCommonHandle::Find<TAK_MONITOR_INSTALL_API>(TAK_API_MONITOR_INSTALL);
    if (monitor == nullptr) {
        return;
    }
    // The monitoring owns the record from here on and frees it with its cancelled state.
    monitor(appKey.c_str(), callerPid, CProcessDbus::MonitoredInstallEvent, new _CLIENT_INFO_T(client));
}

void CProcessCore::m_HandleRecoveryRequest() {
    CTAKCommonHandle::CallVoid(TAK_API_NOTIFY_RECOVERY_ACTION);
}

void CProcessCore::m_Init() {
    struct stat st {};
    g_bReleasedImage = stat(platform_path_fixed("/etc/release"), &st) == 0;
    TAK_LOGI("g_bReleasedImage is [%d]. ", g_bReleasedImage);

    m_SigTermInstall();

    m_bWatchdogRegistered = false;
    if (!m_SdNotifyTimer.Create(m_nWatchdogPeriodMs, std::numeric_limits<unsigned long long>::max(),
                                m_SdNotify, this)) {
        TAK_LOGE("m_SdNotifyTimer.Create watchdog error");
    }

    CTAKCommonHandle::OpenLibrary();
    OnCreate();

    if (ICSystemInfo::GetAOTBoard()) {
        int ready = 0;
        ICVConf::Get(kAotSvcReadyKey, ready);
        TAK_LOGI("vconf[%s], value[%d]", kAotSvcReadyKey, ready);
        if (ready == kAotSvcReady) {
            trace_begin("aot_svc_ready is 2");
            trace_end();
            m_CreateBinders();
        } else {
            TAK_LOGI("%s is not 2, waiting...", kAotSvcReadyKey);
            vconf_notify_key_changed(kAotSvcReadyKey, m_AOTSVCVconfCB, this);
            // A value set between the read above and the registration is never notified: look once
            // more. The callback stops listening first, so a notification still on its way is dropped.
            if (ICVConf::Get(kAotSvcReadyKey, ready) && ready == kAotSvcReady) {
                m_AOTSVCVconfCB(nullptr, this);
            }
        }
    }

    m_CheckBoostFlag();
    s_bCreated = true;
}

void CProcessCore::m_SetAppInfoHandle() {
    CTAKAppInfoHandle::SetSetInfoHandle(CAppDBInfo::SetAppInfo);
    CTAKAppInfoHandle::SetGetInfoByIDHandle(CAppDBInfo::GetAppInfoById);
    CTAKAppInfoHandle::SetGetInfoByRuntitleHandle(CAppDBInfo::GetAppInfoByRunTitle);
    CTAKAppInfoHandle::SetRemoveAppHandle(CAppDBInfo::RemoveApp);
    CTAKAppInfoHandle::SetGetPkgTypeHandle(CAppDBInfo::GetAppPkgTypeInfo);
    CTAKAppInfoHandle::SetGetAllAppHandle(CAppDBInfo::GetAllAppList);
    CTAKAppInfoHandle::SetGetAllAppStringHandle(CAppDBInfo::GetAllAppString);
    CTAKAppInfoHandle::SetGetUSBAppHandle(CAppDBInfo::GetUsbAppsInfo);
    CTAKAppInfoHandle::SetGetUnavailableUSBAppHandle(CAppDBInfo::GetUnAvailableUsbAppsInfo);
    CTAKConfigHandle::SetGetConfigTableHandle(CAppDBInfo::GetConfigTable);
    CTAKConfigHandle::SetUpdateConfigTableHandle(CAppDBInfo::UpdateConfigTable);
    CTAKConfigHandle::SetGetAppSyncConfigHandle(CAppDBInfo::GetAppSyncConfig);
    CTAKConfigHandle::SetUpdateAppSyncConfigHandle(CAppDBInfo::UpdateAppSyncConfig);
}

void CProcessCore::m_SigTermInstall() {
    // The log call is not async-signal-safe, so the signal is turned into a main-loop source.
    g_unix_signal_add(
        SIGTERM,
        [](gpointer) -> gboolean {
            m_SigTerm(SIGTERM);
            return G_SOURCE_CONTINUE;
        },
        nullptr);
}

void CProcessCore::m_SigTerm(int signal) {
    TAK_LOGE("***** received SIGTERM signal %d *****", signal);
}

void CProcessCore::m_SdNotify(void* data) {
    auto* core = static_cast<CProcessCore*>(data);
    if (core == nullptr) {
        TAK_LOGE("error !!.");
    } else if (!core->m_bWatchdogRegistered) {
        int ret = smart_deadlock_register_watchdog_service(kWatchdogServiceType);
        TAK_LOGI("smart_deadlock_register_watchdog_service: return value = [%d]", ret);
        core->m_bWatchdogRegistered = true;
    }
    TAK_LOGD("call smart_deadlock_watchdog_notify");
    int ret = smart_deadlock_watchdog_notify();
    TAK_LOGD("smart_deadlock_watchdog_notify: return value = [%d]", ret);
    TAK_LOGD("[end]sd_notifyf watchdog: [%s], TAK PID[%d], return value = [%d]",
             core != nullptr ? core->m_strProcessName.c_str() : "", getpid(), ret);
}

void CProcessCore::m_CreateBinders() {
    bool dangbei = ICSystemInfo::IsDangbeiStoreSupported();
    if (dangbei) {
        auto create =
            CTAKCommonHandle::Find<TAK_CREATE_COMMUNICATOR_BINDER_API>(TAK_API_CREATE_COMMUNICATOR_BINDER);
        if (create != nullptr && create(m_BinderServiceRegistered, this) != 0) {
            CommunicatorBinderCreated();
        }
    }
    if (!CTAKCommonHandle::CallVoid(TAK_API_CREATE_APPFW_BINDER)) {
        return;
    }
    // Without the store nothing waits for the communicator binder: the app-framework binder is enough.
    if (!dangbei) {
        CommunicatorBinderCreated();
    }
}

void CProcessCore::m_DestroyBinders() {
    CTAKCommonHandle::CallVoid(TAK_API_DESTROY_COMMUNICATOR_BINDER);
    CTAKCommonHandle::CallVoid(TAK_API_DESTROY_APPFW_BINDER);
}

void CProcessCore::m_BinderServiceRegistered(void* data) {
    auto* core = static_cast<CProcessCore*>(data);
    if (core == nullptr) {
        TAK_LOGE("poCore is NULL!!");
        return;
    }
    std::lock_guard<std::mutex> lock(g_LiveCoreLock);
    if (core != g_poLiveCore) {
        TAK_LOGE("process core %p is not running, binder callback dropped", data);
        return;
    }
    core->CommunicatorBinderCreated();
}

void CProcessCore::m_AOTSVCVconfCB(keynode_t* /*node*/, void* data) {
    auto* core = static_cast<CProcessCore*>(data);
    if (core == nullptr) {
        TAK_LOGE("poCore is NULL!!");
        return;
    }
    int ready = 0;
    ICVConf::Get(kAotSvcReadyKey, ready);
    if (ready != kAotSvcReady) {
        TAK_LOGI("%s is not 2, waiting...", kAotSvcReadyKey);
        return;
    }
    vconf_ignore_key_changed(kAotSvcReadyKey, m_AOTSVCVconfCB);
    TAK_LOGI("vconf[%s], value[%d]", kAotSvcReadyKey, ready);
    trace_begin("aot_svc_ready is 2");
    trace_end();
    core->m_CreateBinders();
}

bool CProcessCore::m_CallBoostPair(const char* first, const char* second) {
    auto firstApi = CTAKCommonHandle::Find<TAK_VOID_API>(first);
    auto secondApi = CTAKCommonHandle::Find<TAK_VOID_API>(second);
    if (firstApi == nullptr || secondApi == nullptr) {
        return false;
    }
    firstApi();
    secondApi();
    return true;
}

void CProcessCore::m_CheckBoostFlag() {
    const char* marker = platform_path_fixed(kUpdateMarker);
    g_autoptr(GFile) file = g_file_new_for_path(marker);
    g_autoptr(GError) error = nullptr;
    // Without WATCH_MOVES a file renamed into place or away is still reported as created or deleted.
    m_gFileMonitorHandle = g_file_monitor_file(file, G_FILE_MONITOR_NONE, nullptr, &error);
    if (m_gFileMonitorHandle == nullptr) {
        TAK_LOGE("monitor %s failed: %s", marker, error != nullptr ? error->message : "");
    } else {
        m_MonitorHandlerId =
            g_signal_connect(m_gFileMonitorHandle, "changed", G_CALLBACK(m_FileChangeCB), this);
    }
    if (access(marker, F_OK) == 0 &&
        m_CallBoostPair(TAK_API_START_BOOST_OWN_PROCESS, TAK_API_START_BOOST_APPFW)) {
        s_bBoosted = true;
    }
}

void CProcessCore::m_FileChangeCB(GFileMonitor* /*monitor*/, GFile* file, GFile* /*otherFile*/,
                                  GFileMonitorEvent event, gpointer /*data*/) {
    g_autofree gchar* path = file != nullptr ? g_file_get_path(file) : nullptr;
    if (path == nullptr) {
        TAK_LOGE("file name is NULL");
        return;
    }
    TAK_LOGI("%s is changed. event[%d]", path, event);
    if (g_strcmp0(path, platform_path_fixed(kUpdateMarker)) == 0) {
        if (event == G_FILE_MONITOR_EVENT_CREATED) {
            TAK_LOGI("%s is created", path);
            if (m_CallBoostPair(TAK_API_START_BOOST_OWN_PROCESS, TAK_API_START_BOOST_APPFW)) {
                s_bBoosted = true;
            }
        } else if (event == G_FILE_MONITOR_EVENT_DELETED) {
            TAK_LOGI("%s is deleted", path);
            if (m_CallBoostPair(TAK_API_STOP_BOOST_OWN_PROCESS, TAK_API_STOP_BOOST_APPFW)) {
                s_bBoosted = false;
            }
        }
    }
}

void CProcessCore::m_StopFileMonitor() {
    if (m_gFileMonitorHandle == nullptr) {
        return;
    }
    g_file_monitor_cancel(m_gFileMonitorHandle);
    if (m_MonitorHandlerId != 0) {
        g_signal_handler_disconnect(m_gFileMonitorHandle, m_MonitorHandlerId);
        m_MonitorHandlerId = 0;
    }
    g_object_unref(m_gFileMonitorHandle);
    m_gFileMonitorHandle = nullptr;
}

void CProcessCore::s_AppTerminate(void* data) {
    auto* core = static_cast<CProcessCore*>(data);
    if (core == nullptr) {
        TAK_LOGE("pData is NULL");
        return;
    }
    core->m_StopFileMonitor();
    core->m_SdNotifyTimer.Destroy();
    if (ICSystemInfo::GetAOTBoard()) {
        core->m_DestroyBinders();
    }
    core->OnTerminate();
    if (s_bBoosted) {
        s_bBoosted = false;
        m_CallBoostPair(TAK_API_STOP_BOOST_OWN_PROCESS, TAK_API_STOP_BOOST_APPFW);
    }
}

bool CProcessCore::m_GetControlData(app_control_h appControl, const char* key, std::string& out) {
    char* value = nullptr;
    if (app_control_get_extra_data(appControl, key, &value) != APP_CONTROL_ERROR_NONE) {
        TAK_LOGE("do not have key[%s]!!", key);
        return false;
    }
    out = value != nullptr ? value : "";
    free(value);
    TAK_LOGI("has key[%s] value[%s]", key, out.c_str());
    return true;
}

bool CProcessCore::m_GetControlData(app_control_h appControl, const char* key, bool& out) {
    std::string text;
    if (!m_GetControlData(appControl, key, text)) {
        return false;
    }
    out = text == "true";
    return true;
}

bool CProcessCore::m_GetControlData(app_control_h appControl, const char* key, int& out) {
    char* value = nullptr;
    if (app_control_get_extra_data(appControl, key, &value) != APP_CONTROL_ERROR_NONE) {
        TAK_LOGE("do not have key[%s]!!", key);
        return false;
    }
    out = TAKString::Integer(value != nullptr ? value : "");
    free(value);
    TAK_LOGI("has key[%s] value[%d]", key, out);
    return true;
}

bool CProcessCore::m_GetControlData(app_control_h appControl, const char* key, long& out) {
    char* value = nullptr;
    if (app_control_get_extra_data(appControl, key, &value) != APP_CONTROL_ERROR_NONE) {
        TAK_LOGE("do not have key[%s]!!", key);
        return false;
    }
    out = ToSignedLong(value != nullptr ? value : "");
    free(value);
    TAK_LOGI("has key[%s] value[%ld]", key, out);
    return true;
}
