// The entry points of the service's common library "libtak_common.so", as the reset process calls
// them. The process looks each name up just before use (CTAKCommonHandle); any substitute library
// built against this header exports the same names with the same shapes.
#pragma once

#include <app_control.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

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
typedef int (*TAK_MONITOR_INSTALL_API)(const char* appKey, int callerPid, TAK_PROGRESS_CB callback,
                                       void* userData);
typedef int (*TAK_CANCEL_MONITOR_INSTALL_API)(const char* appKey, int callerPid);

// InstallAppAPI / UninstallAppAPI: the only argument is a launch request whose extra data carry
// "appkey", "keytype", "callback" and "userdata" (addresses as decimal text) and the kind's own keys.
typedef int (*TAK_INSTALL_API)(app_control_h request);

// ClearAndroidDataAPI: clears the data of one Android package.
typedef int (*TAK_CLEAR_ANDROID_DATA_API)(const char* packageName);
// SetPreloadStatusAPI
typedef int (*TAK_SET_PRELOAD_STATUS_API)(int status);

// A package that an app requires, or a service that it needs: the key of the maps below is `id`.
struct OPENAPI_REQUIRE_INFO {
    std::string id;           // the required app's id
    std::string version;      // the lowest acceptable version of the required package, dotted
    std::string pkgid;        // the required package's id
    bool builtInApp = false;  // the required item is itself a built-in app (required services only)
};

// One built-in app as GetBuiltInAppListAPI lists it. The fields named by their position carry the
// library's own data; the reset process copies them unchanged.
struct OPENAPI_BUILTIN_APP_INFO {
    std::string appId;
    std::string orvixId;  // the platform app id
    std::string pkgId;
    std::string field4;
    std::string field5;
    std::string field6;
    std::string field7;
    std::string appType;  // "ROBOTAPP": the package lives in the robot companion's package space
    std::string resetMode = "inactive";
    std::string field10;
    std::string field11;
    std::map<std::string, OPENAPI_REQUIRE_INFO>
    requires;
};

// Where and how an app is downloaded, as GetAppsDLDInfoAPI answers for one app.
struct OPENAPI_APP_DLD_INFO {
    std::string id;
    std::string version;
    std::string titleLang;
    std::string title;
    std::string iconURL;
    std::string url;
    std::string fileExtension;
    std::string checksum;
    std::string orvixid;
    std::string platform = "ORVIX";
    std::string appGroup;
    std::string iconUpdated;
    std::string contentID;
    std::string category;
    // The library's own data, carried but never written out by the reset process.
    std::string extra1;
    std::string extra2 = "not confirmed";
    std::string extra3;
    std::string extra4;
    std::string extra5;
    std::string extra6;
    int64_t extraValue = 0;
    std::map<std::string, OPENAPI_REQUIRE_INFO>
    requires;
    std::map<std::string, OPENAPI_REQUIRE_INFO> requiredService;
    int64_t fileSize = 0;
    int64_t decompressedSize = 0;
    bool usbInstall = false;
    bool mountInstall = false;
    bool removable = false;
    bool multiScreen = false;
    bool ambient = false;
    bool langIcon = false;
    bool squareIcon = false;
    bool hiddenInstall = false;
    bool gameHome = false;
    bool multiHome = false;
};

// The install statistics record that an install request carries by address ("biu_kpi_info"): seven
// strings, all empty unless set. The reset process fills the first with the package id, the third with
// the app's fifth built-in field and the seventh with the install mode; the library reads it during the
// call.
struct BIU_INSTALL_KPI_INFO {
    static constexpr int FIELD_COUNT = 7;
    std::string fields[FIELD_COUNT];
};

// One server query of GetAppsDLDInfoAPI; the request map is keyed by `appId`.
struct APP_SERVER_REQUEST_INFO {
    std::string appId;
    std::string orvixId;
    std::string pkgId;
    std::string appType;
};

// GetBuiltInAppListAPI: fills `list` in the library's order for the named caller process.
// True when the library could produce a list (possibly empty).
typedef bool (*TAK_GET_BUILTIN_APP_LIST_API)(std::vector<OPENAPI_BUILTIN_APP_INFO>& list,
                                             std::string callerProcessName);

// GetAppsDLDInfoAPI: answers the requests it can, keyed by app id. True when the query was made.
typedef bool (*TAK_GET_APPS_DLD_INFO_API)(std::map<std::string, APP_SERVER_REQUEST_INFO>& requests,
                                          std::map<std::string, OPENAPI_APP_DLD_INFO>& result);

// A settings value as the library hands it to a change callback; `type` is a vconf_type code
// (40 string, 41 int, 42 double, 43 bool) and says which member holds the value.
struct VCONF_VALUE {
    int type = 0;
    int intValue = 0;
    bool boolValue = false;
    double doubleValue = 0.0;
    std::string stringValue;
};

// Called by the library, on a thread of its own, each time the watched key changes.
typedef void (*TAK_VCONF_CHANGE_CB)(std::string key, VCONF_VALUE value);

// RegisterVconfChangeCBAPI / UnregisterVconfChangeCBAPI: one watch per key; 0 on success.
typedef int (*TAK_REGISTER_VCONF_CHANGE_CB_API)(std::string key, TAK_VCONF_CHANGE_CB callback);
typedef int (*TAK_UNREGISTER_VCONF_CHANGE_CB_API)(std::string key);

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
