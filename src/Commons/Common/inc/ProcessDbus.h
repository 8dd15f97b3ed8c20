// Reports to the other processes of the service over the system bus: the inner server (one well-known
// name) and the manager client of each caller (one name per caller, built from its "obj").
#pragma once

#include <gio/gio.h>

#include <mutex>
#include <string>

#include "TAKCommonApi.h"

#define TAK_INNER_SERVER_NAME "org.orvix.tv.vardell.innerserver"
#define TAK_INNER_SERVER_PATH "/org/orvix/tv/vardell/innerserver"
#define TAK_INNER_SERVER_INTERFACE "org.orvix.tv.vardell.innerserver.interface"

#define TAK_MANAGER_CLIENT_NAME_PREFIX "org.orvix.tv.vardell.managerclient."
#define TAK_MANAGER_CLIENT_PATH_PREFIX "/org/orvix/tv/vardell/managerclient/"
#define TAK_MANAGER_CLIENT_INTERFACE_PREFIX "org.orvix.tv.vardell.managerclient.interface."

// Who asked for the work: carried from the launch request into every report.
struct _CLIENT_INFO_T {
    int deprecated = 0;
    int thread_id = -1;
    int event_index = 0;
    std::string obj;     // suffix of the caller's manager-client names
    std::string method;  // the caller's method name; empty: nothing is reported to this client
    std::string reserved;
    std::string caller_process_name;
    std::string reset_reason;
    int flag = 0;
};

class CProcessDbus {
public:
    // One synchronous call. `parameters` may be floating and is consumed; on success the caller owns
    // *reply (may be null when reply is null).
    static bool MethodCall(const char* busName, const char* objectPath, const char* interfaceName,
                           const char* methodName, GVariant* parameters, GVariant** reply);

    // "process_result" on the inner server: (result name, result, caller cookie as signed decimal, extra).
    static bool ProcessResult(const std::string& resultName, int result, void* userdata,
                              const std::string& extra);

    // Progress callback of an install monitoring; userData is the heap client record of that monitoring,
    // freed when the monitoring reports that it was cancelled.
    static void MonitoredInstallEvent(std::string appKey, TAK_EVENT_STATE_E state, int progress, int result,
                                      std::string message, void* userData);

    // Reports one app's state to the caller's manager client with the process-wide action method.
    static bool ActionMethodCall(const _CLIENT_INFO_T& client, const std::string& appId, int state, int data,
                                 int result);

    // Mounts the icon image `srcPath` on `mountDir`, has the inner server copy the icons found there to
    // `iconPath` ("sub_process_copy_server_icons", answered 0 when it copied them), then unmounts and
    // removes the mount directory and the image. True when the icons were copied and all of that was
    // cleaned up. An image that cannot be mounted is left where it is.
    static bool GetIconFromIconImg(const std::string& srcPath, const std::string& mountDir,
                                   const std::string& iconPath);

    // Method name used by ActionMethodCall; empty unless a process of the family sets it.
    static std::string s_ActionMethod;

    // The manager-client names of a caller.
    static std::string ClientBusName(const std::string& obj);
    static std::string ClientObjectPath(const std::string& obj);
    static std::string ClientInterfaceName(const std::string& obj);

    // Text that may come from a launch request, made fit for a D-Bus string.
    static std::string ValidUtf8(const std::string& text);

private:
    static bool m_GetConnection();
    static bool m_CopyServerIcons(const std::string& mountDir, const std::string& iconPath);
    static bool m_RemoveIconImg(const std::string& srcPath, const std::string& mountDir);
    static bool m_CheckNames(const char* busName, const char* objectPath, const char* interfaceName,
                             const char* methodName, GError** error);

    static GDBusConnection* s_pConnection;
    static std::mutex s_tConnectionLock;  // guards s_pConnection while it is made
};
