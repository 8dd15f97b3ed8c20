// The entry points of the service's common library "libtak_common.so", as the reset process calls
// them. The process looks each name up just before use (CTAKCommonHandle); any substitute library
// built against this header exports the same names with the same shapes.
#pragma once

#include <app_control.h>

#include <string>

// Install and uninstall progress states reported by the common library. The reset process itself
// only names the ones below; every other value is passed through unchanged.
enum TAK_EVENT_STATE_E : int {
    TAK_EVENT_STATE_UNINSTALL_SUCCESS = 122,
    TAK_EVENT_STATE_UNINSTALL_FAIL = 123,
    TAK_EVENT_STATE_MONITOR_CANCELLED = 160,
    TAK_EVENT_STATE_BIU_RESET_TOTAL = 500,
    TAK_EVENT_STATE_BIU_RESET_ONE_DONE = 501,
    TAK_EVENT_STATE_BIU_RESET_FINISHED = 502,
};

// Progress callback: (app id, state, progress or data, result, message, user data). Called on the
// library's own threads, possibly many times per app.
typedef void (*TAK_PROGRESS_CB)(std::string appId, TAK_EVENT_STATE_E state, int progress, int result,
                                std::string message, void* userData);

// Called by the library once the communicator binder exists.
typedef void (*TAK_BINDER_CB)(void* userData);

// Entry points without arguments: QXCurlSSLLock, QXCurlSSLUnLock, CreateConnector, CreateInstaller,
// DestroyInstaller, DestroyConnector, CreateAppFWBinderAPI, DestroyCommunicatorBinderAPI,
// DestroyAppFWBinderAPI, StartBoostOwnProcessAPI, StartBoostAppFWAPI, StopBoostOwnProcessAPI,
// StopBoostAppFWAPI, NotifyRecoveryActionChangedAPI, DeleteAllInstallNotificationsAPI.
typedef void (*TAK_VOID_API)(void);

// CreateCommunicatorBinderAPI: non-zero when the binder already exists (the callback is then not called).
typedef int (*TAK_CREATE_COMMUNICATOR_BINDER_API)(TAK_BINDER_CB callback, void* userData);

// MonitorAppInstallStatusAPI / CancelMonitorAppInstallStatusAPI
typedef int (*TAK_MONITOR_INSTALL_API)(const char* appKey, int callerPid, TAK_PROGRESS_CB callback, void* userData);
typedef int (*TAK_CANCEL_MONITOR_INSTALL_API)(const char* appKey, int callerPid);

// InstallAppAPI / UninstallAppAPI: the only argument is a launch request whose extra data carry
// "appkey", "keytype", "callback" and "userdata" (addresses as decimal text) and the kind's own keys.
typedef int (*TAK_INSTALL_API)(app_control_h request);

// ClearAndroidDataAPI: clears the data of one Android package.
typedef int (*TAK_CLEAR_ANDROID_DATA_API)(const char* packageName);
// SetPreloadStatusAPI
typedef int (*TAK_SET_PRELOAD_STATUS_API)(int status);

// Entry-point names, so that callers and substitutes never spell them twice.
#define TAK_API_QX_CURL_SSL_LOCK "QXCurlSSLLock"
#define TAK_API_QX_CURL_SSL_UNLOCK "QXCurlSSLUnLock"
#define TAK_API_CREATE_CONNECTOR "CreateConnector"
#define TAK_API_CREATE_INSTALLER "CreateInstaller"
#define TAK_API_DESTROY_INSTALLER "DestroyInstaller"
#define TAK_API_DESTROY_CONNECTOR "DestroyConnector"
#define TAK_API_CREATE_COMMUNICATOR_BINDER "CreateCommunicatorBinderAPI"
#define TAK_API_CREATE_APPFW_BINDER "CreateAppFWBinderAPI"
#define TAK_API_DESTROY_COMMUNICATOR_BINDER "DestroyCommunicatorBinderAPI"
#define TAK_API_DESTROY_APPFW_BINDER "DestroyAppFWBinderAPI"
#define TAK_API_START_BOOST_OWN_PROCESS "StartBoostOwnProcessAPI"
#define TAK_API_START_BOOST_APPFW "StartBoostAppFWAPI"
#define TAK_API_STOP_BOOST_OWN_PROCESS "StopBoostOwnProcessAPI"
#define TAK_API_STOP_BOOST_APPFW "StopBoostAppFWAPI"
#define TAK_API_MONITOR_INSTALL "MonitorAppInstallStatusAPI"
#define TAK_API_CANCEL_MONITOR_INSTALL "CancelMonitorAppInstallStatusAPI"
#define TAK_API_NOTIFY_RECOVERY_ACTION "NotifyRecoveryActionChangedAPI"
#define TAK_API_UNINSTALL_APP "UninstallAppAPI"
#define TAK_API_SET_PRELOAD_STATUS "SetPreloadStatusAPI"
#define TAK_API_CLEAR_ANDROID_DATA "ClearAndroidDataAPI"
#define TAK_API_DELETE_ALL_INSTALL_NOTIFICATIONS "DeleteAllInstallNotificationsAPI"
#define TAK_API_GET_APPS_DLD_INFO "GetAppsDLDInfoAPI"
#define TAK_API_GET_BUILTIN_APP_LIST "GetBuiltInAppListAPI"
#define TAK_API_REGISTER_VCONF_CHANGE_CB "RegisterVconfChangeCBAPI"
#define TAK_API_UNREGISTER_VCONF_CHANGE_CB "UnregisterVconfChangeCBAPI"
#define TAK_API_INSTALL_APP "InstallAppAPI"
