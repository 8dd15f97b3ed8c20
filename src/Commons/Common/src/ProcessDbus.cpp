#include "ProcessDbus.h"

#include <unistd.h>

#include <cstdint>

#include "TAKDir.h"
#include "TAKLog.h"
#include "TAKMount.h"

GDBusConnection* CProcessDbus::s_pConnection = nullptr;
std::mutex CProcessDbus::s_tConnectionLock;
std::string CProcessDbus::s_ActionMethod;

bool CProcessDbus::m_GetConnection() {
    std::lock_guard<std::mutex> lock(s_tConnectionLock);
    if (s_pConnection != nullptr) {
        TAK_LOGD("Gdbus already connected");
        return true;
    }
    TAK_LOGD("getting gdus connection...");
    g_autoptr(GError) error = nullptr;
    // GIO honours DBUS_SYSTEM_BUS_ADDRESS, which is how a private bus stands in for the system bus.
    g_autoptr(GDBusConnection) connection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (error != nullptr) {
        g_autofree gchar* name = g_dbus_error_encode_gerror(error);
        TAK_LOGE("get sync system bus error %s, detail[message:%s, code:%d] ", name, error->message,
                 error->code);
        return false;
    }
    // A bus that goes away must fail the next report, not end the process.
    g_dbus_connection_set_exit_on_close(connection, FALSE);
    s_pConnection = static_cast<GDBusConnection*>(g_steal_pointer(&connection));
    TAK_LOGD("got gdus connection");
    return true;
}

bool CProcessDbus::m_CheckNames(const char* busName, const char* objectPath, const char* interfaceName,
                                const char* methodName, GError** error) {
    // Names built from a caller's "obj" may be anything; GDBus only asserts on them.
    if (busName != nullptr && g_dbus_is_name(busName) && objectPath != nullptr &&
        g_variant_is_object_path(objectPath) && interfaceName != nullptr &&
        g_dbus_is_interface_name(interfaceName) && methodName != nullptr &&
        g_dbus_is_member_name(methodName)) {
        return true;
    }
    g_set_error(error, G_DBUS_ERROR, G_DBUS_ERROR_INVALID_ARGS, "invalid destination [%s] [%s] [%s] [%s]",
                busName != nullptr ? busName : "", objectPath != nullptr ? objectPath : "",
                interfaceName != nullptr ? interfaceName : "", methodName != nullptr ? methodName : "");
    return false;
}

bool CProcessDbus::MethodCall(const char* busName, const char* objectPath, const char* interfaceName,
                              const char* methodName, GVariant* parameters, GVariant** reply) {
    TAK_LOGD("MethodCall : ObjPath:[%s], MethodName:[%s]", objectPath != nullptr ? objectPath : "",
             methodName != nullptr ? methodName : "");
    // Owned from here on, so that every return below consumes a floating tuple as promised.
    g_autoptr(GVariant) owned = parameters != nullptr ? g_variant_ref_sink(parameters) : nullptr;
    if (reply != nullptr) {
        *reply = nullptr;
    }
    if (!m_GetConnection()) {
        TAK_LOGE("Connection is NULL.");
        return false;
    }
    g_autoptr(GError) error = nullptr;
    g_autoptr(GVariant) result = nullptr;
    if (m_CheckNames(busName, objectPath, interfaceName, methodName, &error)) {
        result = g_dbus_connection_call_sync(s_pConnection, busName, objectPath, interfaceName, methodName,
                                             owned, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
    }
    if (error != nullptr) {
        g_autofree gchar* name = g_dbus_error_encode_gerror(error);
        TAK_LOGE("method call false.%s, detail[message:%s, code:%d] ", name, error->message, error->code);
        return false;
    }
    if (reply != nullptr) {
        *reply = static_cast<GVariant*>(g_steal_pointer(&result));
    }
    TAK_LOGD("method call success");
    return true;
}

bool CProcessDbus::ProcessResult(const std::string& resultName, int result, void* userdata,
                                 const std::string& extra) {
    std::string cookie = std::to_string(static_cast<long>(reinterpret_cast<intptr_t>(userdata)));
    // The bus call's own lines carry no arguments; this one says what was reported, for whoever reads
    // the log afterwards.
    TAK_LOGI("process_result name[%s] value[%d] cookie[%s]", ValidUtf8(resultName).c_str(), result,
             cookie.c_str());
    GVariant* parameters = g_variant_new("(siss)", ValidUtf8(resultName).c_str(), result, cookie.c_str(),
                                         ValidUtf8(extra).c_str());
    return MethodCall(TAK_INNER_SERVER_NAME, TAK_INNER_SERVER_PATH, TAK_INNER_SERVER_INTERFACE,
                      "process_result", parameters, nullptr);
}

void CProcessDbus::MonitoredInstallEvent(std::string appKey, TAK_EVENT_STATE_E state, int progress,
                                         int result, std::string /*message*/, void* userData) {
    auto* client = static_cast<_CLIENT_INFO_T*>(userData);
    if (client == nullptr) {
        TAK_LOGE("pvUserData is NULL!!");
        return;
    }
    TAK_LOGD("key %s state %d progress %d result %d", appKey.c_str(), state, progress, result);
    if (state == TAK_EVENT_STATE_MONITOR_CANCELLED) {
        // The last callback of a monitoring: the record is ours to free.
        TAK_LOGI("%s is cancelled", appKey.c_str());
        delete client;
        return;
    }
    if (client->method.empty()) {
        return;
    }
    GVariant* parameters = g_variant_new("(isiiiisis)", client->thread_id, ValidUtf8(appKey).c_str(),
                                         static_cast<int>(state), progress, result, client->event_index,
                                         ValidUtf8(client->method).c_str(), client->deprecated, "");
    MethodCall(ClientBusName(client->obj).c_str(), ClientObjectPath(client->obj).c_str(),
               ClientInterfaceName(client->obj).c_str(), "tak_install_result", parameters, nullptr);
}

bool CProcessDbus::ActionMethodCall(const _CLIENT_INFO_T& client, const std::string& appId, int state,
                                    int data, int result) {
    TAK_LOGI("[client object:%s] app %s state %d data %d result %d (method %s)", client.obj.c_str(),
             appId.c_str(), state, data, result, client.method.c_str());
    if (client.method.empty()) {
        return false;
    }
    std::string id = ValidUtf8(appId);
    std::string method = ValidUtf8(client.method);
    GVariant* parameters = nullptr;
    if (s_ActionMethod == "tak_appsync_result") {
        parameters = g_variant_new("(isiiiisi)", client.thread_id, id.c_str(), state, result, data,
                                   client.event_index, method.c_str(), client.deprecated);
    } else if (s_ActionMethod == "tak_install_result") {
        parameters = g_variant_new("(isiiiisis)", client.thread_id, id.c_str(), state, result, data,
                                   client.event_index, method.c_str(), client.deprecated, "");
    }
    return MethodCall(ClientBusName(client.obj).c_str(), ClientObjectPath(client.obj).c_str(),
                      ClientInterfaceName(client.obj).c_str(), s_ActionMethod.c_str(), parameters, nullptr);
}

bool CProcessDbus::GetIconFromIconImg(const std::string& srcPath, const std::string& mountDir,
                                      const std::string& iconPath) {
    if (!CTAKMount::Mount(srcPath, mountDir)) {
        TAK_LOGE("Fail to mount file[%s]!", srcPath.c_str());
        return false;
    }
    bool copied = m_CopyServerIcons(mountDir, iconPath);
    bool removed = m_RemoveIconImg(srcPath, mountDir);
    return copied && removed;
}

bool CProcessDbus::m_CopyServerIcons(const std::string& mountDir, const std::string& iconPath) {
    // The server joins file names straight onto the directory it is given.
    std::string source = mountDir.empty() || mountDir.back() != '/' ? mountDir + "/" : mountDir;
    GVariant* parameters = g_variant_new("(ss)", ValidUtf8(source).c_str(), ValidUtf8(iconPath).c_str());
    GVariant* answer = nullptr;
    if (!MethodCall(TAK_INNER_SERVER_NAME, TAK_INNER_SERVER_PATH, TAK_INNER_SERVER_INTERFACE,
                    "sub_process_copy_server_icons", parameters, &answer)) {
        return false;
    }
    g_autoptr(GVariant) reply = answer;
    if (reply == nullptr || !g_variant_is_of_type(reply, G_VARIANT_TYPE("(i)"))) {
        TAK_LOGE("sub_process_copy_server_icons answered %s instead of (i)",
                 reply != nullptr ? g_variant_get_type_string(reply) : "nothing");
        return false;
    }
    int result = -1;
    g_variant_get(reply, "(i)", &result);
    TAK_LOGI("MethodCall success, result %d (0-TAK_NO_ERROR)", result);
    return result == 0;
}

bool CProcessDbus::m_RemoveIconImg(const std::string& srcPath, const std::string& mountDir) {
    // A directory still mounted on is left alone: removing it would reach into the image.
    bool unmounted = CTAKMount::Umount(mountDir);
    if (unmounted && !TAKDir::RemoveAllFiles(mountDir, true, false)) {
        TAK_LOGE("Fail to remove dir[%s]!", mountDir.c_str());
        unmounted = false;
    }
    // The loop device keeps its own hold on the image, so its name may go even while it is mounted.
    if (unlink(srcPath.c_str()) != 0) {
        TAK_LOGE("Fail to remove file[%s]!", srcPath.c_str());
        return false;
    }
    return unmounted;
}

std::string CProcessDbus::ClientBusName(const std::string& obj) {
    return TAK_MANAGER_CLIENT_NAME_PREFIX + obj;
}

std::string CProcessDbus::ClientObjectPath(const std::string& obj) {
    return TAK_MANAGER_CLIENT_PATH_PREFIX + obj;
}

std::string CProcessDbus::ClientInterfaceName(const std::string& obj) {
    return TAK_MANAGER_CLIENT_INTERFACE_PREFIX + obj;
}

std::string CProcessDbus::ValidUtf8(const std::string& text) {
    // Embedded NULs would also be refused by D-Bus; the text ends at the first one, as a C string would.
    const char* begin = text.c_str();
    if (g_utf8_validate(begin, -1, nullptr)) {
        return text.c_str();
    }
    g_autofree gchar* valid = g_utf8_make_valid(begin, -1);
    return std::string(valid);
}
